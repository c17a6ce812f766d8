// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Supervision of the service, zel-daemon.
 *
 * Terms: the *state* is what this daemon believes of the service; a *trigger* is a reason why the service is
 * needed; a *listener* is a component that wants to hear of the service's start and termination; a *marker*
 * is an empty file in /tmp that carries one fact across restarts of this daemon within one boot.
 *
 * Normal flow: a source of demand calls Notify with its trigger; the service is started through systemd when
 * it is not believed to run, and is sent the trigger. When nothing needs the service any more,
 * RequestTerminate asks it to go.
 */
#ifndef ZEL_LITE_ZEL_DAEMON_STATE_MANAGER_H
#define ZEL_LITE_ZEL_DAEMON_STATE_MANAGER_H

#include <dbus/dbus.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "IZelDaemonStateListener.h"
#include "TriggerTypes.h"

/** What the daemon believes of the service. The numbers appear in the log. A new state goes to the end, with
 * a row in the table of states. */
enum EZelState {
    /** Nothing is known: this daemon was restarted after the service had terminated. The next trigger starts
       it. */
    STATE_UNDEFINED = 0,
    /** It runs and has been reached. */
    STATE_RUNNING = 1,
    /** It runs, started by the system or before this daemon's restart, and the listeners have not been told
       yet. */
    STATE_RUNNING_UNINITIALIZED = 2,
    /** It agreed to terminate. */
    STATE_TERMINATED = 3,
    /** It was asked to terminate and could not be reached. */
    STATE_UNDEFINED_AFTER_TERMINATE = 4,
};

/**
 * The one object through which the service is supervised. Every public operation may be called from any
 * thread and holds one recursive mutex for its whole length, listeners' callbacks and the blocking start of
 * the service included.
 */
class TCZelDaemonStateManager {
public:
    /** Reads the markers to tell the first start since boot from a restart, and connects to the system bus.
     */
    TCZelDaemonStateManager();
    ~TCZelDaemonStateManager();
    TCZelDaemonStateManager(const TCZelDaemonStateManager&) = delete;
    TCZelDaemonStateManager& operator=(const TCZelDaemonStateManager&) = delete;

    /**
     * Makes sure that the service runs and knows of @p trigger; blocks while it is started.
     *
     * | state                 | start it | forward the trigger    | tell the listeners |
     * |-----------------------|----------|------------------------|--------------------|
     * | running               | no       | all but START_ZEL_MAIN | no                 |
     * | running uninitialized | no       | all but START_ZEL_MAIN | yes                |
     * | any other             | yes      | always                 | yes                |
     *
     * A failure to start or to reach the service leaves the state as it was; every other outcome makes it
     * running, also when the service answered that it had no success.
     *
     * @return true when the service took the trigger with success or did not need it, and the running marker
     * was not a planted link
     */
    bool Notify(ETriggerType trigger, const TSNotifyData& data);

    /**
     * Asks the service to terminate and waits for its answer. A service that cannot be reached is restarted
     * at once.
     *
     * @param errors  gets the service's reasons for a refusal
     * @param data    gets what the service tells of itself
     * @return true when the service is terminated, now or already
     */
    bool RequestTerminate(std::vector<ETerminateErrorType>& errors, TSZelData& data);

    /** Whether the service agreed to terminate and was not started since. */
    bool IsZelTerminated();

    /** Adds @p listener, which is not owned and must be unregistered before it is destroyed. Twice is
     * refused. */
    void RegisterListener(IZelDaemonStateListener* listener);

    /** Removes @p listener; once this has returned it is not called any more. */
    void UnregisterListener(IZelDaemonStateListener* listener);

    /**
     * Starts the companion application's launcher, without waiting for it.
     *
     * @param refresh  whether the launcher is told to refresh a running application
     * @return whether the launcher's process was created
     */
    bool LaunchZelLiteApp(bool refresh);

    /** The log's word for @p state; "undefined" for a number that is no state. */
    static std::string m_ToString(EZelState state);

private:
    struct TSConnectionRelease {
        void operator()(DBusConnection* connection) const { dbus_connection_unref(connection); }
    };

    bool m_InitDbusConnection();
    /** Reads and drops what the bus has sent. @return whether there is a connection, and its bus */
    bool m_DrainDbusConnection();
    bool m_StartZelDaemonService();
    void m_WaitForPreviousZelDaemon();

    bool m_StartForNotify();
    /** Sends a trigger to the service. @return its answer, negative also when there is no control */
    int m_ForwardTrigger(ETriggerType trigger, const TSNotifyData& data);

    void m_RecoverFromFailedTerminate(int result);
    void m_FinishTerminate(const TSZelData& data);
    void m_ContinueAfterRefusal(int result, const std::vector<ETerminateErrorType>& errors);

    void m_CallListeners(const std::function<void(IZelDaemonStateListener&)>& hook);
    bool m_CheckFileIsLink(const char* path);
    void m_CreateRestartFile();

    std::unique_ptr<DBusConnection, TSConnectionRelease> m_connection;
    std::recursive_mutex m_mutex;
    std::vector<IZelDaemonStateListener*> m_listeners;
    EZelState m_zelState = STATE_UNDEFINED;
    /** The process that last agreed to terminate, which the next start waits for; -1 when there is none. */
    std::int32_t m_previousZELDaemonPID = -1;
    /** Whether each start of the service brings up the companion application: on debug sets. */
    bool m_launchLiteApp;
};

#endif
