// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeVconf.h"

#include <vconf.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "fakes/Actions.h"

namespace fakes {
namespace {

struct Watch {
    std::string key;
    vconf_callback_fn callback;
    void* userData;
};

struct Integer {
    int value;
    int result;
};

std::mutex mutex;
std::map<std::string, std::string> texts;
std::map<std::string, Integer> integers;
std::vector<Watch> watches;

// Calls without the lock, as the library does.
void call(const std::string& key, keynode_t node, bool withUserData) {
    std::vector<Watch> called;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        std::copy_if(watches.begin(), watches.end(), std::back_inserter(called),
                     [&](const Watch& watch) { return watch.key == key; });
    }
    for (const Watch& watch : called) {
        watch.callback(&node, withUserData ? watch.userData : nullptr);
    }
}

auto findWatch(const std::string& key, vconf_callback_fn callback) {
    return std::find_if(watches.begin(), watches.end(),
                        [&](const Watch& watch) { return watch.key == key && watch.callback == callback; });
}

}  // namespace

int FakeVconf::setResult = 0;

void FakeVconf::setText(const std::string& key, const std::string& value) {
    const std::lock_guard<std::mutex> lock(mutex);
    texts[key] = value;
}

void FakeVconf::setInt(const std::string& key, int value) {
    const std::lock_guard<std::mutex> lock(mutex);
    integers[key] = {value, 0};
}

void FakeVconf::breakInt(const std::string& key, int value, int result) {
    const std::lock_guard<std::mutex> lock(mutex);
    integers[key] = {value, result};
}

void FakeVconf::remove(const std::string& key) {
    const std::lock_guard<std::mutex> lock(mutex);
    texts.erase(key);
    integers.erase(key);
}

void FakeVconf::tell(const std::string& key, const std::string& changed) {
    std::string name = changed;
    keynode_t node{};
    node.keyname = name.data();
    call(key, node, true);
}

void FakeVconf::tellInt(const std::string& key, int value) {
    std::string name = key;
    keynode_t node{};
    node.keyname = name.data();
    node.type = VCONF_TYPE_INT;
    node.value.i = value;
    call(key, node, true);
}

void FakeVconf::tellNameless(const std::string& key) {
    call(key, keynode_t{}, true);
}

void FakeVconf::tellNobody(const std::string& key) {
    std::string name = key;
    keynode_t node{};
    node.keyname = name.data();
    call(key, node, false);
}

std::size_t FakeVconf::watchers(const std::string& key) {
    const std::lock_guard<std::mutex> lock(mutex);
    return static_cast<std::size_t>(
        std::count_if(watches.begin(), watches.end(), [&](const Watch& watch) { return watch.key == key; }));
}

const void* FakeVconf::userData(const std::string& key) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found =
        std::find_if(watches.begin(), watches.end(), [&](const Watch& watch) { return watch.key == key; });
    return found == watches.end() ? nullptr : found->userData;
}

void FakeVconf::reset() {
    const std::lock_guard<std::mutex> lock(mutex);
    texts.clear();
    integers.clear();
    watches.clear();
    setResult = 0;
}

}  // namespace fakes

int vconf_notify_key_changed(const char* key, vconf_callback_fn callback, void* userData) {
    fakes::Actions::add("vconf_notify_key_changed " + std::string(key));
    const std::lock_guard<std::mutex> lock(fakes::mutex);
    if (fakes::findWatch(key, callback) != fakes::watches.end()) {
        return -1;
    }
    fakes::watches.push_back({key, callback, userData});
    return 0;
}

int vconf_ignore_key_changed(const char* key, vconf_callback_fn callback) {
    fakes::Actions::add("vconf_ignore_key_changed " + std::string(key));
    const std::lock_guard<std::mutex> lock(fakes::mutex);
    const auto found = fakes::findWatch(key, callback);
    if (found == fakes::watches.end()) {
        return -1;
    }
    fakes::watches.erase(found);
    return 0;
}

int vconf_get_int(const char* key, int* value) {
    const std::lock_guard<std::mutex> lock(fakes::mutex);
    const auto found = fakes::integers.find(key);
    if (found == fakes::integers.end()) {
        return -1;
    }
    *value = found->second.value;
    return found->second.result;
}

int vconf_set_int(const char* key, int value) {
    fakes::Actions::add("vconf_set_int " + std::string(key) + " " + std::to_string(value));
    if (fakes::FakeVconf::setResult == 0) {
        fakes::FakeVconf::setInt(key, value);
    }
    return fakes::FakeVconf::setResult;
}

char* vconf_get_str(const char* key) {
    const std::lock_guard<std::mutex> lock(fakes::mutex);
    const auto found = fakes::texts.find(key);
    return found == fakes::texts.end() ? nullptr : strdup(found->second.c_str());
}

char* vconf_keynode_get_name(keynode_t* node) {
    return node->keyname;
}

int vconf_keynode_get_int(keynode_t* node) {
    return node->type == VCONF_TYPE_INT ? node->value.i : -1;
}
