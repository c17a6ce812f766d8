// SPDX-License-Identifier: Apache-2.0
#include "Windows.h"

#include <algorithm>

int Windows::add(int pid) {
    m_windows.insert({++m_lastId, {pid, std::nullopt, Hint::removed}});
    return m_lastId;
}

void Windows::remove(int window) {
    const auto found = m_windows.find(window);
    if (found == m_windows.end()) {
        return;
    }
    const Window gone = found->second;
    m_windows.erase(found);
    m_sights.erase(std::remove_if(m_sights.begin(), m_sights.end(),
                                  [&](const Sight& sight) { return sight.window == window; }),
                   m_sights.end());
    if (!gone.visibility && gone.hint == Hint::removed) {
        return;
    }
    for (WindowsWatcher* watcher : m_watchers) {
        watcher->onGone(window, gone.pid);
    }
}

void Windows::seen(const std::vector<Sight>& sights) {
    m_sights = sights;
    for (auto& [id, window] : m_windows) {
        const auto sight = std::find_if(sights.begin(), sights.end(),
                                        [id = id](const Sight& each) { return each.window == id; });
        if (sight != sights.end()) {
            setVisibility(id, window, sight->visibility);
        } else if (window.visibility) {
            setVisibility(id, window, Visibility::notVisible);
        }
    }
}

void Windows::setVisibility(int id, Window& window, Visibility visibility) {
    if (window.visibility == visibility) {
        return;
    }
    window.visibility = visibility;
    for (WindowsWatcher* watcher : m_watchers) {
        watcher->onVisibility(id, window.pid, visibility);
    }
}

void Windows::setHint(int window, Hint hint) {
    Window& hinted = m_windows.at(window);
    if (hinted.hint == hint) {
        return;
    }
    hinted.hint = hint;
    for (WindowsWatcher* watcher : m_watchers) {
        watcher->onHint(window, hinted.pid, hint);
    }
}

int Windows::topMost() const {
    const auto found = std::find_if(m_sights.begin(), m_sights.end(), [](const Sight& sight) {
        return sight.visibility != Visibility::notVisible;
    });
    return found == m_sights.end() ? kNone : found->window;
}

int Windows::pidOf(int window) const {
    return m_windows.at(window).pid;
}

void Windows::addWatcher(WindowsWatcher& watcher) {
    m_watchers.push_back(&watcher);
    for (const auto& [id, window] : m_windows) {
        if (window.visibility) {
            watcher.onVisibility(id, window.pid, *window.visibility);
        }
        if (window.hint == Hint::added) {
            watcher.onHint(id, window.pid, window.hint);
        }
    }
}

void Windows::removeWatcher(WindowsWatcher& watcher) {
    m_watchers.erase(std::remove(m_watchers.begin(), m_watchers.end(), &watcher), m_watchers.end());
}
