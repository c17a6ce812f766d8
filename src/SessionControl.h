// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Who needs the service.
 *
 * A *session* is an application's word that it needs the service, under an id of its own: over IPC the
 * caller's connection name. Opening one makes sure that the service runs. The table of sessions is kept in
 * /tmp, so that a restarted daemon still knows who holds one; /tmp is empty at boot, and so is the table.
 *
 * A *debug trace* is an application's note of why it needs the service, a text under a number of its own; a
 * *record* holds the traces of one session. Traces decide nothing: the debug report shows them, also for a
 * while after they were closed. A helper thread forgets what is old.
 *
 * An *attempt* asks the service to terminate, unless somebody holds a session. One is made ten seconds after
 * the last session closed, where the set's switch asks for it.
 */
#ifndef ZEL_LITE_SESSION_CONTROL_H
#define ZEL_LITE_SESSION_CONTROL_H

#include <glib.h>
#include <vconf.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "GuardedFile.h"
#include "TraceBudget.h"
#include "ZelServiceAPI.h"

class TCMessageBuffer;
class TCZelDaemonStateManager;

/** The language an application is written in, as it says itself; any other number is kept and reported as
 * invalid. */
enum ESessionControl_ProgLang : int {
    ESessionControl_ProgLang_Cpp = 1,
    ESessionControl_ProgLang_CSharp = 2,
};

/**
 * The sessions, their debug traces, the attempts to terminate the service, and the report on all three.
 *
 * Public operations may be called from any thread. Each takes the lock that its private worker needs; the
 * worker, named m_..., expects its caller to hold that lock.
 */
class TCSessionControl {
public:
    /** Who opened a session. */
    struct SessionData {
        /** Name of the program. */
        std::string progName;
        /** Its process id as decimal text, as received. */
        std::string pid;
    };

    /** The open sessions by their ids, in the order of the ids' bytes. */
    using TSessions = std::map<std::string, SessionData>;

    /** One debug trace. */
    struct StackTrace {
        /** The application's number of it. */
        std::int64_t traceId;
        /** When it was opened, in milliseconds of t_getTimeMs. */
        std::int64_t creationTime;
        /** When it was closed; 0 while it is open. */
        std::int64_t destructionTime;
        /** The application's text, unchanged. */
        std::string stackTrace;
    };

    /** Open traces by their numbers. */
    using TTraces = std::map<std::int64_t, StackTrace>;

    /** What is known of an application that has opened debug traces. */
    struct DebugRecord {
        std::string sessionId;
        /** Path of its executable. */
        std::string processName;
        std::string progName;
        /** Its process id as decimal text. */
        std::string pid;
        TTraces traces;
        /** When its last open trace was closed; 0 while it has one. */
        std::int64_t destructionTime;
        ESessionControl_ProgLang language;
    };

    /** Records by the ids of their sessions. */
    using TDebugRecords = std::map<std::string, DebugRecord>;

    /** Reads back the sessions that a previous run of the daemon left, then the set's switches; starts the
     * helper thread and watches the television viewer's state. */
    explicit TCSessionControl(TCZelDaemonStateManager& stateManager);
    virtual ~TCSessionControl();
    TCSessionControl(const TCSessionControl&) = delete;
    TCSessionControl& operator=(const TCSessionControl&) = delete;

    /**
     * Opens a session and makes sure that the service runs, blocking while it is started.
     *
     * @return false when the id is open already (the first record stays), or when the service could not be
     * started; the session is then open all the same, though not saved, so that closing it succeeds
     */
    bool Open(const std::string& sessionId, const std::string& progName, const std::string& pid);

    /**
     * Closes a session and saves the table. When it was the last one and the set's switch asks for it, an
     * attempt is made ten seconds later.
     *
     * @return whether there was such a session
     */
    bool Close(const std::string& sessionId);

    /**
     * Closes the session of an owner that has gone and, on a debug set, its traces; does nothing for an id
     * without session.
     */
    void CloseOnCrash(const std::string& sessionId);

    /** Whether a session is open. */
    bool IsAnySessionActive();

    /** Closes the sessions of owners whose processes are gone. A session whose pid says nothing is kept. */
    void CheckPIDs();

    /**
     * Asks the service to terminate. Refused while somebody holds a session; on a debug set a switch lets it
     * through. The previous attempt's errors and the recent traces are forgotten in either case.
     *
     * @return whether the service is terminated
     */
    bool TryTerminateZel();

    /**
     * Asks the service to terminate, then launches the companion application: always, or on a debug set when
     * the service stays.
     *
     * @return whether the service is terminated
     */
    bool TryTerminateZelWithAppLaunch(bool alwaysLaunchApp);

    /**
     * Opens a debug trace. What an application said of itself first is kept. The 51st open trace of one
     * session and a number that is open already are refused. So is a trace that does not fit into the budget
     * of TCTraceBudget once everything that may be forgotten for it is.
     */
    void OpenDebugTrace(const std::string& sessionId, std::int64_t traceId, const std::string& stackTrace,
                        const std::string& processName, const std::string& progName, const std::string& pid,
                        ESessionControl_ProgLang language);

    /** Closes a debug trace. It is reported for at least 20 seconds more, unless an attempt comes first. */
    void CloseDebugTrace(const std::string& sessionId, std::int64_t traceId);

    /** The debug report: traces, last termination attempt and viewer state, as a JSON document. */
    std::string GetDebugInfo();

    /** The same in pieces, given in their order to @p write, which may change them: a large report need not
     * exist in one piece. */
    void WriteDebugInfo(const std::function<void(std::string& piece)>& write);

protected:
    /**
     * Monotonic time in milliseconds, -2 when there is no clock. The seconds are scaled in 32 bits, on the
     * set and everywhere: after 24.8 days the result wraps to negative values, and only differences of near
     * times mean anything then.
     */
    virtual std::int64_t t_getTimeMs();

    /** Forgets what was closed more than 20 seconds ago. Runs on the helper thread with m_debugMutex held. */
    virtual void t_removeOldRecords();

private:
    bool m_Open(const std::string& sessionId, const std::string& progName, const std::string& pid);
    bool m_Close(const std::string& sessionId);
    /** Copies the table. Takes m_sessionsMutex. */
    TSessions m_copySessions();

    void m_closeErrorTraces();
    bool m_isSessionsCheckDisabled() const;
    void m_logOpenSessions() const;
    void m_closeAllTraces();
    void m_openErrorTraces(const std::vector<ETerminateErrorType>& errors);
    guint m_tryTerminateWithDelay();
    static gboolean m_tryTerminateCallback(gpointer userData);

    void m_ThreadRunFunc();
    static void m_tvViewerVconfCallback(keynode_t* keynode, void* userData);
    void m_recordTvViewerState();

    void m_OpenDebugTrace(const std::string& sessionId, std::int64_t traceId, const std::string& stackTrace,
                          const std::string& processName, const std::string& progName, const std::string& pid,
                          ESessionControl_ProgLang language);
    void m_CloseDebugTrace(const std::string& sessionId, std::int64_t traceId);
    void m_removeOldTraces(std::int64_t now);
    TDebugRecords::iterator m_eraseRecord(TDebugRecords::iterator record);
    void m_eraseOldestRecent(const std::string& sessionId, std::deque<StackTrace>& traces, std::size_t count);
    void m_clearRecentTraces();

    /** What is forgotten first when the budget is exceeded, in this order. */
    enum class EForgettable { kClosedTrace, kRecordWithoutOpenTrace, kOpenTraceOfOneWhoLeft, kNothing };

    bool m_makeRoom(const std::string& sessionId, std::size_t size);
    EForgettable m_whatIsForgettable(const DebugRecord& record) const;
    void m_forgetOfLargest(EForgettable kind, const std::string& sessionId, std::size_t size);
    bool m_forgetOne(TDebugRecords::iterator record);
    void m_logOverBudget();

    bool m_saveState();
    bool m_removeState();
    bool m_writeState();
    bool m_loadState();
    void m_replaceSavedState(TCFileDescriptor file);
    bool m_readSessions(TCMessageBuffer& content, unsigned int contentSize);

    TCZelDaemonStateManager& m_stateManager;
    TSessions m_sessions;
    /** The state file as it was saved or loaded last. A second name of it must not bring old sessions
     * back when another has taken its place. */
    TCFileDescriptor m_savedState;
    TDebugRecords m_debugRecords;
    std::int64_t m_lastTryTerminateTime = 0;
    bool m_lastTryTerminateResult = false;
    std::string m_tvViewerState = "not set";
    std::int64_t m_tvViewerStateChangeTime = 0;
    /** How many traces of the last attempt's errors are open. Each attempt logs it under this spelling, which
     * readers of the log look for. */
    std::int32_t m_termianteErrorsCount = 0;
    /** Closed traces by session, in the order in which they were closed. */
    std::map<std::string, std::deque<StackTrace>> m_recentTraces;
    /** What the debug records and the recent traces take. */
    TCTraceBudget m_budget;
    /** Traces and records that went because of the budget, and traces that were refused, since the last line
     * about it. */
    int m_forgottenNum = 0;
    int m_refusedNum = 0;
    /** When the last line about the budget was logged, in milliseconds of t_getTimeMs. */
    std::int64_t m_overBudgetLogTime = 0;
    /** Guards m_sessions; held across Notify and RequestTerminate, so taken before the state manager's mutex.
     */
    std::mutex m_sessionsMutex;
    /** Guards the debug records, the recent traces, the viewer's state and the bookkeeping of termination. */
    std::mutex m_debugMutex;
    bool m_isDebug = false;
    /** Whether the service is to be terminated when the last session closes. */
    bool m_aggressiveTerminate = false;
    /** Whether debug traces are refused. */
    bool m_disableTracing = false;
    /** Tells the helper thread to end; set without m_debugMutex, so the thread may see it only after its
     * wait. */
    std::atomic<bool> m_stopThread{false};
    std::condition_variable m_threadCondition;
    std::thread m_thread;
};

#endif
