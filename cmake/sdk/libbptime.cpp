// SPDX-License-Identifier: Apache-2.0
// What the daemon uses of the system's time. Compiled at configuration, never run.
#include <TimeUtil.h>
#include <bptime.h>

#include <ctime>

int use() {
    std::time_t now = CTimeUtil::GetCurrentTime();
    const int result = BPTime_get_current_time(&now);
    return result;
}
