// SPDX-License-Identifier: Apache-2.0
// The cache of application ids, above a framework that the test scripts.
#include "util/AppIdCache.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "fakes/Actions.h"
#include "fakes/FakeAul.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeIpc.h"

using fakes::Actions;
using fakes::FakeAul;
using fakes::FakeDlog;
using fakes::FakeIpc;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kDebug = 3;
constexpr int kError = 6;

// What a test wants of the cache's lock.
std::atomic<bool> recordsLocks{false};
std::atomic<int> nextLockResult{0};
std::function<void()> beforeExclusive;

int takeLock(const char* action, int (*take)(pthread_rwlock_t*), pthread_rwlock_t* lock) {
    if (const int result = nextLockResult.exchange(0); result != 0) {
        return result;
    }
    const int result = take(lock);
    if (recordsLocks) {
        Actions::add(action);
    }
    return result;
}

}  // namespace

extern "C" int __real_pthread_rwlock_rdlock(pthread_rwlock_t* lock);
extern "C" int __real_pthread_rwlock_wrlock(pthread_rwlock_t* lock);
extern "C" int __real_pthread_rwlock_unlock(pthread_rwlock_t* lock);
extern "C" int __wrap_pthread_rwlock_rdlock(pthread_rwlock_t* lock);
extern "C" int __wrap_pthread_rwlock_wrlock(pthread_rwlock_t* lock);
extern "C" int __wrap_pthread_rwlock_unlock(pthread_rwlock_t* lock);

extern "C" int __wrap_pthread_rwlock_rdlock(pthread_rwlock_t* lock) {
    return takeLock("shared", __real_pthread_rwlock_rdlock, lock);
}

extern "C" int __wrap_pthread_rwlock_wrlock(pthread_rwlock_t* lock) {
    if (beforeExclusive) {
        std::exchange(beforeExclusive, nullptr)();
    }
    return takeLock("exclusive", __real_pthread_rwlock_wrlock, lock);
}

extern "C" int __wrap_pthread_rwlock_unlock(pthread_rwlock_t* lock) {
    if (recordsLocks) {
        Actions::add("unlocked");
    }
    return __real_pthread_rwlock_unlock(lock);
}

namespace {

class AppIdCacheTest : public testing::Test {
protected:
    AppIdCacheTest() {
        FakeAul::reset();
        recordsLocks = false;
        nextLockResult = 0;
        beforeExclusive = nullptr;
        // The cache lives as long as the process: what earlier tests left is forgotten.
        for (const int pid : {1, 2, 3, 4711}) {
            cache().OwnerRemoved("", static_cast<std::uint32_t>(pid));
        }
        FakeDlog::clear();
        Actions::take();
    }

    static TCAppIdCache& cache() { return TCAppIdCache::Instance(); }

    // From now on the actions tell of every lock and every line.
    static void recordLocksAndLines() {
        FakeDlog::recordActions();
        recordsLocks = true;
    }
};

}  // namespace

// The process's end

namespace {

void sayActions() {
    for (const std::string& action : Actions::take()) {
        std::cerr << action << ';';
    }
}

}  // namespace

// In a process that begins anew, so that the cache is not made yet.
TEST(AppIdCacheDeathTest, ItIsRegisteredFromItsFirstUseToTheEndOfTheProcess) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";

    EXPECT_EXIT(
        {
            Actions::take();
            std::atexit(sayActions);
            TCAppIdCache::Instance();
            TCAppIdCache::Instance();
            Actions::add("used");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^AddCallersObserver;used;RemoveCallersObserver;$");
}

TEST(AppIdCacheDeathTest, AnObserverThatCannotBeRemovedDoesNotSpoilTheEnd) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";

    EXPECT_EXIT(
        {
            FakeIpc::removalThrows = true;
            TCAppIdCache::Instance();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

// Lookups

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

TEST_F(AppIdCacheTest, WhatAFailedQueryWroteIsNoId) {
    FakeAul::know(1, "leftover");
    for (const int result : {-1, 1}) {
        FakeAul::result = result;
        FakeDlog::clear();

        EXPECT_EQ(cache().GetAppIdByPid(1), "");

        EXPECT_EQ(FakeDlog::count(kError, "aul_app_get_appid_bypid returned: " + std::to_string(result) +
                                              ", appid: leftover"),
                  1U);
        EXPECT_THAT(FakeDlog::messages(kDebug), IsEmpty());
    }

    FakeAul::result = 0;
    EXPECT_EQ(cache().GetAppIdByPid(1), "leftover") << "the failures were not kept";
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
    EXPECT_EQ(cache().GetAppIdByPid(2), std::string(511, 'b')) << "nor is more of it kept";
}

TEST_F(AppIdCacheTest, AnyNumberIsAProcess) {
    for (const int pid : {0, -1, INT_MAX, INT_MIN}) {
        FakeAul::know(pid, "id of " + std::to_string(pid));

        EXPECT_EQ(cache().GetAppIdByPid(pid), "id of " + std::to_string(pid));

        cache().OwnerRemoved("", static_cast<std::uint32_t>(pid));
        EXPECT_EQ(FakeDlog::count(kError, "Remove entry for PID: [" + std::to_string(pid) + "]"), 1U);
        FakeAul::reset();
        EXPECT_EQ(cache().GetAppIdByPid(pid), "");
    }
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

// Locks

TEST_F(AppIdCacheTest, AKnownProcessIsReadUnderTheSharedLockAlone) {
    FakeAul::know(1, "one");
    cache().GetAppIdByPid(1);
    Actions::take();
    recordLocksAndLines();

    cache().GetAppIdByPid(1);

    EXPECT_THAT(Actions::take(), ElementsAre("shared", "unlocked"));
}

TEST_F(AppIdCacheTest, QueryAndDumpRunUnderTheExclusiveLock) {
    FakeAul::know(1, "one");
    recordLocksAndLines();

    cache().GetAppIdByPid(1);

    EXPECT_THAT(Actions::take(),
                ElementsAre("shared", "unlocked", "exclusive",
                            "log m_getAppIdFromAUL: aul_app_get_appid_bypid call start!", "aul 1 511",
                            "log m_getAppIdFromAUL: aul_app_get_appid_bypid returned: 0, appid: one",
                            "log m_debugPrintCacheData: PID: [1] -> AppId: [one]", "unlocked"));
}

TEST_F(AppIdCacheTest, WhatAnotherThreadFilledMeanwhileIsNotAskedForAgain) {
    FakeAul::know(1, "one");
    // No lock is held between the two looks: another lookup fits in.
    beforeExclusive = [] { cache().GetAppIdByPid(1); };

    EXPECT_EQ(cache().GetAppIdByPid(1), "one");

    EXPECT_THAT(Actions::take(), ElementsAre("aul 1 511"));
    EXPECT_EQ(FakeDlog::messages(kDebug).size(), 1U);
}

TEST_F(AppIdCacheTest, AnOwnerIsLoggedThenForgottenUnderTheExclusiveLock) {
    recordLocksAndLines();

    cache().OwnerRemoved(":1.5", 4711);

    EXPECT_THAT(Actions::take(),
                ElementsAre("log OwnerRemoved: Remove entry for PID: [4711]", "exclusive", "unlocked"));
}

TEST_F(AppIdCacheTest, ASharedLockThatIsShortOfResourcesIsTriedAgain) {
    FakeAul::know(1, "one");
    nextLockResult = EAGAIN;

    EXPECT_EQ(cache().GetAppIdByPid(1), "one");
}

TEST_F(AppIdCacheTest, ALockThatWouldNeverComeIsASystemError) {
    nextLockResult = EDEADLK;
    EXPECT_THROW(cache().GetAppIdByPid(1), std::system_error);

    beforeExclusive = [] { nextLockResult = EDEADLK; };
    EXPECT_THROW(cache().GetAppIdByPid(1), std::system_error);

    nextLockResult = EDEADLK;
    EXPECT_THROW(cache().OwnerRemoved("", 1), std::system_error);
    EXPECT_THAT(Actions::take(), IsEmpty()) << "nobody was asked";

    FakeAul::know(1, "one");
    EXPECT_EQ(cache().GetAppIdByPid(1), "one") << "no lock was left behind";
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
