// SPDX-License-Identifier: Apache-2.0
#include "Page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace zelctl {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

PageContent content(std::vector<Trace> traces = {}) {
    PageContent content;
    content.report.viewerState = "live";
    content.report.records = {{"42", "/usr/bin/player", "C/C++", std::nullopt, std::move(traces)}};
    content.sessions = {{":1.7", {"player", "42"}}};
    content.now = 100'000;
    content.when = "2026-01-02 03:04:05 UTC";
    content.host = "television";
    return content;
}

std::size_t count(const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++found;
    }
    return found;
}

TEST(PageTest, ThePageNeedsNothingButItself) {
    const std::string page = renderPage(content({{90'000, std::nullopt, "main"}}));

    EXPECT_THAT(page, HasSubstr("default-src 'none'"));
    for (const char* const word :
         {"<script", "<link", "<img", "<iframe", "src=", "href=", "url(", "@import", "http:", "https:"}) {
        EXPECT_THAT(page, Not(HasSubstr(word)));
    }
}

TEST(PageTest, NothingOfAnApplicationIsMarkup) {
    const std::string hostile = "<script>alert(1)</script>\" onmouseover='x' & \033[2J";
    PageContent page = content({{90'000, std::nullopt, hostile}, {90'000, 95'000, "</pre>" + hostile}});
    page.report.records[0].program = "/tmp/" + hostile;
    page.report.records[0].pid = hostile;
    page.report.records[0].language = hostile;
    page.report.viewerState = hostile;
    page.sessions[":1.9" + hostile] = Holder{hostile, hostile};
    page.host = hostile;

    const std::string html = renderPage(page);

    EXPECT_THAT(html, Not(HasSubstr("<script")));
    EXPECT_THAT(html, Not(HasSubstr("' onmouseover")));
    EXPECT_THAT(html, Not(HasSubstr("\" onmouseover")));
    EXPECT_THAT(html, Not(HasSubstr("\033")));
    EXPECT_EQ(count(html, "</pre>"), 2U);
    EXPECT_THAT(html, HasSubstr("&lt;script&gt;alert(1)&lt;/script&gt;"));
}

TEST(PageTest, ATraceStandsFromItsOpeningToItsClosing) {
    const std::string page =
        renderPage(content({{60'000, 80'000, "closed one"}, {80'000, std::nullopt, "open one"}}));

    // The oldest opening was 40 s ago; a twentieth is added to the left of it.
    EXPECT_THAT(page, HasSubstr("left:4.76%;width:47.62%\">closed one</div>"));
    EXPECT_THAT(page, HasSubstr("left:52.38%;width:47.62%\">open one</div>"));
}

TEST(PageTest, OverALongTimeWhatWasLongAgoIsSqueezed) {
    const std::string page =
        renderPage(content({{-10'000'000, std::nullopt, "old"}, {90'000, 95'000, "new"}}));

    EXPECT_THAT(page, HasSubstr("the longer ago, the more is squeezed together"));
    // 5 of 10,100 seconds, and still to be seen.
    EXPECT_THAT(page, HasSubstr("left:79.11%;width:6.28%\">new</div>"));
    EXPECT_THAT(renderPage(content({{60'000, std::nullopt, "x"}})), Not(HasSubstr("squeezed")));
}

TEST(PageTest, TracesThatOverlapStandBelowEachOther) {
    const std::string page =
        renderPage(content({{60'000, 80'000, "a"}, {70'000, 90'000, "b"}, {85'000, std::nullopt, "c"}}));

    EXPECT_THAT(page, HasSubstr("top:0.30rem;left:4.76%;width:47.62%\">a<"));
    EXPECT_THAT(page, HasSubstr("top:1.55rem;left:28.57%;width:47.62%\">b<"));
    EXPECT_THAT(page, HasSubstr("top:0.30rem;left:64.29%;width:35.71%\">c<"));
}

TEST(PageTest, ASessionIsDrawnWithItsTracesOrAlone) {
    PageContent page = content({{90'000, std::nullopt, "main"}});
    page.sessions["##_WM_USE_HINTS_WIN__winID_5"] = Holder{"", ""};
    page.opened[":1.7"] = 60'000;

    const std::string html = renderPage(page);

    // The heading, the session with traces, the one without.
    EXPECT_EQ(count(html, "<div class=\"lane\">"), 3U);
    EXPECT_THAT(html, HasSubstr("<b>player</b><span>:1.7, process 42, C/C++</span>"));
    EXPECT_THAT(html, HasSubstr("<div class=\"session\" style=\"left:4.76%;width:95.24%\">"));
    EXPECT_THAT(html, HasSubstr("<b>window</b><span>##_WM_USE_HINTS_WIN__winID_5</span>"));
    EXPECT_THAT(html, HasSubstr("<div class=\"session unsure\" style=\"left:0.00%;width:100.00%\">"));
}

TEST(PageTest, ASessionThatIsYoungerThanItsTraceIsDrawnFromWhereItWasOpened) {
    PageContent page = content({{90'000, std::nullopt, "main"}});
    page.opened = {{":1.7", 95'000}};

    EXPECT_THAT(renderPage(page), HasSubstr("<div class=\"session\" style=\"left:52.38%;width:47.62%\">"));
}

TEST(PageTest, SessionsThatAreUnknownAreNotTakenForNone) {
    PageContent page = content();
    page.report.records.clear();
    page.sessions.clear();
    EXPECT_THAT(renderPage(page), HasSubstr("nobody holds the service"));
    EXPECT_THAT(renderPage(page), HasSubstr("No session is open"));

    page.sessionsProblem = "it is not a plain file";

    EXPECT_THAT(renderPage(page), HasSubstr("unknown<small>it is not a plain file</small>"));
    EXPECT_THAT(renderPage(page), Not(HasSubstr("nobody holds")));
    EXPECT_THAT(renderPage(page), Not(HasSubstr("No session")));
}

TEST(PageTest, MoreTracesThanALaneHoldsAreInTheList) {
    std::vector<Trace> traces(50, {60'000, std::nullopt, "same"});

    const std::string page = renderPage(content(traces));

    EXPECT_EQ(count(page, "<div class=\"bar open\""), 12U);
    EXPECT_THAT(page, HasSubstr("38 more in the list"));
    EXPECT_EQ(count(page, "<pre>same</pre>"), 50U);
}

TEST(PageTest, AnEmptyReportIsAPageToo) {
    PageContent page = content();
    page.report.records.clear();
    page.sessions.clear();

    const std::string html = renderPage(page);

    EXPECT_THAT(html, HasSubstr("No session is open and no trace was left."));
    EXPECT_THAT(html, HasSubstr("</html>"));
}

}  // namespace
}  // namespace zelctl
