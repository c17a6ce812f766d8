// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeStateManager.h"

#include "ZelDaemonStateManager.h"
#include "fakes/Actions.h"

namespace fakes {

bool FakeStateManager::notifyResult = true;
bool FakeStateManager::terminated = false;
std::function<void()> FakeStateManager::duringNotify;

void FakeStateManager::reset() {
    notifyResult = true;
    terminated = false;
    duringNotify = nullptr;
}

}  // namespace fakes

using fakes::FakeStateManager;

TCZelDaemonStateManager::TCZelDaemonStateManager() : m_launchLiteApp(false) {
    fakes::Actions::add("StateManager made");
}

TCZelDaemonStateManager::~TCZelDaemonStateManager() {
    fakes::Actions::add("StateManager gone");
}

bool TCZelDaemonStateManager::Notify(ETriggerType trigger, const TSNotifyData& data) {
    fakes::Actions::add("StateManager::Notify " + std::to_string(trigger) + " " +
                        std::to_string(data.source) + " " + std::to_string(data.sourcePlugState) + " " +
                        std::to_string(data.value));
    if (FakeStateManager::duringNotify) {
        FakeStateManager::duringNotify();
    }
    return FakeStateManager::notifyResult;
}

bool TCZelDaemonStateManager::IsZelTerminated() {
    return FakeStateManager::terminated;
}
