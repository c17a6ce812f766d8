// SPDX-License-Identifier: Apache-2.0
#include "ProgramName.h"

#include <unistd.h>

#include <array>
#include <climits>
#include <cstdio>
#include <memory>
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

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// Close-on-exec from the first moment on: the daemon starts other programs on other threads.
std::string commandName(const std::string& process) {
    const std::unique_ptr<std::FILE, FileCloser> file(std::fopen((process + "/comm").c_str(), "re"));
    std::array<char, 64> line{};
    if (!file || std::fgets(line.data(), static_cast<int>(line.size()), file.get()) == nullptr) {
        return {};
    }
    const std::string_view name(line.data());
    return std::string(name.substr(0, name.find('\n')));
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
