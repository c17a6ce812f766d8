// SPDX-License-Identifier: Apache-2.0
#include "Keys.h"

#include <dlog.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "Fifo.h"

namespace {

// The longest number has 11 characters.
constexpr std::size_t kLongestLine = 16;

std::optional<int> numberIn(std::string_view line) {
    int number = 0;
    const char* const end = line.data() + line.size();
    const auto [stop, error] = std::from_chars(line.data(), end, number);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return number;
}

}  // namespace

Keys::~Keys() {
    stop();
}

bool Keys::start(const char* fifo) {
    if (m_thread.joinable()) {
        return false;
    }
    m_fifo = openFifo(fifo);
    m_end = Descriptor(eventfd(0, EFD_CLOEXEC));
    if (!m_fifo || !m_end) {
        return false;
    }
    m_thread = std::thread([this] { run(); });
    return true;
}

bool Keys::stop() {
    if (!m_thread.joinable() || m_thread.get_id() == std::this_thread::get_id()) {
        return false;
    }
    eventfd_write(m_end.get(), 1);
    m_thread.join();
    m_end.reset();
    m_fifo.reset();
    m_line.clear();
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_handlers.clear();
    return true;
}

bool Keys::add(int combination, Handler handler) {
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (handler == nullptr || has({combination, handler})) {
        return false;
    }
    m_handlers.emplace_back(combination, handler);
    return true;
}

bool Keys::remove(int combination, Handler handler) {
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    const auto found = std::find(m_handlers.begin(), m_handlers.end(), Entry(combination, handler));
    if (found == m_handlers.end()) {
        return false;
    }
    m_handlers.erase(found);
    return true;
}

void Keys::run() {
    std::array<pollfd, 2> polled{pollfd{m_end.get(), POLLIN, 0}, pollfd{m_fifo.get(), POLLIN, 0}};
    for (;;) {
        poll(polled.data(), polled.size(), -1);
        if (polled[0].revents != 0) {
            return;
        }
        readLines();
    }
}

// A line that is too long is kept no longer than it takes to know that it is.
void Keys::readLines() {
    std::array<char, 512> piece{};
    const ssize_t size = read(m_fifo.get(), piece.data(), piece.size());
    for (ssize_t index = 0; index < size; ++index) {
        const char next = piece[static_cast<std::size_t>(index)];
        if (next == '\n') {
            takeLine(m_line);
            m_line.clear();
        } else if (m_line.size() <= kLongestLine) {
            m_line += next;
        }
    }
}

void Keys::takeLine(std::string_view line) {
    if (const auto combination = numberIn(line); combination && line.size() <= kLongestLine) {
        press(*combination);
        return;
    }
    __dlog_print(LOG_ID_MAIN, DLOG_ERROR, "KEYS", "'%.*s' is no key combination",
                 static_cast<int>(line.size()), line.data());
}

// A handler may remove itself or others: each is looked up right before its call.
void Keys::press(int combination) {
    std::string text = "key combination " + std::to_string(combination);
    const std::lock_guard<std::recursive_mutex> lock(m_mutex);
    const std::vector<Entry> handlers = m_handlers;
    for (const Entry& entry : handlers) {
        if (entry.first == combination && has(entry)) {
            entry.second(combination, text.data());
        }
    }
}

bool Keys::has(const Entry& entry) const {
    return std::find(m_handlers.begin(), m_handlers.end(), entry) != m_handlers.end();
}
