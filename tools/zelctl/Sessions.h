// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The sessions that the daemon has saved.
 */
#ifndef ZELCTL_SESSIONS_H
#define ZELCTL_SESSIONS_H

#include <map>
#include <string>
#include <string_view>

namespace zelctl {

/** Who holds a session: a program and its process, both as the daemon knows them; a window has neither. */
struct Holder {
    std::string program;
    std::string pid;
};

inline bool operator==(const Holder& left, const Holder& right) {
    return left.program == right.program && left.pid == right.pid;
}

/** Sessions by id, in the daemon's order. */
using Sessions = std::map<std::string, Holder>;

/**
 * Reads the content of the daemon's state file.
 *
 * @throw std::runtime_error that says what is wrong with it
 */
Sessions parseSessions(std::string_view content);

/** The id of a window's session. */
std::string windowSession(const std::string& window);

/** What holds the session of that id: "application" or "window". */
const char* kindOf(const std::string& sessionId);

/** A session for people: its id, and who holds it. */
std::string sessionText(const std::string& id, const Holder& holder);

}  // namespace zelctl

#endif
