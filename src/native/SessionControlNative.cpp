// SPDX-License-Identifier: Apache-2.0
#include "SessionControlNative.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Diagnostics.h"
#include "SessionControl.h"
#include "ZelDaemonStateManager.h"

namespace {

constexpr int kStatusOk = 0;
constexpr int kStatusFailed = -2;

int ToStatus(bool ok) {
    return ok ? kStatusOk : kStatusFailed;
}

}  // namespace

bool IpcConfigurationZelLite::ProcessMethodCallInDefaultContext() const {
    return false;
}

SessionControlCallersObserver::SessionControlCallersObserver(TCSessionControl& sessionControl)
    : m_sessionControl(sessionControl) {}

SessionControlCallersObserver::~SessionControlCallersObserver() = default;

void SessionControlCallersObserver::SetCurrentCaller(const TSCallerProperties& caller) {
    m_pid = std::to_string(caller.pid);
    m_progName = caller.progName;
}

void SessionControlCallersObserver::ClearCurrentCaller() {
    m_pid.clear();
    m_progName.clear();
}

void SessionControlCallersObserver::OwnerRemoved(const std::string& connectionName, std::uint32_t /*pid*/) {
    m_sessionControl.CloseOnCrash(connectionName);
}

ZelLiteNativeListener::ZelLiteNativeListener(std::string interfaceName)
    : m_interfaceName(std::move(interfaceName)) {}

std::string ZelLiteNativeListener::GetInterfaceName() {
    return m_interfaceName;
}

SessionControlNative::SessionControlNative(TCSessionControl& sessionControl,
                                           TCZelDaemonStateManager& stateManager,
                                           SessionControlCallersObserver& callersObserver)
    : ZelLiteNativeListener("com.brenlow.ISessionControl"),
      m_sessionControl(sessionControl),
      m_stateManager(stateManager),
      m_callersObserver(callersObserver) {}

SessionControlNative::~SessionControlNative() = default;

bool SessionControlNative::OnCallReceived(int method, TCMessageBuffer& request, TCMessageBuffer& reply) {
    struct TSMethod {
        int id;
        bool (SessionControlNative::*handler)(int, TCMessageBuffer&, TCMessageBuffer&);
    };
    static constexpr std::array<TSMethod, 3> kMethods{{
        {0, &SessionControlNative::m_Open},
        {1, &SessionControlNative::m_Close},
        {5, &SessionControlNative::m_IsZelTerminated},
    }};
    const auto* found = std::find_if(kMethods.begin(), kMethods.end(),
                                     [method](const TSMethod& candidate) { return candidate.id == method; });
    return found != kMethods.end() && (this->*found->handler)(method, request, reply);
}

bool SessionControlNative::m_Open(int /*method*/, TCMessageBuffer& request, TCMessageBuffer& reply) {
    const std::string& sessionId = request.m_senderName;
    const bool ok =
        m_sessionControl.Open(sessionId, m_callersObserver.GetProgName(), m_callersObserver.GetPid());
    reply.PushInt(ToStatus(ok));
    ZEL_LOG_ERROR("Opened session, ok(%d), sessionId(%s), progName(%s), pid(%s)", ok, sessionId.c_str(),
                  m_callersObserver.GetProgName().c_str(), m_callersObserver.GetPid().c_str());
    return true;
}

bool SessionControlNative::m_Close(int /*method*/, TCMessageBuffer& request, TCMessageBuffer& reply) {
    const std::string& sessionId = request.m_senderName;
    const bool ok = m_sessionControl.Close(sessionId);
    reply.PushInt(ToStatus(ok));
    ZEL_LOG_ERROR("Closed session, ok(%d), sessionId(%s), progName(%s), pid(%s)", ok, sessionId.c_str(),
                  m_callersObserver.GetProgName().c_str(), m_callersObserver.GetPid().c_str());
    return true;
}

bool SessionControlNative::m_IsZelTerminated(int /*method*/, TCMessageBuffer& /*request*/,
                                             TCMessageBuffer& reply) {
    const bool terminated = m_stateManager.IsZelTerminated();
    reply.PushInt(kStatusOk);
    reply.PushInt(terminated ? 1 : 0);
    ZEL_LOG_ERROR("Is ZEL terminated, isTerminated(%d)", terminated);
    return true;
}
