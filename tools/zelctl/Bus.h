// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The system bus: who is on it, and what systemd says.
 */
#ifndef ZELCTL_BUS_H
#define ZELCTL_BUS_H

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "Situation.h"
#include "Status.h"

namespace zelctl {

constexpr const char* kDaemonName = "com.brenlow.ZELLite";
constexpr const char* kServiceName = "com.brenlow.ZELDaemon";
constexpr const char* kDaemonUnit = "zel-lite.service";
constexpr const char* kServiceUnit = "zel_deamon.service";

/** How long a question may take. */
constexpr std::chrono::seconds kQuestionLimit{5};

struct BusClose {
    // Every call is over when it returns: nothing is left to be sent to a bus that may not take it.
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
struct MessageUnref {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

/** An error of a bus call, freed with it. */
class BusError {
public:
    BusError() = default;
    ~BusError() { sd_bus_error_free(&m_error); }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;

    sd_bus_error* get() { return &m_error; }
    bool is(const char* name) const { return sd_bus_error_has_name(&m_error, name) != 0; }
    std::string text() const { return m_error.message == nullptr ? "no reason given" : m_error.message; }

private:
    sd_bus_error m_error{};
};

/** A connection to the system bus, closed with the object. */
class Bus {
public:
    /**
     * @param limit  how long a question may take, whoever is asked
     * @throw Trouble when there is no bus, it does not admit this process, or it says nothing
     */
    explicit Bus(std::chrono::seconds limit = kQuestionLimit);

    sd_bus* get() const { return m_bus.get(); }
    std::chrono::seconds limit() const { return m_limit; }
    /** This connection's name, which is also the id of its session. */
    std::string uniqueName() const;
    /** The process that owns a name; 0 when none does. */
    unsigned int ownerPid(const char* name) const;
    /** Whether a connection of that name is on the bus. */
    bool has(const std::string& name) const;
    /** What systemd says of a unit; none when it can't be asked. */
    std::optional<Unit> unit(const char* name) const;
    /** Asks systemd to tell of units as they change. */
    bool subscribeToUnits() const;

private:
    std::unique_ptr<sd_bus, BusClose> m_bus;
    std::chrono::seconds m_limit;
};

/** A span as sd-bus takes it. */
std::uint64_t microseconds(std::chrono::seconds span);

/** The object path of a unit at systemd. */
std::string unitPath(const char* name);

}  // namespace zelctl

#endif
