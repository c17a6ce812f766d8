// SPDX-License-Identifier: Apache-2.0
#include "TCApiAssert.h"

#include <string>

#include "Log.h"

// NOLINTNEXTLINE(bugprone-reserved-identifier): the set calls it so
void _TCApiAssert(const char* expression, const char* file, unsigned long line, const char* message) {
    std::string text =
        std::string("assertion failed: ") + expression + ", " + file + ":" + std::to_string(line);
    if (message != nullptr) {
        text += std::string(": ") + message;
    }
    logError(text);
}
