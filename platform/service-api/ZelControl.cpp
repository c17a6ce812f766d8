// SPDX-License-Identifier: Apache-2.0
#include "ZelControl.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include "Log.h"
#include "ServiceWait.h"

namespace {

constexpr const char* kServicePath = "/com/brenlow/ZELDaemon";
constexpr const char* kServiceInterface = "com.brenlow.IZelControl";
constexpr std::chrono::seconds kCallLimit{25};
constexpr int kCommunicationFailed = -1;

std::vector<ETerminateErrorType> readReasons(sd_bus_message* reply) {
    const void* bytes = nullptr;
    std::size_t size = 0;
    bus::check(sd_bus_message_read_array(reply, 'i', &bytes, &size), "the reasons");
    const auto* numbers = static_cast<const std::int32_t*>(bytes);
    std::vector<ETerminateErrorType> reasons;
    for (std::size_t i = 0; i < size / sizeof *numbers; ++i) {
        reasons.push_back(static_cast<ETerminateErrorType>(numbers[i]));
    }
    return reasons;
}

}  // namespace

int ZelControl::Terminate(std::vector<ETerminateErrorType>& errors, TSZelData& data) {
    const auto read = [&](sd_bus_message* reply) {
        std::int32_t result = 0;
        bus::check(sd_bus_message_read(reply, "i", &result), "the result");
        std::vector<ETerminateErrorType> reasons = readReasons(reply);
        std::int32_t pid = 0;
        int needStandbyHandling = 0;
        bus::check(sd_bus_message_read(reply, "ib", &pid, &needStandbyHandling), "the service's data");
        errors = std::move(reasons);
        data.pid = pid;
        data.needStandbyHandling = needStandbyHandling != 0;
        return result;
    };
    return call(
        "Terminate", [](sd_bus_message*) {}, read);
}

int ZelControl::Notify(ETriggerType trigger, const TSNotifyData& data) {
    const auto fill = [&](sd_bus_message* message) {
        bus::check(sd_bus_message_append(message, "iiii", static_cast<std::int32_t>(trigger), data.source,
                                         data.sourcePlugState, data.value),
                   "the trigger");
    };
    const auto read = [](sd_bus_message* reply) {
        std::int32_t result = 0;
        bus::check(sd_bus_message_read(reply, "i", &result), "the result");
        return result;
    };
    return call("Notify", fill, read);
}

// The call goes to the owner of the name and not to the name: that never starts a service that isn't running.
int ZelControl::call(const char* method, const std::function<void(sd_bus_message*)>& fill,
                     const std::function<int(sd_bus_message*)>& read) {
    const Deadline deadline(kCallLimit);
    try {
        ControlConnection connection;
        const std::string owner = serviceOwner(connection, deadline);
        const bus::Message message = connection.newCall(owner, kServicePath, kServiceInterface, method);
        fill(message.get());
        const bus::Message reply = connection.call(message, deadline);
        return read(reply.get());
    } catch (const std::exception& error) {
        logError(std::string(method) + ": the service gave no valid answer: " + error.what());
        return kCommunicationFailed;
    }
}
