// SPDX-License-Identifier: Apache-2.0
#include "ServiceWait.h"

#include <chrono>
#include <cstdint>
#include <thread>

namespace {

constexpr const char* kUnit = "zel_deamon.service";
constexpr std::chrono::milliseconds kPollInterval{20};

constexpr const char* kSystemd = "org.freedesktop.systemd1";
constexpr const char* kSystemdPath = "/org/freedesktop/systemd1";
constexpr const char* kSystemdManager = "org.freedesktop.systemd1.Manager";
constexpr const char* kSystemdUnit = "org.freedesktop.systemd1.Unit";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

enum class Verdict {
    // The service answers for its name.
    kThere,
    // It may still come.
    kComing,
    // Nothing would bring it.
    kNone
};

struct UnitState {
    bool jobQueued;
    std::string activeState;
};

bool hasOwner(ControlConnection& connection, const char* name, const Deadline& deadline) {
    const bus::Message call = connection.newCall(bus::kName, bus::kPath, bus::kName, "NameHasOwner");
    bus::check(sd_bus_message_append(call.get(), "s", name), "NameHasOwner");
    const bus::Message reply = connection.call(call, deadline);
    int owned = 0;
    bus::check(sd_bus_message_read(reply.get(), "b", &owned), "NameHasOwner");
    return owned != 0;
}

std::string unitPath(ControlConnection& connection, const Deadline& deadline) {
    const bus::Message call = connection.newCall(kSystemd, kSystemdPath, kSystemdManager, "LoadUnit");
    bus::check(sd_bus_message_append(call.get(), "s", kUnit), "LoadUnit");
    const bus::Message reply = connection.call(call, deadline);
    const char* path = nullptr;
    bus::check(sd_bus_message_read(reply.get(), "o", &path), "LoadUnit");
    return path;
}

bus::Message unitProperty(ControlConnection& connection, const std::string& unit, const char* name,
                          const Deadline& deadline) {
    const bus::Message call = connection.newCall(kSystemd, unit.c_str(), kProperties, "Get");
    bus::check(sd_bus_message_append(call.get(), "ss", kSystemdUnit, name), name);
    return connection.call(call, deadline);
}

// The job is read before the state. Should it end in between, the state is already what the job led to; the
// other way round a unit that has just been started would look inactive and without a job.
UnitState readUnit(ControlConnection& connection, const Deadline& deadline) {
    const std::string unit = unitPath(connection, deadline);
    const bus::Message job = unitProperty(connection, unit, "Job", deadline);
    std::uint32_t number = 0;
    const char* path = nullptr;
    bus::check(sd_bus_message_read(job.get(), "v", "(uo)", &number, &path), "Job");
    const bus::Message state = unitProperty(connection, unit, "ActiveState", deadline);
    const char* name = nullptr;
    bus::check(sd_bus_message_read(state.get(), "v", "s", &name), "ActiveState");
    return {number != 0, name};
}

// The name is read after the state: an instance whose unit has got over being deactivated is dead, so the bus
// has given its name up before it answers us.
Verdict judge(ControlConnection& connection, const UnitState& unit, const Deadline& deadline) {
    if (unit.activeState != "deactivating" && hasOwner(connection, kServiceName, deadline)) {
        return Verdict::kThere;
    }
    const bool alive = unit.activeState == "activating" || unit.activeState == "active";
    return alive || unit.jobQueued ? Verdict::kComing : Verdict::kNone;
}

Verdict look(ControlConnection& connection, const Deadline& deadline) {
    if (!hasOwner(connection, kSystemd, deadline)) {
        return hasOwner(connection, kServiceName, deadline) ? Verdict::kThere : Verdict::kComing;
    }
    UnitState unit;
    try {
        unit = readUnit(connection, deadline);
    } catch (const std::runtime_error&) {
        // systemd has left or is starting anew: the next look tells. A lost bus shows there, too.
        return Verdict::kComing;
    }
    return judge(connection, unit, deadline);
}

}  // namespace

std::string serviceOwner(ControlConnection& connection, const Deadline& deadline) {
    const bus::Message call = connection.newCall(bus::kName, bus::kPath, bus::kName, "GetNameOwner");
    bus::check(sd_bus_message_append(call.get(), "s", kServiceName), "GetNameOwner");
    const bus::Message reply = connection.call(call, deadline);
    const char* owner = nullptr;
    bus::check(sd_bus_message_read(reply.get(), "s", &owner), "GetNameOwner");
    return owner;
}

bool waitForService(ControlConnection& connection, const Deadline& deadline) {
    for (;;) {
        const Verdict verdict = look(connection, deadline);
        if (verdict != Verdict::kComing) {
            return verdict == Verdict::kThere;
        }
        if (deadline.isOver()) {
            return false;
        }
        std::this_thread::sleep_for(kPollInterval);
    }
}
