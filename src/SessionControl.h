// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Who needs the service.
 *
 * A *session* is an application's word that it needs the service, under an id of its own: over IPC the
 * caller's connection name. Opening one makes sure that the service runs. The table of sessions is kept in
 * /tmp, so that a restarted daemon still knows who holds one; /tmp is empty at boot, and so is the table.
 */
#ifndef ZEL_LITE_SESSION_CONTROL_H
#define ZEL_LITE_SESSION_CONTROL_H

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

class TCMessageBuffer;
class TCZelDaemonStateManager;

/** The table of open sessions. Public operations may be called from any thread; each takes the lock its
 * worker needs. */
class TCSessionControl {
public:
    /** Who opened a session. */
    struct SessionData {
        /** Name of the program. */
        std::string progName;
        /** Its process id as decimal text, as received. */
        std::string pid;
    };

    /** Reads back the sessions that a previous run of the daemon left, then the set's switches. */
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

    /** Closes a session. @return whether there was one */
    bool Close(const std::string& sessionId);

    /** Closes the session of an owner that has gone; does nothing for an id without session. */
    void CloseOnCrash(const std::string& sessionId);

    /** Whether anybody holds a session. */
    bool IsAnySessionActive();

protected:
    /**
     * Monotonic time in milliseconds, -2 when there is no clock. The seconds are scaled in 32 bits, on the
     * set and everywhere: after 24.8 days the result wraps to negative values, and only differences of near
     * times mean anything then.
     */
    virtual std::int64_t t_getTimeMs();

private:
    bool m_Open(const std::string& sessionId, const std::string& progName, const std::string& pid);
    bool m_Close(const std::string& sessionId);

    bool m_saveState();
    bool m_removeState();
    bool m_writeState();
    bool m_loadState();
    bool m_readSessions(TCMessageBuffer& content);

    TCZelDaemonStateManager& m_stateManager;
    std::map<std::string, SessionData> m_sessions;
    /** Guards m_sessions; held across Notify, so taken before the state manager's mutex. */
    std::mutex m_sessionsMutex;
    bool m_isDebug = false;
    /** Whether the service is to be terminated when the last session closes. */
    bool m_aggressiveTerminate = false;
    /** Whether applications may open debug traces. */
    bool m_disableTracing = false;
};

#endif
