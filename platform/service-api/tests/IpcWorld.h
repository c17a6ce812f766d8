// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What a test of the IPC server is made of: a listener and observers that record what they are told, and
 * clients.
 */
#ifndef SERVICE_API_TESTS_IPC_WORLD_H
#define SERVICE_API_TESTS_IPC_WORLD_H

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TCIpcProperties.h"
#include "TICallListener.h"
#include "ZelServiceAPIManager.h"
#include "support/Record.h"

/** Everything that the listener and the observers of this process are told. Never destroyed, as they are not.
 */
inline Record& record() {
    static auto* const instance = new Record;
    return *instance;
}

/** Waits, with a limit, until a condition holds that nobody announces. @return whether it does */
template <typename Condition>
bool eventually(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/** Serves "com.brenlow.ITest" by a function of the test's. Records "call METHOD from SENDER". */
class ScriptedListener : public TICallListener {
public:
    using Script = std::function<bool(int method, TCMessageBuffer& request, TCMessageBuffer& reply)>;

    explicit ScriptedListener(Script script) : m_script(std::move(script)) {}
    ~ScriptedListener() override { record().add("listener gone"); }

    bool OnCallReceived(int method, TCMessageBuffer& request, TCMessageBuffer& reply) override {
        record().add("call " + std::to_string(method) + " from " + request.m_senderName);
        return m_script(method, request, reply);
    }

    std::string GetInterfaceName() override {
        record().add("interface name asked");
        return "com.brenlow.ITest";
    }

private:
    Script m_script;
};

/** Answers with the bytes of the request. */
inline bool echo(int /*method*/, TCMessageBuffer& request, TCMessageBuffer& reply) {
    return reply.WriteConcatenated(request.GetContentSize(), request.GetAsVoidFromOffset(0), -1);
}

/** Records "A set PROGRAM PID", "A clear" and "A removed NAME PID", A being its own name. */
class RecordingObserver : public TIIPCCallersObserver {
public:
    explicit RecordingObserver(std::string name) : m_name(std::move(name)) {}

    void SetCurrentCaller(const TSCallerProperties& caller) override {
        record().add(m_name + " set " + caller.progName + " " + std::to_string(caller.pid));
    }
    void ClearCurrentCaller() override { record().add(m_name + " clear"); }
    void OwnerRemoved(const std::string& connectionName, std::uint32_t pid) override {
        record().add(m_name + " removed " + connectionName + " " + std::to_string(pid));
    }

private:
    std::string m_name;
};

/** The file of the callers that are remembered across a restart. */
constexpr const char* kCallersFile = "/run/zel-platform/ipc-callers";

/** Takes away what a test before has left to be remembered. */
class NothingRemembered : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& /*test*/) override { std::remove(kCallersFile); }
};

inline const bool g_nothingIsRemembered = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new NothingRemembered);
    return true;
}();

/** Adds an observer that lives as long as the process. */
inline void observe(std::unique_ptr<TIIPCCallersObserver> observer) {
    TCIpcProperties::Instance().AddCallersObserver(*observer.release());
}

inline bool setUpIpc() {
    return ZelServiceAPIManager::Setup(
        std::make_unique<ZelApiLite::IpcConfiguration>("com.brenlow.Test.Wire", "/com/brenlow/Test/Object"));
}

inline void startIpc(ScriptedListener::Script script = echo) {
    ZelServiceAPIManager::GetInstance("com.brenlow.Test.Wire", "/com/brenlow/Test/Object")
        .StartNativeAPI(std::make_unique<ScriptedListener>(std::move(script)));
}

/** A connection to the bus that calls the server. */
class Client {
public:
    Client() : m_connection(sdbus::createSystemBusConnection()) {}

    std::string name() const { return m_connection->getUniqueName(); }
    sdbus::IConnection& connection() { return *m_connection; }

    /** Calls and waits for the answer; throws sdbus::Error when that is an error. */
    std::string call(const std::string& interface, int method, const std::string& request) {
        auto proxy = server();
        sdbus::MethodReply reply = proxy->callMethod(message(*proxy, interface, method, request));
        std::vector<std::uint8_t> bytes;
        reply >> bytes;
        return {bytes.begin(), bytes.end()};
    }

    std::string call(int method, const std::string& request) {
        return call("com.brenlow.ITest", method, request);
    }

    /** Name of the error that a call is answered with, and a ':' and its message; empty when with none. */
    std::string errorOf(const std::string& interface, int method, const std::string& request) {
        try {
            call(interface, method, request);
        } catch (const sdbus::Error& error) {
            return error.getName() + ": " + error.getMessage();
        }
        return {};
    }

    std::string errorOf(int method, const std::string& request) {
        return errorOf("com.brenlow.ITest", method, request);
    }

    /** Calls without waiting for an answer; the bus has it when this returns. */
    void send(int method, const std::string& request) {
        auto proxy = server();
        sdbus::MethodCall call = message(*proxy, "com.brenlow.ITest", method, request);
        call.dontExpectReply();
        proxy->callMethod(call);
        owner("org.freedesktop.DBus");
    }

    /** Unique name of who owns a name, empty when nobody does. */
    std::string owner(const std::string& name) {
        try {
            std::string found;
            bus()
                ->callMethod("GetNameOwner")
                .onInterface("org.freedesktop.DBus")
                .withArguments(name)
                .storeResultsTo(found);
            return found;
        } catch (const sdbus::Error&) {
            return {};
        }
    }

    /** Waits, with a limit, until the server's name is taken. */
    bool waitForServer() {
        return eventually([this] { return !owner("com.brenlow.ZELLite").empty(); });
    }

    std::vector<std::string> names() {
        std::vector<std::string> found;
        bus()->callMethod("ListNames").onInterface("org.freedesktop.DBus").storeResultsTo(found);
        return found;
    }

    std::unique_ptr<sdbus::IProxy> server() {
        return sdbus::createProxy(*m_connection, "com.brenlow.ZELLite", "/com/brenlow/Test/Object");
    }

private:
    static sdbus::MethodCall message(sdbus::IProxy& proxy, const std::string& interface, int method,
                                     const std::string& request) {
        sdbus::MethodCall call = proxy.createMethodCall("com.brenlow.Test.Wire", "Call");
        call << interface << method << std::vector<std::uint8_t>(request.begin(), request.end());
        return call;
    }

    std::unique_ptr<sdbus::IProxy> bus() {
        return sdbus::createProxy(*m_connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    }

    std::unique_ptr<sdbus::IConnection> m_connection;
};

#endif
