// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Waking a thread that waits in poll.
 */
#ifndef SERVICE_API_WAKE_UP_H
#define SERVICE_API_WAKE_UP_H

#include <poll.h>

/** Set by any thread; until it is cleared its descriptor is readable and no wait on it blocks. */
class WakeUp {
public:
    WakeUp();
    ~WakeUp();
    WakeUp(const WakeUp&) = delete;
    WakeUp& operator=(const WakeUp&) = delete;

    /** Ends all waits, now and until clear. */
    void set();

    /** Makes the next wait block again. */
    void clear();

    /**
     * Waits until set, or @p other is ready.
     *
     * @param other         what else ends the wait; a negative descriptor stands for nothing
     * @param milliseconds  the longest wait; below 0 there is no end to it
     * @return whether it is set
     */
    bool wait(pollfd other, int milliseconds);

private:
    int m_descriptor;
};

#endif
