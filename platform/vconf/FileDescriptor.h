// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The owner of a file descriptor.
 */
#ifndef VCONF_FILE_DESCRIPTOR_H
#define VCONF_FILE_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace vconf {

/** Owns a file descriptor, or none. */
class FileDescriptor {
public:
    /** Takes ownership of @p fd; below 0 means none. */
    explicit FileDescriptor(int fd = -1) : m_fd(fd) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            reset();
            m_fd = std::exchange(other.m_fd, -1);
        }
        return *this;
    }

    /** Closes the descriptor, if there is one. */
    void reset() {
        if (m_fd >= 0) {
            close(std::exchange(m_fd, -1));
        }
    }

    /** Gives the descriptor away: who gets the number closes it. */
    int release() { return std::exchange(m_fd, -1); }

    /** The descriptor's number, below 0 when there is none. */
    int get() const { return m_fd; }

    explicit operator bool() const { return m_fd >= 0; }

private:
    int m_fd;
};

}  // namespace vconf

#endif
