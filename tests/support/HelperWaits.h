// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The waits of session control's helper thread, which last until the test lets them end. Link with WRAP
 * pthread_cond_clockwait _ZNSt18condition_variable10notify_allEv _ZNSt18condition_variableD1Ev.
 *
 * A notification is never lost here, as it may be on the set when it comes just before the wait: no test is
 * to take 30 seconds now and then.
 */
#ifndef TESTS_SUPPORT_HELPER_WAITS_H
#define TESTS_SUPPORT_HELPER_WAITS_H

#include <functional>
#include <vector>

struct HelperWaits {
    /** Lets so many of the waits, the present ones included, end as after their time. */
    static void end(int count);

    /** How long each wait since the reset was to last, in whole seconds, rounded. */
    static std::vector<long> seconds();

    /** Waits until somebody has notified all waiters of a condition since the reset. */
    static void waitForNotifyAll();

    /** Runs @p hook once, in the next notification of all waiters of a condition, when they are notified. */
    static void afterNotifyAll(std::function<void()> hook);

    /** Forgets all that. */
    static void reset();
};

#endif
