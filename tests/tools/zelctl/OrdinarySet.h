// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What zelctl sees of an ordinary set, to be changed by a test.
 */
#ifndef TESTS_TOOLS_ZELCTL_ORDINARY_SET_H
#define TESTS_TOOLS_ZELCTL_ORDINARY_SET_H

#include "Situation.h"

namespace zelctl {

/** Both units run, one application holds a session, no switch is there, the log tells nothing. The clocks are
 * at 60 s, the service has run for 50. */
inline Situation ordinarySet() {
    Situation situation;
    situation.daemon = Unit{"zel-lite.service", "loaded", "active", "running", 90, 5'000'000, 5'000'000, 0};
    situation.service =
        Unit{"zel_deamon.service", "loaded", "active", "running", 100, 10'000'000, 10'000'000, 0};
    situation.daemonOwner = 90;
    situation.serviceOwner = 100;
    situation.isTerminated = false;
    situation.report = Report{};
    situation.sessions = {{":1.7", {"player", "42"}}};
    situation.markers = {{"/tmp/subsequent", "started", true, "", 1},
                         {"/tmp/running", "runs", true, "", 1},
                         {"/tmp/restart", "restart", false, "", 0}};
    situation.switches = {{"/etc/debug", "", false, "", 0},
                          {"/etc/aggressive", "", false, "", 0},
                          {"/etc/tracing", "", false, "", 0},
                          {"/etc/check", "", false, "", 0}};
    situation.daemonTime = 60'000;
    situation.monotonic = 60'000;
    return situation;
}

}  // namespace zelctl

#endif
