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

// A buffer of zeros: black, or with an alpha channel nothing at all.
Handle<wl_buffer> makeBuffer(wl_shm* shm, const WindowLook& look) {
    const int stride = look.width * kBytesPerPixel;
    const int size = stride * look.height;
    const int memory = memfd_create("window", MFD_CLOEXEC);
    if (memory < 0) {
        throw std::runtime_error("no memory for the window's content");
    }
    const bool isThere = ftruncate(memory, size) == 0;
    const Handle<wl_shm_pool> pool(isThere ? wl_shm_create_pool(shm, memory, size) : nullptr);
    close(memory);
    if (!pool) {
        throw std::runtime_error("no memory for the window's content");
    }
    return Handle<wl_buffer>(
        wl_shm_pool_create_buffer(pool.get(), 0, look.width, look.height, stride,
                                  look.opaque ? WL_SHM_FORMAT_XRGB8888 : WL_SHM_FORMAT_ARGB8888));
}

}  // namespace

WindowClient::WindowClient() : m_display(wl_display_connect(nullptr)) {
    if (!m_display) {
        throw std::runtime_error("there is no window manager");
    }
    static constexpr wl_registry_listener kRegistry = {
        [](void* self, wl_registry* registry, std::uint32_t name, const char* interface,
           std::uint32_t /*version*/) { static_cast<WindowClient*>(self)->use(registry, name, interface); },
        [](void* /*self*/, wl_registry* /*registry*/, std::uint32_t /*name*/) {}};
    m_registry.reset(wl_display_get_registry(m_display.get()));
    wl_registry_add_listener(m_registry.get(), &kRegistry, this);
    roundtrip();
    if (!m_compositor || !m_subcompositor || !m_shm || !m_base || !m_control) {
        throw std::runtime_error("the window manager lacks what a window needs");
    }
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
        m_compositor.reset(static_cast<wl_compositor*>(compositor));
    } else if (void* const subcompositor = bind(wl_subcompositor_interface)) {
        m_subcompositor.reset(static_cast<wl_subcompositor*>(subcompositor));
    } else if (void* const shm = bind(wl_shm_interface)) {
        m_shm.reset(static_cast<wl_shm*>(shm));
    } else if (void* const base = bind(xdg_wm_base_interface)) {
        m_base.reset(static_cast<xdg_wm_base*>(base));
        xdg_wm_base_add_listener(m_base.get(), &kBase, nullptr);
    } else if (void* const control = bind(zel_window_control_interface)) {
        m_control.reset(static_cast<zel_window_control*>(control));
        zel_window_control_add_listener(m_control.get(), &kControl, this);
    }
}

void WindowClient::roundtrip() {
    if (wl_display_roundtrip(m_display.get()) < 0) {
        throw std::runtime_error("the window manager has gone");
    }
}

void WindowClient::dispatch() {
    if (wl_display_dispatch(m_display.get()) < 0) {
        throw std::runtime_error("the window manager has gone");
    }
}

ClientWindow::ClientWindow(WindowClient& client, const WindowLook& look, std::optional<WindowPlace> place)
    : m_client(client), m_look(look), m_window(makeSheet()) {
    makeXdgSurface(m_window);
    m_window.toplevel.reset(xdg_surface_get_toplevel(m_window.xdgSurface.get()));
    awaitConfigured(m_window);
    if (place) {
        zel_window_control_place(client.m_control.get(), m_window.surface.get(), place->x, place->y);
    }
    draw(m_window, m_look);
    zel_window_control_identify(client.m_control.get(), m_window.surface.get());
    client.roundtrip();
    m_id = client.m_identified;
}

// The window manager hears of it at once, not with the next request.
ClientWindow::~ClientWindow() {
    m_others.clear();
    m_window = {};
    wl_display_flush(m_client.m_display.get());
}

ClientWindow::Sheet ClientWindow::makeSheet() {
    Sheet sheet;
    sheet.surface.reset(wl_compositor_create_surface(m_client.m_compositor.get()));
    return sheet;
}

void ClientWindow::makeXdgSurface(Sheet& sheet) {
    static constexpr xdg_surface_listener kListener = {
        [](void* self, xdg_surface* surface, std::uint32_t serial) {
            xdg_surface_ack_configure(surface, serial);
            static_cast<ClientWindow*>(self)->m_isConfigured = true;
        }};
    sheet.xdgSurface.reset(xdg_wm_base_get_xdg_surface(m_client.m_base.get(), sheet.surface.get()));
    xdg_surface_add_listener(sheet.xdgSurface.get(), &kListener, this);
}

// The first commit is without content, and asks the window manager for its word.
void ClientWindow::awaitConfigured(const Sheet& sheet) {
    m_isConfigured = false;
    wl_surface_commit(sheet.surface.get());
    while (!m_isConfigured) {
        m_client.dispatch();
    }
}

void ClientWindow::draw(Sheet& sheet, const WindowLook& look) {
    sheet.buffer = makeBuffer(m_client.m_shm.get(), look);
    wl_surface_attach(sheet.surface.get(), sheet.buffer.get(), 0, 0);
    wl_surface_damage(sheet.surface.get(), 0, 0, look.width, look.height);
    const Handle<wl_region> opaque(wl_compositor_create_region(m_client.m_compositor.get()));
    if (look.opaque) {
        wl_region_add(opaque.get(), 0, 0, look.width, look.height);
    }
    wl_surface_set_opaque_region(sheet.surface.get(), opaque.get());
    wl_surface_commit(sheet.surface.get());
}

void ClientWindow::look(const WindowLook& look) {
    m_look = look;
    draw(m_window, m_look);
    m_client.roundtrip();
}

void ClientWindow::place(const WindowPlace& place) {
    zel_window_control_place(m_client.m_control.get(), m_window.surface.get(), place.x, place.y);
    m_client.roundtrip();
}

void ClientWindow::raise() {
    zel_window_control_raise(m_client.m_control.get(), m_window.surface.get());
    m_client.roundtrip();
}

void ClientWindow::minimise() {
    xdg_toplevel_set_minimized(m_window.toplevel.get());
    m_client.roundtrip();
}

void ClientWindow::hide() {
    wl_surface_attach(m_window.surface.get(), nullptr, 0, 0);
    wl_surface_commit(m_window.surface.get());
    m_client.roundtrip();
}

void ClientWindow::show() {
    draw(m_window, m_look);
    m_client.roundtrip();
}

void ClientWindow::addPart(const WindowLook& look, const WindowPlace& place) {
    Sheet& part = m_others.emplace_back(makeSheet());
    part.subsurface.reset(wl_subcompositor_get_subsurface(m_client.m_subcompositor.get(), part.surface.get(),
                                                          m_window.surface.get()));
    wl_subsurface_set_position(part.subsurface.get(), place.x, place.y);
    draw(part, look);
    wl_surface_commit(m_window.surface.get());
    m_client.roundtrip();
}

void ClientWindow::openMenu(const WindowLook& look, const WindowPlace& place) {
    Sheet& menu = m_others.emplace_back(makeSheet());
    makeXdgSurface(menu);
    const Handle<xdg_positioner> positioner(xdg_wm_base_create_positioner(m_client.m_base.get()));
    xdg_positioner_set_size(positioner.get(), look.width, look.height);
    xdg_positioner_set_anchor_rect(positioner.get(), place.x, place.y, 1, 1);
    xdg_positioner_set_anchor(positioner.get(), XDG_POSITIONER_ANCHOR_TOP_LEFT);
    xdg_positioner_set_gravity(positioner.get(), XDG_POSITIONER_GRAVITY_BOTTOM_RIGHT);
    menu.popup.reset(
        xdg_surface_get_popup(menu.xdgSurface.get(), m_window.xdgSurface.get(), positioner.get()));
    awaitConfigured(menu);
    draw(menu, look);
    m_client.roundtrip();
}

void ClientWindow::hint(int state) {
    zel_window_control_set_hint(m_client.m_control.get(), m_window.surface.get(), state);
    m_client.roundtrip();
}

void ClientWindow::announceReady(int visibility) {
    zel_window_control_announce_ready(m_client.m_control.get(), m_window.surface.get(), visibility);
    m_client.roundtrip();
}

void ClientWindow::announceAsync(int visibility) {
    zel_window_control_announce_async(m_client.m_control.get(), m_window.surface.get(), visibility);
    m_client.roundtrip();
}
