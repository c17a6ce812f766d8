// SPDX-License-Identifier: Apache-2.0
// The message buffer: what is appended is read back at its offset, and no read goes past the content.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>

#include "TCMessageBuffer.h"

namespace {

// Writes from memory that may be written to, as the buffer's interface wants it.
bool write(TCMessageBuffer& buffer, unsigned long length, std::string bytes, int offset) {
    return buffer.WriteConcatenated(length, bytes.data(), offset);
}

TCMessageBuffer bufferOf(const std::string& bytes) {
    TCMessageBuffer buffer;
    write(buffer, bytes.size(), bytes, -1);
    return buffer;
}

std::string contentOf(TCMessageBuffer& buffer) {
    return {static_cast<const char*>(buffer.GetAsVoidFromOffset(0)), buffer.GetContentSize()};
}

// A length that a caller read as the int -1 and handed on.
constexpr auto kMinusOne = static_cast<unsigned long>(-1);

}  // namespace

TEST(MessageBufferTest, ANewBufferIsEmptyAndHasNoSender) {
    TCMessageBuffer buffer;

    EXPECT_EQ(buffer.GetContentSize(), 0U);
    EXPECT_EQ(buffer.m_senderName, "");
}

TEST(MessageBufferTest, AnIntIsFourBytesInNativeOrder) {
    TCMessageBuffer buffer;

    buffer.PushInt(-2);

    const std::int32_t native = -2;
    ASSERT_EQ(buffer.GetContentSize(), 4U);
    EXPECT_EQ(std::memcmp(buffer.GetAsVoidFromOffset(0), &native, 4), 0);
}

TEST(MessageBufferTest, ALongLongIsEightBytesInNativeOrder) {
    TCMessageBuffer buffer;

    buffer.PushLongLong(0x0102030405060708);

    const std::int64_t native = 0x0102030405060708;
    ASSERT_EQ(buffer.GetContentSize(), 8U);
    EXPECT_EQ(std::memcmp(buffer.GetAsVoidFromOffset(0), &native, 8), 0);
}

TEST(MessageBufferTest, ContentFollowsWithoutPaddingAndIsReadUnaligned) {
    TCMessageBuffer buffer;

    write(buffer, 1, "x", -1);
    buffer.PushInt(7);
    buffer.PushLongLong(-9);

    int number = 0;
    long long wide = 0;
    EXPECT_EQ(buffer.GetContentSize(), 13U);
    EXPECT_TRUE(buffer.ReadInt(&number, 1));
    EXPECT_EQ(number, 7);
    EXPECT_TRUE(buffer.ReadLongLong(&wide, 5));
    EXPECT_EQ(wide, -9);
}

TEST(MessageBufferTest, AnIntThatEndsWithTheContentIsRead) {
    TCMessageBuffer buffer;
    buffer.PushInt(1);
    buffer.PushInt(2);

    int number = 0;
    const bool read = buffer.ReadInt(&number, 4);

    EXPECT_TRUE(read);
    EXPECT_EQ(number, 2);
}

TEST(MessageBufferTest, AnIntAcrossAtOrPastTheEndFailsAndLeavesTheDestination) {
    TCMessageBuffer buffer;
    buffer.PushInt(1);

    for (const unsigned int offset : {1U, 3U, 4U, 5U, 0x7fffffffU, 0xfffffffdU, 0xffffffffU}) {
        int number = 4711;
        EXPECT_FALSE(buffer.ReadInt(&number, offset)) << offset;
        EXPECT_EQ(number, 4711) << offset;
    }
}

TEST(MessageBufferTest, ALongLongAcrossAtOrPastTheEndFailsAndLeavesTheDestination) {
    TCMessageBuffer buffer;
    buffer.PushLongLong(1);

    for (const unsigned int offset : {1U, 7U, 8U, 9U, 0x7fffffffU, 0xfffffff9U, 0xffffffffU}) {
        long long number = 4711;
        EXPECT_FALSE(buffer.ReadLongLong(&number, offset)) << offset;
        EXPECT_EQ(number, 4711) << offset;
    }
}

TEST(MessageBufferTest, AnEmptyBufferHoldsNoInteger) {
    TCMessageBuffer buffer;
    int number = 5;
    long long wide = 6;

    EXPECT_FALSE(buffer.ReadInt(&number, 0));
    EXPECT_FALSE(buffer.ReadLongLong(&wide, 0));
    EXPECT_EQ(number, 5);
    EXPECT_EQ(wide, 6);
}

TEST(MessageBufferTest, BytesAreReadFromTheirOffset) {
    TCMessageBuffer buffer = bufferOf("abcdef");
    std::array<char, 4> out{};

    const bool read = buffer.ReadConcatenated(3, out.data(), 2);

    EXPECT_TRUE(read);
    EXPECT_STREQ(out.data(), "cde");
}

TEST(MessageBufferTest, BytesAcrossTheEndFailAndLeaveTheDestination) {
    TCMessageBuffer buffer = bufferOf("abcdef");
    std::array<char, 8> out{"-------"};

    const bool read = buffer.ReadConcatenated(5, out.data(), 2);

    EXPECT_FALSE(read);
    EXPECT_STREQ(out.data(), "-------");
}

TEST(MessageBufferTest, ReadingNothingSucceedsInTheContentAndAtItsEndAndFailsPastIt) {
    TCMessageBuffer buffer = bufferOf("abc");
    char out = '-';

    EXPECT_TRUE(buffer.ReadConcatenated(0, &out, 0));
    EXPECT_TRUE(buffer.ReadConcatenated(0, &out, 3));
    EXPECT_FALSE(buffer.ReadConcatenated(0, &out, 4));
    EXPECT_TRUE(TCMessageBuffer().ReadConcatenated(0, &out, 0));
    EXPECT_FALSE(TCMessageBuffer().ReadConcatenated(0, &out, 1));
    EXPECT_EQ(out, '-');
}

TEST(MessageBufferTest, ALengthThatWasNegativeOrIsHugeFailsAtEveryOffset) {
    TCMessageBuffer buffer = bufferOf("abcdefghijklmnop");

    for (const unsigned long length :
         {kMinusOne, kMinusOne - 11, 0x7fffffffUL, 0x80000000UL, 0xffffffffUL, 17UL}) {
        for (const unsigned int offset : {0U, 12U, 16U, 0x80000000U, 0xffffffffU}) {
            char out = '-';
            EXPECT_FALSE(buffer.ReadConcatenated(length, &out, offset)) << length << " at " << offset;
            EXPECT_EQ(out, '-');
        }
    }
}

TEST(MessageBufferTest, AnOffsetNearTheTopDoesNotWrapIntoTheContent) {
    TCMessageBuffer buffer = bufferOf("abcdefgh");
    char out = '-';

    EXPECT_FALSE(buffer.ReadConcatenated(2, &out, 0xffffffffU));
    EXPECT_FALSE(buffer.ReadConcatenated(1, &out, 0xffffffffU));
    EXPECT_FALSE(buffer.ReadConcatenated(8, &out, 0xfffffff8U));
    EXPECT_EQ(out, '-');
}

TEST(MessageBufferTest, WritingAtMinusOneAppends) {
    TCMessageBuffer buffer = bufferOf("abc");

    const bool written = write(buffer, 2, "de", -1);

    EXPECT_TRUE(written);
    EXPECT_EQ(contentOf(buffer), "abcde");
}

TEST(MessageBufferTest, WritingInsideTheContentReplaces) {
    TCMessageBuffer buffer = bufferOf("abcdef");

    const bool written = write(buffer, 2, "XY", 1);

    EXPECT_TRUE(written);
    EXPECT_EQ(contentOf(buffer), "aXYdef");
}

TEST(MessageBufferTest, WritingAcrossTheEndGrowsTheContent) {
    TCMessageBuffer buffer = bufferOf("abc");

    const bool written = write(buffer, 3, "XYZ", 2);

    EXPECT_TRUE(written);
    EXPECT_EQ(contentOf(buffer), "abXYZ");
}

TEST(MessageBufferTest, WritingAtTheEndAppends) {
    TCMessageBuffer buffer = bufferOf("abc");

    const bool written = write(buffer, 1, "d", 3);

    EXPECT_TRUE(written);
    EXPECT_EQ(contentOf(buffer), "abcd");
}

TEST(MessageBufferTest, WritingPastTheEndOrBelowMinusOneChangesNothing) {
    TCMessageBuffer buffer = bufferOf("abc");

    for (const int offset : {4, INT_MAX, -2, INT_MIN}) {
        EXPECT_FALSE(write(buffer, 1, "X", offset)) << offset;
        EXPECT_FALSE(write(buffer, 0, "X", offset)) << offset;
    }
    EXPECT_EQ(contentOf(buffer), "abc");
}

TEST(MessageBufferTest, WritingALengthThatWasNegativeChangesNothing) {
    TCMessageBuffer buffer = bufferOf("abc");

    EXPECT_FALSE(write(buffer, kMinusOne, "X", -1));
    EXPECT_FALSE(write(buffer, kMinusOne, "X", 1));
    EXPECT_FALSE(write(buffer, 0x7fffffffUL, "X", 1));
    EXPECT_EQ(contentOf(buffer), "abc");
}

TEST(MessageBufferTest, WritingNothingSucceedsAlsoFromNowhere) {
    TCMessageBuffer buffer;

    const bool written = buffer.WriteConcatenated(0, nullptr, -1);

    EXPECT_TRUE(written);
    EXPECT_EQ(buffer.GetContentSize(), 0U);
}

TEST(MessageBufferTest, ShrinkingCutsTheContent) {
    TCMessageBuffer buffer = bufferOf("abcdef");

    buffer.Resize(2);

    char out = '-';
    EXPECT_EQ(contentOf(buffer), "ab");
    EXPECT_FALSE(buffer.ReadConcatenated(1, &out, 2));
}

TEST(MessageBufferTest, GrowingAddsZeroesAlsoWhereContentWasCutBefore) {
    TCMessageBuffer buffer = bufferOf("abcdef");

    buffer.Resize(2);
    buffer.Resize(5);

    EXPECT_EQ(contentOf(buffer), std::string("ab\0\0\0", 5));
}

TEST(MessageBufferTest, AnAddressIsGivenUpToTheEndAndNotPastIt) {
    TCMessageBuffer buffer = bufferOf("abc");

    auto* start = static_cast<char*>(buffer.GetAsVoidFromOffset(0));

    EXPECT_EQ(buffer.GetAsVoidFromOffset(2), start + 2);
    EXPECT_EQ(buffer.GetAsVoidFromOffset(3), start + 3);
    EXPECT_EQ(buffer.GetAsVoidFromOffset(4), nullptr);
    EXPECT_EQ(buffer.GetAsVoidFromOffset(0xffffffffU), nullptr);
}

TEST(MessageBufferTest, ACopyHasContentAndSenderOfItsOwn) {
    TCMessageBuffer buffer = bufferOf("abc");
    buffer.m_senderName = ":1.7";

    TCMessageBuffer copy = buffer;
    buffer.Resize(0);

    EXPECT_EQ(contentOf(copy), "abc");
    EXPECT_EQ(copy.m_senderName, ":1.7");
}
