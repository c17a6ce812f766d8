// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Waiting for what others do, with a limit.
 */
#ifndef TESTS_SUPPORT_WAIT_H
#define TESTS_SUPPORT_WAIT_H

#include <chrono>
#include <thread>

/** Waits up to @p limit for @p condition to hold. @return whether it did */
template <typename Condition>
bool becomesTrue(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

#endif
