// SPDX-License-Identifier: Apache-2.0
#include "Bus.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace zelctl {

namespace {

constexpr const char* kSystemd = "org.freedesktop.systemd1";
constexpr const char* kUnitInterface = "org.freedesktop.systemd1.Unit";
constexpr const char* kServiceInterface = "org.freedesktop.systemd1.Service";

constexpr const char* kAdvice = "systemctl status dbus.service";

std::string address() {
    const char* const variable = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    return variable == nullptr ? "the system bus" : std::string("the system bus at ") + variable;
}

// Until the bus has said who this is. The library alone would wait for a minute and a half.
// Returns 0 when the time is over.
int waitUntilReady(sd_bus* bus, std::chrono::seconds limit) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + limit;
    int result = sd_bus_is_ready(bus);
    while (result == 0) {
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - Clock::now()).count();
        if (left <= 0) {
            return 0;
        }
        result = sd_bus_process(bus, nullptr);
        if (result == 0) {
            result = sd_bus_wait(bus, static_cast<std::uint64_t>(left));
        }
        result = result < 0 ? result : sd_bus_is_ready(bus);
    }
    return result;
}

// Properties of one unit. The first failure is remembered; what comes after it is left as it is.
class Properties {
public:
    Properties(sd_bus* bus, const char* unit) : m_bus(bus), m_path(unitPath(unit)) {}

    void text(const char* interface, const char* name, std::string& value) {
        char* read = nullptr;
        if (m_ok && sd_bus_get_property_string(m_bus, kSystemd, m_path.c_str(), interface, name, nullptr,
                                               &read) >= 0) {
            value = read;
            std::free(read);
        } else {
            m_ok = false;
        }
    }

    template <typename Number>
    void number(const char* interface, const char* name, char type, Number& value) {
        m_ok = m_ok && sd_bus_get_property_trivial(m_bus, kSystemd, m_path.c_str(), interface, name, nullptr,
                                                   type, &value) >= 0;
    }

    bool isComplete() const { return m_ok; }

private:
    sd_bus* m_bus;
    std::string m_path;
    bool m_ok = true;
};

}  // namespace

std::uint64_t microseconds(std::chrono::seconds span) {
    return static_cast<std::uint64_t>(std::chrono::microseconds(span).count());
}

std::string unitPath(const char* name) {
    char* path = nullptr;
    if (sd_bus_path_encode("/org/freedesktop/systemd1/unit", name, &path) < 0) {
        return {};
    }
    const std::unique_ptr<char, decltype(&std::free)> owned(path, &std::free);
    return owned.get();
}

Bus::Bus(std::chrono::seconds limit) : m_limit(limit) {
    sd_bus* bus = nullptr;
    int result = sd_bus_open_system_with_description(&bus, "zelctl");
    m_bus.reset(bus);
    if (result >= 0) {
        result = sd_bus_set_method_call_timeout(bus, microseconds(limit));
    }
    if (result >= 0) {
        result = waitUntilReady(bus, limit);
    }
    if (result == -EACCES || result == -EPERM) {
        throw Trouble(kNotPermitted, address(), std::strerror(-result), "as root");
    }
    if (result < 0) {
        throw Trouble(kNoBus, address(), std::string("no connection: ") + std::strerror(-result), kAdvice);
    }
    if (result == 0) {
        throw Trouble(kNoBus, address(), "it accepts connections and says nothing", kAdvice);
    }
}

std::string Bus::uniqueName() const {
    const char* name = nullptr;
    return sd_bus_get_unique_name(m_bus.get(), &name) < 0 ? std::string() : name;
}

unsigned int Bus::ownerPid(const char* name) const {
    sd_bus_creds* read = nullptr;
    if (sd_bus_get_name_creds(m_bus.get(), name, SD_BUS_CREDS_PID, &read) < 0) {
        return 0;
    }
    const std::unique_ptr<sd_bus_creds, decltype(&sd_bus_creds_unref)> credentials(read, &sd_bus_creds_unref);
    pid_t pid = 0;
    return sd_bus_creds_get_pid(credentials.get(), &pid) < 0 ? 0 : static_cast<unsigned int>(pid);
}

bool Bus::has(const std::string& name) const {
    sd_bus_creds* read = nullptr;
    const int result = sd_bus_get_name_creds(m_bus.get(), name.c_str(), 0, &read);
    sd_bus_creds_unref(read);
    return result >= 0;
}

std::optional<Unit> Bus::unit(const char* name) const {
    Unit unit;
    unit.name = name;
    std::uint32_t pid = 0;
    std::uint32_t restarts = 0;
    Properties properties(m_bus.get(), name);
    properties.text(kUnitInterface, "LoadState", unit.load);
    properties.text(kUnitInterface, "ActiveState", unit.active);
    properties.text(kUnitInterface, "SubState", unit.sub);
    properties.number(kUnitInterface, "ActiveEnterTimestamp", 't', unit.activeSince);
    properties.number(kUnitInterface, "ActiveEnterTimestampMonotonic", 't', unit.activeSinceMonotonic);
    properties.number(kServiceInterface, "MainPID", 'u', pid);
    properties.number(kServiceInterface, "NRestarts", 'u', restarts);
    if (!properties.isComplete()) {
        return std::nullopt;
    }
    if (unit.active != "active") {
        unit.activeSince = 0;
        unit.activeSinceMonotonic = 0;
    }
    unit.pid = pid;
    unit.restarts = restarts;
    return unit;
}

bool Bus::subscribeToUnits() const {
    return sd_bus_call_method(m_bus.get(), kSystemd, "/org/freedesktop/systemd1",
                              "org.freedesktop.systemd1.Manager", "Subscribe", nullptr, nullptr,
                              nullptr) >= 0;
}

}  // namespace zelctl
