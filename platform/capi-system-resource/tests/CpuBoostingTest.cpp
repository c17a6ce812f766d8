// SPDX-License-Identifier: Apache-2.0
#include <cpu-boosting.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/StderrPackets.h"

namespace {

using ::testing::HasSubstr;

// One test, because a process has one first call.
TEST(CpuBoostingTest, EveryCallSucceedsAndOneSaysThatNothingIsDone) {
    constexpr int kThreads = 8;
    StderrPackets packets;
    std::atomic<int> failures{0};

    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&failures] {
            pid_t thisThread = gettid();
            if (resource_register_cpu_inheritance_destination("zel-lite",
                                                              resource_pid_t{getpid(), nullptr, 0}) != 0 ||
                resource_register_cpu_inheritance_destination("zel-lite",
                                                              resource_pid_t{0, &thisThread, 1}) != 0) {
                ++failures;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(failures, 0);
    EXPECT_THAT(packets.next().value_or(""), HasSubstr(" I/CPU_BOOSTING(P"));
    EXPECT_FALSE(packets.next().has_value());
}

}  // namespace
