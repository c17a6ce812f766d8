// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * An application framework that knows what the test tells it. Callable from any thread.
 */
#ifndef TESTS_FAKES_FAKE_AUL_H
#define TESTS_FAKES_FAKE_AUL_H

#include <atomic>
#include <string>

namespace fakes {

/** A query is the action "aul PID LENGTH". */
struct FakeAul {
    /** Makes a process known under an application id. */
    static void know(int pid, const std::string& appId);
    /** What a query for a known process returns; the id is written whatever it is. */
    static std::atomic<int> result;
    /** Forgets all processes; queries succeed. */
    static void reset();
};

}  // namespace fakes

#endif
