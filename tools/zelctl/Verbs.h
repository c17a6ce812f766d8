// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What zelctl can be told to do. Every verb prints what it found on standard output and gives the exit
 * status; what ends it early is thrown as Trouble.
 */
#ifndef ZELCTL_VERBS_H
#define ZELCTL_VERBS_H

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Daemon.h"
#include "Status.h"

namespace zelctl {

/** Prints a text; @throw Trouble when it can't be written. */
void print(const std::string& text);

/** Prints the state of the daemon and the service. */
Status status(bool json, std::chrono::seconds limit);

/** Prints who holds sessions. */
Status sessions(bool json);

/**
 * Prints why things are as they are.
 *
 * @param without  sessions to leave out in thought; none to explain the present
 */
Status explain(const std::set<std::string>& without, std::chrono::seconds limit);

/**
 * Fetches the report.
 *
 * @param json  print it as it came
 * @param html  file to write it to as a page, "-" for standard output; empty for none
 */
Status report(bool json, const std::string& html, std::chrono::seconds limit);

/**
 * Holds a session until a signal ends the program.
 *
 * @param keep  hold it also when the service could not be started or told
 */
Status open(bool keep, std::chrono::seconds limit);

/** Holds a session exactly while a command runs; @p trace says why, unless it is empty. @return the exit
 * status of the command, 128 and its number when a signal has ended it, or a Status */
int run(const std::vector<std::string>& command, const std::string& trace, std::chrono::seconds limit);

/** Holds a trace until closeTrace() or a signal ends the program. */
Status openTrace(std::int64_t id, const std::string& text, Language language, std::chrono::seconds limit);

/** Has the zelctl of this user that holds a trace close it. */
Status closeTrace(std::int64_t id);

/** Prints a line for each change, until a signal ends the program. */
Status watch(bool json);

/**
 * Checks the whole way from here to the service and back.
 *
 * @param withSession  open and close a session also where that starts the service or makes it end
 */
Status selfTest(bool withSession, std::chrono::seconds limit);

}  // namespace zelctl

#endif
