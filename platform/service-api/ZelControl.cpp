// SPDX-License-Identifier: Apache-2.0
#include "ZelControl.h"

#include <cstdint>
#include <string>
#include <utility>

#include "Log.h"
#include "ServiceWait.h"

namespace {

constexpr const char* kServicePath = "/com/brenlow/ZELDaemon";
constexpr const char* kServiceInterface = "com.brenlow.IZelControl";
constexpr std::chrono::seconds kCallLimit{25};
constexpr int kCommunicationFailed = -1;

}  // namespace

ZelControl::ZelControl(std::unique_ptr<sdbus::IConnection> connection) {
    replaceConnection(std::move(connection));
}

void ZelControl::replaceConnection(std::unique_ptr<sdbus::IConnection> connection) {
    auto fresh = std::make_shared<Channel>();
    fresh->connection = std::move(connection);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_channel = std::move(fresh);
}

int ZelControl::Terminate(std::vector<ETerminateErrorType>& errors, TSZelData& data) {
    const auto read = [&](sdbus::MethodReply& reply) {
        std::int32_t result = 0;
        std::vector<std::int32_t> reasons;
        TSZelData told;
        reply >> result >> reasons >> told.pid >> told.needStandbyHandling;
        errors.clear();
        for (const std::int32_t reason : reasons) {
            errors.push_back(static_cast<ETerminateErrorType>(reason));
        }
        data = told;
        return result;
    };
    return call(
        "Terminate", [](sdbus::MethodCall&) {}, read);
}

int ZelControl::Notify(ETriggerType trigger, const TSNotifyData& data) {
    const auto fill = [&](sdbus::MethodCall& message) {
        message << static_cast<std::int32_t>(trigger) << data.source << data.sourcePlugState << data.value;
    };
    const auto read = [](sdbus::MethodReply& reply) {
        std::int32_t result = 0;
        reply >> result;
        return result;
    };
    return call("Notify", fill, read);
}

std::shared_ptr<ZelControl::Channel> ZelControl::channel() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_channel;
}

// The call goes to the owner of the name and not to the name: that never starts a service that isn't running.
int ZelControl::call(const char* method, const std::function<void(sdbus::MethodCall&)>& fill,
                     const std::function<int(sdbus::MethodReply&)>& read) {
    const std::shared_ptr<Channel> used = channel();
    const std::lock_guard<std::mutex> lock(used->mutex);
    const Deadline deadline(kCallLimit);
    try {
        const std::string owner = serviceOwner(*used->connection, deadline);
        const auto proxy = sdbus::createProxy(*used->connection, owner, kServicePath);
        sdbus::MethodCall message = proxy->createMethodCall(kServiceInterface, method);
        fill(message);
        sdbus::MethodReply reply = proxy->callMethod(message, deadline.remaining());
        return read(reply);
    } catch (const std::exception& error) {
        logError(std::string(method) + ": the service gave no valid answer: " + error.what());
        return kCommunicationFailed;
    }
}
