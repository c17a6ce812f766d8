// SPDX-License-Identifier: Apache-2.0
#include "Fifo.h"

#include <dlog.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace {

constexpr mode_t kMode = 0600;

Descriptor failed(const char* path, const char* what) {
    __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "KEYS", "%s %s: %s", path, what, std::strerror(errno));
    return Descriptor();
}

bool isOurFifo(const Descriptor& found) {
    struct stat status {};
    return fstat(found.get(), &status) == 0 && S_ISFIFO(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & ~static_cast<mode_t>(S_IFMT)) == kMode && status.st_nlink == 1;
}

}  // namespace

// What is found is looked at before it is opened, because opening a device may do something.
Descriptor openFifo(const char* path) {
    if (mkfifo(path, kMode) != 0 && errno != EEXIST) {
        return failed(path, "can't be made");
    }
    const Descriptor found(open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!found) {
        return failed(path, "can't be found");
    }
    if (!isOurFifo(found)) {
        errno = EPERM;
        return failed(path, "is no FIFO of this user's with the mode 0600");
    }
    const std::string opened = "/proc/self/fd/" + std::to_string(found.get());
    Descriptor fifo(open(opened.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    return fifo ? std::move(fifo) : failed(path, "can't be opened");
}
