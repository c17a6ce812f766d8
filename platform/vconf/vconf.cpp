// SPDX-License-Identifier: Apache-2.0
// The settings on Linux: one file per key, watched with inotify.
#include "vconf.h"

#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "Key.h"
#include "Store.h"
#include "Value.h"
#include "Watcher.h"

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = -1;

// Runs what may throw for want of memory; the caller can't be thrown at.
template <typename Result, typename Function>
Result guarded(Result failure, Function function) {
    try {
        return function();
    } catch (const std::exception&) {
        return failure;
    }
}

vconf::Value valueOf(const char* key) {
    const std::optional<vconf::KeyPath> path = vconf::locateKey(key);
    return path ? vconf::load(*path) : vconf::Value();
}

template <typename Type, typename Out>
int get(const char* key, Out* out) {
    return guarded(kFailure, [key, out] {
        const vconf::Value value = valueOf(key);
        const Type* typed = std::get_if<Type>(&value);
        if (typed == nullptr || out == nullptr) {
            return kFailure;
        }
        *out = static_cast<Out>(*typed);
        return kSuccess;
    });
}

template <typename Type>
int set(const char* key, Type value) {
    return guarded(kFailure, [key, &value] {
        const std::optional<vconf::KeyPath> path = vconf::locateKey(key);
        return path && vconf::save(*path, vconf::Value(std::move(value))) ? kSuccess : kFailure;
    });
}

bool isOfType(const keynode_t* keynode, int type) {
    return keynode != nullptr && keynode->type == type;
}

}  // namespace

int vconf_get_int(const char* in_key, int* intval) {
    return get<int>(in_key, intval);
}

int vconf_get_bool(const char* in_key, int* boolval) {
    return get<bool>(in_key, boolval);
}

int vconf_get_dbl(const char* in_key, double* dblval) {
    return get<double>(in_key, dblval);
}

char* vconf_get_str(const char* in_key) {
    return guarded(static_cast<char*>(nullptr), [in_key] {
        const vconf::Value value = valueOf(in_key);
        const auto* text = std::get_if<std::string>(&value);
        return text == nullptr ? nullptr : strdup(text->c_str());
    });
}

int vconf_get_key_type(const char* in_key) {
    return guarded(static_cast<int>(VCONF_TYPE_NONE), [in_key] { return vconf::typeOf(valueOf(in_key)); });
}

int vconf_is_key(const char* in_key) {
    return guarded(0, [in_key] { return vconf::locateKey(in_key) ? 1 : 0; });
}

int vconf_list(const char* in_folder, vconf_list_fn cb, void* user_data) {
    return guarded(kFailure, [in_folder, cb, user_data] {
        const std::optional<vconf::KeyPath> path = vconf::locateFolder(in_folder);
        const auto entries = path && cb != nullptr ? vconf::list(*path) : std::nullopt;
        if (!entries) {
            return kFailure;
        }
        for (const vconf::Entry& entry : *entries) {
            const std::string key = std::string(in_folder) + '/' + entry.name;
            cb(key.c_str(), entry.isFolder ? 1 : 0, user_data);
        }
        return kSuccess;
    });
}

int vconf_set_int(const char* in_key, int intval) {
    return set(in_key, intval);
}

int vconf_set_bool(const char* in_key, int boolval) {
    return set(in_key, boolval != 0);
}

int vconf_set_dbl(const char* in_key, double dblval) {
    return set(in_key, dblval);
}

int vconf_set_str(const char* in_key, const char* strval) {
    if (strval == nullptr) {
        return kFailure;
    }
    return guarded(kFailure, [in_key, strval] { return set(in_key, std::string(strval)); });
}

int vconf_unset(const char* in_key) {
    return guarded(kFailure, [in_key] {
        const std::optional<vconf::KeyPath> path = vconf::locateKey(in_key);
        return path && vconf::erase(*path) ? kSuccess : kFailure;
    });
}

int vconf_notify_key_changed(const char* in_key, vconf_callback_fn cb, void* user_data) {
    return guarded(kFailure, [in_key, cb, user_data] {
        const std::optional<vconf::KeyPath> path = vconf::locateKey(in_key);
        return path && cb != nullptr && vconf::Watcher::instance().add(in_key, *path, cb, user_data)
                   ? kSuccess
                   : kFailure;
    });
}

int vconf_ignore_key_changed(const char* in_key, vconf_callback_fn cb) {
    return guarded(kFailure, [in_key, cb] {
        return in_key != nullptr && vconf::Watcher::instance().remove(in_key, cb) ? kSuccess : kFailure;
    });
}

char* vconf_keynode_get_name(keynode_t* keynode) {
    return keynode == nullptr ? nullptr : keynode->keyname;
}

int vconf_keynode_get_type(keynode_t* keynode) {
    return keynode == nullptr ? -1 : keynode->type;
}

int vconf_keynode_get_int(keynode_t* keynode) {
    return isOfType(keynode, VCONF_TYPE_INT) ? keynode->value.i : -1;
}

int vconf_keynode_get_bool(keynode_t* keynode) {
    return isOfType(keynode, VCONF_TYPE_BOOL) ? keynode->value.b : -1;
}

double vconf_keynode_get_dbl(keynode_t* keynode) {
    return isOfType(keynode, VCONF_TYPE_DOUBLE) ? keynode->value.d : -1;
}

char* vconf_keynode_get_str(keynode_t* keynode) {
    return isOfType(keynode, VCONF_TYPE_STRING) ? keynode->value.s : nullptr;
}
