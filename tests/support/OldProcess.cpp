// SPDX-License-Identifier: Apache-2.0
#include "support/OldProcess.h"

#include <sys/types.h>
#include <unistd.h>

#include "fakes/Actions.h"

OldProcess oldProcess;

namespace {

void record(const std::string& call) {
    oldProcess.calls.push_back(call);
    fakes::Actions::add(call);
}

}  // namespace

extern "C" int __real_kill(pid_t pid, int signal);
extern "C" int __wrap_kill(pid_t pid, int signal);
extern "C" int __wrap_kill(pid_t pid, int signal) {
    if (!oldProcess.isScripted) {
        return __real_kill(pid, signal);
    }
    record("kill " + std::to_string(pid) + " " + std::to_string(signal));
    if (oldProcess.aliveProbes-- > 0) {
        return 0;
    }
    errno = oldProcess.lastError;
    return -1;
}

extern "C" int __wrap_usleep(useconds_t microseconds);
extern "C" int __wrap_usleep(useconds_t microseconds) {
    record("usleep " + std::to_string(microseconds));
    if (oldProcess.duringSleep) {
        oldProcess.duringSleep();
    }
    return 0;
}
