// SPDX-License-Identifier: Apache-2.0
// Which call is served next, and what may wait.
#include "CallQueue.h"

#include <gmock/gmock.h>

#include <future>
#include <string>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uid_t kSomeUser = 1000;
constexpr uid_t kOtherUser = 65534;

class CallQueueTest : public testing::Test {
protected:
    static Call callOf(const std::string& sender, int method, std::size_t size = 0) {
        Call call;
        call.sender = sender;
        call.method = method;
        call.size = size;
        return call;
    }

    // Adds calls with these numbers; gives the numbers of those that are refused.
    std::vector<std::string> push(const std::string& sender, const std::vector<int>& methods,
                                  std::size_t size = 0) {
        std::vector<std::string> refused;
        for (const int method : methods) {
            for (const Call& call : m_queue.push(callOf(sender, method, size))) {
                refused.push_back(call.sender + " " + std::to_string(call.method));
            }
        }
        return refused;
    }

    void admit(const std::string& sender, uid_t user = kSomeUser) {
        TSCallerProperties caller;
        caller.progName = "of " + sender;
        m_queue.admit(sender, caller, user);
    }

    // What is served next: "SENDER METHOD", "SENDER left" or "stop".
    std::string next() {
        auto next = m_queue.next();
        if (const auto* call = std::get_if<Call>(&next)) {
            EXPECT_EQ(call->caller.progName, "of " + call->sender);
            return call->sender + " " + std::to_string(call->method);
        }
        const auto* departure = std::get_if<Departure>(&next);
        return departure == nullptr ? "stop" : departure->name + " left";
    }

    std::vector<std::string> next(int count) {
        std::vector<std::string> served;
        for (; count > 0; --count) {
            served.push_back(next());
        }
        return served;
    }

    CallQueue m_queue;
};

}  // namespace

TEST_F(CallQueueTest, TheCallsOfACallerAreServedInTheirOrder) {
    push("a", {1, 2, 3});
    admit("a");

    EXPECT_THAT(next(3), ElementsAre("a 1", "a 2", "a 3"));
}

TEST_F(CallQueueTest, CallersTakeTurns) {
    push("a", {1, 2, 3});
    push("b", {1});
    push("c", {1, 2});
    admit("a");
    admit("b");
    admit("c");

    EXPECT_THAT(next(6), ElementsAre("a 1", "b 1", "c 1", "a 2", "c 2", "a 3"));
}

TEST_F(CallQueueTest, UsersTakeTurnsHoweverManyCallersTheyHave) {
    for (const char* sender : {"a", "b", "c"}) {
        push(sender, {1, 2});
        admit(sender, kOtherUser);
    }
    push("honest", {1, 2});
    admit("honest", kSomeUser);

    EXPECT_THAT(next(5), ElementsAre("a 1", "honest 1", "b 1", "honest 2", "c 1"));
}

TEST_F(CallQueueTest, ACallerThatComesLaterHasTheTurnAfterTheOneBeingServed) {
    push("a", {1, 2, 3});
    admit("a");
    next();
    push("b", {1});
    admit("b", kOtherUser);

    EXPECT_THAT(next(3), ElementsAre("a 2", "b 1", "a 3"));
}

TEST_F(CallQueueTest, NoCallIsServedBeforeItsCallerIsAdmitted) {
    push("unknown", {1});
    push("known", {1});
    admit("known");

    EXPECT_EQ(next(), "known 1");
    push("known", {2});
    admit("known");
    EXPECT_EQ(next(), "known 2");
}

TEST_F(CallQueueTest, AdmittingAgainChangesNothing) {
    push("a", {1, 2});
    push("b", {1});
    admit("a");
    admit("a");
    admit("b");

    EXPECT_THAT(next(3), ElementsAre("a 1", "b 1", "a 2"));
}

TEST_F(CallQueueTest, TheCallsOfACallerThatHasLeftAreSkipped) {
    push("a", {1, 2});
    push("b", {1});
    admit("a");
    admit("b");

    EXPECT_EQ(m_queue.drop("a").size(), 2U);

    EXPECT_EQ(next(), "b 1");
}

TEST_F(CallQueueTest, DroppingAStrangerDropsNothing) {
    EXPECT_THAT(m_queue.drop("stranger"), IsEmpty());
}

TEST_F(CallQueueTest, DeparturesAndUsersTakeTurns) {
    push("a", {1, 2});
    admit("a");
    m_queue.add({"x", 1});
    m_queue.add({"y", 2});
    m_queue.add({"z", 3});

    EXPECT_THAT(next(5), ElementsAre("a 1", "x left", "a 2", "y left", "z left"));
}

TEST_F(CallQueueTest, DeparturesThatArePutFirstComeBeforeEveryCall) {
    m_queue.add({"x", 1});
    m_queue.add({"a", 2});
    m_queue.putDeparturesFirst();
    m_queue.add({"z", 3});
    m_queue.add({"z", 4});
    push("a", {1, 2});
    admit("a");

    EXPECT_THAT(next(6), ElementsAre("x left", "a left", "a 1", "z left", "a 2", "z left"));
}

TEST_F(CallQueueTest, ADepartureIsServedAlsoWhenEveryCallerWithATurnHasLeft) {
    push("a", {1});
    admit("a");
    m_queue.drop("a");
    m_queue.add({"a", 1});

    EXPECT_EQ(next(), "a left");
}

TEST_F(CallQueueTest, OneCallerMayHave256CallsWaiting) {
    for (int method = 0; method < 256; ++method) {
        EXPECT_THAT(push("a", {method}), IsEmpty());
    }

    EXPECT_THAT(push("a", {256}), ElementsAre("a 256"));
    EXPECT_THAT(push("b", {1}), IsEmpty());
    admit("a");
    next();
    EXPECT_THAT(push("a", {257}), IsEmpty());
}

TEST_F(CallQueueTest, AboveTheBytesOfAllTheLastCallOfWhoHasMostWaitingIsRefused) {
    constexpr std::size_t kMegabyte = 1'000'000;
    EXPECT_THAT(push("a", {1, 2, 3, 4, 5}, kMegabyte), IsEmpty());
    EXPECT_THAT(push("b", {1, 2, 3}, kMegabyte), IsEmpty());

    EXPECT_THAT(push("c", {1}, kMegabyte), ElementsAre("a 5"));
    EXPECT_THAT(push("a", {6}, kMegabyte), ElementsAre("a 6"));

    admit("c");
    EXPECT_EQ(next(), "c 1");
}

TEST_F(CallQueueTest, EveryCallCountsAlsoWithoutBytes) {
    std::size_t taken = 0;
    for (int caller = 0; caller < 10'000; ++caller) {
        taken += push("caller" + std::to_string(caller), {1}).empty() ? 1U : 0U;
    }

    EXPECT_EQ(taken, 8U * 1024);
}

TEST_F(CallQueueTest, RoomComesBackWhenCallsAreServedDroppedOrAllDropped) {
    constexpr std::size_t kMebibyte = 1'048'576 - 1024;
    const std::vector<int> full{1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_THAT(push("a", full, kMebibyte), IsEmpty());
    admit("a");
    next(8);
    EXPECT_THAT(push("b", full, kMebibyte), IsEmpty());
    m_queue.drop("b");
    EXPECT_THAT(push("c", full, kMebibyte), IsEmpty());
    EXPECT_EQ(m_queue.dropAll().size(), 8U);

    EXPECT_THAT(push("d", full, kMebibyte), IsEmpty());
    EXPECT_THAT(push("e", {1}, 0), ElementsAre("d 8"));
}

TEST_F(CallQueueTest, WhenAllIsDroppedTheTurnsGoToo) {
    push("a", {1});
    admit("a");
    m_queue.dropAll();
    push("b", {2});
    admit("b", kOtherUser);

    EXPECT_EQ(next(), "b 2");
}

TEST_F(CallQueueTest, AStopEndsAWaitAndComesBeforeWhatWaits) {
    auto waiting = std::async(std::launch::async, [this] { return next(); });
    push("a", {1});
    admit("a");
    EXPECT_EQ(waiting.get(), "a 1");
    waiting = std::async(std::launch::async, [this] { return next(); });

    m_queue.stop();

    EXPECT_EQ(waiting.get(), "stop");
    m_queue.add({"x", 1});
    EXPECT_EQ(next(), "stop");
}
