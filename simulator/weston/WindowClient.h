// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * An application with windows on the simulated television.
 *
 * A window is a rectangle of one colour that does what it is told. Everything throws std::runtime_error when
 * the window manager is not there, has gone, or refuses.
 */
#ifndef SIMULATOR_WESTON_WINDOW_CLIENT_H
#define SIMULATOR_WESTON_WINDOW_CLIENT_H

#include <optional>
#include <vector>

#include "Handles.h"

/** One connection to the window manager. Its windows go before it does. */
class WindowClient {
public:
    /** Connects to the window manager that the environment names. */
    WindowClient();
    WindowClient(const WindowClient&) = delete;
    WindowClient& operator=(const WindowClient&) = delete;

    /** Returns when the window manager has handled all that was sent. */
    void roundtrip();
    /** The descriptor that becomes readable when the window manager says something. */
    int descriptor() const { return wl_display_get_fd(m_display.get()); }
    /** Handles what the window manager says; waits for that. */
    void dispatch();

private:
    friend class ClientWindow;

    void use(wl_registry* registry, unsigned int name, const char* interface);

    Handle<wl_display> m_display;
    Handle<wl_registry> m_registry;
    Handle<wl_compositor> m_compositor;
    Handle<wl_subcompositor> m_subcompositor;
    Handle<wl_shm> m_shm;
    Handle<xdg_wm_base> m_base;
    Handle<zel_window_control> m_control;
    int m_identified = 0;  ///< the answer to the last question for a window's id
};

/** How a window looks. */
struct WindowLook {
    int width;
    int height;
    bool opaque;
};

/** Where a window is on the screen. */
struct WindowPlace {
    int x;
    int y;
};

/** One toplevel window. */
class ClientWindow {
public:
    /** Opens it and waits until it is there; without a place the window manager chooses one. */
    ClientWindow(WindowClient& client, const WindowLook& look, std::optional<WindowPlace> place);
    ~ClientWindow();
    ClientWindow(const ClientWindow&) = delete;
    ClientWindow& operator=(const ClientWindow&) = delete;

    /** What the window manager calls it. */
    int id() const { return m_id; }

    void look(const WindowLook& look);
    void place(const WindowPlace& place);
    void raise();
    void minimise();
    /** Takes its content away; show() brings it back. */
    void hide();
    void show();
    /** Puts a part of the window over it, at that place within it. */
    void addPart(const WindowLook& look, const WindowPlace& place);
    /** Opens a menu over the window, at that place within it. */
    void openMenu(const WindowLook& look, const WindowPlace& place);
    /** @param state  1 adds the hint, 2 removes it */
    void hint(int state);
    /** Have a change of visibility told without one; 0 visible, 1 partially, 2 not. */
    void announceReady(int visibility);
    void announceAsync(int visibility);

private:
    // What has content of its own. The role goes before the surface that has it.
    struct Sheet {
        Handle<wl_buffer> buffer;
        Handle<wl_surface> surface;
        Handle<wl_subsurface> subsurface;
        Handle<xdg_surface> xdgSurface;
        Handle<xdg_toplevel> toplevel;
        Handle<xdg_popup> popup;
    };

    Sheet makeSheet();
    void makeXdgSurface(Sheet& sheet);
    void awaitConfigured(const Sheet& sheet);
    void draw(Sheet& sheet, const WindowLook& look);

    WindowClient& m_client;
    WindowLook m_look;
    bool m_isConfigured = false;
    Sheet m_window;
    std::vector<Sheet> m_others;
    int m_id = 0;
};

#endif
