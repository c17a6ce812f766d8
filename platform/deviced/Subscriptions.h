// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Who is called for what.
 */
#ifndef DEVICED_SUBSCRIPTIONS_H
#define DEVICED_SUBSCRIPTIONS_H

#include <glib.h>

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include "hold/SleepHold.h"

/** What is told. */
enum class PowerEvent {
    /** The machine is about to sleep. */
    kStandby,
    /** The machine runs again. */
    kEarlyWakeUp
};

/**
 * The callbacks and what they are still to be told, which the default main context does, one event a turn.
 *
 * An event is for those who are subscribed when it is announced, in the order in which they subscribed. The
 * lock is not held while a callback runs; whether it is still subscribed is looked up right before its call.
 */
class Subscriptions {
public:
    using Callback = int (*)(int, void*);

    /** Adds a callback. @return false when it is there already for that event */
    bool add(PowerEvent event, Callback callback, void* userData);

    /** Removes a callback; an event that nobody is left for is dropped. @return false when it is not there */
    bool remove(PowerEvent event, Callback callback);

    /** Whether somebody is subscribed. */
    bool has(PowerEvent event);

    /** Has an event told. @p hold is kept until the last callback has returned, or nobody is left to call. */
    void announce(PowerEvent event, SleepHold::Share hold);

private:
    // In the order in which they were added.
    using Id = std::uint64_t;

    struct Subscription {
        PowerEvent event;
        Callback callback;
        void* userData;
    };

    struct Announcement {
        std::vector<Id> audience;
        SleepHold::Share hold;
    };

    static gboolean onTurn(gpointer subscriptions) noexcept;
    void tellNext();
    void tell(Id id);

    // Needs the lock.
    std::map<Id, Subscription>::iterator find(PowerEvent event, Callback callback);

    std::mutex m_mutex;
    std::map<Id, Subscription> m_subscriptions;
    Id m_nextId = 0;
    std::deque<Announcement> m_announcements;
};

#endif
