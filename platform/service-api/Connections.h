// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The connections whose leaving the bus matters, and what is known of their processes.
 */
#ifndef SERVICE_API_CONNECTIONS_H
#define SERVICE_API_CONNECTIONS_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "TCIpcProperties.h"

/**
 * A connection is *known* when it was on the bus before this process or has called since, until it leaves.
 * All others are strangers; nothing is kept of them, so their coming and going costs no memory.
 */
class Connections {
public:
    /** Finds out the process id of a connection; 0 when it can't. */
    using PidLookup = std::function<std::uint32_t()>;

    /** Makes the unique names among @p names known, except @p own. */
    void addPresent(const std::vector<std::string>& names, const std::string& own);

    /** Makes the caller known and gives its properties, which are looked up the first time only. */
    const TSCallerProperties& addCaller(const std::string& name, const PidLookup& lookUpPid);

    /** Forgets a connection. @return its process id when it was known, 0 where none was looked up */
    std::optional<std::uint32_t> remove(const std::string& name);

    /** Forgets all. @return their names and process ids */
    std::vector<std::pair<std::string, std::uint32_t>> removeAll();

private:
    // Without properties: was there before, has not called.
    std::map<std::string, std::optional<TSCallerProperties>> m_known;
};

#endif
