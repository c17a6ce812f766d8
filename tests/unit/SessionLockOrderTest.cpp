// SPDX-License-Identifier: Apache-2.0
// What holds which lock: what other threads may do meanwhile, and what has to wait.
//
// There are two locks, one for the sessions and one for the traces. An attempt to terminate the service holds
// both, the one for the sessions first; everything else holds one at a time.
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "fakes/FakeDlog.h"
#include "fakes/FakeStateManager.h"
#include "fakes/FakeVconf.h"
#include "support/HelperWaits.h"
#include "support/SessionWorld.h"
#include "support/Wait.h"

using fakes::FakeDlog;
using fakes::FakeStateManager;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAreArray;

namespace {

constexpr const char* kViewer = "memory/tv-viewer/viewer_state";

struct Call {
    std::string name;
    std::function<void()> make;
};

std::vector<std::string> namesOf(const std::vector<Call>& calls) {
    std::vector<std::string> names;
    std::transform(calls.begin(), calls.end(), std::back_inserter(names),
                   [](const Call& call) { return call.name; });
    return names;
}

// Calls that are made by threads of their own. Must outlive the lock that they wait for.
class Callers {
public:
    Callers() = default;
    Callers(const Callers&) = delete;
    Callers& operator=(const Callers&) = delete;
    ~Callers() {
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }

    void make(const std::vector<Call>& calls) {
        for (const Call& call : calls) {
            m_threads.emplace_back([this, call] {
                call.make();
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_returned.push_back(call.name);
            });
        }
    }

    /** The calls that have returned, after the time that it takes a call that need not wait. A machine that
     * is too busy makes this list shorter, never longer. */
    std::vector<std::string> returnedAtOnce() {
        becomesTrue([this] { return !returned().empty(); }, std::chrono::milliseconds(100));
        return returned();
    }

    /** The calls that have returned when @p count have, or after some seconds. */
    std::vector<std::string> returned(std::size_t count) {
        becomesTrue([this, count] { return returned().size() >= count; });
        return returned();
    }

private:
    std::vector<std::string> returned() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_returned;
    }

    std::mutex m_mutex;
    std::vector<std::string> m_returned;
    std::vector<std::thread> m_threads;
};

class SessionLockOrderTest : public SessionWorld {
protected:
    SessionLockOrderTest() { fakes::FakeVconf::setText(kViewer, "live"); }

    // Makes the session control anew, on a debug set and without the sessions of the one before.
    void startEmpty() {
        std::filesystem::remove("/tmp/zel_lite_sessions_state.txt");
        startDebug();
    }

    // What needs the sessions and nothing else.
    std::vector<Call> callsAboutSessions() {
        return {
            {"Open", [this] { m_control->Open("opened meanwhile", "p", "1"); }},
            {"Close", [this] { m_control->Close("open before"); }},
            {"CloseOnCrash", [this] { m_control->CloseOnCrash("unknown"); }},
            {"IsAnySessionActive", [this] { m_control->IsAnySessionActive(); }},
            {"CheckPIDs", [this] { m_control->CheckPIDs(); }},
        };
    }

    // What needs the traces and nothing else.
    std::vector<Call> callsAboutTraces() {
        return {
            {"OpenDebugTrace", [this] { openTrace(1, "why", "traced meanwhile"); }},
            {"CloseDebugTrace", [this] { m_control->CloseDebugTrace("unknown", 1); }},
            {"the viewer's state", [] { fakes::FakeVconf::tell(kViewer, kViewer); }},
        };
    }

    // What needs both, one after the other or at once.
    std::vector<Call> callsAboutBoth() {
        return {
            {"GetDebugInfo", [this] { m_control->GetDebugInfo(); }},
            {"TryTerminateZel", [this] { m_control->TryTerminateZel(); }},
        };
    }

    // Runs a function once, when another thread logs this line, on that thread.
    static void atLine(const std::string& line, std::function<void()> function) {
        const auto isFirst = std::make_shared<std::atomic<bool>>(true);
        FakeDlog::onLineOfOthers([line, isFirst, function = std::move(function)](const std::string& message) {
            if (message == line && isFirst->exchange(false)) {
                function();
            }
        });
    }
};

// A hook for the first of several calls.
std::function<void()> once(std::function<void()> function) {
    return [isFirst = std::make_shared<std::atomic<bool>>(true), function = std::move(function)] {
        if (isFirst->exchange(false)) {
            function();
        }
    };
}

}  // namespace

TEST_F(SessionLockOrderTest, NothingElseGetsAtTheSessionsWhileTheServiceIsStarted) {
    Callers waiting;
    std::vector<std::string> came{"the service was not started"};
    FakeStateManager::duringNotify = once([&] {
        waiting.make(callsAboutSessions());
        waiting.make(callsAboutBoth());
        came = waiting.returnedAtOnce();
    });

    EXPECT_TRUE(m_control->Open("open before", "p", "1"));

    EXPECT_THAT(came, IsEmpty());
    EXPECT_EQ(waiting.returned(7).size(), 7U);
}

// An attempt that took the lock of the traces first would have them wait for the sessions, and could wait for
// a thread that waits for it; so would a report.
TEST_F(SessionLockOrderTest, WhatWaitsForTheSessionsDoesNotHoldUpTraces) {
    for (const Call& call : callsAboutBoth()) {
        SCOPED_TRACE(call.name);
        startEmpty();
        Callers waiting;
        Callers tracing;
        std::vector<std::string> came;
        FakeStateManager::duringNotify = once([&] {
            waiting.make({call});
            EXPECT_THAT(waiting.returnedAtOnce(), IsEmpty());
            tracing.make(callsAboutTraces());
            came = tracing.returned(3);
        });

        EXPECT_TRUE(m_control->Open("a", "p", "1"));

        EXPECT_THAT(came, UnorderedElementsAreArray(namesOf(callsAboutTraces())));
    }
}

TEST_F(SessionLockOrderTest, NothingElseGetsInWhileTheServiceIsAskedToTerminate) {
    Callers waiting;
    std::vector<std::string> came{"the service was not asked"};
    std::vector<std::string> others;
    FakeStateManager::duringTerminate = once([&] {
        waiting.make(callsAboutSessions());
        waiting.make(callsAboutTraces());
        waiting.make(callsAboutBoth());
        HelperWaits::end(1);
        came = waiting.returnedAtOnce();
        others = FakeDlog::messagesOfOthers();
    });

    EXPECT_TRUE(m_control->TryTerminateZel());

    EXPECT_THAT(came, IsEmpty());
    EXPECT_THAT(others, Not(Contains("4 Remove old records"))) << "nor does the ageing";
    EXPECT_EQ(waiting.returned(10).size(), 10U);
}

TEST_F(SessionLockOrderTest, TheApplicationIsLaunchedWithoutALock) {
    Callers free;
    std::vector<std::string> came;
    FakeStateManager::duringLaunch = [&] {
        free.make(callsAboutSessions());
        free.make(callsAboutTraces());
        free.make(callsAboutBoth());
        came = free.returned(10);
    };

    m_control->TryTerminateZelWithAppLaunch(true);

    EXPECT_EQ(came.size(), 10U);
}

TEST_F(SessionLockOrderTest, ALookAtTracesHoldsUpOtherTracesAndNoSession) {
    struct Row {
        const char* line;
        std::function<void()> look;
    };
    const std::vector<Row> rows{
        {"Remove old records", [] { HelperWaits::end(1); }},
        {"All traces closed, sessionId(vanished)", [this] { m_control->CloseOnCrash("vanished"); }},
        {"vconf tv-viewer state(live)", [] { fakes::FakeVconf::tell(kViewer, kViewer); }},
        {"Has debug info about sessionsNum(0)", [this] { m_control->GetDebugInfo(); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        startEmpty();
        m_control->Open("vanished", "p", "1");
        Callers looking;
        Callers waiting;
        Callers free;
        std::atomic<bool> isOver{false};
        std::vector<std::string> came;
        std::vector<std::string> went;
        atLine(row.line, [&] {
            waiting.make(callsAboutTraces());
            came = waiting.returnedAtOnce();
            free.make(callsAboutSessions());
            went = free.returned(5);
            isOver = true;
        });

        looking.make({{row.line, row.look}});

        ASSERT_TRUE(becomesTrue([&] { return isOver.load(); }, std::chrono::seconds(30)));
        EXPECT_THAT(came, IsEmpty());
        EXPECT_THAT(went, UnorderedElementsAreArray(namesOf(callsAboutSessions())));
    }
}

TEST_F(SessionLockOrderTest, AClosingHoldsUpOtherSessionsAndNoTrace) {
    struct Row {
        const char* name;
        std::function<void()> close;
    };
    const std::vector<Row> rows{
        {"Close", [this] { m_control->Close("closing"); }},
        {"CloseOnCrash", [this] { m_control->CloseOnCrash("closing"); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        startEmpty();
        m_control->Open("closing", "p", "1");
        Callers closing;
        Callers waiting;
        Callers free;
        std::atomic<bool> isOver{false};
        std::vector<std::string> came;
        std::vector<std::string> went;
        atLine("State file removed, removed(1), exists(0)", [&] {
            waiting.make(callsAboutSessions());
            came = waiting.returnedAtOnce();
            free.make(callsAboutTraces());
            went = free.returned(3);
            isOver = true;
        });

        closing.make({{row.name, row.close}});

        ASSERT_TRUE(becomesTrue([&] { return isOver.load(); }, std::chrono::seconds(30)));
        EXPECT_THAT(came, IsEmpty());
        EXPECT_THAT(went, UnorderedElementsAreArray(namesOf(callsAboutTraces())));
    }
}
