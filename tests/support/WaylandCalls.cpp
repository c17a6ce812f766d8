// SPDX-License-Identifier: Apache-2.0
#include "support/WaylandCalls.h"

#include <wayland-client.h>
#include <wayland-extension/tizen-zel-notifier-client-protocol.h>

#include <cstdarg>
#include <string>

#include "fakes/Actions.h"

using fakes::Actions;

bool WaylandCalls::registryFails = false;
bool WaylandCalls::sourceFails = false;
std::deque<int> WaylandCalls::roundtripResults;
std::function<int(const timespec&, timespec&)> WaylandCalls::onSleep;
int WaylandCalls::flushes = 0;
int WaylandCalls::dispatches = 0;
wl_proxy* WaylandCalls::notifier = nullptr;
std::uint32_t WaylandCalls::notifierName = 0;
GSource* WaylandCalls::source = nullptr;

void WaylandCalls::detach() {
    if (source != nullptr) {
        g_source_destroy(source);
        g_source_unref(source);
        source = nullptr;
    }
}

void WaylandCalls::reset() {
    detach();
    registryFails = false;
    sourceFails = false;
    roundtripResults.clear();
    onSleep = nullptr;
    flushes = 0;
    dispatches = 0;
    notifier = nullptr;
    notifierName = 0;
}

extern "C" {
wl_proxy* __real_wl_proxy_marshal_flags(wl_proxy* proxy, std::uint32_t opcode, const wl_interface* interface,
                                        std::uint32_t version, std::uint32_t flags, ...);
wl_proxy* __wrap_wl_proxy_marshal_flags(wl_proxy* proxy, std::uint32_t opcode, const wl_interface* interface,
                                        std::uint32_t version, std::uint32_t flags, ...);
void __real_wl_proxy_destroy(wl_proxy* proxy);
void __wrap_wl_proxy_destroy(wl_proxy* proxy);
int __real_wl_display_roundtrip(wl_display* display);
int __wrap_wl_display_roundtrip(wl_display* display);
int __real_wl_display_flush(wl_display* display);
int __wrap_wl_display_flush(wl_display* display);
int __real_wl_display_dispatch(wl_display* display);
int __wrap_wl_display_dispatch(wl_display* display);
void __real_wl_display_disconnect(wl_display* display);
void __wrap_wl_display_disconnect(wl_display* display);
GSource* __real_g_source_new(GSourceFuncs* funcs, guint size);
GSource* __wrap_g_source_new(GSourceFuncs* funcs, guint size);
guint __real_g_source_attach(GSource* source, GMainContext* context);
guint __wrap_g_source_attach(GSource* source, GMainContext* context);
int __real_nanosleep(const timespec* asked, timespec* left);
int __wrap_nanosleep(const timespec* asked, timespec* left);
}

// Three requests are made: the registry's has no argument but the new object, the bind's has four, and that
// for the window on top has none.
wl_proxy* __wrap_wl_proxy_marshal_flags(wl_proxy* proxy, std::uint32_t opcode, const wl_interface* interface,
                                        std::uint32_t version, std::uint32_t flags, ...) {
    if (interface == nullptr) {
        return __real_wl_proxy_marshal_flags(proxy, opcode, interface, version, flags);
    }
    if (interface == &wl_registry_interface) {
        return WaylandCalls::registryFails
                   ? nullptr
                   : __real_wl_proxy_marshal_flags(proxy, opcode, interface, version, flags, nullptr);
    }
    std::va_list arguments;
    va_start(arguments, flags);
    const auto name = va_arg(arguments, std::uint32_t);
    const auto* const word = va_arg(arguments, const char*);
    const auto wanted = va_arg(arguments, std::uint32_t);
    va_end(arguments);
    WaylandCalls::notifierName = name;
    WaylandCalls::notifier =
        __real_wl_proxy_marshal_flags(proxy, opcode, interface, version, flags, name, word, wanted, nullptr);
    return WaylandCalls::notifier;
}

void __wrap_wl_proxy_destroy(wl_proxy* proxy) {
    Actions::add(std::string("destroyed ") + wl_proxy_get_class(proxy));
    __real_wl_proxy_destroy(proxy);
}

int __wrap_wl_display_roundtrip(wl_display* display) {
    const int result = __real_wl_display_roundtrip(display);
    if (WaylandCalls::roundtripResults.empty()) {
        return result;
    }
    const int scripted = WaylandCalls::roundtripResults.front();
    WaylandCalls::roundtripResults.pop_front();
    return scripted;
}

int __wrap_wl_display_flush(wl_display* display) {
    ++WaylandCalls::flushes;
    return __real_wl_display_flush(display);
}

int __wrap_wl_display_dispatch(wl_display* display) {
    ++WaylandCalls::dispatches;
    return __real_wl_display_dispatch(display);
}

void __wrap_wl_display_disconnect(wl_display* display) {
    Actions::add("disconnected");
    __real_wl_display_disconnect(display);
}

GSource* __wrap_g_source_new(GSourceFuncs* funcs, guint size) {
    return WaylandCalls::sourceFails ? nullptr : __real_g_source_new(funcs, size);
}

guint __wrap_g_source_attach(GSource* source, GMainContext* context) {
    if (source == nullptr) {
        // What GLib itself makes of it, but for its word on stderr.
        Actions::add("attached nothing");
        return 0;
    }
    WaylandCalls::source = source;
    Actions::add(context == g_main_context_default() ? "attached to the default context"
                                                     : "attached elsewhere");
    return __real_g_source_attach(source, context);
}

int __wrap_nanosleep(const timespec* asked, timespec* left) {
    timespec unused{};
    return WaylandCalls::onSleep ? WaylandCalls::onSleep(*asked, left != nullptr ? *left : unused)
                                 : __real_nanosleep(asked, left);
}
