// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Text of limited length that lives on the stack.
 */
#ifndef DLOG_TEXT_H
#define DLOG_TEXT_H

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace dlog {

/**
 * Printable text of at most Limit bytes. What doesn't fit is cut off, at the end of a whole escape and of a
 * whole UTF-8 character, because the journal takes half a character for binary data. Nothing is allocated: a
 * message may be logged where the heap must be left alone.
 */
template <std::size_t Limit>
class Text {
public:
    /** Appends bytes; control characters become `\xNN`. Does nothing any more once something was cut. */
    void append(std::string_view bytes) {
        for (const char byte : bytes) {
            if (m_cut) {
                return;
            }
            appendByte(static_cast<unsigned char>(byte));
        }
    }

    /** Appends spaces until the text is @p size bytes long. */
    void padTo(std::size_t size) {
        while (m_size < size && !m_cut) {
            append(" ");
        }
    }

    /** Ends the text with a line feed, for which there is always room. */
    void endLine() { m_bytes[m_size++] = '\n'; }

    /** The text so far. */
    std::string_view view() const { return {m_bytes.data(), m_size}; }

private:
    void appendByte(unsigned char byte) {
        static constexpr std::string_view kDigits = "0123456789abcdef";
        if (byte >= 0x20 && byte != 0x7f) {
            const char plain = static_cast<char>(byte);
            appendWhole({&plain, 1});
            return;
        }
        const std::array<char, 4> escape{'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 0xfU]};
        appendWhole({escape.data(), escape.size()});
    }

    void appendWhole(std::string_view bytes) {
        if (m_size + bytes.size() > Limit) {
            m_cut = true;
            dropHalfCharacter();
            return;
        }
        std::memcpy(m_bytes.data() + m_size, bytes.data(), bytes.size());
        m_size += bytes.size();
    }

    // A UTF-8 character is a leading byte, which tells the length, and continuing ones, which begin with
    // bits 10.
    void dropHalfCharacter() {
        std::size_t lead = m_size;
        std::size_t present = 0;
        while (lead > 0 && present < 4) {
            const auto byte = static_cast<unsigned char>(m_bytes[--lead]);
            ++present;
            if ((byte & 0xc0U) != 0x80U) {
                if (byte >= 0xc0U && present < lengthByLead(byte)) {
                    m_size = lead;
                }
                return;
            }
        }
    }

    static std::size_t lengthByLead(unsigned char lead) {
        if (lead >= 0xf0U) {
            return 4;
        }
        return lead >= 0xe0U ? 3 : 2;
    }

    std::array<char, Limit + 1> m_bytes;
    std::size_t m_size = 0;
    bool m_cut = false;
};

}  // namespace dlog

#endif
