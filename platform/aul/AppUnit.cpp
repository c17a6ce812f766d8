// SPDX-License-Identifier: Apache-2.0
#include "AppUnit.h"

#include <charconv>

namespace aul {

namespace {

// The hierarchies that systemd puts units into, the one that counts more first, by how the kernel lists the
// controllers of each.
constexpr std::string_view kHierarchies[] = {"", "name=systemd"};

// What the kernel adds to the path of a cgroup that was removed; only a process that has ended is still in
// one.
constexpr std::string_view kDeleted = " (deleted)";

// The kernel cuts a longer path to this length without a word.
constexpr std::size_t kLongestPath = 4095;

bool removePrefix(std::string_view& text, std::string_view prefix) {
    if (text.substr(0, prefix.size()) != prefix) {
        return false;
    }
    text.remove_prefix(prefix.size());
    return true;
}

bool removeSuffix(std::string_view& text, std::string_view suffix) {
    if (text.size() < suffix.size() || text.substr(text.size() - suffix.size()) != suffix) {
        return false;
    }
    text.remove_suffix(suffix.size());
    return true;
}

// Takes what comes before the separator, and the separator, off the text; everything when there is none.
std::string_view takeUntil(std::string_view& text, char separator) {
    const std::string_view taken = text.substr(0, text.find(separator));
    text.remove_prefix(taken.size() < text.size() ? taken.size() + 1 : taken.size());
    return taken;
}

// Reads "\xNN" at the beginning of the text; nothing when that's not what is there.
std::optional<char> escapedCharacter(std::string_view text) {
    constexpr std::size_t kLength = 4;
    unsigned int code = 0;
    if (text.size() < kLength || !removePrefix(text, "\\x")) {
        return std::nullopt;
    }
    const char* const end = text.data() + 2;
    if (std::from_chars(text.data(), end, code, 16).ptr != end) {
        return std::nullopt;
    }
    return static_cast<char>(code);
}

std::optional<std::string> unescape(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        const bool escaped = text.front() == '\\';
        const std::optional<char> character = escaped ? escapedCharacter(text) : text.front();
        if (!character || *character == '\0') {
            return std::nullopt;
        }
        plain += *character;
        text.remove_prefix(escaped ? 4 : 1);
    }
    return plain;
}

bool hasEmptyPart(std::string_view parts) {
    return parts.empty() || parts.front() == '-' || parts.back() == '-' ||
           parts.find("--") != std::string_view::npos;
}

std::optional<std::string> unescapedLastPart(std::string_view parts) {
    const std::size_t dash = parts.rfind('-');
    return unescape(dash == std::string_view::npos ? parts : parts.substr(dash + 1));
}

std::optional<std::string> appIdOfScope(std::string_view parts) {
    if (hasEmptyPart(parts)) {
        return std::nullopt;
    }
    return unescapedLastPart(parts.substr(0, parts.rfind('-')));
}

std::optional<std::string> appIdOfService(std::string_view name) {
    const std::size_t at = name.find('@');
    const std::string_view parts = name.substr(0, at);
    if (hasEmptyPart(parts) || at == name.size() - 1) {
        return std::nullopt;
    }
    return unescapedLastPart(parts);
}

std::optional<std::string> appIdOfUnit(std::string_view unit) {
    if (!removePrefix(unit, "app-")) {
        return std::nullopt;
    }
    if (removeSuffix(unit, ".scope")) {
        return appIdOfScope(unit);
    }
    if (removeSuffix(unit, ".service")) {
        return appIdOfService(unit);
    }
    return std::nullopt;
}

// The path of a process in one hierarchy; empty when it isn't listed. Lines are ID:CONTROLLERS:PATH.
std::string_view pathIn(std::string_view hierarchy, std::string_view cgroups) {
    while (!cgroups.empty()) {
        std::string_view line = takeUntil(cgroups, '\n');
        takeUntil(line, ':');
        if (takeUntil(line, ':') == hierarchy) {
            return line;
        }
    }
    return {};
}

}  // namespace

std::optional<std::string> appIdOfPath(std::string_view path) {
    while (!path.empty()) {
        const std::size_t slash = path.rfind('/');
        const std::size_t start = slash == std::string_view::npos ? 0 : slash + 1;
        if (std::optional<std::string> id = appIdOfUnit(path.substr(start))) {
            return id;
        }
        path = path.substr(0, start == 0 ? 0 : slash);
    }
    return std::nullopt;
}

std::optional<std::string> appIdOfCgroups(std::string_view cgroups) {
    for (const std::string_view hierarchy : kHierarchies) {
        std::string_view path = pathIn(hierarchy, cgroups);
        if (removeSuffix(path, kDeleted) || path.size() >= kLongestPath) {
            return std::nullopt;
        }
        if (std::optional<std::string> id = appIdOfPath(path)) {
            return id;
        }
    }
    return std::nullopt;
}

}  // namespace aul
