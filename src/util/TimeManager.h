// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The clock starts the service when it needs attention: when a setting of it changes, and when the system
 * time and the hardware clock (RTC) have drifted apart or the RTC is beyond its range.
 *
 * The service looks after the clock itself while it runs, so everything here is watched only while it is
 * terminated.
 */
#ifndef ZEL_LITE_TIME_MANAGER_H
#define ZEL_LITE_TIME_MANAGER_H

#include <glib.h>
#include <linux/rtc.h>
#include <vconf.h>

#include "IZelDaemonStateListener.h"
#include "TriggerTypes.h"

class TCZelDaemonStateManager;

/**
 * Times are seconds since the epoch in 32 bits, as the set counts them, whatever a long is here. Settings and
 * the timer call back on the main thread.
 */
class TCTimeManager : public IZelDaemonStateListener {
public:
    /** Registers with the state manager; watches nothing yet. */
    explicit TCTimeManager(TCZelDaemonStateManager& manager);
    ~TCTimeManager() override;
    TCTimeManager(const TCTimeManager&) = delete;
    TCTimeManager& operator=(const TCTimeManager&) = delete;

    /** Stops watching. */
    void OnStart() override;
    /** Begins to watch the settings and, every 30 s, the drift. */
    void OnTerminate() override;
    void OnTerminateSuccess(const TSZelData& data) override;

    /** Starts the service when the clock needs to be synchronised. */
    void SyncTime();
    /** Starts the service because a setting of the clock has the new value @p value. */
    void NetworkSyncTime(ETriggerType trigger, int value);

    // What the settings and the timer call; the user data is the manager.
    static void NetwotkTimeChangedCB(keynode_t* node, void* data);
    static void ClockModeChangedCB(keynode_t* node, void* data);
    static gboolean SyncSystemTimeCb(void* data);

private:
    void m_startMonitoring();
    void m_stopMonitoring();
    void m_startSyncTimer();
    void m_stopSyncTimer();
    bool m_IsSystemTimeNeedSync();
    bool m_getSystemTime(unsigned long& time);
    bool m_GetRTCTime(unsigned long* time);
    static unsigned long m_ConvertRTCToUTC(const rtc_time& record);
    static unsigned long t_ConvertYearToUTC(int year);
    void m_notifyZelMain(ETriggerType trigger, const TSNotifyData& data);
    // These two are for whoever debugs the clock; nothing calls them.
    static int m_GetTvClockMode();
    static int m_GetTimeSettingReason();

    TCZelDaemonStateManager& m_stateManager;
    /** The timer's source, 0 for none. */
    guint m_syncTimerId = 0;
};

#endif
