// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The daemon's side of IPC: which methods it serves, who calls them, and how the IPC library is to dispatch
 * them.
 *
 * The session of a call is that of its connection: its id is the caller's connection name, and it ends with
 * the connection. Everything here runs on the thread of the IPC library that dispatches calls one at a time.
 */
#ifndef ZEL_LITE_SESSION_CONTROL_NATIVE_H
#define ZEL_LITE_SESSION_CONTROL_NATIVE_H

#include <string>

#include "TCIpcProperties.h"
#include "TCMessageBuffer.h"
#include "TICallListener.h"
#include "ZelApiLite.h"

class TCSessionControl;
class TCZelDaemonStateManager;

/** Configures IPC so that calls come on the library's own thread: opening a session may block for long. */
class IpcConfigurationZelLite : public ZelApiLite::IpcConfiguration {
public:
    using ZelApiLite::IpcConfiguration::IpcConfiguration;

    bool ProcessMethodCallInDefaultContext() const override;
};

/** Knows who makes the call that is being served, and closes the sessions of those who have gone. */
class SessionControlCallersObserver : public TIIPCCallersObserver {
public:
    explicit SessionControlCallersObserver(TCSessionControl& sessionControl);
    ~SessionControlCallersObserver() override;
    SessionControlCallersObserver(const SessionControlCallersObserver&) = delete;
    SessionControlCallersObserver& operator=(const SessionControlCallersObserver&) = delete;

    void SetCurrentCaller(const TSCallerProperties& caller) override;
    void ClearCurrentCaller() override;
    void OwnerRemoved(const std::string& connectionName, std::uint32_t pid) override;

    /** Program name of the caller, empty between calls. */
    const std::string& GetProgName() const { return m_progName; }
    /** Process id of the caller as decimal text, empty between calls. */
    const std::string& GetPid() const { return m_pid; }

private:
    TCSessionControl& m_sessionControl;
    std::string m_pid;
    std::string m_progName;
};

/** A listener that knows the name of the interface it serves. */
class ZelLiteNativeListener : public TICallListener {
public:
    explicit ZelLiteNativeListener(std::string interfaceName);

    std::string GetInterfaceName() override;

private:
    std::string m_interfaceName;
};

/**
 * Serves "com.brenlow.ISessionControl". A reply begins with a status, 0 or -2; that the operation failed is
 * not an error of the call.
 *
 * | method | does                           | reply after the request               |
 * |--------|--------------------------------|---------------------------------------|
 * | 0      | opens the caller's session     | int status                            |
 * | 1      | closes the caller's session    | int status                            |
 * | 2      | gives the debug report         | int 0; int length; the text           |
 * | 3      | opens a debug trace            | int 0                                 |
 * | 4      | closes a debug trace           | int 0                                 |
 * | 5      | tells whether the service went | int 0; int 1 when terminated, else 0  |
 *
 * A request carries nothing but: 3, long long trace id, int length, that many bytes of text, int language; 4,
 * long long trace id. What a request lacks is taken as trace id 0, no text, language 0.
 */
class SessionControlNative : public ZelLiteNativeListener {
public:
    SessionControlNative(TCSessionControl& sessionControl, TCZelDaemonStateManager& stateManager,
                         SessionControlCallersObserver& callersObserver);
    ~SessionControlNative() override;

    /** Serves one call. @return false, with nothing written, when there is no such method */
    bool OnCallReceived(int method, TCMessageBuffer& request, TCMessageBuffer& reply) override;

private:
    bool m_Open(int method, TCMessageBuffer& request, TCMessageBuffer& reply);
    bool m_Close(int method, TCMessageBuffer& request, TCMessageBuffer& reply);
    bool m_GetSessionsDebugInfo(int method, TCMessageBuffer& request, TCMessageBuffer& reply);
    bool m_OpenDebugTrace(int method, TCMessageBuffer& request, TCMessageBuffer& reply);
    bool m_CloseDebugTrace(int method, TCMessageBuffer& request, TCMessageBuffer& reply);
    bool m_IsZelTerminated(int method, TCMessageBuffer& request, TCMessageBuffer& reply);

    static std::string m_getExePath(const std::string& pid);

    TCSessionControl& m_sessionControl;
    TCZelDaemonStateManager& m_stateManager;
    SessionControlCallersObserver& m_callersObserver;
};

#endif
