// SPDX-License-Identifier: Apache-2.0
#include <TimeUtil.h>
#include <bptime.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>

namespace {

using ::testing::AllOf;
using ::testing::Ge;
using ::testing::Le;

std::time_t wallClock() {
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

// Reads the time between two looks at the clock on the wall.
void expectWallClock(const std::function<std::time_t()>& read) {
    const std::time_t before = wallClock();
    const std::time_t seconds = read();
    const std::time_t after = wallClock();

    EXPECT_THAT(seconds, AllOf(Ge(before), Le(after)));
}

TEST(BptimeTest, TheTimeIsTheSecondsSinceTheEpoch) {
    expectWallClock([] {
        time_t seconds = 0;
        EXPECT_EQ(BPTime_get_current_time(&seconds), 0);
        return seconds;
    });
}

TEST(BptimeTest, NowhereToPutTheTimeIsAnError) {
    EXPECT_EQ(BPTime_get_current_time(nullptr), -1);
}

TEST(TimeUtilTest, TheTimeIsTheSecondsSinceTheEpoch) {
    expectWallClock([] { return CTimeUtil::GetCurrentTime(); });
}

}  // namespace
