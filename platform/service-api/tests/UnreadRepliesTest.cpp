// SPDX-License-Identifier: Apache-2.0
// Which callers are refused large replies because of those that are not read.
#include "UnreadReplies.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

constexpr uid_t kUser = 1000;
constexpr uid_t kOther = 1001;
constexpr uid_t kRoot = 0;
constexpr int kReport = 2;
constexpr int kOpen = 0;
constexpr std::size_t kSixtyFourKibibytes = 65'536;
constexpr std::size_t kTwelveMebibytes = std::size_t{12} * 1024 * 1024;

class UnreadRepliesTest : public testing::Test {
protected:
    // Two replies, which is what a user may have unread.
    void sendTwo(uid_t user = kUser) {
        m_unread.sent(":1.1", user, kReport, kTwelveMebibytes);
        m_unread.sent(":1.2", user, kReport, kTwelveMebibytes);
    }

    UnreadReplies m_unread;
};

}  // namespace

TEST_F(UnreadRepliesTest, AUserWithMuchUnreadIsRefusedMore) {
    m_unread.sent(":1.1", kUser, kReport, kTwelveMebibytes);
    EXPECT_FALSE(m_unread.refuses(kReport, kUser));

    m_unread.sent(":1.2", kUser, kReport, kTwelveMebibytes);

    EXPECT_TRUE(m_unread.refuses(kReport, kUser));
}

TEST_F(UnreadRepliesTest, OtherUsersAndRootAreNotRefused) {
    sendTwo();
    sendTwo(kRoot);

    EXPECT_FALSE(m_unread.refuses(kReport, kOther));
    EXPECT_FALSE(m_unread.refuses(kReport, kRoot));
}

TEST_F(UnreadRepliesTest, AMethodWithSmallRepliesIsNotRefused) {
    sendTwo();
    m_unread.sent(":1.1", kUser, kOpen, 4);

    EXPECT_FALSE(m_unread.refuses(kOpen, kUser));
}

TEST_F(UnreadRepliesTest, AMethodWhoseLastReplyWasSmallIsNotRefused) {
    sendTwo();

    m_unread.sent(":1.3", kOther, kReport, kSixtyFourKibibytes - 1);

    EXPECT_FALSE(m_unread.refuses(kReport, kUser));
    m_unread.sent(":1.3", kOther, kReport, kSixtyFourKibibytes);
    EXPECT_TRUE(m_unread.refuses(kReport, kUser));
}

TEST_F(UnreadRepliesTest, WhatWasReadMakesRoom) {
    sendTwo();

    m_unread.keeps(":1.1", 1, 0);

    EXPECT_FALSE(m_unread.refuses(kReport, kUser));
    EXPECT_THAT(m_unread.callers(), ElementsAre(Pair(":1.2", 1)));
}

TEST_F(UnreadRepliesTest, WhatIsReadInPartCountsWithTheRest) {
    sendTwo();

    m_unread.keeps(":1.1", 1, kTwelveMebibytes - 1);

    EXPECT_FALSE(m_unread.refuses(kReport, kUser));
    m_unread.sent(":1.3", kUser, kReport, kSixtyFourKibibytes);
    EXPECT_TRUE(m_unread.refuses(kReport, kUser));
}

TEST_F(UnreadRepliesTest, OtherMessagesForTheCallerCountNothing) {
    m_unread.sent(":1.1", kUser, kReport, kTwelveMebibytes);

    m_unread.keeps(":1.1", 1, 3 * kTwelveMebibytes);
    EXPECT_FALSE(m_unread.refuses(kReport, kUser));
    m_unread.keeps(":1.1", 1, kSixtyFourKibibytes - 1);

    EXPECT_THAT(m_unread.callers(), IsEmpty());
}

TEST_F(UnreadRepliesTest, AnAnswerFromBeforeTheLastReplyIsIgnored) {
    sendTwo();
    m_unread.sent(":1.1", kUser, kReport, kTwelveMebibytes);

    m_unread.keeps(":1.1", 1, 0);

    EXPECT_THAT(m_unread.callers(), ElementsAre(Pair(":1.1", 2), Pair(":1.2", 1)));
    EXPECT_TRUE(m_unread.refuses(kReport, kUser));
}

TEST_F(UnreadRepliesTest, ACallerThatLeavesMakesRoom) {
    sendTwo();

    m_unread.forget(":1.2");
    m_unread.forget(":1.9");

    EXPECT_FALSE(m_unread.refuses(kReport, kUser));
    EXPECT_THAT(m_unread.callers(), ElementsAre(Pair(":1.1", 1)));
}

TEST_F(UnreadRepliesTest, AnotherConnectionBeginsWithoutDebts) {
    sendTwo();

    m_unread.clear();

    EXPECT_FALSE(m_unread.refuses(kReport, kUser));
    EXPECT_THAT(m_unread.callers(), IsEmpty());
}
