// SPDX-License-Identifier: Apache-2.0
// CPU inheritance: asking for it is the action "inherit DESTINATION self|other", and it fails.
#include <cpu-boosting.h>
#include <unistd.h>

#include <string>

#include "fakes/Actions.h"

int resource_register_cpu_inheritance_destination(const char* destination, resource_pid_t pid) {
    const bool isSelf = pid.pid == getpid() && pid.tid == nullptr && pid.tid_count == 0;
    fakes::Actions::add(std::string("inherit ") + destination + (isSelf ? " self" : " other"));
    return -1;
}
