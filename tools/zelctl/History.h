// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the daemon's log adds up to: the attempts to terminate the service, and what is in no file.
 */
#ifndef ZELCTL_HISTORY_H
#define ZELCTL_HISTORY_H

#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "Events.h"
#include "Sessions.h"

namespace zelctl {

/** How an attempt to terminate the service ended. */
enum class Outcome {
    /** The log does not say, or not yet. */
    Unknown,
    RefusedForSessions,
    RefusedByService,
    NoControl,
    Unreachable,
    Terminated,
    AlreadyTerminated
};

struct Attempt {
    /** Milliseconds of the monotonic clock. */
    std::int64_t time = 0;
    Outcome outcome = Outcome::Unknown;
    /** The sessions that were in the way. */
    Sessions sessions;
    /** What the service answered, and its reasons. */
    std::string result;
    std::vector<std::string> reasons;
};

/** The log of one run of the daemon, line by line. Times are milliseconds of the monotonic clock. */
class History {
public:
    /** Takes in what happened next. */
    void add(const Event& event, std::int64_t time);

    /** Whether there was anything at all. */
    bool isEmpty() const { return m_count == 0; }
    /** When the attempts that are still to come will be made, the next one first. */
    const std::vector<std::int64_t>& dueAttempts() const { return m_due; }
    /** Whether an attempt was scheduled at all, as is done after the last session or never. */
    bool wasAttemptScheduled() const { return m_scheduled; }
    const std::optional<Attempt>& lastAttempt() const { return m_attempt; }
    /** The last trigger that came. */
    const std::optional<Event>& lastTrigger() const { return m_trigger; }
    /** What went wrong with it; none when nothing did. */
    const std::optional<Event>& problem() const { return m_problem; }
    /** Sessions that are open but were not saved, because the service could not be started for them. */
    const Sessions& unsaved() const { return m_unsaved; }
    /** Forgets the unsaved sessions for whose id @p isGone holds. */
    template <typename Condition>
    void forgetUnsaved(Condition isGone) {
        for (auto session = m_unsaved.begin(); session != m_unsaved.end();) {
            session = isGone(session->first) ? m_unsaved.erase(session) : std::next(session);
        }
    }

private:
    void addToAttempt(const Event& event);

    std::size_t m_count = 0;
    std::vector<std::int64_t> m_due;
    bool m_scheduled = false;
    std::optional<Attempt> m_attempt;
    std::optional<Event> m_trigger;
    std::optional<Event> m_problem;
    Sessions m_unsaved;
};

}  // namespace zelctl

#endif
