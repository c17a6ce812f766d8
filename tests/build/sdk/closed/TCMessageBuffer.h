// SPDX-License-Identifier: Apache-2.0
// The message buffer as it may be: reading returns nothing, or 0 for success; nothing tells the size.
#pragma once

#include <string>
#include <vector>

#ifndef SDK_READ_RESULT
#define SDK_READ_RESULT void
#endif

class TCMessageBuffer {
public:
    void PushInt(int value);
    void PushLongLong(long long value);
    SDK_READ_RESULT WriteConcatenated(unsigned long length, void* data, int offset);
    SDK_READ_RESULT ReadInt(int* out, unsigned int offset);
    SDK_READ_RESULT ReadLongLong(long long* out, unsigned int offset);
    SDK_READ_RESULT ReadConcatenated(unsigned long length, void* out, unsigned int offset);
    void Resize(unsigned int size);
    void* GetAsVoidFromOffset(unsigned int offset);

    std::string m_senderName;

private:
    std::vector<char> m_content;
};
