// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Who is called for which key.
 */
#ifndef VCONF_WATCHER_H
#define VCONF_WATCHER_H

#include <glib.h>
#include <sys/inotify.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "FileDescriptor.h"
#include "Key.h"
#include "vconf.h"

namespace vconf {

/**
 * Watches the folders of the keys that somebody wants to be called for, and calls.
 *
 * One inotify instance watches every folder that holds a watched key. Its events are read by a source on the
 * default main context, and before a registration is added, so that no one is called for what came before. A
 * registration of a key that changed is *pending* until the source calls it. All state is under one lock,
 * which is never held while a callback or a read of a key runs; who is called is looked up again right before
 * the call, by then it may be gone.
 */
class Watcher {
public:
    /** The one instance; never destroyed, because callbacks may come as long as the main context is run. */
    static Watcher& instance();

    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    /** Adds a registration. @return false when there is one of that key and callback, or nothing can be
     * watched */
    bool add(const std::string& key, const KeyPath& path, vconf_callback_fn callback, void* userData);

    /** Removes a registration, pending or not. @return false when there is none of that key and callback */
    bool remove(const std::string& key, vconf_callback_fn callback);

private:
    /** In the order in which they were added, which is the order of the calls. */
    using Id = std::uint64_t;

    struct Registration {
        std::string key;
        KeyPath path;
        std::string folder;
        vconf_callback_fn callback;
        void* userData;
        bool pending;
    };
    using Registrations = std::map<Id, Registration>;

    Watcher() = default;
    ~Watcher() = default;

    static gboolean onReadable(gint fd, GIOCondition condition, gpointer watcher) noexcept;
    void dispatch();
    void report(Id id);

    // All of these need the lock.
    bool prepareSource();
    Registrations::iterator find(const std::string& key, vconf_callback_fn callback);
    bool watchFolder(const KeyPath& path, const std::string& folder);
    void dropFolderIfUnused(const std::string& folder);
    void readEvents();
    void handleEvent(const inotify_event& event);
    void watchFolderAgain(const std::string& folder);
    std::vector<Id> takePending();

    std::mutex m_mutex;
    FileDescriptor m_inotify;
    GSource* m_source = nullptr;
    Registrations m_registrations;
    Id m_nextId = 0;
    // The inotify watch of each folder, by the folder's path.
    std::map<std::string, int> m_watches;
};

}  // namespace vconf

#endif
