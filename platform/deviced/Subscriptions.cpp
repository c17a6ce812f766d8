// SPDX-License-Identifier: Apache-2.0
#include "Subscriptions.h"

#include <algorithm>
#include <utility>

bool Subscriptions::add(PowerEvent event, Callback callback, void* userData) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (find(event, callback) != m_subscriptions.end()) {
        return false;
    }
    m_subscriptions.emplace(m_nextId++, Subscription{event, callback, userData});
    return true;
}

bool Subscriptions::remove(PowerEvent event, Callback callback) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = find(event, callback);
    if (found == m_subscriptions.end()) {
        return false;
    }
    for (Announcement& announcement : m_announcements) {
        auto& audience = announcement.audience;
        audience.erase(std::remove(audience.begin(), audience.end(), found->first), audience.end());
    }
    m_announcements.erase(
        std::remove_if(m_announcements.begin(), m_announcements.end(),
                       [](const Announcement& announcement) { return announcement.audience.empty(); }),
        m_announcements.end());
    m_subscriptions.erase(found);
    return true;
}

bool Subscriptions::has(PowerEvent event) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::any_of(m_subscriptions.begin(), m_subscriptions.end(),
                       [event](const auto& entry) { return entry.second.event == event; });
}

void Subscriptions::announce(PowerEvent event, SleepHold::Share hold) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Announcement announcement{{}, std::move(hold)};
    for (const auto& [id, subscription] : m_subscriptions) {
        if (subscription.event == event) {
            announcement.audience.push_back(id);
        }
    }
    if (!announcement.audience.empty()) {
        m_announcements.push_back(std::move(announcement));
        g_idle_add_full(G_PRIORITY_DEFAULT, onTurn, this, nullptr);
    }
}

gboolean Subscriptions::onTurn(gpointer subscriptions) noexcept {
    static_cast<Subscriptions*>(subscriptions)->tellNext();
    return G_SOURCE_REMOVE;
}

// There is a turn for each announcement; one of an announcement that was dropped may find nothing.
void Subscriptions::tellNext() {
    Announcement next;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_announcements.empty()) {
            return;
        }
        next = std::move(m_announcements.front());
        m_announcements.pop_front();
    }
    for (const Id id : next.audience) {
        tell(id);
    }
}

void Subscriptions::tell(Id id) {
    Subscription subscription{};
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_subscriptions.find(id);
        if (found == m_subscriptions.end()) {
            return;
        }
        subscription = found->second;
    }
    subscription.callback(0, subscription.userData);
}

std::map<Subscriptions::Id, Subscriptions::Subscription>::iterator Subscriptions::find(PowerEvent event,
                                                                                       Callback callback) {
    return std::find_if(m_subscriptions.begin(), m_subscriptions.end(), [event, callback](const auto& entry) {
        return entry.second.event == event && entry.second.callback == callback;
    });
}
