// SPDX-License-Identifier: Apache-2.0
#include "Shell.h"

#include <new>
#include <stdexcept>
#include <vector>

namespace {

weston_output* firstScreen(weston_compositor& compositor) {
    if (wl_list_empty(&compositor.output_list) != 0) {
        throw std::runtime_error("the compositor has no screen");
    }
    weston_output* screen = nullptr;
    return wl_container_of(compositor.output_list.next, screen, link);
}

}  // namespace

Shell::Shell(weston_compositor& compositor, Windows& windows)
    : m_compositor(compositor),
      m_screen(firstScreen(compositor)),
      m_windows(windows),
      m_callbacks(callbacks()),
      m_desktop(weston_desktop_create(&compositor, &m_callbacks, this)) {
    if (m_desktop == nullptr) {
        throw std::bad_alloc();
    }
    weston_layer_init(&m_front, &compositor);
    weston_layer_set_position(&m_front, WESTON_LAYER_POSITION_NORMAL);
    weston_layer_init(&m_minimised, &compositor);
    m_frame = std::make_unique<Listener>(m_screen->frame_signal, [this] { shown(); });
}

Shell::~Shell() {
    m_frame.reset();
    weston_desktop_destroy(m_desktop);
    weston_layer_fini(&m_front);
    weston_layer_fini(&m_minimised);
}

weston_desktop_api Shell::callbacks() {
    weston_desktop_api api{};
    api.struct_size = sizeof api;
    api.surface_added = [](weston_desktop_surface* surface, void* self) {
        static_cast<Shell*>(self)->added(surface);
    };
    api.surface_removed = [](weston_desktop_surface* surface, void* self) {
        static_cast<Shell*>(self)->removed(surface);
    };
    api.committed = [](weston_desktop_surface* surface, std::int32_t /*sx*/, std::int32_t /*sy*/,
                       void* self) { static_cast<Shell*>(self)->committed(surface); };
    api.minimized_requested = [](weston_desktop_surface* surface, void* self) {
        static_cast<Shell*>(self)->minimise(surface);
    };
    return api;
}

std::optional<int> Shell::windowOf(weston_surface& surface) const {
    weston_desktop_surface* const desktop =
        weston_surface_is_desktop_surface(&surface) ? weston_surface_get_desktop_surface(&surface) : nullptr;
    const Window* const window = desktop == nullptr ? nullptr : managed(desktop);
    return window == nullptr ? std::nullopt : std::optional(window->id);
}

// Nothing for what is no toplevel window, such as a menu.
Shell::Window* Shell::managed(weston_desktop_surface* surface) {
    return static_cast<Window*>(weston_desktop_surface_get_user_data(surface));
}

void Shell::place(int window, int x, int y) {
    Window& placed = m_managed.at(window);
    placed.wanted = {x, y};
    settle(placed);
}

void Shell::raise(int window) {
    Window& raised = m_managed.at(window);
    raised.minimised = false;
    if (weston_view_is_mapped(raised.view)) {
        stack(raised, m_front);
    }
}

void Shell::added(weston_desktop_surface* surface) {
    weston_view* const view = weston_desktop_surface_create_view(surface);
    if (view == nullptr) {
        return;
    }
    const int id = m_windows.add(weston_desktop_surface_get_pid(surface));
    Window& window = m_managed[id];
    window = {id, surface, view, std::nullopt, false};
    weston_desktop_surface_set_user_data(surface, &window);
}

void Shell::removed(weston_desktop_surface* surface) {
    const Window* const window = managed(surface);
    if (window == nullptr) {
        return;
    }
    weston_desktop_surface_set_user_data(surface, nullptr);
    weston_desktop_surface_unlink_view(window->view);
    weston_view_destroy(window->view);
    const int id = window->id;
    m_managed.erase(id);
    m_windows.remove(id);
}

void Shell::committed(weston_desktop_surface* surface) {
    Window* const window = managed(surface);
    const bool hasContent = weston_desktop_surface_get_surface(surface)->width > 0;
    if (window != nullptr && hasContent && !weston_view_is_mapped(window->view)) {
        show(*window);
    }
}

void Shell::minimise(weston_desktop_surface* surface) {
    Window* const window = managed(surface);
    if (window == nullptr) {
        return;
    }
    window->minimised = true;
    if (weston_view_is_mapped(window->view)) {
        stack(*window, m_minimised);
    }
}

void Shell::show(Window& window) {
    weston_desktop_surface_get_surface(window.surface)->is_mapped = true;
    window.view->is_mapped = true;
    stack(window, window.minimised ? m_minimised : m_front);
    settle(window);
}

// Moves the window to where it is to be. A window may draw a border or a shadow around what counts as the
// window.
void Shell::settle(Window& window) {
    if (!weston_view_is_mapped(window.view)) {
        return;
    }
    const weston_geometry inner = weston_desktop_surface_get_geometry(window.surface);
    const Position middle{m_screen->x + (m_screen->width - inner.width) / 2,
                          m_screen->y + (m_screen->height - inner.height) / 2};
    const Position at = window.wanted.value_or(middle);
    weston_view_set_position(window.view, static_cast<float>(at.x - inner.x),
                             static_cast<float>(at.y - inner.y));
    // Also a window beside the screen, which needs no new picture, is looked at once more.
    weston_output_schedule_repaint(m_screen);
}

// Puts the window in front of a layer, its menus with it. Nobody looks at the picture, so what was there
// before is not painted over.
void Shell::stack(Window& window, weston_layer& layer) {
    weston_layer_entry_remove(&window.view->layer_link);
    weston_layer_entry_insert(&layer.view_list, &window.view->layer_link);
    weston_desktop_surface_propagate_layer(window.surface);
    weston_view_geometry_dirty(window.view);
    weston_output_schedule_repaint(m_screen);
}

void Shell::shown() {
    std::vector<Piece> pieces;
    weston_view* view = nullptr;
    wl_list_for_each(view, &m_compositor.view_list, link) {
        pieces.push_back(
            {windowAt(*view), Region(view->transform.boundingbox), Region(view->transform.opaque)});
    }
    m_windows.seen(look(pieces, Region(m_screen->region)));
}

// A part of a window belongs to it, a menu does not.
int Shell::windowAt(const weston_view& view) const {
    return windowOf(*weston_surface_get_main_surface(view.surface)).value_or(0);
}
