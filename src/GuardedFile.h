// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Files in /tmp, where everybody may plant something under a name that the daemon uses.
 *
 * A file is the daemon's own when it is a regular file of this user without a second name. Anything else at a
 * path is never read, followed, waited for or written to; the daemon removes it before it creates its own
 * file. Descriptors are close-on-exec, because the daemon starts other programs.
 */
#ifndef ZEL_LITE_GUARDED_FILE_H
#define ZEL_LITE_GUARDED_FILE_H

/** Owns a file descriptor. Closing it leaves errno as it was. */
class TCFileDescriptor {
public:
    TCFileDescriptor() = default;
    explicit TCFileDescriptor(int fd) : m_fd(fd) {}
    TCFileDescriptor(TCFileDescriptor&& other) noexcept : m_fd(other.m_Release()) {}
    /** Closes what this one had. */
    TCFileDescriptor& operator=(TCFileDescriptor&& other) noexcept;
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

/** Whether @p path is the daemon's own file. */
bool IsOwnFile(const char* path);

/**
 * Removes what is at @p path, unless it is the daemon's own file. A folder that is not empty is renamed
 * instead, to @p path with a random suffix.
 */
void TakeAwayPlanted(const char* path);

/**
 * Opens the daemon's own file for reading and writing.
 *
 * @return the file, or none with errno set: EPERM for something else, otherwise the error of the call that
 * failed
 */
TCFileDescriptor OpenOwnFile(const char* path);

/**
 * Creates a file with the process's default mode, or truncates the daemon's own, and opens it for writing. If
 * there is anything else at the path, the file is made under a random name beside it and takes its place.
 *
 * @return the file, or none with errno set
 */
TCFileDescriptor CreateOwnFile(const char* path);

/**
 * Renames a file to @p to. Anything there is replaced; a folder is exchanged for the file and then removed as
 * TakeAwayPlanted does.
 *
 * @return whether it was renamed
 */
bool RenameOver(const char* from, const char* to);

/**
 * Empties a file that still has a name although it was replaced or removed: where the kernel lets users link
 * files of others, somebody may have given it a second name. Without one it stays as it is, for readers who
 * have it open.
 */
void EmptyIfNamed(const TCFileDescriptor& replaced);

#endif
