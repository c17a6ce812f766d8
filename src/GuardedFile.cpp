// SPDX-License-Identifier: Apache-2.0
#include "GuardedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace {

constexpr int kGuards = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
constexpr mode_t kDefaultMode = 0666;

// An attacker who plants something at every attempt has to win each of these races.
constexpr int kAttempts = 100;

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
    TCFileDescriptor file(open(path, O_RDONLY | kGuards));
    if (!file || !IsOwn(file)) {
        return TCFileDescriptor();
    }
    return file;
}

TCFileDescriptor CreateOwnFile(const char* path) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        TakeAwayPlanted(path);
        TCFileDescriptor file(open(path, O_WRONLY | O_CREAT | kGuards, kDefaultMode));
        // Truncated only after the look at the open file: something may have been planted before the opening.
        if (file && IsOwn(file) && ftruncate(file.Get(), 0) == 0) {
            return file;
        }
    }
    return TCFileDescriptor();
}

bool RenameOver(const char* from, const char* to) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (std::rename(from, to) == 0) {
            return true;
        }
        TakeAwayPlanted(to);
    }
    return false;
}
