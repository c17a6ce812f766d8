// SPDX-License-Identifier: Apache-2.0
#include "Key.h"

#include <algorithm>
#include <array>

namespace vconf {

namespace {

struct StorageRow {
    std::string_view component;
    const char* base;
};

// By the first component of a key: where values live that are forgotten, and that are kept, over a restart.
constexpr std::array<StorageRow, 3> kStorages{{
    {"memory", "/run"},
    {"db", "/var/lib"},
    {"file", "/var/lib"},
}};

// Below the base.
constexpr std::array<std::string_view, 2> kOwnFolders{"zel-platform", "vconf"};

std::vector<std::string> split(std::string_view key) {
    std::vector<std::string> components;
    std::size_t start = 0;
    for (std::size_t slash = 0; (slash = key.find('/', start)) != std::string_view::npos; start = slash + 1) {
        components.emplace_back(key.substr(start, slash - start));
    }
    components.emplace_back(key.substr(start));
    return components;
}

}  // namespace

std::string KeyPath::folder() const {
    std::string path = base;
    for (const std::string& component : folders) {
        path += '/' + component;
    }
    return path;
}

bool isGoodComponent(std::string_view component) {
    return !component.empty() && component != "." && component != ".." &&
           component.find('\n') == std::string_view::npos &&
           component.substr(0, kReservedPrefix.size()) != kReservedPrefix;
}

std::optional<KeyPath> locateKey(const char* key) {
    std::optional<KeyPath> path = locateFolder(key);
    if (!path || path->folders.size() <= kOwnFolders.size() + 1) {
        return std::nullopt;
    }
    path->name = std::move(path->folders.back());
    path->folders.pop_back();
    return path;
}

std::optional<KeyPath> locateFolder(const char* folder) {
    if (folder == nullptr) {
        return std::nullopt;
    }
    const std::vector<std::string> components = split(folder);
    const auto* const storage =
        std::find_if(kStorages.begin(), kStorages.end(),
                     [&components](const StorageRow& row) { return row.component == components.front(); });
    if (storage == kStorages.end() || !std::all_of(components.begin(), components.end(), isGoodComponent)) {
        return std::nullopt;
    }
    KeyPath path{storage->base, {kOwnFolders.begin(), kOwnFolders.end()}, ""};
    path.folders.insert(path.folders.end(), components.begin(), components.end());
    return path;
}

}  // namespace vconf
