// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What keeps the machine awake, shared by the libraries that have something to finish before it sleeps.
 *
 * A *hold* is taken from the system ahead of a standby; the machine falls asleep when it ends. It ends with
 * its last *share*. Power offers the hold and keeps a share until its callbacks have returned; what these
 * began, such as setting a timer, keeps another until it is done. Nobody waits for anybody.
 */
#ifndef SLEEP_HOLD_H
#define SLEEP_HOLD_H

#include <memory>
#include <mutex>

/** The present hold of this process. Callable from any thread. */
class SleepHold {
public:
    using Share = std::shared_ptr<const void>;

    /** Makes @p hold the one that is shared from now on. Keeps none itself. */
    static void offer(const Share& hold) {
        Offered& offered = instance();
        const std::lock_guard<std::mutex> lock(offered.mutex);
        offered.hold = hold;
    }

    /** A share of the hold; empty where there is none, or when it has ended. */
    static Share share() {
        Offered& offered = instance();
        const std::lock_guard<std::mutex> lock(offered.mutex);
        return offered.hold.lock();
    }

private:
    struct Offered {
        std::mutex mutex;
        std::weak_ptr<const void> hold;
    };

    // Never destroyed: threads of the libraries may still run when the process exits.
    static Offered& instance() {
        static auto* const offered = new Offered;
        return *offered;
    }
};

#endif
