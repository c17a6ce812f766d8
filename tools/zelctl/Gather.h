// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Looks at everything at once.
 */
#ifndef ZELCTL_GATHER_H
#define ZELCTL_GATHER_H

#include <optional>

#include "Bus.h"
#include "Situation.h"

namespace zelctl {

/** A situation, and what kept the daemon from telling its part of it. */
struct Gathered {
    Situation situation;
    std::optional<Trouble> trouble;
};

/** Looks at the bus, the files and the journal and asks the daemon; what can't be found out is left out. */
Gathered gather(const Bus& bus);

/** Only the sessions: the files and the journal, without asking the daemon. */
Situation gatherSessions(const Bus& bus);

/** The service as it is now, in a situation that has the daemon. */
void lookAtService(const Bus& bus, Situation& situation);

}  // namespace zelctl

#endif
