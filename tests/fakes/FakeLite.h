// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The light part of the service-API library: build properties set by the test, assertions recorded.
 */
#ifndef TESTS_FAKES_FAKE_LITE_H
#define TESTS_FAKES_FAKE_LITE_H

namespace fakes {

/**
 * What LiteUtility answers. Asking is the action "IsDebug" or "IsPerf"; an assertion is the action
 * "assert EXPRESSION FILE LINE", with " MESSAGE" behind it where there is one.
 */
struct FakeLite {
    static bool isDebug;
    static bool isPerf;
    /** How many bytes standard output, a file, had when the last assertion was reported. */
    static long printedBeforeAssertion;
};

}  // namespace fakes

#endif
