// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A platform time that stands where the test puts it.
 */
#ifndef TESTS_FAKES_FAKE_TIME_H
#define TESTS_FAKES_FAKE_TIME_H

#include <ctime>

namespace fakes {

struct FakeTime {
    /** Seconds since the epoch. */
    static std::time_t now;
    /** What BPTime_get_current_time gives; where it is not 0, there is no time. */
    static int result;

    /** Back to the epoch, and readable. */
    static void reset();
};

}  // namespace fakes

#endif
