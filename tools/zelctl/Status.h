// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * How zelctl exits, and how it says what went wrong.
 */
#ifndef ZELCTL_STATUS_H
#define ZELCTL_STATUS_H

#include <stdexcept>
#include <string>

namespace zelctl {

/** How the program exits. Every number means the same for every verb; kStatuses says it to people. */
enum Status : int {
    kDone = 0,
    kFailed = 1,
    kBadUsage = 2,
    kServiceDown = 3,
    kNoBus = 68,
    kNoDaemon = 69,
    kBadAnswer = 70,
    kNotStarted = 71,
    kNoAnswer = 75,
    kNotPermitted = 77,
    kNotExecutable = 126,
    kNotFound = 127,
    kSignal = 128
};

/** The statuses with their meanings, a line each, for the help. */
std::string statusTable();

/** Something that ends a verb: what failed, where, what to try, and how the program exits. */
class Trouble : public std::runtime_error {
public:
    /**
     * @param status  how the program exits
     * @param where   what was being spoken to or worked on
     * @param what    what failed
     * @param advice  what to try
     */
    Trouble(Status status, const std::string& where, const std::string& what, const std::string& advice);

    Status status() const { return m_status; }

private:
    Status m_status;
};

}  // namespace zelctl

#endif
