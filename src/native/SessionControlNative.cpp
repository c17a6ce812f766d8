// SPDX-License-Identifier: Apache-2.0
#include "SessionControlNative.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "Diagnostics.h"
#include "SessionControl.h"
#include "ZelDaemonStateManager.h"

namespace {

constexpr int kStatusOk = 0;
constexpr int kStatusFailed = -2;

// Where a request that opens a trace has its fields.
constexpr unsigned int kTraceIdOffset = 0;
constexpr unsigned int kLengthOffset = 8;
constexpr unsigned int kTextOffset = 12;
constexpr int kNoText = -1;
// Where the reply to the question for the report has the report's length.
constexpr unsigned int kReportLengthOffset = 4;
// No request is longer, so a text can't be either.
constexpr int kMaxText = 1024 * 1024;

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
    static constexpr std::array<TSMethod, 6> kMethods{{
        {0, &SessionControlNative::m_Open},
        {1, &SessionControlNative::m_Close},
        {2, &SessionControlNative::m_GetSessionsDebugInfo},
        {3, &SessionControlNative::m_OpenDebugTrace},
        {4, &SessionControlNative::m_CloseDebugTrace},
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

bool SessionControlNative::m_GetSessionsDebugInfo(int /*method*/, TCMessageBuffer& /*request*/,
                                                  TCMessageBuffer& reply) {
    reply.PushInt(kStatusOk);
    // Stands for the length, which is known at the end only.
    reply.PushInt(0);
    int size = 0;
    m_sessionControl.WriteDebugInfo([&reply, &size](std::string& piece) {
        size += static_cast<int>(piece.size());
        reply.WriteConcatenated(piece.size(), piece.data(), -1);
    });
    // The buffer has its own encoding of integers, so another buffer makes it.
    TCMessageBuffer length;
    length.PushInt(size);
    std::memcpy(reply.GetAsVoidFromOffset(kReportLengthOffset), length.GetAsVoidFromOffset(0), sizeof size);
    ZEL_LOG_ERROR("Get Sessions Debug Info, jsonSize(%d)", size);
    return true;
}

bool SessionControlNative::m_OpenDebugTrace(int /*method*/, TCMessageBuffer& request,
                                            TCMessageBuffer& reply) {
    long long traceId = 0;
    request.ReadLongLong(&traceId, kTraceIdOffset);
    int length = kNoText;
    request.ReadInt(&length, kLengthOffset);
    // A length that no request can have counts as 0 and leaves the language unread, so the daemon allocates
    // nothing for it.
    const bool isPossible = length >= kNoText && length <= kMaxText;
    // One zero more than the text has, which stays part of it.
    std::string stackTrace(isPossible ? static_cast<std::size_t>(length + 1) : 1, '\0');
    int language = 0;
    if (isPossible) {
        if (length > 0) {
            request.ReadConcatenated(static_cast<unsigned long>(length), stackTrace.data(), kTextOffset);
        }
        request.ReadInt(&language, kTextOffset + static_cast<unsigned int>(length));
    }
    m_sessionControl.OpenDebugTrace(request.m_senderName, traceId, stackTrace,
                                    m_getExePath(m_callersObserver.GetPid()), m_callersObserver.GetProgName(),
                                    m_callersObserver.GetPid(),
                                    static_cast<ESessionControl_ProgLang>(language));
    reply.PushInt(kStatusOk);
    return true;
}

bool SessionControlNative::m_CloseDebugTrace(int /*method*/, TCMessageBuffer& request,
                                             TCMessageBuffer& reply) {
    long long traceId = 0;
    request.ReadLongLong(&traceId, kTraceIdOffset);
    m_sessionControl.CloseDebugTrace(request.m_senderName, traceId);
    reply.PushInt(kStatusOk);
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

std::string SessionControlNative::m_getExePath(const std::string& pid) {
    constexpr std::size_t kMaxPath = 4096;
    std::array<char, kMaxPath + 1> path{};
    const ssize_t length = readlink(("/proc/" + pid + "/exe").c_str(), path.data(), kMaxPath);
    if (length == -1) {
        ZEL_LOG_ERROR("readlink failed, pid(%s)", pid.c_str());
        return {};
    }
    if (static_cast<std::size_t>(length) == kMaxPath) {
        ZEL_LOG_ERROR("PATH_MAX reached, pid(%s)", pid.c_str());
    }
    return path.data();
}
