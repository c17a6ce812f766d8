/* SPDX-License-Identifier: Apache-2.0 */
/* The types of the resource library as its public header has them. */
#ifndef __CPU_BOOSTING_TYPE_H__
#define __CPU_BOOSTING_TYPE_H__

#include <sys/types.h>

typedef enum {
    CPU_BOOSTING_LEVEL_STRONG = 0,
    CPU_BOOSTING_LEVEL_MEDIUM,
    CPU_BOOSTING_LEVEL_WEAK
} cpu_boosting_level_e;

typedef struct {
    pid_t pid;
    pid_t* tid;
    int tid_count;
} resource_pid_t;

#endif
