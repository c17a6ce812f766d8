// SPDX-License-Identifier: Apache-2.0
#include "IpcServer.h"

#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "CallersObservers.h"
#include "Log.h"

namespace {

constexpr std::size_t kMaxRequest = std::size_t{1024} * 1024;

// dbus-daemon throws a sender of more than 32 MiB off the bus; the header and its fields need a part of that.
constexpr std::size_t kMaxReply = std::size_t{32} * 1024 * 1024 - 4096;

constexpr int kRetryMilliseconds = 1000;

constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr const char* kOwnersMatch =
    "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
    "interface='org.freedesktop.DBus',member='NameOwnerChanged'";

constexpr const char* kUnknownInterface = "org.freedesktop.DBus.Error.UnknownInterface";
constexpr const char* kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
constexpr const char* kLimitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
constexpr const char* kFailed = "org.freedesktop.DBus.Error.Failed";

// No interface has a longer name, so none that is longer needs to be repeated to who asked for it.
constexpr std::size_t kMaxInterfaceName = 255;

// A call that is answered with an error because of what the caller asked for.
class Refusal : public std::runtime_error {
public:
    Refusal(const char* name, const std::string& message) : std::runtime_error(message), m_name(name) {}

    const char* name() const { return m_name; }

private:
    const char* m_name;
};

std::string quoted(std::string_view interface) {
    return interface.size() > kMaxInterfaceName ? "of more than 255 bytes"
                                                : "'" + std::string(interface) + "'";
}

// Reads byte by byte, so that a request over the limit is refused before more than the limit is copied.
TCMessageBuffer readRequest(sdbus::MethodCall& call) {
    std::vector<std::uint8_t> bytes;
    call.enterContainer("y");
    for (std::uint8_t byte = 0; call >> byte;) {
        if (bytes.size() == kMaxRequest) {
            throw Refusal(kLimitsExceeded, "the request is over 1 MiB");
        }
        bytes.push_back(byte);
    }
    call.clearFlags();
    call.exitContainer();
    TCMessageBuffer request;
    request.WriteConcatenated(bytes.size(), bytes.data(), -1);
    return request;
}

// The binding writes arrays an element at a time, which takes longer than rendering a large report; sd-bus
// copies them in one piece.
struct RawMessage : sdbus::Message {
    static sd_bus_message* of(sdbus::Message& message) {
        return static_cast<sd_bus_message*>(message.*(&RawMessage::msg_));
    }
};

void sendReply(sdbus::MethodCall& call, TCMessageBuffer& content) {
    if (content.GetContentSize() > kMaxReply) {
        throw Refusal(kLimitsExceeded, "the reply of " + std::to_string(content.GetContentSize()) +
                                           " bytes is larger than what the bus carries");
    }
    const auto* bytes = static_cast<const std::uint8_t*>(content.GetAsVoidFromOffset(0));
    sdbus::MethodReply reply = call.createReply();
    const int result =
        sd_bus_message_append_array(RawMessage::of(reply), 'y', bytes, content.GetContentSize());
    if (result < 0) {
        throw sdbus::createError(-result, "the reply could not be written");
    }
    reply.send();
}

void sendError(sdbus::MethodCall& call, const char* name, const char* message) {
    try {
        call.createErrorReply(sdbus::Error(name, message)).send();
    } catch (const std::exception& failure) {
        logError(std::string("an error reply could not be sent: ") + failure.what());
    }
}

// Ends a call for the observers, whatever became of it.
struct ClearCallerAtEnd {
    ClearCallerAtEnd() = default;
    ~ClearCallerAtEnd() { CallersObservers::clearCurrentCaller(); }
    ClearCallerAtEnd(const ClearCallerAtEnd&) = delete;
    ClearCallerAtEnd& operator=(const ClearCallerAtEnd&) = delete;
};

std::uint32_t senderPid(sdbus::MethodCall& call) {
    try {
        return static_cast<std::uint32_t>(call.getCredsPid());
    } catch (const sdbus::Error&) {
        // It has left already.
        return 0;
    }
}

}  // namespace

IpcServer::IpcServer(IpcAddress address) : m_address(std::move(address)) {}

IpcServer::~IpcServer() {
    m_stop.set();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void IpcServer::start(std::unique_ptr<TICallListener> listener) {
    m_listener = std::move(listener);
    m_interfaceName = m_listener->GetInterfaceName();
    m_thread = std::thread([this] { run(); });
}

bool IpcServer::isDispatchingHere() const {
    return m_thread.get_id() == std::this_thread::get_id();
}

void IpcServer::connect() {
    try {
        openConnection();
    } catch (...) {
        disconnect();
        throw;
    }
}

void IpcServer::openConnection() {
    m_connection = sdbus::createSystemBusConnection();
    // The watch comes first: who leaves from now on is either missing in the list of names or reported after
    // it.
    watchOwners();
    addPresentConnections();
    offerMethod();
    m_connection->requestName(m_address.busName);
}

void IpcServer::watchOwners() {
    m_ownersWatch = m_connection->addMatch(kOwnersMatch, [this](sdbus::Message& signal) {
        try {
            onNameOwnerChanged(signal);
        } catch (const std::exception& error) {
            logError(std::string("a NameOwnerChanged signal could not be read: ") + error.what());
        }
    });
}

void IpcServer::addPresentConnections() {
    std::vector<std::string> names;
    sdbus::createProxy(*m_connection, kBus, kBusPath)
        ->callMethod("ListNames")
        .onInterface(kBus)
        .storeResultsTo(names);
    m_connections.addPresent(names, m_connection->getUniqueName());
}

void IpcServer::offerMethod() {
    m_object = sdbus::createObject(*m_connection, m_address.objectPath);
    for (const std::string& interface : m_address.interfaces) {
        m_object->registerMethod(interface, "Call", "siay", {"interface", "method", "request"}, "ay",
                                 {"reply"}, [this](sdbus::MethodCall call) { onCall(std::move(call)); });
    }
    m_object->finishRegistration();
}

void IpcServer::disconnect() {
    m_object.reset();
    m_ownersWatch.reset();
    m_connection.reset();
    m_connections.removeAll();
}

void IpcServer::run() {
    for (;;) {
        try {
            processUntilStopped();
            return;
        } catch (const std::exception& error) {
            logError(std::string("the bus is lost: ") + error.what());
        }
        // Nobody survives the loss of the bus.
        for (const auto& [name, pid] : m_connections.removeAll()) {
            CallersObservers::ownerRemoved(name, pid);
        }
        disconnect();
        if (!reconnect()) {
            return;
        }
    }
}

// Returns when stopped; throws when the bus is lost.
void IpcServer::processUntilStopped() {
    for (bool stopped = false; !stopped;) {
        const bool more = m_connection->processPendingRequest();
        const sdbus::IConnection::PollData data = m_connection->getEventLoopPollData();
        stopped = m_stop.wait({data.fd, data.events, 0}, more ? 0 : data.getPollTimeout());
    }
}

// Tries once a second, quietly: the loss has been logged, and the bus may stay away for long. False when
// stopped.
bool IpcServer::reconnect() {
    while (!m_stop.wait({-1, 0, 0}, kRetryMilliseconds)) {
        try {
            connect();
            logInfo("the bus is back, the name is taken again");
            return true;
        } catch (const std::exception&) {
            continue;
        }
    }
    return false;
}

// The match rule is no guard against a signal sent to this connection alone; its sender tells.
void IpcServer::onNameOwnerChanged(sdbus::Message& signal) {
    if (signal.getSender() != kBus) {
        return;
    }
    std::string name;
    std::string oldOwner;
    std::string newOwner;
    signal >> name >> oldOwner >> newOwner;
    if (!newOwner.empty()) {
        return;
    }
    if (const auto pid = m_connections.remove(name)) {
        CallersObservers::ownerRemoved(name, *pid);
    }
}

void IpcServer::onCall(sdbus::MethodCall call) {
    try {
        answer(call);
    } catch (const Refusal& refusal) {
        sendError(call, refusal.name(), refusal.what());
    } catch (const std::exception& error) {
        logError(std::string("a call failed: ") + error.what());
        sendError(call, kFailed, error.what());
    }
}

void IpcServer::answer(sdbus::MethodCall& call) {
    // Stays in the message, however long it is.
    char* interface = nullptr;
    std::int32_t method = 0;
    call >> interface >> method;
    if (interface != m_interfaceName) {
        throw Refusal(kUnknownInterface, "nobody serves an interface " + quoted(interface));
    }
    TCMessageBuffer request = readRequest(call);
    TCMessageBuffer reply = dispatch(call, method, request);
    sendReply(call, reply);
}

TCMessageBuffer IpcServer::dispatch(sdbus::MethodCall& call, int method, TCMessageBuffer& request) {
    request.m_senderName = call.getSender();
    const TSCallerProperties& caller =
        m_connections.addCaller(request.m_senderName, [&call] { return senderPid(call); });
    const ClearCallerAtEnd clearAtEnd;
    CallersObservers::setCurrentCaller(caller);
    TCMessageBuffer reply;
    if (!m_listener->OnCallReceived(method, request, reply)) {
        throw Refusal(kUnknownMethod, "the interface " + quoted(m_interfaceName) + " has no method " +
                                          std::to_string(method));
    }
    return reply;
}
