// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakePrctl.h"

#include <cerrno>
#include <cstdarg>
#include <mutex>
#include <utility>

#include "fakes/Actions.h"

namespace fakes {
namespace {

std::mutex mutex;
std::vector<BootMark> marks;

}  // namespace

std::vector<BootMark> takeBootMarks() {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(marks, {});
}

}  // namespace fakes

extern "C" int __wrap_prctl(int option, ...);

// Answers as a kernel without boot trace does.
extern "C" int __wrap_prctl(int option, ...) {
    std::va_list arguments;
    va_start(arguments, option);
    const char* text = va_arg(arguments, const char*);
    const auto length = va_arg(arguments, unsigned long);
    va_end(arguments);
    if (option == 666) {
        const std::lock_guard<std::mutex> lock(fakes::mutex);
        fakes::marks.push_back({text, length});
        fakes::Actions::add("marker " + std::string(text));
    }
    errno = EINVAL;
    return -1;
}
