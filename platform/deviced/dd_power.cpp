// SPDX-License-Identifier: Apache-2.0
// Power on Linux: logind tells when the machine sleeps.
#include "dd-power.h"

#include <exception>

#include "Logind.h"
#include "Subscriptions.h"

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = -1;

// Neither is ever destroyed, because a thread and the main context may use them as long as the process lives.
Subscriptions& subscriptions() {
    static auto* const instance = new Subscriptions;
    return *instance;
}

Logind& logind() {
    static auto* const instance = new Logind(subscriptions());
    return *instance;
}

int subscribe(PowerEvent event, Subscriptions::Callback callback, void* userData) {
    if (callback == nullptr) {
        return kFailure;
    }
    try {
        Logind& source = logind();
        if (!subscriptions().add(event, callback, userData)) {
            return kFailure;
        }
        source.wake();
        return kSuccess;
    } catch (const std::exception&) {
        return kFailure;
    }
}

int unsubscribe(PowerEvent event, Subscriptions::Callback callback) {
    if (!subscriptions().remove(event, callback)) {
        return kFailure;
    }
    logind().wake();
    return kSuccess;
}

}  // namespace

int device_power_subscribe_standby(int (*callback)(int, void*), void* user_data) {
    return subscribe(PowerEvent::kStandby, callback, user_data);
}

int device_power_unsubscribe_standby(int (*callback)(int, void*)) {
    return unsubscribe(PowerEvent::kStandby, callback);
}

int device_power_subscribe_early_wakeup(int (*callback)(int, void*), void* user_data) {
    return subscribe(PowerEvent::kEarlyWakeUp, callback, user_data);
}

int device_power_unsubscribe_early_wakeup(int (*callback)(int, void*)) {
    return unsubscribe(PowerEvent::kEarlyWakeUp, callback);
}
