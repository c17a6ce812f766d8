// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What the receiver of window events asks of libwayland, GLib and the system: written down, and failing where
 * a test says so. Everything else passes through. Link with WRAP wl_proxy_marshal_flags wl_proxy_destroy
 * wl_display_roundtrip wl_display_flush wl_display_dispatch wl_display_disconnect g_source_new
 * g_source_attach nanosleep.
 */
#ifndef TESTS_SUPPORT_WAYLAND_CALLS_H
#define TESTS_SUPPORT_WAYLAND_CALLS_H

#include <glib.h>

#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>

struct wl_proxy;

/**
 * For the main thread. Actions: "destroyed INTERFACE", "disconnected", "attached to the default context",
 * "attached elsewhere", "attached nothing".
 */
struct WaylandCalls {
    /** Whether there is no registry to be had. */
    static bool registryFails;
    /** Whether there is no source to be had. */
    static bool sourceFails;
    /** What the coming roundtrips return, first to last, after they were made; their own result when it is
     * empty. */
    static std::deque<int> roundtripResults;
    /** Answers in place of nanosleep; null for a real sleep. */
    static std::function<int(const timespec& asked, timespec& left)> onSleep;

    /** How many flushes and dispatches were asked for. */
    static int flushes;
    static int dispatches;
    /** The last notifier that was bound; one whose connection is gone dangles. */
    static wl_proxy* notifier;
    /** The number of the global that was bound as this notifier, 0 before. */
    static std::uint32_t notifierName;
    /** The source that was attached, null when there is none. */
    static GSource* source;

    /** Destroys the source: the receiver never does, and the main loop of the next test must not have it. */
    static void detach();
    /** Detaches, and lets everything pass again. */
    static void reset();
};

#endif
