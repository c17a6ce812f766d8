// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A session control that keeps nothing, for the classes above it. It takes the place of the real one at link
 * time.
 */
#ifndef TESTS_FAKES_FAKE_SESSION_CONTROL_H
#define TESTS_FAKES_FAKE_SESSION_CONTROL_H

#include <cstdint>
#include <string>

namespace fakes {

/**
 * What it answers. Actions: "SessionControl made", "SessionControl gone", "SessionControl::Open ID PROGRAM
 * PID", "SessionControl::Close ID", "SessionControl::CloseOnCrash ID", "SessionControl::CheckPIDs",
 * "SessionControl::TryTerminateZelWithAppLaunch ALWAYS".
 * A trace that is opened or closed is in lastTrace.
 */
struct FakeSessionControl {
    static bool openResult;
    static bool closeResult;
    /** Whether its constructor throws. */
    static bool throwsAtBirth;
    static std::string debugInfo;

    /** The arguments of the last OpenDebugTrace or CloseDebugTrace. */
    struct Trace {
        std::string sessionId;
        std::int64_t traceId = -1;
        std::string stackTrace;
        std::string processName;
        std::string progName;
        std::string pid;
        int language = -1;
    };
    static Trace lastTrace;
};

}  // namespace fakes

#endif
