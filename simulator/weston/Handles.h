// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Owners of what a client has from the window manager.
 */
#ifndef SIMULATOR_WESTON_HANDLES_H
#define SIMULATOR_WESTON_HANDLES_H

#include <wayland-client.h>

#include <memory>

struct tizen_zel_notifier;
struct xdg_popup;
struct xdg_positioner;
struct xdg_surface;
struct xdg_toplevel;
struct xdg_wm_base;
struct zel_window_control;

/** Ends each thing in its way. */
struct HandleDestroyer {
    void operator()(wl_display* display) const;
    void operator()(wl_registry* registry) const;
    void operator()(wl_compositor* compositor) const;
    void operator()(wl_shm* shm) const;
    void operator()(wl_shm_pool* pool) const;
    void operator()(wl_buffer* buffer) const;
    void operator()(wl_region* region) const;
    void operator()(wl_surface* surface) const;
    void operator()(wl_subcompositor* subcompositor) const;
    void operator()(wl_subsurface* subsurface) const;
    void operator()(xdg_wm_base* base) const;
    void operator()(xdg_positioner* positioner) const;
    void operator()(xdg_popup* popup) const;
    void operator()(xdg_surface* surface) const;
    void operator()(xdg_toplevel* toplevel) const;
    void operator()(zel_window_control* control) const;
    void operator()(tizen_zel_notifier* notifier) const;
};

/** Owns one of them. The display is the last to go. */
template <typename T>
using Handle = std::unique_ptr<T, HandleDestroyer>;

#endif
