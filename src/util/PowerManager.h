// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The set's power states, for the time in which the service does not run: an early wake-up starts the
 * service, and going to standby arms a timer that wakes the set for the automatic tuning.
 */
#ifndef ZEL_LITE_POWER_MANAGER_H
#define ZEL_LITE_POWER_MANAGER_H

#include <tvtimer.h>

#include "IZelDaemonStateListener.h"

class TCZelDaemonStateManager;

/**
 * Subscribed while the service is terminated: to early wake-ups from the moment it is asked to terminate, to
 * standby once it has agreed and wants that. The platform calls back on the main thread.
 */
class TCPowerManager : public IZelDaemonStateListener {
public:
    /** Registers with the state manager; subscribes to nothing yet. */
    explicit TCPowerManager(TCZelDaemonStateManager& stateManager);
    /** Unregisters; subscriptions are not dropped: the loop does not run any more. */
    ~TCPowerManager() override;
    TCPowerManager(const TCPowerManager&) = delete;
    TCPowerManager& operator=(const TCPowerManager&) = delete;

    void OnStart() override;
    void OnTerminate() override;
    void OnTerminateSuccess(const TSZelData& data) override;

    /** Subscribes to standby, or unsubscribes, unless that is so already. */
    void HandleStandby(bool flag);
    /** Subscribes to early wake-ups, or unsubscribes, unless that is so already. */
    void HandleWakeUp(bool flag);

    // What the platform calls.

    /** Replaces the wake-up timer. @return 0 when one was armed, else 1 */
    static int OnStandbyOff(int event, void* userData);
    /** Starts the service. @param userData  the manager @return 0 */
    static int OnEarlyWakeUp(int event, void* userData);
    /** Keeps the number of the timer that was armed, null when that failed. Runs on the timer library's
     * thread. */
    static void TvTimerCallback(tvtimer_info_s* info, void* userData);

private:
    TCZelDaemonStateManager& m_stateManager;
    bool m_isStandbySubscribed = false;
    bool m_isWakeUpSubscribed = false;
};

#endif
