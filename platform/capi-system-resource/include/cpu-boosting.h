/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Priorities of the scheduler that follow a call from one process to another.
 *
 * On the set a process that waits for an answer may pass its own boosted priority on to the one that answers,
 * the *destination*. Linux has nothing that corresponds.
 */
#ifndef CPU_BOOSTING_H
#define CPU_BOOSTING_H

#include "cpu-boosting-type.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Makes threads the destination of priorities under a name. On Linux it has no effect, and says so in the log
 * the first time it is called in a process. Callable from any thread. The contract of the declaration is the
 * set's.
 *
 * @param dest_process  name by which callers mean the destination; zero-terminated
 * @param pid           the threads; what it points to is only read during the call
 * @return 0 on success, which on Linux is always
 */
int resource_register_cpu_inheritance_destination(const char* dest_process, resource_pid_t pid);

#ifdef __cplusplus
}
#endif

#endif
