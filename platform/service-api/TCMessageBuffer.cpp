// SPDX-License-Identifier: Apache-2.0
#include "TCMessageBuffer.h"

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// Offsets to write at are ints, so no content reaches further than an int.
constexpr std::size_t kMaxContent = INT_MAX;

}  // namespace

void TCMessageBuffer::Content::resize(std::size_t size) {
    // One byte at least, since realloc may free for none.
    auto* const data = static_cast<unsigned char*>(std::realloc(m_data, size == 0 ? 1 : size));
    if (data == nullptr) {
        throw std::bad_alloc();
    }
    m_data = data;
    m_size = size;
}

void TCMessageBuffer::PushInt(int value) {
    WriteConcatenated(sizeof value, &value, -1);
}

void TCMessageBuffer::PushLongLong(long long value) {
    WriteConcatenated(sizeof value, &value, -1);
}

bool TCMessageBuffer::WriteConcatenated(unsigned long length, void* data, int offset) {
    // Any other negative offset is, without its sign, past every end.
    const std::size_t start = offset == -1 ? m_content.size() : static_cast<std::size_t>(offset);
    if (start > m_content.size() || start > kMaxContent || length > kMaxContent - start) {
        return false;
    }
    if (length == 0) {
        return true;
    }
    if (start + length > m_content.size()) {
        m_content.resize(start + length);
    }
    std::memcpy(m_content.data() + start, data, length);
    return true;
}

bool TCMessageBuffer::ReadInt(int* out, unsigned int offset) {
    return ReadConcatenated(sizeof *out, out, offset);
}

bool TCMessageBuffer::ReadLongLong(long long* out, unsigned int offset) {
    return ReadConcatenated(sizeof *out, out, offset);
}

bool TCMessageBuffer::ReadConcatenated(unsigned long length, void* out, unsigned int offset) {
    if (!Holds(length, offset)) {
        return false;
    }
    if (length > 0) {
        std::memcpy(out, m_content.data() + offset, length);
    }
    return true;
}

void TCMessageBuffer::Resize(unsigned int size) {
    const std::size_t before = m_content.size();
    m_content.resize(size);
    if (size > before) {
        std::memset(m_content.data() + before, 0, size - before);
    }
}

unsigned int TCMessageBuffer::GetContentSize() const {
    return static_cast<unsigned int>(m_content.size());
}

void* TCMessageBuffer::GetAsVoidFromOffset(unsigned int offset) {
    return Holds(0, offset) ? m_content.data() + offset : nullptr;
}

// The subtraction comes after the comparison that keeps it from wrapping; a sum of the two arguments could
// wrap.
bool TCMessageBuffer::Holds(unsigned long length, unsigned int offset) const {
    return offset <= m_content.size() && length <= m_content.size() - offset;
}
