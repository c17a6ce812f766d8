// SPDX-License-Identifier: Apache-2.0
#include "fakes/KnownLines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

namespace fakes {
namespace {

struct KnownLine {
    const char* file;
    const char* function;
    int priority;
    /** The format behind the prefix. */
    const char* text;
};

constexpr int kDebug = 3;
constexpr int kInfo = 4;
constexpr int kError = 6;

constexpr std::array kKnownLines{
    KnownLine{"ZelDaemonStateManager.cpp", "TCZelDaemonStateManager", kError, "First boot up"},
    KnownLine{"ZelDaemonStateManager.cpp", "TCZelDaemonStateManager", kError, "ZEL was running before"},
    KnownLine{"ZelDaemonStateManager.cpp", "Notify", kInfo,
              "ZEL Daemon Notify, startZEL(%d), sendNotifyCall(%d), informListeners(%d), m_zelState(%d), "
              "trigger(%d)"},
    KnownLine{"ZelDaemonStateManager.cpp", "Notify", kError, "Starting ZEL"},
    KnownLine{"ZelDaemonStateManager.cpp", "Notify", kError, "Starting ZEL Failed"},
    KnownLine{"ZelDaemonStateManager.cpp", "Notify", kInfo, "LaunchZelLiteApp"},
    KnownLine{"ZelDaemonStateManager.cpp", "Notify", kError, "pZelControl == nullptr"},
    KnownLine{"ZelDaemonStateManager.cpp", "Notify", kError,
              "Failed to notify ZEL, m_zelState(%s), retNotify(%d)"},
    KnownLine{"ZelDaemonStateManager.cpp", "RequestTerminate", kInfo, "zel-daemon already terminated"},
    KnownLine{"ZelDaemonStateManager.cpp", "RequestTerminate", kError, "pZelControl == nullptr"},
    KnownLine{"ZelDaemonStateManager.cpp", "RequestTerminate", kError,
              "Removing failed, removeRet(%d), file(%s)"},
    KnownLine{"ZelDaemonStateManager.cpp", "RequestTerminate", kError,
              "Communication failed, m_zelState(%s), ret(%d)"},
    KnownLine{"ZelDaemonStateManager.cpp", "RequestTerminate", kError, "Succeeded to terminate ZEL"},
    KnownLine{"ZelDaemonStateManager.cpp", "RequestTerminate", kError,
              "Failed to terminate ZEL, m_zelState(%s), ret(%d), error size %zu"},
    KnownLine{"ZelDaemonStateManager.cpp", "RequestTerminate", kError, "error: %d"},
    KnownLine{"ZelDaemonStateManager.cpp", "RegisterListener", kError, "Listener already registred"},
    KnownLine{"ZelDaemonStateManager.cpp", "UnregisterListener", kError, "Listener not registred"},
    KnownLine{"ZelDaemonStateManager.cpp", "LaunchZelLiteApp", kDebug,
              "Launching zel-lite-app-launch refresh(%d)"},
    KnownLine{"ZelDaemonStateManager.cpp", "LaunchZelLiteApp", kDebug, "Launched zel-lite-app-launch"},
    KnownLine{"ZelDaemonStateManager.cpp", "LaunchZelLiteApp", kError, "Launch zel-app-lite failed"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_InitDbusConnection", kError,
              "Dbus Connection Error errMsg(%s)"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_InitDbusConnection", kError, "Dbus Connection nullptr"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_InitDbusConnection", kError, "Dbus Register Error errMsg(%s)"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_InitDbusConnection", kError, "Dbus Register Error ret(%d)"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_StartZelDaemonService", kInfo, "m_previousZELDaemonPID(%d)"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_StartZelDaemonService", kError, "zel-daemon is alive, pid(%d)"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_StartZelDaemonService", kError,
              "Can't initialize dbus connection"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_StartZelDaemonService", kError, "Message nullptr"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_StartZelDaemonService", kError,
              "Failed to append data, retA(%d), retB(%d)"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_StartZelDaemonService", kError, "Failed to send message"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_StartZelDaemonService", kError, "Pending Call nullptr"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_StartZelDaemonService", kInfo, "Dbus message send"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_StartZelDaemonService", kError, "Reply nullptr"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_StartZelDaemonService", kError, "Message has no arguments"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_StartZelDaemonService", kError,
              "Argument is string not object path, errMsg(%s)"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_StartZelDaemonService", kError,
              "Message send success, replay objectPath(%s)"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_StartZelDaemonService", kError,
              "Expected argument as object path, argumentType(%d)"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_CheckFileIsLink", kError, "Cannot read file %s stats!"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_CheckFileIsLink", kError, "File %s is symlink!"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_CreateRestartFile", kError, "Create ZEL_RESTART_MODE file!"},
    KnownLine{"ZelDaemonStateManager.cpp", "m_CreateRestartFile", kError, "File %s is symlink! Do nothing!"},
    KnownLine{"SessionControl.cpp", "TCSessionControl", kError, "Can not load session state"},
    KnownLine{"SessionControl.cpp", "m_Open", kError,
              "Try to open already connected session: sessionId(%s), progName(%s), pid(%s)"},
    KnownLine{"SessionControl.cpp", "m_Open", kInfo,
              "call Notify(TRIGGER_TYPE_START_ZEL_MAIN, TSNotifyData()), sessionId(%s), progName(%s), "
              "pid(%s), terminated(%d)"},
    KnownLine{"SessionControl.cpp", "m_Open", kError,
              "ERROR: FAILED to start ZEL when Opening session, sessionId(%s), progName(%s), pid(%s)"},
    KnownLine{"SessionControl.cpp", "m_Close", kError, "There is no session to close: sessionId(%s)"},
    KnownLine{"SessionControl.cpp", "t_getTimeMs", kError, "clock_gettime failed"},
    KnownLine{"SessionControl.cpp", "m_saveState", kInfo, "State file removed, removed(%d), exists(%d)"},
    KnownLine{"SessionControl.cpp", "m_saveState", kError, "Can not remove state file"},
    KnownLine{"SessionControl.cpp", "m_saveState", kError, "Open error: %s"},
    KnownLine{"SessionControl.cpp", "m_saveState", kError, "Write error: %s, size: %lu"},
    KnownLine{"SessionControl.cpp", "m_saveState", kError, "Can not rename state tmp file"},
    KnownLine{"SessionControl.cpp", "m_loadState", kError, "Can not open state file"},
    KnownLine{"SessionControl.cpp", "m_loadState", kInfo, "State file does not exist. Clean session."},
    KnownLine{"SessionControl.cpp", "m_loadState", kError, "Error read, contentSize(%d)"},
    KnownLine{"SessionControl.cpp", "m_loadState", kError, "Error read, sessionsNum(%d), contentSize(%d)"},
    KnownLine{"SessionControl.cpp", "m_loadState", kInfo, "Read sessions, sessionsNum(%d), contentSize(%d)"},
    KnownLine{"SessionControl.cpp", "m_loadState", kInfo, "Load state, sessionId(%s), progName(%s), pid(%s)"},
    KnownLine{"SessionControlNative.cpp", "m_Open", kError,
              "Opened session, ok(%d), sessionId(%s), progName(%s), pid(%s)"},
    KnownLine{"SessionControlNative.cpp", "m_Close", kError,
              "Closed session, ok(%d), sessionId(%s), progName(%s), pid(%s)"},
    KnownLine{"SessionControlNative.cpp", "m_IsZelTerminated", kError, "Is ZEL terminated, isTerminated(%d)"},
    KnownLine{"SessionControl.cpp", "CloseOnCrash", kInfo, "All traces closed, sessionId(%s)"},
    KnownLine{"SessionControl.cpp", "TryTerminateZel", kInfo, "Try Terminate ZEL"},
    KnownLine{"SessionControl.cpp", "TryTerminateZel", kError,
              "Can not terminate zel-daemon. There are sessions open, activeSessionsCount(%d)"},
    KnownLine{"SessionControl.cpp", "TryTerminateZel", kError,
              "Opened Session, sessionId(%s), progName(%s), pid(%s)"},
    KnownLine{"SessionControl.cpp", "TryTerminateZel", kError,
              "Force to close debug trace, sessionId(%s), progName(%s), pid(%s), traceID(%lld)"},
    KnownLine{"SessionControl.cpp", "TryTerminateZel", kError, "ST(%s)"},
    KnownLine{"SessionControl.cpp", "TryTerminateZel", kInfo,
              "m_isDebug(%d), disableSessionsCheck(%d), m_termianteErrorsCount(%d)"},
    KnownLine{"SessionControl.cpp", "TryTerminateZelWithAppLaunch", kInfo,
              "Launch zel-lite-app, alwaysLaunchApp(%d), terminated(%d)"},
    KnownLine{"SessionControl.cpp", "m_tryTerminateWithDelay", kError,
              "Will try to terminate ZEL after %d seconds"},
    KnownLine{"SessionControl.cpp", "m_tryTerminateCallback", kError, "Try to terminate ZEL after delay"},
    KnownLine{"SessionControl.cpp", "m_ThreadRunFunc", kInfo, "Helper Thread Start"},
    KnownLine{"SessionControl.cpp", "m_ThreadRunFunc", kInfo, "Helper Thread End"},
    KnownLine{"SessionControl.cpp", "m_tvViewerVconfCallback", kError,
              "vconf callback error, sessionControl(%p), name(%p), nameStr(%s)"},
    KnownLine{"SessionControl.cpp", "m_tvViewerVconfCallback", kError, "Getting vconf key failed, key(%s)"},
    KnownLine{"SessionControl.cpp", "m_tvViewerVconfCallback", kInfo, "vconf tv-viewer state(%s)"},
    KnownLine{"SessionControl.cpp", "CheckPIDs", kInfo, "Check PIDs, sessionsNum(%d)"},
    KnownLine{"SessionControl.cpp", "CheckPIDs", kError, "Can not check pid"},
    KnownLine{"SessionControl.cpp", "CheckPIDs", kError, "Application not running, pid(%d)"},
    KnownLine{"SessionControl.cpp", "m_OpenDebugTrace", kInfo, "Tracing disabled"},
    KnownLine{"SessionControl.cpp", "m_OpenDebugTrace", kError,
              "Can not open StackTrace, traces limit reached, pid(%s), processTracesNum(%d), traceId(%lld)"},
    KnownLine{"SessionControl.cpp", "m_OpenDebugTrace", kError,
              "Can not open StackTrace, traceId already present, pid(%s), traceId(%lld)"},
    KnownLine{"SessionControl.cpp", "m_CloseDebugTrace", kError,
              "Can not close StackTrace, sessionId not present, sessionId(%s)"},
    KnownLine{"SessionControl.cpp", "m_CloseDebugTrace", kError,
              "Can not close StackTrace, traceId not present, traceId(%lld)"},
    KnownLine{"SessionControl.cpp", "t_removeOldRecords", kInfo, "Remove old records"},
    KnownLine{"SessionControl.cpp", "t_removeOldRecords", kInfo,
              "Remove recent traces, removedNum(%d), elementsLeft(%d)"},
    KnownLine{"SessionControl.cpp", "GetDebugInfo", kInfo, "Has debug info about sessionsNum(%zu)"},
    KnownLine{"SessionControl.cpp", "GetDebugInfo", kInfo, "Recent traces num(%zu)"},
    KnownLine{"SessionControl.cpp", "GetDebugInfo", kInfo, "Traces num(%zu)"},
    KnownLine{"SessionControl.cpp", "GetDebugInfo", kInfo, "Ignore record"},
    KnownLine{"SessionControlNative.cpp", "m_GetSessionsDebugInfo", kError,
              "Get Sessions Debug Info, jsonSize(%d)"},
    KnownLine{"SessionControlNative.cpp", "m_OpenDebugTrace", kError,
              "Request can not hold the trace, length(%d), size(%u)"},
    KnownLine{"SessionControlNative.cpp", "m_getExePath", kError, "readlink failed, pid(%s)"},
    KnownLine{"SessionControlNative.cpp", "m_getExePath", kError, "PATH_MAX reached, pid(%s)"},
};

const std::string kPrefix = "%s: %s(%d) > ";

bool isOf(const KnownLine& known, const LogLine& line) {
    return line.file() == known.file && line.function() == known.function &&
           line.priority == known.priority && line.format == kPrefix + known.text;
}

}  // namespace

void expectKnown(const LogLine& line) {
    const bool isOurs = std::any_of(kKnownLines.begin(), kKnownLines.end(),
                                    [&line](const KnownLine& known) { return line.file() == known.file; });
    if (isOurs && std::none_of(kKnownLines.begin(), kKnownLines.end(),
                               [&line](const KnownLine& known) { return isOf(known, line); })) {
        ADD_FAILURE() << "no line of the daemon: priority " << line.priority << ", " << line.text;
    }
}

}  // namespace fakes
