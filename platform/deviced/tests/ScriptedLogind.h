// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A logind on the private bus that does as the test wants.
 */
#ifndef DEVICED_TESTS_SCRIPTED_LOGIND_H
#define DEVICED_TESTS_SCRIPTED_LOGIND_H

#include <fcntl.h>
#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/** How a request for a hold is answered. */
enum class Grant {
    /** With a descriptor. */
    kDescriptor,
    /** With a text. */
    kText,
    /** With nothing. */
    kNothing,
    /** With an error. */
    kError,
    /** Not at all. */
    kSilence
};

/** What a ScriptedLogind begins with. */
struct LogindScript {
    bool preparing = false;
    /** Instead of whether it prepares, it says "maybe". */
    bool saysMaybe = false;
    Grant grant = Grant::kDescriptor;
};

/** Owns the name org.freedesktop.login1 while it lives. Callable from any thread. */
class ScriptedLogind {
public:
    using Script = LogindScript;

    explicit ScriptedLogind(const Script& script = {})
        : m_script(script),
          m_connection(sdbus::createSystemBusConnection()),
          m_object(sdbus::createObject(*m_connection, "/org/freedesktop/login1")) {
        m_object->registerMethod(kManager, "Inhibit", "ssss", replySignature(script.grant),
                                 [this](sdbus::MethodCall call) { onInhibit(call); });
        m_object->registerProperty(kManager, "PreparingForSleep", script.saysMaybe ? "s" : "b",
                                   [this](sdbus::PropertyGetReply& reply) { onRead(reply); });
        m_object->finishRegistration();
        m_connection->requestName("org.freedesktop.login1");
        m_connection->enterEventLoopAsync();
    }

    ~ScriptedLogind() {
        m_connection->leaveEventLoop();
        for (const int reader : m_readers) {
            close(reader);
        }
    }

    ScriptedLogind(const ScriptedLogind&) = delete;
    ScriptedLogind& operator=(const ScriptedLogind&) = delete;

    /** Announces sleep, or that it is over, to everybody. */
    void prepareForSleep(bool preparing) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_script.preparing = preparing;
        }
        m_object->emitSignal("PrepareForSleep").onInterface(kManager).withArguments(preparing);
    }

    /** Announces something else than a boolean. */
    void prepareForMaybe() {
        m_object->emitSignal("PrepareForSleep").onInterface(kManager).withArguments("maybe");
    }

    /** From now on answers differently. The kinds that answer with something else than a descriptor must be
     * there from the beginning. */
    void grant(Grant grant) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_script.grant = grant;
    }

    /** How often somebody asked whether it prepares. */
    int reads() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_reads;
    }

    /** The requests for a hold so far, each as "WHAT MODE". */
    std::vector<std::string> requests() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_requests;
    }

    /** Who asked for a hold last, as "WHO: WHY". */
    std::string reason() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_reason;
    }

    /** Unique name of who asked for a hold last. */
    std::string client() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_client;
    }

    /** How many of the holds that were granted have not ended. */
    int held() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return static_cast<int>(std::count_if(m_readers.begin(), m_readers.end(), [](int reader) {
            pollfd polled{reader, 0, 0};
            return poll(&polled, 1, 0) == 0;
        }));
    }

private:
    static constexpr const char* kManager = "org.freedesktop.login1.Manager";

    static const char* replySignature(Grant grant) {
        return grant == Grant::kText ? "s" : grant == Grant::kNothing ? "" : "h";
    }

    void onRead(sdbus::PropertyGetReply& reply) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_reads;
        if (m_script.saysMaybe) {
            reply << "maybe";
        } else {
            reply << m_script.preparing;
        }
    }

    void onInhibit(sdbus::MethodCall& call) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::string what;
        std::string who;
        std::string why;
        std::string mode;
        call >> what >> who >> why >> mode;
        m_requests.push_back(what + " " + mode);
        m_reason.assign(who).append(": ").append(why);
        m_client = call.getSender();
        answer(call);
    }

    void answer(sdbus::MethodCall& call) {
        if (m_script.grant == Grant::kSilence) {
            return;
        }
        if (m_script.grant == Grant::kError) {
            call.createErrorReply(sdbus::Error("org.freedesktop.login1.OperationInProgress", "Not now."))
                .send();
            return;
        }
        sdbus::MethodReply reply = call.createReply();
        if (m_script.grant == Grant::kText) {
            reply << "a text";
        } else if (m_script.grant == Grant::kDescriptor) {
            std::array<int, 2> ends{};
            if (pipe2(ends.data(), O_CLOEXEC) != 0) {
                throw std::runtime_error("ScriptedLogind: pipe2 failed");
            }
            m_readers.push_back(ends[0]);
            reply << sdbus::UnixFd(ends[1], sdbus::adopt_fd);
        }
        reply.send();
    }

    std::mutex m_mutex;
    Script m_script;
    int m_reads = 0;
    std::vector<std::string> m_requests;
    std::string m_reason;
    std::string m_client;
    std::vector<int> m_readers;

    // Last, so that its thread ends before the rest.
    std::unique_ptr<sdbus::IConnection> m_connection;
    std::unique_ptr<sdbus::IObject> m_object;
};

#endif
