// SPDX-License-Identifier: Apache-2.0
#include "Sessions.h"

#include <TCMessageBuffer.h>

#include <cstdint>
#include <stdexcept>

namespace zelctl {

namespace {

constexpr std::string_view kWindow = "##_WM_USE_HINTS_WIN__winID_";

// Reads one text after the other. What a length says is held against what there is before it is believed.
class Reader {
public:
    explicit Reader(std::string_view content) {
        // The buffer asks for memory that it might write to.
        std::string copy(content);
        m_buffer.WriteConcatenated(copy.size(), copy.data(), -1);
    }

    int number() {
        int value = 0;
        if (!m_buffer.ReadInt(&value, m_offset)) {
            throw std::runtime_error("it ends too early, at byte " + std::to_string(m_offset));
        }
        m_offset += static_cast<unsigned int>(sizeof value);
        return value;
    }

    std::string text() {
        const int length = number();
        // A negative one is larger than any content.
        if (static_cast<unsigned int>(length) > m_buffer.GetContentSize() - m_offset) {
            throw std::runtime_error("the length " + std::to_string(length) + " at byte " +
                                     std::to_string(m_offset - sizeof length) + " is more than there is");
        }
        std::string text(static_cast<std::size_t>(length), '\0');
        m_buffer.ReadConcatenated(text.size(), text.data(), m_offset);
        m_offset += static_cast<unsigned int>(length);
        return text;
    }

private:
    TCMessageBuffer m_buffer;
    unsigned int m_offset = 0;
};

}  // namespace

Sessions parseSessions(std::string_view content) {
    Reader reader(content);
    const int count = reader.number();
    if (count < 1) {
        throw std::runtime_error("it says that it holds " + std::to_string(count) + " sessions");
    }
    Sessions sessions;
    for (int i = 0; i < count; ++i) {
        const std::string id = reader.text();
        const std::string program = reader.text();
        sessions[id] = Holder{program, reader.text()};
    }
    return sessions;
}

std::string windowSession(const std::string& window) {
    return std::string(kWindow) + window;
}

const char* kindOf(const std::string& sessionId) {
    return sessionId.compare(0, kWindow.size(), kWindow) == 0 ? "window" : "application";
}

std::string sessionText(const std::string& id, const Holder& holder) {
    if (holder.program.empty() && holder.pid.empty()) {
        return id + " (a window)";
    }
    return id + " (" + (holder.program.empty() ? "unknown program" : holder.program) + ", process " +
           holder.pid + ')';
}

}  // namespace zelctl
