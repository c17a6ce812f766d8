// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * An application framework that knows what the test tells it. Callable from any thread.
 */
#ifndef TESTS_FAKES_FAKE_AUL_H
#define TESTS_FAKES_FAKE_AUL_H

#include <functional>
#include <string>

namespace fakes {

/** A query is the action "aul PID LENGTH". */
struct FakeAul {
    /** Makes a process known under an application id. */
    static void know(int pid, const std::string& appId);
    /** Runs during every query; null for nothing. */
    static void duringQuery(std::function<void()> hook);
    /** Forgets all processes and the hook. */
    static void reset();
};

}  // namespace fakes

#endif
