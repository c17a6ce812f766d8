// SPDX-License-Identifier: Apache-2.0
// The launcher of the companion application.
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>

#include "ZelDaemonStateManager.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeLite.h"
#include "support/Files.h"
#include "support/StateManagerOnBus.h"
#include "support/Wait.h"

using fakes::FakeDlog;
using testing::Contains;
using testing::ElementsAre;

namespace {

constexpr const char* kLauncherPath = "/usr/apps/zel-lite-app/bin/zel-lite-app-launch";
constexpr const char* kLaunched = "/tmp/launched";

// A launcher that writes down its arguments.
void installLauncher() {
    std::filesystem::create_directories("/usr/apps/zel-lite-app/bin");
    std::filesystem::copy_file(LAUNCHER, kLauncherPath);
    unlink(kLaunched);
}

// The test has a process namespace of its own, so every process that runs this program is seen.
std::size_t processesOfThisProgram() {
    const auto program = std::filesystem::read_symlink("/proc/self/exe");
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::error_code error;
        const bool isProcess = std::isdigit(entry.path().filename().string().front()) != 0;
        count += isProcess && std::filesystem::read_symlink(entry.path() / "exe", error) == program ? 1U : 0U;
    }
    return count;
}

class ZelDaemonStateManagerLauncherTest : public StateManagerOnBus {
protected:
    ZelDaemonStateManagerLauncherTest() { installLauncher(); }
    ~ZelDaemonStateManagerLauncherTest() override {
        unlink(kLauncherPath);
        signal(SIGCHLD, SIG_DFL);
    }
};

}  // namespace

TEST_F(ZelDaemonStateManagerLauncherTest, ARefreshIsPassedAsAnOption) {
    auto manager = bornIn(STATE_RUNNING);

    EXPECT_TRUE(manager->LaunchZelLiteApp(true));

    EXPECT_EQ(waitForLine(kLaunched), "[/usr/apps/zel-lite-app/bin/zel-lite-app-launch][-r]\n");
    EXPECT_THAT(FakeDlog::messages(kDebug), Contains("Launching zel-lite-app-launch refresh(1)"));
    EXPECT_THAT(readFile(FakeDlog::kFile), testing::HasSubstr("Launched zel-lite-app-launch\n"));
}

TEST_F(ZelDaemonStateManagerLauncherTest, WithoutRefreshTheSecondArgumentIsEmptyNotAbsent) {
    auto manager = bornIn(STATE_RUNNING);

    EXPECT_TRUE(manager->LaunchZelLiteApp(false));

    EXPECT_EQ(waitForLine(kLaunched), "[/usr/apps/zel-lite-app/bin/zel-lite-app-launch][]\n");
    EXPECT_THAT(FakeDlog::messages(kDebug), Contains("Launching zel-lite-app-launch refresh(0)"));
    EXPECT_THAT(readFile(FakeDlog::kFile), testing::HasSubstr("Launched zel-lite-app-launch\n"));
}

TEST_F(ZelDaemonStateManagerLauncherTest, TheLauncherIsReapedByTheKernel) {
    auto manager = bornIn(STATE_RUNNING);

    ASSERT_TRUE(manager->LaunchZelLiteApp(false));

    struct sigaction action {};
    sigaction(SIGCHLD, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
    waitForLine(kLaunched);
}

TEST_F(ZelDaemonStateManagerLauncherTest, AMissingLauncherEndsTheChildWithoutATrace) {
    auto manager = bornIn(STATE_RUNNING);
    unlink(kLauncherPath);
    unlink("/tmp/exit-handler-ran");
    std::atexit([] { writeFile("/tmp/exit-handler-ran", "x"); });

    EXPECT_TRUE(manager->LaunchZelLiteApp(false));

    EXPECT_TRUE(becomesTrue([] { return processesOfThisProgram() == 1; }));
    EXPECT_FALSE(exists("/tmp/exit-handler-ran"));
    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));
}

TEST_F(ZelDaemonStateManagerLauncherTest,
       OnADebugSetEachStartBringsUpTheApplicationBeforeTheServiceIsNotified) {
    fakes::FakeLite::isDebug = true;
    auto manager = bornIn(STATE_UNDEFINED);
    FakeDlog::recordActions();

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    auto order = actions();
    // The child's line comes only from a child that shares this memory, which not every sanitizer grants it.
    order.erase(std::remove(order.begin(), order.end(), "log LaunchZelLiteApp: Launched zel-lite-app-launch"),
                order.end());
    EXPECT_THAT(lastOf(order, 5),
                ElementsAre("log m_StartZelDaemonService: Message send success, replay "
                            "objectPath(/org/freedesktop/systemd1/job/7)",
                            "log Notify: LaunchZelLiteApp",
                            "log LaunchZelLiteApp: Launching zel-lite-app-launch refresh(1)",
                            "CreateZelControl", "Notify 1 0 0 0"));
    EXPECT_EQ(waitForLine(kLaunched), "[/usr/apps/zel-lite-app/bin/zel-lite-app-launch][-r]\n");
}

TEST_F(ZelDaemonStateManagerLauncherTest, OnADebugSetAFailedStartLaunchesNothing) {
    fakes::FakeLite::isDebug = true;
    auto manager = bornIn(STATE_UNDEFINED);
    systemd->answerWith(ScriptedSystemd::Answer::ErrorWithText);

    EXPECT_FALSE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(FakeDlog::count(kInfo, "LaunchZelLiteApp"), 0U);
    EXPECT_EQ(FakeDlog::count(kDebug, "Launching zel-lite-app-launch refresh(1)"), 0U);
}

TEST_F(ZelDaemonStateManagerLauncherTest, OnADebugSetATriggerWithoutStartLaunchesNothing) {
    fakes::FakeLite::isDebug = true;
    auto manager = bornIn(STATE_RUNNING);

    EXPECT_TRUE(manager->Notify(trigger(5), TSNotifyData()));

    EXPECT_EQ(FakeDlog::count(kDebug, "Launching zel-lite-app-launch refresh(1)"), 0U);
}

TEST_F(ZelDaemonStateManagerLauncherTest, OnAnOrdinarySetAStartLaunchesNothing) {
    auto manager = bornIn(STATE_UNDEFINED);

    EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));

    EXPECT_EQ(FakeDlog::count(kInfo, "LaunchZelLiteApp"), 0U);
}
