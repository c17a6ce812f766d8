// SPDX-License-Identifier: Apache-2.0
#include "ProgramName.h"

#include <unistd.h>

#include <array>
#include <climits>
#include <fstream>
#include <string_view>

namespace {

// What the kernel adds to the target of the link when the file was removed, or replaced by an update.
constexpr std::string_view kDeleted = " (deleted)";

std::string executableName(const std::string& process) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink((process + "/exe").c_str(), target.data(), target.size());
    if (length <= 0) {
        return {};
    }
    std::string_view path(target.data(), static_cast<std::size_t>(length));
    if (path.size() > kDeleted.size() && path.substr(path.size() - kDeleted.size()) == kDeleted) {
        path.remove_suffix(kDeleted.size());
    }
    return std::string(path.substr(path.rfind('/') + 1));
}

std::string commandName(const std::string& process) {
    std::string name;
    std::getline(std::ifstream(process + "/comm"), name);
    return name;
}

}  // namespace

std::string programName(std::uint32_t pid) {
    if (pid == 0) {
        return {};
    }
    const std::string process = "/proc/" + std::to_string(pid);
    const std::string name = executableName(process);
    return name.empty() ? commandName(process) : name;
}
