// SPDX-License-Identifier: Apache-2.0
#include "Sessions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace zelctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

std::string number(std::int32_t value) {
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

std::string text(const std::string& value) {
    return number(static_cast<std::int32_t>(value.size())) + value;
}

std::string problemWith(const std::string& content) {
    try {
        parseSessions(content);
    } catch (const std::runtime_error& problem) {
        return problem.what();
    }
    return "";
}

TEST(SessionsTest, EverySessionIsTold) {
    const std::string content = number(2) + text("##_WM_USE_HINTS_WIN__winID_5") + text("") + text("") +
                                text(":1.7") + text("player") + text("42");

    EXPECT_THAT(parseSessions(content),
                UnorderedElementsAre(Pair("##_WM_USE_HINTS_WIN__winID_5", Holder{"", ""}),
                                     Pair(":1.7", Holder{"player", "42"})));
}

TEST(SessionsTest, TheLaterOfTwoSessionsWithOneIdCounts) {
    const std::string content =
        number(2) + text(":1.7") + text("a") + text("1") + text(":1.7") + text("b") + text("2");

    EXPECT_THAT(parseSessions(content), UnorderedElementsAre(Pair(":1.7", Holder{"b", "2"})));
}

TEST(SessionsTest, WhatIsNoTableIsRefusedWithWhatIsWrong) {
    EXPECT_THAT(problemWith(""), HasSubstr("ends too early, at byte 0"));
    EXPECT_THAT(problemWith("abc"), HasSubstr("ends too early"));
    EXPECT_THAT(problemWith(number(0)), HasSubstr("0 sessions"));
    EXPECT_THAT(problemWith(number(-1)), HasSubstr("-1 sessions"));
    EXPECT_THAT(problemWith(number(1)), HasSubstr("ends too early, at byte 4"));
    EXPECT_THAT(problemWith(number(1) + number(-1)), HasSubstr("the length -1 at byte 4"));
    EXPECT_THAT(problemWith(number(1) + number(INT32_MAX) + "x"),
                HasSubstr("the length 2147483647 at byte 4"));
    EXPECT_THAT(problemWith(number(INT32_MAX) + text(":1.7")), HasSubstr("ends too early"));
}

TEST(SessionsTest, AWindowIsToldFromAnApplicationByItsId) {
    EXPECT_STREQ(kindOf("##_WM_USE_HINTS_WIN__winID_5"), "window");
    EXPECT_STREQ(kindOf(":1.7"), "application");
    EXPECT_STREQ(kindOf(""), "application");
    EXPECT_EQ(sessionText(":1.7", {"player", "42"}), ":1.7 (player, process 42)");
    EXPECT_EQ(sessionText(":1.7", {"", "42"}), ":1.7 (unknown program, process 42)");
    EXPECT_EQ(sessionText("##_WM_USE_HINTS_WIN__winID_5", {"", ""}),
              "##_WM_USE_HINTS_WIN__winID_5 (a window)");
}

}  // namespace
}  // namespace zelctl
