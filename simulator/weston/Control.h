// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The private protocol by which a client decides, for its own windows, what a television's window manager
 * decides.
 */
#ifndef SIMULATOR_WESTON_CONTROL_H
#define SIMULATOR_WESTON_CONTROL_H

#include <wayland-server-core.h>

#include "Notifier.h"
#include "Shell.h"
#include "Windows.h"

/** Advertises zel_window_control to everybody: nobody can name a surface of another client. */
class Control {
public:
    Control(wl_display& display, Windows& windows, Shell& shell, Notifier& notifier);
    ~Control() { wl_global_destroy(m_global); }
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

private:
    struct Requests;

    static void onBind(wl_client* client, void* data, unsigned int version, unsigned int id);

    Windows& m_windows;
    Shell& m_shell;
    Notifier& m_notifier;
    wl_global* m_global;
};

#endif
