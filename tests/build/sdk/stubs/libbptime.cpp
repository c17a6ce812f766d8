// SPDX-License-Identifier: Apache-2.0
#include <TimeUtil.h>
#include <bptime.h>

std::time_t CTimeUtil::GetCurrentTime() {
    return 0;
}

int BPTime_get_current_time(time_t*) {
    return -1;
}
