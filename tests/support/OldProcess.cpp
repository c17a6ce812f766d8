// SPDX-License-Identifier: Apache-2.0
#include "support/OldProcess.h"

#include <sys/types.h>
#include <unistd.h>

OldProcess oldProcess;

extern "C" int __real_kill(pid_t pid, int signal);
extern "C" int __wrap_kill(pid_t pid, int signal);
extern "C" int __wrap_kill(pid_t pid, int signal) {
    if (!oldProcess.isScripted) {
        return __real_kill(pid, signal);
    }
    oldProcess.calls.push_back("kill " + std::to_string(pid) + " " + std::to_string(signal));
    if (oldProcess.aliveProbes-- > 0) {
        return 0;
    }
    errno = oldProcess.lastError;
    return -1;
}

extern "C" int __wrap_usleep(useconds_t microseconds);
extern "C" int __wrap_usleep(useconds_t microseconds) {
    oldProcess.calls.push_back("usleep " + std::to_string(microseconds));
    return 0;
}
