// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A session control that keeps nothing, for the classes above it. It takes the place of the real one at link
 * time.
 */
#ifndef TESTS_FAKES_FAKE_SESSION_CONTROL_H
#define TESTS_FAKES_FAKE_SESSION_CONTROL_H

namespace fakes {

/**
 * What it answers. Actions: "SessionControl made", "SessionControl gone", "SessionControl::Open ID PROGRAM
 * PID", "SessionControl::Close ID", "SessionControl::CloseOnCrash ID".
 */
struct FakeSessionControl {
    static bool openResult;
    static bool closeResult;
    /** Whether its constructor throws. */
    static bool throwsAtBirth;
};

}  // namespace fakes

#endif
