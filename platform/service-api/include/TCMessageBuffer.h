// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The message buffer of the IPC library: a run of bytes that a request, a reply or a saved table is made of.
 *
 * Integers are stored in native byte order, without padding or alignment. Content is appended at the end and
 * read at absolute byte offsets. A read never goes past the content: it then reports failure and leaves its
 * destination as it was. The library has no shared state; one buffer must not be used by two threads at a
 * time.
 */
#ifndef TC_MESSAGE_BUFFER_H
#define TC_MESSAGE_BUFFER_H

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <utility>

class TCMessageBuffer {
public:
    /** Makes an empty buffer without a sender. */
    TCMessageBuffer() = default;

    /** Appends a 32-bit integer (4 bytes). */
    void PushInt(int value);

    /** Appends a 64-bit integer (8 bytes). */
    void PushLongLong(long long value);

    /**
     * Writes @p length bytes of @p data at @p offset, or appends them when @p offset is -1. Writing inside
     * the content replaces what is there and grows the buffer where it reaches past the end. @p data must not
     * lie in this buffer.
     *
     * @return false, with nothing written, when @p offset is below -1 or past the end of the content, or when
     *         the content would exceed 2^31 - 1 bytes
     */
    bool WriteConcatenated(unsigned long length, void* data, int offset);

    /** Reads the 4-byte integer at @p offset into @p out. @return whether the content holds all of it */
    bool ReadInt(int* out, unsigned int offset);

    /** Reads the 8-byte integer at @p offset into @p out. @return whether the content holds all of it */
    bool ReadLongLong(long long* out, unsigned int offset);

    /**
     * Reads @p length bytes at @p offset into @p out, which must have room for them. Nothing is allocated.
     * Reading 0 bytes succeeds anywhere in the content and at its end.
     *
     * @return whether the content holds all of them
     */
    bool ReadConcatenated(unsigned long length, void* out, unsigned int offset);

    /** Makes the content @p size bytes long; bytes that are new are zero. */
    void Resize(unsigned int size);

    /** Size of the content in bytes. */
    unsigned int GetContentSize() const;

    /**
     * Address of the content from @p offset on, or null when @p offset is past the end. Valid until the
     * buffer is next written or resized.
     */
    void* GetAsVoidFromOffset(unsigned int offset);

    /** In a request: the caller's unique connection name on the bus. Empty otherwise. */
    std::string m_senderName;

private:
    /** Bytes that grow and shrink by realloc: large content moves without being copied, so it never exists
     * twice. */
    class Content {
    public:
        Content() = default;
        Content(const Content& other) {
            resize(other.m_size);
            std::copy_n(other.m_data, m_size, m_data);
        }
        Content(Content&& other) noexcept
            : m_data(std::exchange(other.m_data, nullptr)), m_size(std::exchange(other.m_size, 0)) {}
        Content& operator=(Content other) noexcept {
            std::swap(m_data, other.m_data);
            std::swap(m_size, other.m_size);
            return *this;
        }
        ~Content() { std::free(m_data); }

        unsigned char* data() const { return m_data; }
        std::size_t size() const { return m_size; }
        /** Bytes that are new have any value. Throws std::bad_alloc. */
        void resize(std::size_t size);

    private:
        unsigned char* m_data = nullptr;
        std::size_t m_size = 0;
    };

    bool Holds(unsigned long length, unsigned int offset) const;

    Content m_content;
};

#endif
