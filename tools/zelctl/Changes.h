// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What changes from one look to the next, a line each.
 */
#ifndef ZELCTL_CHANGES_H
#define ZELCTL_CHANGES_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Events.h"
#include "Sessions.h"
#include "Situation.h"

namespace zelctl {

/** Something that is different now. */
struct Change {
    /** What it is about: service, daemon, session, marker, log. */
    std::string kind;
    /** One word for what became of it. */
    std::string what;
    /** The same for people. */
    std::string text;
    /** Details, for programs. */
    std::vector<std::pair<std::string, std::string>> details;
};

/** Sessions that were opened or closed; those that are open, where none were seen before. */
std::vector<Change> sessionChanges(const std::optional<Sessions>& before, const Sessions& now);

/** Markers that appeared or went, or that somebody has planted; all of them, where none were seen before. */
std::vector<Change> markerChanges(const std::vector<Marker>& before, const std::vector<Marker>& now);

/** A unit in another state; none when it is in the same. @param kind  what the unit is here */
std::vector<Change> unitChanges(const std::string& kind, const std::optional<Unit>& before,
                                const std::optional<Unit>& now);

/** What a line of the log tells; none when a change of the sessions tells it too. */
std::vector<Change> logChanges(const Event& event);

/** The line for people, and the one for programs, a JSON object. @param time  microseconds of the real clock
 */
std::string changeText(const Change& change, std::uint64_t time);
std::string changeJson(const Change& change, std::uint64_t time);

}  // namespace zelctl

#endif
