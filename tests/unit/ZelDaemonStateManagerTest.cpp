// SPDX-License-Identifier: Apache-2.0
// The supervision of the service: construction and listeners.
#include "ZelDaemonStateManager.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>

#include "fakes/FakeControl.h"
#include "fakes/FakeDlog.h"
#include "support/Files.h"
#include "support/Plant.h"
#include "support/StateManagerOnBus.h"

using fakes::FakeControl;
using fakes::FakeDlog;
using testing::ElementsAre;
using testing::IsEmpty;

using ZelDaemonStateManagerTest = StateManagerOnBus;

// Construction

TEST_F(ZelDaemonStateManagerTest, AFreshBootIsLoggedMarkedAndRunningUninitialized) {
    TCZelDaemonStateManager manager;

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("First boot up"));
    EXPECT_EQ(FakeDlog::lines().front().function(), "TCZelDaemonStateManager");
    EXPECT_EQ(FakeDlog::lines().front().file(), "ZelDaemonStateManager.cpp");
    EXPECT_TRUE(exists("/tmp/zel_lite_subsequent_start"));
    EXPECT_FALSE(exists("/tmp/zel_lite_zel_daemon_is_running"));
    EXPECT_EQ(stateOf(manager), 2);
}

TEST_F(ZelDaemonStateManagerTest, ARestartWhileTheServiceRanIsRunningUninitialized) {
    writeFile(kSubsequentStart, "");
    writeFile(kIsRunning, "");

    TCZelDaemonStateManager manager;

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("ZEL was running before"));
    EXPECT_EQ(stateOf(manager), 2);
}

TEST_F(ZelDaemonStateManagerTest, ARestartWithoutTheRunningMarkerIsUndefined) {
    writeFile(kSubsequentStart, "");

    TCZelDaemonStateManager manager;

    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
    EXPECT_EQ(stateOf(manager), 0);
}

TEST_F(ZelDaemonStateManagerTest, AFirstBootIgnoresAnOldRunningMarker) {
    writeFile(kIsRunning, "");

    TCZelDaemonStateManager manager;

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("First boot up"));
}

TEST_F(ZelDaemonStateManagerTest, AMarkerThatCannotBeCreatedIsIgnored) {
    failCreating(kSubsequentStart, EROFS);

    TCZelDaemonStateManager manager;

    stopPlanting();
    EXPECT_FALSE(std::filesystem::is_regular_file(std::filesystem::symlink_status(kSubsequentStart)));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("First boot up"));
    EXPECT_EQ(stateOf(manager), 2);
}

namespace {

struct Planted {
    const char* what;
    std::function<void(const char* path)> make;
};

// What counts as a marker neither at the start nor later: anything but a plain file of root's with one name.
const std::array<Planted, 6> kPlanted{{
    {"a stranger's file",
     [](const char* path) {
         writeFile(path, "");
         EXPECT_EQ(chown(path, 1234, 1234), 0);
     }},
    {"a second name",
     [](const char* path) {
         writeFile("/tmp/victim", "");
         EXPECT_EQ(link("/tmp/victim", path), 0);
     }},
    {"a link",
     [](const char* path) {
         writeFile("/tmp/victim", "");
         EXPECT_EQ(symlink("/tmp/victim", path), 0);
     }},
    {"a folder", [](const char* path) { EXPECT_EQ(mkdir(path, 0755), 0); }},
    {"a filled folder",
     [](const char* path) { std::filesystem::create_directories(std::string(path) + "/full"); }},
    {"a FIFO", [](const char* path) { EXPECT_EQ(mkfifo(path, 0666), 0); }},
}};

}  // namespace

TEST_F(ZelDaemonStateManagerTest, WhatIsPlantedAtTheFirstMarkerIsNoEarlierStart) {
    for (const Planted& planted : kPlanted) {
        SCOPED_TRACE(planted.what);
        std::filesystem::remove_all(kSubsequentStart);
        std::filesystem::remove_all("/tmp/victim");
        planted.make(kSubsequentStart);
        forget();

        const TCZelDaemonStateManager manager;

        EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("First boot up"));
        EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(kSubsequentStart)));
    }
}

TEST_F(ZelDaemonStateManagerTest, WhatIsPlantedAtTheRunningMarkerIsNoRunningService) {
    writeFile(kSubsequentStart, "");
    for (const Planted& planted : kPlanted) {
        SCOPED_TRACE(planted.what);
        std::filesystem::remove_all(kIsRunning);
        std::filesystem::remove_all("/tmp/victim");
        planted.make(kIsRunning);
        forget();

        TCZelDaemonStateManager manager;

        EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
        std::filesystem::remove_all(kIsRunning);
        EXPECT_EQ(stateOf(manager), 0);
    }
}

TEST_F(ZelDaemonStateManagerTest, ALinkPlantedAtTheFirstMarkerIsNotFollowed) {
    writeFile("/tmp/victim", "precious");
    plantAtOpen(kSubsequentStart, [] { EXPECT_EQ(symlink("/tmp/victim", kSubsequentStart), 0); });

    TCZelDaemonStateManager manager;

    EXPECT_TRUE(wasPlanted());
    EXPECT_EQ(readFile("/tmp/victim"), "precious");
}

TEST_F(ZelDaemonStateManagerTest, AnOldRunningMarkerIsKeptAcrossARestart) {
    writeFile(kSubsequentStart, "old");
    writeFile(kIsRunning, "old");

    TCZelDaemonStateManager manager;

    EXPECT_EQ(readFile(kSubsequentStart), "old");
    EXPECT_EQ(readFile(kIsRunning), "old");
}

// Words for states

TEST_F(ZelDaemonStateManagerTest, EachStateHasItsWord) {
    EXPECT_EQ(TCZelDaemonStateManager::m_ToString(static_cast<EZelState>(0)), "undefined");
    EXPECT_EQ(TCZelDaemonStateManager::m_ToString(static_cast<EZelState>(1)), "running");
    EXPECT_EQ(TCZelDaemonStateManager::m_ToString(static_cast<EZelState>(2)), "running uninitialized");
    EXPECT_EQ(TCZelDaemonStateManager::m_ToString(static_cast<EZelState>(3)), "terminated");
    EXPECT_EQ(TCZelDaemonStateManager::m_ToString(static_cast<EZelState>(4)), "undefined after terminate");
}

TEST_F(ZelDaemonStateManagerTest, ANumberThatIsNoStateIsUndefined) {
    EXPECT_EQ(TCZelDaemonStateManager::m_ToString(static_cast<EZelState>(7)), "undefined");
}

// Listeners

TEST_F(ZelDaemonStateManagerTest, AListenerRegisteredTwiceIsHeldOnceAndLogged) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    NamedListener listener("A");
    manager->RegisterListener(&listener);

    manager->RegisterListener(&listener);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Listener already registred"));
    manager->Notify(kStart, TSNotifyData());
    EXPECT_THAT(actions(), ElementsAre("A OnStart"));
}

TEST_F(ZelDaemonStateManagerTest, RemovingAnUnknownListenerIsLogged) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    NamedListener listener("A");

    manager->UnregisterListener(&listener);

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Listener not registred"));
}

TEST_F(ZelDaemonStateManagerTest, ListenersAreCalledInOrderOfRegistrationAlsoAfterARemoval) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    NamedListener first("A");
    NamedListener second("B");
    NamedListener third("C");
    NamedListener fourth("D");
    for (NamedListener* listener : {&first, &second, &third, &fourth}) {
        manager->RegisterListener(listener);
    }

    manager->UnregisterListener(&second);
    manager->Notify(kStart, TSNotifyData());

    EXPECT_THAT(actions(), ElementsAre("A OnStart", "C OnStart", "D OnStart"));
}

namespace {

/** Unregisters another listener, and itself, when it is called. */
class Remover : public NamedListener {
public:
    Remover(TCZelDaemonStateManager& manager, IZelDaemonStateListener& other)
        : NamedListener("remover"), m_manager(manager), m_other(other) {}

    void OnStart() override {
        NamedListener::OnStart();
        m_manager.UnregisterListener(&m_other);
        m_manager.UnregisterListener(this);
    }

private:
    TCZelDaemonStateManager& m_manager;
    IZelDaemonStateListener& m_other;
};

}  // namespace

TEST_F(ZelDaemonStateManagerTest, AListenerRemovedInsideACallbackIsNotCalledAfterwards) {
    auto manager = bornIn(STATE_RUNNING_UNINITIALIZED);
    NamedListener doomed("doomed");
    NamedListener last("last");
    Remover remover(*manager, doomed);
    manager->RegisterListener(&remover);
    manager->RegisterListener(&doomed);
    manager->RegisterListener(&last);

    manager->Notify(kStart, TSNotifyData());

    EXPECT_THAT(actions(), ElementsAre("remover OnStart", "last OnStart"));
}

namespace {

/** Registers another listener when it is called. */
class Introducer : public NamedListener {
public:
    Introducer(TCZelDaemonStateManager& manager, IZelDaemonStateListener& other)
        : NamedListener("introducer"), m_manager(manager), m_other(other) {}

    void OnTerminate() override {
        NamedListener::OnTerminate();
        m_manager.RegisterListener(&m_other);
    }

private:
    TCZelDaemonStateManager& m_manager;
    IZelDaemonStateListener& m_other;
};

}  // namespace

TEST_F(ZelDaemonStateManagerTest, AListenerRegisteredInsideACallbackIsCalledFromTheNextCallbackOn) {
    auto manager = bornIn(STATE_RUNNING);
    NamedListener newcomer("newcomer");
    Introducer introducer(*manager, newcomer);
    manager->RegisterListener(&introducer);
    FakeControl::terminateData.pid = 99;

    requestTerminate(*manager);

    EXPECT_THAT(actions(),
                ElementsAre("CreateZelControl", "introducer OnTerminate", "Terminate", "DestroyZelControl",
                            "introducer OnTerminateSuccess 99 0", "newcomer OnTerminateSuccess 99 0"));
}

// What the service understands

TEST_F(ZelDaemonStateManagerTest, TheTriggersHaveTheNumbersThatTheServiceKnows) {
    EXPECT_EQ(TRIGGER_TYPE_SOURCE_PLUG, 0);
    EXPECT_EQ(TRIGGER_TYPE_START_ZEL_MAIN, 1);
    EXPECT_EQ(TRIGGER_TYPE_NETWORK_TIME, 2);
    EXPECT_EQ(TRIGGER_TYPE_CLOCK_MODE, 3);
    EXPECT_EQ(TRIGGER_TYPE_SYNC_TIME, 4);
    EXPECT_EQ(TRIGGER_TYPE_STOLEN_TV, 5);
}
