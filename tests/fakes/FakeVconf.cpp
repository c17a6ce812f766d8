// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeVconf.h"

#include <vconf.h>

#include <cstring>
#include <map>
#include <mutex>

#include "fakes/Actions.h"

namespace fakes {
namespace {

struct Watch {
    vconf_callback_fn callback;
    void* userData;
};

std::mutex mutex;
std::map<std::string, std::string> texts;
std::map<std::string, Watch> watches;

// Calls without the lock, as the library does.
void call(const std::string& key, char* name, bool withUserData) {
    Watch watch{};
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = watches.find(key);
        if (found == watches.end()) {
            return;
        }
        watch = found->second;
    }
    keynode_t node{};
    node.keyname = name;
    watch.callback(&node, withUserData ? watch.userData : nullptr);
}

}  // namespace

void FakeVconf::setText(const std::string& key, const std::string& value) {
    const std::lock_guard<std::mutex> lock(mutex);
    texts[key] = value;
}

void FakeVconf::remove(const std::string& key) {
    const std::lock_guard<std::mutex> lock(mutex);
    texts.erase(key);
}

void FakeVconf::tell(const std::string& key, const std::string& changed) {
    std::string name = changed;
    call(key, name.data(), true);
}

void FakeVconf::tellNameless(const std::string& key) {
    call(key, nullptr, true);
}

void FakeVconf::tellNobody(const std::string& key) {
    std::string name = key;
    call(key, name.data(), false);
}

void FakeVconf::reset() {
    const std::lock_guard<std::mutex> lock(mutex);
    texts.clear();
}

}  // namespace fakes

int vconf_notify_key_changed(const char* key, vconf_callback_fn callback, void* userData) {
    fakes::Actions::add("vconf_notify_key_changed " + std::string(key));
    const std::lock_guard<std::mutex> lock(fakes::mutex);
    return fakes::watches.emplace(key, fakes::Watch{callback, userData}).second ? 0 : -1;
}

int vconf_ignore_key_changed(const char* key, vconf_callback_fn callback) {
    fakes::Actions::add("vconf_ignore_key_changed " + std::string(key));
    const std::lock_guard<std::mutex> lock(fakes::mutex);
    const auto found = fakes::watches.find(key);
    if (found == fakes::watches.end() || found->second.callback != callback) {
        return -1;
    }
    fakes::watches.erase(found);
    return 0;
}

char* vconf_get_str(const char* key) {
    const std::lock_guard<std::mutex> lock(fakes::mutex);
    const auto found = fakes::texts.find(key);
    return found == fakes::texts.end() ? nullptr : strdup(found->second.c_str());
}

char* vconf_keynode_get_name(keynode_t* node) {
    return node->keyname;
}
