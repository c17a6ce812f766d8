// SPDX-License-Identifier: Apache-2.0
// The system's time on Linux.
#include "bptime.h"

#include "TimeUtil.h"

int BPTime_get_current_time(time_t* seconds) {
    timespec now{};
    if (seconds == nullptr || clock_gettime(CLOCK_REALTIME, &now) != 0) {
        return -1;
    }
    *seconds = now.tv_sec;
    return 0;
}

std::time_t CTimeUtil::GetCurrentTime() {
    std::time_t seconds = 0;
    BPTime_get_current_time(&seconds);
    return seconds;
}
