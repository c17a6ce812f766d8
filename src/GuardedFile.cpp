// SPDX-License-Identifier: Apache-2.0
#include "GuardedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>
#include <utility>

namespace {

constexpr int kGuards = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
constexpr mode_t kDefaultMode = 0666;

bool IsOwn(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_uid == geteuid() && status.st_nlink == 1;
}

// Whether an open file belongs to this user alone; if not, errno is that of fstat, or EPERM.
bool IsOwn(const TCFileDescriptor& file) {
    struct stat status {};
    if (fstat(file.Get(), &status) != 0) {
        return false;
    }
    errno = EPERM;
    return IsOwn(status);
}

}  // namespace

TCFileDescriptor::~TCFileDescriptor() {
    if (m_fd >= 0) {
        const int cause = errno;
        close(m_fd);
        errno = cause;
    }
}

int TCFileDescriptor::m_Release() noexcept {
    return std::exchange(m_fd, -1);
}

TCFileDescriptor& TCFileDescriptor::operator=(TCFileDescriptor&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
}

bool IsSymbolicLink(const char* path) {
    std::error_code error;
    return std::filesystem::is_symlink(std::filesystem::symlink_status(path, error));
}

bool IsOwnFile(const char* path) {
    struct stat status {};
    return lstat(path, &status) == 0 && IsOwn(status);
}

void TakeAwayPlanted(const char* path) {
    struct stat status {};
    if (lstat(path, &status) != 0 || IsOwn(status) || std::remove(path) == 0) {
        return;
    }
    // A folder that is not empty replaces the empty one that mkdtemp makes.
    std::string folder = std::string(path) + ".XXXXXX";
    if (mkdtemp(folder.data()) != nullptr && std::rename(path, folder.c_str()) != 0) {
        rmdir(folder.c_str());
    }
}

TCFileDescriptor OpenOwnFile(const char* path) {
    TCFileDescriptor file(open(path, O_RDWR | kGuards));
    if (!file || !IsOwn(file)) {
        return TCFileDescriptor();
    }
    return file;
}

TCFileDescriptor CreateOwnFile(const char* path) {
    TakeAwayPlanted(path);
    TCFileDescriptor file(open(path, O_WRONLY | O_CREAT | kGuards, kDefaultMode));
    if (file && IsOwn(file)) {
        // Truncated only now: something may have been planted before the opening.
        return ftruncate(file.Get(), 0) == 0 ? std::move(file) : TCFileDescriptor();
    }
    if (file && errno != EPERM) {
        return TCFileDescriptor();
    }
    // Something was planted. Nobody knows this name before, so nobody can be faster.
    const std::string name = std::string(path) + '.' + std::to_string(std::random_device()());
    TCFileDescriptor moved(open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | kGuards, kDefaultMode));
    if (moved && !RenameOver(name.c_str(), path)) {
        unlink(name.c_str());
        return TCFileDescriptor();
    }
    return moved;
}

bool RenameOver(const char* from, const char* to) {
    // An attacker has to remove a folder and make it again between two calls, each time.
    constexpr int kAttempts = 100;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (std::rename(from, to) == 0) {
            return true;
        }
        // A folder can't be replaced by a file, but the two can be exchanged.
        if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_EXCHANGE) == 0) {
            TakeAwayPlanted(from);
            return true;
        }
        if (errno != ENOENT) {
            return false;
        }
    }
    return false;
}
