// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The IPC library without a bus.
 */
#ifndef TESTS_FAKES_FAKE_IPC_H
#define TESTS_FAKES_FAKE_IPC_H

#include <deque>

namespace fakes {

/**
 * Actions: "Setup INTERFACE OBJECT", "AddCallersObserver", "RemoveCallersObserver", "GetInstance INTERFACE
 * OBJECT", "StartNativeAPI INTERFACE".
 */
struct FakeIpc {
    /** What the coming calls of Setup answer, first to last; true when it is empty. */
    static std::deque<bool> setupResults;

    /** Whether RemoveCallersObserver throws. */
    static bool removalThrows;

    /** Drops the listener that StartNativeAPI was given. */
    static void dropListener();
};

}  // namespace fakes

#endif
