// SPDX-License-Identifier: Apache-2.0
// Build properties, assertions, and what records and configuration are by default.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <new>
#include <string>
#include <vector>

#include "TCApiAssert.h"
#include "ZelApiLite.h"
#include "ZelServiceAPI.h"

namespace {

class LiteUtilityTest : public testing::Test {
protected:
    LiteUtilityTest() { clear(); }
    ~LiteUtilityTest() override { clear(); }

    static void touch(const char* path) { std::ofstream(path).close(); }

private:
    static void clear() {
        (void)std::remove("/etc/debug");
        (void)std::remove("/etc/perf");
    }
};

std::string logOfAssert(const char* message) {
    testing::internal::CaptureStderr();
    _TCApiAssert("a == b", "/src/some/File.cpp", 321, message);
    return testing::internal::GetCapturedStderr();
}

}  // namespace

TEST_F(LiteUtilityTest, ASetWithoutEitherFileIsNeither) {
    EXPECT_FALSE(ZelApiLite::LiteUtility::IsDebug());
    EXPECT_FALSE(ZelApiLite::LiteUtility::IsPerf());
}

TEST_F(LiteUtilityTest, ADebugSetHasItsFile) {
    touch("/etc/debug");

    EXPECT_TRUE(ZelApiLite::LiteUtility::IsDebug());
    EXPECT_FALSE(ZelApiLite::LiteUtility::IsPerf());
}

TEST_F(LiteUtilityTest, APerformanceSetHasItsFile) {
    touch("/etc/perf");

    EXPECT_FALSE(ZelApiLite::LiteUtility::IsDebug());
    EXPECT_TRUE(ZelApiLite::LiteUtility::IsPerf());
}

TEST(ApiAssertTest, OneErrorLineSaysWhatAndWhereAndTheProcessGoesOn) {
    const std::string log = logOfAssert("because");

    EXPECT_NE(log.find("E/ZEL_API"), std::string::npos) << log;
    EXPECT_NE(log.find("a == b, /src/some/File.cpp:321: because"), std::string::npos) << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

TEST(ApiAssertTest, TheExplanationMayBeMissing) {
    const std::string log = logOfAssert(nullptr);

    EXPECT_NE(log.find("a == b, /src/some/File.cpp:321\n"), std::string::npos) << log;
}

TEST(ServiceRecordsTest, ADefaultNotificationHasZeroInEveryField) {
    // In memory that was something else before.
    alignas(TSNotifyData) std::array<unsigned char, sizeof(TSNotifyData)> memory{};
    memory.fill(0xee);

    auto* data = new (memory.data()) TSNotifyData;

    EXPECT_EQ(data->source, 0);
    EXPECT_EQ(data->sourcePlugState, 0);
    EXPECT_EQ(data->value, 0);
    data->~TSNotifyData();
}

TEST(ServiceRecordsTest, DefaultServiceDataHasNoPidAndNeedsNoStandbyHandling) {
    alignas(TSZelData) std::array<unsigned char, sizeof(TSZelData)> memory{};
    memory.fill(0xee);

    auto* data = new (memory.data()) TSZelData;

    EXPECT_EQ(data->pid, -1);
    EXPECT_FALSE(data->needStandbyHandling);
}

TEST(IpcConfigurationTest, NameObjectAndInterfaceAreFixedOrAsGiven) {
    const ZelApiLite::IpcConfiguration configuration("com.brenlow.Test.Wire", "/com/brenlow/Test");

    EXPECT_FALSE(configuration.ProcessMethodCallInDefaultContext());
    EXPECT_EQ(configuration.MethodBusName(), "com.brenlow.ZELLite");
    EXPECT_EQ(configuration.InterfaceBusNameList(), std::vector<std::string>{"com.brenlow.Test.Wire"});
    EXPECT_EQ(configuration.ObjectPath(), "/com/brenlow/Test");
}

TEST(IpcConfigurationDeathTest, WhatIsNotModelledAbortsWithItsName) {
    const ZelApiLite::IpcConfiguration configuration("com.brenlow.Test.Wire", "/com/brenlow/Test");

    EXPECT_EXIT((void)configuration.StartCallTimestamp(), testing::KilledBySignal(SIGABRT),
                "StartCallTimestamp");
    EXPECT_EXIT((void)configuration.GetServiceProcessName(), testing::KilledBySignal(SIGABRT),
                "GetServiceProcessName");
}
