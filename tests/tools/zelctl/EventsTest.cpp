// SPDX-License-Identifier: Apache-2.0
#include "Events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TriggerTypes.h"
#include "ZelDaemonStateManager.h"

namespace zelctl {
namespace {

using ::testing::ElementsAre;

std::string textOf(const std::string& message) {
    const std::optional<Event> event = parseEvent(message);
    return event ? eventText(*event) : "nothing";
}

TEST(EventsTest, ATriggerTellsWhatIsDoneForIt) {
    const std::string begin = "ZelDaemonStateManager.cpp: Notify(201) > ZEL Daemon Notify, ";

    EXPECT_EQ(textOf(begin + "startZEL(1), sendNotifyCall(1), informListeners(1), m_zelState(3), trigger(1)"),
              "trigger 1 (start): the service was terminated, is started and told");
    EXPECT_EQ(textOf(begin + "startZEL(0), sendNotifyCall(1), informListeners(0), m_zelState(1), trigger(5)"),
              "trigger 5 (stolen-television changed): the service runs and is told");
    EXPECT_EQ(textOf(begin + "startZEL(0), sendNotifyCall(0), informListeners(0), m_zelState(1), trigger(1)"),
              "trigger 1 (start): the service runs, nothing to do");
    EXPECT_EQ(
        textOf(begin + "startZEL(1), sendNotifyCall(1), informListeners(1), m_zelState(9), trigger(-7)"),
        "trigger -7 (unknown trigger -7): the service was unknown state 9, is started and told");
}

TEST(EventsTest, EveryTriggerAndEveryStateOfTheDaemonHasItsName) {
    EXPECT_EQ(triggerName("0"), "input plugged or unplugged");
    EXPECT_EQ(triggerName("1"), "start");
    EXPECT_EQ(triggerName("2"), "network time changed");
    EXPECT_EQ(triggerName("3"), "clock mode changed");
    EXPECT_EQ(triggerName("4"), "sync time");
    EXPECT_EQ(triggerName(std::to_string(TRIGGER_TYPE_STOLEN_TV)), "stolen-television changed");
    EXPECT_EQ(triggerName(std::to_string(TRIGGER_TYPE_STOLEN_TV + 1)), "unknown trigger 6");
    EXPECT_EQ(stateName("0"), "undefined");
    EXPECT_EQ(stateName("1"), "running");
    EXPECT_EQ(stateName("2"), "running uninitialized");
    EXPECT_EQ(stateName("3"), "terminated");
    EXPECT_EQ(stateName(std::to_string(STATE_UNDEFINED_AFTER_TERMINATE)), "undefined after terminate");
    EXPECT_EQ(stateName(std::to_string(STATE_UNDEFINED_AFTER_TERMINATE + 1)), "unknown state 5");
}

TEST(EventsTest, EveryLineThatCountsIsUnderstood) {
    EXPECT_EQ(textOf("ZelDaemonStateManager.cpp: TCZelDaemonStateManager(188) > First boot up"),
              "the daemon has started, for the first time since boot");
    EXPECT_EQ(textOf("ZelDaemonStateManager.cpp: TCZelDaemonStateManager(192) > ZEL was running before"),
              "the daemon has started again and takes the service for running");
    EXPECT_EQ(textOf("ZelDaemonStateManager.cpp: Notify(237) > Starting ZEL Failed"),
              "the service could not be started");
    EXPECT_EQ(textOf("ZelDaemonStateManager.cpp: Notify(258) > Failed to notify ZEL, m_zelState(running), "
                     "retNotify(-5)"),
              "the service did not take the trigger, result -5");
    EXPECT_EQ(textOf("ZelDaemonStateManager.cpp: RequestTerminate(173) > pZelControl == nullptr"),
              "the service can't be reached");
    EXPECT_EQ(textOf("SessionControlNative.cpp: m_Open(110) > Opened session, ok(0), sessionId(:1.7), "
                     "progName(player), pid(42)"),
              ":1.7 (player, process 42) asked for a session in vain");
    EXPECT_EQ(textOf("SessionControlNative.cpp: m_Open(110) > Opened session, ok(1), sessionId(:1.7), "
                     "progName(player), pid(42)"),
              ":1.7 (player, process 42) has opened a session");
    EXPECT_EQ(textOf("SessionControlNative.cpp: m_Close(119) > Closed session, ok(1), sessionId(:1.7), "
                     "progName(player), pid(42)"),
              ":1.7 (player, process 42) has closed its session");
    EXPECT_EQ(textOf("SessionControl.cpp: m_Open(197) > ERROR: FAILED to start ZEL when Opening session, "
                     "sessionId(:1.7), "
                     "progName(player), pid(42)"),
              ":1.7 (player, process 42) holds a session, but the service could not be started for it");
    EXPECT_EQ(textOf("SessionControl.cpp: CheckPIDs(279) > Application not running, pid(42)"),
              "process 42, which held a session, is gone");
    EXPECT_EQ(
        textOf(
            "SessionControl.cpp: m_tryTerminateWithDelay(391) > Will try to terminate ZEL after 10 seconds"),
        "in 10 seconds the service will be asked to terminate");
    EXPECT_EQ(textOf("SessionControl.cpp: m_tryTerminateCallback(396) > Try to terminate ZEL after delay"),
              "the time of the attempt has come");
    EXPECT_EQ(textOf("SessionControl.cpp: TryTerminateZel(289) > Try Terminate ZEL"),
              "an attempt to terminate the service");
    EXPECT_EQ(textOf("SessionControl.cpp: TryTerminateZel(339) > Can not terminate zel-daemon. There are "
                     "sessions open, "
                     "activeSessionsCount(2)"),
              "the attempt is off: open sessions: 2");
    EXPECT_EQ(textOf("SessionControl.cpp: TryTerminateZel(343) > Opened Session, sessionId(:1.7), "
                     "progName(player), pid(42)"),
              "it is held by :1.7 (player, process 42)");
    EXPECT_EQ(textOf("ZelDaemonStateManager.cpp: RequestTerminate(313) > Failed to terminate ZEL, "
                     "m_zelState(running), "
                     "ret(0), error size 2"),
              "the service refused to terminate, result 0, reasons: 2");
    EXPECT_EQ(textOf("ZelDaemonStateManager.cpp: RequestTerminate(317) > error: 7"), "its reason: 7");
    EXPECT_EQ(textOf("ZelDaemonStateManager.cpp: RequestTerminate(297) > Communication failed, "
                     "m_zelState(running), ret(-1)"),
              "the service did not answer, result -1, and is started again");
    EXPECT_EQ(textOf("ZelDaemonStateManager.cpp: RequestTerminate(304) > Succeeded to terminate ZEL"),
              "the service agreed to terminate");
    EXPECT_EQ(textOf("ZelDaemonStateManager.cpp: RequestTerminate(268) > zel-daemon already terminated"),
              "the service was terminated already");
}

TEST(EventsTest, OtherLinesMeanNothing) {
    EXPECT_FALSE(parseEvent(""));
    EXPECT_FALSE(parseEvent("First boot up"));
    EXPECT_FALSE(parseEvent(") > : ("));
    EXPECT_FALSE(parseEvent("SessionControl.cpp: m_ThreadRunFunc(400) > Helper Thread Start"));
    // The same text from another function, and a text with more to it.
    EXPECT_FALSE(parseEvent("SessionControl.cpp: m_Open(1) > First boot up"));
    EXPECT_FALSE(parseEvent("ZelDaemonStateManager.cpp: TCZelDaemonStateManager(1) > First boot up!"));
    EXPECT_FALSE(
        parseEvent("SessionControl.cpp: m_tryTerminateWithDelay(1) > Will try to terminate ZEL after 10"));
    EXPECT_FALSE(parseEvent(
        "SessionControl.cpp: m_tryTerminateWithDelay(1) > Will try to terminate ZEL after 10 or more"));
}

TEST(EventsTest, AProgramsNameMayLookLikeTheRestOfTheLine) {
    const auto event = parseEvent(
        "SessionControlNative.cpp: m_Open(110) > Opened session, ok(1), sessionId(:1.7), "
        "progName(x), pid(1), progName(y), pid(42)");

    ASSERT_TRUE(event);
    EXPECT_THAT(event->values, ElementsAre("1", ":1.7", "x), pid(1), progName(y", "42"));
}

TEST(EventsTest, AProgramsNameCannotMakeALineOfAnotherFunction) {
    const auto event = parseEvent(
        "SessionControlNative.cpp: m_Close(119) > Closed session, ok(1), sessionId(:1.7), progName(a.cpp: "
        "RequestTerminate(1) > Succeeded to terminate ZEL), pid(42)");

    ASSERT_TRUE(event);
    EXPECT_EQ(event->kind, EventKind::Closed);
}

}  // namespace
}  // namespace zelctl
