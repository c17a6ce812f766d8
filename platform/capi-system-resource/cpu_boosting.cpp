// SPDX-License-Identifier: Apache-2.0
// Inheritance of priorities on Linux: there is none.
#include "cpu-boosting.h"

#include <dlog.h>

#include <atomic>

int resource_register_cpu_inheritance_destination(const char* /*dest_process*/, resource_pid_t /*pid*/) {
    static std::atomic_flag said = ATOMIC_FLAG_INIT;
    if (!said.test_and_set()) {
        __dlog_print(LOG_ID_MAIN, DLOG_INFO, "CPU_BOOSTING",
                     "Linux passes no priorities on, nothing is registered");
    }
    return 0;
}
