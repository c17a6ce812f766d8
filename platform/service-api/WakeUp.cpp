// SPDX-License-Identifier: Apache-2.0
#include "WakeUp.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

WakeUp::WakeUp() : m_descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

WakeUp::~WakeUp() {
    close(m_descriptor);
}

void WakeUp::set() {
    eventfd_write(m_descriptor, 1);
}

void WakeUp::clear() {
    eventfd_t count = 0;
    eventfd_read(m_descriptor, &count);
}

bool WakeUp::wait(pollfd other, int milliseconds) {
    std::array<pollfd, 2> polled{pollfd{m_descriptor, POLLIN, 0}, other};
    const int ready = poll(polled.data(), polled.size(), milliseconds);
    return ready > 0 && polled[0].revents != 0;
}
