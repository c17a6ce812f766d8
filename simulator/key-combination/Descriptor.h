// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The owner of a file descriptor.
 */
#ifndef SIMULATOR_KEY_COMBINATION_DESCRIPTOR_H
#define SIMULATOR_KEY_COMBINATION_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

/** Owns a file descriptor, or none. */
class Descriptor {
public:
    /** Takes ownership; below 0 means none. */
    explicit Descriptor(int number = -1) : m_number(number) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_number, other.m_number);
        return *this;
    }

    /** Closes it. */
    void reset() {
        if (m_number >= 0) {
            close(std::exchange(m_number, -1));
        }
    }

    int get() const { return m_number; }
    explicit operator bool() const { return m_number >= 0; }

private:
    int m_number;
};

#endif
