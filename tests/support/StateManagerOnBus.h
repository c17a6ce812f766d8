// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A state manager on a bus with a scripted system manager, and what its tests share. Link with WRAP kill
 * usleep.
 */
#ifndef TESTS_SUPPORT_STATE_MANAGER_ON_BUS_H
#define TESTS_SUPPORT_STATE_MANAGER_ON_BUS_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fakes/Actions.h"
#include "support/Files.h"
#include "support/PrivateBus.h"
#include "support/ScriptedSystemd.h"
#include "support/StateManagerWorld.h"

constexpr int kDebug = 3;
constexpr int kInfo = 4;
constexpr int kError = 6;
constexpr const char* kSource = "/usr/src/zel-lite/src/ZelDaemonStateManager.cpp";

/** Fixture: one bus and one system manager for all tests of a suite, at rest when a test begins. */
class StateManagerOnBus : public StateManagerWorld {
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();

    StateManagerOnBus();
    ~StateManagerOnBus() override;

    static ETriggerType trigger(int number) { return static_cast<ETriggerType>(number); }

    /** What a request to terminate has given. */
    struct TerminateOutcome {
        bool result;
        std::vector<ETerminateErrorType> errors;
        TSZelData data;
    };

    static TerminateOutcome requestTerminate(TCZelDaemonStateManager& manager);

    static std::unique_ptr<PrivateBus> bus;
    static std::unique_ptr<ScriptedSystemd> systemd;
};

/** Its hooks are the actions "HOOK: there" or "HOOK: gone", as a file is there or not. */
class Watcher : public NamedListener {
public:
    explicit Watcher(std::string path) : NamedListener("watcher"), m_path(std::move(path)) {}
    void OnStart() override { look("OnStart"); }
    void OnTerminate() override { look("OnTerminate"); }
    void OnTerminateSuccess(const TSZelData& /*data*/) override { look("OnTerminateSuccess"); }

    void look(const std::string& hook) const {
        fakes::Actions::add(hook + (exists(m_path) ? ": there" : ": gone"));
    }

private:
    std::string m_path;
};

/** Asks in its hook whether the service is terminated. */
class Asker : public NamedListener {
public:
    explicit Asker(TCZelDaemonStateManager& manager) : NamedListener("asker"), m_manager(manager) {}
    void OnStart() override { ask("OnStart"); }
    void OnTerminateSuccess(const TSZelData& /*data*/) override { ask("OnTerminateSuccess"); }

private:
    void ask(const std::string& hook) {
        fakes::Actions::add(hook + (m_manager.IsZelTerminated() ? ": terminated" : ": not terminated"));
    }

    TCZelDaemonStateManager& m_manager;
};

#endif
