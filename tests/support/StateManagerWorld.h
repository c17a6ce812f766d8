// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The world of a state manager in a test: clean markers, fakes at rest, and a manager that can be born into
 * it.
 */
#ifndef TESTS_SUPPORT_STATE_MANAGER_WORLD_H
#define TESTS_SUPPORT_STATE_MANAGER_WORLD_H

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ZelDaemonStateManager.h"
#include "fakes/Actions.h"

constexpr const char* kSubsequentStart = "/tmp/zel_lite_subsequent_start";
constexpr const char* kIsRunning = "/tmp/zel_lite_zel_daemon_is_running";
constexpr const char* kRestart = "/tmp/zel_restart";

/** A listener whose hooks are the actions "NAME OnStart", "NAME OnTerminate", "NAME OnTerminateSuccess PID
 * STANDBY". */
class NamedListener : public IZelDaemonStateListener {
public:
    explicit NamedListener(std::string name) : m_name(std::move(name)) {}

    void OnStart() override { fakes::Actions::add(m_name + " OnStart"); }
    void OnTerminate() override { fakes::Actions::add(m_name + " OnTerminate"); }
    void OnTerminateSuccess(const TSZelData& data) override {
        fakes::Actions::add(m_name + " OnTerminateSuccess " + std::to_string(data.pid) + " " +
                            std::to_string(static_cast<int>(data.needStandbyHandling)));
    }

private:
    std::string m_name;
};

/** Fixture: every test begins without markers, recorded lines or actions, and with a service that says yes.
 */
class StateManagerWorld : public testing::Test {
protected:
    StateManagerWorld();

    /** Makes a manager as after a fresh boot: running uninitialized. */
    static std::unique_ptr<TCZelDaemonStateManager> bornAtBoot();
    /** Makes a manager after a restart with the service terminated: undefined. */
    static std::unique_ptr<TCZelDaemonStateManager> bornAfterTermination();
    /** Makes a manager in a state, and forgets what getting there took. Needs a bus with a system manager. */
    static std::unique_ptr<TCZelDaemonStateManager> bornIn(EZelState state);
    /** The state that a manager is in, as its next Notify logs it; that Notify changes it. */
    static int stateOf(TCZelDaemonStateManager& manager);

    /**
     * Drops libdbus's connection to a bus that has ended, which libdbus otherwise keeps until it reads from
     * it, and gives to the next manager. No bus may run.
     */
    static void dropConnection();

    /** Forgets what happened so far. */
    static void forget();
    /** What happened since, without boot markers. */
    static std::vector<std::string> actions();
    /** The first @p count of some actions, or all if there are fewer. */
    static std::vector<std::string> firstOf(std::vector<std::string> all, std::size_t count);
    /** The last @p count of some actions, or all if there are fewer. */
    static std::vector<std::string> lastOf(const std::vector<std::string>& all, std::size_t count);

    static constexpr auto kStart = static_cast<ETriggerType>(1);
};

#endif
