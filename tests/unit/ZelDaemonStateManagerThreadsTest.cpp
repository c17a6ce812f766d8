// SPDX-License-Identifier: Apache-2.0
// The supervision of the service from several threads: one operation at a time, each for its whole length.
#include <gmock/gmock.h>
#include <signal.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ZelDaemonStateManager.h"
#include "fakes/FakeControl.h"
#include "fakes/FakeDlog.h"
#include "support/OldProcess.h"
#include "support/Plant.h"
#include "support/StateManagerOnBus.h"
#include "support/Visitor.h"

using fakes::FakeControl;
using fakes::FakeDlog;

namespace {

/** A listener whose hooks run what the test gives it, each only the first time. */
class Host : public IZelDaemonStateListener {
public:
    std::function<void()> onStart;
    std::function<void()> onTerminate;
    std::function<void()> onTerminateSuccess;

    void OnStart() override { runOnce(onStart); }
    void OnTerminate() override { runOnce(onTerminate); }
    void OnTerminateSuccess(const TSZelData& /*data*/) override { runOnce(onTerminateSuccess); }

private:
    static void runOnce(std::function<void()>& action) {
        if (const auto once = std::exchange(action, nullptr)) {
            once();
        }
    }
};

/** Fixture: at a moment that the test chooses, another thread asks the manager whether the service is
 * terminated. */
class ZelDaemonStateManagerThreadsTest : public StateManagerOnBus {
protected:
    // A launch leaves the signal ignored.
    ~ZelDaemonStateManagerThreadsTest() override { signal(SIGCHLD, SIG_DFL); }

    /** The action of that moment. */
    std::function<void()> visit() {
        return [this] {
            hadToWait = visitor.mustWait([this] { foundTerminated = manager->IsZelTerminated(); });
        };
    }

    Host host;
    std::unique_ptr<TCZelDaemonStateManager> manager;
    bool hadToWait = false;
    bool foundTerminated = false;
    // The last member: its call returns before the manager is destroyed.
    Visitor visitor;
};

}  // namespace

TEST_F(ZelDaemonStateManagerThreadsTest, NoOperationBeginsWhileAListenerIsCalled) {
    struct Row {
        const char* name;
        std::function<void()> call;
    };
    NamedListener other("other");
    const std::vector<Row> rows{
        {"Notify", [this] { manager->Notify(kStart, TSNotifyData()); }},
        {"RequestTerminate", [this] { requestTerminate(*manager); }},
        {"IsZelTerminated", [this] { manager->IsZelTerminated(); }},
        {"RegisterListener", [&] { manager->RegisterListener(&other); }},
        {"UnregisterListener", [this] { manager->UnregisterListener(&host); }},
        {"LaunchZelLiteApp", [this] { manager->LaunchZelLiteApp(false); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        manager = bornIn(STATE_RUNNING_UNINITIALIZED);
        manager->RegisterListener(&host);
        Visitor caller;
        bool callerWaited = false;
        host.onStart = [&] { callerWaited = caller.mustWait(row.call); };

        manager->Notify(kStart, TSNotifyData());

        EXPECT_TRUE(callerWaited);
        caller.leave();
    }
}

TEST_F(ZelDaemonStateManagerThreadsTest, ATriggerKeepsOthersOutWhileItWaitsForTheOldProcess) {
    manager = bornIn(STATE_RUNNING);
    FakeControl::terminateData.pid = 4711;
    ASSERT_TRUE(requestTerminate(*manager).result);
    oldProcess.isScripted = true;
    oldProcess.aliveProbes = 1;
    oldProcess.duringSleep = visit();

    manager->Notify(kStart, TSNotifyData());

    EXPECT_TRUE(hadToWait);
}

TEST_F(ZelDaemonStateManagerThreadsTest, ATriggerKeepsOthersOutWhileTheServiceTakesIt) {
    manager = bornIn(STATE_TERMINATED);
    FakeControl::duringNotify = visit();

    manager->Notify(kStart, TSNotifyData());

    EXPECT_TRUE(hadToWait);
    visitor.leave();
    EXPECT_FALSE(foundTerminated) << "the other call returns only after the trigger has changed the state";
}

TEST_F(ZelDaemonStateManagerThreadsTest, ATriggerKeepsOthersOutUntilItsMarkerIsThere) {
    manager = bornIn(STATE_RUNNING);
    plantAtOpen(kIsRunning, visit());

    manager->Notify(kStart, TSNotifyData());

    EXPECT_TRUE(hadToWait);
}

TEST_F(ZelDaemonStateManagerThreadsTest, ARequestToTerminateKeepsOthersOutWhileListenersAreCalled) {
    manager = bornIn(STATE_RUNNING);
    manager->RegisterListener(&host);
    host.onTerminate = visit();

    requestTerminate(*manager);

    EXPECT_TRUE(hadToWait);
}

TEST_F(ZelDaemonStateManagerThreadsTest, ARequestToTerminateKeepsOthersOutWhileTheServiceTakesIt) {
    manager = bornIn(STATE_RUNNING);
    FakeControl::duringTerminate = visit();

    requestTerminate(*manager);

    EXPECT_TRUE(hadToWait);
    visitor.leave();
    EXPECT_TRUE(foundTerminated) << "the other call returns only after the request has changed the state";
}

TEST_F(ZelDaemonStateManagerThreadsTest, ARequestToTerminateKeepsOthersOutWhileItsSuccessIsPassedOn) {
    manager = bornIn(STATE_RUNNING);
    manager->RegisterListener(&host);
    host.onTerminateSuccess = visit();

    requestTerminate(*manager);

    EXPECT_TRUE(hadToWait);
    visitor.leave();
    EXPECT_TRUE(foundTerminated) << "the other call returns only after the request has changed the state";
}

TEST_F(ZelDaemonStateManagerThreadsTest, ARefusedRequestKeepsOthersOutUntilItsMarkerIsBack) {
    manager = bornIn(STATE_RUNNING);
    FakeControl::terminateResult = 0;
    plantAtOpen(kIsRunning, visit());

    requestTerminate(*manager);

    EXPECT_TRUE(hadToWait);
}

TEST_F(ZelDaemonStateManagerThreadsTest, AFailedRequestKeepsOthersOutUntilTheServiceIsStartedAgain) {
    manager = bornIn(STATE_RUNNING);
    FakeControl::terminateResult = -1;
    FakeControl::duringNotify = visit();

    requestTerminate(*manager);

    EXPECT_TRUE(hadToWait);
}

TEST_F(ZelDaemonStateManagerThreadsTest, TriggersFromManyThreadsStartTheServiceOnce) {
    manager = bornIn(STATE_UNDEFINED);
    std::vector<std::thread> threads;
    threads.reserve(5);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] {
            for (int round = 0; round < 20; ++round) {
                EXPECT_TRUE(manager->Notify(kStart, TSNotifyData()));
                EXPECT_FALSE(manager->IsZelTerminated());
            }
        });
    }

    threads.emplace_back([this] {
        NamedListener passing("passing");
        for (int round = 0; round < 20; ++round) {
            manager->RegisterListener(&passing);
            manager->UnregisterListener(&passing);
        }
    });

    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(systemd->takeCalls().size(), 1U);
    EXPECT_EQ(FakeDlog::count(kError, "Listener not registred"), 0U);
}
