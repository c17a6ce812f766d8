// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeLite.h"

#include <unistd.h>

#include <string>

#include "TCApiAssert.h"
#include "ZelApiLite.h"
#include "fakes/Actions.h"

namespace fakes {

bool FakeLite::isDebug = false;
bool FakeLite::isPerf = false;
long FakeLite::printedBeforeAssertion = -1;

}  // namespace fakes

bool ZelApiLite::LiteUtility::IsDebug() {
    fakes::Actions::add("IsDebug");
    return fakes::FakeLite::isDebug;
}

bool ZelApiLite::LiteUtility::IsPerf() {
    fakes::Actions::add("IsPerf");
    return fakes::FakeLite::isPerf;
}

void _TCApiAssert(const char* expression, const char* file, unsigned long line, const char* message) {
    fakes::FakeLite::printedBeforeAssertion = lseek(STDOUT_FILENO, 0, SEEK_CUR);
    fakes::Actions::add("assert " + std::string(expression) + " " + file + " " + std::to_string(line) +
                        (message == nullptr ? "" : std::string(" ") + message));
}
