// SPDX-License-Identifier: Apache-2.0
#include "support/Plant.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdarg>
#include <utility>

namespace {

// Of the test's own thread only: other threads, as the helper of session control, open files too.
thread_local std::string plannedPath;
thread_local std::function<void()> plannedAttack;
thread_local bool isLasting = false;
thread_local std::string failingPath;
thread_local int failingError = 0;

}  // namespace

void plantAtOpen(const std::string& path, std::function<void()> attack) {
    plannedPath = path;
    plannedAttack = std::move(attack);
    isLasting = false;
}

void plantAtEveryOpen(const std::string& path, std::function<void()> attack) {
    plantAtOpen(path, std::move(attack));
    isLasting = true;
}

void failCreating(const std::string& path, int error) {
    failingPath = path;
    failingError = error;
}

void stopPlanting() {
    plannedAttack = nullptr;
    failingError = 0;
}

bool wasPlanted() {
    return !plannedAttack;
}

extern "C" int __real_open(const char* path, int flags, ...);
extern "C" int __wrap_open(const char* path, int flags, ...);

extern "C" int __wrap_open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        std::va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    if (failingError != 0 && (flags & O_CREAT) != 0 && std::string(path).rfind(failingPath, 0) == 0) {
        errno = failingError;
        return -1;
    }
    if (plannedAttack && plannedPath == path) {
        const auto attack = plannedAttack;
        plannedAttack = isLasting ? attack : nullptr;
        attack();
    }
    return __real_open(path, flags, mode);
}
