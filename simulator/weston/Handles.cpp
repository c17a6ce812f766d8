// SPDX-License-Identifier: Apache-2.0
#include "Handles.h"

#include <tizen-zel-notifier-client-protocol.h>
#include <xdg-shell-client-protocol.h>
#include <zel-window-control-client-protocol.h>

void HandleDestroyer::operator()(wl_display* display) const {
    wl_display_disconnect(display);
}

void HandleDestroyer::operator()(wl_registry* registry) const {
    wl_registry_destroy(registry);
}

void HandleDestroyer::operator()(wl_compositor* compositor) const {
    wl_compositor_destroy(compositor);
}

void HandleDestroyer::operator()(wl_shm* shm) const {
    wl_shm_destroy(shm);
}

void HandleDestroyer::operator()(wl_shm_pool* pool) const {
    wl_shm_pool_destroy(pool);
}

void HandleDestroyer::operator()(wl_buffer* buffer) const {
    wl_buffer_destroy(buffer);
}

void HandleDestroyer::operator()(wl_region* region) const {
    wl_region_destroy(region);
}

void HandleDestroyer::operator()(wl_surface* surface) const {
    wl_surface_destroy(surface);
}

void HandleDestroyer::operator()(xdg_wm_base* base) const {
    xdg_wm_base_destroy(base);
}

void HandleDestroyer::operator()(xdg_surface* surface) const {
    xdg_surface_destroy(surface);
}

void HandleDestroyer::operator()(xdg_toplevel* toplevel) const {
    xdg_toplevel_destroy(toplevel);
}

void HandleDestroyer::operator()(zel_window_control* control) const {
    zel_window_control_destroy(control);
}

void HandleDestroyer::operator()(tizen_zel_notifier* notifier) const {
    tizen_zel_notifier_destroy(notifier);
}

void HandleDestroyer::operator()(wl_subcompositor* subcompositor) const {
    wl_subcompositor_destroy(subcompositor);
}

void HandleDestroyer::operator()(wl_subsurface* subsurface) const {
    wl_subsurface_destroy(subsurface);
}

void HandleDestroyer::operator()(xdg_positioner* positioner) const {
    xdg_positioner_destroy(positioner);
}

void HandleDestroyer::operator()(xdg_popup* popup) const {
    xdg_popup_destroy(popup);
}
