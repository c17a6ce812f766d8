// SPDX-License-Identifier: Apache-2.0
// The stand-in of zel-daemon: what zel_deamon.service runs in a television in a box.
#include <sdbus-c++/sdbus-c++.h>

#include <cstdlib>
#include <exception>

#include "Journal.h"
#include "StandIn.h"

int main() {
    try {
        StandIn(ControlFiles("/run/zel-platform/service")).run();
    } catch (const std::exception& error) {
        journalError(error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
