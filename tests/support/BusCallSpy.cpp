// SPDX-License-Identifier: Apache-2.0
#include "support/BusCallSpy.h"

#include <dlfcn.h>
#include <systemd/sd-bus.h>

#include <mutex>
#include <utility>

namespace {

std::mutex g_mutex;
std::function<void(BusCallSpy::Call&)> g_watch;

std::string textOf(const char* text) {
    return text == nullptr ? "" : text;
}

}  // namespace

void BusCallSpy::set(std::function<void(Call&)> watch) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_watch = std::move(watch);
}

// Stands before the function of libsystemd, whoever calls it in this process.
extern "C" int sd_bus_call(sd_bus* bus, sd_bus_message* message, std::uint64_t usec, sd_bus_error* error,
                           sd_bus_message** reply) {
    std::function<void(BusCallSpy::Call&)> watch;
    {
        const std::lock_guard<std::mutex> lock(g_mutex);
        watch = g_watch;
    }
    BusCallSpy::Call call{textOf(sd_bus_message_get_destination(message)),
                          textOf(sd_bus_message_get_member(message)), usec};
    if (watch) {
        watch(call);
    }
    static const auto real = reinterpret_cast<decltype(&sd_bus_call)>(dlsym(RTLD_NEXT, "sd_bus_call"));
    return real(bus, message, call.microseconds, error, reply);
}
