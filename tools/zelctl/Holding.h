// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What a verb holds at the daemon while it runs: a session, a trace, or both.
 */
#ifndef ZELCTL_HOLDING_H
#define ZELCTL_HOLDING_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "Daemon.h"

namespace zelctl {

/**
 * Lets go of what it holds, however its scope is left. A session would also end with the connection, but
 * whoever waits for this process expects it to have ended; a trace stays at the daemon when its process has
 * gone.
 */
class Holding {
public:
    /** @param daemon  must outlive the object */
    explicit Holding(Daemon& daemon) : m_daemon(daemon) {}
    /** Closes what is still open, and says on standard error when that fails. */
    ~Holding();
    Holding(const Holding&) = delete;
    Holding& operator=(const Holding&) = delete;

    /** Opens the session. @return whether the service is there now; the session is open in either case */
    bool openSession(std::chrono::seconds limit);
    /** Opens the trace. It is closed also when this fails: a daemon that was busy still comes to the opening.
     */
    void openTrace(std::int64_t id, const std::string& text, Language language);
    /** Closes what is open; what can't be closed is not tried again. */
    void close();

private:
    Daemon& m_daemon;
    bool m_hasSession = false;
    std::optional<std::int64_t> m_trace;
};

}  // namespace zelctl

#endif
