// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A service that answers what the test wants.
 */
#ifndef TESTS_FAKES_FAKE_CONTROL_H
#define TESTS_FAKES_FAKE_CONTROL_H

#include <functional>
#include <vector>

#include "ZelServiceAPI.h"

namespace fakes {

/**
 * The control of the service. Actions: "CreateZelControl", "DestroyZelControl",
 * "Notify TRIGGER SOURCE PLUGSTATE VALUE", "Terminate".
 */
struct FakeControl {
    /** Whether CreateZelControl gives a control. */
    static bool available;
    static int notifyResult;
    static int terminateResult;
    static std::vector<ETerminateErrorType> terminateErrors;
    static TSZelData terminateData;
    /** Runs inside Notify, when set. */
    static std::function<void()> duringNotify;
    /** Runs inside Terminate, when set. */
    static std::function<void()> duringTerminate;

    /** Back to: available, both results 1, no errors, default data. */
    static void reset();
};

}  // namespace fakes

#endif
