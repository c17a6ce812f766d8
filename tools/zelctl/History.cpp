// SPDX-License-Identifier: Apache-2.0
#include "History.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "Rows.h"

namespace zelctl {

namespace {

struct Ending {
    EventKind event;
    Outcome outcome;
};

constexpr std::array<Ending, 6> kEndings{{{EventKind::RefusedForSessions, Outcome::RefusedForSessions},
                                          {EventKind::RefusedByService, Outcome::RefusedByService},
                                          {EventKind::NoControl, Outcome::NoControl},
                                          {EventKind::Unreachable, Outcome::Unreachable},
                                          {EventKind::Terminated, Outcome::Terminated},
                                          {EventKind::AlreadyTerminated, Outcome::AlreadyTerminated}}};
static_assert(hasARowForEach(kEndings, &Ending::outcome, Outcome::RefusedForSessions,
                             Outcome::AlreadyTerminated),
              "every outcome but Unknown comes from an event");

}  // namespace

void History::add(const Event& event, std::int64_t time) {
    ++m_count;
    addToAttempt(event);
    switch (event.kind) {
        case EventKind::Trigger:
            m_trigger = event;
            m_problem.reset();
            break;
        case EventKind::StartFailed:
        case EventKind::NotifyFailed:
        case EventKind::NoControl:
            m_problem = event;
            break;
        case EventKind::OpenedInVain:
            m_unsaved[event.values[0]] = Holder{event.values[1], event.values[2]};
            break;
        case EventKind::Opened:
        case EventKind::Closed:
            // Whenever the table changes all of it is saved.
            if (event.values[0] == "1") {
                m_unsaved.clear();
            }
            break;
        case EventKind::WindowGone:
            m_unsaved.erase(windowSession(event.values[0]));
            break;
        case EventKind::AttemptScheduled:
            m_scheduled = true;
            m_due.push_back(time + std::int64_t{std::atoi(event.values[0].c_str())} * 1000);
            break;
        case EventKind::AttemptDue:
            // With one whose line the journal has lost.
            if (!m_due.empty()) {
                m_due.erase(m_due.begin(), std::find_if(std::next(m_due.begin()), m_due.end(),
                                                        [time](std::int64_t due) { return due > time; }));
            }
            break;
        case EventKind::Attempt:
            m_attempt = Attempt{};
            m_attempt->time = time;
            break;
        default:
            break;
    }
}

void History::addToAttempt(const Event& event) {
    if (!m_attempt) {
        return;
    }
    const auto* const ending = std::find_if(kEndings.begin(), kEndings.end(),
                                            [&event](const Ending& row) { return row.event == event.kind; });
    // What comes after its end belongs to what came of it.
    if (ending != kEndings.end() && m_attempt->outcome == Outcome::Unknown) {
        m_attempt->outcome = ending->outcome;
        if (ending->outcome == Outcome::RefusedByService || ending->outcome == Outcome::Unreachable) {
            m_attempt->result = event.values[1];
        }
    } else if (event.kind == EventKind::RefusedForSession) {
        m_attempt->sessions[event.values[0]] = Holder{event.values[1], event.values[2]};
    } else if (event.kind == EventKind::RefusalReason) {
        m_attempt->reasons.push_back(event.values[0]);
    }
}

}  // namespace zelctl
