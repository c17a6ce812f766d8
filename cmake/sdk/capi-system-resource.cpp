// SPDX-License-Identifier: Apache-2.0
// What the daemon uses of the resource library. Compiled at configuration, never run.
#include <cpu-boosting.h>

int use() {
    resource_pid_t self{};
    self.pid = 1;
    return resource_register_cpu_inheritance_destination("name", self);
}
