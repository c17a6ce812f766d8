// SPDX-License-Identifier: Apache-2.0
#include "GuardedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

namespace {

constexpr int kGuards = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
constexpr mode_t kDefaultMode = 0666;

bool IsOwnRegularFile(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_uid == geteuid();
}

bool HasOtherNames(const struct stat& status) {
    return status.st_nlink > 1;
}

// A foreign file at the path would leave its owner in charge of what is written there.
void RemovePlantedFile(const char* path) {
    struct stat status {};
    if (lstat(path, &status) == 0 && S_ISREG(status.st_mode) &&
        (!IsOwnRegularFile(status) || HasOtherNames(status))) {
        unlink(path);
    }
}

// Whether an open file belongs to this user alone; if not, errno is that of fstat, or EPERM.
bool IsOwn(const TCFileDescriptor& file, nlink_t maxNames) {
    struct stat status {};
    if (fstat(file.Get(), &status) != 0) {
        return false;
    }
    if (IsOwnRegularFile(status) && status.st_nlink <= maxNames) {
        return true;
    }
    errno = EPERM;
    return false;
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

TCFileDescriptor OpenOwnFile(const char* path) {
    TCFileDescriptor file(open(path, O_RDONLY | kGuards));
    if (!file || !IsOwn(file, std::numeric_limits<nlink_t>::max())) {
        return TCFileDescriptor();
    }
    return file;
}

TCFileDescriptor CreateOwnFile(const char* path) {
    RemovePlantedFile(path);
    TCFileDescriptor file(open(path, O_WRONLY | O_CREAT | kGuards, kDefaultMode));
    // Truncated only after the look at the open file: something may have been planted before the opening.
    if (!file || !IsOwn(file, 1) || ftruncate(file.Get(), 0) != 0) {
        return TCFileDescriptor();
    }
    return file;
}
