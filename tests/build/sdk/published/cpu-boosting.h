/* SPDX-License-Identifier: Apache-2.0 */
/* The resource library as its public header has it. */
#ifndef __CPU_BOOSTING_H__
#define __CPU_BOOSTING_H__

#include "cpu-boosting-type.h"

#ifdef __cplusplus
extern "C" {
#endif

int resource_set_cpu_boosting(resource_pid_t pid, cpu_boosting_level_e level, int flags, int timeout_msec);
int resource_register_cpu_inheritance_destination(const char* dest_process, resource_pid_t pid);
int resource_unregister_cpu_inheritance_destination(const char* dest_process);

#ifdef __cplusplus
}
#endif

#endif
