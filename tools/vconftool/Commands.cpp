// SPDX-License-Identifier: Apache-2.0
#include "Commands.h"

#include <glib.h>
#include <vconf.h>

#include <array>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>

#include "Types.h"

namespace vconftool {

namespace {

// Whoever may write a key decides what is printed: one line it stays, and the terminal obeys nobody.
std::string printable(const std::string& text) {
    std::string result;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte != 0x7f) {
            result += character;
            continue;
        }
        std::array<char, 5> escape{};
        std::snprintf(escape.data(), escape.size(), "\\x%02x", byte);
        result += escape.data();
    }
    return result;
}

Status complain(const std::string& subject, const std::string& what) {
    std::fprintf(stderr, "vconftool: %s: %s\n", printable(subject).c_str(), what.c_str());
    return kFailed;
}

// Flushed, because whoever reads a pipe wants the line now.
Status print(const std::string& line) {
    if (std::printf("%s\n", printable(line).c_str()) < 0 || std::fflush(stdout) != 0) {
        return complain("standard output", "could not be written");
    }
    return kDone;
}

Status refuse(const std::string& key) {
    return complain(
        key,
        "is no key; one begins with memory/, db/ or file/, and none of its parts is empty, '.', '..' "
        "or begins with '.vconf-'");
}

bool isKey(const std::string& key) {
    return vconf_is_key(key.c_str()) == 1;
}

// The line of a key that has a value. Its type may change between the two questions; then they are asked
// anew.
std::optional<std::string> describe(const std::string& key) {
    while (const Type* type = typeOf(key)) {
        if (const std::optional<std::string> value = type->read(key)) {
            return key + ", value = " + *value + " (" + std::string(type->name) + ')';
        }
    }
    return std::nullopt;
}

Status printState(const std::string& key) {
    return print(describe(key).value_or(key + ", no value"));
}

struct Listing {
    bool recursive;
    Status status;
};

// A folder in the folder may be gone by the time that it is listed itself; then it has nothing.
void listEntry(const char* name, int isFolder, void* data) {
    auto* const listing = static_cast<Listing*>(data);
    if (listing->status != kDone) {
        return;
    }
    if (isFolder == 0) {
        listing->status = printState(name);
    } else if (listing->recursive) {
        vconf_list(name, listEntry, listing);
    } else {
        listing->status = print(std::string(name) + '/');
    }
}

void printChange(keynode_t* node, void* loop) {
    if (printState(vconf_keynode_get_name(node)) != kDone) {
        g_main_loop_quit(static_cast<GMainLoop*>(loop));
    }
}

}  // namespace

Status get(const std::string& key) {
    if (!isKey(key)) {
        return refuse(key);
    }
    const std::optional<std::string> line = describe(key);
    return line ? print(*line) : complain(key, "has no value");
}

Status set(const std::string& key, const std::string& type, const std::string& value, bool force) {
    if (!isKey(key)) {
        return refuse(key);
    }
    const Type* const present = typeOf(key);
    if (present != nullptr && present->name != type && !force) {
        return complain(key, "expected " + std::string(present->name) + ", which the key is, found " + type +
                                 "; -f changes the type");
    }
    switch (typeNamed(type)->write(key, value)) {
        case SetResult::kDone:
            return kDone;
        case SetResult::kNoSuchValue:
            return complain(key, "expected " + type + ", found '" + printable(value) + "'");
        case SetResult::kNotWritten:
            break;
    }
    return complain(key, "could not be written");
}

Status unset(const std::string& key) {
    if (!isKey(key)) {
        return refuse(key);
    }
    return vconf_unset(key.c_str()) == 0 ? kDone : complain(key, "is not there, or could not be removed");
}

Status list(std::string folder, bool recursive) {
    if (!folder.empty() && folder.back() == '/') {
        folder.pop_back();
    }
    Listing listing{recursive, kDone};
    return vconf_list(folder.c_str(), listEntry, &listing) == 0 ? listing.status
                                                                : complain(folder, "is no folder of keys");
}

Status watch(const std::vector<std::string>& keys) {
    const std::unique_ptr<GMainLoop, decltype(&g_main_loop_unref)> loop(g_main_loop_new(nullptr, FALSE),
                                                                        &g_main_loop_unref);
    for (const std::string& key : std::set<std::string>(keys.begin(), keys.end())) {
        if (!isKey(key)) {
            return refuse(key);
        }
        if (vconf_notify_key_changed(key.c_str(), printChange, loop.get()) != 0) {
            return complain(key, "can't be watched");
        }
    }
    g_main_loop_run(loop.get());
    return kFailed;
}

}  // namespace vconftool
