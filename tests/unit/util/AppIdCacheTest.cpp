// SPDX-License-Identifier: Apache-2.0
// The cache of application ids, above a framework that the test scripts.
#include "util/AppIdCache.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>
#include <vector>

#include "fakes/Actions.h"
#include "fakes/FakeAul.h"
#include "fakes/FakeDlog.h"

using fakes::Actions;
using fakes::FakeAul;
using fakes::FakeDlog;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kDebug = 3;
constexpr int kError = 6;

class AppIdCacheTest : public testing::Test {
protected:
    AppIdCacheTest() {
        FakeAul::reset();
        // The cache lives as long as the process: what earlier tests left is forgotten.
        for (const int pid : {1, 2, 3, 4711}) {
            cache().OwnerRemoved("", static_cast<std::uint32_t>(pid));
        }
        FakeDlog::clear();
        Actions::take();
    }

    static TCAppIdCache& cache() { return TCAppIdCache::Instance(); }
};

}  // namespace

TEST_F(AppIdCacheTest, AKnownProcessIsAskedForOnce) {
    FakeAul::know(1, "org.example.player");

    EXPECT_EQ(cache().GetAppIdByPid(1), "org.example.player");
    EXPECT_EQ(cache().GetAppIdByPid(1), "org.example.player");

    EXPECT_THAT(Actions::take(), ElementsAre("aul 1 511"));
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("aul_app_get_appid_bypid call start!",
                            "aul_app_get_appid_bypid returned: 0, appid: org.example.player"));
    EXPECT_THAT(FakeDlog::messages(kDebug), ElementsAre("PID: [1] -> AppId: [org.example.player]"));
}

TEST_F(AppIdCacheTest, AnUnknownProcessIsEmptyAndAskedForEachTime) {
    EXPECT_EQ(cache().GetAppIdByPid(2), "");
    EXPECT_EQ(cache().GetAppIdByPid(2), "");

    EXPECT_THAT(Actions::take(), ElementsAre("aul 2 511", "aul 2 511"));
    EXPECT_EQ(FakeDlog::count(kError, "aul_app_get_appid_bypid returned: -1, appid: "), 2U);
    EXPECT_THAT(FakeDlog::messages(kDebug), IsEmpty());
}

TEST_F(AppIdCacheTest, AfterItsOwnerWentAProcessIsAskedForAnew) {
    FakeAul::know(1, "first");
    cache().GetAppIdByPid(1);
    FakeAul::know(1, "second");
    EXPECT_EQ(cache().GetAppIdByPid(1), "first");

    cache().OwnerRemoved(":1.5", 1);

    EXPECT_EQ(cache().GetAppIdByPid(1), "second");
    EXPECT_EQ(FakeDlog::count(kError, "Remove entry for PID: [1]"), 1U);
}

TEST_F(AppIdCacheTest, AnOwnerThatWasNeverCachedIsLoggedAndChangesNothing) {
    FakeAul::know(1, "first");
    cache().GetAppIdByPid(1);
    Actions::take();

    cache().OwnerRemoved(":1.5", 4711);

    EXPECT_EQ(FakeDlog::count(kError, "Remove entry for PID: [4711]"), 1U);
    EXPECT_EQ(cache().GetAppIdByPid(1), "first");
    EXPECT_THAT(Actions::take(), IsEmpty());
}

TEST_F(AppIdCacheTest, AnIdOf511CharactersOrMoreIsCutTo511) {
    FakeAul::know(1, std::string(511, 'a'));
    FakeAul::know(2, std::string(600, 'b'));

    EXPECT_EQ(cache().GetAppIdByPid(1), std::string(511, 'a'));
    EXPECT_EQ(cache().GetAppIdByPid(2), std::string(511, 'b'));
}

TEST_F(AppIdCacheTest, TheDumpIsInOrderOfTheProcesses) {
    FakeAul::know(3, "three");
    FakeAul::know(1, "one");
    cache().GetAppIdByPid(3);
    FakeDlog::clear();

    cache().GetAppIdByPid(1);

    EXPECT_THAT(FakeDlog::messages(kDebug),
                ElementsAre("PID: [1] -> AppId: [one]", "PID: [3] -> AppId: [three]"));
}

TEST_F(AppIdCacheTest, CallersComeAndGoWithoutEffect) {
    FakeAul::know(1, "one");
    cache().GetAppIdByPid(1);
    Actions::take();

    cache().SetCurrentCaller({"app", 1});
    cache().ClearCurrentCaller();

    EXPECT_EQ(cache().GetAppIdByPid(1), "one");
    EXPECT_THAT(Actions::take(), IsEmpty());
}

TEST_F(AppIdCacheTest, ManyThreadsLeadToOneQueryPerProcess) {
    FakeAul::know(1, "one");
    FakeAul::know(2, "two");
    std::vector<std::thread> threads;
    threads.reserve(6);
    for (int i = 0; i < 6; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 50; ++round) {
                EXPECT_EQ(cache().GetAppIdByPid(1), "one");
                EXPECT_EQ(cache().GetAppIdByPid(2), "two");
            }
        });
    }

    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_THAT(Actions::take(), testing::UnorderedElementsAre("aul 1 511", "aul 2 511"));
}

TEST_F(AppIdCacheTest, OwnersGoWhileOthersAreLookedUp) {
    FakeAul::know(1, "one");
    std::atomic<bool> stop{false};
    std::thread remover([&stop] {
        while (!stop) {
            cache().OwnerRemoved("", 1);
            std::this_thread::yield();
        }
    });

    for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(cache().GetAppIdByPid(1), "one");
    }

    stop = true;
    remover.join();
}
