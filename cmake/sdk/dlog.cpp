// SPDX-License-Identifier: Apache-2.0
// What the daemon uses of the log. Compiled at configuration, never run.
#include <dlog.h>

int use() {
    return __dlog_print(LOG_ID_MAIN, DLOG_DEBUG, "tag", "%s", "text") +
           __dlog_print(LOG_ID_MAIN, DLOG_INFO, "tag", "%d", 1) +
           __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "tag", "text");
}
