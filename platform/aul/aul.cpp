// SPDX-License-Identifier: Apache-2.0
// Applications of processes on Linux: the kernel tells the cgroup, whose path has the unit's name.
#include "aul.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <string>

#include "AppUnit.h"

namespace {

constexpr int kSuccess = 0;
constexpr int kUnknown = -1;
constexpr int kInvalidArgument = -4;

struct FileCloser {
    void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};

// The cgroups of a process, as the kernel lists them: a path of at most 4 KiB for each hierarchy. Nothing
// when the process is gone or the kernel won't tell.
std::optional<std::string> cgroupsOf(int pid) {
    const std::string path = "/proc/" + std::to_string(pid) + "/cgroup";
    const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "re"));
    if (!file) {
        return std::nullopt;
    }
    std::string content;
    std::array<char, 4096> chunk{};
    while (const std::size_t size = std::fread(chunk.data(), 1, chunk.size(), file.get())) {
        content.append(chunk.data(), size);
    }
    return std::ferror(file.get()) == 0 ? std::optional(content) : std::nullopt;
}

void copyOut(const std::string& id, char* appid, std::size_t room) {
    const std::size_t length = std::min(id.size(), room);
    std::memcpy(appid, id.data(), length);
    if (length < room) {
        appid[length] = '\0';
    }
}

}  // namespace

int aul_app_get_appid_bypid(int pid, char* appid, int len) try {
    if (pid <= 0 || appid == nullptr || len <= 0) {
        return kInvalidArgument;
    }
    const std::optional<std::string> cgroups = cgroupsOf(pid);
    const std::optional<std::string> id = cgroups ? aul::appIdOfCgroups(*cgroups) : std::nullopt;
    if (!id) {
        return kUnknown;
    }
    copyOut(*id, appid, static_cast<std::size_t>(len));
    return kSuccess;
} catch (const std::exception&) {
    return kUnknown;
}
