// SPDX-License-Identifier: Apache-2.0
#include "Windows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Visibility kVisible = Visibility::visible;
constexpr Visibility kPartially = Visibility::partially;
constexpr Visibility kNotVisible = Visibility::notVisible;

// Writes down what it is told, and gives it away once.
class Record : public WindowsWatcher {
public:
    void onVisibility(int window, int pid, Visibility visibility) override {
        write("visibility", window, pid, static_cast<int>(visibility));
    }
    void onHint(int window, int pid, Hint hint) override {
        write("hint", window, pid, static_cast<int>(hint));
    }
    void onGone(int window, int pid) override {
        m_lines.push_back("gone " + std::to_string(window) + ' ' + std::to_string(pid));
    }
    std::vector<std::string> take() { return std::exchange(m_lines, {}); }

private:
    void write(const char* what, int window, int pid, int state) {
        m_lines.push_back(std::string(what) + ' ' + std::to_string(window) + ' ' + std::to_string(pid) + ' ' +
                          std::to_string(state));
    }

    std::vector<std::string> m_lines;
};

class WindowsTest : public testing::Test {
protected:
    WindowsTest() { m_windows.addWatcher(m_record); }

    Windows m_windows;
    Record m_record;
};

TEST_F(WindowsTest, IdsArePositiveAndNeverGivenAgain) {
    EXPECT_EQ(m_windows.add(100), 1);
    EXPECT_EQ(m_windows.add(100), 2);
    m_windows.remove(2);
    EXPECT_EQ(m_windows.add(100), 3);
    EXPECT_EQ(m_windows.pidOf(3), 100);
}

TEST_F(WindowsTest, AChangeOfVisibilityIsToldOnce) {
    m_windows.add(100);

    m_windows.seen({{1, kVisible}});
    m_windows.seen({{1, kVisible}});
    m_windows.seen({{1, kPartially}});
    m_windows.seen({{1, kPartially}});
    m_windows.seen({{1, kNotVisible}});

    EXPECT_THAT(m_record.take(),
                ElementsAre("visibility 1 100 0", "visibility 1 100 1", "visibility 1 100 2"));
}

TEST_F(WindowsTest, AWindowThatIsNotOnTheScreenAnyMoreIsNotVisible) {
    m_windows.add(100);
    m_windows.seen({{1, kVisible}});
    m_record.take();

    m_windows.seen({});

    EXPECT_THAT(m_record.take(), ElementsAre("visibility 1 100 2"));
}

TEST_F(WindowsTest, AWindowThatWasNeverOnTheScreenIsNotSpokenOf) {
    m_windows.add(100);
    m_windows.seen({});
    m_windows.remove(1);

    EXPECT_THAT(m_record.take(), IsEmpty());
}

TEST_F(WindowsTest, AWindowThatOpensCoveredIsSpokenOf) {
    m_windows.add(100);
    m_windows.seen({{1, kNotVisible}});
    m_windows.remove(1);

    EXPECT_THAT(m_record.take(), ElementsAre("visibility 1 100 2", "gone 1 100"));
}

TEST_F(WindowsTest, AWindowThatOnlyHadAHintIsSpokenOf) {
    m_windows.add(100);
    m_windows.setHint(1, Hint::added);
    m_windows.remove(1);

    EXPECT_THAT(m_record.take(), ElementsAre("hint 1 100 1", "gone 1 100"));
}

TEST_F(WindowsTest, AWindowThatGoesIsToldOnce) {
    m_windows.add(100);
    m_windows.seen({{1, kVisible}});
    m_record.take();

    m_windows.remove(1);
    m_windows.remove(1);
    m_windows.seen({});

    EXPECT_THAT(m_record.take(), ElementsAre("gone 1 100"));
}

TEST_F(WindowsTest, AChangeOfTheHintIsToldOnce) {
    m_windows.add(100);

    m_windows.setHint(1, Hint::removed);
    m_windows.setHint(1, Hint::added);
    m_windows.setHint(1, Hint::added);
    m_windows.setHint(1, Hint::removed);

    EXPECT_THAT(m_record.take(), ElementsAre("hint 1 100 1", "hint 1 100 2"));
}

TEST_F(WindowsTest, WhoComesLaterIsToldThePresentStateOfEveryWindow) {
    for (const int pid : {100, 200, 300, 400}) {
        m_windows.add(pid);
    }
    m_windows.seen({{2, kPartially}, {1, kVisible}, {3, kVisible}});
    m_windows.seen({{2, kPartially}, {1, kVisible}});
    m_windows.setHint(2, Hint::added);
    Record second;

    m_windows.addWatcher(second);

    EXPECT_THAT(second.take(), ElementsAre("visibility 1 100 0", "visibility 2 200 1", "hint 2 200 1",
                                           "visibility 3 300 2"));
}

TEST_F(WindowsTest, EveryWatcherIsTold) {
    Record second;
    m_windows.addWatcher(second);
    m_windows.add(100);

    m_windows.seen({{1, kVisible}});

    EXPECT_THAT(m_record.take(), ElementsAre("visibility 1 100 0"));
    EXPECT_THAT(second.take(), ElementsAre("visibility 1 100 0"));
}

TEST_F(WindowsTest, WhoWasRemovedHearsNothingMore) {
    m_windows.removeWatcher(m_record);
    m_windows.add(100);
    m_windows.seen({{1, kVisible}});

    EXPECT_THAT(m_record.take(), IsEmpty());
}

TEST_F(WindowsTest, TheWindowOnTopIsTheForemostThatIsSeen) {
    EXPECT_EQ(m_windows.topMost(), -1);
    m_windows.add(100);
    m_windows.add(200);
    m_windows.seen({{2, kNotVisible}, {1, kPartially}});
    EXPECT_EQ(m_windows.topMost(), 1);
    m_windows.seen({{2, kVisible}, {1, kPartially}});
    EXPECT_EQ(m_windows.topMost(), 2);
    m_windows.remove(2);
    EXPECT_EQ(m_windows.topMost(), 1);
    m_windows.seen({{1, kNotVisible}});
    EXPECT_EQ(m_windows.topMost(), -1);
}

}  // namespace
