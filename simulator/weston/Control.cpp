// SPDX-License-Identifier: Apache-2.0
#include "Control.h"

#include <zel-window-control-server-protocol.h>

#include <functional>
#include <new>
#include <optional>

namespace {

constexpr int kVersion = 1;

// The enumerator of a number that a client sent; nothing, and an error for the client, when there is none.
template <typename Enumeration>
std::optional<Enumeration> enumerator(wl_resource* control, int value, Enumeration first, Enumeration last) {
    if (value < static_cast<int>(first) || value > static_cast<int>(last)) {
        wl_resource_post_error(control, ZEL_WINDOW_CONTROL_ERROR_NO_SUCH_VALUE, "there is no value %d",
                               value);
        return std::nullopt;
    }
    return static_cast<Enumeration>(value);
}

std::optional<Visibility> visibility(wl_resource* control, int value) {
    return enumerator(control, value, Visibility::visible, Visibility::notVisible);
}

}  // namespace

// Static functions, as libwayland takes them; of the class, to reach what it works with.
struct Control::Requests {
    // Does something with the window that a surface is; an error for the client when it is none.
    static void with(wl_resource* resource, wl_resource* surface,
                     const std::function<void(Control&, int window)>& act) {
        auto& control = *static_cast<Control*>(wl_resource_get_user_data(resource));
        const auto window =
            control.m_shell.windowOf(*static_cast<weston_surface*>(wl_resource_get_user_data(surface)));
        if (!window) {
            wl_resource_post_error(resource, ZEL_WINDOW_CONTROL_ERROR_NOT_A_WINDOW,
                                   "wl_surface@%u is no toplevel window", wl_resource_get_id(surface));
            return;
        }
        act(control, *window);
    }

    static void destroy(wl_client* /*client*/, wl_resource* resource) { wl_resource_destroy(resource); }

    static void identify(wl_client* /*client*/, wl_resource* resource, wl_resource* surface) {
        with(resource, surface,
             [&](Control& /*control*/, int window) { zel_window_control_send_identified(resource, window); });
    }

    static void place(wl_client* /*client*/, wl_resource* resource, wl_resource* surface, int x, int y) {
        with(resource, surface, [&](Control& control, int window) { control.m_shell.place(window, x, y); });
    }

    static void raise(wl_client* /*client*/, wl_resource* resource, wl_resource* surface) {
        with(resource, surface, [](Control& control, int window) { control.m_shell.raise(window); });
    }

    static void setHint(wl_client* /*client*/, wl_resource* resource, wl_resource* surface, int state) {
        with(resource, surface, [&](Control& control, int window) {
            if (const auto hint = enumerator(resource, state, Hint::added, Hint::removed)) {
                control.m_windows.setHint(window, *hint);
            }
        });
    }

    static void announceReady(wl_client* /*client*/, wl_resource* resource, wl_resource* surface, int value) {
        with(resource, surface, [&](Control& control, int window) {
            if (const auto next = visibility(resource, value)) {
                control.m_notifier.announceReady(window, *next);
            }
        });
    }

    static void announceAsync(wl_client* /*client*/, wl_resource* resource, wl_resource* surface, int value) {
        with(resource, surface, [&](Control& control, int window) {
            if (const auto next = visibility(resource, value)) {
                control.m_notifier.announceAsync(window, *next);
            }
        });
    }

    static constexpr struct zel_window_control_interface kTable = {
        destroy, identify, place, raise, setHint, announceReady, announceAsync};
};

Control::Control(wl_display& display, Windows& windows, Shell& shell, Notifier& notifier)
    : m_windows(windows),
      m_shell(shell),
      m_notifier(notifier),
      m_global(wl_global_create(&display, &zel_window_control_interface, kVersion, this, onBind)) {
    if (m_global == nullptr) {
        throw std::bad_alloc();
    }
}

void Control::onBind(wl_client* client, void* data, unsigned int version, unsigned int id) {
    wl_resource* const resource =
        wl_resource_create(client, &zel_window_control_interface, static_cast<int>(version), id);
    if (resource == nullptr) {
        wl_client_post_no_memory(client);
        return;
    }
    wl_resource_set_implementation(resource, &Requests::kTable, data, nullptr);
}
