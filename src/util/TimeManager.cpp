// SPDX-License-Identifier: Apache-2.0
#include "TimeManager.h"

#include <bptime.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdint>

#include "Diagnostics.h"
#include "ZelDaemonStateManager.h"

namespace {

constexpr const char* kNetworkTime = "memory/menu/network/set_time";
constexpr const char* kClockMode = "db/menu/system/time/clock/clock_mode";
constexpr const char* kTimeSettingReason = "db/zel/time_setting_reason";
constexpr const char* kRtcDevice = "/dev/rtc0";

constexpr guint kSyncPeriodS = 30;
constexpr std::uint32_t kSyncThresholdS = 3;
/** From this year on the RTC is out of its range. */
constexpr int kRtcMaxYear = 2100;
constexpr int kDefaultClockMode = 1;

/** Days of a common year before each month. */
constexpr std::array<std::uint32_t, 13> kDaysBeforeMonth{0,   31,  59,  90,  120, 151, 181,
                                                         212, 243, 273, 304, 334, 365};
constexpr int kMarch = 2;
constexpr int kDecember = 11;

}  // namespace

TCTimeManager::TCTimeManager(TCZelDaemonStateManager& manager) : m_stateManager(manager) {
    m_stateManager.RegisterListener(this);
}

TCTimeManager::~TCTimeManager() {
    m_stopMonitoring();
    m_stateManager.UnregisterListener(this);
}

void TCTimeManager::OnStart() {
    ZEL_LOG_DEBUG("called");
    m_stopMonitoring();
}

void TCTimeManager::OnTerminate() {
    ZEL_LOG_DEBUG("called");
    m_startMonitoring();
}

void TCTimeManager::OnTerminateSuccess(const TSZelData& /*data*/) {}

void TCTimeManager::SyncTime() {
    ZEL_LOG_DEBUG("TCTimeManager::SyncTime");
    if (m_IsSystemTimeNeedSync()) {
        m_notifyZelMain(TRIGGER_TYPE_SYNC_TIME, TSNotifyData());
    }
}

void TCTimeManager::NetworkSyncTime(ETriggerType trigger, int value) {
    ZEL_LOG_DEBUG("type : %d, val : %d", trigger, value);
    TSNotifyData data;
    data.value = value;
    m_notifyZelMain(trigger, data);
}

void TCTimeManager::NetwotkTimeChangedCB(keynode_t* node, void* data) {
    ZEL_LOG_DEBUG("time vconf changed");
    if (data == nullptr) {
        ZEL_LOG_ERROR("timeManager object is NULL!");
        return;
    }
    static_cast<TCTimeManager*>(data)->NetworkSyncTime(TRIGGER_TYPE_NETWORK_TIME,
                                                       vconf_keynode_get_int(node));
}

void TCTimeManager::ClockModeChangedCB(keynode_t* node, void* data) {
    ZEL_LOG_DEBUG("time vconf changed");
    if (data == nullptr) {
        ZEL_LOG_ERROR("timeManager object is NULL!");
        return;
    }
    static_cast<TCTimeManager*>(data)->NetworkSyncTime(TRIGGER_TYPE_CLOCK_MODE, vconf_keynode_get_int(node));
}

gboolean TCTimeManager::SyncSystemTimeCb(void* data) {
    if (data == nullptr) {
        ZEL_LOG_ERROR("timeManager object is NULL!");
        return G_SOURCE_REMOVE;
    }
    static_cast<TCTimeManager*>(data)->SyncTime();
    return G_SOURCE_CONTINUE;
}

// A second call, without a stop in between, finds both settings watched already; only the timer begins anew.
void TCTimeManager::m_startMonitoring() {
    ZEL_LOG_ERROR("called");
    vconf_notify_key_changed(kNetworkTime, NetwotkTimeChangedCB, this);
    vconf_notify_key_changed(kClockMode, ClockModeChangedCB, this);
    m_startSyncTimer();
}

void TCTimeManager::m_stopMonitoring() {
    ZEL_LOG_ERROR("called");
    vconf_ignore_key_changed(kNetworkTime, NetwotkTimeChangedCB);
    vconf_ignore_key_changed(kClockMode, ClockModeChangedCB);
    m_stopSyncTimer();
}

void TCTimeManager::m_startSyncTimer() {
    m_stopSyncTimer();
    m_syncTimerId = g_timeout_add_seconds(kSyncPeriodS, SyncSystemTimeCb, this);
}

void TCTimeManager::m_stopSyncTimer() {
    if (m_syncTimerId != 0) {
        g_source_remove(m_syncTimerId);
        m_syncTimerId = 0;
    }
}

// An RTC beyond its range forces the start although nothing is set here: the service looks after the clock.
bool TCTimeManager::m_IsSystemTimeNeedSync() {
    unsigned long utc = 0;
    const bool ok = m_getSystemTime(utc);
    int reason = 0;
    if (vconf_get_int(kTimeSettingReason, &reason) < 0) {
        reason = 0;
    }
    ZEL_LOG_DEBUG("UTC=%lu, \033[1;36m settingReason: %d, ret: %d", utc, reason, static_cast<int>(ok));
    if (!ok || reason == 0) {
        return false;
    }
    unsigned long rtc = 0;
    if (!m_GetRTCTime(&rtc)) {
        return false;
    }
    if (t_ConvertYearToUTC(kRtcMaxYear) <= rtc) {
        ZEL_LOG_DEBUG("rtcTime is over Max time, set default time[=> rtcTime=%lu]", rtc);
        return true;
    }
    // The difference is a signed one of 32 bits, so clocks more than 68 years apart wrap around.
    const std::uint32_t ahead = static_cast<std::uint32_t>(utc) - static_cast<std::uint32_t>(rtc);
    const std::uint32_t sub = static_cast<std::int32_t>(ahead) < 0 ? 0U - ahead : ahead;
    ZEL_LOG_DEBUG("UTC=%lu, rtcTime=%lu, sub=%lu", utc, rtc, static_cast<unsigned long>(sub));
    if (sub > kSyncThresholdS) {
        ZEL_LOG_DEBUG("SYNC_THRESHOLD");
        return true;
    }
    return false;
}

bool TCTimeManager::m_getSystemTime(unsigned long& time) {
    ZEL_LOG_DEBUG("get System Time UTC!");
    time_t now = 0;
    const int result = BPTime_get_current_time(&now);
    if (result != 0) {
        ZEL_LOG_ERROR("UTC! failed, ret=%d", result);
        return false;
    }
    time = static_cast<std::uint32_t>(now);
    ZEL_LOG_DEBUG("UTC = %lu", time);
    return true;
}

bool TCTimeManager::m_GetRTCTime(unsigned long* time) {
    const int device = open(kRtcDevice, O_RDONLY | O_CLOEXEC);
    if (device == -1) {
        ZEL_LOG_ERROR("%s open fail", kRtcDevice);
        return false;
    }
    rtc_time record{};
    const int result = ioctl(device, RTC_RD_TIME, &record);
    close(device);
    // A month that is none would be looked up outside the table.
    if (result == -1 || record.tm_mon < 0 || record.tm_mon > kDecember) {
        ZEL_LOG_ERROR("%s read fail", kRtcDevice);
        return false;
    }
    *time = m_ConvertRTCToUTC(record);
    ZEL_LOG_DEBUG("_time=%lu rtc_tm.tm_year=%d, rtc_tm.tm_mon=%d, rtc_tm.tm_mday=%d", *time, record.tm_year,
                  record.tm_mon, record.tm_mday);
    return true;
}

// Every fourth year counts as a leap year: right from 1901 to 2099, a day too much from March 2100 on.
unsigned long TCTimeManager::m_ConvertRTCToUTC(const rtc_time& record) {
    const auto narrow = [](std::int64_t value) { return static_cast<std::uint32_t>(value); };
    const std::int64_t year = record.tm_year;
    const std::uint32_t daysOfYears = 365U * narrow(year - 70);
    const std::uint32_t leapDaysOfYears = narrow((year - 69) / 4);
    const std::uint32_t daysOfMonths = kDaysBeforeMonth[narrow(record.tm_mon)];
    const std::uint32_t leapDayOfThisYear = record.tm_mon >= kMarch && year % 4 == 0 ? 1 : 0;
    const std::uint32_t daysOfThisMonth = narrow(record.tm_mday) - 1U;
    const std::uint32_t days =
        daysOfYears + leapDaysOfYears + daysOfMonths + leapDayOfThisYear + daysOfThisMonth;
    return ((days * 24U + narrow(record.tm_hour)) * 60U + narrow(record.tm_min)) * 60U +
           narrow(record.tm_sec);
}

unsigned long TCTimeManager::t_ConvertYearToUTC(int year) {
    rtc_time newYear{};
    newYear.tm_year = year - 1900;
    newYear.tm_mday = 1;
    return m_ConvertRTCToUTC(newYear);
}

void TCTimeManager::m_notifyZelMain(ETriggerType trigger, const TSNotifyData& data) {
    if (!m_stateManager.Notify(trigger, data)) {
        ZEL_LOG_ERROR("ERROR: FAILED to start ZEL on startup");
    }
}

int TCTimeManager::m_GetTvClockMode() {
    int mode = kDefaultClockMode;
    return vconf_get_int(kClockMode, &mode) < 0 ? kDefaultClockMode : mode;
}

int TCTimeManager::m_GetTimeSettingReason() {
    int reason = 0;
    return vconf_get_int(kTimeSettingReason, &reason) < 0 ? 0 : reason;
}
