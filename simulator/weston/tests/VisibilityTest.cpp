// SPDX-License-Identifier: Apache-2.0
#include "Visibility.h"

#include <gtest/gtest.h>

#include <string>

namespace {

const Region kScreen(0, 0, 1000, 1000);

Piece opaque(int window, int x, int y, unsigned int width, unsigned int height) {
    return {window, Region(x, y, width, height), Region(x, y, width, height)};
}

Piece translucent(int window, int x, int y, unsigned int width, unsigned int height) {
    return {window, Region(x, y, width, height), Region()};
}

// Each window with how much of it is seen, in the order of the answer: "1 visible, 2 partially".
std::string seen(const std::vector<Piece>& pieces) {
    std::string text;
    for (const Sight& sight : look(pieces, kScreen)) {
        const char* const words[] = {"visible", "partially", "not visible"};
        text += (text.empty() ? "" : ", ") + std::to_string(sight.window) + ' ' +
                words[static_cast<int>(sight.visibility)];
    }
    return text;
}

TEST(VisibilityTest, AWindowAloneIsVisible) {
    EXPECT_EQ(seen({opaque(1, 10, 10, 100, 100)}), "1 visible");
    EXPECT_EQ(seen({}), "");
}

TEST(VisibilityTest, WindowsSideBySideAreVisible) {
    EXPECT_EQ(seen({opaque(1, 0, 0, 100, 100), opaque(2, 100, 0, 100, 100)}), "1 visible, 2 visible");
}

TEST(VisibilityTest, AnOpaqueWindowInFrontCoversWhatIsBehindIt) {
    EXPECT_EQ(seen({opaque(2, 50, 0, 100, 100), opaque(1, 0, 0, 100, 100)}), "2 visible, 1 partially");
    EXPECT_EQ(seen({opaque(2, 0, 0, 100, 100), opaque(1, 0, 0, 100, 100)}), "2 visible, 1 not visible");
    EXPECT_EQ(seen({opaque(2, 0, 0, 99, 100), opaque(1, 0, 0, 100, 100)}), "2 visible, 1 partially");
}

TEST(VisibilityTest, AWindowBehindCoversNothing) {
    EXPECT_EQ(seen({opaque(1, 20, 20, 10, 10), opaque(2, 0, 0, 100, 100)}), "1 visible, 2 partially");
}

TEST(VisibilityTest, WhatShinesThroughCoversNothing) {
    EXPECT_EQ(seen({translucent(2, 0, 0, 200, 200), opaque(1, 0, 0, 100, 100)}), "2 visible, 1 visible");
}

TEST(VisibilityTest, OnlyTheOpaquePartOfAWindowCovers) {
    const Piece shadowed{2, Region(0, 0, 120, 120), Region(10, 10, 100, 100)};

    EXPECT_EQ(seen({shadowed, opaque(1, 10, 10, 100, 100)}), "2 visible, 1 not visible");
    EXPECT_EQ(seen({shadowed, opaque(1, 0, 0, 120, 120)}), "2 visible, 1 partially");
    EXPECT_EQ(seen({shadowed, opaque(1, 111, 0, 5, 5)}), "2 visible, 1 visible");
}

TEST(VisibilityTest, SeveralWindowsCoverTogether) {
    EXPECT_EQ(seen({opaque(3, 0, 0, 50, 100), opaque(2, 50, 0, 50, 100), opaque(1, 0, 0, 100, 100)}),
              "3 visible, 2 visible, 1 not visible");
}

TEST(VisibilityTest, WhatBelongsToNoWindowCoversAndIsNotReported) {
    EXPECT_EQ(seen({opaque(0, 0, 0, 100, 100), opaque(1, 0, 0, 100, 100)}), "1 not visible");
    EXPECT_EQ(seen({opaque(0, 0, 0, 100, 100)}), "");
}

TEST(VisibilityTest, APartOfAWindowDoesNotCoverTheRestOfIt) {
    EXPECT_EQ(seen({opaque(1, 0, 0, 100, 100), opaque(1, 0, 0, 100, 100)}), "1 visible");
    EXPECT_EQ(seen({opaque(1, 0, 0, 50, 50), opaque(2, 0, 0, 100, 100), opaque(1, 0, 0, 100, 100)}),
              "1 partially, 2 partially");
}

TEST(VisibilityTest, WhatLiesBesideTheScreenDoesNotCount) {
    EXPECT_EQ(seen({opaque(1, -50, 0, 100, 100)}), "1 visible");
    EXPECT_EQ(seen({opaque(1, -100, 0, 100, 100)}), "1 not visible");
    EXPECT_EQ(seen({opaque(2, 0, 0, 50, 100), opaque(1, -50, 0, 100, 100)}), "2 visible, 1 not visible");
}

TEST(VisibilityTest, AWindowWithoutAreaIsNotVisible) {
    EXPECT_EQ(seen({opaque(1, 10, 10, 0, 0)}), "1 not visible");
}

TEST(RegionTest, ACopyIsARegionOfItsOwn) {
    Region region(0, 0, 10, 10);
    const Region copy = region;

    region.subtract(Region(0, 0, 10, 10));

    EXPECT_TRUE(region.isEmpty());
    EXPECT_TRUE(copy == Region(0, 0, 10, 10));
}

}  // namespace
