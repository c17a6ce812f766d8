// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A kernel that takes boot markers. Link with WRAP prctl.
 */
#ifndef TESTS_FAKES_FAKE_PRCTL_H
#define TESTS_FAKES_FAKE_PRCTL_H

#include <string>
#include <vector>

namespace fakes {

/** One boot marker as it reached the kernel; it is also the action "marker TEXT". */
struct BootMark {
    std::string text;
    unsigned long length;
};

/** The markers since the last call. */
std::vector<BootMark> takeBootMarks();

}  // namespace fakes

#endif
