// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A process that lives as long as the test wants. Link with WRAP kill usleep.
 *
 * Actions of a scripted process: "kill PID SIGNAL", "usleep MICROSECONDS".
 */
#ifndef TESTS_SUPPORT_OLD_PROCESS_H
#define TESTS_SUPPORT_OLD_PROCESS_H

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

/** What kill and usleep do. Without a script kill is the real one, and usleep returns at once in any case. */
struct OldProcess {
    /** Whether kill only records its call. */
    bool isScripted = false;
    /** How many probes still succeed. */
    int aliveProbes = 0;
    /** What a probe fails with. */
    int lastError = ESRCH;
    /** Runs inside usleep, when set. */
    std::function<void()> duringSleep;
    /** The calls, each as its action. */
    std::vector<std::string> calls;
};

/** The one process that is probed. */
extern OldProcess oldProcess;

#endif
