// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The calls that wait to be served.
 *
 * One thread reads them from the bus, another serves them one at a time. Callers take turns, so a caller that
 * sends many calls delays the others by one call at a time. Turns go around the *users* first and around the
 * callers of a user then: more connections give a user no more turns. What waits is bounded, because a call
 * may take long to serve (the supervised service may hang for half a minute).
 */
#ifndef SERVICE_API_CALL_QUEUE_H
#define SERVICE_API_CALL_QUEUE_H

#include <sys/types.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <variant>
#include <vector>

#include "Bus.h"
#include "TCIpcProperties.h"

/** A call that was read from the bus. */
struct Call {
    /** Belongs to the thread that reads; the one that serves only keeps it. */
    bus::Message message;
    /** Unique name of the caller's connection. */
    std::string sender;
    std::int32_t method = 0;
    /** The request, inside the message. */
    const void* bytes = nullptr;
    std::size_t size = 0;
    /** What CallQueue::admit was given. */
    TSCallerProperties caller;
    uid_t user = 0;
};

/** A connection that has left the bus. */
struct Departure {
    std::string name;
    /** Process id, 0 when none was ever looked up. */
    std::uint32_t pid = 0;
};

/** Nothing more is to be served. */
struct Stop {};

/** Callable from any thread. */
class CallQueue {
public:
    /** What one caller may have waiting, in calls. */
    static constexpr std::size_t kCallsOfOne = 256;
    /** What all may have waiting, in bytes of requests and kCallOverhead for each call. */
    static constexpr std::size_t kBytesOfAll = std::size_t{8} * 1024 * 1024;
    static constexpr std::size_t kCallOverhead = 1024;

    /**
     * Adds a call. It is not served before its caller is admitted.
     *
     * @return the calls that must be refused: this one when its caller has too many, or the last ones of the
     * caller that has most bytes waiting when all have too much
     */
    std::vector<Call> push(Call call);

    /** Makes the waiting calls of a caller ready to be served. No effect on a caller without waiting calls.
     */
    void admit(const std::string& sender, const TSCallerProperties& caller, uid_t user);

    /** Takes out the waiting calls of a caller. */
    std::deque<Call> drop(const std::string& sender);

    /** Takes out all waiting calls. */
    std::vector<Call> dropAll();

    /** Adds the news that a connection has left; it takes its turn as a user's calls do. */
    void add(Departure departure);

    /** All news that wait now are served before any call: a name in them may be a caller's again. */
    void putDeparturesFirst();

    /** Waits for what is to be served next. */
    std::variant<Stop, Departure, Call> next();

    /** Makes next return Stop from now on. */
    void stop();

private:
    struct Waiting {
        std::deque<Call> calls;
        std::size_t bytes = 0;
        bool isAdmitted = false;
        TSCallerProperties properties;
        uid_t user = 0;
    };

    Call takeLast(std::map<std::string, Waiting>::iterator caller);
    bool takeTurn(Call& call);

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isStopped = false;
    std::deque<Departure> m_departures;
    /** How many of them are served before any call. */
    std::size_t m_urgentDepartures = 0;
    bool m_isDeparturesTurn = false;
    /** Callers with waiting calls. */
    std::map<std::string, Waiting> m_callers;
    std::size_t m_bytes = 0;
    /** The admitted callers of each user in the order of their turns. A caller that was dropped stays until
     * its turn comes. */
    std::map<uid_t, std::deque<std::string>> m_users;
    /** The users with admitted callers, in the order of their turns. */
    std::deque<uid_t> m_turns;
};

#endif
