// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The log of this library: tag TVTIMER.
 */
#ifndef TVTIMER_LOG_H
#define TVTIMER_LOG_H

#include <dlog.h>

#include <string>

inline void logError(const std::string& text) {
    __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "TVTIMER", "%s", text.c_str());
}

inline void logInfo(const std::string& text) {
    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "TVTIMER", "%s", text.c_str());
}

#endif
