// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeStateManager.h"

#include "ZelDaemonStateManager.h"
#include "fakes/Actions.h"

namespace fakes {

bool FakeStateManager::notifyResult = true;
bool FakeStateManager::terminated = false;
std::function<void()> FakeStateManager::duringNotify;
bool FakeStateManager::terminateResult = true;
std::vector<ETerminateErrorType> FakeStateManager::terminateErrors;
std::function<void()> FakeStateManager::duringTerminate;
std::function<void()> FakeStateManager::duringLaunch;
IZelDaemonStateListener* FakeStateManager::lastListener = nullptr;

void FakeStateManager::reset() {
    notifyResult = true;
    terminated = false;
    duringNotify = nullptr;
    terminateResult = true;
    terminateErrors.clear();
    duringTerminate = nullptr;
    duringLaunch = nullptr;
    lastListener = nullptr;
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

void TCZelDaemonStateManager::RegisterListener(IZelDaemonStateListener* listener) {
    FakeStateManager::lastListener = listener;
    fakes::Actions::add("StateManager::RegisterListener");
}

void TCZelDaemonStateManager::UnregisterListener(IZelDaemonStateListener* listener) {
    FakeStateManager::lastListener = listener;
    fakes::Actions::add("StateManager::UnregisterListener");
}

bool TCZelDaemonStateManager::RequestTerminate(std::vector<ETerminateErrorType>& errors, TSZelData& data) {
    const bool isAsPrescribed = errors.empty() && data.pid == -1 && !data.needStandbyHandling;
    fakes::Actions::add(isAsPrescribed ? "StateManager::RequestTerminate"
                                       : "StateManager::RequestTerminate, used data");
    if (FakeStateManager::duringTerminate) {
        FakeStateManager::duringTerminate();
    }
    errors = FakeStateManager::terminateErrors;
    return FakeStateManager::terminateResult;
}

bool TCZelDaemonStateManager::LaunchZelLiteApp(bool refresh) {
    fakes::Actions::add("StateManager::LaunchZelLiteApp " + std::to_string(static_cast<int>(refresh)));
    if (FakeStateManager::duringLaunch) {
        FakeStateManager::duringLaunch();
    }
    return true;
}
