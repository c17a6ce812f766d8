// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeTime.h"

#include <TimeUtil.h>
#include <bptime.h>

namespace fakes {

std::time_t FakeTime::now = 0;
int FakeTime::result = 0;

void FakeTime::reset() {
    now = 0;
    result = 0;
}

}  // namespace fakes

using fakes::FakeTime;

int BPTime_get_current_time(time_t* seconds) {
    if (FakeTime::result == 0) {
        *seconds = FakeTime::now;
    }
    return FakeTime::result;
}

std::time_t CTimeUtil::GetCurrentTime() {
    return FakeTime::now;
}
