// SPDX-License-Identifier: Apache-2.0
#include "Watcher.h"

#include <dlog.h>
#include <glib-unix.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "Store.h"

namespace vconf {

namespace {

// What makes a key's file another, whether it was written by this library or by hand; and that the folder
// went away.
constexpr std::uint32_t kEvents =
    IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW;

// A keynode and what it points to.
class Node {
public:
    Node(const std::string& key, Value value) : m_key(key), m_value(std::move(value)) {
        m_node.keyname = m_key.data();
        m_node.type = typeOf(m_value);
        if (const auto* number = std::get_if<int>(&m_value)) {
            m_node.value.i = *number;
        } else if (const auto* truth = std::get_if<bool>(&m_value)) {
            m_node.value.b = *truth ? 1 : 0;
        } else if (const auto* real = std::get_if<double>(&m_value)) {
            m_node.value.d = *real;
        } else if (auto* text = std::get_if<std::string>(&m_value)) {
            m_node.value.s = text->data();
        }
    }
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    keynode_t* get() { return &m_node; }

private:
    std::string m_key;
    Value m_value;
    keynode_t m_node{};
};

}  // namespace

Watcher& Watcher::instance() {
    static auto* const watcher = new Watcher;
    return *watcher;
}

bool Watcher::add(const std::string& key, const KeyPath& path, vconf_callback_fn callback, void* userData) {
    const std::lock_guard lock(m_mutex);
    if (find(key, callback) != m_registrations.end() || !prepareSource()) {
        return false;
    }
    const std::string folder = path.folder();
    readEvents();  // they are of a time when this one was not there
    if (!watchFolder(path, folder)) {
        dropFolderIfUnused(folder);
        return false;
    }
    m_registrations.emplace(m_nextId++, Registration{key, path, folder, callback, userData, false});
    return true;
}

bool Watcher::remove(const std::string& key, vconf_callback_fn callback) {
    const std::lock_guard lock(m_mutex);
    const auto registration = find(key, callback);
    if (registration == m_registrations.end()) {
        return false;
    }
    const std::string folder = registration->second.folder;
    m_registrations.erase(registration);
    dropFolderIfUnused(folder);
    return true;
}

gboolean Watcher::onReadable(gint /*fd*/, GIOCondition /*condition*/, gpointer watcher) noexcept {
    static_cast<Watcher*>(watcher)->dispatch();
    return G_SOURCE_CONTINUE;
}

void Watcher::dispatch() {
    for (const Id id : takePending()) {
        report(id);
    }
}

void Watcher::report(Id id) {
    std::unique_lock lock(m_mutex);
    auto found = m_registrations.find(id);
    if (found == m_registrations.end()) {
        return;
    }
    const std::string key = found->second.key;
    const KeyPath path = found->second.path;
    lock.unlock();
    Node node(key, load(path));

    lock.lock();
    found = m_registrations.find(id);
    if (found == m_registrations.end()) {
        return;
    }
    const vconf_callback_fn callback = found->second.callback;
    void* const userData = found->second.userData;
    lock.unlock();
    callback(node.get(), userData);
}

bool Watcher::prepareSource() {
    if (m_source != nullptr) {
        return true;
    }
    m_inotify = FileDescriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!m_inotify) {
        return false;
    }
    m_source = g_unix_fd_source_new(m_inotify.get(), G_IO_IN);
    g_source_set_callback(m_source, G_SOURCE_FUNC(onReadable), this, nullptr);
    g_source_attach(m_source, nullptr);
    return true;
}

Watcher::Registrations::iterator Watcher::find(const std::string& key, vconf_callback_fn callback) {
    return std::find_if(m_registrations.begin(), m_registrations.end(), [&key, callback](const auto& entry) {
        return entry.second.key == key && entry.second.callback == callback;
    });
}

bool Watcher::watchFolder(const KeyPath& path, const std::string& folder) {
    if (m_watches.count(folder) != 0) {
        return true;
    }
    const int watch = makeFolder(path) ? inotify_add_watch(m_inotify.get(), folder.c_str(), kEvents) : -1;
    if (watch < 0) {
        return false;
    }
    m_watches.emplace(folder, watch);
    return true;
}

void Watcher::dropFolderIfUnused(const std::string& folder) {
    const auto watch = m_watches.find(folder);
    const bool used = std::any_of(m_registrations.begin(), m_registrations.end(),
                                  [&folder](const auto& entry) { return entry.second.folder == folder; });
    if (used || watch == m_watches.end()) {
        return;
    }
    inotify_rm_watch(m_inotify.get(), watch->second);
    m_watches.erase(watch);
}

void Watcher::readEvents() {
    alignas(inotify_event) std::array<char, 16384> buffer{};
    ssize_t size = 0;
    while ((size = read(m_inotify.get(), buffer.data(), buffer.size())) > 0) {
        for (std::size_t offset = 0; offset < static_cast<std::size_t>(size);) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + offset);
            handleEvent(*event);
            offset += sizeof(inotify_event) + event->len;
        }
    }
    // The source no longer wakes for what was read here, unless it is told to.
    if (std::any_of(m_registrations.begin(), m_registrations.end(),
                    [](const auto& entry) { return entry.second.pending; })) {
        g_source_set_ready_time(m_source, 0);
    }
}

void Watcher::handleEvent(const inotify_event& event) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        for (auto& [id, registration] : m_registrations) {
            registration.pending = true;
        }
        return;
    }
    const auto watch = std::find_if(m_watches.begin(), m_watches.end(),
                                    [&event](const auto& entry) { return entry.second == event.wd; });
    if (watch == m_watches.end()) {
        return;
    }
    if ((event.mask & (IN_IGNORED | IN_MOVE_SELF)) != 0) {
        watchFolderAgain(std::string(watch->first));
        return;
    }
    for (auto& [id, registration] : m_registrations) {
        if (registration.folder == watch->first && event.len != 0 && registration.path.name == event.name) {
            registration.pending = true;
        }
    }
}

// The folder was removed or renamed, and with it whatever its keys were. At its path there may already be
// another.
void Watcher::watchFolderAgain(const std::string& folder) {
    const auto lost = m_watches.find(folder);
    inotify_rm_watch(m_inotify.get(), lost->second);
    m_watches.erase(lost);
    const KeyPath* path = nullptr;
    for (auto& [id, registration] : m_registrations) {
        if (registration.folder == folder) {
            registration.pending = true;
            path = &registration.path;
        }
    }
    if (path != nullptr && !watchFolder(*path, folder)) {
        __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "VCONF", "%s is gone and can't be watched again",
                     folder.c_str());
    }
}

std::vector<Watcher::Id> Watcher::takePending() {
    const std::lock_guard lock(m_mutex);
    readEvents();
    g_source_set_ready_time(m_source, -1);
    std::vector<Id> pending;
    for (auto& [id, registration] : m_registrations) {
        if (registration.pending) {
            registration.pending = false;
            pending.push_back(id);
        }
    }
    return pending;
}

}  // namespace vconf
