// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What logind says of the machine's sleep, and the hold that it grants before it.
 */
#ifndef DEVICED_LOGIND_H
#define DEVICED_LOGIND_H

#include <sdbus-c++/sdbus-c++.h>

#include <memory>
#include <optional>
#include <string>

#include "Subscriptions.h"
#include "hold/SleepHold.h"

/**
 * Listens to logind on a thread of its own and announces what changes.
 *
 * logind says whether the machine is *preparing* for sleep: true ahead of it, false when it runs again. What
 * counts is the value, be it told by a signal or read from a logind that has just come: only a change is
 * announced, so a signal that was missed while logind or the bus was away is made up for. While somebody is
 * subscribed to standby and the machine is not preparing, a *hold* is kept; with the announcement of standby
 * it passes to the subscriptions.
 *
 * The thread owns the connection and everything below it. It never ends: where there is no bus it looks for
 * one each second.
 */
class Logind {
public:
    /**
     * Starts the thread. Throws when it can't.
     *
     * @param subscriptions  outlives this
     */
    explicit Logind(Subscriptions& subscriptions);
    ~Logind() = delete;
    Logind(const Logind&) = delete;
    Logind& operator=(const Logind&) = delete;

    /** Says that the subscriptions are others. Callable from any thread. */
    void wake();

private:
    void run();
    void connect();
    void takeName();
    void processUntilLost();
    void waitForEvents(bool more);
    sdbus::Slot watch(const char* rule, void (Logind::*handler)(sdbus::Message&));

    void onNameOwnerChanged(sdbus::Message& signal);
    void onPrepareForSleep(sdbus::Message& signal);

    void setOwner(const std::string& owner);
    void setPreparing(bool preparing);
    bool readPreparing();
    void keepHold();
    SleepHold::Share takeHold();
    std::unique_ptr<sdbus::IProxy> manager();

    Subscriptions& m_subscriptions;
    const int m_wakeUps;

    // Of the thread. The watches end before the connection that carries them.
    std::unique_ptr<sdbus::IConnection> m_connection;
    sdbus::Slot m_ownerWatch;
    sdbus::Slot m_sleepWatch;
    // logind's unique name; empty when it is not there.
    std::string m_owner;
    // Not known before logind was looked for.
    std::optional<bool> m_preparing;
    SleepHold::Share m_hold;
    // Something has changed since the last attempt to take a hold.
    bool m_holdIsDue = false;
};

#endif
