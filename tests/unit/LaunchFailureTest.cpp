// SPDX-License-Identifier: Apache-2.0
// A machine that can create no process.
#include <gmock/gmock.h>
#include <signal.h>

#include <cerrno>
#include <functional>

#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeLite.h"
#include "support/StateManagerOnBus.h"
#include "support/Visitor.h"

using fakes::FakeDlog;
using testing::ElementsAre;

namespace {

std::function<void()> duringVfork;

class LaunchFailureTest : public StateManagerOnBus {
protected:
    LaunchFailureTest() {
        signal(SIGCHLD, SIG_DFL);
        duringVfork = nullptr;
    }
};

}  // namespace

extern "C" pid_t __wrap_vfork();
extern "C" pid_t __wrap_vfork() {
    struct sigaction action {};
    sigaction(SIGCHLD, nullptr, &action);
    fakes::Actions::add(action.sa_handler == SIG_IGN ? "vfork with SIGCHLD ignored" : "vfork");
    if (duringVfork) {
        duringVfork();
    }
    errno = EAGAIN;
    return -1;
}

TEST_F(LaunchFailureTest, ALauncherThatCannotBeCreatedIsLoggedAndFalse) {
    auto manager = bornIn(STATE_RUNNING);
    FakeDlog::recordActions();

    EXPECT_FALSE(manager->LaunchZelLiteApp(true));

    EXPECT_THAT(actions(), ElementsAre("log LaunchZelLiteApp: Launching zel-lite-app-launch refresh(1)",
                                       "vfork with SIGCHLD ignored",
                                       "log LaunchZelLiteApp: Launch zel-app-lite failed"));
    EXPECT_THAT(FakeDlog::messages(6), ElementsAre("Launch zel-app-lite failed"));
}

TEST_F(LaunchFailureTest, AStartGoesOnWithoutTheApplication) {
    fakes::FakeLite::isDebug = true;
    auto manager = bornIn(STATE_TERMINATED);
    NamedListener listener("A");
    manager->RegisterListener(&listener);

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(FakeDlog::count(6, "Launch zel-app-lite failed"), 1U);
    EXPECT_THAT(actions(),
                ElementsAre("vfork with SIGCHLD ignored", "CreateZelControl", "Notify 1 0 0 0", "A OnStart"));
    EXPECT_EQ(stateOf(*manager), 1);
}

TEST_F(LaunchFailureTest, ALaunchKeepsOthersOut) {
    auto manager = bornIn(STATE_RUNNING);
    Visitor visitor;
    bool hadToWait = false;
    duringVfork = [&] { hadToWait = visitor.mustWait([&manager] { manager->IsZelTerminated(); }); };

    manager->LaunchZelLiteApp(false);

    EXPECT_TRUE(hadToWait);
}
