// SPDX-License-Identifier: Apache-2.0
#include "Notifier.h"

#include <sys/types.h>
#include <tizen-zel-notifier-server-protocol.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <new>

namespace {

constexpr int kVersion = 1;
constexpr uid_t kRoot = 0;

// Kinds of a client event.
constexpr int kVisibilityChange = 1;
constexpr int kDelete = 2;
constexpr int kHintChange = 3;

// The integers of an event, which live as long as the call that sends it.
class Payload {
public:
    Payload(std::initializer_list<std::int32_t> integers) {
        wl_array_init(&m_array);
        const std::size_t size = integers.size() * sizeof(std::int32_t);
        void* const room = wl_array_add(&m_array, size);
        if (room == nullptr) {
            throw std::bad_alloc();
        }
        std::memcpy(room, integers.begin(), size);
    }
    ~Payload() { wl_array_release(&m_array); }
    Payload(const Payload&) = delete;
    Payload& operator=(const Payload&) = delete;

    wl_array* get() { return &m_array; }

private:
    wl_array m_array{};
};

}  // namespace

// One client's notifier; lives as long as its resource.
class Notifier::Binder : public WindowsWatcher {
public:
    Binder(Notifier& notifier, wl_resource& resource) : m_notifier(notifier), m_resource(resource) {
        static const struct tizen_zel_notifier_interface kRequests = {onGetTopMostClient};
        wl_resource_set_implementation(&m_resource, &kRequests, this, onResourceGone);
        m_notifier.m_windows.addWatcher(*this);
    }
    ~Binder() override { m_notifier.m_windows.removeWatcher(*this); }
    Binder(const Binder&) = delete;
    Binder& operator=(const Binder&) = delete;

    void onVisibility(int window, int pid, Visibility visibility) override {
        send(kVisibilityChange, {window, pid, static_cast<int>(visibility)});
    }
    void onHint(int window, int pid, Hint hint) override {
        send(kHintChange, {window, pid, static_cast<int>(hint)});
    }
    void onGone(int window, int pid) override { send(kDelete, {window, pid, 0}); }

    wl_resource& resource() const { return m_resource; }

private:
    void send(int kind, Payload payload) {
        tizen_zel_notifier_send_client_event(&m_resource, kind, payload.get());
    }

    static void onGetTopMostClient(wl_client* /*client*/, wl_resource* resource) {
        const auto* binder = static_cast<Binder*>(wl_resource_get_user_data(resource));
        tizen_zel_notifier_send_top_most_client(resource, binder->m_notifier.m_windows.topMost());
    }

    static void onResourceGone(wl_resource* resource) {
        const auto* gone = static_cast<Binder*>(wl_resource_get_user_data(resource));
        auto& binders = gone->m_notifier.m_binders;
        binders.erase(std::find_if(binders.begin(), binders.end(),
                                   [gone](const auto& binder) { return binder.get() == gone; }));
    }

    Notifier& m_notifier;
    wl_resource& m_resource;
};

Notifier::Notifier(wl_display& display, Windows& windows)
    : m_display(display),
      m_windows(windows),
      m_global(wl_global_create(&display, &tizen_zel_notifier_interface, kVersion, this, onBind)) {
    if (m_global == nullptr) {
        throw std::bad_alloc();
    }
    wl_display_set_global_filter(&m_display, isSeenBy, this);
}

Notifier::~Notifier() {
    while (!m_binders.empty()) {
        wl_resource_destroy(&m_binders.back()->resource());
    }
    wl_display_set_global_filter(&m_display, nullptr, nullptr);
    wl_global_destroy(m_global);
}

void Notifier::announceReady(int window, Visibility visibility) {
    for (const auto& binder : m_binders) {
        Payload payload{window, m_windows.pidOf(window)};
        tizen_zel_notifier_send_ready_visibility_change(&binder->resource(), static_cast<int>(visibility),
                                                        payload.get());
    }
}

void Notifier::announceAsync(int window, Visibility visibility) {
    for (const auto& binder : m_binders) {
        Payload payload{window, m_windows.pidOf(window)};
        tizen_zel_notifier_send_async_visibility_change(&binder->resource(), static_cast<int>(visibility),
                                                        payload.get());
    }
}

bool Notifier::isSeenBy(const wl_client* client, const wl_global* global, void* data) {
    if (global != static_cast<Notifier*>(data)->m_global) {
        return true;
    }
    // The function only reads, but takes a mutable client.
    uid_t user = static_cast<uid_t>(-1);
    wl_client_get_credentials(const_cast<wl_client*>(client), nullptr, &user, nullptr);
    return user == kRoot;
}

void Notifier::onBind(wl_client* client, void* data, unsigned int version, unsigned int id) {
    auto* notifier = static_cast<Notifier*>(data);
    wl_resource* const resource =
        wl_resource_create(client, &tizen_zel_notifier_interface, static_cast<int>(version), id);
    if (resource == nullptr) {
        wl_client_post_no_memory(client);
        return;
    }
    notifier->m_binders.push_back(std::make_unique<Binder>(*notifier, *resource));
}
