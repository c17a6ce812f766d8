// SPDX-License-Identifier: Apache-2.0
#include "ServiceWait.h"

#include <cstdint>
#include <memory>
#include <thread>

#include "Log.h"

namespace {

constexpr const char* kUnit = "zel_deamon.service";
constexpr std::chrono::milliseconds kPollInterval{20};

constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
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

bool hasOwner(sdbus::IConnection& connection, const char* name, const Deadline& deadline) {
    bool owned = false;
    sdbus::createProxy(connection, kBus, kBusPath)
        ->callMethod("NameHasOwner")
        .onInterface(kBus)
        .withTimeout(deadline.remaining())
        .withArguments(name)
        .storeResultsTo(owned);
    return owned;
}

sdbus::Variant unitProperty(sdbus::IProxy& unit, const char* name, const Deadline& deadline) {
    sdbus::Variant value;
    unit.callMethod("Get")
        .onInterface(kProperties)
        .withTimeout(deadline.remaining())
        .withArguments(kSystemdUnit, name)
        .storeResultsTo(value);
    return value;
}

// The job is read before the state. Should it end in between, the state is already what the job led to; the
// other way round a unit that has just been started would look inactive and without a job.
UnitState readUnit(sdbus::IConnection& connection, const Deadline& deadline) {
    sdbus::ObjectPath path;
    sdbus::createProxy(connection, kSystemd, kSystemdPath)
        ->callMethod("LoadUnit")
        .onInterface(kSystemdManager)
        .withTimeout(deadline.remaining())
        .withArguments(kUnit)
        .storeResultsTo(path);
    const auto unit = sdbus::createProxy(connection, kSystemd, path);
    const auto job =
        unitProperty(*unit, "Job", deadline).get<sdbus::Struct<std::uint32_t, sdbus::ObjectPath>>();
    return {job.get<0>() != 0, unitProperty(*unit, "ActiveState", deadline).get<std::string>()};
}

// The name is read after the state: an instance whose unit has got over being deactivated is dead, so the bus
// has given its name up before it answers us.
Verdict judge(sdbus::IConnection& connection, const UnitState& unit, const Deadline& deadline) {
    if (unit.activeState != "deactivating" && hasOwner(connection, kServiceName, deadline)) {
        return Verdict::kThere;
    }
    const bool alive = unit.activeState == "activating" || unit.activeState == "active";
    return alive || unit.jobQueued ? Verdict::kComing : Verdict::kNone;
}

Verdict look(sdbus::IConnection& connection, const Deadline& deadline) {
    if (!hasOwner(connection, kSystemd, deadline)) {
        return hasOwner(connection, kServiceName, deadline) ? Verdict::kThere : Verdict::kComing;
    }
    UnitState unit;
    try {
        unit = readUnit(connection, deadline);
    } catch (const sdbus::Error&) {
        // systemd has left or is starting anew: the next look tells. A lost bus shows there, too.
        return Verdict::kComing;
    }
    return judge(connection, unit, deadline);
}

}  // namespace

std::string serviceOwner(sdbus::IConnection& connection, const Deadline& deadline) {
    std::string owner;
    sdbus::createProxy(connection, kBus, kBusPath)
        ->callMethod("GetNameOwner")
        .onInterface(kBus)
        .withTimeout(deadline.remaining())
        .withArguments(kServiceName)
        .storeResultsTo(owner);
    return owner;
}

bool waitForService(sdbus::IConnection& connection, const Deadline& deadline) {
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
