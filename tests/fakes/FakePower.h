// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Power states and wake-up timers that the test brings about.
 */
#ifndef TESTS_FAKES_FAKE_POWER_H
#define TESTS_FAKES_FAKE_POWER_H

#include <cstddef>

namespace fakes {

/**
 * Actions: "subscribe standby", "unsubscribe standby", "subscribe early_wakeup", "unsubscribe early_wakeup";
 * "schedule TYPE YYYY-MM-DD HH:MM:SS dst=FLAG WEEKDAYS FLAGS", "cancel ID", "free". What is
 * subscribed or scheduled with user data has " with data" behind it.
 */
struct FakePower {
    /** What every subscription gives. */
    static int subscribeResult;
    /** What scheduling gives. */
    static int scheduleResult;

    /** How many callbacks are subscribed. */
    static std::size_t standbySubscribers();
    static std::size_t earlyWakeUpSubscribers();

    /** The user data of the last subscription to early wake-ups. */
    static const void* earlyWakeUpData();

    /** Calls who is subscribed. @return what the callback gave; -100 when nobody is subscribed */
    static int standby();
    static int earlyWakeUp();

    /** Completes the last timer that was scheduled, with this id. */
    static void armed(int timerId);
    /** Completes it with a timer that does not know its id. */
    static void armedWithoutId();
    /** Completes it as not set. */
    static void notArmed();

    /** Nobody is subscribed, nothing scheduled, everything succeeds. */
    static void reset();
};

}  // namespace fakes

#endif
