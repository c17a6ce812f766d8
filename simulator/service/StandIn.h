// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The supervised service as zel-lite sees it, and nothing of what it does on a television: it owns its name,
 * answers its two control methods, writes every call to the journal, and misbehaves on request.
 *
 * Everything runs on the thread that calls run(); a delayed answer delays everything behind it, as in a busy
 * service. The stand-in calls nobody: zel-lite waits for it while it starts and while it answers.
 */
#ifndef SIMULATOR_SERVICE_STAND_IN_H
#define SIMULATOR_SERVICE_STAND_IN_H

#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ControlFiles.h"

/** One life of the service. */
class StandIn {
public:
    /** @param wishes  what it is told to do */
    explicit StandIn(ControlFiles wishes);

    /**
     * Takes the name and serves until a termination was answered; then leaves the bus and lingers as told.
     *
     * @throws sdbus::Error when there is no bus or the name is taken
     */
    void run();

private:
    using NotifyResult = sdbus::Result<std::int32_t>;
    using TerminateResult = sdbus::Result<std::int32_t, std::vector<std::int32_t>, std::int32_t, bool>;

    void exportControl();
    void notify(NotifyResult&& result, std::int32_t trigger, std::int32_t source,
                std::int32_t sourcePlugState, std::int32_t value);
    void terminate(TerminateResult&& result);
    bool isKeptSilent(const std::string& call);

    ControlFiles m_wishes;
    std::unique_ptr<sdbus::IConnection> m_connection;
    std::unique_ptr<sdbus::IObject> m_object;
};

#endif
