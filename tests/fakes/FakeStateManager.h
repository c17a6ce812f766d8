// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A state manager that starts nothing, for the classes above it. It takes the place of the real one at link
 * time.
 */
#ifndef TESTS_FAKES_FAKE_STATE_MANAGER_H
#define TESTS_FAKES_FAKE_STATE_MANAGER_H

#include <functional>
#include <vector>

#include "ZelServiceAPI.h"

class IZelDaemonStateListener;

namespace fakes {

/**
 * What it answers. Actions: "StateManager made", "StateManager gone", "StateManager::Notify TRIGGER SOURCE
 * PLUGSTATE VALUE", "StateManager::RequestTerminate",
 * "StateManager::RegisterListener", "StateManager::UnregisterListener", "StateManager::LaunchZelLiteApp
 * REFRESH".
 */
struct FakeStateManager {
    static bool notifyResult;
    static bool terminated;
    /** Runs inside Notify, when set. */
    static std::function<void()> duringNotify;
    static bool terminateResult;
    static std::vector<ETerminateErrorType> terminateErrors;
    /** Runs inside RequestTerminate, when set. */
    static std::function<void()> duringTerminate;
    /** Runs inside LaunchZelLiteApp, when set. */
    static std::function<void()> duringLaunch;
    /** Who was registered or unregistered last. */
    static IZelDaemonStateListener* lastListener;

    /** Back to: Notify and RequestTerminate succeed without errors, not terminated. */
    static void reset();
};

}  // namespace fakes

#endif
