// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Running the default main context until something holds.
 */
#ifndef DEVICED_TESTS_MAIN_CONTEXT_H
#define DEVICED_TESTS_MAIN_CONTEXT_H

#include <glib.h>

#include <functional>

/** Made before there are threads: ThreadSanitizer does not see the locks inside GLib that make it safe later.
 */
inline GMainContext* const mainContext = g_main_context_default();

/** Runs the default main context, event by event, until @p condition holds. @return whether it did within 20
 * s */
inline bool runUntil(const std::function<bool()>& condition) {
    bool late = false;
    const guint limit = g_timeout_add_seconds(
        20,
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_CONTINUE;
        },
        &late);
    // Looks every few milliseconds, because what another thread does wakes no context.
    const guint look = g_timeout_add(
        5, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    while (!condition() && !late) {
        g_main_context_iteration(mainContext, TRUE);
    }
    g_source_remove(look);
    g_source_remove(limit);
    return !late;
}

#endif
