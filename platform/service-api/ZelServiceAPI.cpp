// SPDX-License-Identifier: Apache-2.0
#include "ZelServiceAPI.h"

#include <chrono>
#include <exception>
#include <memory>
#include <mutex>
#include <string>

#include "ControlConnection.h"
#include "Log.h"
#include "ServiceWait.h"
#include "ZelControl.h"

namespace {

constexpr std::chrono::seconds kWaitLimit{10};

// The process's one control. Never destroyed: a thread may use it until the process is gone.
struct Current {
    std::mutex mutex;
    std::unique_ptr<ZelControl> control;
};

Current& current() {
    static auto* const instance = new Current;
    return *instance;
}

// Whether the service was seen.
bool findService() {
    const Deadline deadline(kWaitLimit);
    try {
        ControlConnection connection;
        if (waitForService(connection, deadline)) {
            return true;
        }
        logError("CreateZelControl: the service is not running and nothing starts it");
    } catch (const std::exception& error) {
        logError(std::string("CreateZelControl: the bus failed: ") + error.what());
    }
    return false;
}

}  // namespace

void ZelServiceAPI::CreateZelControl(IZelControl** control) {
    *control = nullptr;
    if (!findService()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(current().mutex);
    std::unique_ptr<ZelControl>& known = current().control;
    // Another thread may hold the control that is there: it stays.
    if (known == nullptr) {
        known = std::make_unique<ZelControl>();
    }
    *control = known.get();
}

void ZelServiceAPI::DestroyZelControl() {
    const std::lock_guard<std::mutex> lock(current().mutex);
    current().control.reset();
}
