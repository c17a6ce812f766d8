// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Waiting: for signals, the bus, files and whatever else, on one thread.
 */
#ifndef ZELCTL_LOOP_H
#define ZELCTL_LOOP_H

#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <systemd/sd-event.h>

#include <functional>
#include <initializer_list>
#include <memory>

#include "Bus.h"

namespace zelctl {

/** Calls what was asked for until it is told to stop. What is thrown in a call comes out of run(). */
class Loop {
public:
    /** @param bus  is read while the loop runs; must outlive it */
    explicit Loop(const Bus& bus);
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    /** Blocks signals, for good, and calls for each that comes while the loop runs; what was ignored stays
     * ignored. */
    void onSignals(std::initializer_list<int> signals, std::function<void(const signalfd_siginfo&)> call);
    /** Has writing fail, for good, where nobody reads any more; it would end the process. */
    void surviveBrokenPipes();
    /** Calls when the bus has gone. */
    void onBusLost(std::function<void()> call);
    /** Calls when a descriptor can be read. */
    void onReadable(int fd, std::function<void()> call);
    /** Calls when something happens in a folder, with the name of what it happens to; null when much may
     * have. */
    void onFolder(const char* path, std::uint32_t mask, std::function<void(const char*)> call);
    /** Calls for signals of the bus that fit a match rule, whoever sent them. */
    void onBusSignal(const std::string& match, std::function<void(sd_bus_message*)> call);

    /** Runs until stop(). */
    void run();
    void stop() { m_stopped = true; }

private:
    struct Handlers;

    std::unique_ptr<Handlers> m_handlers;
    const Bus& m_bus;
    sd_event* m_event = nullptr;
    bool m_stopped = false;
};

}  // namespace zelctl

#endif
