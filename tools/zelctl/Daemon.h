// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The daemon, as an application calls it. A session belongs to the connection that has opened it: one
 * connection holds at most one, and it ends with the connection, however that ends.
 */
#ifndef ZELCTL_DAEMON_H
#define ZELCTL_DAEMON_H

#include <TCMessageBuffer.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "Bus.h"
#include "Report.h"

namespace zelctl {

/** How long an opening may take, which may have to start the service. */
constexpr std::chrono::seconds kOpenLimit{120};

/** The programming language of a trace. */
enum class Language : std::int32_t { Cpp = 1, CSharp = 2 };

/** Every operation throws Trouble when the daemon is not there, does not answer in time, or answers nonsense.
 */
class Daemon {
public:
    /** @param bus  must outlive the object; its limit is that of every question */
    explicit Daemon(const Bus& bus) : m_bus(bus) {}

    /** Opens the session of this connection. @return whether the service is there now; the session is open in
     * either case */
    bool open(std::chrono::seconds limit = kOpenLimit);
    /** Closes it. @return whether there was one */
    bool close();
    /** The report, a JSON document, byte for byte. */
    std::string report();
    /** The same, read. */
    Report readReport();
    /** Opens a trace of this connection. The daemon never says whether it has kept it. */
    void openTrace(std::int64_t id, const std::string& text, Language language);
    void closeTrace(std::int64_t id);
    /** Whether the daemon has kept a trace of this process. */
    bool keepsTrace();
    /** Whether the daemon takes the service for terminated. */
    bool isTerminated();

private:
    TCMessageBuffer call(std::int32_t method, TCMessageBuffer& request, std::chrono::seconds limit);
    int status(std::int32_t method, TCMessageBuffer& request, std::chrono::seconds limit);

    const Bus& m_bus;
};

}  // namespace zelctl

#endif
