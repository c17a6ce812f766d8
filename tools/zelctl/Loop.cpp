// SPDX-License-Identifier: Apache-2.0
#include "Loop.h"

#include <sys/epoll.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <exception>
#include <iterator>
#include <list>
#include <utility>
#include <vector>

namespace zelctl {

// Owns what is called; nothing may be thrown through the library that calls.
struct Loop::Handlers {
    std::list<std::function<void(const signalfd_siginfo&)>> signals;
    std::list<std::function<void()>> plain;
    std::list<std::function<void(const char*)>> folders;
    std::list<std::function<void(sd_bus_message*)>> messages;
    std::exception_ptr thrown;

    // The call, with what it throws kept for later.
    template <typename... Arguments>
    std::function<void(Arguments...)> guarded(std::function<void(Arguments...)> call) {
        return [this, call = std::move(call)](Arguments... arguments) {
            try {
                call(arguments...);
            } catch (...) {
                thrown = std::current_exception();
            }
        };
    }
};

namespace {

void check(int result, const char* what) {
    if (result < 0) {
        throw Trouble(kFailed, what, std::strerror(-result), "once more; the system lacks something");
    }
}

template <typename Function>
Function& of(void* data) {
    return *static_cast<Function*>(data);
}

// As nohup leaves a signal to what it starts, and a shell to what runs in the background.
bool isIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

int onSignal(sd_event_source* /*source*/, const signalfd_siginfo* info, void* data) {
    of<std::function<void(const signalfd_siginfo&)>>(data)(*info);
    return 0;
}

int onIo(sd_event_source* /*source*/, int /*fd*/, std::uint32_t /*events*/, void* data) {
    of<std::function<void()>>(data)();
    return 0;
}

int onFolderEvent(sd_event_source* /*source*/, const inotify_event* event, void* data) {
    of<std::function<void(const char*)>>(data)(event->len > 0 ? event->name : nullptr);
    return 0;
}

int onMessage(sd_bus_message* message, void* data, sd_bus_error* /*error*/) {
    of<std::function<void(sd_bus_message*)>>(data)(message);
    return 0;
}

}  // namespace

Loop::Loop(const Bus& bus) : m_handlers(std::make_unique<Handlers>()), m_bus(bus) {
    check(sd_event_new(&m_event), "waiting for events");
    check(sd_bus_attach_event(bus.get(), m_event, SD_EVENT_PRIORITY_NORMAL), "waiting for the bus");
}

Loop::~Loop() {
    sd_bus_detach_event(m_bus.get());
    sd_event_unref(m_event);
}

void Loop::onSignals(std::initializer_list<int> signals, std::function<void(const signalfd_siginfo&)> call) {
    m_handlers->signals.push_back(m_handlers->guarded(std::move(call)));
    std::vector<int> heard;
    std::copy_if(signals.begin(), signals.end(), std::back_inserter(heard),
                 [](int signal) { return !isIgnored(signal); });
    // They stay blocked when the loop has gone: what comes while things are put in order must not end it
    // half-way.
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : heard) {
        sigaddset(&blocked, signal);
    }
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    for (const int signal : heard) {
        check(sd_event_add_signal(m_event, nullptr, signal, onSignal, &m_handlers->signals.back()),
              "waiting for signals");
    }
}

// Blocked and not ignored, so that what this process starts has the signal as it found it.
void Loop::surviveBrokenPipes() {
    onSignals({SIGPIPE}, [](const signalfd_siginfo& /*info*/) {});
}

void Loop::onBusLost(std::function<void()> call) {
    onBusSignal(
        "type='signal',sender='org.freedesktop.DBus.Local',interface='org.freedesktop.DBus.Local',"
        "member='Disconnected'",
        [call = std::move(call)](sd_bus_message* /*message*/) { call(); });
}

void Loop::onReadable(int fd, std::function<void()> call) {
    m_handlers->plain.push_back(m_handlers->guarded(std::move(call)));
    check(sd_event_add_io(m_event, nullptr, fd, EPOLLIN, onIo, &m_handlers->plain.back()),
          "waiting for a file");
}

void Loop::onFolder(const char* path, std::uint32_t mask, std::function<void(const char*)> call) {
    m_handlers->folders.push_back(m_handlers->guarded(std::move(call)));
    check(sd_event_add_inotify(m_event, nullptr, path, mask, onFolderEvent, &m_handlers->folders.back()),
          path);
}

void Loop::onBusSignal(const std::string& match, std::function<void(sd_bus_message*)> call) {
    m_handlers->messages.push_back(m_handlers->guarded(std::move(call)));
    check(sd_bus_add_match(m_bus.get(), nullptr, match.c_str(), onMessage, &m_handlers->messages.back()),
          "waiting for signals of the bus");
}

void Loop::run() {
    while (!m_stopped) {
        check(sd_event_run(m_event, UINT64_MAX), "waiting for events");
        if (m_handlers->thrown) {
            std::rethrow_exception(std::exchange(m_handlers->thrown, nullptr));
        }
    }
}

}  // namespace zelctl
