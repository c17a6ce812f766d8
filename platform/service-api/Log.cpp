// SPDX-License-Identifier: Apache-2.0
#include "Log.h"

#include <dlog.h>

namespace {

constexpr const char* kTag = "ZEL_API";

}  // namespace

void logError(const std::string& text) {
    __dlog_print(LOG_ID_MAIN, DLOG_ERROR, kTag, "%s", text.c_str());
}

void logInfo(const std::string& text) {
    __dlog_print(LOG_ID_MAIN, DLOG_INFO, kTag, "%s", text.c_str());
}
