// SPDX-License-Identifier: Apache-2.0
// The clock's watch, above settings, a system time, a hardware clock and a timer that the test sets.
#include "util/TimeManager.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <limits>
#include <map>
#include <optional>

#include "ZelDaemonStateManager.h"
#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeStateManager.h"
#include "fakes/FakeTime.h"
#include "fakes/FakeVconf.h"

using fakes::Actions;
using fakes::FakeDlog;
using fakes::FakeStateManager;
using fakes::FakeTime;
using fakes::FakeVconf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr int kDebug = 3;
constexpr int kError = 6;

const char* const kSetTime = "memory/menu/network/set_time";
const char* const kClockMode = "db/menu/system/time/clock/clock_mode";
const char* const kReason = "db/zel/time_setting_reason";

// The hardware clock: a device that is no file. Actions: "open /dev/rtc0", "read", "close".
struct Rtc {
    static constexpr int kDescriptor = 1'000'000;
    // What an open that succeeds returns.
    static int descriptor;
    static bool opens;
    // What the read returns; -1 is its failure.
    static int readResult;
    static int openFlags;
    // The record as the last read was given it.
    static rtc_time given;
    static rtc_time record;

    static void set(std::time_t time) {
        std::tm date{};
        gmtime_r(&time, &date);
        record = {};
        record.tm_sec = date.tm_sec;
        record.tm_min = date.tm_min;
        record.tm_hour = date.tm_hour;
        record.tm_mday = date.tm_mday;
        record.tm_mon = date.tm_mon;
        record.tm_year = date.tm_year;
    }
};

int daysInMonth(const rtc_time& date) {
    static constexpr std::array<int, 12> kDays{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const int year = 1900 + date.tm_year;
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    return kDays.at(static_cast<std::size_t>(date.tm_mon)) + (date.tm_mon == 1 && leap ? 1 : 0);
}

void toNextDay(rtc_time& date) {
    if (++date.tm_mday <= daysInMonth(date)) {
        return;
    }
    date.tm_mday = 1;
    if (++date.tm_mon == 12) {
        date.tm_mon = 0;
        ++date.tm_year;
    }
}

int Rtc::descriptor = kDescriptor;
bool Rtc::opens = true;
int Rtc::readResult = 0;
int Rtc::openFlags = 0;
rtc_time Rtc::given{};
rtc_time Rtc::record{};

// The main loop's timers, by their numbers.
struct Timer {
    GSourceFunc function;
    gpointer data;
};
std::map<guint, Timer> timers;
guint lastTimer = 0;

}  // namespace

extern "C" int __real_open(const char* path, int flags, ...);
extern "C" int __wrap_open(const char* path, int flags, ...);
extern "C" int __wrap_open(const char* path, int flags, ...) {
    if (std::strncmp(path, "/dev/", 5) != 0) {
        std::va_list arguments;
        va_start(arguments, flags);
        const int mode = va_arg(arguments, int);
        va_end(arguments);
        return __real_open(path, flags, mode);
    }
    Actions::add(std::string("open ") + path);
    Rtc::openFlags = flags;
    if (!Rtc::opens) {
        errno = ENOENT;
        return -1;
    }
    return Rtc::descriptor;
}

extern "C" int __wrap_ioctl(int descriptor, unsigned long request, ...);
extern "C" int __wrap_ioctl(int descriptor, unsigned long request, ...) {
    EXPECT_EQ(descriptor, Rtc::descriptor);
    EXPECT_EQ(request, 0x80247009U);
    Actions::add("read");
    if (Rtc::readResult == -1) {
        errno = EINVAL;
        return -1;
    }
    std::va_list arguments;
    va_start(arguments, request);
    auto* const record = va_arg(arguments, rtc_time*);
    Rtc::given = *record;
    *record = Rtc::record;
    va_end(arguments);
    return Rtc::readResult;
}

extern "C" int __real_close(int descriptor);
extern "C" int __wrap_close(int descriptor);
extern "C" int __wrap_close(int descriptor) {
    if (descriptor != Rtc::descriptor) {
        return __real_close(descriptor);
    }
    Actions::add("close");
    return 0;
}

extern "C" guint __wrap_g_timeout_add_seconds(guint seconds, GSourceFunc function, gpointer data);
extern "C" guint __wrap_g_timeout_add_seconds(guint seconds, GSourceFunc function, gpointer data) {
    timers[++lastTimer] = {function, data};
    Actions::add("timer every " + std::to_string(seconds));
    return lastTimer;
}

extern "C" gboolean __wrap_g_source_remove(guint id);
extern "C" gboolean __wrap_g_source_remove(guint id) {
    Actions::add("timer removed");
    EXPECT_EQ(timers.erase(id), 1U) << "there is no timer " << id;
    return TRUE;
}

namespace {

class TimeManagerTest : public testing::Test {
protected:
    TimeManagerTest() {
        // Whoever used local time would be found out.
        setenv("TZ", "FAR-13:45", 1);
        FakeVconf::reset();
        FakeStateManager::reset();
        FakeTime::reset();
        timers.clear();
        lastTimer = 0;
        Rtc::descriptor = Rtc::kDescriptor;
        Rtc::opens = true;
        Rtc::readResult = 0;
        Rtc::set(0);
        FakeVconf::setInt(kReason, 1);
        m_time.emplace(m_stateManager);
        m_made = Actions::take();
        FakeDlog::clear();
    }

    void terminate() {
        m_time->OnTerminate();
        forget();
    }

    static void forget() {
        Actions::take();
        FakeDlog::clear();
    }

    // Lets 30 seconds pass: the only timer there is runs. Returns whether it stays.
    static bool halfAMinutePasses() {
        EXPECT_EQ(timers.size(), 1U);
        const Timer timer = timers.begin()->second;
        return timer.function(timer.data) != FALSE;
    }

    // What the conversion gives for the hardware clock's record: its line says so.
    std::string converted() {
        FakeTime::now = 0;
        FakeDlog::clear();
        m_time->SyncTime();
        for (const std::string& message : FakeDlog::messages(kDebug)) {
            if (message.rfind("_time=", 0) == 0) {
                return message.substr(6, message.find(' ') - 6);
            }
        }
        return "none";
    }

    // Whether the two clocks, as they stand, start the service.
    bool startsService() {
        Actions::take();
        m_time->SyncTime();
        const std::vector<std::string> actions = Actions::take();
        return !actions.empty() && actions.back() == "StateManager::Notify 4 0 0 0";
    }

    TCZelDaemonStateManager m_stateManager;
    std::optional<TCTimeManager> m_time;
    std::vector<std::string> m_made;
};

}  // namespace

TEST_F(TimeManagerTest, ConstructionRegistersAndWatchesNothing) {
    EXPECT_THAT(m_made, ElementsAre("StateManager made", "StateManager::RegisterListener"));
    EXPECT_THAT(timers, IsEmpty());
}

TEST_F(TimeManagerTest, TerminationBeginsBothWatchesAndTheTimer) {
    m_time->OnTerminate();

    EXPECT_THAT(Actions::take(), ElementsAre("vconf_notify_key_changed memory/menu/network/set_time",
                                             "vconf_notify_key_changed db/menu/system/time/clock/clock_mode",
                                             "timer every 30"));
    EXPECT_THAT(FakeDlog::messages(kDebug), ElementsAre("called"));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("called"));
}

TEST_F(TimeManagerTest, AStartedServiceEndsBothWatchesAndTheTimer) {
    terminate();

    m_time->OnStart();

    EXPECT_THAT(Actions::take(), ElementsAre("vconf_ignore_key_changed memory/menu/network/set_time",
                                             "vconf_ignore_key_changed db/menu/system/time/clock/clock_mode",
                                             "timer removed"));
    EXPECT_THAT(FakeDlog::messages(kDebug), ElementsAre("called"));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("called"));
}

// Watches that are not there are ended all the same; a timer is removed only when there is one.
TEST_F(TimeManagerTest, AStartedServiceEndsBothWatchesAlsoWhenNothingWasWatched) {
    m_time->OnStart();

    EXPECT_THAT(Actions::take(),
                ElementsAre("vconf_ignore_key_changed memory/menu/network/set_time",
                            "vconf_ignore_key_changed db/menu/system/time/clock/clock_mode"));
}

TEST_F(TimeManagerTest, EveryStepIsLoggedBeforeItIsTaken) {
    FakeDlog::recordActions();

    m_time->OnTerminate();
    EXPECT_THAT(Actions::take(), ElementsAre("log OnTerminate: called", "log m_startMonitoring: called",
                                             "vconf_notify_key_changed memory/menu/network/set_time",
                                             "vconf_notify_key_changed db/menu/system/time/clock/clock_mode",
                                             "timer every 30"));

    FakeStateManager::notifyResult = false;
    FakeVconf::tellInt(kClockMode, 1);
    EXPECT_THAT(Actions::take(),
                ElementsAre("log ClockModeChangedCB: time vconf changed",
                            "log NetworkSyncTime: type : 3, val : 1", "StateManager::Notify 3 0 0 1",
                            "log m_notifyZelMain: ERROR: FAILED to start ZEL on startup"));

    m_time->OnStart();
    EXPECT_THAT(Actions::take(), ElementsAre("log OnStart: called", "log m_stopMonitoring: called",
                                             "vconf_ignore_key_changed memory/menu/network/set_time",
                                             "vconf_ignore_key_changed db/menu/system/time/clock/clock_mode",
                                             "timer removed"));
}

TEST_F(TimeManagerTest, WatchesAndTimerHaveTheManagerAsTheirUserData) {
    EXPECT_EQ(FakeStateManager::lastListener, &*m_time);

    m_time->OnTerminate();

    EXPECT_EQ(FakeVconf::userData(kSetTime), &*m_time);
    EXPECT_EQ(FakeVconf::userData(kClockMode), &*m_time);
    EXPECT_EQ(timers.begin()->second.data, &*m_time);
}

TEST_F(TimeManagerTest, TerminationTwiceReplacesTheTimerAndRegistersTheWatchesAgain) {
    terminate();

    m_time->OnTerminate();

    EXPECT_THAT(Actions::take(), ElementsAre("vconf_notify_key_changed memory/menu/network/set_time",
                                             "vconf_notify_key_changed db/menu/system/time/clock/clock_mode",
                                             "timer removed", "timer every 30"));
    EXPECT_EQ(timers.size(), 1U);
}

TEST_F(TimeManagerTest, ASuccessfulTerminationChangesNothing) {
    m_time->OnTerminateSuccess(TSZelData());

    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_THAT(FakeDlog::lines(), IsEmpty());
}

// All sequences of the three hooks up to six of them.
TEST_F(TimeManagerTest, InEveryOrderOfTheHooksOneTimerAndOneWatchEachRunExactlyWhileTerminated) {
    constexpr int kHooks = 3;
    for (int length = 1, sequences = kHooks; length <= 6; ++length, sequences *= kHooks) {
        for (int sequence = 0; sequence < sequences; ++sequence) {
            bool isWatching = false;
            for (int rest = sequence, i = 0; i < length; ++i, rest /= kHooks) {
                if (rest % kHooks == 0) {
                    m_time->OnStart();
                    isWatching = false;
                } else if (rest % kHooks == 1) {
                    m_time->OnTerminate();
                    isWatching = true;
                } else {
                    m_time->OnTerminateSuccess(TSZelData());
                }
                const std::size_t expected = isWatching ? 1 : 0;
                ASSERT_EQ(timers.size(), expected) << length << " " << sequence << " " << i;
                ASSERT_EQ(FakeVconf::watchers(kSetTime), expected);
                ASSERT_EQ(FakeVconf::watchers(kClockMode), expected);
            }
            m_time->OnStart();
            forget();
        }
    }
}

TEST_F(TimeManagerTest, AChangedNetworkTimeIsSentWithItsValue) {
    terminate();

    FakeVconf::tellInt(kSetTime, 17);

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::Notify 2 0 0 17"));
    EXPECT_THAT(FakeDlog::messages(kDebug), ElementsAre("time vconf changed", "type : 2, val : 17"));
}

TEST_F(TimeManagerTest, AChangedClockModeIsSentWithItsValue) {
    terminate();

    FakeVconf::tellInt(kClockMode, -3);

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::Notify 3 0 0 -3"));
    EXPECT_THAT(FakeDlog::messages(kDebug), ElementsAre("time vconf changed", "type : 3, val : -3"));
}

TEST_F(TimeManagerTest, ARemovedSettingIsSentAsMinusOne) {
    terminate();

    FakeVconf::tell(kSetTime, kSetTime);

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::Notify 2 0 0 -1"));
}

TEST_F(TimeManagerTest, CallsForNobodyAreLoggedAndTheTimerEnds) {
    terminate();
    const Timer timer = timers.begin()->second;

    FakeVconf::tellNobody(kSetTime);
    FakeVconf::tellNobody(kClockMode);
    EXPECT_FALSE(timer.function(nullptr));

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("timeManager object is NULL!", "timeManager object is NULL!",
                            "timeManager object is NULL!"));
    EXPECT_THAT(FakeDlog::messages(kDebug), ElementsAre("time vconf changed", "time vconf changed"));
    EXPECT_THAT(Actions::take(), IsEmpty());
}

TEST_F(TimeManagerTest, AFailedNotificationIsLoggedAndTheTimerStays) {
    terminate();
    FakeStateManager::notifyResult = false;
    FakeTime::now = 1000;

    FakeVconf::tellInt(kSetTime, 1);
    EXPECT_TRUE(halfAMinutePasses());

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("ERROR: FAILED to start ZEL on startup",
                                                        "ERROR: FAILED to start ZEL on startup"));
}

TEST_F(TimeManagerTest, EveryHalfMinuteTheClocksAreCompared) {
    terminate();
    FakeTime::now = 1000;
    Rtc::set(1003);
    EXPECT_TRUE(halfAMinutePasses());
    EXPECT_THAT(Actions::take(), ElementsAre("open /dev/rtc0", "read", "close"));

    Rtc::set(1004);
    EXPECT_TRUE(halfAMinutePasses());
    EXPECT_THAT(Actions::take(),
                ElementsAre("open /dev/rtc0", "read", "close", "StateManager::Notify 4 0 0 0"));
}

TEST_F(TimeManagerTest, AComparisonLogsEveryStep) {
    FakeTime::now = 1000;
    Rtc::set(1004);

    m_time->SyncTime();

    EXPECT_THAT(FakeDlog::messages(kDebug),
                ElementsAre("TCTimeManager::SyncTime", "get System Time UTC!", "UTC = 1000",
                            "UTC=1000, \033[1;36m settingReason: 1, ret: 1",
                            "_time=1004 rtc_tm.tm_year=70, rtc_tm.tm_mon=0, rtc_tm.tm_mday=1",
                            "UTC=1000, rtcTime=1004, sub=4", "SYNC_THRESHOLD"));
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
}

TEST_F(TimeManagerTest, MoreThanThreeSecondsInEitherDirectionStartTheService) {
    FakeTime::now = 1000;
    for (const int rtc : {996, 1004}) {
        Rtc::set(rtc);
        EXPECT_TRUE(startsService()) << rtc;
    }
    for (const int rtc : {997, 998, 1000, 1003}) {
        Rtc::set(rtc);
        EXPECT_FALSE(startsService()) << rtc;
    }
    EXPECT_EQ(FakeDlog::count(kDebug, "SYNC_THRESHOLD"), 2U);
}

TEST_F(TimeManagerTest, AReasonOfZeroLeavesTheHardwareClockAlone) {
    FakeVconf::setInt(kReason, 0);
    FakeTime::now = 1000;

    m_time->SyncTime();

    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_THAT(FakeDlog::messages(kDebug), Contains("UTC=1000, \033[1;36m settingReason: 0, ret: 1"));
}

TEST_F(TimeManagerTest, AnyOtherReasonComparesTheClocks) {
    for (const int reason : {-1, 2, INT_MAX}) {
        FakeVconf::setInt(kReason, reason);
        FakeTime::now = 1000;

        EXPECT_TRUE(startsService()) << reason;
    }
}

TEST_F(TimeManagerTest, AReasonThatCannotBeReadIsLoggedAsZeroAndLeavesTheHardwareClockAlone) {
    FakeVconf::breakInt(kReason, 5);
    FakeTime::now = 1000;

    m_time->SyncTime();

    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_THAT(FakeDlog::messages(kDebug), Contains("UTC=1000, \033[1;36m settingReason: 0, ret: 1"));
}

TEST_F(TimeManagerTest, OnlyANegativeResultIsAReasonThatCannotBeRead) {
    FakeVconf::breakInt(kReason, 5, 1);
    FakeTime::now = 1000;

    EXPECT_TRUE(startsService());
    EXPECT_THAT(FakeDlog::messages(kDebug), Contains("UTC=1000, \033[1;36m settingReason: 5, ret: 1"));
}

TEST_F(TimeManagerTest, ASystemTimeThatCannotBeReadIsLoggedAndLeavesTheHardwareClockAlone) {
    FakeTime::now = 1000;
    for (const int result : {-2, 1}) {
        FakeTime::result = result;
        FakeDlog::clear();

        m_time->SyncTime();

        EXPECT_THAT(Actions::take(), IsEmpty());
        EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("UTC! failed, ret=" + std::to_string(result)));
        // The last number is whether the system time was read, not whether the reason was.
        EXPECT_THAT(FakeDlog::messages(kDebug), ElementsAre("TCTimeManager::SyncTime", "get System Time UTC!",
                                                            "UTC=0, \033[1;36m settingReason: 1, ret: 0"));
    }
}

TEST_F(TimeManagerTest, AHardwareClockThatIsNotThereStartsNothing) {
    FakeTime::now = 1000;
    Rtc::opens = false;

    m_time->SyncTime();

    EXPECT_THAT(Actions::take(), ElementsAre("open /dev/rtc0"));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("/dev/rtc0 open fail"));
}

TEST_F(TimeManagerTest, AHardwareClockThatCannotBeReadIsClosedAndStartsNothing) {
    FakeTime::now = 1000;
    Rtc::readResult = -1;

    m_time->SyncTime();

    EXPECT_THAT(Actions::take(), ElementsAre("open /dev/rtc0", "read", "close"));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("/dev/rtc0 read fail"));
}

TEST_F(TimeManagerTest, TheRecordThatIsReadIntoIsZero) {
    Rtc::given.tm_mday = 1;

    m_time->SyncTime();

    const rtc_time zero{};
    EXPECT_EQ(std::memcmp(&Rtc::given, &zero, sizeof zero), 0);
}

TEST_F(TimeManagerTest, AReadThatReturnsAPositiveNumberIsNoFailure) {
    FakeTime::now = 1000;
    Rtc::set(1004);
    Rtc::readResult = 1;

    EXPECT_TRUE(startsService());
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
}

TEST_F(TimeManagerTest, TheDescriptorZeroIsReadAndClosedToo) {
    FakeTime::now = 1000;
    Rtc::descriptor = 0;

    m_time->SyncTime();

    EXPECT_THAT(Actions::take(),
                ElementsAre("open /dev/rtc0", "read", "close", "StateManager::Notify 4 0 0 0"));
}

TEST_F(TimeManagerTest, AMonthThatIsNoneCountsAsUnreadable) {
    FakeTime::now = 1000;
    for (const int month : {-1, 12, 13, INT_MAX, INT_MIN}) {
        Rtc::record.tm_mon = month;
        FakeDlog::clear();

        EXPECT_FALSE(startsService()) << month;
        EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("/dev/rtc0 read fail"));
    }
}

TEST_F(TimeManagerTest, TheHardwareClockIsOpenedToBeReadAndNotHandedOn) {
    m_time->SyncTime();

    EXPECT_EQ(Rtc::openFlags, O_RDONLY | O_CLOEXEC);
}

// Day by day, and as the C library has it, whose times end in 2038 where time_t has 32 bits.
TEST_F(TimeManagerTest, EveryDayFrom1970To2099IsConvertedAsTheCalendarHasIt) {
    constexpr std::int64_t kDayS = 86400;
    constexpr std::int64_t k2100 = 4102444800;
    rtc_time& date = Rtc::record;
    date = {};
    date.tm_year = 70;
    date.tm_mday = 1;
    for (std::int64_t day = 0; day < k2100; day += kDayS) {
        // Another second of each day, so that hours, minutes and seconds are gone through as well.
        const std::int64_t second = day / kDayS % kDayS * 7919 % kDayS;
        date.tm_hour = static_cast<int>(second / 3600);
        date.tm_min = static_cast<int>(second / 60 % 60);
        date.tm_sec = static_cast<int>(second % 60);

        ASSERT_EQ(converted(), std::to_string(day + second));
        if (day + second <= std::numeric_limits<std::time_t>::max()) {
            std::tm calendar{};
            calendar.tm_year = date.tm_year;
            calendar.tm_mon = date.tm_mon;
            calendar.tm_mday = date.tm_mday;
            calendar.tm_hour = date.tm_hour;
            calendar.tm_min = date.tm_min;
            calendar.tm_sec = date.tm_sec;
            ASSERT_EQ(timegm(&calendar), static_cast<std::time_t>(day + second));
        }

        toNextDay(date);
    }
    EXPECT_EQ(date.tm_year, 200);
    Actions::take();
}

TEST_F(TimeManagerTest, FromMarch2100TheConversionIsADayAhead) {
    rtc_time& record = Rtc::record;
    record = {};
    record.tm_year = 200;
    record.tm_mon = 1;
    record.tm_mday = 28;
    EXPECT_EQ(converted(), "4107456000");
    record.tm_mon = 2;
    record.tm_mday = 1;
    // A day after 4107542400, which it is.
    EXPECT_EQ(converted(), "4107628800");
    record.tm_year = 201;
    record.tm_mon = 0;
    // A day after 4133980800.
    EXPECT_EQ(converted(), "4134067200");
}

TEST_F(TimeManagerTest, TheLeapDayOf2024IsCounted) {
    Rtc::record.tm_year = 124;
    Rtc::record.tm_mon = 2;
    Rtc::record.tm_mday = 1;

    EXPECT_EQ(converted(), std::to_string(19783L * 86400));
}

TEST_F(TimeManagerTest, FromTheYear2100OnTheHardwareClockForcesTheStart) {
    Rtc::record = {};
    Rtc::record.tm_year = 200;
    Rtc::record.tm_mday = 1;
    FakeTime::now = static_cast<std::time_t>(4102444799);  // a negative time where that has 32 bits
    EXPECT_TRUE(startsService());
    EXPECT_THAT(FakeDlog::messages(kDebug),
                Contains("rtcTime is over Max time, set default time[=> rtcTime=4102444800]"));
    EXPECT_THAT(FakeDlog::messages(kDebug), Not(Contains("SYNC_THRESHOLD")));

    Rtc::record.tm_year = 199;
    Rtc::record.tm_mon = 11;
    Rtc::record.tm_mday = 31;
    Rtc::record.tm_hour = 23;
    Rtc::record.tm_min = 59;
    Rtc::record.tm_sec = 59;
    FakeDlog::clear();
    EXPECT_FALSE(startsService());
    EXPECT_THAT(FakeDlog::messages(kDebug), Contains("UTC=4102444799, rtcTime=4102444799, sub=0"));
}

// 32 bits end on 2106-02-07 at 06:28:15, which the conversion takes for a day later.
TEST_F(TimeManagerTest, ARtcBeyond32BitsWrapsAroundAndIsNoLongerOutOfRange) {
    Rtc::record = {};
    Rtc::record.tm_year = 206;
    Rtc::record.tm_mon = 1;
    Rtc::record.tm_mday = 6;
    Rtc::record.tm_hour = 6;
    Rtc::record.tm_min = 28;
    Rtc::record.tm_sec = 15;
    EXPECT_EQ(converted(), "4294967295");

    Rtc::record.tm_sec = 16;
    EXPECT_EQ(converted(), "0");
    EXPECT_FALSE(startsService());
}

TEST_F(TimeManagerTest, ARtcBefore1970WrapsAroundAndIsOutOfRange) {
    Rtc::record = {};
    Rtc::record.tm_year = 69;
    Rtc::record.tm_mon = 11;
    Rtc::record.tm_mday = 31;
    Rtc::record.tm_hour = 23;
    Rtc::record.tm_min = 59;
    Rtc::record.tm_sec = 59;

    EXPECT_EQ(converted(), "4294967295");
    EXPECT_TRUE(startsService());
}

TEST_F(TimeManagerTest, ASystemTimeBeyond32BitsWrapsAround) {
    // Where time_t has 32 bits, it has wrapped before it came here.
    FakeTime::now = static_cast<std::time_t>((std::int64_t{1} << 32) + 1000);
    Rtc::set(1000);

    EXPECT_FALSE(startsService());
    EXPECT_THAT(FakeDlog::messages(kDebug), Contains("UTC=1000, rtcTime=1000, sub=0"));
}

// The difference is a signed one of 32 bits.
TEST_F(TimeManagerTest, ClocksHalfTheRangeApartHaveTheLargestDifferenceAndMoreWrapsAround) {
    FakeTime::now = 0;
    Rtc::set(2147483647);
    EXPECT_TRUE(startsService());
    EXPECT_THAT(FakeDlog::messages(kDebug), Contains("UTC=0, rtcTime=2147483647, sub=2147483647"));

    Rtc::record.tm_sec += 1;
    EXPECT_TRUE(startsService());
    EXPECT_THAT(FakeDlog::messages(kDebug), Contains("UTC=0, rtcTime=2147483648, sub=2147483648"));

    Rtc::record.tm_sec += 1;
    EXPECT_TRUE(startsService());
    EXPECT_THAT(FakeDlog::messages(kDebug), Contains("UTC=0, rtcTime=2147483649, sub=2147483647"));
}

TEST_F(TimeManagerTest, RecordsThatAreNoTimeAreConvertedWithoutHarm) {
    for (const int rubbish : {INT_MIN, -1, INT_MAX}) {
        Rtc::record = {};
        Rtc::record.tm_year = rubbish;
        EXPECT_NE(converted(), "none");
        Rtc::record.tm_mday = Rtc::record.tm_hour = Rtc::record.tm_min = Rtc::record.tm_sec = rubbish;
        EXPECT_NE(converted(), "none");
    }
}

TEST_F(TimeManagerTest, DestructionEndsTheWatchesThenUnregisters) {
    terminate();

    m_time.reset();

    EXPECT_THAT(Actions::take(), ElementsAre("vconf_ignore_key_changed memory/menu/network/set_time",
                                             "vconf_ignore_key_changed db/menu/system/time/clock/clock_mode",
                                             "timer removed", "StateManager::UnregisterListener"));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("called"));
}
