// SPDX-License-Identifier: Apache-2.0
// The three diagnostic channels: what reaches the log, the kernel and the assertion, byte for byte.
#include "Diagnostics.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeLite.h"
#include "fakes/FakePrctl.h"

using fakes::FakeDlog;
using testing::ElementsAre;

namespace {

class DiagnosticsTest : public testing::Test {
protected:
    DiagnosticsTest() {
        FakeDlog::clear();
        fakes::takeBootMarks();
        fakes::Actions::take();
    }
};

struct NamedLikeAConstructor {
    NamedLikeAConstructor() { ZEL_LOG_ERROR("made"); }
};

}  // namespace

TEST_F(DiagnosticsTest, ALineWithoutArgumentsHasTheCommonForm) {
    const int line = __LINE__ + 1;
    ZEL_LOG_ERROR("Listener not registred");

    ASSERT_EQ(FakeDlog::lines().size(), 1U);
    const fakes::LogLine logged = FakeDlog::lines().front();
    EXPECT_EQ(logged.buffer, 0);
    EXPECT_EQ(logged.priority, 6);
    EXPECT_EQ(logged.tag, "ZEL_LITE");
    EXPECT_EQ(logged.format, "%s: %s(%d) > Listener not registred");
    EXPECT_EQ(logged.text,
              "DiagnosticsTest.cpp: TestBody(" + std::to_string(line) + ") > Listener not registred");
}

TEST_F(DiagnosticsTest, ArgumentsFollowTheThreeOfThePrefix) {
    ZEL_LOG_INFO("a(%d), b(%s)", 7, "text");

    EXPECT_EQ(FakeDlog::lines().front().buffer, 0);
    EXPECT_EQ(FakeDlog::lines().front().tag, "ZEL_LITE");
    EXPECT_EQ(FakeDlog::lines().front().format, "%s: %s(%d) > a(%d), b(%s)");
    EXPECT_EQ(FakeDlog::lines().front().message(), "a(7), b(text)");
}

TEST_F(DiagnosticsTest, EightArgumentsAreTheMost) {
    ZEL_LOG_INFO("%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8);

    EXPECT_EQ(FakeDlog::lines().front().message(), "12345678");
}

TEST_F(DiagnosticsTest, EachLevelHasItsPriority) {
    ZEL_LOG_DEBUG("debug");
    ZEL_LOG_INFO("info");
    ZEL_LOG_ERROR("error");

    EXPECT_THAT(FakeDlog::messages(3), ElementsAre("debug"));
    EXPECT_THAT(FakeDlog::messages(4), ElementsAre("info"));
    EXPECT_THAT(FakeDlog::messages(6), ElementsAre("error"));
}

TEST_F(DiagnosticsTest, AConstructorLogsUnderItsClass) {
    const NamedLikeAConstructor object;

    EXPECT_EQ(FakeDlog::lines().front().function(), "NamedLikeAConstructor");
}

TEST_F(DiagnosticsTest, AHelperLogsUnderTheFunctionItServes) {
    ZEL_LOG_FROM("Notify", DLOG_ERROR, "Starting ZEL");

    EXPECT_EQ(FakeDlog::lines().front().function(), "Notify");
}

TEST_F(DiagnosticsTest, AMarkersLengthExcludesTheTerminatingZero) {
    BootMarker("ZEL-LITE MAIN: Start.");

    const auto marks = fakes::takeBootMarks();
    ASSERT_EQ(marks.size(), 1U);
    EXPECT_EQ(marks.front().text, "ZEL-LITE MAIN: Start.");
    EXPECT_EQ(marks.front().length, 21U);
}

TEST_F(DiagnosticsTest, AFormattedMarkerFitsATriggerNumberOfAnyWidth) {
    BootMarker("TCZelDaemonStateManager::Notify(trigger [%d])", -2147483647 - 1);

    const auto marks = fakes::takeBootMarks();
    ASSERT_EQ(marks.size(), 1U);
    EXPECT_EQ(marks.front().text, "TCZelDaemonStateManager::Notify(trigger [-2147483648])");
    EXPECT_EQ(marks.front().length, 54U);
}

TEST_F(DiagnosticsTest, AMarkersLengthIsThatOfTheTextNotOfItsBuffer) {
    BootMarker("cut%cshort", '\0');

    EXPECT_EQ(fakes::takeBootMarks().front().length, 3U);
}

TEST_F(DiagnosticsTest, AnAssertionIsReportedThenPrintedAndExecutionGoesOn) {
    testing::internal::CaptureStdout();
    const int line = __LINE__ + 1;
    ZEL_ASSERT_FAILED("saved");

    EXPECT_EQ(fakes::FakeLite::printedBeforeAssertion, 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ASSERT!!! - function TestBody, line " + std::to_string(line));
    EXPECT_THAT(
        fakes::Actions::take(),
        ElementsAre("assert saved /usr/src/zel-lite/tests/unit/DiagnosticsTest.cpp " + std::to_string(line)));
}

TEST_F(DiagnosticsTest, TheAssertionLineIsFlushedThoughNothingEndsIt) {
    // A pipe is not line-buffered: what is not flushed does not arrive.
    const int saved = dup(STDOUT_FILENO);
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    dup2(ends[1], STDOUT_FILENO);

    PrintAssertion("main", 35);
    dup2(saved, STDOUT_FILENO);
    close(ends[1]);

    char text[64] = {};
    EXPECT_EQ(read(ends[0], text, sizeof text), 34);
    EXPECT_STREQ(text, "ASSERT!!! - function main, line 35");
    close(ends[0]);
    close(saved);
}

TEST_F(DiagnosticsTest, TheBaseNameIsWhatFollowsTheLastSlash) {
    static_assert(BaseName("/a/b/main.cpp")[0] == 'm');

    EXPECT_STREQ(BaseName("/a/b/main.cpp"), "main.cpp");
    EXPECT_STREQ(BaseName("main.cpp"), "main.cpp");
}

TEST_F(DiagnosticsTest, AMarkerThatCannotBeFormattedIsNotSent) {
    // The C locale has no byte for this character.
    BootMarker("%ls", L"\u20ac");

    EXPECT_TRUE(fakes::takeBootMarks().empty());
}
