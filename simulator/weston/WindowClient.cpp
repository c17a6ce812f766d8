// SPDX-License-Identifier: Apache-2.0
#include "WindowClient.h"

#include <sys/mman.h>
#include <unistd.h>
#include <xdg-shell-client-protocol.h>
#include <zel-window-control-client-protocol.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

constexpr int kBytesPerPixel = 4;

// A buffer of black pixels: memory starts as zeros, and with an alpha channel, zeros shine through.
wl_buffer* makeBuffer(wl_shm* shm, const WindowLook& look) {
    const int stride = look.width * kBytesPerPixel;
    const int size = stride * look.height;
    const int memory = memfd_create("window", MFD_CLOEXEC);
    if (memory < 0 || ftruncate(memory, size) != 0) {
        throw std::runtime_error("no memory for the window's content");
    }
    wl_shm_pool* const pool = wl_shm_create_pool(shm, memory, size);
    wl_buffer* const buffer =
        wl_shm_pool_create_buffer(pool, 0, look.width, look.height, stride,
                                  look.opaque ? WL_SHM_FORMAT_XRGB8888 : WL_SHM_FORMAT_ARGB8888);
    wl_shm_pool_destroy(pool);
    close(memory);
    return buffer;
}

}  // namespace

WindowClient::WindowClient() : m_display(wl_display_connect(nullptr)) {
    if (m_display == nullptr) {
        throw std::runtime_error("there is no window manager");
    }
    static constexpr wl_registry_listener kRegistry = {
        [](void* self, wl_registry* registry, std::uint32_t name, const char* interface,
           std::uint32_t /*version*/) { static_cast<WindowClient*>(self)->use(registry, name, interface); },
        [](void* /*self*/, wl_registry* /*registry*/, std::uint32_t /*name*/) {}};
    m_registry = wl_display_get_registry(m_display);
    wl_registry_add_listener(m_registry, &kRegistry, this);
    const bool answered = wl_display_roundtrip(m_display) >= 0;
    if (!answered || m_compositor == nullptr || m_shm == nullptr || m_base == nullptr ||
        m_control == nullptr) {
        disconnect();
        throw std::runtime_error("the window manager lacks what a window needs");
    }
}

WindowClient::~WindowClient() {
    disconnect();
}

void WindowClient::disconnect() {
    if (m_control != nullptr) {
        zel_window_control_destroy(m_control);
    }
    if (m_base != nullptr) {
        xdg_wm_base_destroy(m_base);
    }
    if (m_shm != nullptr) {
        wl_shm_destroy(m_shm);
    }
    if (m_compositor != nullptr) {
        wl_compositor_destroy(m_compositor);
    }
    wl_registry_destroy(m_registry);
    wl_display_disconnect(m_display);
}

void WindowClient::use(wl_registry* registry, unsigned int name, const char* interface) {
    const auto bind = [&](const wl_interface& wanted) {
        return std::strcmp(interface, wanted.name) == 0 ? wl_registry_bind(registry, name, &wanted, 1)
                                                        : nullptr;
    };
    static constexpr xdg_wm_base_listener kBase = {
        [](void* /*self*/, xdg_wm_base* base, std::uint32_t serial) { xdg_wm_base_pong(base, serial); }};
    static constexpr zel_window_control_listener kControl = {
        [](void* self, zel_window_control* /*control*/, int id) {
            static_cast<WindowClient*>(self)->m_identified = id;
        }};
    if (void* const compositor = bind(wl_compositor_interface)) {
        m_compositor = static_cast<wl_compositor*>(compositor);
    } else if (void* const shm = bind(wl_shm_interface)) {
        m_shm = static_cast<wl_shm*>(shm);
    } else if (void* const base = bind(xdg_wm_base_interface)) {
        m_base = static_cast<xdg_wm_base*>(base);
        xdg_wm_base_add_listener(m_base, &kBase, nullptr);
    } else if (void* const control = bind(zel_window_control_interface)) {
        m_control = static_cast<zel_window_control*>(control);
        zel_window_control_add_listener(m_control, &kControl, this);
    }
}

void WindowClient::roundtrip() {
    if (wl_display_roundtrip(m_display) < 0) {
        throw std::runtime_error("the window manager has gone");
    }
}

void WindowClient::dispatch() {
    if (wl_display_dispatch(m_display) < 0) {
        throw std::runtime_error("the window manager has gone");
    }
}

ClientWindow::ClientWindow(WindowClient& client, const WindowLook& look, std::optional<WindowPlace> place)
    : m_client(client),
      m_look(look),
      m_surface(wl_compositor_create_surface(client.m_compositor)),
      m_xdgSurface(xdg_wm_base_get_xdg_surface(client.m_base, m_surface)),
      m_toplevel(xdg_surface_get_toplevel(m_xdgSurface)) {
    static constexpr xdg_surface_listener kSurface = {
        [](void* self, xdg_surface* surface, std::uint32_t serial) {
            xdg_surface_ack_configure(surface, serial);
            static_cast<ClientWindow*>(self)->m_isConfigured = true;
        }};
    xdg_surface_add_listener(m_xdgSurface, &kSurface, this);
    wl_surface_commit(m_surface);
    awaitConfigured();
    if (place) {
        zel_window_control_place(client.m_control, m_surface, place->x, place->y);
    }
    draw();
    zel_window_control_identify(client.m_control, m_surface);
    client.roundtrip();
    m_id = client.m_identified;
}

ClientWindow::~ClientWindow() {
    xdg_toplevel_destroy(m_toplevel);
    xdg_surface_destroy(m_xdgSurface);
    wl_surface_destroy(m_surface);
    if (m_buffer != nullptr) {
        wl_buffer_destroy(m_buffer);
    }
    wl_display_flush(m_client.m_display);
}

void ClientWindow::awaitConfigured() {
    while (!m_isConfigured) {
        m_client.dispatch();
    }
}

void ClientWindow::draw() {
    if (m_buffer != nullptr) {
        wl_buffer_destroy(m_buffer);
    }
    m_buffer = makeBuffer(m_client.m_shm, m_look);
    wl_surface_attach(m_surface, m_buffer, 0, 0);
    wl_surface_damage(m_surface, 0, 0, m_look.width, m_look.height);
    wl_region* const opaque = wl_compositor_create_region(m_client.m_compositor);
    if (m_look.opaque) {
        wl_region_add(opaque, 0, 0, m_look.width, m_look.height);
    }
    wl_surface_set_opaque_region(m_surface, opaque);
    wl_region_destroy(opaque);
    wl_surface_commit(m_surface);
}

void ClientWindow::look(const WindowLook& look) {
    m_look = look;
    draw();
    m_client.roundtrip();
}

void ClientWindow::place(const WindowPlace& place) {
    zel_window_control_place(m_client.m_control, m_surface, place.x, place.y);
    m_client.roundtrip();
}

void ClientWindow::raise() {
    zel_window_control_raise(m_client.m_control, m_surface);
    m_client.roundtrip();
}

void ClientWindow::minimise() {
    xdg_toplevel_set_minimized(m_toplevel);
    m_client.roundtrip();
}

void ClientWindow::hide() {
    wl_surface_attach(m_surface, nullptr, 0, 0);
    wl_surface_commit(m_surface);
    m_client.roundtrip();
}

void ClientWindow::show() {
    draw();
    m_client.roundtrip();
}

void ClientWindow::hint(int state) {
    zel_window_control_set_hint(m_client.m_control, m_surface, state);
    m_client.roundtrip();
}

void ClientWindow::announceReady(int visibility) {
    zel_window_control_announce_ready(m_client.m_control, m_surface, visibility);
    m_client.roundtrip();
}

void ClientWindow::announceAsync(int visibility) {
    zel_window_control_announce_async(m_client.m_control, m_surface, visibility);
    m_client.roundtrip();
}
