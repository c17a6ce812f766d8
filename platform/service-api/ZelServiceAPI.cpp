// SPDX-License-Identifier: Apache-2.0
#include "ZelServiceAPI.h"

#include <memory>
#include <mutex>
#include <string>
#include <utility>

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

// A connection on which the service was seen, or null.
std::unique_ptr<sdbus::IConnection> connectToService() {
    const Deadline deadline(kWaitLimit);
    try {
        auto connection = sdbus::createSystemBusConnection();
        if (waitForService(*connection, deadline)) {
            return connection;
        }
        logError("CreateZelControl: the service is not running and nothing starts it");
    } catch (const std::exception& error) {
        logError(std::string("CreateZelControl: the bus failed: ") + error.what());
    }
    return nullptr;
}

}  // namespace

void ZelServiceAPI::CreateZelControl(IZelControl** control) {
    *control = nullptr;
    auto connection = connectToService();
    if (connection == nullptr) {
        return;
    }
    const std::lock_guard<std::mutex> lock(current().mutex);
    std::unique_ptr<ZelControl>& known = current().control;
    if (known == nullptr) {
        known = std::make_unique<ZelControl>(std::move(connection));
    } else {
        // Another thread may hold the control that is there: it stays and is given a connection that works.
        known->replaceConnection(std::move(connection));
    }
    *control = known.get();
}

void ZelServiceAPI::DestroyZelControl() {
    const std::lock_guard<std::mutex> lock(current().mutex);
    current().control.reset();
}
