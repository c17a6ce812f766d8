// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The units of systemd that stand behind the timers.
 */
#ifndef TVTIMER_TIMER_UNITS_H
#define TVTIMER_TIMER_UNITS_H

#include <sdbus-c++/sdbus-c++.h>

#include <map>
#include <memory>
#include <string>

#include "Deadline.h"

/**
 * One exchange with systemd, over a connection of its own, of 10 s at the most.
 *
 * Timer ID is the transient unit `zel-tvtimer-ID.timer`, which starts the service of that name. systemd
 * answers a request by queueing a *job*; only how the job ends tells whether the unit was started.
 */
class TimerUnits {
public:
    /** Connects and finds systemd. Throws when it can't. */
    TimerUnits();

    /**
     * Starts a timer and waits until it is started. Where it is not, stops what there may be of it.
     *
     * @param date          what `OnCalendar` is to be
     * @param wakesMachine  whether the timer is to wake the machine
     * @return its id. Throws when it was not started
     */
    int start(const std::string& date, bool wakesMachine);

    /** Stops a timer. @return false when there is none. Throws when nothing is known of it */
    bool stop(int id);

private:
    void takeName();
    bool startAs(int id, const std::string& date, bool wakesMachine);
    void stopQuietly(int id);
    std::string request(int id, const std::string& date, bool wakesMachine);
    std::string awaitEnd(const std::string& job);
    void onJobRemoved(sdbus::Message& signal);
    std::unique_ptr<sdbus::IProxy> manager();

    const Deadline m_deadline;
    std::unique_ptr<sdbus::IConnection> m_connection;
    // systemd's unique name.
    std::string m_owner;
    // How jobs have ended, by their paths.
    std::map<std::string, std::string> m_ends;
    // Ends before what it fills and what carries it.
    sdbus::Slot m_jobsWatch;
};

#endif
