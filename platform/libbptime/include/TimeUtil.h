// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The system's time, for C++.
 */
#ifndef TIME_UTIL_H
#define TIME_UTIL_H

#include <ctime>

class CTimeUtil {
public:
    /** The system's time in seconds since 1970-01-01 00:00:00 UTC. Callable from any thread. */
    static std::time_t GetCurrentTime();
};

#endif
