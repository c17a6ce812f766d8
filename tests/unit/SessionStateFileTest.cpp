// SPDX-License-Identifier: Apache-2.0
// The file that the table of sessions is kept in: its bytes, what is planted in its place, what it may do to
// the daemon that reads it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <new>
#include <string>

#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "support/Files.h"
#include "support/Plant.h"
#include "support/StateFileWorld.h"

using fakes::Actions;
using fakes::FakeDlog;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

constexpr int kInfo = 4;
constexpr int kError = 6;

// For the thread of the test only. What befalls a call of fstat: changes its answer, or returns the error
// that it fails with. The calls are counted from 1.
thread_local std::function<int(struct stat& status, int call)> statFault;
thread_local int statCalls = 0;
// How many bytes a call of write takes at most.
thread_local std::size_t writtenAtOnce = SIZE_MAX;
// Whether every removal and renaming fails.
thread_local bool namesAreFixed = false;

class SessionStateFileTest : public StateFileWorld {
protected:
    ~SessionStateFileTest() override {
        stopPlanting();
        statFault = nullptr;
        statCalls = 0;
        writtenAtOnce = SIZE_MAX;
        namesAreFixed = false;
    }
};

// The largest piece of memory asked for since it was last set to 0.
std::atomic<std::size_t> largestAllocation{0};
// Larger pieces than this can't be had.
std::atomic<std::size_t> allocationLimit{SIZE_MAX};

// Larger than what anything but a large text needs.
constexpr std::size_t kSmall = 100'000;
constexpr std::size_t kLarge = 1'000'000;

// As if memory was short, while it lives.
class ShortMemory {
public:
    ShortMemory() { allocationLimit = kSmall; }
    ~ShortMemory() { allocationLimit = SIZE_MAX; }
    ShortMemory(const ShortMemory&) = delete;
    ShortMemory& operator=(const ShortMemory&) = delete;
};

void failEverySave() {
    failCreating(kTemporary, EISDIR);
}

// The number behind a text's last blank.
std::string lastWord(const std::string& line) {
    return line.substr(line.rfind(' ') + 1);
}

}  // namespace

// Not inlined: with only one of a pair inlined, GCC takes the two for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
    largestAllocation = std::max(largestAllocation.load(), size);
    void* memory = size > allocationLimit ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

extern "C" int __real_fstat(int fd, struct stat* status);
extern "C" int __wrap_fstat(int fd, struct stat* status);
extern "C" int __wrap_fstat(int fd, struct stat* status) {
    const int result = __real_fstat(fd, status);
    const int error = result == 0 && statFault ? statFault(*status, ++statCalls) : 0;
    if (error == 0) {
        return result;
    }
    errno = error;
    return -1;
}

extern "C" ssize_t __real_write(int fd, const void* bytes, std::size_t size);
extern "C" ssize_t __wrap_write(int fd, const void* bytes, std::size_t size);
extern "C" ssize_t __wrap_write(int fd, const void* bytes, std::size_t size) {
    return __real_write(fd, bytes, std::min(size, writtenAtOnce));
}

extern "C" int __real_remove(const char* path);
extern "C" int __wrap_remove(const char* path);
extern "C" int __wrap_remove(const char* path) {
    errno = EIO;
    return namesAreFixed ? -1 : __real_remove(path);
}

extern "C" int __real_rename(const char* from, const char* to);
extern "C" int __wrap_rename(const char* from, const char* to);
extern "C" int __wrap_rename(const char* from, const char* to) {
    errno = EIO;
    return namesAreFixed ? -1 : __real_rename(from, to);
}

// Saving

TEST_F(SessionStateFileTest, EmptyTextsAreStoredAsALengthOfZero) {
    TCSessionControl control(m_manager);

    control.Open("", "", "");

    EXPECT_EQ(readFile(kState), number(1) + number(0) + number(0) + number(0));
}

TEST_F(SessionStateFileTest, BytesAboveOneHundredTwentySevenAndZerosAreStoredAsTheyAre) {
    TCSessionControl control(m_manager);
    const std::string program("\xc3\xa9\xff\x80\0z", 6);

    control.Open(":1.5", program, "42");

    EXPECT_EQ(readFile(kState), number(1) + session(":1.5", program, "42"));
    forget();
    TCSessionControl reader(m_manager);
    ASSERT_TRUE(reader.Open("~", "", ""));
    EXPECT_EQ(readFile(kState), number(2) + session(":1.5", program, "42") + session("~", "", ""));
}

TEST_F(SessionStateFileTest, SessionsAreOrderedByTheirBytes) {
    TCSessionControl control(m_manager);

    control.Open("\xff", "", "");
    control.Open("a", "", "");
    control.Open("B", "", "");

    EXPECT_EQ(readFile(kState),
              number(3) + session("B", "", "") + session("a", "", "") + session("\xff", "", ""));
}

TEST_F(SessionStateFileTest, ALinkAtTheTemporaryPathFailsTheSaveThatFindsItAndLeavesTheStateFile) {
    TCSessionControl control(m_manager);
    control.Open("a", "ant", "1");
    const std::string before = readFile(kState);
    writeFile("/tmp/victim", "precious");
    ASSERT_EQ(symlink("/tmp/victim", kTemporary), 0);
    forget();
    testing::internal::CaptureStdout();

    EXPECT_TRUE(control.Open("b", "bee", "2")) << "the session is open though it is not saved";

    const auto actions = Actions::take();
    const std::string printed = testing::internal::GetCapturedStdout();
    ASSERT_THAT(actions, ElementsAre("StateManager::Notify 1 0 0 0",
                                     MatchesRegex("assert 0 /usr/src/zel-lite/src/SessionControl.cpp [0-9]+"),
                                     StartsWith("assert saved /usr/src/zel-lite/src/SessionControl.cpp ")));
    EXPECT_EQ(printed, "ASSERT!!! - function m_saveState, line " + lastWord(actions[1]) +
                           "ASSERT!!! - function m_Open, line " + lastWord(actions[2]));
    EXPECT_EQ(readFile(kState), before);
    EXPECT_EQ(readFile("/tmp/victim"), "precious");
    EXPECT_FALSE(std::filesystem::is_symlink(kTemporary)) << "it is taken away for the next save";
    EXPECT_TRUE(control.Open("c", "cat", "3"));
    EXPECT_EQ(readFile(kState),
              number(3) + session("a", "ant", "1") + session("b", "bee", "2") + session("c", "cat", "3"));
}

TEST_F(SessionStateFileTest, AFailedSaveAtOpenIsAnAssertionAndTheSessionStays) {
    TCSessionControl control(m_manager);
    failEverySave();
    forget();
    testing::internal::CaptureStdout();

    EXPECT_TRUE(control.Open("a", "ant", "1"));

    const auto actions = Actions::take();
    const std::string printed = testing::internal::GetCapturedStdout();
    ASSERT_THAT(actions, ElementsAre("StateManager::Notify 1 0 0 0",
                                     StartsWith("assert saved /usr/src/zel-lite/src/SessionControl.cpp ")));
    EXPECT_EQ(printed, "ASSERT!!! - function m_Open, line " + lastWord(actions[1]));
    EXPECT_TRUE(control.IsAnySessionActive());
    stopPlanting();
    EXPECT_TRUE(control.Open("b", "bee", "2"));
    EXPECT_EQ(readFile(kState), number(2) + session("a", "ant", "1") + session("b", "bee", "2"));
}

TEST_F(SessionStateFileTest, AFailedSaveAtCloseIsAnAssertionAndTheSessionIsClosed) {
    TCSessionControl control(m_manager);
    control.Open("a", "ant", "1");
    control.Open("b", "bee", "2");
    failEverySave();
    forget();
    testing::internal::CaptureStdout();

    EXPECT_TRUE(control.Close("a"));

    const auto actions = Actions::take();
    const std::string printed = testing::internal::GetCapturedStdout();
    ASSERT_THAT(actions, ElementsAre(StartsWith("assert saved /usr/src/zel-lite/src/SessionControl.cpp ")));
    EXPECT_EQ(printed, "ASSERT!!! - function m_Close, line " + lastWord(actions[0]));
    EXPECT_FALSE(control.Close("a"));
    stopPlanting();
    EXPECT_TRUE(control.Open("c", "cat", "3"));
    EXPECT_EQ(readFile(kState), number(2) + session("b", "bee", "2") + session("c", "cat", "3"));
}

TEST_F(SessionStateFileTest, ATableThatDoesNotFitIntoMemoryIsNotSavedAndOpenAndCloseSucceed) {
    TCSessionControl control(m_manager);
    control.Open("a", std::string(kLarge, 'x'), "1");
    const std::string before = readFile(kState);
    ASSERT_EQ(before, number(1) + session("a", std::string(kLarge, 'x'), "1"));
    forget();

    {
        const ShortMemory shortage;
        EXPECT_NO_THROW(EXPECT_TRUE(control.Open("b", "bee", "2")));
        EXPECT_NO_THROW(EXPECT_TRUE(control.Open("c", "cat", "3")));
        EXPECT_NO_THROW(EXPECT_TRUE(control.Close("c")));
    }

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::Notify 1 0 0 0", StartsWith("assert saved "),
                                             "StateManager::Notify 1 0 0 0", StartsWith("assert saved "),
                                             StartsWith("assert saved ")));
    EXPECT_EQ(readFile(kState), before);
    EXPECT_TRUE(control.Close("a"));
    EXPECT_EQ(readFile(kState), number(1) + session("b", "bee", "2"));
}

TEST_F(SessionStateFileTest, ALinkPlantedAfterTheLookAtTheTemporaryPathIsNotFollowed) {
    TCSessionControl control(m_manager);
    writeFile("/tmp/victim", "precious");
    plantAtOpen(kTemporary, [] { EXPECT_EQ(symlink("/tmp/victim", kTemporary), 0); });
    forget();

    EXPECT_TRUE(control.Open("a", "ant", "1"));

    EXPECT_TRUE(wasPlanted());
    EXPECT_EQ(readFile("/tmp/victim"), "precious");
    EXPECT_EQ(readFile(kState), number(1) + session("a", "ant", "1"));
}

TEST_F(SessionStateFileTest, AFileThatCannotBeOpenedIsAnOpenError) {
    TCSessionControl control(m_manager);
    failEverySave();
    forget();

    EXPECT_TRUE(control.Open("a", "ant", "1"));

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Open error: Is a directory"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_saveState");
    EXPECT_FALSE(exists(kState));
}

TEST_F(SessionStateFileTest, WhatIsPlantedAtTheTemporaryPathGivesWay) {
    for (const auto& plant : std::vector<std::function<void()>>{
             [] { EXPECT_EQ(mkdir(kTemporary, 0755), 0); },
             [] { std::filesystem::create_directories(std::string(kTemporary) + "/full"); },
             [] { EXPECT_EQ(mkfifo(kTemporary, 0600), 0); },
         }) {
        TCSessionControl control(m_manager);
        plant();
        forget();

        EXPECT_TRUE(control.Open("a", "ant", "1"));

        EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
        EXPECT_EQ(readFile(kState), number(1) + session("a", "ant", "1"));
        EXPECT_TRUE(control.Close("a"));
    }
}

TEST_F(SessionStateFileTest, AStrangersTemporaryFileDoesNotMakeTheStateFileTheirs) {
    TCSessionControl control(m_manager);
    writeFile(kTemporary, "theirs");
    ASSERT_EQ(chown(kTemporary, 1234, 1234), 0);

    EXPECT_TRUE(control.Open("a", "ant", "1"));

    struct stat status {};
    ASSERT_EQ(stat(kState, &status), 0);
    EXPECT_EQ(status.st_uid, geteuid());
}

TEST_F(SessionStateFileTest, AStrangersTemporaryFileIsReplacedAndKeepsItsContent) {
    TCSessionControl control(m_manager);
    writeFile(kTemporary, "theirs");
    ASSERT_EQ(chown(kTemporary, 1234, 1234), 0);
    std::ifstream theirs(kTemporary);

    EXPECT_TRUE(control.Open("a", "ant", "1"));

    std::string content;
    EXPECT_TRUE(theirs >> content) << "it was emptied";
    EXPECT_EQ(content, "theirs");
    EXPECT_EQ(readFile(kState), number(1) + session("a", "ant", "1"));
}

TEST_F(SessionStateFileTest, ATemporaryFileWithASecondNameIsReplacedAndKeepsItsContent) {
    TCSessionControl control(m_manager);
    writeFile("/tmp/victim", "precious");
    ASSERT_EQ(link("/tmp/victim", kTemporary), 0);

    EXPECT_TRUE(control.Open("a", "ant", "1"));

    EXPECT_EQ(readFile("/tmp/victim"), "precious");
    EXPECT_EQ(readFile(kState), number(1) + session("a", "ant", "1"));
    EXPECT_EQ(std::filesystem::hard_link_count(kState), 1U);
}

TEST_F(SessionStateFileTest, ALeftOverTemporaryFileIsReplaced) {
    TCSessionControl control(m_manager);
    writeFile(kTemporary, std::string(1000, 'x'));

    EXPECT_TRUE(control.Open("a", "ant", "1"));

    EXPECT_EQ(readFile(kState), number(1) + session("a", "ant", "1"));
    EXPECT_FALSE(exists(kTemporary));
}

TEST_F(SessionStateFileTest, AWriteErrorLeavesThePartialFileAndTheOldState) {
    TCSessionControl control(m_manager);
    control.Open("a", "ant", "1");
    const std::string before = readFile(kState);
    forget();
    signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    // One byte short of the two sessions.
    const rlimit limit{37, old.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);

    const bool opened = control.Open("b", "bee", "2");

    setrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_TRUE(opened);
    EXPECT_EQ(readFile(kState), before);
    EXPECT_TRUE(exists(kTemporary));
    EXPECT_THAT(FakeDlog::messages(kError), Contains("Write error: File too large, size: 38"));
}

TEST_F(SessionStateFileTest, AWriteThatEndsEarlyIsContinued) {
    TCSessionControl control(m_manager);
    writtenAtOnce = 5;

    control.Open("a", "ant", "1");

    EXPECT_EQ(readFile(kState), number(1) + session("a", "ant", "1"));
}

TEST_F(SessionStateFileTest, AWriteOfNothingIsAWriteError) {
    TCSessionControl control(m_manager);
    writtenAtOnce = 0;

    control.Open("a", "ant", "1");

    EXPECT_THAT(FakeDlog::messages(kError), Contains(StartsWith("Write error: ")));
    EXPECT_FALSE(exists(kState));
}

TEST_F(SessionStateFileTest, WhatIsPlantedAtTheStateFileGivesWayToASave) {
    for (const auto& plant : std::vector<std::function<void()>>{
             [] { EXPECT_EQ(mkdir(kState, 0755), 0); },
             [] { std::filesystem::create_directories(std::string(kState) + "/full"); },
             [] { EXPECT_EQ(mkfifo(kState, 0600), 0); },
             [] { EXPECT_EQ(symlink("/nowhere", kState), 0); },
         }) {
        std::filesystem::remove_all(kState);
        TCSessionControl control(m_manager);
        plant();
        forget();

        EXPECT_TRUE(control.Open("a", "ant", "1"));

        EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
        EXPECT_EQ(readFile(kState), number(1) + session("a", "ant", "1"));
    }
}

// Where the kernel lets users link files of others, a second name would keep the old sessions.
TEST_F(SessionStateFileTest, AStateFileThatIsReplacedOrRemovedIsEmptiedInAllItsNames) {
    TCSessionControl control(m_manager);
    control.Open("a", "ant", "1");
    ASSERT_EQ(link(kState, "/tmp/kept"), 0);
    control.Open("b", "bee", "2");
    EXPECT_EQ(readFile("/tmp/kept"), "");
    unlink("/tmp/kept");
    control.Close("b");
    ASSERT_EQ(link(kState, "/tmp/kept"), 0);

    control.Close("a");

    EXPECT_EQ(readFile("/tmp/kept"), "");
    unlink("/tmp/kept");
}

TEST_F(SessionStateFileTest, AReplacedStateFileStaysWholeForItsReaders) {
    TCSessionControl control(m_manager);
    control.Open("a", "ant", "1");
    std::ifstream reader(kState, std::ios::binary);

    control.Open("b", "bee", "2");

    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), number(1) + session("a", "ant", "1"));
}

TEST_F(SessionStateFileTest, AStateFileOfTheRunBeforeIsEmptiedWhenItIsReplaced) {
    {
        TCSessionControl before(m_manager);
        before.Open("a", "ant", "1");
    }
    TCSessionControl control(m_manager);
    ASSERT_EQ(link(kState, "/tmp/kept"), 0);

    control.Open("b", "bee", "2");

    EXPECT_EQ(readFile("/tmp/kept"), "");
    EXPECT_EQ(readFile(kState), number(2) + session("a", "ant", "1") + session("b", "bee", "2"));
    unlink("/tmp/kept");
}

TEST_F(SessionStateFileTest, AFilledFolderAtTheStateFileGivesWayToALastClose) {
    TCSessionControl control(m_manager);
    control.Open("a", "ant", "1");
    unlink(kState);
    std::filesystem::create_directories(std::string(kState) + "/full");
    forget();

    EXPECT_TRUE(control.Close("a"));

    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("State file removed, removed(0), exists(0)"));
    EXPECT_FALSE(exists(kState));
}

TEST_F(SessionStateFileTest, AStateFileThatCannotBeReplacedIsLogged) {
    TCSessionControl control(m_manager);
    namesAreFixed = true;
    forget();

    EXPECT_TRUE(control.Open("a", "ant", "1"));

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Can not rename state tmp file"));
    EXPECT_THAT(Actions::take(), Contains(StartsWith("assert saved ")));
}

TEST_F(SessionStateFileTest, AStateFileThatCannotBeRemovedIsLogged) {
    TCSessionControl control(m_manager);
    control.Open("a", "ant", "1");
    namesAreFixed = true;
    forget();

    EXPECT_TRUE(control.Close("a"));

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Can not remove state file"));
    EXPECT_THAT(Actions::take(), Contains(StartsWith("assert saved ")));
}

// Loading

TEST_F(SessionStateFileTest, SessionsOfAPreviousRunAreReadBack) {
    load(number(2) + session(":1.5", "player", "42") + session(":1.9", "browser", "43"));

    EXPECT_THAT(FakeDlog::messages(kInfo),
                ElementsAre("Read sessions, sessionsNum(2), contentSize(53)",
                            "Load state, sessionId(:1.5), progName(player), pid(42)",
                            "Load state, sessionId(:1.9), progName(browser), pid(43)"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_loadState");
    EXPECT_TRUE(exists(kState)) << "the file stays until the next save";
    EXPECT_TRUE(m_control->IsAnySessionActive());
    EXPECT_TRUE(m_control->Close(":1.5"));
    EXPECT_EQ(readFile(kState), number(1) + session(":1.9", "browser", "43"));
}

TEST_F(SessionStateFileTest, AnEmptyOrThreeByteStateFileIsRefusedWithItsSize) {
    for (const std::string& content : {std::string(), std::string("abc")}) {
        forget();

        load(content);

        EXPECT_THAT(FakeDlog::messages(kError),
                    ElementsAre("Error read, contentSize(" + std::to_string(content.size()) + ")",
                                "Can not load session state"));
        EXPECT_FALSE(m_control->IsAnySessionActive());
    }
}

TEST_F(SessionStateFileTest, AFileOfACountAloneIsNotRefusedForItsSize) {
    load(number(1));

    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("Read sessions, sessionsNum(1), contentSize(4)"));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Can not load session state"));
    EXPECT_FALSE(m_control->IsAnySessionActive());
}

TEST_F(SessionStateFileTest, ACountBelowOneIsRefusedAndLoadsNothing) {
    for (const int count : {0, -1, INT_MIN}) {
        forget();

        load(number(count) + session("a", "b", "c"));

        EXPECT_THAT(FakeDlog::messages(kError),
                    ElementsAre("Error read, sessionsNum(" + std::to_string(count) + "), contentSize(19)",
                                "Can not load session state"));
        EXPECT_FALSE(m_control->IsAnySessionActive());
    }
}

TEST_F(SessionStateFileTest, OfTwoSessionsWithOneIdTheLaterWins) {
    load(number(2) + session("a", "first", "1") + session("a", "second", "2"));

    EXPECT_EQ(tableAfterOneMore(), number(2) + session("a", "second", "2") + session("~", "", ""));
}

TEST_F(SessionStateFileTest, EmptyTextsAreReadBackAsEmpty) {
    load(number(1) + session("", "", ""));

    EXPECT_EQ(tableAfterOneMore(), number(2) + session("", "", "") + session("~", "", ""));
}

TEST_F(SessionStateFileTest, AFileCutAnywhereKeepsTheSessionsBeforeTheCut) {
    const std::string one = session("a", "ant", "1");
    const std::string two = session("b", "bee", "22");
    const std::string three = session("c", "", "333");
    const std::string whole = number(3) + one + two + three;
    for (std::size_t size = 0; size < whole.size(); ++size) {
        SCOPED_TRACE("cut to " + std::to_string(size));
        forget();

        load(whole.substr(0, size));

        std::string kept;
        int count = 0;
        std::size_t end = 4;
        for (const std::string& part : {one, two, three}) {
            end += part.size();
            if (size >= end) {
                kept += part;
                ++count;
            }
        }
        EXPECT_EQ(FakeDlog::messages(kError).back(), "Can not load session state");
        EXPECT_EQ(m_control->IsAnySessionActive(), count > 0);
        EXPECT_EQ(tableAfterOneMore(), number(count + 1) + kept + session("~", "", ""));
    }
}

TEST_F(SessionStateFileTest, AWholeFileIsReadWithoutComplaintWhateverFollows) {
    load(number(1) + session("a", "ant", "1") + "trailing bytes");

    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
    EXPECT_EQ(tableAfterOneMore(), number(2) + session("a", "ant", "1") + session("~", "", ""));
}

TEST_F(SessionStateFileTest, ALengthThatTheFileCannotHoldEndsTheLoad) {
    const std::string good = session("a", "ant", "1");
    for (const int length : {-1, -2, INT_MIN, INT_MAX, INT_MAX - 4, 3, 1 << 30}) {
        SCOPED_TRACE(length);
        // Two bytes follow the length: it reaches past the end, or below zero.
        for (const std::string& before : {std::string(), text("b"), text("b") + text("bee")}) {
            forget();

            load(number(2) + good + before + number(length) + "xy");

            EXPECT_EQ(FakeDlog::messages(kError), std::vector<std::string>{"Can not load session state"});
            EXPECT_EQ(tableAfterOneMore(), number(2) + good + session("~", "", ""));
        }
    }
}

TEST_F(SessionStateFileTest, NothingIsAllocatedForALengthThatTheFileCannotHold) {
    for (const int length : {INT_MAX, 1 << 30, 1 << 20}) {
        const std::string content = number(1) + number(length) + "xy";
        writeFile(kState, content);
        largestAllocation = 0;

        TCSessionControl control(m_manager);

        EXPECT_LT(largestAllocation, 100'000U);
    }
}

TEST_F(SessionStateFileTest, ALengthThatSwallowsTheNextFieldsEndsWhereTheFileEnds) {
    // The first id claims the bytes of all that follows, so nothing is left for the program name.
    load(number(1) + number(12) + std::string(12, 'x'));

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Can not load session state"));
    EXPECT_FALSE(m_control->IsAnySessionActive());
}

TEST_F(SessionStateFileTest, AHugeCountInASmallFileEndsAtOnceAndKeepsWhatWasRead) {
    const std::string content =
        number(INT_MAX) + session("a", "ant", "1") + session("b", "bee", "2") + std::string(22, '\xff');
    ASSERT_EQ(content.size(), 60U);

    load(content);

    EXPECT_EQ(FakeDlog::messages(kError), std::vector<std::string>{"Can not load session state"});
    EXPECT_EQ(FakeDlog::messages(kInfo).size(), 3U) << "one line of the count, one a session";
    EXPECT_EQ(tableAfterOneMore(),
              number(3) + session("a", "ant", "1") + session("b", "bee", "2") + session("~", "", ""));
}

TEST_F(SessionStateFileTest, AnAbsurdlyLargeFileIsRefusedUnread) {
    writeFile(kState, "");
    ASSERT_EQ(truncate(kState, 64L * 1024 * 1024 + 1), 0);

    TCSessionControl control(m_manager);

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Error read, contentSize(67108865)", "Can not load session state"));
}

TEST_F(SessionStateFileTest, AFileOfTheLargestSizeIsRead) {
    writeFile(kState, number(1) + session("a", "ant", "1"));
    ASSERT_EQ(truncate(kState, 64L * 1024 * 1024), 0);

    TCSessionControl control(m_manager);

    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("Read sessions, sessionsNum(1), contentSize(67108864)",
                                                       "Load state, sessionId(a), progName(ant), pid(1)"));
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
    EXPECT_TRUE(control.Close("a"));
}

TEST_F(SessionStateFileTest, AFileThatDoesNotFitIntoMemoryIsNotLoaded) {
    writeFile(kState, number(1) + session("a", std::string(kLarge, 'x'), "1"));

    {
        const ShortMemory shortage;
        EXPECT_NO_THROW(m_control = std::make_unique<TCSessionControl>(m_manager));
    }

    ASSERT_TRUE(m_control);
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Can not load session state"));
    EXPECT_FALSE(m_control->IsAnySessionActive());
    EXPECT_TRUE(exists(kState));
}

TEST_F(SessionStateFileTest, AFileWhoseSizeCannotBeReadIsRefusedAsEmpty) {
    // The first look is that of the opening.
    statFault = [](struct stat& /*status*/, int call) { return call == 2 ? EIO : 0; };

    load(number(1) + session("a", "ant", "1"));

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Error read, contentSize(0)", "Can not load session state"));
    EXPECT_FALSE(m_control->IsAnySessionActive());
}

TEST_F(SessionStateFileTest, AFileThatShrinksBeforeItIsReadIsNotLoaded) {
    statFault = [](struct stat& status, int call) {
        status.st_size += call == 2 ? 1 : 0;
        return 0;
    };

    load(number(1) + session("a", "ant", "1"));

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Can not load session state"));
    EXPECT_FALSE(m_control->IsAnySessionActive());
}

TEST_F(SessionStateFileTest, ALinkToNothingCountsAsNoStateFile) {
    ASSERT_EQ(symlink("/tmp/victim", kState), 0);

    TCSessionControl control(m_manager);

    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("State file does not exist. Clean session."));
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
}

TEST_F(SessionStateFileTest, AFileThatCannotBeOpenedIsLoggedAndStays) {
    struct Row {
        const char* what;
        std::function<void()> make;
    };
    const std::vector<Row> rows{
        {"somebody else's",
         [] {
             writeFile(kState, number(1) + session("a", "ant", "1"));
             EXPECT_EQ(chown(kState, 1234, 1234), 0);
         }},
        {"a folder", [] { EXPECT_EQ(mkdir(kState, 0755), 0); }},
        {"a FIFO", [] { EXPECT_EQ(mkfifo(kState, 0600), 0); }},
        {"a link",
         [] {
             writeFile("/tmp/victim", number(1) + session("a", "ant", "1"));
             EXPECT_EQ(symlink("/tmp/victim", kState), 0);
         }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        std::filesystem::remove_all(kState);
        row.make();
        forget();

        TCSessionControl control(m_manager);

        EXPECT_THAT(FakeDlog::messages(kError),
                    ElementsAre("Can not open state file", "Can not load session state"));
        EXPECT_FALSE(control.IsAnySessionActive());
        EXPECT_TRUE(exists(kState));
    }
}

TEST_F(SessionStateFileTest, ALinkPlantedBeforeTheOpenIsNotRead) {
    writeFile("/tmp/victim", number(1) + session("a", "ant", "1"));
    plantAtOpen(kState, [] { EXPECT_EQ(symlink("/tmp/victim", kState), 0); });

    TCSessionControl control(m_manager);

    EXPECT_TRUE(wasPlanted());
    EXPECT_FALSE(control.IsAnySessionActive());
}
