// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The world of a session control in a test: clean files and switches, a clock, timers and a helper thread
 * that run only when the test says so. Link with HelperWaits.cpp and WRAP kill g_timeout_add_seconds.
 */
#ifndef TESTS_SUPPORT_SESSION_WORLD_H
#define TESTS_SUPPORT_SESSION_WORLD_H

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "SessionControl.h"
#include "ZelDaemonStateManager.h"

/** A session control whose clock the test sets, and which ages when the test says so. */
class ClockedSessionControl : public TCSessionControl {
public:
    using TCSessionControl::t_removeOldRecords;
    using TCSessionControl::TCSessionControl;

    /** Sets the clock, in milliseconds. */
    void setTime(std::int64_t timeMs) {
        setClock([timeMs] { return timeMs; });
    }

    /** Sets what is run for each reading of the clock, under the locks of the reader; it returns the time. */
    void setClock(std::function<std::int64_t()> clock) { m_clock = std::move(clock); }

protected:
    std::int64_t t_getTimeMs() override { return m_clock(); }

private:
    std::function<std::int64_t()> m_clock = [] { return 1000; };
};

/** Fixture: every test begins without sessions, traces and switches, on a set that is no debug set. */
class SessionWorld : public testing::Test {
protected:
    SessionWorld();
    ~SessionWorld() override;

    /** Makes the session control anew, as the daemon's start does. */
    void start();
    /** The same on a debug set. */
    void startDebug();

    /** Puts a switch into its place, or takes it away. */
    static void setSwitch(const std::string& name, bool present = true);

    /** Opens a trace of ":1.1" with plain arguments. */
    void openTrace(std::int64_t traceId, const std::string& text = "why",
                   const std::string& sessionId = ":1.1");

    /** Forgets what happened so far. */
    static void forget();

    /** Runs the attempts that are scheduled, as if their time had come; gives what the callbacks answered. */
    static std::vector<bool> runScheduled();

    TCZelDaemonStateManager m_stateManager;
    std::unique_ptr<ClockedSessionControl> m_control;
};

/** The processes of the world. */
struct Processes {
    /** Whether kill is scripted at all. */
    static bool scripted;
    /** Who may be signalled; others fail with errno set to error. */
    static std::vector<int> alive;
    static int error;
    /** Every pid that was probed with signal 0. */
    static std::vector<int> probed;
};

#endif
