// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The world of a receiver of window events in a test: a window manager that is ready, a set that is no debug
 * set, and a main loop that runs only when the test says so. Link with what WaylandCalls.h names.
 */
#ifndef TESTS_SUPPORT_RECEIVER_WORLD_H
#define TESTS_SUPPORT_RECEIVER_WORLD_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "SessionControl.h"
#include "ZelDaemonStateManager.h"
#include "support/Compositor.h"
#include "util/ZELLiteWaylandNotificationReceiver.h"

/** Fixture: every test begins with a receiver that was not started, and no compositor. */
class ReceiverWorld : public testing::Test {
protected:
    static constexpr const char* kReady = "/run/.wm_ready";

    ReceiverWorld();
    ~ReceiverWorld() override;

    /** Makes the receiver, and forgets what that took. */
    void make();

    /** Starts on a compositor, and forgets what that took. */
    void startOn(const Compositor::Manners& manners = {});

    /** Forgets what happened so far. */
    static void forget();

    /** Runs the main loop until so many error lines were logged since the last time; gives them. */
    static std::vector<std::string> linesAfter(std::size_t count);

    TCZelDaemonStateManager m_stateManager;
    TCSessionControl m_sessionControl{m_stateManager};
    std::unique_ptr<Compositor> m_compositor;
    std::unique_ptr<CZELLiteWaylandNotificationReceiver> m_receiver;
};

#endif
