// SPDX-License-Identifier: Apache-2.0
// A machine that can create no process.
#include <gmock/gmock.h>

#include <cerrno>

#include "fakes/FakeDlog.h"
#include "support/PrivateBus.h"
#include "support/StateManagerWorld.h"

using LaunchFailureTest = StateManagerWorld;

extern "C" pid_t __wrap_vfork();
extern "C" pid_t __wrap_vfork() {
    errno = EAGAIN;
    return -1;
}

TEST_F(LaunchFailureTest, ALauncherThatCannotBeCreatedIsLoggedAndFalse) {
    const PrivateBus bus(false);
    auto manager = bornAtBoot();
    forget();

    EXPECT_FALSE(manager->LaunchZelLiteApp(true));

    EXPECT_THAT(fakes::FakeDlog::messages(6), testing::ElementsAre("Launch zel-app-lite failed"));
    EXPECT_EQ(fakes::FakeDlog::lines().back().function(), "LaunchZelLiteApp");
}
