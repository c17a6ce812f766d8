// SPDX-License-Identifier: Apache-2.0
#include "support/StateManagerOnBus.h"

#include "support/OldProcess.h"

std::unique_ptr<PrivateBus> StateManagerOnBus::bus;
std::unique_ptr<ScriptedSystemd> StateManagerOnBus::systemd;

void StateManagerOnBus::SetUpTestSuite() {
    bus = std::make_unique<PrivateBus>();
    systemd = std::make_unique<ScriptedSystemd>(bus->address());
}

void StateManagerOnBus::TearDownTestSuite() {
    systemd.reset();
    bus.reset();
    dropConnection();
}

StateManagerOnBus::StateManagerOnBus() {
    systemd->answerWith(ScriptedSystemd::Answer::JobPath);
    systemd->takeCalls();
}

// The bus is ended with kill as well.
StateManagerOnBus::~StateManagerOnBus() {
    oldProcess = {};
}

StateManagerOnBus::TerminateOutcome StateManagerOnBus::requestTerminate(TCZelDaemonStateManager& manager) {
    TerminateOutcome outcome{};
    outcome.result = manager.RequestTerminate(outcome.errors, outcome.data);
    return outcome;
}
