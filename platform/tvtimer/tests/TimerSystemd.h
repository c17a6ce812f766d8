// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A systemd on the private bus that starts and stops timers as the test wants.
 */
#ifndef TVTIMER_TESTS_TIMER_SYSTEMD_H
#define TVTIMER_TESTS_TIMER_SYSTEMD_H

#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/** What becomes of a request to start a unit. */
enum class Start {
    /** Its job is done at once. */
    kDone,
    /** Its job is done before the request is answered. */
    kDoneBeforeAnswer,
    /** Its job fails. */
    kFailed,
    /** Its job is queued until the test ends it. */
    kQueued,
    /** There is a unit of that name. */
    kExists,
    /** It is refused. */
    kRefused,
    /** It is answered with a text instead of a job. */
    kText,
    /** It is not answered. */
    kSilence
};

/** A request to start a unit. Properties are texts, such as "true" and "OnCalendar=2026-01-01 00:00:00 UTC".
 */
struct StartRequest {
    std::string unit;
    std::string mode;
    std::map<std::string, std::string> properties;
    std::string service;
    std::map<std::string, std::string> serviceProperties;
};

/** Owns the name org.freedesktop.systemd1 while it lives. Callable from any thread. */
class TimerSystemd {
public:
    /** @param startSignature  what a request to start is answered with, "s" for a text */
    explicit TimerSystemd(const std::string& startSignature = "o")
        : m_connection(sdbus::createSystemBusConnection()),
          m_object(sdbus::createObject(*m_connection, "/org/freedesktop/systemd1")) {
        m_object->registerMethod(kManager, "Subscribe", "", "",
                                 [this](sdbus::MethodCall call) { onSubscribe(call); });
        m_object->registerMethod(kManager, "StartTransientUnit", "ssa(sv)a(sa(sv))", startSignature,
                                 [this](sdbus::MethodCall call) { onStart(call); });
        m_object->registerMethod(kManager, "StopUnit", "ss", "o",
                                 [this](sdbus::MethodCall call) { onStop(call); });
        m_object->finishRegistration();
        m_connection->requestName("org.freedesktop.systemd1");
        m_connection->enterEventLoopAsync();
    }

    ~TimerSystemd() { m_connection->leaveEventLoop(); }
    TimerSystemd(const TimerSystemd&) = delete;
    TimerSystemd& operator=(const TimerSystemd&) = delete;

    /** What becomes of the next requests to start, in order; all after them are done. */
    void nextStarts(std::deque<Start> outcomes) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_outcomes = std::move(outcomes);
    }

    /** Answers requests to stop with an error from now on. */
    void refuseStops(const std::string& error) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopError = error;
    }

    /** Ends a job, told to everybody. */
    void endJob(const std::string& job, const std::string& result) {
        m_object->emitSignal("JobRemoved")
            .onInterface(kManager)
            .withArguments(std::uint32_t{7}, sdbus::ObjectPath(job), "a unit", result);
    }

    /** Tells of the end of a job what nobody can read. */
    void endJobUnreadably() {
        m_object->emitSignal("JobRemoved").onInterface(kManager).withArguments("what");
    }

    /** The requests so far, each as "Subscribe", "StartTransientUnit UNIT" or "StopUnit UNIT MODE". */
    std::vector<std::string> requests() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_requests;
    }

    /** The requests to start so far. */
    std::vector<StartRequest> starts() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_starts;
    }

    /** Path of the job of the last request to start. */
    std::string lastJob() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return jobPath();
    }

    /** Unique name of who asked last to start something. */
    std::string client() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_client;
    }

private:
    static constexpr const char* kManager = "org.freedesktop.systemd1.Manager";

    using Properties = std::vector<sdbus::Struct<std::string, sdbus::Variant>>;
    using Units = std::vector<sdbus::Struct<std::string, Properties>>;

    static std::string textOf(const sdbus::Variant& value) {
        const std::string type = value.peekValueType();
        if (type == "s") {
            return value.get<std::string>();
        }
        if (type == "b") {
            return value.get<bool>() ? "true" : "false";
        }
        if (type == "t") {
            return std::to_string(value.get<std::uint64_t>());
        }
        if (type == "a(ss)") {
            const auto pairs = value.get<std::vector<sdbus::Struct<std::string, std::string>>>();
            return pairs.size() == 1 ? pairs[0].get<0>() + "=" + pairs[0].get<1>() : "not one";
        }
        if (type == "a(sasb)") {
            const auto commands =
                value.get<std::vector<sdbus::Struct<std::string, std::vector<std::string>, bool>>>();
            return commands.size() == 1 && commands[0].get<1>().size() == 1
                       ? commands[0].get<0>() + " as " + commands[0].get<1>()[0]
                       : "not one";
        }
        return "a " + type;
    }

    static std::map<std::string, std::string> textsOf(const Properties& properties) {
        std::map<std::string, std::string> texts;
        for (const auto& property : properties) {
            texts[property.get<0>()] = textOf(property.get<1>());
        }
        return texts;
    }

    void onSubscribe(sdbus::MethodCall& call) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_requests.emplace_back("Subscribe");
        call.createReply().send();
    }

    void onStart(sdbus::MethodCall& call) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        StartRequest request;
        Properties properties;
        Units units;
        call >> request.unit >> request.mode >> properties >> units;
        request.properties = textsOf(properties);
        if (units.size() == 1) {
            request.service = units[0].get<0>();
            request.serviceProperties = textsOf(units[0].get<1>());
        }
        m_client = call.getSender();
        m_requests.push_back("StartTransientUnit " + request.unit);
        m_starts.push_back(std::move(request));
        answerStart(call, takeOutcome());
    }

    Start takeOutcome() {
        if (m_outcomes.empty()) {
            return Start::kDone;
        }
        const Start outcome = m_outcomes.front();
        m_outcomes.pop_front();
        return outcome;
    }

    void answerStart(sdbus::MethodCall& call, Start outcome) {
        sdbus::MethodReply reply = call.createReply();
        switch (outcome) {
            case Start::kDone:
                reply << sdbus::ObjectPath(jobPath());
                reply.send();
                endJob(jobPath(), "done");
                return;
            case Start::kDoneBeforeAnswer:
                endJob(jobPath(), "done");
                reply << sdbus::ObjectPath(jobPath());
                reply.send();
                return;
            case Start::kFailed:
                reply << sdbus::ObjectPath(jobPath());
                reply.send();
                endJob(jobPath(), "failed");
                return;
            case Start::kQueued:
                reply << sdbus::ObjectPath(jobPath());
                reply.send();
                return;
            case Start::kExists:
                call.createErrorReply(sdbus::Error("org.freedesktop.systemd1.UnitExists", "It is there."))
                    .send();
                return;
            case Start::kRefused:
                call.createErrorReply(
                        sdbus::Error("org.freedesktop.DBus.Error.InvalidArgs", "Not like this."))
                    .send();
                return;
            case Start::kText:
                reply << "a text";
                reply.send();
                return;
            case Start::kSilence:
                return;
        }
    }

    void onStop(sdbus::MethodCall& call) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::string unit;
        std::string mode;
        call >> unit >> mode;
        m_requests.push_back("StopUnit " + unit + " " + mode);
        if (!m_stopError.empty()) {
            call.createErrorReply(sdbus::Error(m_stopError, "No.")).send();
            return;
        }
        sdbus::MethodReply reply = call.createReply();
        reply << sdbus::ObjectPath("/org/freedesktop/systemd1/job/1");
        reply.send();
    }

    std::string jobPath() const {
        return "/org/freedesktop/systemd1/job/" + std::to_string(100 + m_starts.size());
    }

    std::mutex m_mutex;
    std::deque<Start> m_outcomes;
    std::string m_stopError;
    std::vector<std::string> m_requests;
    std::vector<StartRequest> m_starts;
    std::string m_client;

    // Last, so that its thread ends before the rest.
    std::unique_ptr<sdbus::IConnection> m_connection;
    std::unique_ptr<sdbus::IObject> m_object;
};

#endif
