// SPDX-License-Identifier: Apache-2.0
// The television's hardware clock, put before the C library of one program: opening /dev/rtc0 and asking it
// for the time are answered here, everything else goes where it always does.
//
// An open clock is a memory file with a name of its own. Nothing is remembered of it, so it may be closed,
// duplicated and inherited like any descriptor.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/rtc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "Clock.h"

namespace {

constexpr const char* kDevice = "/dev/rtc0";
constexpr const char* kName = "zel-rtc0";
constexpr std::string_view kLink = "/memfd:zel-rtc0 (deleted)";

bool isClock(const char* path) {
    return path != nullptr && std::strcmp(path, kDevice) == 0;
}

bool isClock(int descriptor) {
    std::array<char, 64> link{};
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t size = readlink(path.c_str(), link.data(), link.size());
    return size > 0 && std::string_view(link.data(), static_cast<std::size_t>(size)) == kLink;
}

int openClock(int flags) {
    if (!rtc::isPresent()) {
        errno = ENOENT;
        return -1;
    }
    return memfd_create(kName, (flags & O_CLOEXEC) != 0 ? MFD_CLOEXEC : 0);
}

int readClock(rtc_time* record) {
    const auto time = rtc::read();
    if (!time) {
        errno = EIO;
        return -1;
    }
    *record = *time;
    return 0;
}

// The C library's own function of that name.
template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int openPath(const char* function, const char* path, int flags, mode_t mode) {
    using Open = int (*)(const char*, int, ...);
    return isClock(path) ? openClock(flags) : next<Open>(function)(path, flags, mode);
}

int openPathAt(const char* function, int folder, const char* path, int flags, mode_t mode) {
    using OpenAt = int (*)(int, const char*, int, ...);
    return isClock(path) ? openClock(flags) : next<OpenAt>(function)(folder, path, flags, mode);
}

// There is a mode only where a file is created; read in any case, it is passed on to where it is ignored.
mode_t modeOf(std::va_list* arguments) {
    return va_arg(*arguments, mode_t);
}

// What the program starts has the C library alone before it.
[[gnu::constructor]] void keepFromChildren() {
    unsetenv("LD_PRELOAD");
}

}  // namespace

// Named for the linker only, because the C library's headers declare these functions in their own ways.
extern "C" {
[[gnu::visibility("default")]] int clockOpen(const char* path, int flags, ...) __asm__("open");
[[gnu::visibility("default")]] int clockOpen64(const char* path, int flags, ...) __asm__("open64");
[[gnu::visibility("default")]] int clockOpenAt(int folder, const char* path, int flags,
                                               ...) __asm__("openat");
[[gnu::visibility("default")]] int clockOpenAt64(int folder, const char* path, int flags,
                                                 ...) __asm__("openat64");
[[gnu::visibility("default")]] int clockIoctl(int descriptor, unsigned long request, ...) __asm__("ioctl");
}

int clockOpen(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(&arguments);
    va_end(arguments);
    return openPath("open", path, flags, mode);
}

int clockOpen64(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(&arguments);
    va_end(arguments);
    return openPath("open64", path, flags, mode);
}

int clockOpenAt(int folder, const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(&arguments);
    va_end(arguments);
    return openPathAt("openat", folder, path, flags, mode);
}

int clockOpenAt64(int folder, const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(&arguments);
    va_end(arguments);
    return openPathAt("openat64", folder, path, flags, mode);
}

// Every request has at most one argument, a pointer or a number.
int clockIoctl(int descriptor, unsigned long request, ...) {
    using Ioctl = int (*)(int, unsigned long, ...);
    std::va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request == RTC_RD_TIME && isClock(descriptor)) {
        return readClock(static_cast<rtc_time*>(argument));
    }
    return next<Ioctl>("ioctl")(descriptor, request, argument);
}
