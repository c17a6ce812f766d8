// SPDX-License-Identifier: Apache-2.0
// How the kernel's list is read, with a list that the test writes.
#include <aul.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <new>
#include <string>

extern "C" std::FILE* __wrap_fopen(const char* path, const char* mode);

namespace {

// What stands in for opening the list.
std::function<std::FILE*(const std::string& path, const std::string& mode)> onOpen;

// A list that breaks off with an error instead of ending.
struct BrokenList {
    std::string rest;

    static ssize_t read(void* cookie, char* buffer, std::size_t size) {
        std::string& rest = static_cast<BrokenList*>(cookie)->rest;
        if (rest.empty()) {
            errno = ESRCH;
            return -1;
        }
        const std::size_t length = rest.copy(buffer, size);
        rest.erase(0, length);
        return static_cast<ssize_t>(length);
    }
};

std::FILE* listOf(const std::string& text) {
    std::FILE* const list = std::tmpfile();
    EXPECT_GE(std::fputs(text.c_str(), list), 0);
    std::rewind(list);
    return list;
}

std::string appIdOf(int pid) {
    std::string id(64, '\0');
    const int result = aul_app_get_appid_bypid(pid, id.data(), 63);
    onOpen = nullptr;
    return result == 0 ? id.substr(0, id.find('\0')) : std::to_string(result);
}

TEST(ReadingTest, TheListIsThatOfTheProcessAndPassesToNoProgram) {
    std::string opened;
    onOpen = [&opened](const std::string& path, const std::string& mode) {
        opened = path + " " + mode;
        return listOf("0::/app-viewer-1.scope\n");
    };

    EXPECT_EQ(appIdOf(4711), "viewer");

    EXPECT_EQ(opened, "/proc/4711/cgroup re");
}

TEST(ReadingTest, AListThatCannotBeOpenedIsUnknown) {
    onOpen = [](const std::string& /*path*/, const std::string& /*mode*/) { return nullptr; };

    EXPECT_EQ(appIdOf(1), "-1");
}

TEST(ReadingTest, AListThatBreaksOffIsUnknownThoughItNamedAUnit) {
    BrokenList list{"0::/app-outer-1.scope/app-inn"};
    onOpen = [&list](const std::string& /*path*/, const std::string& mode) {
        return fopencookie(&list, mode.c_str(), {BrokenList::read, nullptr, nullptr, nullptr});
    };

    EXPECT_EQ(appIdOf(1), "-1");
}

TEST(ReadingTest, AProcessIsUnknownWhenMemoryIsShort) {
    onOpen = [](const std::string& /*path*/, const std::string& /*mode*/) -> std::FILE* {
        throw std::bad_alloc();
    };

    EXPECT_EQ(appIdOf(1), "-1");
}

}  // namespace

extern "C" std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __wrap_fopen(const char* path, const char* mode) {
    return onOpen ? onOpen(path, mode) : __real_fopen(path, mode);
}
