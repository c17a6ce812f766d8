// SPDX-License-Identifier: Apache-2.0
// The watch on external inputs, above settings that the test changes.
#include "util/ExtSourcesManager.h"

#include <gmock/gmock.h>

#include <array>
#include <optional>

#include "ZelDaemonStateManager.h"
#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeStateManager.h"
#include "fakes/FakeVconf.h"

using fakes::Actions;
using fakes::FakeDlog;
using fakes::FakeStateManager;
using fakes::FakeVconf;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

constexpr int kDebug = 3;
constexpr int kError = 6;

struct Input {
    const char* key;
    int number;
};

// In the order of their keys, in which they are watched.
constexpr std::array<Input, 14> kInputs{{
    {"memory/sysman/av1", 1},
    {"memory/sysman/av2", 2},
    {"memory/sysman/comp1", 7},
    {"memory/sysman/comp2", 8},
    {"memory/sysman/hdmi1", 13},
    {"memory/sysman/hdmi2", 14},
    {"memory/sysman/hdmi3", 15},
    {"memory/sysman/hdmi4", 16},
    {"memory/sysman/hdmi5", 38},
    {"memory/sysman/hdmi6", 39},
    {"memory/sysman/hdmi7", 46},
    {"memory/sysman/hdmi8", 47},
    {"memory/sysman/scart1", 17},
    {"memory/sysman/scart2", 18},
}};

std::vector<std::string> forEachKey(const std::string& action) {
    std::vector<std::string> actions;
    actions.reserve(kInputs.size());
    for (const Input& input : kInputs) {
        actions.push_back(action + " " + input.key);
    }
    return actions;
}

class ExtSourcesManagerTest : public testing::Test {
protected:
    ExtSourcesManagerTest() {
        FakeVconf::reset();
        FakeStateManager::reset();
        forget();
    }

    void watch() { m_sources.emplace(m_stateManager); }

    static void forget() {
        Actions::take();
        FakeDlog::clear();
    }

    TCZelDaemonStateManager m_stateManager;
    std::optional<TCExtSourcesManager> m_sources;
};

}  // namespace

TEST_F(ExtSourcesManagerTest, EveryInputIsWatchedInTheOrderOfItsKey) {
    watch();

    EXPECT_THAT(Actions::take(), ElementsAreArray(forEachKey("vconf_notify_key_changed")));
}

TEST_F(ExtSourcesManagerTest, AnInputThatIsPluggedAlreadyIsReportedRightAfterItsWatchBegan) {
    for (const Input& input : kInputs) {
        FakeVconf::setInt(input.key, 0);
    }
    FakeVconf::setInt("memory/sysman/hdmi2", 1);

    watch();

    std::vector<std::string> expected = forEachKey("vconf_notify_key_changed");
    expected.insert(expected.begin() + 6, "StateManager::Notify 0 14 1 0");
    EXPECT_THAT(Actions::take(), ElementsAreArray(expected));
    EXPECT_THAT(FakeDlog::messages(kDebug),
                ElementsAre("Notified ZEL-MAIN! -> source[14], sourcePlugState[1]"));
}

TEST_F(ExtSourcesManagerTest, AnyPlugStateButZeroIsReportedAtStart) {
    FakeVconf::setInt("memory/sysman/av1", -7);
    FakeVconf::setInt("memory/sysman/scart2", 2);

    watch();

    EXPECT_THAT(FakeDlog::messages(kDebug),
                ElementsAre("Notified ZEL-MAIN! -> source[1], sourcePlugState[-7]",
                            "Notified ZEL-MAIN! -> source[18], sourcePlugState[2]"));
}

// Whether the read failed is not looked at: what it wrote counts.
TEST_F(ExtSourcesManagerTest, WhatAFailedReadWroteIsReportedAtStart) {
    FakeVconf::breakInt("memory/sysman/av2", 1, -1);
    FakeVconf::breakInt("memory/sysman/hdmi1", 2, 1);
    FakeVconf::breakInt("memory/sysman/hdmi2", 0, -1);

    watch();

    EXPECT_THAT(FakeDlog::messages(kDebug),
                ElementsAre("Notified ZEL-MAIN! -> source[2], sourcePlugState[1]",
                            "Notified ZEL-MAIN! -> source[13], sourcePlugState[2]"));
}

TEST_F(ExtSourcesManagerTest, AReportAtStartThatFailsIsLoggedAndTheOtherInputsAreWatched) {
    FakeVconf::setInt("memory/sysman/hdmi2", 1);
    FakeStateManager::notifyResult = false;

    watch();

    std::vector<std::string> expected = forEachKey("vconf_notify_key_changed");
    expected.insert(expected.begin() + 6, "StateManager::Notify 0 14 1 0");
    EXPECT_THAT(Actions::take(), ElementsAreArray(expected));
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("ZEL-MAIN notify FAILED! -> source[14], sourcePlugState[1]"));
}

TEST_F(ExtSourcesManagerTest, EveryWatchHasTheManagerAsItsUserData) {
    watch();

    for (const Input& input : kInputs) {
        EXPECT_EQ(FakeVconf::watchers(input.key), 1U) << input.key;
        EXPECT_EQ(FakeVconf::userData(input.key), &*m_sources) << input.key;
    }
}

TEST_F(ExtSourcesManagerTest, PluggingAndUnpluggingAreReportedWithTheNumberOfEachInput) {
    watch();
    forget();

    for (const Input& input : kInputs) {
        FakeVconf::tellInt(input.key, 1);
        FakeVconf::tellInt(input.key, 0);

        const std::string number = std::to_string(input.number);
        EXPECT_THAT(Actions::take(), ElementsAre("StateManager::Notify 0 " + number + " 1 0",
                                                 "StateManager::Notify 0 " + number + " 0 0"));
    }
}

TEST_F(ExtSourcesManagerTest, AnInputWhoseSettingWasRemovedIsReportedAsMinusOne) {
    watch();
    forget();

    FakeVconf::tell("memory/sysman/hdmi7", "memory/sysman/hdmi7");

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::Notify 0 46 -1 0"));
}

TEST_F(ExtSourcesManagerTest, AFailedNotificationIsLoggedAndTheNextChangeTriesAgain) {
    watch();
    forget();
    FakeStateManager::notifyResult = false;

    FakeVconf::tellInt("memory/sysman/hdmi7", 0);
    FakeVconf::tellInt("memory/sysman/hdmi7", 1);

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("ZEL-MAIN notify FAILED! -> source[46], sourcePlugState[0]",
                            "ZEL-MAIN notify FAILED! -> source[46], sourcePlugState[1]"));
    EXPECT_THAT(FakeDlog::messages(kDebug), IsEmpty());
    EXPECT_EQ(Actions::take().size(), 2U);
}

TEST_F(ExtSourcesManagerTest, ASettingThatIsNoInputIsLoggedAndReportedToNobody) {
    watch();
    forget();

    FakeVconf::tell("memory/sysman/hdmi1", "memory/sysman/usb");
    FakeVconf::tellNameless("memory/sysman/hdmi1");

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Callback for key out of sources map! Callback_key: [memory/sysman/usb]",
                            "Callback for key out of sources map! Callback_key: []"));
    EXPECT_THAT(Actions::take(), IsEmpty());
}

TEST_F(ExtSourcesManagerTest, ACallForNobodyIsLogged) {
    watch();
    forget();

    FakeVconf::tellNobody("memory/sysman/hdmi1");

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("ExtSourcesManager object is NULL!"));
    EXPECT_THAT(Actions::take(), IsEmpty());
}

TEST_F(ExtSourcesManagerTest, DestructionEndsEveryWatch) {
    watch();
    forget();

    m_sources.reset();

    EXPECT_THAT(Actions::take(), ElementsAreArray(forEachKey("vconf_ignore_key_changed")));
    for (const Input& input : kInputs) {
        EXPECT_EQ(FakeVconf::watchers(input.key), 0U) << input.key;
    }
}
