// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The window manager proper: where windows are and which is in front of which.
 *
 * A new window lies in front of all others, in the middle of the screen or where it asked to be; one that
 * wants the whole screen gets it. A minimised window lies nowhere until it is raised. After each picture that
 * the screen shows, how much of each window is seen in it is worked out and handed to Windows.
 */
#ifndef SIMULATOR_WESTON_SHELL_H
#define SIMULATOR_WESTON_SHELL_H

#include <libweston-desktop/libweston-desktop.h>
#include <libweston/libweston.h>

#include <map>
#include <memory>
#include <optional>

#include "Listener.h"
#include "Windows.h"

/** Manages the toplevel windows of a compositor with one screen. */
class Shell {
public:
    /** @throws std::runtime_error when the compositor has no screen */
    Shell(weston_compositor& compositor, Windows& windows);
    ~Shell();
    Shell(const Shell&) = delete;
    Shell& operator=(const Shell&) = delete;

    /** The id of the window that a surface is, nothing when it is none. */
    std::optional<int> windowOf(weston_surface& surface) const;
    void place(int window, int x, int y);
    void raise(int window);

private:
    struct Position {
        int x;
        int y;
    };
    struct Window {
        int id;
        weston_desktop_surface* surface;
        weston_view* view;
        std::optional<Position> wanted;
        bool minimised;
    };

    static weston_desktop_api callbacks();
    void added(weston_desktop_surface* surface);
    void removed(weston_desktop_surface* surface);
    void committed(weston_desktop_surface* surface);
    void minimise(weston_desktop_surface* surface);
    static Window* managed(weston_desktop_surface* surface);
    void show(Window& window);
    void settle(Window& window);
    void stack(Window& window, weston_layer& layer);
    void shown();
    int windowAt(const weston_view& view) const;

    weston_compositor& m_compositor;
    weston_output* m_screen;
    Windows& m_windows;
    weston_layer m_front{};
    weston_layer m_minimised{};  ///< has no position, so what is in it is not on the screen
    weston_desktop_api m_callbacks;
    weston_desktop* m_desktop;
    std::map<int, Window> m_managed;
    std::unique_ptr<Listener> m_frame;
};

#endif
