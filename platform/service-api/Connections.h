// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The connections whose leaving the bus matters, and what is known of their processes.
 */
#ifndef SERVICE_API_CONNECTIONS_H
#define SERVICE_API_CONNECTIONS_H

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "CallQueue.h"
#include "CallersFile.h"
#include "TCIpcProperties.h"

/**
 * A connection is *known* when it was on the bus before this process or has called since, until it leaves.
 * All others are strangers; nothing is kept of them, so their coming and going costs no memory. The *callers*
 * among the known are remembered across a restart of this process. Not thread-safe.
 */
class Connections {
public:
    /** What is known of a caller's process. */
    struct Identity {
        TSCallerProperties properties;
        uid_t user;
    };

    /**
     * Begins on a bus.
     *
     * The callers that this process, or the one before it, knows on the same bus stay known, and
     * are to be identified again. All others have left. A new bus gives old names anew, so on another bus all
     * have.
     *
     * @param busId  id of the bus
     * @param names  all names on it
     * @param own    this process's unique name
     * @return those that have left
     */
    std::vector<Departure> begin(const std::string& busId, const std::vector<std::string>& names,
                                 const std::string& own);

    /** Whether begin found the bus on which the known connections were before. */
    bool isOnSameBus() const { return m_isOnSameBus; }

    /** Forgets the known connections that are not among @p names. @return those */
    std::vector<Departure> compare(const std::vector<std::string>& names);

    /** Names of the callers that were remembered and are not identified. */
    std::vector<std::string> remembered() const;

    /** Makes a connection known. @return whether its process is to be looked up: true the first time */
    bool add(const std::string& name);

    /** What is known of a process; null before it is identified. */
    const Identity* identity(const std::string& name) const;

    /**
     * Notes the result of the look-up.
     *
     * @return the departure of an earlier connection of that name, which had another process
     */
    std::optional<Departure> identify(const std::string& name, const Identity& identity);

    /** Forgets a connection that has left. @return its departure, when it was known */
    std::optional<Departure> remove(const std::string& name);

private:
    struct Known {
        bool isAsked = false;
        std::optional<Identity> identity;
        /** Of a caller that was remembered. */
        std::optional<std::uint32_t> rememberedPid;
    };

    static std::uint32_t pidOf(const Known& known);

    std::string m_busId;
    bool m_isOnSameBus = false;
    std::map<std::string, Known> m_known;
    CallersFile m_file;
};

#endif
