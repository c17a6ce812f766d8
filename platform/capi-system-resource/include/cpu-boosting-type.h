/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The types of cpu-boosting.h.
 */
#ifndef CPU_BOOSTING_TYPE_H
#define CPU_BOOSTING_TYPE_H

#include <sys/types.h>

/** Which threads are meant: a whole process, or single threads. */
typedef struct {
    /** Process id; anything but 0 means all threads of that process. */
    pid_t pid;
    /** Thread ids, the caller's own; read only when pid is 0. */
    pid_t* tid;
    /** How many thread ids there are. */
    int tid_count;
} resource_pid_t;

#endif
