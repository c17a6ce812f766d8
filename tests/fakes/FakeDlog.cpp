// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeDlog.h"

#include <dlog.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

#include "fakes/Actions.h"
#include "fakes/KnownLines.h"

namespace fakes {
namespace {

std::mutex mutex;
std::vector<LogLine> recorded;
std::function<void(const std::string&)> hookForOthers;
std::thread::id hooksThread;
bool recordsActions = false;
std::thread::id actionsThread;

void appendToFile(const std::string& text) {
    const int fd = open(FakeDlog::kFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    const std::string line = text + "\n";
    if (fd < 0 || write(fd, line.data(), line.size()) < 0) {
        std::perror(FakeDlog::kFile);
    }
    close(fd);
}

// The parts of "FILE: FUNCTION(LINE) > message".
std::string between(const std::string& text, const std::string& from, const std::string& to) {
    const auto begin = from.empty() ? 0 : text.find(from) + from.size();
    return text.substr(begin, text.find(to, begin) - begin);
}

}  // namespace

std::string LogLine::message() const {
    const auto arrow = text.find(" > ");
    return arrow == std::string::npos ? text : text.substr(arrow + 3);
}

std::string LogLine::file() const {
    return between(text, "", ": ");
}

std::string LogLine::function() const {
    return between(text, ": ", "(");
}

int LogLine::line() const {
    return std::stoi(between(text, "(", ")"));
}

void FakeDlog::clear() {
    const std::lock_guard<std::mutex> lock(mutex);
    recorded.clear();
    recordsActions = false;
    unlink(kFile);
}

void FakeDlog::recordActions() {
    const std::lock_guard<std::mutex> lock(mutex);
    recordsActions = true;
    actionsThread = std::this_thread::get_id();
}

std::vector<LogLine> FakeDlog::lines() {
    const std::lock_guard<std::mutex> lock(mutex);
    std::vector<LogLine> own;
    for (const LogLine& line : recorded) {
        if (line.thread == std::this_thread::get_id()) {
            own.push_back(line);
        }
    }
    return own;
}

std::vector<std::string> FakeDlog::messagesOfOthers() {
    const std::lock_guard<std::mutex> lock(mutex);
    std::vector<std::string> messages;
    for (const LogLine& line : recorded) {
        if (line.thread != std::this_thread::get_id()) {
            messages.push_back(std::to_string(line.priority) + " " + line.message());
        }
    }
    return messages;
}

void FakeDlog::onLineOfOthers(std::function<void(const std::string& message)> hook) {
    const std::lock_guard<std::mutex> lock(mutex);
    hookForOthers = std::move(hook);
    hooksThread = std::this_thread::get_id();
}

std::vector<std::string> FakeDlog::messages(int priority) {
    std::vector<std::string> messages;
    for (const LogLine& line : lines()) {
        if (line.priority == priority) {
            messages.push_back(line.message());
        }
    }
    return messages;
}

std::size_t FakeDlog::count(int priority, const std::string& message) {
    const auto all = messages(priority);
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), message));
}

}  // namespace fakes

int __dlog_print(log_id_t buffer, int priority, const char* tag, const char* format, ...) {
    std::array<char, 4096> text{};
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    const fakes::LogLine line{static_cast<int>(buffer),  priority, tag, format, text.data(),
                              std::this_thread::get_id()};
    fakes::expectKnown(line);
    std::function<void(const std::string&)> hook;
    {
        const std::lock_guard<std::mutex> lock(fakes::mutex);
        fakes::recorded.push_back(line);
        fakes::appendToFile(line.text);
        if (fakes::recordsActions && line.thread == fakes::actionsThread) {
            fakes::Actions::add("log " + line.function() + ": " + line.message());
        }
        if (line.thread != fakes::hooksThread) {
            hook = fakes::hookForOthers;
        }
    }
    if (hook) {
        hook(line.message());
    }
    return length;
}
