// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A process of its own for a test. The IPC end of a process is set up once and ends with the process, so a
 * test of it needs one that nobody has set up before.
 */
#ifndef TESTS_SUPPORT_FRESH_PROCESS_H
#define TESTS_SUPPORT_FRESH_PROCESS_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "support/PrivateBus.h"

/** Writes the failures of the running test to stderr; gtest itself keeps quiet in a process that it started.
 */
inline bool reportFailures() {
    const testing::TestResult& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int i = 0; i < result.total_part_count(); ++i) {
        const testing::TestPartResult& part = result.GetTestPartResult(i);
        if (part.failed()) {
            std::cerr << part.file_name() << ":" << part.line_number() << ": " << part.message() << std::endl;
        }
    }
    return result.Failed();
}

/**
 * A bus that lives until the process exits, and ends then however that comes about: gtest waits for everybody
 * who has its pipe. To be made before the server, so that it ends after it.
 */
inline PrivateBus& busUntilExit() {
    static PrivateBus bus;
    return bus;
}

/** Runs @p body in a new process, which exits in the ordinary way after it; its failures are the test's. */
template <typename Body>
void inFreshProcess(Body body) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [&body] {
        body();
        std::exit(reportFailures() ? 1 : 0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

#endif
