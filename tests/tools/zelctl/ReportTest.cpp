// SPDX-License-Identifier: Apache-2.0
#include "Report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace zelctl {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

const std::string kRoot = R"("LastTryTerminateTime" : "", "LastTryTerminateResult" : "FAIL",
                             "TvViewerState" : "not set", "TvViewerStateChangeTime" : "" })";

std::string withRecords(const std::string& records) {
    return R"({ "zel-lite" : )" + records + ", " + kRoot;
}

std::string withTraces(const std::string& traces) {
    return withRecords(R"([ { "PID" : "12", "ProcessName" : "/usr/bin/player", "Language" : "C/C++",
                              "TerminationTime" : "", "StackTraces" : )" +
                       traces + "} ]");
}

std::string problemWith(const std::string& json) {
    try {
        parseReport(json);
    } catch (const std::runtime_error& problem) {
        return problem.what();
    }
    return "";
}

TEST(ReportTest, AReportWithoutTracesIsAReport) {
    const Report report = parseReport(withRecords("null"));

    EXPECT_THAT(report.records, IsEmpty());
    EXPECT_FALSE(report.lastAttempt);
    EXPECT_FALSE(report.lastAttemptSucceeded);
    EXPECT_EQ(report.viewerState, "not set");
}

TEST(ReportTest, OpenAndClosedTracesAreTold) {
    const Report report = parseReport(withTraces(
        R"([ { "CreationTime" : "1.500", "DestructionTime" : "2.007", "StackTrace" : "closed\u0000" },
             { "CreationTime" : "3.000", "StackTrace" : "open\u0000" } ])"));

    ASSERT_THAT(report.records, SizeIs(1));
    ASSERT_THAT(report.records[0].traces, SizeIs(2));
    EXPECT_EQ(report.records[0].program, "/usr/bin/player");
    EXPECT_EQ(report.records[0].traces[0].opened, 1500);
    EXPECT_EQ(report.records[0].traces[0].closed, 2007);
    EXPECT_FALSE(report.records[0].traces[1].closed);
}

TEST(ReportTest, OnlyTheZeroThatTheDaemonAddsIsTakenOff) {
    const Report report = parseReport(withTraces(
        R"([ { "CreationTime" : "1.000", "StackTrace" : "a\u0000b\u0000\u0000" },
             { "CreationTime" : "1.000", "StackTrace" : "of a window" } ])"));

    EXPECT_EQ(report.records[0].traces[0].text, std::string("a\0b\0", 4));
    EXPECT_EQ(report.records[0].traces[1].text, "of a window");
}

TEST(ReportTest, TheLastAttemptAndTheViewerAreTold) {
    const Report report = parseReport(
        R"({ "zel-lite" : null, "LastTryTerminateTime" : "12.034", "LastTryTerminateResult" : "SUCCESS",
             "TvViewerState" : "live", "TvViewerStateChangeTime" : "0.005" })");

    EXPECT_EQ(report.lastAttempt, 12034);
    EXPECT_TRUE(report.lastAttemptSucceeded);
    EXPECT_EQ(report.viewerState, "live");
    EXPECT_EQ(report.viewerStateChanged, 5);
}

TEST(ReportTest, WhatIsNoReportIsRefusedWithWhatIsWrong) {
    EXPECT_THAT(problemWith(""), Not(IsEmpty()));
    EXPECT_THAT(problemWith("[]"), HasSubstr("no object"));
    EXPECT_THAT(problemWith("{}"), HasSubstr("no list 'zel-lite'"));
    EXPECT_THAT(problemWith(withRecords("[ 7 ]")), HasSubstr("no object"));
    EXPECT_THAT(problemWith(withRecords("[ {} ]")), HasSubstr("no text 'PID'"));
    EXPECT_THAT(problemWith(withTraces("{}")), HasSubstr("no list 'StackTraces'"));
    EXPECT_THAT(problemWith(withTraces("[ null ]")), HasSubstr("no object"));
    EXPECT_THAT(problemWith(withTraces(R"([ { "CreationTime" : "soon", "StackTrace" : "" } ])")),
                HasSubstr("'CreationTime' is no time"));
    EXPECT_THAT(problemWith(withRecords(std::string(5000, '['))), Not(IsEmpty()));
    EXPECT_THAT(problemWith(withRecords("null") + " more"), Not(IsEmpty()));
}

TEST(ReportTest, TimesAreReadAsTheDaemonWritesThem) {
    EXPECT_EQ(parseTime("0.007"), 7);
    EXPECT_EQ(parseTime("2147483.647"), std::numeric_limits<DaemonTime>::max());
    EXPECT_EQ(parseTime("0.-123"), -123);
    EXPECT_EQ(parseTime("-5.-123"), -5123);
    EXPECT_EQ(parseTime(""), std::nullopt);
    EXPECT_EQ(parseTime("5"), std::nullopt);
    EXPECT_EQ(parseTime("5."), std::nullopt);
    EXPECT_EQ(parseTime("5.0 s"), std::nullopt);
    EXPECT_EQ(parseTime("99999999999.000"), std::nullopt);
}

TEST(ReportTest, ATimeSpanSurvivesTheRunOverOfTheDaemonsClock) {
    EXPECT_EQ(between(1000, 4000), 3000);
    EXPECT_EQ(between(std::numeric_limits<DaemonTime>::max(), std::numeric_limits<DaemonTime>::min() + 9),
              10);
}

TEST(ReportTest, PeopleReadWhoHasWhichTraces) {
    const std::string text = reportText(
        parseReport(withTraces(
            R"([ { "CreationTime" : "1.000", "DestructionTime" : "2.500", "StackTrace" : "draw\u0000" },
             { "CreationTime" : "3.000", "StackTrace" : "main\n  play\u0000" } ])")),
        63'000);

    EXPECT_EQ(text,
              "/usr/bin/player, process 12, C/C++\n"
              "  closed  60.5 s ago, open for 1.500 s\n"
              "            draw\n"
              "  open    for 60.0 s\n"
              "            main\n"
              "              play\n"
              "\n"
              "last attempt to terminate the service: none since the daemon has started\n"
              "television viewer: not set\n");
}

TEST(ReportTest, WhatApplicationsWriteDoesNotReachTheTerminal) {
    const std::string text = reportText(
        parseReport(
            withTraces(R"([ { "CreationTime" : "1.000", "StackTrace" : "\u001b[2J\u009b\u0000" } ])")),
        1000);

    EXPECT_THAT(text, HasSubstr("\\x1b[2J\\xc2\\x9b"));
    EXPECT_THAT(text, Not(HasSubstr("\x1b")));
}

TEST(ReportTest, AReportOfManyMegabytesIsRead) {
    std::string traces = "[";
    for (int i = 0; i < 60'000; ++i) {
        traces += (i == 0 ? "" : ",") + std::string(R"({ "CreationTime" : "1.000", "StackTrace" : ")") +
                  std::string(80, 'x') + "\" }";
    }

    const Report report = parseReport(withTraces(traces + "]"));

    EXPECT_GT(traces.size(), 6U * 1024 * 1024);
    EXPECT_THAT(report.records[0].traces, SizeIs(60'000));
}

}  // namespace
}  // namespace zelctl
