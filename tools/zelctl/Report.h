// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The daemon's report, as it comes: a JSON document of traces by session and of the last attempt to terminate
 * the service.
 */
#ifndef ZELCTL_REPORT_H
#define ZELCTL_REPORT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelctl {

/** A time of the daemon: milliseconds of its monotonic clock, which runs over after 2^31. */
using DaemonTime = std::int32_t;

/** Why an application needs the service, in its own words. */
struct Trace {
    DaemonTime opened = 0;
    /** None while it is open. */
    std::optional<DaemonTime> closed;
    std::string text;
};

/** The traces of one session. */
struct Record {
    std::string pid;
    /** The path of the program. */
    std::string program;
    std::string language;
    /** When its last trace was closed, if its session is closed too. */
    std::optional<DaemonTime> ended;
    /** Closed ones first, in the order of closing. */
    std::vector<Trace> traces;
};

struct Report {
    std::vector<Record> records;
    /** When it was last tried to terminate the service; none since the daemon has started. */
    std::optional<DaemonTime> lastAttempt;
    bool lastAttemptSucceeded = false;
    std::string viewerState;
    std::optional<DaemonTime> viewerStateChanged;
};

/**
 * Reads a report.
 *
 * @throw std::runtime_error that says what is wrong with it
 */
Report parseReport(std::string_view json);

/** Reads a time, seconds and milliseconds with a point between; none for an empty text or one that is no
 * time. */
std::optional<DaemonTime> parseTime(std::string_view text);

/** The milliseconds from one time of the daemon to a later one, also across a run-over of its clock. */
std::int64_t between(DaemonTime earlier, DaemonTime later);

/** The daemon's clock now. */
DaemonTime daemonNow();

/** The report for people to read. */
std::string reportText(const Report& report, DaemonTime now);

}  // namespace zelctl

#endif
