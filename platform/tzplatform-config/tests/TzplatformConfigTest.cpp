// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <tzplatform_config.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

static_assert(TZ_SYS_ETC == 6, "the variable with the value 6 is the one that is /etc");

TEST(TzplatformConfigTest, APathIsBelowTheFolder) {
    EXPECT_STREQ(tzplatform_mkpath(TZ_SYS_ETC, "zel-lite/zel_lite_on"), "/etc/zel-lite/zel_lite_on");
}

TEST(TzplatformConfigTest, FolderAndPathAreJoinedWithOneSlash) {
    EXPECT_STREQ(tzplatform_mkpath(TZ_SYS_ETC, "/hosts"), "/etc/hosts");
    EXPECT_STREQ(tzplatform_mkpath(TZ_SYS_ETC, "//hosts"), "/etc/hosts");
    EXPECT_STREQ(tzplatform_mkpath(TZ_SYS_ETC, ""), "/etc/");
}

TEST(TzplatformConfigTest, TheRestOfAPathIsNotTouched) {
    EXPECT_STREQ(tzplatform_mkpath(TZ_SYS_ETC, "a//b/../c/"), "/etc/a//b/../c/");
}

TEST(TzplatformConfigTest, TheSamePathIsTheSamePointer) {
    const char* first = tzplatform_mkpath(TZ_SYS_ETC, "same");
    const char* other = tzplatform_mkpath(TZ_SYS_ETC, "other");

    const char* again = tzplatform_mkpath(TZ_SYS_ETC, std::string("/same").c_str());

    EXPECT_EQ(again, first);
    EXPECT_NE(other, first);
}

TEST(TzplatformConfigTest, APathStaysValidWhileManyOthersAreMade) {
    const char* early = tzplatform_mkpath(TZ_SYS_ETC, "early");

    for (int number = 0; number < 1000; ++number) {
        tzplatform_mkpath(TZ_SYS_ETC, std::to_string(number).c_str());
    }

    EXPECT_STREQ(early, "/etc/early");
}

TEST(TzplatformConfigTest, NoPathGivesNull) {
    EXPECT_EQ(tzplatform_mkpath(TZ_SYS_ETC, nullptr), nullptr);
}

TEST(TzplatformConfigTest, AnUnknownVariableGivesNull) {
    EXPECT_EQ(tzplatform_mkpath(static_cast<tzplatform_variable>(5), "x"), nullptr);
    EXPECT_EQ(tzplatform_mkpath(static_cast<tzplatform_variable>(7), "x"), nullptr);
    EXPECT_EQ(tzplatform_mkpath(static_cast<tzplatform_variable>(0), "x"), nullptr);
}

TEST(TzplatformConfigTest, ManyThreadsGetTheSamePointers) {
    constexpr int kThreads = 8;
    std::vector<std::vector<const char*>> results(kThreads);

    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (std::vector<const char*>& result : results) {
        threads.emplace_back([&result] {
            for (int number = 0; number < 500; ++number) {
                result.push_back(tzplatform_mkpath(TZ_SYS_ETC, ("thread/" + std::to_string(number)).c_str()));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    for (const std::vector<const char*>& result : results) {
        EXPECT_EQ(result, results.front());
    }
    EXPECT_EQ(std::set<const char*>(results.front().begin(), results.front().end()).size(), 500U);
}

}  // namespace
