// SPDX-License-Identifier: Apache-2.0
// A machine that can create no process.
#include <gmock/gmock.h>
#include <signal.h>

#include <cerrno>

#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "support/PrivateBus.h"
#include "support/StateManagerWorld.h"

using LaunchFailureTest = StateManagerWorld;

extern "C" pid_t __wrap_vfork();
extern "C" pid_t __wrap_vfork() {
    struct sigaction action {};
    sigaction(SIGCHLD, nullptr, &action);
    fakes::Actions::add(action.sa_handler == SIG_IGN ? "vfork with SIGCHLD ignored" : "vfork");
    errno = EAGAIN;
    return -1;
}

TEST_F(LaunchFailureTest, ALauncherThatCannotBeCreatedIsLoggedAndFalse) {
    const PrivateBus bus(false);
    auto manager = bornAtBoot();
    forget();

    EXPECT_FALSE(manager->LaunchZelLiteApp(true));

    EXPECT_THAT(fakes::Actions::take(), testing::ElementsAre("vfork with SIGCHLD ignored"));
    EXPECT_THAT(fakes::FakeDlog::messages(6), testing::ElementsAre("Launch zel-app-lite failed"));
    EXPECT_EQ(fakes::FakeDlog::lines().back().function(), "LaunchZelLiteApp");
}
