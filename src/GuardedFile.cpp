// SPDX-License-Identifier: Apache-2.0
#include "GuardedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
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

TCFileDescriptor Refuse() {
    errno = EPERM;
    return TCFileDescriptor();
}

}  // namespace

TCFileDescriptor::~TCFileDescriptor() {
    if (m_fd >= 0) {
        close(m_fd);
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
    struct stat status {};
    if (file && (fstat(file.Get(), &status) != 0 || !IsOwnRegularFile(status))) {
        return Refuse();
    }
    return file;
}

TCFileDescriptor CreateOwnFile(const char* path) {
    RemovePlantedFile(path);
    TCFileDescriptor file(open(path, O_WRONLY | O_CREAT | kGuards, kDefaultMode));
    struct stat status {};
    if (!file) {
        return file;
    }
    // Truncated only now: what was opened is known, whatever was planted meanwhile.
    if (fstat(file.Get(), &status) != 0 || !IsOwnRegularFile(status) || HasOtherNames(status) ||
        ftruncate(file.Get(), 0) != 0) {
        return Refuse();
    }
    return file;
}
