// SPDX-License-Identifier: Apache-2.0
// What the daemon uses of the window manager's extension. Compiled at configuration, never run.
#include <wayland-extension/tizen-zel-notifier-client-protocol.h>

static void topMost(void*, tizen_zel_notifier*, int) {}
static void event(void*, tizen_zel_notifier*, int, wl_array*) {}
static void visibility(void*, tizen_zel_notifier*, int, wl_array*) {}
static void clients(void*, tizen_zel_notifier*, wl_array*) {}

int use(wl_registry* registry) {
    static const tizen_zel_notifier_listener listener = {topMost, event, visibility, visibility, clients};
    auto* notifier =
        static_cast<tizen_zel_notifier*>(wl_registry_bind(registry, 1, &tizen_zel_notifier_interface, 1));
    tizen_zel_notifier_get_top_most_client(notifier);
    return tizen_zel_notifier_add_listener(notifier, &listener, nullptr);
}
