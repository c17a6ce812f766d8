// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Files in /tmp, where everybody may plant something under a name that the daemon uses.
 *
 * Whatever a path turns out to be at the moment of opening, a link is never followed, a FIFO or a device
 * never blocks or is written to, and a file with a second name elsewhere is never changed. Descriptors are
 * close-on-exec, because the daemon starts other programs.
 */
#ifndef ZEL_LITE_GUARDED_FILE_H
#define ZEL_LITE_GUARDED_FILE_H

/** Owns a file descriptor. Closing it leaves errno as it was. */
class TCFileDescriptor {
public:
    TCFileDescriptor() = default;
    explicit TCFileDescriptor(int fd) : m_fd(fd) {}
    TCFileDescriptor(TCFileDescriptor&& other) noexcept : m_fd(other.m_Release()) {}
    TCFileDescriptor(const TCFileDescriptor&) = delete;
    TCFileDescriptor& operator=(const TCFileDescriptor&) = delete;
    ~TCFileDescriptor();

    explicit operator bool() const { return m_fd >= 0; }
    int Get() const { return m_fd; }

private:
    int m_Release() noexcept;

    int m_fd = -1;
};

/** Whether @p path itself is a symbolic link. */
bool IsSymbolicLink(const char* path);

/**
 * Opens a regular file of this user for reading.
 *
 * @return the file, or none with errno set: EPERM for something that is not a regular file of this user,
 * otherwise the error of the call that failed
 */
TCFileDescriptor OpenOwnFile(const char* path);

/**
 * Creates a file with the process's default mode, or truncates the one that is there, and opens it for
 * writing. A regular file that somebody else planted, or that has another name besides, is replaced by a new
 * one.
 *
 * @return the file, or none with errno set: EPERM for something that is not a regular file of this user with
 * this name only, otherwise the error of the call that failed
 */
TCFileDescriptor CreateOwnFile(const char* path);

#endif
