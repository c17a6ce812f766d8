// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The notifier protocol, offered to root: which windows are on the screen, and whose they are.
 */
#ifndef SIMULATOR_WESTON_NOTIFIER_H
#define SIMULATOR_WESTON_NOTIFIER_H

#include <wayland-server-core.h>

#include <memory>
#include <vector>

#include "Windows.h"

/**
 * Advertises tizen_zel_notifier and serves everybody who binds it. Only clients of root see the global; a
 * bind of any other is the protocol error of a global that does not exist.
 */
class Notifier {
public:
    Notifier(wl_display& display, Windows& windows);
    /** Whoever is still bound hears nothing more. */
    ~Notifier();
    Notifier(const Notifier&) = delete;
    Notifier& operator=(const Notifier&) = delete;

    void announceReady(int window, Visibility visibility);
    void announceAsync(int window, Visibility visibility);

private:
    class Binder;

    static bool isSeenBy(const wl_client* client, const wl_global* global, void* data);
    static void onBind(wl_client* client, void* data, unsigned int version, unsigned int id);

    wl_display& m_display;
    Windows& m_windows;
    wl_global* m_global;
    std::vector<std::unique_ptr<Binder>> m_binders;
};

#endif
