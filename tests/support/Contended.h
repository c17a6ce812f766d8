// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A callback that waits for a mutex, and another thread that has it and calls the library.
 */
#ifndef TESTS_SUPPORT_CONTENDED_H
#define TESTS_SUPPORT_CONTENDED_H

#include <atomic>
#include <mutex>

#include "support/Wait.h"

/** A library that waits for the callback meanwhile is found by the callback, which waits for some seconds
 * only. */
class Contended {
public:
    /** What the callback does: waits for the mutex. */
    void visit() {
        m_entered = true;
        if (becomesTrue([this] { return m_mutex.try_lock(); })) {
            m_mutex.unlock();
            ++m_served;
        }
        m_entered = false;
    }

    /**
     * What the other thread does: has the mutex, makes the callback be called by @p provoke, runs @p change
     * while the callback waits, and lets it go.
     *
     * @return whether the callback came and then got the mutex
     */
    template <typename Provoke, typename Change>
    bool changeDuringVisit(Provoke provoke, Change change) {
        const int before = m_served;
        bool came = false;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            provoke();
            came = becomesTrue([this] { return m_entered.load(); });
            change();
        }
        return came && becomesTrue([this] { return !m_entered; }) && m_served == before + 1;
    }

private:
    std::mutex m_mutex;
    std::atomic<bool> m_entered{false};
    std::atomic<int> m_served{0};
};

#endif
