/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The system's time.
 */
#ifndef BPTIME_H
#define BPTIME_H

#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Reads the system's time. Callable from any thread. The set's header is not public; `time_t` is what seconds
 * have on the machine, 32 bits on one and 64 on another.
 *
 * @param seconds  gets the seconds since 1970-01-01 00:00:00 UTC; not touched on failure
 * @return 0; -1 when @p seconds is null or there is no time
 */
int BPTime_get_current_time(time_t* seconds);

#ifdef __cplusplus
}
#endif

#endif
