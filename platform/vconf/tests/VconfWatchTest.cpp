// SPDX-License-Identifier: Apache-2.0
// Being called when a key changes. The tests run the default main context themselves, event by event.
//
// That nobody is called is shown with a fence: a key in another folder that is set afterwards. Changes are
// reported in order, so what has not come when the fence comes will not come.
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vconf.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/Contended.h"

namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kKey = "memory/watch/key";
constexpr const char* kOther = "memory/watch/other";
constexpr const char* kFolder = "/run/zel-platform/vconf/memory/watch";

// Runs the default main context until the condition holds. False when it does not within 60 s.
bool runUntil(const std::function<bool()>& condition) {
    bool late = false;
    const guint timer = g_timeout_add_seconds(
        60,
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_CONTINUE;
        },
        &late);
    while (!condition() && !late) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_source_remove(timer);
    return !late;
}

// What a keynode said, as one word: "memory/watch/key=5".
std::string describe(keynode_t* node) {
    const std::string name = vconf_keynode_get_name(node);
    switch (vconf_keynode_get_type(node)) {
        case 0:
            return name + "=none";
        case 40:
            return name + "='" + vconf_keynode_get_str(node) + "'";
        case 41:
            return name + "=" + std::to_string(vconf_keynode_get_int(node));
        case 42:
            return name + "=" + std::to_string(vconf_keynode_get_dbl(node));
        case 43:
            return name + (vconf_keynode_get_bool(node) == 1 ? "=true" : "=false");
        default:
            return name + "=?";
    }
}

// The calls that came, and a hook that runs inside a call. Lives as long as its test.
struct Record {
    std::vector<std::string> calls;
    std::function<void(keynode_t*)> inside;
    std::thread::id thread;
};

void recordCall(keynode_t* node, void* userData) {
    auto* record = static_cast<Record*>(userData);
    record->calls.push_back(describe(node));
    record->thread = std::this_thread::get_id();
    if (record->inside) {
        record->inside(node);
    }
}

void recordCallToo(keynode_t* node, void* userData) {
    static_cast<Record*>(userData)->calls.push_back("too:" + describe(node));
}

void setFlag(keynode_t* /*node*/, void* userData) {
    *static_cast<bool*>(userData) = true;
}

class VconfWatchTest : public ::testing::Test {
protected:
    void SetUp() override { fs::remove_all(kFolder); }

    void TearDown() override {
        for (const char* key : {kKey, kOther, "db/watch/key", "memory/watch/third"}) {
            vconf_ignore_key_changed(key, recordCall);
            vconf_ignore_key_changed(key, recordCallToo);
        }
        passFence();
    }

    void watch(const char* key) { ASSERT_EQ(vconf_notify_key_changed(key, recordCall, &m_record), 0); }

    bool runUntilCalls(std::size_t count) {
        return runUntil([this, count] { return m_record.calls.size() >= count; });
    }

    // Sets the fence and runs until it is reported, and with it all that came before.
    static void passFence() {
        bool passed = false;
        ASSERT_EQ(vconf_notify_key_changed("memory/fence/key", setFlag, &passed), 0);
        ASSERT_EQ(vconf_set_int("memory/fence/key", 1), 0);
        EXPECT_TRUE(runUntil([&passed] { return passed; }));
        ASSERT_EQ(vconf_ignore_key_changed("memory/fence/key", setFlag), 0);
    }

    Record& record() { return m_record; }
    const std::vector<std::string>& calls() const { return m_record.calls; }
    std::string lastCall() const { return m_record.calls.empty() ? "no call" : m_record.calls.back(); }

private:
    Record m_record;
};

TEST_F(VconfWatchTest, ASetIsReportedWithItsValue) {
    vconf_set_int(kKey, 1);
    watch(kKey);

    vconf_set_int(kKey, 2);

    EXPECT_TRUE(runUntilCalls(1));
    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=2"));
}

TEST_F(VconfWatchTest, EveryTypeIsReported) {
    watch(kKey);

    vconf_set_bool(kKey, 1);
    EXPECT_TRUE(runUntilCalls(1));
    vconf_set_dbl(kKey, 2.5);
    EXPECT_TRUE(runUntilCalls(2));
    vconf_set_str(kKey, "text");
    EXPECT_TRUE(runUntilCalls(3));

    EXPECT_THAT(calls(),
                ElementsAre("memory/watch/key=true", "memory/watch/key=2.500000", "memory/watch/key='text'"));
}

TEST_F(VconfWatchTest, ASetToTheSameValueIsReported) {
    vconf_set_int(kKey, 2);
    watch(kKey);

    vconf_set_int(kKey, 2);

    EXPECT_TRUE(runUntilCalls(1));
    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=2"));
}

TEST_F(VconfWatchTest, OneSetIsOneCall) {
    watch(kKey);

    vconf_set_int(kKey, 2);
    EXPECT_TRUE(runUntilCalls(1));
    passFence();

    EXPECT_EQ(calls().size(), 1U);
}

TEST_F(VconfWatchTest, TheValueAtTheTimeOfRegisteringIsNotReported) {
    vconf_set_int(kKey, 2);

    watch(kKey);
    passFence();

    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(VconfWatchTest, AChangeBeforeRegisteringIsNotReportedAlsoWhereTheFolderWasWatched) {
    Record earlier;
    ASSERT_EQ(vconf_notify_key_changed(kOther, recordCallToo, &earlier), 0);
    vconf_set_int(kKey, 2);
    vconf_set_int(kOther, 3);

    watch(kKey);
    EXPECT_TRUE(runUntil([&earlier] { return !earlier.calls.empty(); }));
    passFence();

    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_THAT(earlier.calls, ElementsAre("too:memory/watch/other=3"));
}

TEST_F(VconfWatchTest, AKeyMayBeWatchedBeforeItExists) {
    watch(kKey);
    EXPECT_TRUE(fs::is_directory(kFolder));

    vconf_set_int(kKey, 2);

    EXPECT_TRUE(runUntilCalls(1));
    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=2"));
}

TEST_F(VconfWatchTest, KeysOfEveryStorageAreWatched) {
    watch("db/watch/key");

    vconf_set_int("db/watch/key", 2);

    EXPECT_TRUE(runUntilCalls(1));
    EXPECT_THAT(calls(), ElementsAre("db/watch/key=2"));
}

TEST_F(VconfWatchTest, OtherKeysAndHalfWrittenFilesAreNotReported) {
    watch(kKey);

    vconf_set_int(kOther, 1);
    vconf_set_int("memory/watch/key2", 1);
    vconf_set_int("memory/watch/deeper/key", 1);
    vconf_set_int("memory/key", 1);
    vconf_set_int("db/watch/key", 1);
    passFence();

    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(VconfWatchTest, TheLastOfSomeRapidSetsIsReported) {
    watch(kKey);

    for (int value = 0; value <= 100; ++value) {
        vconf_set_int(kKey, value);
    }
    passFence();

    EXPECT_EQ(lastCall(), "memory/watch/key=100");
}

TEST_F(VconfWatchTest, AnUnsetIsReportedAsANodeOfNoTypeFromWhichAnIntReadsMinusOne) {
    vconf_set_int(kKey, 1);
    watch(kKey);
    int read = 99;
    record().inside = [&read](keynode_t* node) { read = vconf_keynode_get_int(node); };

    vconf_unset(kKey);

    EXPECT_TRUE(runUntilCalls(1));
    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=none"));
    EXPECT_EQ(read, -1);
}

TEST_F(VconfWatchTest, AFileRemovedByHandIsReported) {
    vconf_set_int(kKey, 1);
    watch(kKey);

    fs::remove(fs::path(kFolder) / "key");

    EXPECT_TRUE(runUntilCalls(1));
    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=none"));
}

TEST_F(VconfWatchTest, AFileMovedAwayIsReported) {
    vconf_set_int(kKey, 1);
    watch(kKey);

    fs::rename(fs::path(kFolder) / "key", "/run/zel-platform/elsewhere");

    EXPECT_TRUE(runUntilCalls(1));
    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=none"));
}

TEST_F(VconfWatchTest, AFileWrittenByHandIsReported) {
    watch(kKey);

    std::ofstream(fs::path(kFolder) / "key") << "int\n7";

    EXPECT_TRUE(runUntilCalls(1));
    EXPECT_EQ(lastCall(), "memory/watch/key=7");
}

TEST_F(VconfWatchTest, AFileThatBecomesUnreadableIsReportedWithoutAValue) {
    vconf_set_int(kKey, 1);
    watch(kKey);

    std::ofstream(fs::path(kFolder) / "key") << "rubbish";

    EXPECT_TRUE(runUntilCalls(1));
    EXPECT_EQ(lastCall(), "memory/watch/key=none");
}

TEST_F(VconfWatchTest, CallbacksOfOneKeyAreCalledInTheOrderOfRegistering) {
    watch(kKey);
    ASSERT_EQ(vconf_notify_key_changed(kKey, recordCallToo, &record()), 0);

    vconf_set_int(kKey, 1);

    EXPECT_TRUE(runUntilCalls(2));
    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=1", "too:memory/watch/key=1"));
}

TEST_F(VconfWatchTest, OneCallbackMayWatchTwoKeys) {
    watch(kKey);
    watch(kOther);

    vconf_set_int(kOther, 1);
    EXPECT_TRUE(runUntilCalls(1));
    vconf_set_int(kKey, 2);
    EXPECT_TRUE(runUntilCalls(2));

    EXPECT_THAT(calls(), ElementsAre("memory/watch/other=1", "memory/watch/key=2"));
}

TEST_F(VconfWatchTest, TheSameCallbackForTheSameKeyIsRefusedWhateverItsUserData) {
    Record another;
    watch(kKey);

    EXPECT_EQ(vconf_notify_key_changed(kKey, recordCall, &record()), -1);
    EXPECT_EQ(vconf_notify_key_changed(kKey, recordCall, &another), -1);
    vconf_set_int(kKey, 1);
    passFence();

    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=1"));
    EXPECT_THAT(another.calls, IsEmpty());
}

TEST_F(VconfWatchTest, NoCallbackIsRefused) {
    EXPECT_EQ(vconf_notify_key_changed(kKey, nullptr, nullptr), -1);
    EXPECT_EQ(vconf_ignore_key_changed(kKey, nullptr), -1);
}

TEST_F(VconfWatchTest, AKeyWhoseFolderIsAFileCannotBeWatched) {
    vconf_set_int(kKey, 1);

    EXPECT_EQ(vconf_notify_key_changed("memory/watch/key/below", recordCall, &record()), -1);
    EXPECT_EQ(vconf_ignore_key_changed("memory/watch/key/below", recordCall), -1);
}

TEST_F(VconfWatchTest, AnIgnoredKeyIsNotReported) {
    watch(kKey);

    EXPECT_EQ(vconf_ignore_key_changed(kKey, recordCall), 0);
    vconf_set_int(kKey, 1);
    passFence();

    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(VconfWatchTest, IgnoringDropsAChangeThatCameBefore) {
    watch(kKey);
    watch(kOther);
    vconf_set_int(kKey, 1);
    vconf_set_int(kOther, 2);

    vconf_ignore_key_changed(kKey, recordCall);
    passFence();

    EXPECT_THAT(calls(), ElementsAre("memory/watch/other=2"));
}

TEST_F(VconfWatchTest, IgnoringDropsAChangeThatARegistrationHasAlreadyQueued) {
    watch(kKey);
    watch(kOther);
    vconf_set_int(kKey, 1);
    vconf_set_int(kOther, 2);
    watch("memory/watch/third");

    vconf_ignore_key_changed(kKey, recordCall);
    passFence();

    EXPECT_THAT(calls(), ElementsAre("memory/watch/other=2"));
}

TEST_F(VconfWatchTest, WatchingAnewAfterIgnoringDoesNotReportAChangeThatCameBefore) {
    watch(kKey);
    vconf_set_int(kKey, 1);

    vconf_ignore_key_changed(kKey, recordCall);
    watch(kKey);
    passFence();
    EXPECT_THAT(calls(), IsEmpty());
    vconf_set_int(kKey, 2);

    EXPECT_TRUE(runUntilCalls(1));
    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=2"));
}

TEST_F(VconfWatchTest, IgnoringMatchesKeyAndCallbackOnly) {
    watch(kKey);

    EXPECT_EQ(vconf_ignore_key_changed(kOther, recordCall), -1);
    EXPECT_EQ(vconf_ignore_key_changed(kKey, recordCallToo), -1);
    EXPECT_EQ(vconf_ignore_key_changed(kKey, recordCall), 0);
    EXPECT_EQ(vconf_ignore_key_changed(kKey, recordCall), -1);
}

TEST_F(VconfWatchTest, IgnoringOneKeyLeavesTheOthersOfItsFolder) {
    watch(kKey);
    watch(kOther);

    vconf_ignore_key_changed(kKey, recordCall);
    vconf_set_int(kOther, 1);

    EXPECT_TRUE(runUntilCalls(1));
    EXPECT_THAT(calls(), ElementsAre("memory/watch/other=1"));
}

std::size_t countInotifyWatches() {
    std::size_t count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fdinfo")) {
        std::ifstream info(entry.path());
        for (std::string line; std::getline(info, line);) {
            count += line.rfind("inotify wd:", 0) == 0 ? 1 : 0;
        }
    }
    return count;
}

TEST_F(VconfWatchTest, AFolderIsWatchedOnceAndUntilItsLastCallbackGoes) {
    const std::size_t before = countInotifyWatches();
    watch(kKey);
    watch(kOther);
    const std::size_t during = countInotifyWatches();

    vconf_ignore_key_changed(kKey, recordCall);
    const std::size_t withOne = countInotifyWatches();
    vconf_ignore_key_changed(kOther, recordCall);
    const std::size_t after = countInotifyWatches();

    EXPECT_EQ(during, before + 1);
    EXPECT_EQ(withOne, before + 1);
    EXPECT_EQ(after, before);
}

TEST_F(VconfWatchTest, ACallbackMayIgnoreItself) {
    int ignored = 99;
    watch(kKey);
    record().inside = [&ignored](keynode_t*) { ignored = vconf_ignore_key_changed(kKey, recordCall); };

    vconf_set_int(kKey, 1);
    EXPECT_TRUE(runUntilCalls(1));
    vconf_set_int(kKey, 2);
    passFence();

    EXPECT_EQ(ignored, 0);
    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=1"));
}

TEST_F(VconfWatchTest, ACallbackMayIgnoreTheNextOneOfTheSameChange) {
    watch(kKey);
    ASSERT_EQ(vconf_notify_key_changed(kKey, recordCallToo, &record()), 0);
    record().inside = [](keynode_t*) { vconf_ignore_key_changed(kKey, recordCallToo); };

    vconf_set_int(kKey, 1);
    passFence();

    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=1"));
}

TEST_F(VconfWatchTest, ACallbackMayRegisterAnotherWhichIsCalledFromTheNextChangeOn) {
    watch(kKey);
    record().inside = [this](keynode_t*) { vconf_notify_key_changed(kKey, recordCallToo, &record()); };

    vconf_set_int(kKey, 1);
    passFence();
    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=1"));
    vconf_set_int(kKey, 2);
    EXPECT_TRUE(runUntilCalls(3));

    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=1", "memory/watch/key=2", "too:memory/watch/key=2"));
}

TEST_F(VconfWatchTest, ACallbackMaySetItsOwnKey) {
    watch(kKey);
    record().inside = [](keynode_t* node) {
        if (vconf_keynode_get_int(node) < 5) {
            vconf_set_int(kKey, vconf_keynode_get_int(node) + 1);
        }
    };

    vconf_set_int(kKey, 1);

    EXPECT_TRUE(runUntilCalls(5));
    EXPECT_EQ(lastCall(), "memory/watch/key=5");
}

TEST_F(VconfWatchTest, AChangeThatARegistrationInsideACallbackComesAcrossIsReported) {
    watch(kKey);
    watch(kOther);
    record().inside = [this](keynode_t*) {
        if (calls().size() == 1) {
            vconf_set_int(kOther, 2);
            watch("memory/watch/third");
        }
    };

    vconf_set_int(kKey, 1);

    EXPECT_TRUE(runUntilCalls(2));
    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=1", "memory/watch/other=2"));
}

TEST_F(VconfWatchTest, CallbacksRunOnTheThreadThatRunsTheContextWhoeverRegisteredAndSet) {
    std::thread([this] {
        watch(kKey);
        vconf_set_int(kKey, 1);
    }).join();

    EXPECT_TRUE(runUntilCalls(1));

    EXPECT_EQ(record().thread, std::this_thread::get_id());
}

TEST_F(VconfWatchTest, ARegistrationOfAnotherThreadWakesAWaitingContext) {
    std::thread other;
    std::atomic<bool> called{false};
    record().inside = [&called](keynode_t*) { called = true; };

    std::function<void()> start = [&] {
        other = std::thread([this] {
            watch(kKey);
            vconf_set_int(kKey, 1);
        });
    };
    g_idle_add(
        [](gpointer function) -> gboolean {
            (*static_cast<std::function<void()>*>(function))();
            return G_SOURCE_REMOVE;
        },
        &start);

    EXPECT_TRUE(runUntil([&called] { return called.load(); }));
    other.join();

    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=1"));
}

TEST_F(VconfWatchTest, IgnoringFromAnotherThreadDoesNotWaitForARunningCallback) {
    std::mutex mutex;
    std::condition_variable changed;
    bool running = false;
    bool ignored = false;
    watch(kKey);
    ASSERT_EQ(vconf_notify_key_changed(kKey, recordCallToo, &record()), 0);
    record().inside = [&](keynode_t*) {
        std::unique_lock lock(mutex);
        running = true;
        changed.notify_all();
        EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(60), [&] { return ignored; }));
    };
    std::thread other([&] {
        std::unique_lock lock(mutex);
        EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(60), [&] { return running; }));
        lock.unlock();
        EXPECT_EQ(vconf_ignore_key_changed(kKey, recordCall), 0);
        EXPECT_EQ(vconf_ignore_key_changed(kKey, recordCallToo), 0);
        lock.lock();
        ignored = true;
        changed.notify_all();
    });

    vconf_set_int(kKey, 1);
    passFence();
    other.join();

    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=1"));
}

TEST_F(VconfWatchTest, ThreadsMayRegisterIgnoreAndSetWhileCallbacksRun) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 300;
    std::atomic<int> called{0};
    std::atomic<int> failures{0};
    std::atomic<int> finished{0};
    const auto count = [](keynode_t* /*node*/, void* userData) {
        ++*static_cast<std::atomic<int>*>(userData);
    };

    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            const std::string key =
                "memory/threads" + std::to_string(thread / 2) + "/" + std::to_string(thread);
            for (int round = 0; round < kRounds; ++round) {
                failures += vconf_notify_key_changed(key.c_str(), count, &called) == 0 ? 0 : 1;
                failures += vconf_set_int(key.c_str(), round) == 0 ? 0 : 1;
                failures += vconf_ignore_key_changed(key.c_str(), count) == 0 ? 0 : 1;
            }
            vconf_notify_key_changed(key.c_str(), count, &called);
            vconf_set_int(key.c_str(), -1);
            ++finished;
            g_main_context_wakeup(nullptr);
        });
    }
    EXPECT_TRUE(runUntil([&finished] { return finished == kThreads; }));
    for (std::thread& thread : threads) {
        thread.join();
    }
    const int before = called;
    for (int thread = 0; thread < kThreads; ++thread) {
        const std::string key = "memory/threads" + std::to_string(thread / 2) + "/" + std::to_string(thread);
        vconf_set_int(key.c_str(), 1);
    }

    EXPECT_TRUE(runUntil([&] { return called >= before + kThreads; }));
    EXPECT_EQ(failures, 0);
    for (int thread = 0; thread < kThreads; ++thread) {
        const std::string key = "memory/threads" + std::to_string(thread / 2) + "/" + std::to_string(thread);
        EXPECT_EQ(vconf_ignore_key_changed(key.c_str(), count), 0);
    }
}

void visit(keynode_t* /*node*/, void* userData) {
    static_cast<Contended*>(userData)->visit();
}

TEST_F(VconfWatchTest, RegisteringAndIgnoringNeverWaitForARunningCallback) {
    constexpr int kRounds = 300;
    Contended contended;
    std::atomic<bool> finished{false};
    ASSERT_EQ(vconf_notify_key_changed(kKey, visit, &contended), 0);

    std::thread thread([&] {
        for (int round = 0; round < kRounds && !HasFailure(); ++round) {
            EXPECT_TRUE(contended.changeDuringVisit(
                [round] { vconf_set_int(kKey, round); },
                [&contended] {
                    EXPECT_EQ(vconf_ignore_key_changed(kKey, visit), 0);
                    EXPECT_EQ(vconf_notify_key_changed(kKey, visit, &contended), 0);
                }))
                << "in round " << round;
        }
        finished = true;
        g_main_context_wakeup(nullptr);
    });
    while (!finished) {
        g_main_context_iteration(nullptr, TRUE);
    }
    thread.join();

    EXPECT_EQ(vconf_ignore_key_changed(kKey, visit), 0);
}

// Fills the queue of events with those of a file that nobody watches until the kernel drops what comes.
void overflowQueue() {
    std::size_t most = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
    const fs::path one = fs::path(kFolder) / "one";
    const fs::path two = fs::path(kFolder) / "two";
    std::ofstream(one) << "x";
    ASSERT_GT(most, 0U);
    for (std::size_t round = 0; round < most / 2 + 1; ++round) {
        fs::rename(round % 2 == 0 ? one : two, round % 2 == 0 ? two : one);
    }
}

TEST_F(VconfWatchTest, WhenEventsWereLostEveryWatchedKeyIsReported) {
    vconf_set_int("db/watch/key", 9);
    watch(kKey);
    watch(kOther);
    watch("db/watch/key");
    overflowQueue();
    vconf_set_int(kKey, 5);

    EXPECT_TRUE(runUntilCalls(3));
    passFence();

    EXPECT_THAT(calls(), ElementsAre("memory/watch/key=5", "memory/watch/other=none", "db/watch/key=9"));
}

TEST_F(VconfWatchTest, AFolderThatIsRemovedIsWatchedAgain) {
    vconf_set_int(kKey, 1);
    watch(kKey);

    fs::remove_all(kFolder);
    EXPECT_TRUE(runUntilCalls(1));
    EXPECT_EQ(lastCall(), "memory/watch/key=none");
    passFence();
    vconf_set_int(kKey, 2);
    passFence();

    EXPECT_EQ(lastCall(), "memory/watch/key=2");
}

TEST_F(VconfWatchTest, AFolderThatIsRemovedAndMadeAnewIsWatchedAgain) {
    vconf_set_int(kKey, 1);
    watch(kKey);

    fs::remove_all(kFolder);
    vconf_set_int(kKey, 2);
    passFence();
    EXPECT_EQ(lastCall(), "memory/watch/key=2");
    vconf_set_int(kKey, 3);
    passFence();

    EXPECT_EQ(lastCall(), "memory/watch/key=3");
}

TEST_F(VconfWatchTest, AFolderThatIsRenamedIsWatchedAgainAtItsPath) {
    vconf_set_int(kKey, 1);
    watch(kKey);

    fs::remove_all("/run/zel-platform/vconf/memory/renamed");
    fs::rename(kFolder, "/run/zel-platform/vconf/memory/renamed");
    passFence();
    EXPECT_EQ(lastCall(), "memory/watch/key=none");
    vconf_set_int("memory/renamed/key", 5);
    vconf_set_int(kKey, 2);
    passFence();

    EXPECT_EQ(lastCall(), "memory/watch/key=2");
}

TEST_F(VconfWatchTest, AKeyThatCouldNotBeWatchedAgainIsWatchedWhenItsFolderCanBe) {
    watch(kKey);
    fs::remove_all(kFolder);
    std::ofstream(kFolder) << "in the way";
    passFence();
    fs::remove(kFolder);

    watch(kOther);
    vconf_set_int(kKey, 2);
    passFence();

    EXPECT_EQ(lastCall(), "memory/watch/key=2");
}

}  // namespace
