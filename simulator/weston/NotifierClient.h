// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Somebody who binds the notifier, beside the daemon: what the window manager tells, as words.
 */
#ifndef SIMULATOR_WESTON_NOTIFIER_CLIENT_H
#define SIMULATOR_WESTON_NOTIFIER_CLIENT_H

#include <functional>
#include <string>

#include "Handles.h"

/**
 * One connection that has bound the notifier. Each event is handed over as one line:
 *
 *     visibility WINDOW PID STATE    0 visible, 1 partially, 2 not
 *     hint WINDOW PID STATE          1 added, 2 removed
 *     gone WINDOW PID
 *     ready WINDOW PID STATE         about to change
 *     async WINDOW PID STATE         changed out of order
 *     top WINDOW
 */
class NotifierClient {
public:
    using Hear = std::function<void(const std::string& line)>;

    /**
     * Connects and binds; what is heard first is the present state of every window.
     *
     * @throws std::runtime_error when there is no window manager or it offers no notifier
     */
    explicit NotifierClient(Hear hear);
    NotifierClient(const NotifierClient&) = delete;
    NotifierClient& operator=(const NotifierClient&) = delete;

    void askForTopMost();
    /** Returns when all that was told until now is heard. @throws std::runtime_error when the connection is
     * lost */
    void roundtrip();
    /** The descriptor that becomes readable when there are events. */
    int descriptor() const { return wl_display_get_fd(m_display.get()); }
    /** Waits for the next events. @throws std::runtime_error when the connection is lost */
    void dispatch();

private:
    Hear m_hear;
    Handle<wl_display> m_display;
    Handle<wl_registry> m_registry;
    Handle<tizen_zel_notifier> m_notifier;
};

#endif
