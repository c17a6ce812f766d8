// SPDX-License-Identifier: Apache-2.0
#include "NotifierClient.h"

#include <tizen-zel-notifier-client-protocol.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

// The words of a line, and how many integers of the payload it has.
struct Kind {
    int number;
    const char* word;
    std::size_t integers;
};
constexpr Kind kKinds[] = {{1, "visibility", 3}, {2, "gone", 2}, {3, "hint", 3}};

std::string textOf(const char* word, const wl_array* payload, std::size_t count) {
    std::vector<std::int32_t> integers(payload->size / sizeof(std::int32_t));
    if (integers.size() < count) {
        return std::string(word) + " with too few integers";
    }
    std::memcpy(integers.data(), payload->data, integers.size() * sizeof(std::int32_t));
    std::string text = word;
    for (std::size_t i = 0; i < count; ++i) {
        text += ' ' + std::to_string(integers[i]);
    }
    return text;
}

std::string clientEvent(int number, const wl_array* payload) {
    for (const Kind& kind : kKinds) {
        if (kind.number == number) {
            return textOf(kind.word, payload, kind.integers);
        }
    }
    return "client event of kind " + std::to_string(number);
}

void hear(void* hear, const std::string& line) {
    (*static_cast<NotifierClient::Hear*>(hear))(line);
}

constexpr tizen_zel_notifier_listener kNotifier = {
    [](void* data, tizen_zel_notifier* /*notifier*/, int window) {
        hear(data, "top " + std::to_string(window));
    },
    [](void* data, tizen_zel_notifier* /*notifier*/, int kind, wl_array* payload) {
        hear(data, clientEvent(kind, payload));
    },
    [](void* data, tizen_zel_notifier* /*notifier*/, int visibility, wl_array* payload) {
        hear(data, textOf("ready", payload, 2) + ' ' + std::to_string(visibility));
    },
    [](void* data, tizen_zel_notifier* /*notifier*/, int visibility, wl_array* payload) {
        hear(data, textOf("async", payload, 2) + ' ' + std::to_string(visibility));
    },
    [](void* data, tizen_zel_notifier* /*notifier*/, wl_array* /*payload*/) { hear(data, "information"); },
};

// Binds the first notifier that is advertised.
constexpr wl_registry_listener kRegistry = {
    [](void* data, wl_registry* registry, std::uint32_t name, const char* interface,
       std::uint32_t /*version*/) {
        auto& notifier = *static_cast<Handle<tizen_zel_notifier>*>(data);
        if (!notifier && std::strcmp(interface, tizen_zel_notifier_interface.name) == 0) {
            notifier.reset(static_cast<tizen_zel_notifier*>(
                wl_registry_bind(registry, name, &tizen_zel_notifier_interface, 1)));
        }
    },
    [](void* /*data*/, wl_registry* /*registry*/, std::uint32_t /*name*/) {}};

}  // namespace

NotifierClient::NotifierClient(Hear hear) : m_hear(std::move(hear)), m_display(wl_display_connect(nullptr)) {
    if (!m_display) {
        throw std::runtime_error("there is no window manager");
    }
    m_registry.reset(wl_display_get_registry(m_display.get()));
    wl_registry_add_listener(m_registry.get(), &kRegistry, &m_notifier);
    roundtrip();
    if (!m_notifier) {
        throw std::runtime_error("the window manager offers no notifier");
    }
    tizen_zel_notifier_add_listener(m_notifier.get(), &kNotifier, &m_hear);
    roundtrip();
}

void NotifierClient::askForTopMost() {
    tizen_zel_notifier_get_top_most_client(m_notifier.get());
}

void NotifierClient::roundtrip() {
    if (wl_display_roundtrip(m_display.get()) < 0) {
        throw std::runtime_error("the window manager has gone, or has refused");
    }
}

void NotifierClient::dispatch() {
    if (wl_display_dispatch(m_display.get()) < 0) {
        throw std::runtime_error("the window manager has gone, or has refused");
    }
}
