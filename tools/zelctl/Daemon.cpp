// SPDX-License-Identifier: Apache-2.0
#include "Daemon.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>

namespace zelctl {

namespace {

constexpr const char* kPath = "/com/brenlow/ZELLite/SignalObject";
constexpr const char* kInterface = "com.brenlow.ZELLite.SignalIFace";
constexpr const char* kSessions = "com.brenlow.ISessionControl";
constexpr const char* kWhere = "the daemon, com.brenlow.ZELLite";

enum Method : std::int32_t {
    kOpen = 0,
    kClose = 1,
    kReport = 2,
    kOpenTrace = 3,
    kCloseTrace = 4,
    kIsTerminated = 5
};

struct Cause {
    const char* error;
    Status status;
    const char* what;
    const char* advice;
};

constexpr const char* kStartAdvice = "systemctl start zel-lite.service";
constexpr const char* kBusyAdvice =
    "once more later, or with a longer --timeout: while it starts the service it answers nobody";
constexpr const char* kOtherAdvice = "zelctl self-test";

// Why a call comes back with an error.
const Cause kCauses[] = {
    {SD_BUS_ERROR_SERVICE_UNKNOWN, kNoDaemon, "nobody has that name", kStartAdvice},
    {SD_BUS_ERROR_NAME_HAS_NO_OWNER, kNoDaemon, "nobody has that name", kStartAdvice},
    {SD_BUS_ERROR_ACCESS_DENIED, kNotPermitted, "the bus does not let this user call it",
     "as root, and look at /etc/dbus-1/system.d/com.brenlow.ZELLite.conf"},
    {SD_BUS_ERROR_NO_REPLY, kNoAnswer, "it did not answer in time, or left", kBusyAdvice},
    {SD_BUS_ERROR_TIMEOUT, kNoAnswer, "it did not answer in time", kBusyAdvice},
    {SD_BUS_ERROR_DISCONNECTED, kNoBus, "the bus has gone", "systemctl status dbus.service"},
    {SD_BUS_ERROR_LIMITS_EXCEEDED, kFailed, "the request or the answer is larger than the bus carries",
     "with a shorter text"},
};

[[noreturn]] void fail(const BusError& error, int result) {
    for (const Cause& cause : kCauses) {
        if (error.is(cause.error)) {
            throw Trouble(cause.status, kWhere, cause.what, cause.advice);
        }
    }
    if (result == -ETIMEDOUT) {
        throw Trouble(kNoAnswer, kWhere, "it did not answer in time", kBusyAdvice);
    }
    if (result == -ENOTCONN || result == -ECONNRESET || result == -EPIPE) {
        throw Trouble(kNoBus, kWhere, "the bus has gone", "systemctl status dbus.service");
    }
    throw Trouble(kBadAnswer, kWhere, error.text(), kOtherAdvice);
}

[[noreturn]] void failAsNonsense(const char* what) {
    throw Trouble(kBadAnswer, kWhere, what, kOtherAdvice);
}

}  // namespace

bool Daemon::open(std::chrono::seconds limit) {
    TCMessageBuffer request;
    return status(kOpen, request, limit) == 0;
}

bool Daemon::close() {
    TCMessageBuffer request;
    return status(kClose, request, m_bus.limit()) == 0;
}

std::string Daemon::report() {
    TCMessageBuffer request;
    TCMessageBuffer reply = call(kReport, request, m_bus.limit());
    int result = -1;
    int size = -1;
    if (!reply.ReadInt(&result, 0) || result != 0 || !reply.ReadInt(&size, 4) || size < 0 ||
        static_cast<unsigned int>(size) != reply.GetContentSize() - 8) {
        failAsNonsense("its report is not as long as it says");
    }
    std::string text(static_cast<std::size_t>(size), '\0');
    reply.ReadConcatenated(text.size(), text.data(), 8);
    return text;
}

Report Daemon::readReport() {
    const std::string document = report();
    try {
        return parseReport(document);
    } catch (const std::exception& problem) {
        throw Trouble(kBadAnswer, "the daemon's report", problem.what(),
                      "zelctl report --json, to see it as it is");
    }
}

void Daemon::openTrace(std::int64_t id, const std::string& text, Language language) {
    TCMessageBuffer request;
    std::string copy = text;
    request.PushLongLong(id);
    request.PushInt(static_cast<int>(copy.size()));
    request.WriteConcatenated(copy.size(), copy.data(), -1);
    request.PushInt(static_cast<int>(language));
    status(kOpenTrace, request, m_bus.limit());
}

void Daemon::closeTrace(std::int64_t id) {
    TCMessageBuffer request;
    request.PushLongLong(id);
    status(kCloseTrace, request, m_bus.limit());
}

// The report alone tells. This process has no other trace, and its text may have changed: what is no UTF-8
// comes back as something else.
bool Daemon::keepsTrace() {
    const std::string pid = std::to_string(getpid());
    const Report report = readReport();
    return std::any_of(report.records.begin(), report.records.end(), [&](const Record& record) {
        return record.pid == pid && std::any_of(record.traces.begin(), record.traces.end(),
                                                [](const Trace& trace) { return !trace.closed; });
    });
}

bool Daemon::isTerminated() {
    TCMessageBuffer request;
    TCMessageBuffer reply = call(kIsTerminated, request, m_bus.limit());
    int result = -1;
    int answer = -1;
    if (!reply.ReadInt(&result, 0) || result != 0 || !reply.ReadInt(&answer, 4)) {
        failAsNonsense("it does not say whether the service is terminated");
    }
    return answer != 0;
}

int Daemon::status(std::int32_t method, TCMessageBuffer& request, std::chrono::seconds limit) {
    TCMessageBuffer reply = call(method, request, limit);
    int result = 0;
    if (!reply.ReadInt(&result, 0)) {
        failAsNonsense("its answer is shorter than it must be");
    }
    return result;
}

TCMessageBuffer Daemon::call(std::int32_t method, TCMessageBuffer& request, std::chrono::seconds limit) {
    sd_bus_message* made = nullptr;
    int result = sd_bus_message_new_method_call(m_bus.get(), &made, kDaemonName, kPath, kInterface, "Call");
    const Message message(made);
    if (result >= 0) {
        result = sd_bus_message_set_auto_start(made, 0);
    }
    if (result >= 0) {
        result = sd_bus_message_append(made, "si", kSessions, method);
    }
    if (result >= 0) {
        result =
            sd_bus_message_append_array(made, 'y', request.GetAsVoidFromOffset(0), request.GetContentSize());
    }
    BusError error;
    sd_bus_message* got = nullptr;
    if (result >= 0) {
        result = sd_bus_call(m_bus.get(), made, microseconds(limit), error.get(), &got);
    }
    const Message reply(got);
    if (result < 0) {
        fail(error, result);
    }
    const void* bytes = nullptr;
    std::size_t size = 0;
    if (sd_bus_message_read_array(got, 'y', &bytes, &size) < 0) {
        failAsNonsense("its answer is of another type");
    }
    TCMessageBuffer content;
    // The buffer asks for memory that it might write to; it only reads it.
    content.WriteConcatenated(size, const_cast<void*>(bytes), -1);
    return content;
}

}  // namespace zelctl
