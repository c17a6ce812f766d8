// SPDX-License-Identifier: Apache-2.0
#include "IpcServer.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "CallersObservers.h"
#include "Log.h"
#include "ProgramName.h"

namespace {

constexpr std::size_t kMaxRequest = std::size_t{1024} * 1024;

// dbus-daemon throws a sender of more than 32 MiB off the bus; the header and its fields need a part of that.
constexpr std::size_t kMaxReply = std::size_t{32} * 1024 * 1024 - 4096;

// While more than this is on its way to the bus, no call is served: its reply would only wait in memory.
constexpr std::size_t kMaxUnsent = std::size_t{1024} * 1024;

constexpr int kRetryMilliseconds = 1000;
constexpr std::chrono::seconds kOwnCheckTime{1};

// The bus drops signals for a receiver whose queue is full, so who has left is also found by comparison, this
// long after a call. Without calls no queue is full, and nothing wakes this process.
constexpr std::chrono::seconds kComparisonDelay{10};
// How often the bus is asked for what callers have not read yet.
constexpr std::chrono::milliseconds kLookPeriod{50};
constexpr std::chrono::seconds kStuckLimit{5};

constexpr const char* kStatistics = "org.freedesktop.DBus.Debug.Stats";
constexpr const char* kOwnersMatch =
    "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
    "interface='org.freedesktop.DBus',member='NameOwnerChanged'";

constexpr const char* kUnknownInterface = "org.freedesktop.DBus.Error.UnknownInterface";
constexpr const char* kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
constexpr const char* kLimitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
constexpr const char* kFailed = "org.freedesktop.DBus.Error.Failed";

// No interface has a longer name, so none that is longer needs to be repeated to who asked for it.
constexpr std::size_t kMaxInterfaceName = 255;

std::string quoted(std::string_view interface) {
    return interface.size() > kMaxInterfaceName ? "of more than 255 bytes"
                                                : "'" + std::string(interface) + "'";
}

// Ends a call for the observers, whatever became of it.
struct ClearCallerAtEnd {
    ClearCallerAtEnd() = default;
    ~ClearCallerAtEnd() { CallersObservers::clearCurrentCaller(); }
    ClearCallerAtEnd(const ClearCallerAtEnd&) = delete;
    ClearCallerAtEnd& operator=(const ClearCallerAtEnd&) = delete;
};

// What the bus was asked for, until it answers.
struct Question {
    IpcServer* server;
    std::string name;
    std::uint64_t replies;
};

// Runs a callback of sd-bus. Nothing may be thrown through the library, which is written in C.
template <typename Callback>
int guarded(Callback callback) {
    try {
        callback();
    } catch (const std::exception& error) {
        logError(std::string("a message of the bus could not be dealt with: ") + error.what());
    }
    return 0;
}

// Reads one entry of a dictionary of variants as an unsigned number. Leaves @p value where the answer is an
// error or has no such entry.
void readNumber(sd_bus_message* answer, const char* wanted, std::uint32_t& value) {
    if (sd_bus_message_is_method_error(answer, nullptr) != 0 ||
        sd_bus_message_enter_container(answer, 'a', "{sv}") < 0) {
        return;
    }
    while (sd_bus_message_enter_container(answer, 'e', "sv") > 0) {
        const char* key = nullptr;
        sd_bus_message_read(answer, "s", &key);
        if (std::string_view(key) == wanted && sd_bus_message_verify_type(answer, 'v', "u") > 0) {
            sd_bus_message_read(answer, "v", "u", &value);
            return;
        }
        sd_bus_message_skip(answer, "v");
        sd_bus_message_exit_container(answer);
    }
}

std::vector<std::string> readNames(sd_bus_message* answer) {
    std::vector<std::string> names;
    bus::check(sd_bus_message_enter_container(answer, 'a', "s"), "a list of names");
    for (const char* name = nullptr; sd_bus_message_read(answer, "s", &name) > 0;) {
        names.emplace_back(name);
    }
    return names;
}

// Moves the content piece by piece, the last first, so that a large reply never exists twice.
void moveContent(TCMessageBuffer& content, char* destination) {
    constexpr unsigned int kPiece = 1024U * 1024U;
    while (content.GetContentSize() > 0) {
        const unsigned int size = std::min(content.GetContentSize(), kPiece);
        const unsigned int begin = content.GetContentSize() - size;
        content.ReadConcatenated(size, destination + begin, begin);
        content.Resize(begin);
    }
}

sd_bus_vtable tableStart() {
    sd_bus_vtable row{};
    row.type = _SD_BUS_VTABLE_START;
    row.x.start.element_size = sizeof row;
    row.x.start.features = _SD_BUS_VTABLE_PARAM_NAMES;
    row.x.start.vtable_format_reference = &sd_bus_object_vtable_format;
    return row;
}

sd_bus_vtable callMethod(sd_bus_message_handler_t handler) {
    sd_bus_vtable row{};
    row.type = _SD_BUS_VTABLE_METHOD;
    row.flags = SD_BUS_VTABLE_UNPRIVILEGED;
    row.x.method.member = "Call";
    row.x.method.signature = "siay";
    row.x.method.result = "ay";
    row.x.method.handler = handler;
    row.x.method.names = "interface\0method\0request\0reply\0";
    return row;
}

sd_bus_vtable tableEnd() {
    sd_bus_vtable row{};
    row.type = _SD_BUS_VTABLE_END;
    return row;
}

}  // namespace

std::size_t IpcServer::Outcome::size() const {
    return reply.GetContentSize();
}

IpcServer::IpcServer(IpcAddress address)
    : m_address(std::move(address)), m_methods{tableStart(), callMethod(onCall), tableEnd()} {}

IpcServer::~IpcServer() {
    m_queue.stop();
    {
        const std::lock_guard<std::mutex> lock(m_outcomesMutex);
        m_waitsForRoom = false;
    }
    m_outcomesSent.notify_all();
    if (m_servingThread.joinable()) {
        m_servingThread.join();
    }
    m_isStopped = true;
    m_wake.set();
    if (m_busThread.joinable()) {
        m_busThread.join();
    }
}

void IpcServer::start(std::unique_ptr<TICallListener> listener) {
    m_listener = std::move(listener);
    m_interfaceName = m_listener->GetInterfaceName();
    // The bus thread looks whether the other is there, and nothing is served before the bus thread runs.
    m_servingThread = std::thread([this] { serve(); });
    m_busThread = std::thread([this] { run(); });
}

bool IpcServer::isServingHere() const {
    return m_servingThread.get_id() == std::this_thread::get_id();
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
    m_connection = bus::connect();
    // The watch comes first: who leaves from now on is either missing in the list of names or reported after
    // it.
    watchOwners();
    const std::vector<std::string> names = listNames();
    offerMethod();
    bus::check(sd_bus_request_name(m_connection.get(), m_address.busName.c_str(), 0), "taking the name");
    sd_id128_t busId{};
    bus::check(sd_bus_get_bus_id(m_connection.get(), &busId), "the bus's id");
    std::array<char, SD_ID128_STRING_MAX> text{};
    const char* own = nullptr;
    bus::check(sd_bus_get_unique_name(m_connection.get(), &own), "the own name");
    reportFirst(m_connections.begin(sd_id128_to_string(busId, text.data()), names, own));
    for (const std::string& name : m_connections.remembered()) {
        lookUp(name);
    }
    m_nextComparison = Clock::time_point::max();
    m_nextLook = Clock::now();
}

void IpcServer::watchOwners() {
    bus::check(sd_bus_add_match(m_connection.get(), nullptr, kOwnersMatch, onNameOwnerChanged, this),
               "watching who leaves");
}

std::vector<std::string> IpcServer::listNames() {
    sd_bus_message* answer = nullptr;
    bus::Error error;
    const bus::Message call =
        bus::newCall(m_connection.get(), bus::kName, bus::kPath, bus::kName, "ListNames");
    bus::check(sd_bus_call(m_connection.get(), call.get(), 0, error.get(), &answer), "the list of names");
    return readNames(bus::Message(answer).get());
}

void IpcServer::offerMethod() {
    for (const std::string& interface : m_address.interfaces) {
        bus::check(sd_bus_add_object_vtable(m_connection.get(), nullptr, m_address.objectPath.c_str(),
                                            interface.c_str(), m_methods.data(), this),
                   "offering the method");
    }
}

// The calls are dropped while their connection is there, because their messages refer to it.
void IpcServer::disconnect() {
    m_queue.dropAll();
    m_unread.clear();
    {
        const std::lock_guard<std::mutex> lock(m_outcomesMutex);
        m_outcomes.clear();
        m_unsent = 0;
    }
    m_outcomesSent.notify_all();
    m_connection.reset();
}

void IpcServer::run() {
    for (;;) {
        try {
            processUntilStopped();
            return;
        } catch (const std::exception& error) {
            logError(std::string("the bus is lost: ") + error.what());
        }
        disconnect();
        if (!reconnect()) {
            return;
        }
    }
}

// Tries once a second, quietly: the loss has been logged, and the bus may stay away for long. False when
// stopped.
bool IpcServer::reconnect() {
    for (;;) {
        m_wake.clear();
        if (m_isStopped) {
            return false;
        }
        m_wake.wait({-1, 0, 0}, kRetryMilliseconds);
        try {
            connect();
            logInfo("the bus is back, the name is taken again");
            return true;
        } catch (const std::exception&) {
            continue;
        }
    }
}

// Returns when stopped; throws when the bus is lost.
void IpcServer::processUntilStopped() {
    for (;;) {
        m_wake.clear();
        // Read before the outcomes are sent: the outcome of the last call is given before the stop.
        const bool isStopped = m_isStopped;
        sendOutcomes();
        process();
        if (isStopped) {
            return;
        }
        const Clock::time_point now = Clock::now();
        noticeStuckWrites(now);
        doPeriodicWork(now);
        waitForBus();
    }
}

// Deals with what has arrived, but comes back for outcomes now and then.
void IpcServer::process() {
    constexpr int kMessages = 100;
    for (int message = 0; message < kMessages; ++message) {
        if (bus::check(sd_bus_process(m_connection.get(), nullptr), "reading from the bus") == 0) {
            return;
        }
    }
}

// Waits until there is something to do: for the bus, for an outcome, or because of the time.
void IpcServer::waitForBus() {
    std::uint64_t next = std::numeric_limits<std::uint64_t>::max();
    bus::check(sd_bus_get_timeout(m_connection.get(), &next), "the time-out of the bus");
    const auto now = Clock::now();
    const auto ofBus = Clock::time_point(std::chrono::microseconds(
        std::min(next, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max() / 1000))));
    Clock::time_point until = std::min({ofBus, m_nextComparison, m_leftBeforeTime});
    if (m_writesQueued > 0) {
        until = std::min(until, m_writesMoved + kStuckLimit);
    } else if (!m_unread.callers().empty()) {
        // Only when nothing is queued: what this process still has can't have been read.
        until = std::min(until, m_nextLook);
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(std::max(until, now) - now);
    const int descriptor = bus::check(sd_bus_get_fd(m_connection.get()), "the descriptor of the bus");
    const int events = bus::check(sd_bus_get_events(m_connection.get()), "the events of the bus");
    m_wake.wait({descriptor, static_cast<short>(events), 0}, static_cast<int>(left.count()));
}

// A process that restores sessions asks the kernel itself, at its start, which owners still live, and logs
// that. So what only this library knows is reported a little later. On another bus it can't wait: a new
// connection may have the name of one that has left.
void IpcServer::reportFirst(std::vector<Departure> departures) {
    if (m_servingThread.joinable() || !m_connections.isOnSameBus()) {
        report(std::move(departures));
        m_queue.putDeparturesFirst();
    } else {
        m_leftBefore = std::move(departures);
        m_leftBeforeTime = Clock::now() + kOwnCheckTime;
    }
}

void IpcServer::report(std::vector<Departure> departures) {
    for (Departure& departure : departures) {
        m_queue.drop(departure.name);
        m_unread.forget(departure.name);
        m_queue.add(std::move(departure));
    }
}

// Asks the bus about a connection. The answer goes to @p onAnswer on this thread, with the question.
void IpcServer::ask(const char* interface, const char* member, const char* name, std::uint64_t replies,
                    sd_bus_message_handler_t onAnswer) {
    const bus::Message call = bus::newCall(m_connection.get(), bus::kName, bus::kPath, interface, member);
    if (name != nullptr) {
        bus::check(sd_bus_message_append_basic(call.get(), 's', name), "a call of the bus");
    }
    auto question = std::make_unique<Question>(Question{this, name == nullptr ? "" : name, replies});
    sd_bus_slot* slot = nullptr;
    bus::check(sd_bus_call_async(m_connection.get(), &slot, call.get(), onAnswer, question.get(), 0),
               "asking the bus");
    sd_bus_slot_set_destroy_callback(slot, [](void* data) { delete static_cast<Question*>(data); });
    (void)question.release();
    // From here on the slot lives as long as the question is open.
    sd_bus_slot_set_floating(slot, 1);
    sd_bus_slot_unref(slot);
}

void IpcServer::lookUp(const std::string& name) {
    if (m_connections.add(name)) {
        ask(bus::kName, "GetConnectionCredentials", name.c_str(), 0, onCredentials);
    }
}

int IpcServer::onCredentials(sd_bus_message* answer, void* question, sd_bus_error* /*error*/) {
    return guarded([answer, &asked = *static_cast<Question*>(question)] {
        if (sd_bus_is_open(sd_bus_message_get_bus(answer)) > 0) {
            asked.server->identify(asked.name, answer);
        }
    });
}

void IpcServer::identify(const std::string& name, sd_bus_message* credentials) {
    // What the bus does not tell: it has left already, or is in another namespace of processes.
    Connections::Identity identity{{}, std::numeric_limits<uid_t>::max()};
    readNumber(credentials, "ProcessID", identity.properties.pid);
    sd_bus_message_rewind(credentials, 1);
    readNumber(credentials, "UnixUserID", identity.user);
    identity.properties.progName = programName(identity.properties.pid);
    if (auto departure = m_connections.identify(name, identity)) {
        m_queue.add(std::move(*departure));
        m_queue.putDeparturesFirst();
    }
    admit(name);
}

void IpcServer::admit(const std::string& name) {
    if (const Connections::Identity* identity = m_connections.identity(name)) {
        m_queue.admit(name, identity->properties, identity->user);
    }
}

void IpcServer::doPeriodicWork(Clock::time_point now) {
    if (now >= m_leftBeforeTime) {
        report(std::exchange(m_leftBefore, {}));
        m_leftBeforeTime = Clock::time_point::max();
    }
    if (now >= m_nextComparison) {
        m_nextComparison = Clock::time_point::max();
        ask(bus::kName, "ListNames", nullptr, 0, onNames);
    }
    if (now >= m_nextLook && m_writesQueued == 0) {
        m_nextLook = now + kLookPeriod;
        for (const auto& [name, replies] : m_unread.callers()) {
            ask(kStatistics, "GetConnectionStats", name.c_str(), replies, onStatistics);
        }
    }
}

// A caller that came after the list was made is not known yet: its calls arrive after the answer.
int IpcServer::onNames(sd_bus_message* answer, void* question, sd_bus_error* /*error*/) {
    return guarded([answer, &server = *static_cast<Question*>(question)->server] {
        if (sd_bus_message_is_method_error(answer, nullptr) == 0 &&
            sd_bus_is_open(sd_bus_message_get_bus(answer)) > 0) {
            server.report(server.m_connections.compare(readNames(answer)));
        }
    });
}

// A bus that keeps no such statistics answers with an error; then everything counts as read.
int IpcServer::onStatistics(sd_bus_message* answer, void* question, sd_bus_error* /*error*/) {
    return guarded([answer, &asked = *static_cast<Question*>(question)] {
        std::uint32_t unread = 0;
        readNumber(answer, "OutgoingBytes", unread);
        asked.server->m_unread.keeps(asked.name, asked.replies, unread);
    });
}

// The bus reads nothing from a sender of whose messages too much is unread, or it hangs: a new connection is
// the way out of the first.
void IpcServer::noticeStuckWrites(Clock::time_point now) {
    std::uint64_t queued = 0;
    sd_bus_get_n_queued_write(m_connection.get(), &queued);
    if (queued == 0 || queued != m_writesQueued) {
        m_writesMoved = now;
        m_writesQueued = queued;
    }
    if (queued == 0) {
        const std::lock_guard<std::mutex> lock(m_outcomesMutex);
        m_unsent = 0;
        for (const Outcome& outcome : m_outcomes) {
            m_unsent += outcome.size();
        }
        m_outcomesSent.notify_all();
    } else if (now - m_writesMoved >= kStuckLimit) {
        throw std::runtime_error("it has taken no message for " + std::to_string(kStuckLimit.count()) + " s");
    }
}

// The match rule is no guard against a signal sent to this connection alone; its sender tells.
int IpcServer::onNameOwnerChanged(sd_bus_message* signal, void* server, sd_bus_error* /*error*/) {
    return guarded([signal, server] {
        const char* name = nullptr;
        const char* oldOwner = nullptr;
        const char* newOwner = nullptr;
        if (bus::text(sd_bus_message_get_sender(signal)) == bus::kName &&
            sd_bus_message_read(signal, "sss", &name, &oldOwner, &newOwner) > 0 && *newOwner == '\0') {
            static_cast<IpcServer*>(server)->forget(name);
        }
    });
}

void IpcServer::forget(const std::string& name) {
    m_queue.drop(name);
    m_unread.forget(name);
    if (auto departure = m_connections.remove(name)) {
        m_queue.add(std::move(*departure));
    }
}

int IpcServer::onCall(sd_bus_message* message, void* server, sd_bus_error* error) {
    try {
        return static_cast<IpcServer*>(server)->accept(message, error);
    } catch (const std::exception& failure) {
        logError(std::string("a call failed: ") + failure.what());
        return sd_bus_error_set(error, kFailed, failure.what());
    }
}

// Takes a call into the queue. A negative result with an error set is sd-bus's to answer.
int IpcServer::accept(sd_bus_message* message, sd_bus_error* error) {
    // Both stay in the message, however long they are.
    const char* interface = nullptr;
    Call call;
    bus::check(sd_bus_message_read(message, "si", &interface, &call.method), "reading a call");
    bus::check(sd_bus_message_read_array(message, 'y', &call.bytes, &call.size), "reading a request");
    if (interface != m_interfaceName) {
        return sd_bus_error_set(error, kUnknownInterface,
                                ("nobody serves an interface " + quoted(interface)).c_str());
    }
    if (call.size > kMaxRequest) {
        return sd_bus_error_set(error, kLimitsExceeded, "the request is over 1 MiB");
    }
    call.message = bus::share(message);
    call.sender = bus::text(sd_bus_message_get_sender(message));
    const std::string sender = call.sender;
    lookUp(sender);
    m_nextComparison = std::min(m_nextComparison, Clock::now() + kComparisonDelay);
    for (const Call& refused : m_queue.push(std::move(call))) {
        refuse(refused, "too many calls wait to be served");
    }
    admit(sender);
    return 1;
}

void IpcServer::refuse(const Call& call, const char* message) {
    const sd_bus_error error = {kLimitsExceeded, message, 0};
    sd_bus_reply_method_error(call.message.get(), &error);
}

void IpcServer::sendOutcomes() {
    std::vector<Outcome> outcomes;
    {
        const std::lock_guard<std::mutex> lock(m_outcomesMutex);
        outcomes.swap(m_outcomes);
    }
    for (Outcome& outcome : outcomes) {
        send(outcome);
    }
}

void IpcServer::send(Outcome& outcome) {
    // The bus may have been lost while the call was served.
    if (sd_bus_message_get_bus(outcome.call.message.get()) != m_connection.get()) {
        return;
    }
    try {
        const bus::Message reply = replyTo(outcome);
        bus::check(sd_bus_send(m_connection.get(), reply.get(), nullptr), "sd_bus_send");
    } catch (const std::exception& failure) {
        logError(std::string("a reply could not be sent: ") + failure.what());
    }
}

bus::Message IpcServer::replyTo(Outcome& outcome) {
    sd_bus_message* made = nullptr;
    if (outcome.error != nullptr) {
        const sd_bus_error error = {outcome.error, outcome.errorMessage.c_str(), 0};
        bus::check(sd_bus_message_new_method_error(outcome.call.message.get(), &made, &error),
                   "making an error");
        return bus::Message(made);
    }
    bus::check(sd_bus_message_new_method_return(outcome.call.message.get(), &made), "making a reply");
    bus::Message reply(made);
    void* space = nullptr;
    bus::check(sd_bus_message_append_array_space(made, 'y', outcome.size(), &space), "writing a reply");
    moveContent(outcome.reply, static_cast<char*>(space));
    return reply;
}

void IpcServer::serve() {
    for (;;) {
        auto next = m_queue.next();
        if (std::holds_alternative<Stop>(next)) {
            return;
        }
        if (const auto* departure = std::get_if<Departure>(&next)) {
            CallersObservers::ownerRemoved(departure->name, departure->pid);
        } else {
            serveOne(std::get<Call>(std::move(next)));
        }
    }
}

void IpcServer::serveOne(Call call) {
    waitForRoom();
    Outcome outcome;
    outcome.call = std::move(call);
    try {
        answer(outcome);
    } catch (const std::exception& error) {
        logError(std::string("a call failed: ") + error.what());
        outcome.error = kFailed;
        outcome.errorMessage = error.what();
    }
    give(std::move(outcome));
}

// Fills in the reply or an error.
void IpcServer::answer(Outcome& outcome) {
    const Call& call = outcome.call;
    if (m_unread.refuses(call.method, call.user)) {
        outcome.error = kLimitsExceeded;
        outcome.errorMessage = "callers of this user have not read the large replies before this one";
        return;
    }
    TCMessageBuffer request;
    request.WriteConcatenated(call.size, const_cast<void*>(call.bytes), -1);
    request.m_senderName = call.sender;
    const ClearCallerAtEnd clearAtEnd;
    CallersObservers::setCurrentCaller(call.caller);
    if (!m_listener->OnCallReceived(call.method, request, outcome.reply)) {
        outcome.error = kUnknownMethod;
        outcome.errorMessage =
            "the interface " + quoted(m_interfaceName) + " has no method " + std::to_string(call.method);
    } else if (outcome.size() > kMaxReply) {
        outcome.error = kLimitsExceeded;
        outcome.errorMessage =
            "the reply of " + std::to_string(outcome.size()) + " bytes is larger than what the bus carries";
    } else {
        m_unread.sent(call.sender, call.user, call.method, outcome.size());
    }
}

void IpcServer::give(Outcome outcome) {
    {
        const std::lock_guard<std::mutex> lock(m_outcomesMutex);
        m_unsent += outcome.size();
        m_outcomes.push_back(std::move(outcome));
    }
    m_wake.set();
}

void IpcServer::waitForRoom() {
    std::unique_lock<std::mutex> lock(m_outcomesMutex);
    m_outcomesSent.wait(lock, [this] { return m_unsent <= kMaxUnsent || !m_waitsForRoom; });
}
