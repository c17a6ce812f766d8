// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A wl_listener that calls a function and leaves its signal when it goes.
 */
#ifndef SIMULATOR_WESTON_LISTENER_H
#define SIMULATOR_WESTON_LISTENER_H

#include <wayland-server-core.h>

#include <functional>
#include <utility>

/** Listens to one signal, which outlives it. */
class Listener {
public:
    Listener(wl_signal& signal, std::function<void()> heard) : m_heard(std::move(heard)) {
        m_hook.self = this;
        m_hook.listener.notify = onSignal;
        wl_signal_add(&signal, &m_hook.listener);
    }
    ~Listener() { wl_list_remove(&m_hook.listener.link); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

private:
    // What libwayland calls back with, and behind it whose it is.
    struct Hook {
        wl_listener listener;
        Listener* self;
    };

    static void onSignal(wl_listener* listener, void* /*data*/) {
        Hook* hook = wl_container_of(listener, hook, listener);
        hook->self->m_heard();
    }

    std::function<void()> m_heard;
    Hook m_hook{};
};

#endif
