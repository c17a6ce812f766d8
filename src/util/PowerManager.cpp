// SPDX-License-Identifier: Apache-2.0
#include "PowerManager.h"

#include <TimeUtil.h>
#include <dd-power.h>
#include <vconf.h>

#include <array>
#include <ctime>
#include <optional>

#include "Diagnostics.h"
#include "TriggerTypes.h"
#include "ZelDaemonStateManager.h"

namespace {

constexpr const char* kWakeTime = "db/menu/broadcasting/autotune-wakeuptimer";
constexpr const char* kTimerId = "db/menu/broadcasting/autotune-wakeuptimer-timer_id";
constexpr int kNoTimer = -1;

/** The kind of timer that wakes the set. */
constexpr int kTimerType = 6;
/** On which days it may: all. */
constexpr int kEveryDay = 0x7F;

constexpr int kHourS = 3600;

constexpr int kAnyHour = -1;

/** When to wake up: a number of seconds from now, or at an hour of today. */
struct TSWakeTime {
    int wakeTimeValue;
    int secondsFromNow;
    /** kAnyHour keeps the time of day. */
    int hourOfToday;
};
constexpr std::array<TSWakeTime, 6> kWakeTimes{{
    {1, kHourS, kAnyHour},
    {2, 2 * kHourS, kAnyHour},
    {3, 0, 2},
    {4, 0, 12},
    {5, 0, 14},
    {6, 0, 0},
}};

/** The UTC date of a wake-time value; an hour of today may have passed. */
std::optional<std::tm> WakeUpDate(int wakeTimeValue) {
    for (const TSWakeTime& row : kWakeTimes) {
        if (row.wakeTimeValue != wakeTimeValue) {
            continue;
        }
        const auto time = static_cast<std::time_t>(CTimeUtil::GetCurrentTime() + row.secondsFromNow);
        std::tm date{};
        gmtime_r(&time, &date);
        if (row.hourOfToday != kAnyHour) {
            date.tm_sec = 0;
            date.tm_min = 0;
            date.tm_hour = row.hourOfToday;
            date.tm_isdst = 0;
        }
        return date;
    }
    return std::nullopt;
}

// The lines belong to the callback, for which these two work.
constexpr const char* kStandbyCallback = "OnStandbyOff";

void CancelPreviousTimer() {
    int timerId = kNoTimer;
    if (vconf_get_int(kTimerId, &timerId) != 0) {
        ZEL_LOG_FROM(kStandbyCallback, DLOG_ERROR, "Failed reading vconf key [%s]!", kTimerId);
    } else if (timerId != kNoTimer) {
        tvtimer_cancel_timer_by_id_async(timerId);
    }
}

std::optional<std::tm> ChosenWakeUpDate() {
    int wakeTimeValue = 0;
    if (vconf_get_int(kWakeTime, &wakeTimeValue) != 0) {
        ZEL_LOG_FROM(kStandbyCallback, DLOG_ERROR, "Failed reading vconf key [%s]!", kWakeTime);
        return std::nullopt;
    }
    const std::optional<std::tm> date = WakeUpDate(wakeTimeValue);
    if (!date) {
        ZEL_LOG_FROM(kStandbyCallback, DLOG_ERROR, "Unknown value of wakeTimeValue! wakeTimeValue: [%d]",
                     wakeTimeValue);
    }
    return date;
}

}  // namespace

TCPowerManager::TCPowerManager(TCZelDaemonStateManager& stateManager) : m_stateManager(stateManager) {
    m_stateManager.RegisterListener(this);
}

TCPowerManager::~TCPowerManager() {
    m_stateManager.UnregisterListener(this);
}

void TCPowerManager::OnStart() {
    HandleWakeUp(false);
    HandleStandby(false);
}

void TCPowerManager::OnTerminate() {
    HandleWakeUp(true);
}

void TCPowerManager::OnTerminateSuccess(const TSZelData& data) {
    HandleStandby(data.needStandbyHandling);
}

// A subscription that fails counts as one: it is not tried again before it was dropped.
void TCPowerManager::HandleStandby(bool flag) {
    ZEL_LOG_DEBUG("flag: [%s]", flag ? "true" : "false");
    if (flag == m_isStandbySubscribed) {
        return;
    }
    if (flag) {
        device_power_subscribe_standby(OnStandbyOff, nullptr);
    } else {
        device_power_unsubscribe_standby(OnStandbyOff);
    }
    m_isStandbySubscribed = flag;
}

void TCPowerManager::HandleWakeUp(bool flag) {
    ZEL_LOG_DEBUG("flag: [%s]", flag ? "true" : "false");
    if (flag == m_isWakeUpSubscribed) {
        return;
    }
    if (flag) {
        device_power_subscribe_early_wakeup(OnEarlyWakeUp, this);
    } else {
        device_power_unsubscribe_early_wakeup(OnEarlyWakeUp);
    }
    m_isWakeUpSubscribed = flag;
}

// The previous timer goes also when no new one comes, and its number stays in the setting then.
int TCPowerManager::OnStandbyOff(int /*event*/, void* /*userData*/) {
    CancelPreviousTimer();
    std::optional<std::tm> date = ChosenWakeUpDate();
    if (!date) {
        return 1;
    }
    const int result =
        tvtimer_schedule_timer_at_date_async(kTimerType, *date, kEveryDay, 0, TvTimerCallback, nullptr);
    if (result != 0) {
        ZEL_LOG_ERROR("Scheduling standby timer failed! Error: [%d]", result);
        return 1;
    }
    return 0;
}

int TCPowerManager::OnEarlyWakeUp(int /*event*/, void* userData) {
    static_cast<const TCPowerManager*>(userData)->m_stateManager.Notify(TRIGGER_TYPE_START_ZEL_MAIN,
                                                                        TSNotifyData());
    return 0;
}

void TCPowerManager::TvTimerCallback(tvtimer_info_s* info, void* /*userData*/) {
    if (info == nullptr) {
        ZEL_LOG_ERROR("Timer not set!");
        return;
    }
    int timerId = kNoTimer;
    tvtimer_get_id(info, &timerId);
    if (vconf_set_int(kTimerId, timerId) != 0) {
        ZEL_LOG_ERROR("Failed setting vconf key: [%s]!", kTimerId);
    }
    tvtimer_free(info);
}
