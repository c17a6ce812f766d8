// SPDX-License-Identifier: Apache-2.0
// The stolen-television setting, above settings that the test changes.
#include "util/VconfListener.h"

#include <gmock/gmock.h>

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
using testing::IsEmpty;

namespace {

constexpr int kDebug = 3;
constexpr int kError = 6;

class VconfListenerTest : public testing::Test {
protected:
    VconfListenerTest() {
        FakeVconf::reset();
        FakeStateManager::reset();
        m_listener.emplace(m_stateManager);
        m_made = Actions::take();
        FakeDlog::clear();
    }

    // The setting changes to a text.
    static void change(const std::string& serial) {
        FakeVconf::setText("db/tv-viewer/blocked_serial", serial);
        FakeVconf::tell("db/tv-viewer/blocked_serial", "db/tv-viewer/blocked_serial");
    }

    TCZelDaemonStateManager m_stateManager;
    std::optional<TCVconfListener> m_listener;
    std::vector<std::string> m_made;
};

}  // namespace

TEST_F(VconfListenerTest, TheSettingIsWatchedThenTheListenerRegistered) {
    EXPECT_THAT(m_made,
                ElementsAre("StateManager made", "vconf_notify_key_changed db/tv-viewer/blocked_serial",
                            "StateManager::RegisterListener"));
}

TEST_F(VconfListenerTest, TheValueAtStartIsNotReported) {
    FakeVconf::setText("db/tv-viewer/blocked_serial", "0815");
    m_listener.reset();
    FakeVconf::reset();
    Actions::take();

    m_listener.emplace(m_stateManager);

    EXPECT_THAT(Actions::take(), ElementsAre("vconf_notify_key_changed db/tv-viewer/blocked_serial",
                                             "StateManager::RegisterListener"));
}

TEST_F(VconfListenerTest, ASetThatIsNotStolenIsReportedWithZero) {
    change("tv_ok");
    change("");

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::Notify 5 0 0 0", "StateManager::Notify 5 0 0 0"));
    EXPECT_THAT(FakeDlog::messages(kDebug),
                ElementsAre("Notified ZEL-MAIN! -> vconf[tv_ok]", "Notified ZEL-MAIN! -> vconf[]"));
}

TEST_F(VconfListenerTest, AnyOtherTextBlocksTheSet) {
    for (const char* const serial : {"0815", "tv_ok ", "TV_OK", "tv_o", " "}) {
        change(serial);

        EXPECT_THAT(Actions::take(), ElementsAre("StateManager::Notify 5 0 0 1")) << serial;
    }
}

TEST_F(VconfListenerTest, AWizardSettingThatCanBeReadNeverSparesTheSet) {
    for (const int wizard : {0, 1, -1}) {
        FakeVconf::setInt("db/boot/need_setup_wizard", wizard);

        change("0815");

        EXPECT_THAT(Actions::take(), ElementsAre("StateManager::Notify 5 0 0 1")) << wizard;
        EXPECT_FALSE(TCVconfListener::IsNeedSetupWizard());
    }
}

TEST_F(VconfListenerTest, AFailedReadSparesTheSetOnlyWhenItLeftAValue) {
    EXPECT_FALSE(TCVconfListener::IsNeedSetupWizard());
    FakeVconf::breakInt("db/boot/need_setup_wizard", 1);
    EXPECT_TRUE(TCVconfListener::IsNeedSetupWizard());

    change("0815");

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::Notify 5 0 0 0"));
}

TEST_F(VconfListenerTest, AnyResultButZeroIsAFailedRead) {
    for (const int result : {-2, -1, 1}) {
        for (const int wizard : {-1, 0, 1}) {
            FakeVconf::breakInt("db/boot/need_setup_wizard", wizard, result);

            EXPECT_EQ(TCVconfListener::IsNeedSetupWizard(), wizard != 0) << wizard << " with " << result;
        }
    }
}

TEST_F(VconfListenerTest, TheWatchHasTheListenerAsItsUserData) {
    EXPECT_EQ(FakeVconf::userData("db/tv-viewer/blocked_serial"), &*m_listener);
    EXPECT_EQ(FakeStateManager::lastListener, &*m_listener);
}

TEST_F(VconfListenerTest, TheSettingIsReadAfreshInsteadOfFromTheNode) {
    FakeVconf::setText("db/tv-viewer/blocked_serial", "0815");

    FakeVconf::tellInt("db/tv-viewer/blocked_serial", 0);

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::Notify 5 0 0 1"));
}

TEST_F(VconfListenerTest, ARemovedSettingIsNeitherReportedNorLogged) {
    FakeVconf::tell("db/tv-viewer/blocked_serial", "db/tv-viewer/blocked_serial");

    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_THAT(FakeDlog::lines(), IsEmpty());
}

TEST_F(VconfListenerTest, AFailedNotificationIsLogged) {
    FakeStateManager::notifyResult = false;

    change("0815");

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("ZEL-MAIN notify FAILED! -> vconf[0815]"));
    EXPECT_THAT(FakeDlog::messages(kDebug), IsEmpty());
}

TEST_F(VconfListenerTest, TheServicesStartAndTerminationChangeNothing) {
    m_listener->OnStart();
    m_listener->OnTerminate();
    m_listener->OnTerminateSuccess(TSZelData());

    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_THAT(FakeDlog::lines(), IsEmpty());
}

TEST_F(VconfListenerTest, DestructionUnregistersAndLeavesTheSettingWatched) {
    m_listener.reset();

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::UnregisterListener"));
    EXPECT_EQ(FakeVconf::watchers("db/tv-viewer/blocked_serial"), 1U);
}
