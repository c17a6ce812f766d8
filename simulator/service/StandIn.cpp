// SPDX-License-Identifier: Apache-2.0
#include "StandIn.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <iomanip>
#include <sstream>
#include <thread>
#include <utility>

#include "Journal.h"

namespace {

constexpr const char* kBusName = "com.brenlow.ZELDaemon";
constexpr const char* kObjectPath = "/com/brenlow/ZELDaemon";
constexpr const char* kInterface = "com.brenlow.IZelControl";

// The clock that the journal's own monotonic timestamps are of.
std::string now() {
    const std::chrono::duration<double> time = std::chrono::steady_clock::now().time_since_epoch();
    std::ostringstream text;
    text << " at " << std::fixed << std::setprecision(6) << time.count();
    return text.str();
}

}  // namespace

StandIn::StandIn(ControlFiles wishes) : m_wishes(std::move(wishes)) {}

void StandIn::run() {
    std::this_thread::sleep_for(m_wishes.duration("start-delay-ms"));
    m_connection = sdbus::createSystemBusConnection();
    exportControl();
    m_connection->requestName(kBusName);
    journalInfo("serving, pid " + std::to_string(getpid()) + now());
    m_connection->enterEventLoop();

    // Losing the name makes systemd stop the unit; a service that lingers does not heed that.
    const auto lingering = m_wishes.duration("linger-ms");
    if (lingering.count() > 0) {
        signal(SIGTERM, SIG_IGN);
    }
    m_object.reset();
    m_connection.reset();
    std::this_thread::sleep_for(lingering);
    journalInfo("gone" + now());
}

void StandIn::exportControl() {
    m_object = sdbus::createObject(*m_connection, kObjectPath);
    m_object->registerMethod("Notify")
        .onInterface(kInterface)
        .withInputParamNames("trigger", "source", "sourcePlugState", "value")
        .withOutputParamNames("result")
        .implementedAs([this](NotifyResult&& result, std::int32_t trigger, std::int32_t source,
                              std::int32_t sourcePlugState, std::int32_t value) {
            notify(std::move(result), trigger, source, sourcePlugState, value);
        });
    m_object->registerMethod("Terminate")
        .onInterface(kInterface)
        .withInputParamNames()
        .withOutputParamNames("result", "errors", "pid", "needStandbyHandling")
        .implementedAs([this](TerminateResult&& result) { terminate(std::move(result)); });
    m_object->finishRegistration();
}

void StandIn::notify(NotifyResult&& result, std::int32_t trigger, std::int32_t source,
                     std::int32_t sourcePlugState, std::int32_t value) {
    journalInfo("Notify(trigger " + std::to_string(trigger) + ", source " + std::to_string(source) +
                ", plug state " + std::to_string(sourcePlugState) + ", value " + std::to_string(value) + ")" +
                now());
    if (isKeptSilent("notify")) {
        return;
    }
    result.returnResults(m_wishes.number("notify-result", 1));
}

void StandIn::terminate(TerminateResult&& result) {
    journalInfo("Terminate()" + now());
    if (isKeptSilent("terminate")) {
        return;
    }
    const std::int32_t outcome = m_wishes.number("terminate-result", 1);
    result.returnResults(outcome, m_wishes.numbers("terminate-errors"), static_cast<std::int32_t>(getpid()),
                         m_wishes.yes("needs-standby"));
    if (outcome == 1) {
        m_connection->leaveEventLoop();
    }
}

// Does what it is told to do instead of answering, or before it; tells whether there is to be no answer: a
// result that is dropped is never sent.
bool StandIn::isKeptSilent(const std::string& call) {
    std::this_thread::sleep_for(m_wishes.duration("delay-ms"));
    if (m_wishes.names("crash-in", call)) {
        journalError("crashing in " + call + " as told");
        abort();
    }
    if (m_wishes.names("leave-bus-in", call)) {
        journalError("leaving the bus in " + call + " as told");
        m_connection->leaveEventLoop();
        return true;
    }
    return m_wishes.names("never-answer", call);
}
