// SPDX-License-Identifier: Apache-2.0
// Timers: what is asked of systemd, and what is told.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <tvtimer.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "TimerSystemd.h"
#include "support/BusCallSpy.h"
#include "support/Contended.h"
#include "support/PrivateBus.h"
#include "support/Record.h"
#include "support/StderrPackets.h"
#include "support/Wait.h"

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Le;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

// Stand before the clock and the waiting of the library: a test may let time pass at once, for all threads
// but its own.
std::chrono::steady_clock::time_point realNow() asm("__real__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point advancedNow() asm("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
extern "C" int __real_poll(pollfd* polled, nfds_t count, int milliseconds);
extern "C" int __wrap_poll(pollfd* polled, nfds_t count, int milliseconds);

namespace {

std::atomic<bool> g_timePasses{false};
std::atomic<int> g_millisecondsPassed{0};
const std::thread::id g_testThread = std::this_thread::get_id();

}  // namespace

std::chrono::steady_clock::time_point advancedNow() {
    const bool isTest = std::this_thread::get_id() == g_testThread;
    return realNow() + std::chrono::milliseconds(isTest ? 0 : g_millisecondsPassed.load());
}

// While time passes, a wait of some seconds in which nothing happens at once is over at once.
int __wrap_poll(pollfd* polled, nfds_t count, int milliseconds) {
    constexpr int kLongWait = 1000;
    if (!g_timePasses || milliseconds < kLongWait) {
        return __real_poll(polled, count, milliseconds);
    }
    const int ready = __real_poll(polled, count, 0);
    g_millisecondsPassed += ready == 0 ? milliseconds : 0;
    return ready;
}

namespace {

// 2 o'clock on a day of 2030.
tm someDate() {
    tm date{};
    date.tm_year = 130;
    date.tm_mon = 1;
    date.tm_mday = 3;
    date.tm_hour = 2;
    return date;
}

// Notes "set" or "not set", keeps the id, and does what the test wants.
struct Waiter {
    Record record;
    std::atomic<int> id{0};
    std::atomic<std::thread::id> thread;
    std::function<void()> inside;
};

void tell(tvtimer_info_s* info, void* userData) {
    auto* waiter = static_cast<Waiter*>(userData);
    waiter->thread = std::this_thread::get_id();
    int id = 0;
    if (tvtimer_get_id(info, &id) == 0) {
        waiter->id = id;
    }
    tvtimer_free(info);
    if (waiter->inside) {
        waiter->inside();
    }
    waiter->record.add(info == nullptr ? "not set" : "set");
}

int schedule(Waiter& waiter, const tm& date = someDate()) {
    return tvtimer_schedule_timer_at_date_async(6, date, 127, 0, tell, &waiter);
}

class TvtimerTest : public ::testing::Test {
protected:
    ~TvtimerTest() override {
        g_timePasses = false;
        BusCallSpy::set(nullptr);
    }

    // Schedules and waits to be told. Gives the id, or 0 when the timer is not set.
    static int set(const tm& date = someDate()) {
        Waiter waiter;
        EXPECT_EQ(schedule(waiter, date), 0);
        EXPECT_TRUE(becomesTrue([&waiter] { return !waiter.record.events().empty(); }));
        return waiter.id;
    }

    TimerSystemd& systemd() { return *m_systemd; }
    void removeSystemd() { m_systemd.reset(); }
    void useSystemd(const std::string& startSignature) {
        m_systemd.reset();
        m_systemd.emplace(startSignature);
    }

    // The units that were asked to start, in order.
    std::vector<std::string> started() { return requestsWith("StartTransientUnit "); }
    std::vector<std::string> stopped() { return requestsWith("StopUnit "); }

    bool comesToRequest(const std::string& request) {
        return becomesTrue([&] {
            const auto requests = m_systemd->requests();
            return std::find(requests.begin(), requests.end(), request) != requests.end();
        });
    }

    PrivateBus& bus() { return m_bus; }

private:
    std::vector<std::string> requestsWith(const std::string& begin) {
        std::vector<std::string> found;
        for (const std::string& request : m_systemd->requests()) {
            if (request.rfind(begin, 0) == 0) {
                found.push_back(request.substr(begin.size()));
            }
        }
        return found;
    }

    PrivateBus m_bus;
    std::optional<TimerSystemd> m_systemd{std::in_place};
};

std::string timerUnit(int id) {
    return "zel-tvtimer-" + std::to_string(id) + ".timer";
}

TEST_F(TvtimerTest, ATimerIsATransientUnitThatWakesTheMachineAtTheDate) {
    const int id = set();

    ASSERT_EQ(systemd().starts().size(), 1U);
    const StartRequest request = systemd().starts()[0];
    EXPECT_EQ(request.unit, timerUnit(id));
    EXPECT_EQ(request.mode, "fail");
    EXPECT_THAT(request.properties,
                UnorderedElementsAre(Pair("Description", "Timer for 2030-02-03 02:00:00 UTC"),
                                     Pair("TimersCalendar", "OnCalendar=2030-02-03 02:00:00 UTC"),
                                     Pair("AccuracyUSec", "1000000"), Pair("WakeSystem", "true"),
                                     Pair("CollectMode", "inactive-or-failed")));
    EXPECT_THAT(stopped(), IsEmpty());
}

TEST_F(TvtimerTest, ItsServiceOfThatNameDoesNothing) {
    const int id = set();

    ASSERT_EQ(systemd().starts().size(), 1U);
    const StartRequest request = systemd().starts()[0];
    EXPECT_EQ(request.service, "zel-tvtimer-" + std::to_string(id) + ".service");
    EXPECT_THAT(request.serviceProperties,
                UnorderedElementsAre(Pair("Description", "Awake at 2030-02-03 02:00:00 UTC"),
                                     Pair("Type", "oneshot"), Pair("ExecStart", "/bin/true as /bin/true"),
                                     Pair("CollectMode", "inactive-or-failed")));
}

TEST_F(TvtimerTest, AnIdIsAboveZeroAndOfOneTimer) {
    const int one = set();
    const int two = set();

    EXPECT_GT(one, 0);
    EXPECT_GT(two, 0);
    EXPECT_NE(one, two);
}

TEST_F(TvtimerTest, EveryFieldOfTheDateCounts) {
    tm date{};
    date.tm_year = 124;
    date.tm_mon = 1;
    date.tm_mday = 29;
    date.tm_hour = 23;
    date.tm_min = 58;
    date.tm_sec = 59;

    set(date);

    EXPECT_EQ(systemd().starts().at(0).properties["TimersCalendar"], "OnCalendar=2024-02-29 23:58:59 UTC");
}

TEST_F(TvtimerTest, WeekdayDayOfTheYearAndDaylightSavingDoNotCount) {
    tm date = someDate();
    date.tm_wday = 9;
    date.tm_yday = 999;
    date.tm_isdst = 1;

    set(date);

    EXPECT_EQ(systemd().starts().at(0).properties["TimersCalendar"], "OnCalendar=2030-02-03 02:00:00 UTC");
}

TEST_F(TvtimerTest, ADateInThePastIsAcceptedAsItStands) {
    tm date = someDate();
    date.tm_year = 70;

    EXPECT_GT(set(date), 0);

    EXPECT_EQ(systemd().starts().at(0).properties["TimersCalendar"], "OnCalendar=1970-02-03 02:00:00 UTC");
}

struct Wrong {
    const char* what;
    int tm::*field;
    int value;
};

TEST_F(TvtimerTest, ADateThatDoesNotExistIsRefusedAndLogged) {
    constexpr Wrong kWrongs[] = {
        {"second", &tm::tm_sec, 60}, {"minute", &tm::tm_min, -1},  {"hour", &tm::tm_hour, 24},
        {"day", &tm::tm_mday, 0},    {"29 Feb", &tm::tm_mday, 29}, {"month", &tm::tm_mon, 12},
        {"1969", &tm::tm_year, 69},  {"2200", &tm::tm_year, 300},  {"overflow", &tm::tm_year, 2147483647},
    };
    for (const Wrong& wrong : kWrongs) {
        Waiter waiter;
        tm date = someDate();
        date.*wrong.field = wrong.value;
        StderrPackets packets;

        EXPECT_EQ(schedule(waiter, date), -EINVAL) << wrong.what;

        EXPECT_THAT(packets.next().value_or("nothing"), HasSubstr("a date that does not exist"))
            << wrong.what;
    }
    const int id = set();
    EXPECT_THAT(started(), ElementsAre(timerUnit(id)));
}

TEST_F(TvtimerTest, OtherKindsOfTimersAreRefusedAndLogged) {
    Waiter waiter;
    StderrPackets packets;

    EXPECT_EQ(tvtimer_schedule_timer_at_date_async(5, someDate(), 127, 0, tell, &waiter), -EINVAL);
    EXPECT_THAT(packets.next().value_or("nothing"), HasSubstr("type 5, weekdays 127 and flags 0"));
    EXPECT_EQ(tvtimer_schedule_timer_at_date_async(6, someDate(), 126, 0, tell, &waiter), -EINVAL);
    EXPECT_THAT(packets.next().value_or("nothing"), HasSubstr("type 6, weekdays 126 and flags 0"));
    EXPECT_EQ(tvtimer_schedule_timer_at_date_async(6, someDate(), 127, 1, tell, &waiter), -EINVAL);
    EXPECT_THAT(packets.next().value_or("nothing"), HasSubstr("type 6, weekdays 127 and flags 1"));
    EXPECT_EQ(tvtimer_schedule_timer_at_date_async(6, someDate(), 127, 0, nullptr, &waiter), -EINVAL);
    EXPECT_THAT(packets.next().value_or("nothing"), HasSubstr("nobody to tell"));

    const int id = set();
    EXPECT_THAT(started(), ElementsAre(timerUnit(id)));
}

TEST_F(TvtimerTest, ItIsToldWhenTheJobHasEndedAndNotBefore) {
    systemd().nextStarts({Start::kQueued});
    Waiter waiter;
    schedule(waiter);
    ASSERT_TRUE(becomesTrue([this] { return started().size() == 1; }));

    systemd().endJob("/org/freedesktop/systemd1/job/9999", "done");
    // Who has read two more signals, one after the other, still waits.
    StderrPackets packets;
    for (int round = 0; round < 2; ++round) {
        systemd().endJobUnreadably();
        ASSERT_THAT(packets.await().value_or("nothing"), HasSubstr("JobRemoved could not be read"));
    }
    EXPECT_THAT(waiter.record.events(), IsEmpty());
    waiter.record.add("its job ends");
    systemd().endJob(systemd().lastJob(), "done");

    EXPECT_TRUE(waiter.record.waitFor("set"));
    EXPECT_THAT(waiter.record.events(), ElementsAre("its job ends", "set"));
}

TEST_F(TvtimerTest, AJobThatEndsBeforeItsRequestIsAnsweredCounts) {
    systemd().nextStarts({Start::kDoneBeforeAnswer});

    EXPECT_GT(set(), 0);

    EXPECT_EQ(started().size(), 1U);
}

TEST_F(TvtimerTest, ItIsToldByAThreadOfTheLibrary) {
    Waiter waiter;

    schedule(waiter);

    EXPECT_TRUE(waiter.record.waitFor("set"));
    EXPECT_NE(waiter.thread.load(), std::this_thread::get_id());
}

TEST_F(TvtimerTest, SchedulingWaitsForNobody) {
    systemd().nextStarts({Start::kQueued});
    Waiter first;
    Waiter second;

    schedule(first);
    ASSERT_TRUE(becomesTrue([this] { return started().size() == 1; }));
    schedule(second);
    tvtimer_cancel_timer_by_id_async(77);
    EXPECT_THAT(first.record.events(), IsEmpty());
    systemd().endJob(systemd().lastJob(), "done");

    EXPECT_TRUE(first.record.waitFor("set"));
    EXPECT_TRUE(second.record.waitFor("set"));
    EXPECT_TRUE(comesToRequest("StopUnit zel-tvtimer-77.timer replace"));
}

TEST_F(TvtimerTest, SystemdIsAskedInTheOrderOfTheCalls) {
    Waiter waiter;

    tvtimer_cancel_timer_by_id_async(77);
    schedule(waiter);
    EXPECT_TRUE(waiter.record.waitFor("set"));
    tvtimer_cancel_timer_by_id_async(waiter.id);
    EXPECT_TRUE(comesToRequest("StopUnit " + timerUnit(waiter.id) + " replace"));

    EXPECT_THAT(systemd().requests(),
                ElementsAre("Subscribe", "StopUnit zel-tvtimer-77.timer replace", "Subscribe",
                            "StartTransientUnit " + timerUnit(waiter.id), "Subscribe",
                            "StopUnit " + timerUnit(waiter.id) + " replace"));
}

TEST_F(TvtimerTest, WhereWakingTheMachineFailsATimerThatDoesNotIsStarted) {
    systemd().nextStarts({Start::kFailed});
    StderrPackets packets;

    const int id = set();

    const std::vector<StartRequest> starts = systemd().starts();
    ASSERT_EQ(starts.size(), 2U);
    EXPECT_EQ(starts[1].unit, timerUnit(id));
    EXPECT_EQ(starts[1].properties.at("WakeSystem"), "false");
    EXPECT_EQ(starts[1].properties.at("TimersCalendar"), "OnCalendar=2030-02-03 02:00:00 UTC");
    EXPECT_THAT(packets.next().value_or("nothing"), HasSubstr("its job ended as 'failed'"));
    EXPECT_THAT(stopped(), ElementsAre(starts[0].unit + " replace"));
}

TEST_F(TvtimerTest, WhereWakingTheMachineIsRefusedATimerThatDoesNotIsStarted) {
    systemd().nextStarts({Start::kRefused});

    const int id = set();

    ASSERT_EQ(systemd().starts().size(), 2U);
    EXPECT_EQ(systemd().starts()[1].unit, timerUnit(id));
    EXPECT_EQ(systemd().starts()[1].properties.at("WakeSystem"), "false");
}

TEST_F(TvtimerTest, ATimerThatCannotBeStartedEitherWayIsToldAndLogged) {
    systemd().nextStarts({Start::kFailed, Start::kFailed});
    StderrPackets packets;

    EXPECT_EQ(set(), 0);

    EXPECT_EQ(started().size(), 2U);
    packets.next();
    EXPECT_THAT(packets.next().value_or("nothing"),
                AllOf(HasSubstr("E/TVTIMER"), HasSubstr("no timer is set for 2030-02-03 02:00:00 UTC")));
}

TEST_F(TvtimerTest, AnIdThatAUnitHasIsNotGiven) {
    systemd().nextStarts({Start::kExists, Start::kExists});

    const int id = set();

    const std::vector<StartRequest> starts = systemd().starts();
    ASSERT_EQ(starts.size(), 3U);
    EXPECT_EQ(starts[2].unit, timerUnit(id));
    EXPECT_EQ(starts[2].properties.at("WakeSystem"), "true");
    EXPECT_NE(starts[0].unit, starts[2].unit);
    EXPECT_NE(starts[1].unit, starts[2].unit);
    EXPECT_THAT(stopped(), IsEmpty());
}

TEST_F(TvtimerTest, WhereEveryIdIsTakenTheSearchEnds) {
    systemd().nextStarts(std::deque<Start>(1000, Start::kExists));

    EXPECT_EQ(set(), 0);

    EXPECT_THAT(stopped(), IsEmpty());
}

TEST_F(TvtimerTest, AJobThatDoesNotEndIsGivenUpAfterTenSecondsAndItsUnitStopped) {
    systemd().nextStarts({Start::kQueued});
    StderrPackets packets;
    const int before = g_millisecondsPassed;
    g_timePasses = true;

    EXPECT_EQ(set(), 0);

    EXPECT_NEAR(g_millisecondsPassed - before, 10000, 500);
    EXPECT_THAT(packets.next().value_or("nothing"), HasSubstr("its job did not end"));
    EXPECT_EQ(started().size(), 1U);
    EXPECT_TRUE(comesToRequest("StopUnit " + started().at(0) + " replace"));
}

TEST_F(TvtimerTest, ASystemdThatDoesNotAnswerIsGivenUpAfterTenSecondsAndTheUnitStopped) {
    systemd().nextStarts({Start::kSilence, Start::kSilence});
    std::vector<std::uint64_t> limits;
    BusCallSpy::set([&limits](BusCallSpy::Call& call) {
        if (call.member == "StartTransientUnit") {
            limits.push_back(call.microseconds);
            call.microseconds = 1000;
        }
    });

    EXPECT_EQ(set(), 0);

    EXPECT_THAT(limits, ElementsAre(Le(10000000U), Le(10000000U)));
    for (const std::string& unit : started()) {
        EXPECT_TRUE(comesToRequest("StopUnit " + unit + " replace"));
    }
}

TEST_F(TvtimerTest, AnAnswerThatIsNoJobIsAFailureAndTheUnitIsStopped) {
    useSystemd("s");
    systemd().nextStarts({Start::kText, Start::kText});
    StderrPackets packets;

    EXPECT_EQ(set(), 0);

    EXPECT_THAT(packets.next().value_or("nothing"), HasSubstr("Failed to deserialize"));
    for (const std::string& unit : started()) {
        EXPECT_TRUE(comesToRequest("StopUnit " + unit + " replace"));
    }
}

TEST_F(TvtimerTest, AnEndThatCannotBeReadIsLoggedAndIgnored) {
    systemd().nextStarts({Start::kQueued});
    StderrPackets packets;
    Waiter waiter;
    schedule(waiter);
    ASSERT_TRUE(becomesTrue([this] { return started().size() == 1; }));

    systemd().endJobUnreadably();
    EXPECT_THAT(packets.await().value_or("nothing"), HasSubstr("JobRemoved could not be read"));
    systemd().endJob(systemd().lastJob(), "done");

    EXPECT_TRUE(waiter.record.waitFor("set"));
}

TEST_F(TvtimerTest, TheConnectionOfARequestOwnsTheTimersName) {
    systemd().nextStarts({Start::kQueued});
    Waiter waiter;
    schedule(waiter);
    ASSERT_TRUE(becomesTrue([this] { return started().size() == 1; }));
    std::string owner;
    const auto connection = sdbus::createSystemBusConnection();

    sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus")
        ->callMethod("GetNameOwner")
        .onInterface("org.freedesktop.DBus")
        .withArguments("com.brenlow.ZELLite.Timer")
        .storeResultsTo(owner);

    EXPECT_EQ(owner, systemd().client());
    systemd().endJob(systemd().lastJob(), "done");
    EXPECT_TRUE(waiter.record.waitFor("set"));
}

TEST_F(TvtimerTest, WithTheNameTakenATimerIsSetAndTheRequestWaitsForTheName) {
    const auto other = sdbus::createSystemBusConnection("com.brenlow.ZELLite.Timer");
    systemd().nextStarts({Start::kQueued});
    Waiter waiter;
    schedule(waiter);
    ASSERT_TRUE(becomesTrue([this] { return started().size() == 1; }));
    std::vector<std::string> queued;

    sdbus::createProxy(*other, "org.freedesktop.DBus", "/org/freedesktop/DBus")
        ->callMethod("ListQueuedOwners")
        .onInterface("org.freedesktop.DBus")
        .withArguments("com.brenlow.ZELLite.Timer")
        .storeResultsTo(queued);

    EXPECT_THAT(queued, ElementsAre(other->getUniqueName(), systemd().client()));
    systemd().endJob(systemd().lastJob(), "done");
    EXPECT_TRUE(waiter.record.waitFor("set"));
}

// Ends a job as only systemd may; to everybody, or to one. Returns when the bus has it.
void forgeEnd(const std::string& job, const std::string& destination) {
    const auto connection = sdbus::createSystemBusConnection();
    const auto object = sdbus::createObject(*connection, "/org/freedesktop/systemd1");
    sdbus::Signal signal = object->createSignal("org.freedesktop.systemd1.Manager", "JobRemoved");
    signal << std::uint32_t{7} << sdbus::ObjectPath(job) << "a unit"
           << "failed";
    if (!destination.empty()) {
        signal.setDestination(destination);
    }
    signal.send();
    std::string id;
    sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus")
        ->callMethod("GetId")
        .onInterface("org.freedesktop.DBus")
        .storeResultsTo(id);
}

TEST_F(TvtimerTest, OnlySystemdIsBelieved) {
    systemd().nextStarts({Start::kQueued});
    Waiter waiter;
    schedule(waiter);
    ASSERT_TRUE(becomesTrue([this] { return started().size() == 1; }));

    forgeEnd(systemd().lastJob(), "");
    forgeEnd(systemd().lastJob(), systemd().client());
    systemd().endJob(systemd().lastJob(), "done");

    EXPECT_TRUE(waiter.record.waitFor("set"));
    EXPECT_EQ(started().size(), 1U);
}

TEST_F(TvtimerTest, WithoutSystemdATimerIsNotSet) {
    removeSystemd();
    StderrPackets packets;

    EXPECT_EQ(set(), 0);

    EXPECT_THAT(packets.next().value_or("nothing"), HasSubstr("no timer is set for"));
}

TEST_F(TvtimerTest, WithoutABusATimerIsNotSetAndWithOneAgainItIs) {
    removeSystemd();
    bus().stop();
    EXPECT_EQ(set(), 0);

    bus().start();
    useSystemd("o");

    EXPECT_GT(set(), 0);
}

TEST_F(TvtimerTest, ABusThatIsLostMeanwhileIsAFailure) {
    systemd().nextStarts({Start::kQueued});
    Waiter waiter;
    schedule(waiter);
    ASSERT_TRUE(becomesTrue([this] { return started().size() == 1; }));

    removeSystemd();
    bus().stop();

    EXPECT_TRUE(waiter.record.waitFor("not set"));
}

TEST_F(TvtimerTest, CancellingStopsTheUnitWhoeverStartedIt) {
    EXPECT_EQ(tvtimer_cancel_timer_by_id_async(2147483647), 0);

    EXPECT_TRUE(comesToRequest("StopUnit zel-tvtimer-2147483647.timer replace"));
}

TEST_F(TvtimerTest, CancellingATimerThatIsNotThereIsNoError) {
    systemd().refuseStops("org.freedesktop.systemd1.NoSuchUnit");
    StderrPackets packets;

    EXPECT_EQ(tvtimer_cancel_timer_by_id_async(5), 0);

    EXPECT_THAT(packets.await().value_or("nothing"),
                AllOf(HasSubstr("I/TVTIMER"), HasSubstr("timer 5 is not there")));
}

TEST_F(TvtimerTest, ACancellationThatFailsIsLogged) {
    systemd().refuseStops("org.freedesktop.DBus.Error.AccessDenied");
    StderrPackets packets;

    EXPECT_EQ(tvtimer_cancel_timer_by_id_async(5), 0);

    EXPECT_THAT(packets.await().value_or("nothing"),
                AllOf(HasSubstr("E/TVTIMER"), HasSubstr("timer 5 may still go off")));
}

TEST_F(TvtimerTest, AnIdThatNoTimerHasIsRefusedAndLogged) {
    StderrPackets packets;

    EXPECT_EQ(tvtimer_cancel_timer_by_id_async(0), -EINVAL);
    EXPECT_THAT(packets.next().value_or("nothing"), HasSubstr("no timer has the id 0"));
    EXPECT_EQ(tvtimer_cancel_timer_by_id_async(-1), -EINVAL);
    EXPECT_THAT(packets.next().value_or("nothing"), HasSubstr("no timer has the id -1"));
    set();

    EXPECT_THAT(stopped(), IsEmpty());
}

TEST_F(TvtimerTest, ACallbackMayScheduleAndCancel) {
    Waiter second;
    Waiter first;
    first.inside = [&] {
        tvtimer_cancel_timer_by_id_async(first.id);
        schedule(second);
    };

    schedule(first);

    EXPECT_TRUE(second.record.waitFor("set"));
    EXPECT_THAT(stopped(), ElementsAre(timerUnit(first.id) + " replace"));
}

TEST_F(TvtimerTest, NothingIsKnownOfNoTimer) {
    int id = 42;

    EXPECT_EQ(tvtimer_get_id(nullptr, &id), -EINVAL);
    tvtimer_free(nullptr);

    EXPECT_EQ(id, 42);
}

TEST_F(TvtimerTest, AnIdNeedsAPlace) {
    std::atomic<int> result{0};

    tvtimer_schedule_timer_at_date_async(
        6, someDate(), 127, 0,
        [](tvtimer_info_s* info, void* out) {
            *static_cast<std::atomic<int>*>(out) = tvtimer_get_id(info, nullptr);
            tvtimer_free(info);
        },
        &result);

    EXPECT_TRUE(becomesTrue([&result] { return result == -EINVAL; }));
}

TEST_F(TvtimerTest, ThreadsMayScheduleAtTheSameTime) {
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kRounds = 10;
    std::vector<std::vector<int>> ids(kThreads);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);

    for (std::vector<int>& own : ids) {
        threads.emplace_back([&own] {
            for (std::size_t round = 0; round < kRounds; ++round) {
                own.push_back(set());
                tvtimer_cancel_timer_by_id_async(own.back());
            }
        });
    }
    std::set<int> all;
    for (std::size_t thread = 0; thread < kThreads; ++thread) {
        threads[thread].join();
        all.insert(ids[thread].begin(), ids[thread].end());
    }

    EXPECT_EQ(all.size(), kThreads * kRounds);
    EXPECT_EQ(all.count(0), 0U);
}

TEST_F(TvtimerTest, SchedulingAndCancellingNeverWaitForARunningCallback) {
    constexpr int kRounds = 50;
    Contended contended;
    Waiter waiter;
    waiter.inside = [&contended] { contended.visit(); };
    Waiter other;

    for (int round = 0; round < kRounds; ++round) {
        ASSERT_TRUE(contended.changeDuringVisit([&waiter] { schedule(waiter); },
                                                [&other] {
                                                    EXPECT_EQ(schedule(other), 0);
                                                    EXPECT_EQ(tvtimer_cancel_timer_by_id_async(5), 0);
                                                }))
            << "in round " << round;
    }

    EXPECT_TRUE(becomesTrue([&other] { return other.record.events().size() == kRounds; }));
}

std::set<std::string> inheritedDescriptors() {
    std::set<std::string> inherited;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const std::string number = entry.path().filename();
        const int flags = fcntl(std::stoi(number), F_GETFD);
        if (flags >= 0 && (flags & FD_CLOEXEC) == 0) {
            inherited.insert(number);
        }
    }
    return inherited;
}

TEST_F(TvtimerTest, NoDescriptorIsInheritedByOtherPrograms) {
    const std::set<std::string> before = inheritedDescriptors();
    systemd().nextStarts({Start::kQueued});
    Waiter waiter;
    schedule(waiter);
    ASSERT_TRUE(becomesTrue([this] { return started().size() == 1; }));

    EXPECT_EQ(inheritedDescriptors(), before);

    systemd().endJob(systemd().lastJob(), "done");
    EXPECT_TRUE(waiter.record.waitFor("set"));
}

}  // namespace
