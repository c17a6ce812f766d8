// SPDX-License-Identifier: Apache-2.0
#include "Changes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdlib>
#include <ctime>

namespace zelctl {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> textsOf(const std::vector<Change>& changes) {
    std::vector<std::string> texts;
    texts.reserve(changes.size());
    for (const Change& change : changes) {
        texts.push_back(change.kind + ' ' + change.what + ": " + change.text);
    }
    return texts;
}

TEST(ChangesTest, SessionsAreOpenedAndClosed) {
    const Sessions before{{":1.7", {"player", "42"}}, {":1.8", {"other", "43"}}};
    const Sessions now{{":1.8", {"other", "43"}}, {"##_WM_USE_HINTS_WIN__winID_5", {"", ""}}};

    EXPECT_THAT(textsOf(sessionChanges(before, now)),
                ElementsAre("session closed: closed :1.7 (player, process 42)",
                            "session opened: opened ##_WM_USE_HINTS_WIN__winID_5 (a window)"));
    EXPECT_THAT(sessionChanges(now, now), IsEmpty());
    // Not opened just now: found.
    EXPECT_EQ(sessionChanges(std::nullopt, now).front().what, "open");
}

TEST(ChangesTest, MarkersComeAndGoAndArePlanted) {
    const Marker gone{"/tmp/zel_restart", "restart", false, "", 0};
    const Marker there{"/tmp/zel_restart", "restart", true, "", 5};
    const Marker touched{"/tmp/zel_restart", "restart", true, "", 9};
    const Marker planted{"/tmp/zel_restart", "restart", true, "a symbolic link", 5};

    EXPECT_THAT(textsOf(markerChanges({gone}, {there})),
                ElementsAre("marker there: /tmp/zel_restart is there"));
    EXPECT_THAT(textsOf(markerChanges({there}, {gone})),
                ElementsAre("marker gone: /tmp/zel_restart is gone"));
    EXPECT_THAT(textsOf(markerChanges({there}, {planted})),
                ElementsAre("marker wrong: /tmp/zel_restart is wrong: a symbolic link"));
    EXPECT_THAT(markerChanges({there}, {touched}), IsEmpty());
    EXPECT_THAT(textsOf(markerChanges({}, {gone})), ElementsAre("marker absent: /tmp/zel_restart is absent"));
}

TEST(ChangesTest, AUnitInAnotherStateOrProcessIsAChange) {
    const Unit active{"u.service", "loaded", "active", "running", 7, 0, 0, 0};
    Unit other = active;
    other.pid = 8;

    EXPECT_THAT(unitChanges("service", active, active), IsEmpty());
    EXPECT_THAT(textsOf(unitChanges("service", active, other)),
                ElementsAre("service active: active (running), process 8"));
    EXPECT_THAT(textsOf(unitChanges("service", active, std::nullopt)),
                ElementsAre("service unknown: unknown"));
}

TEST(ChangesTest, ASessionThatTheTableShowsIsNotToldTwice) {
    EXPECT_THAT(logChanges({EventKind::Opened, {"1", ":1.7", "player", "42"}}), IsEmpty());
    EXPECT_THAT(textsOf(logChanges({EventKind::Opened, {"0", ":1.7", "player", "42"}})),
                ElementsAre("log open-call: :1.7 (player, process 42) asked for a session in vain"));
    EXPECT_THAT(textsOf(logChanges({EventKind::Trigger, {"0", "0", "0", "1", "1"}})),
                ElementsAre("trigger trigger: trigger 1 (start): the service runs, nothing to do"));
}

TEST(ChangesTest, AChangeIsOneLineWithItsTime) {
    setenv("TZ", "UTC", 1);
    tzset();
    const Change change{"session", "opened", "opened \033x\ny", {{"id", ":1.7"}}};

    EXPECT_EQ(changeText(change, 45'296'789'000), "12:34:56.789  session  opened \\x1bx\\x0ay\n");
    const std::string json = changeJson(change, 45'296'789'012);
    Json::Value value;
    ASSERT_TRUE(Json::Reader().parse(json, value));
    EXPECT_EQ(json.find('\n'), json.size() - 1);
    EXPECT_EQ(value["time"], "1970-01-01T12:34:56.789012Z");
    EXPECT_EQ(value["kind"], "session");
    EXPECT_EQ(value["what"], "opened");
    EXPECT_EQ(value["id"], ":1.7");
}

}  // namespace
}  // namespace zelctl
