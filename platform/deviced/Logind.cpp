// SPDX-License-Identifier: Apache-2.0
#include "Logind.h"

#include <dlog.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "OwnName.h"

namespace {

constexpr const char* kTag = "DEVICED";

constexpr std::chrono::seconds kRetryInterval{1};
constexpr std::chrono::seconds kCallLimit{25};

constexpr const char* kOwnName = "com.brenlow.ZELLite.Power";

constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
constexpr const char* kLogind = "org.freedesktop.login1";
constexpr const char* kLogindPath = "/org/freedesktop/login1";
constexpr const char* kLogindManager = "org.freedesktop.login1.Manager";

constexpr const char* kOwnerRule =
    "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
    "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='org.freedesktop.login1'";
constexpr const char* kSleepRule =
    "type='signal',sender='org.freedesktop.login1',path='/org/freedesktop/login1',"
    "interface='org.freedesktop.login1.Manager',member='PrepareForSleep'";

void log(log_priority priority, const std::string& text) {
    __dlog_print(LOG_ID_MAIN, priority, kTag, "%s", text.c_str());
}

int createWakeUps() {
    const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return descriptor;
}

struct RawMessage : sdbus::Message {
    static sd_bus_message* of(sdbus::Message& message) {
        return static_cast<sd_bus_message*>(message.*(&RawMessage::msg_));
    }
};

// Keeps the machine awake as long as it exists.
class Inhibitor {
public:
    // Takes the descriptor out of what logind granted. The binding would duplicate it without close-on-exec.
    explicit Inhibitor(sdbus::Message& grant) {
        int borrowed = -1;
        if (sd_bus_message_read_basic(RawMessage::of(grant), 'h', &borrowed) <= 0) {
            throw std::runtime_error("the answer has no descriptor");
        }
        m_descriptor = fcntl(borrowed, F_DUPFD_CLOEXEC, 0);
        if (m_descriptor < 0) {
            throw std::system_error(errno, std::generic_category(), "fcntl");
        }
    }
    ~Inhibitor() { close(m_descriptor); }
    Inhibitor(const Inhibitor&) = delete;
    Inhibitor& operator=(const Inhibitor&) = delete;

private:
    int m_descriptor = -1;
};

// The owner of a name; empty when nobody is.
std::string ownerOf(sdbus::IConnection& connection, const char* name) {
    try {
        std::string owner;
        sdbus::createProxy(connection, kBus, kBusPath)
            ->callMethod("GetNameOwner")
            .onInterface(kBus)
            .withTimeout(kCallLimit)
            .withArguments(name)
            .storeResultsTo(owner);
        return owner;
    } catch (const sdbus::Error& error) {
        if (error.getName() == "org.freedesktop.DBus.Error.NameHasNoOwner") {
            return "";
        }
        throw;
    }
}

}  // namespace

Logind::Logind(Subscriptions& subscriptions) : m_subscriptions(subscriptions), m_wakeUps(createWakeUps()) {
    std::thread([this] { run(); }).detach();
}

void Logind::wake() {
    eventfd_write(m_wakeUps, 1);
}

// One line when the bus is lost or missing, one when it is there again, none in between.
void Logind::run() {
    for (bool complained = false;;) {
        try {
            connect();
            if (complained) {
                log(DLOG_INFO, "the bus is there again");
            }
            complained = false;
            processUntilLost();
        } catch (const std::exception& error) {
            if (!complained) {
                log(DLOG_ERROR, std::string("there is no bus, sleep goes unnoticed: ") + error.what());
            }
            complained = true;
        }
        m_owner.clear();
        m_sleepWatch.reset();
        m_ownerWatch.reset();
        m_connection.reset();
        std::this_thread::sleep_for(kRetryInterval);
    }
}

// After the name the watches come first: what logind says from now on is either in what is read from it, or a
// signal.
void Logind::connect() {
    m_connection = sdbus::createSystemBusConnection();
    takeName();
    m_ownerWatch = watch(kOwnerRule, &Logind::onNameOwnerChanged);
    m_sleepWatch = watch(kSleepRule, &Logind::onPrepareForSleep);
    setOwner(ownerOf(*m_connection, kLogind));
}

// Without the name everything works, but strangers can send to this connection.
void Logind::takeName() {
    try {
        takeOwnName(*m_connection, kOwnName, kCallLimit);
    } catch (const sdbus::Error& error) {
        log(DLOG_ERROR, std::string("the bus refuses the name ") + kOwnName + ": " + error.what());
    }
}

sdbus::Slot Logind::watch(const char* rule, void (Logind::*handler)(sdbus::Message&)) {
    return m_connection->addMatch(rule, [this, handler](sdbus::Message& signal) {
        try {
            (this->*handler)(signal);
        } catch (const std::exception& error) {
            log(DLOG_ERROR, "a signal " + signal.getMemberName() + " could not be read: " + error.what());
        }
    });
}

// Ends by an exception when the bus is lost.
void Logind::processUntilLost() {
    for (;;) {
        const bool more = m_connection->processPendingRequest();
        keepHold();
        waitForEvents(more);
    }
}

void Logind::waitForEvents(bool more) {
    const sdbus::IConnection::PollData data = m_connection->getEventLoopPollData();
    std::array<pollfd, 2> polled{pollfd{m_wakeUps, POLLIN, 0}, pollfd{data.fd, data.events, 0}};
    poll(polled.data(), polled.size(), more ? 0 : data.getPollTimeout());
    eventfd_t count = 0;
    if (eventfd_read(m_wakeUps, &count) == 0 && !m_hold) {
        m_holdIsDue = true;
    }
}

// A rule is no guard against a signal that is sent to this connection alone; its sender tells.
void Logind::onNameOwnerChanged(sdbus::Message& signal) {
    if (signal.getSender() != kBus) {
        return;
    }
    std::string name;
    std::string oldOwner;
    std::string newOwner;
    signal >> name >> oldOwner >> newOwner;
    setOwner(newOwner);
}

void Logind::onPrepareForSleep(sdbus::Message& signal) {
    if (m_owner.empty() || signal.getSender() != m_owner) {
        return;
    }
    bool preparing = false;
    signal >> preparing;
    setPreparing(preparing);
}

void Logind::setOwner(const std::string& owner) {
    m_owner = owner;
    m_holdIsDue = true;
    if (!owner.empty()) {
        setPreparing(readPreparing());
        return;
    }
    log(DLOG_INFO, "logind is not there, sleep goes unnoticed until it is");
    m_preparing = m_preparing.value_or(false);
}

void Logind::setPreparing(bool preparing) {
    if (m_preparing == preparing) {
        return;
    }
    const bool isChange = m_preparing.has_value();
    m_preparing = preparing;
    m_holdIsDue = true;
    if (isChange && preparing) {
        m_subscriptions.announce(PowerEvent::kStandby, std::exchange(m_hold, nullptr));
    } else if (isChange) {
        m_subscriptions.announce(PowerEvent::kEarlyWakeUp, nullptr);
    }
}

// A logind that does not answer counts as one that does not send the machine to sleep. The value is read
// without the binding's Variant: that uses an object which the process destroys at its exit, while this
// thread may still run.
bool Logind::readPreparing() {
    try {
        const auto proxy = manager();
        sdbus::MethodCall call = proxy->createMethodCall(kProperties, "Get");
        call << kLogindManager << "PreparingForSleep";
        sdbus::MethodReply reply = proxy->callMethod(call, kCallLimit);
        bool preparing = false;
        reply.enterVariant("b");
        reply >> preparing;
        return preparing;
    } catch (const sdbus::Error& error) {
        log(DLOG_ERROR,
            std::string("logind does not say whether the machine goes to sleep: ") + error.what());
        return false;
    }
}

void Logind::keepHold() {
    if (!m_subscriptions.has(PowerEvent::kStandby)) {
        m_hold = nullptr;
        return;
    }
    if (!m_holdIsDue || m_owner.empty() || *m_preparing) {
        return;
    }
    m_holdIsDue = false;
    m_hold = takeHold();
    SleepHold::offer(m_hold);
}

// Empty when logind grants none. It is asked again when the machine has slept, somebody subscribes, or logind
// is new.
SleepHold::Share Logind::takeHold() {
    try {
        const auto proxy = manager();
        sdbus::MethodCall call = proxy->createMethodCall(kLogindManager, "Inhibit");
        call << "sleep" << program_invocation_short_name << "tells its subscribers of standby"
             << "delay";
        sdbus::MethodReply reply = proxy->callMethod(call, kCallLimit);
        return std::make_shared<const Inhibitor>(reply);
    } catch (const std::exception& error) {
        log(DLOG_ERROR, std::string("logind will not wait for standby to be told: ") + error.what());
        return nullptr;
    }
}

// By its unique name: a call never has the bus start a logind.
std::unique_ptr<sdbus::IProxy> Logind::manager() {
    return sdbus::createProxy(*m_connection, m_owner, kLogindPath);
}
