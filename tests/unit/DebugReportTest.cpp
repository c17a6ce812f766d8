// SPDX-License-Identifier: Apache-2.0
// The debug report, byte for byte against documents written by hand.
#include <gmock/gmock.h>
#include <json/json.h>

#include <atomic>
#include <future>
#include <sstream>
#include <vector>

#include "fakes/FakeDlog.h"
#include "fakes/FakeStateManager.h"
#include "fakes/FakeVconf.h"
#include "support/SessionWorld.h"

using fakes::FakeDlog;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr int kInfo = 4;

class DebugReportTest : public SessionWorld {
protected:
    std::string report() { return m_control->GetDebugInfo(); }

    void openAt(std::int64_t time, std::int64_t traceId, const std::string& text, int language = 1) {
        m_control->setTime(time);
        m_control->OpenDebugTrace(":1.1", traceId, text, "/usr/bin/app", "app", "77",
                                  static_cast<ESessionControl_ProgLang>(language));
    }

    void closeAt(std::int64_t time, std::int64_t traceId) {
        m_control->setTime(time);
        m_control->CloseDebugTrace(":1.1", traceId);
    }

    // The one open trace's text as the document has it.
    std::string reportedText(const std::string& text) {
        openAt(1000, 1, text);
        const std::string document = report();
        const std::string key = "\"StackTrace\" : ";
        const auto begin = document.find(key) + key.size();
        return document.substr(begin, document.find('\n', begin) - begin);
    }
};

}  // namespace

TEST_F(DebugReportTest, NothingAtAll) {
    EXPECT_EQ(report(),
              "{\n"
              "   \"LastTryTerminateResult\" : \"FAIL\",\n"
              "   \"LastTryTerminateTime\" : \"\",\n"
              "   \"TvViewerState\" : \"not set\",\n"
              "   \"TvViewerStateChangeTime\" : \"\",\n"
              "   \"zel-lite\" : null\n"
              "}");
    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("Has debug info about sessionsNum(0)"));
}

TEST_F(DebugReportTest, OneOpenAndTwoClosedTraces) {
    openAt(5, 3, "open");
    openAt(7, 9, "closed first");
    openAt(1500, 1, "closed second");
    closeAt(2000, 9);
    closeAt(2001, 1);
    m_control->Open(":1.1", "app", "77");
    forget();

    EXPECT_EQ(report(),
              "{\n"
              "   \"LastTryTerminateResult\" : \"FAIL\",\n"
              "   \"LastTryTerminateTime\" : \"\",\n"
              "   \"TvViewerState\" : \"not set\",\n"
              "   \"TvViewerStateChangeTime\" : \"\",\n"
              "   \"zel-lite\" : \n"
              "   [\n"
              "      {\n"
              "         \"Language\" : \"C/C++\",\n"
              "         \"PID\" : \"77\",\n"
              "         \"ProcessName\" : \"/usr/bin/app\",\n"
              "         \"StackTraces\" : \n"
              "         [\n"
              "            {\n"
              "               \"CreationTime\" : \"0.007\",\n"
              "               \"DestructionTime\" : \"2.000\",\n"
              "               \"StackTrace\" : \"closed first\"\n"
              "            },\n"
              "            {\n"
              "               \"CreationTime\" : \"1.500\",\n"
              "               \"DestructionTime\" : \"2.001\",\n"
              "               \"StackTrace\" : \"closed second\"\n"
              "            },\n"
              "            {\n"
              "               \"CreationTime\" : \"0.005\",\n"
              "               \"StackTrace\" : \"open\"\n"
              "            }\n"
              "         ],\n"
              "         \"TerminationTime\" : \"\"\n"
              "      }\n"
              "   ]\n"
              "}");
    EXPECT_THAT(FakeDlog::messages(kInfo),
                ElementsAre("Has debug info about sessionsNum(1)", "Recent traces num(2)", "Traces num(1)"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "GetDebugInfo");
}

TEST_F(DebugReportTest, ATerminatedRecordWithRecentTraces) {
    openAt(1000, 1, "why");
    closeAt(61'001, 1);

    EXPECT_EQ(report(),
              "{\n"
              "   \"LastTryTerminateResult\" : \"FAIL\",\n"
              "   \"LastTryTerminateTime\" : \"\",\n"
              "   \"TvViewerState\" : \"not set\",\n"
              "   \"TvViewerStateChangeTime\" : \"\",\n"
              "   \"zel-lite\" : \n"
              "   [\n"
              "      {\n"
              "         \"Language\" : \"C/C++\",\n"
              "         \"PID\" : \"77\",\n"
              "         \"ProcessName\" : \"/usr/bin/app\",\n"
              "         \"StackTraces\" : \n"
              "         [\n"
              "            {\n"
              "               \"CreationTime\" : \"1.000\",\n"
              "               \"DestructionTime\" : \"61.001\",\n"
              "               \"StackTrace\" : \"why\"\n"
              "            }\n"
              "         ],\n"
              "         \"TerminationTime\" : \"61.001\"\n"
              "      }\n"
              "   ]\n"
              "}");
}

TEST_F(DebugReportTest, ATerminatedRecordWithoutRecentTracesIsLeftOut) {
    openAt(1000, 1, "why");
    closeAt(2000, 1);
    // An attempt empties the recent traces.
    m_control->Open("somebody", "", "");
    m_control->TryTerminateZel();
    forget();

    EXPECT_THAT(report(), HasSubstr("\"zel-lite\" : null"));
    EXPECT_THAT(FakeDlog::messages(kInfo),
                ElementsAre("Has debug info about sessionsNum(1)", "Traces num(0)", "Ignore record"));
}

TEST_F(DebugReportTest, ARecordWithoutTracesWhoseSessionIsOpenIsShownAsAlive) {
    m_control->Open(":1.1", "app", "77");
    openAt(1000, 1, "why");
    closeAt(2000, 1);
    m_control->TryTerminateZel();

    const std::string document = report();

    EXPECT_THAT(document, HasSubstr("\"StackTraces\" : null"));
    EXPECT_THAT(document, HasSubstr("\"TerminationTime\" : \"\""));
}

TEST_F(DebugReportTest, RecordsAreInOrderOfTheirSessionIds) {
    openTrace(1, "second", "b");
    openTrace(1, "first", "a");

    EXPECT_LT(report().find("first"), report().find("second"));
}

// The limit of open traces is none of the report.
TEST_F(DebugReportTest, AFullRecordIsReportedWithAllItsTraces) {
    for (int i = 0; i < 60; ++i) {
        openAt(1000, i, "closed" + std::to_string(i) + ".");
        closeAt(2000, i);
    }
    for (int i = 0; i < 50; ++i) {
        openAt(3000, i, "open" + std::to_string(i) + ".");
    }

    const std::string document = report();

    EXPECT_THAT(document, HasSubstr("closed0."));
    EXPECT_THAT(document, HasSubstr("closed59."));
    EXPECT_THAT(document, HasSubstr("open0."));
    EXPECT_THAT(document, HasSubstr("open49."));
}

TEST_F(DebugReportTest, EachLanguageHasItsName) {
    struct Row {
        int language;
        const char* text;
    };
    for (const Row& row : {Row{1, "C/C++"}, Row{2, "C#"}, Row{0, "INVALID"}, Row{3, "INVALID"},
                           Row{-2147483647 - 1, "INVALID"}}) {
        start();
        openAt(1000, 1, "why", row.language);

        EXPECT_THAT(report(), HasSubstr("\"Language\" : \"" + std::string(row.text) + "\"")) << row.language;
    }
}

TEST_F(DebugReportTest, TimesAreSecondsAndThreeDigits) {
    struct Row {
        std::int64_t time;
        const char* text;
    };
    for (const Row& row : {Row{0, "0.000"}, Row{5, "0.005"}, Row{7, "0.007"}, Row{1500, "1.500"},
                           Row{-1500, "-1.-500"}, Row{-2'147'483'296, "-2147483.-296"}, Row{-7, "0.-07"}}) {
        start();
        openAt(row.time, 1, "why");

        EXPECT_THAT(report(), HasSubstr("\"CreationTime\" : \"" + std::string(row.text) + "\""));
    }
}

TEST_F(DebugReportTest, WrappedTimesAreShownEverywhere) {
    openAt(-2000, 1, "why");
    closeAt(-1500, 1);
    EXPECT_THAT(report(), HasSubstr("\"DestructionTime\" : \"-1.-500\""));
    EXPECT_THAT(report(), HasSubstr("\"TerminationTime\" : \"-1.-500\""));

    m_control->TryTerminateZel();

    EXPECT_THAT(report(), HasSubstr("\"LastTryTerminateTime\" : \"-1.-500\""));
}

TEST_F(DebugReportTest, ATimeOfAnAttemptThatIsZeroIsEmpty) {
    m_control->setTime(0);

    m_control->TryTerminateZel();

    EXPECT_THAT(report(), HasSubstr("\"LastTryTerminateTime\" : \"\""));
    EXPECT_THAT(report(), HasSubstr("\"LastTryTerminateResult\" : \"SUCCESS\""));
}

TEST_F(DebugReportTest, ATimeOfTheViewersStateThatIsZeroIsEmptyAndAWrappedOneIsShown) {
    fakes::FakeVconf::setText("memory/tv-viewer/viewer_state", "live");
    m_control->setTime(0);
    fakes::FakeVconf::tell("memory/tv-viewer/viewer_state", "memory/tv-viewer/viewer_state");
    EXPECT_THAT(report(), HasSubstr("\"TvViewerState\" : \"live\""));
    EXPECT_THAT(report(), HasSubstr("\"TvViewerStateChangeTime\" : \"\""));

    m_control->setTime(-1500);
    fakes::FakeVconf::tell("memory/tv-viewer/viewer_state", "memory/tv-viewer/viewer_state");

    EXPECT_THAT(report(), HasSubstr("\"TvViewerStateChangeTime\" : \"-1.-500\""));
}

TEST_F(DebugReportTest, TheViewersStateIsAsItWasStored) {
    fakes::FakeVconf::setText("memory/tv-viewer/viewer_state", "a \"state\"");
    m_control->setTime(7);

    fakes::FakeVconf::tell("memory/tv-viewer/viewer_state", "memory/tv-viewer/viewer_state");

    EXPECT_THAT(report(), HasSubstr("\"TvViewerState\" : \"a \\\"state\\\"\""));
    EXPECT_THAT(report(), HasSubstr("\"TvViewerStateChangeTime\" : \"0.007\""));
}

TEST_F(DebugReportTest, QuotesAndBackslashesAreEscaped) {
    EXPECT_EQ(reportedText("a \"b\" \\ /"), "\"a \\\"b\\\" \\\\ /\"");
}

TEST_F(DebugReportTest, ControlCharactersAreEscaped) {
    EXPECT_EQ(reportedText("\n\t\x01\x1b\x7f"), "\"\\n\\t\\u0001\\u001b\x7f\"");
}

TEST_F(DebugReportTest, TheTrailingZeroOfATextIsPartOfIt) {
    EXPECT_EQ(reportedText(std::string("five\0", 5)), "\"five\\u0000\"");
}

TEST_F(DebugReportTest, TextBeyondAsciiIsEscaped) {
    EXPECT_EQ(reportedText("\xc3\xa9 \xe2\x82\xac"), "\"\\u00e9 \\u20ac\"");
}

TEST_F(DebugReportTest, InvalidUtfEightIsReplacedAndBreaksNothing) {
    EXPECT_EQ(reportedText("a\xff"), "\"a\\ufffd\"");
}

TEST_F(DebugReportTest, EveryTextIsQuotedAsJsonCppDoes) {
    std::vector<std::string> texts{"", std::string(1, '\0'), "caf\xc3\xa9 \"x\"", "\xf0\x9f\x93\xba",
                                   "\xe2\x82z\"\\"};
    for (int byte = 0; byte < 256; ++byte) {
        texts.push_back(std::string("a") + static_cast<char>(byte) + "\"b" + static_cast<char>(byte));
    }
    for (const std::string& text : texts) {
        start();

        EXPECT_EQ(reportedText(text), Json::writeString(Json::StreamWriterBuilder(), Json::Value(text)));
    }
}

TEST_F(DebugReportTest, ATextThatLooksLikeThePlaceOfATextIsATextAllTheSame) {
    const std::string text = "\"StackTrace\" : \"\"";
    m_control->OpenDebugTrace(":1.1", 1, text, "/usr/bin/" + text, text, text, ESessionControl_ProgLang_Cpp);
    m_control->OpenDebugTrace(":1.1", 2, "the second", "", "", "", ESessionControl_ProgLang_Cpp);

    const std::string document = report();

    Json::Value root;
    std::istringstream(document) >> root;
    const Json::Value& record = root["zel-lite"][0];
    EXPECT_EQ(record["PID"], text);
    EXPECT_EQ(record["ProcessName"], "/usr/bin/" + text);
    EXPECT_EQ(record["StackTraces"][0]["StackTrace"], text);
    EXPECT_EQ(record["StackTraces"][1]["StackTrace"], "the second");
}

TEST_F(DebugReportTest, OpeningASessionDoesNotWaitForALargeReport) {
    for (int session = 0; session < 1000; ++session) {
        for (int trace = 0; trace < 50; ++trace) {
            openTrace(trace, "why", "session" + std::to_string(session));
        }
    }
    // The report stops in its middle until the session is open.
    std::promise<void> isRendering;
    std::promise<void> isOpen;
    std::atomic<bool> isFirstLine{true};
    FakeDlog::onLineOfOthers([&](const std::string& message) {
        if (message == "Traces num(50)" && isFirstLine.exchange(false)) {
            isRendering.set_value();
            isOpen.get_future().wait_for(std::chrono::seconds(10));
        }
    });
    auto rendering = std::async(std::launch::async, [this] { return report(); });
    ASSERT_EQ(isRendering.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);

    auto opening = std::async(std::launch::async, [this] { return m_control->Open(":1.2", "app", "78"); });

    ASSERT_EQ(opening.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    isOpen.set_value();
    EXPECT_TRUE(opening.get());
    const std::string document = rendering.get();
    EXPECT_THAT(document, HasSubstr("\"CreationTime\""));
    std::size_t records = 0;
    for (auto at = document.find("\"PID\""); at != std::string::npos; at = document.find("\"PID\"", at + 1)) {
        ++records;
    }
    EXPECT_EQ(records, 1000U);
}

TEST_F(DebugReportTest, AReportChangesNothing) {
    openAt(1000, 1, "why");
    closeAt(2000, 1);

    EXPECT_EQ(report(), report());
}
