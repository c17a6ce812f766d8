// SPDX-License-Identifier: Apache-2.0
#include "Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zelctl {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

TEST(TextTest, OrdinaryTextStaysAsItIs) {
    EXPECT_EQ(printable("main > öffnen 画面 🙂 100 %"), "main > öffnen 画面 🙂 100 %");
    EXPECT_EQ(printable(""), "");
}

TEST(TextTest, WhatATerminalObeysIsWrittenAsBytes) {
    EXPECT_EQ(printable("\033]0;title\007"), "\\x1b]0;title\\x07");
    EXPECT_EQ(printable("one\ntwo\r\t"), "one\\x0atwo\\x0d\\x09");
    EXPECT_EQ(printable(std::string("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(printable("\x7f"), "\\x7f");
    // The same controls in their other form, which some terminals obey too.
    EXPECT_EQ(printable("\xc2\x9b"
                        "31m"),
              "\\xc2\\x9b31m");
}

TEST(TextTest, WhatTurnsOrHidesTextIsWrittenAsBytes) {
    const auto character = [](char second, char third) { return std::string{'\xe2', second, third}; };

    EXPECT_EQ(printable(character('\x80', '\xae') + "txt.exe"), "\\xe2\\x80\\xaetxt.exe");
    EXPECT_EQ(printable(character('\x80', '\x8b')), "\\xe2\\x80\\x8b");
    EXPECT_EQ(printable(character('\x80', '\xa8')), "\\xe2\\x80\\xa8");
    EXPECT_EQ(printable(character('\x81', '\xa6')), "\\xe2\\x81\\xa6");
}

// Two names that look alike must not be taken for one.
TEST(TextTest, WhatLeavesNoTraceOnAScreenIsWrittenAsBytes) {
    for (const char* const character :
         {"\u00ad", "\u034f", "\u115f", "\u17b4", "\u180e", "\u3164", "\ufe0f", "\uffa0", "\U000e0100"}) {
        EXPECT_THAT(printable(std::string("player") + character), StartsWith("player\\x")) << character;
    }
    EXPECT_EQ(printable("\u00ae \u1160\u1161 \u3165 \ufe10"), "\u00ae \\xe1\\x85\\xa0\u1161 \u3165 \ufe10");
}

TEST(TextTest, WhatIsNoUtf8IsWrittenAsBytes) {
    EXPECT_EQ(printable("\xff"), "\\xff");
    EXPECT_EQ(printable("a\xc3"), "a\\xc3");
    EXPECT_EQ(printable("\xc0\x80"), "\\xc0\\x80");
    EXPECT_EQ(printable("\xe0\x80\xaf"), "\\xe0\\x80\\xaf");
    EXPECT_EQ(printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");
    EXPECT_EQ(printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
    EXPECT_EQ(printable("\x80z"), "\\x80z");
}

TEST(TextTest, NothingOfHtmlSurvivesInAPage) {
    EXPECT_EQ(escapedForHtml("<b a='1' c=\"2\">&</b>"),
              "&lt;b a=&#39;1&#39; c=&quot;2&quot;&gt;&amp;&lt;/b&gt;");
    EXPECT_EQ(escapedForHtml("\x1b"), "\\x1b");
}

TEST(TextTest, ATextIsTakenApartAtItsLineBreaks) {
    EXPECT_THAT(lines("one\n\ntwo"), ElementsAre("one", "", "two"));
    EXPECT_THAT(lines("one\n"), ElementsAre("one"));
    EXPECT_THAT(lines(""), IsEmpty());
}

TEST(TextTest, ATextIsShortenedBetweenCharacters) {
    EXPECT_EQ(shortened("äöü", 3), "äöü");
    EXPECT_EQ(shortened("äöüß", 3), "äö…");
    EXPECT_EQ(shortened("", 3), "");
}

TEST(TextTest, ASpanIsSaidInTheUnitsThatMatter) {
    EXPECT_EQ(spanText(0), "0.000 s");
    EXPECT_EQ(spanText(250), "0.250 s");
    EXPECT_EQ(spanText(42'000), "42.0 s");
    EXPECT_EQ(spanText(119'900), "119.9 s");
    EXPECT_EQ(spanText(120'000), "2 min 0 s");
    EXPECT_EQ(spanText(3'600'000), "1 h 0 min");
    EXPECT_EQ(spanText(2'147'483'647), "24 d 20 h");
}

TEST(TextTest, ATableAlignsItsColumnsAndShowsWhatIsEmpty) {
    EXPECT_EQ(table({"NAME", "N"}, {{"ä", "1"}, {"longer", ""}, {"\n", "3"}}),
              "NAME    N\n"
              "ä       1\n"
              "longer  -\n"
              "\\x0a    3\n");
}

}  // namespace
}  // namespace zelctl
