// SPDX-License-Identifier: Apache-2.0
#include "TimerUnits.h"

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

#include "Log.h"
#include "OwnName.h"

namespace {

constexpr std::chrono::seconds kLimit{10};

constexpr const char* kOwnName = "com.brenlow.ZELLite.Timer";

// Ids in a row that others may have.
constexpr int kMostTaken = 100;

constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr const char* kSystemd = "org.freedesktop.systemd1";
constexpr const char* kSystemdPath = "/org/freedesktop/systemd1";
constexpr const char* kSystemdManager = "org.freedesktop.systemd1.Manager";
constexpr const char* kUnitExists = "org.freedesktop.systemd1.UnitExists";
constexpr const char* kNoSuchUnit = "org.freedesktop.systemd1.NoSuchUnit";
constexpr const char* kJobsRule =
    "type='signal',sender='org.freedesktop.systemd1',path='/org/freedesktop/systemd1',"
    "interface='org.freedesktop.systemd1.Manager',member='JobRemoved'";

constexpr std::uint64_t kSecond = 1000000;
constexpr const char* kProgram = "/bin/true";

using Property = sdbus::Struct<std::string, sdbus::Variant>;
using Properties = std::vector<Property>;
using Unit = sdbus::Struct<std::string, Properties>;
using Calendar = std::vector<sdbus::Struct<std::string, std::string>>;
using Commands = std::vector<sdbus::Struct<std::string, std::vector<std::string>, bool>>;

// Begins anywhere, so that an id that somebody remembers from before a restart of the machine is hardly given
// again.
int nextId() {
    static int last = static_cast<int>(std::random_device()() % std::numeric_limits<int>::max());
    last = last % std::numeric_limits<int>::max() + 1;
    return last;
}

std::string unitName(int id, const char* suffix) {
    return "zel-tvtimer-" + std::to_string(id) + suffix;
}

// A unit that could not be started is forgotten, and so is the service when it has run. The timer is not: its
// id is taken until it is cancelled.
Properties timerProperties(const std::string& date, bool wakesMachine) {
    return {Property("Description", sdbus::Variant("Timer for " + date)),
            Property("TimersCalendar", sdbus::Variant(Calendar{{"OnCalendar", date}})),
            Property("AccuracyUSec", sdbus::Variant(kSecond)),
            Property("WakeSystem", sdbus::Variant(wakesMachine)),
            Property("CollectMode", sdbus::Variant("inactive-or-failed"))};
}

Properties serviceProperties(const std::string& date) {
    return {Property("Description", sdbus::Variant("Awake at " + date)),
            Property("Type", sdbus::Variant("oneshot")),
            Property("ExecStart", sdbus::Variant(Commands{{kProgram, {kProgram}, false}})),
            Property("CollectMode", sdbus::Variant("inactive-or-failed"))};
}

}  // namespace

// Without the name everything works, but strangers can send to this connection.
void TimerUnits::takeName() {
    try {
        takeOwnName(*m_connection, kOwnName, m_deadline.remaining());
    } catch (const sdbus::Error& error) {
        logError(std::string("the bus refuses the name ") + kOwnName + ": " + error.what());
    }
}

// systemd tells how jobs end only where somebody has asked for it.
TimerUnits::TimerUnits() : m_deadline(kLimit), m_connection(sdbus::createSystemBusConnection()) {
    takeName();
    sdbus::createProxy(*m_connection, kBus, kBusPath)
        ->callMethod("GetNameOwner")
        .onInterface(kBus)
        .withTimeout(m_deadline.remaining())
        .withArguments(kSystemd)
        .storeResultsTo(m_owner);
    m_jobsWatch = m_connection->addMatch(kJobsRule, [this](sdbus::Message& signal) { onJobRemoved(signal); });
    manager()->callMethod("Subscribe").onInterface(kSystemdManager).withTimeout(m_deadline.remaining());
}

int TimerUnits::start(const std::string& date, bool wakesMachine) {
    for (int tried = 0; tried < kMostTaken; ++tried) {
        if (m_deadline.isOver()) {
            throw std::runtime_error("no time is left");
        }
        const int id = nextId();
        if (startAs(id, date, wakesMachine)) {
            return id;
        }
    }
    throw std::runtime_error("every id that was tried is taken");
}

// False when somebody has that id. Whatever else goes wrong, the unit may have been made.
bool TimerUnits::startAs(int id, const std::string& date, bool wakesMachine) {
    try {
        const std::string end = awaitEnd(request(id, date, wakesMachine));
        if (end != "done") {
            throw std::runtime_error("its job ended as '" + end + "'");
        }
        return true;
    } catch (const std::exception& error) {
        const auto* answer = dynamic_cast<const sdbus::Error*>(&error);
        if (answer != nullptr && answer->getName() == kUnitExists) {
            return false;
        }
        stopQuietly(id);
        throw;
    }
}

// Gives the path of the job.
std::string TimerUnits::request(int id, const std::string& date, bool wakesMachine) {
    sdbus::ObjectPath job;
    manager()
        ->callMethod("StartTransientUnit")
        .onInterface(kSystemdManager)
        .withTimeout(m_deadline.remaining())
        .withArguments(unitName(id, ".timer"), "fail", timerProperties(date, wakesMachine),
                       std::vector<Unit>{{unitName(id, ".service"), serviceProperties(date)}})
        .storeResultsTo(job);
    return job;
}

// Gives how it ended.
std::string TimerUnits::awaitEnd(const std::string& job) {
    for (;;) {
        while (m_connection->processPendingRequest()) {
        }
        if (const auto end = m_ends.find(job); end != m_ends.end()) {
            return end->second;
        }
        if (m_deadline.isOver()) {
            throw std::runtime_error("its job did not end");
        }
        const sdbus::IConnection::PollData data = m_connection->getEventLoopPollData();
        pollfd polled{data.fd, data.events, 0};
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(m_deadline.remaining());
        poll(&polled, 1, static_cast<int>(left.count()));
    }
}

// A rule is no guard against a signal that is sent to this connection alone; its sender tells.
void TimerUnits::onJobRemoved(sdbus::Message& signal) {
    if (signal.getSender() != m_owner) {
        return;
    }
    std::uint32_t number = 0;
    sdbus::ObjectPath job;
    std::string unit;
    std::string result;
    try {
        signal >> number >> job >> unit >> result;
        m_ends[job] = result;
    } catch (const sdbus::Error& error) {
        logError(std::string("a signal JobRemoved could not be read: ") + error.what());
    }
}

bool TimerUnits::stop(int id) {
    try {
        sdbus::ObjectPath job;
        manager()
            ->callMethod("StopUnit")
            .onInterface(kSystemdManager)
            .withTimeout(m_deadline.remaining())
            .withArguments(unitName(id, ".timer"), "replace")
            .storeResultsTo(job);
        return true;
    } catch (const sdbus::Error& error) {
        if (error.getName() == kNoSuchUnit) {
            return false;
        }
        throw;
    }
}

// Waits for no answer: there may be no time left for one.
void TimerUnits::stopQuietly(int id) {
    try {
        manager()
            ->callMethod("StopUnit")
            .onInterface(kSystemdManager)
            .withArguments(unitName(id, ".timer"), "replace")
            .dontExpectReply();
    } catch (const sdbus::Error&) {
        // Then the bus is lost, and nothing can be done.
    }
}

// By its unique name: nobody who takes the name meanwhile is asked.
std::unique_ptr<sdbus::IProxy> TimerUnits::manager() {
    return sdbus::createProxy(*m_connection, m_owner, kSystemdPath);
}
