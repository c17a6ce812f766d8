// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The file in which session control keeps its table, and a session control that reads and writes it.
 */
#ifndef TESTS_SUPPORT_STATE_FILE_WORLD_H
#define TESTS_SUPPORT_STATE_FILE_WORLD_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "SessionControl.h"
#include "ZelDaemonStateManager.h"

/** The file, and the one that is written beside it. */
constexpr const char* kState = "/tmp/zel_lite_sessions_state.txt";
constexpr const char* kTemporary = "/tmp/zel_lite_sessions_state_tmp.txt";

/** The bytes of an integer as the file holds it. */
std::string number(int value);

/** A text with its length before it. */
std::string text(const std::string& content);

/** One session as the file holds it. */
std::string session(const std::string& id, const std::string& program, const std::string& pid);

/** Fixture: every test begins without a state file, on a set that is no debug set. */
class StateFileWorld : public testing::Test {
protected:
    StateFileWorld();

    /** Forgets what happened so far. */
    static void forget();

    /** The sessions that a new daemon would read, seen through what it writes when one more opens. */
    std::string tableAfterOneMore();

    /** Makes the session control anew, with this file before it. */
    void load(const std::string& content);

    TCZelDaemonStateManager m_manager;
    std::unique_ptr<TCSessionControl> m_control;
};

#endif
