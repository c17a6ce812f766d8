// SPDX-License-Identifier: Apache-2.0
#include "Clock.h"

#include <dlog.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>

namespace {

constexpr const char* kFile = "/run/zel-platform/rtc";
constexpr std::size_t kLongestWish = 64;

// A date that a record of the clock can hold, by far.
constexpr std::int64_t kFarthestTime = 1'000'000'000'000;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// The line without its end; nothing when there is no file.
std::optional<std::string> wish() {
    const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(kFile, "re"));
    if (file == nullptr) {
        return errno == ENOENT ? std::nullopt : std::optional<std::string>("");
    }
    struct stat status {};
    if (fstat(fileno(file.get()), &status) != 0 || status.st_uid != 0) {
        return "";
    }
    std::string text(kLongestWish, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    return text.substr(0, text.find('\n'));
}

std::optional<std::int64_t> numberAfter(std::string_view word, std::string_view text) {
    if (text.substr(0, word.size()) != word) {
        return std::nullopt;
    }
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + word.size(), end, number);
    if (error != std::errc() || stop != end || number > kFarthestTime || number < -kFarthestTime) {
        return std::nullopt;
    }
    return number;
}

// What time() gives may be behind this for some milliseconds, and so by a second.
std::int64_t systemTime() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

// The time that is to be shown.
std::optional<std::int64_t> shown() {
    const std::string text = wish().value_or("offset 0");
    if (text == "unreadable") {
        return std::nullopt;
    }
    if (const auto offset = numberAfter("offset ", text)) {
        return systemTime() + *offset;
    }
    if (const auto time = numberAfter("time ", text)) {
        return *time;
    }
    __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "RTC", "%s says '%s', which means nothing; unreadable", kFile,
                 text.c_str());
    return std::nullopt;
}

}  // namespace

bool rtc::isPresent() {
    return wish() != "absent";
}

std::optional<rtc_time> rtc::read() {
    const std::optional<std::int64_t> shownTime = shown();
    const auto time = static_cast<std::time_t>(shownTime.value_or(0));
    std::tm date{};
    // Where time_t has 32 bits, no date can be made of a time after 2038.
    if (!shownTime || time != *shownTime || gmtime_r(&time, &date) == nullptr) {
        return std::nullopt;
    }
    rtc_time record{};
    record.tm_sec = date.tm_sec;
    record.tm_min = date.tm_min;
    record.tm_hour = date.tm_hour;
    record.tm_mday = date.tm_mday;
    record.tm_mon = date.tm_mon;
    record.tm_year = date.tm_year;
    record.tm_wday = date.tm_wday;
    record.tm_yday = date.tm_yday;
    return record;
}
