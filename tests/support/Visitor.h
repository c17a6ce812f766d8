// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Another thread that calls an object while the test is inside one of its callbacks. Link with WRAP
 * pthread_mutex_lock.
 */
#ifndef TESTS_SUPPORT_VISITOR_H
#define TESTS_SUPPORT_VISITOR_H

#include <atomic>
#include <functional>
#include <thread>

/** One call on a thread of its own. */
class Visitor {
public:
    Visitor() = default;
    /** Waits for the call to return. */
    ~Visitor();
    Visitor(const Visitor&) = delete;
    Visitor& operator=(const Visitor&) = delete;

    /**
     * Starts @p call on the other thread, and returns when that thread blocks on a mutex or has returned.
     *
     * @return whether it blocks
     */
    bool mustWait(std::function<void()> call);

    /** Waits for the call to return. */
    void leave();

private:
    std::atomic<bool> m_blocks{false};
    std::atomic<bool> m_hasReturned{false};
    std::thread m_thread;
};

#endif
