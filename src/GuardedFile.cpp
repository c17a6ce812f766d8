// SPDX-License-Identifier: Apache-2.0
#include "GuardedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
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

// A name beside @p path that nobody knows before.
std::string UnknownName(const char* path) {
    return std::string(path) + '.' + std::to_string(std::random_device()());
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
    const TCFileDescriptor old(std::exchange(m_fd, other.m_Release()));
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
    if (lstat(path, &status) == 0 && !IsOwn(status) && std::remove(path) != 0) {
        // A folder that is not empty.
        std::rename(path, UnknownName(path).c_str());
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
    TCFileDescriptor file(open(path, O_WRONLY | O_CREAT | kGuards, kDefaultMode));
    if (file && IsOwn(file)) {
        // Truncated only now: what was planted must keep its content.
        return ftruncate(file.Get(), 0) == 0 ? std::move(file) : TCFileDescriptor();
    }
    if (file && errno != EPERM) {
        return TCFileDescriptor();
    }
    // Something is planted, and would be again if it were removed first.
    const std::string name = UnknownName(path);
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
    }
    return false;
}

void EmptyIfNamed(const TCFileDescriptor& replaced) {
    struct stat status {};
    if (fstat(replaced.Get(), &status) == 0 && status.st_nlink > 0) {
        // After a failure the file keeps its content, and counts no more than before.
        [[maybe_unused]] const int result = ftruncate(replaced.Get(), 0);
    }
}
