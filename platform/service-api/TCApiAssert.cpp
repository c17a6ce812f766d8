// SPDX-License-Identifier: Apache-2.0
#include "TCApiAssert.h"

#include <dlog.h>

void _TCApiAssert(const char* expression, const char* file, unsigned long line, const char* message) {
    __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "ZEL_API", "assertion failed: %s, %s:%lu%s%s", expression, file,
                 line, message == nullptr ? "" : ": ", message == nullptr ? "" : message);
}
