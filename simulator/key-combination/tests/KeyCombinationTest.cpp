// SPDX-License-Identifier: Apache-2.0
// The window-utility library of the box, loaded and driven the way the daemon does it.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/Files.h"
#include "support/Wait.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const char* const kFolder = "/run/zel-platform";
const char* const kFifo = "/run/zel-platform/key-combination";

using Handler = void (*)(int, void*);

// What handlers were called with, and what they do besides.
std::mutex mutex;
std::vector<std::string> hits;
std::function<void()> inHandler;

void record(const std::string& hit) {
    const std::lock_guard<std::mutex> lock(mutex);
    hits.push_back(hit);
}

std::vector<std::string> seen() {
    const std::lock_guard<std::mutex> lock(mutex);
    return hits;
}

void first(int combination, void* text) {
    record("first " + std::to_string(combination) + " " + static_cast<const char*>(text));
    if (inHandler) {
        inHandler();
    }
}

void second(int combination, void* /*text*/) {
    record("second " + std::to_string(combination));
}

class KeyCombinationTest : public testing::Test {
protected:
    KeyCombinationTest() : m_library(dlopen(KEY_LIBRARY, RTLD_NOW)) {
        std::filesystem::create_directories(kFolder);
        hits.clear();
        inHandler = nullptr;
    }
    ~KeyCombinationTest() override {
        finalize();
        dlclose(m_library);
        std::filesystem::remove_all(kFolder);
    }

    int call(const char* entry) { return reinterpret_cast<int (*)()>(dlsym(m_library, entry))(); }
    int call(const char* entry, int combination, Handler handler) {
        return reinterpret_cast<int (*)(int, Handler)>(dlsym(m_library, entry))(combination, handler);
    }
    int initialize() { return call("KeyCombination_Initialize"); }
    int finalize() { return call("KeyCombination_Finalize"); }
    int add(int combination, Handler handler) {
        return call("KeyCombination_Add_Handler", combination, handler);
    }
    int remove(int combination, Handler handler) {
        return call("KeyCombination_Remove_Handler", combination, handler);
    }

    static void press(const std::string& lines) {
        const int fifo = open(kFifo, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        ASSERT_GE(fifo, 0) << "nobody reads";
        EXPECT_EQ(write(fifo, lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
        close(fifo);
    }

    // Waits until there are that many hits.
    static std::vector<std::string> await(std::size_t count) {
        EXPECT_TRUE(becomesTrue([count] { return seen().size() >= count; }));
        return seen();
    }

    void expectRefused(const char* why) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(initialize(), -1);
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(why));
    }

    void* m_library;
};

TEST_F(KeyCombinationTest, TheHandlerGetsTheCombinationAndItsNameOnAnotherThread) {
    std::atomic<std::thread::id> thread{};
    inHandler = [&thread] { thread = std::this_thread::get_id(); };
    ASSERT_EQ(initialize(), 0);
    ASSERT_EQ(add(114, first), 0);

    press("114\n");

    EXPECT_THAT(await(1), ElementsAre("first 114 key combination 114"));
    ASSERT_TRUE(becomesTrue([&thread] { return thread.load() != std::thread::id(); }));
    EXPECT_NE(thread.load(), std::this_thread::get_id());
}

TEST_F(KeyCombinationTest, OnlyHandlersOfTheCombinationAreCalled) {
    ASSERT_EQ(initialize(), 0);
    ASSERT_EQ(add(114, first), 0);
    ASSERT_EQ(add(115, second), 0);

    press("113\n115\n");

    EXPECT_THAT(await(1), ElementsAre("second 115"));
}

TEST_F(KeyCombinationTest, SeveralHandlersAreCalledInTheOrderOfAdding) {
    ASSERT_EQ(initialize(), 0);
    ASSERT_EQ(add(1, second), 0);
    ASSERT_EQ(add(1, first), 0);

    press("1\n");

    EXPECT_THAT(await(2), ElementsAre("second 1", "first 1 key combination 1"));
}

TEST_F(KeyCombinationTest, AHandlerIsAddedOnceAndRemovedOnce) {
    ASSERT_EQ(initialize(), 0);

    EXPECT_EQ(add(1, first), 0);
    EXPECT_EQ(add(1, first), -1);
    EXPECT_EQ(add(1, nullptr), -1);
    EXPECT_EQ(remove(2, first), -1);
    EXPECT_EQ(remove(1, second), -1);
    EXPECT_EQ(remove(1, first), 0);
    EXPECT_EQ(remove(1, first), -1);
}

TEST_F(KeyCombinationTest, ARemovedHandlerIsNotCalled) {
    ASSERT_EQ(initialize(), 0);
    ASSERT_EQ(add(1, first), 0);
    ASSERT_EQ(add(1, second), 0);
    ASSERT_EQ(remove(1, first), 0);

    press("1\n");

    EXPECT_THAT(await(1), ElementsAre("second 1"));
}

TEST_F(KeyCombinationTest, RemovingWaitsUntilTheHandlerHasReturned) {
    std::atomic<bool> mayReturn{false};
    std::atomic<bool> isRemoved{false};
    inHandler = [&mayReturn] { EXPECT_TRUE(becomesTrue([&mayReturn] { return mayReturn.load(); })); };
    ASSERT_EQ(initialize(), 0);
    ASSERT_EQ(add(1, first), 0);
    press("1\n");
    await(1);

    std::thread remover([this, &isRemoved] {
        EXPECT_EQ(remove(1, first), 0);
        isRemoved = true;
    });
    EXPECT_FALSE(becomesTrue([&isRemoved] { return isRemoved.load(); }, std::chrono::milliseconds(50)));
    mayReturn = true;
    remover.join();
}

TEST_F(KeyCombinationTest, FinalisingWaitsUntilTheHandlerHasReturned) {
    std::atomic<bool> mayReturn{false};
    std::atomic<bool> isFinalised{false};
    inHandler = [&mayReturn] { EXPECT_TRUE(becomesTrue([&mayReturn] { return mayReturn.load(); })); };
    ASSERT_EQ(initialize(), 0);
    ASSERT_EQ(add(1, first), 0);
    press("1\n");
    await(1);

    std::thread finaliser([this, &isFinalised] {
        EXPECT_EQ(finalize(), 0);
        isFinalised = true;
    });
    EXPECT_FALSE(becomesTrue([&isFinalised] { return isFinalised.load(); }, std::chrono::milliseconds(50)));
    mayReturn = true;
    finaliser.join();
}

TEST_F(KeyCombinationTest, AHandlerMayRemoveItselfAndAnother) {
    inHandler = [this] {
        EXPECT_EQ(remove(1, first), 0);
        EXPECT_EQ(remove(1, second), 0);
    };
    ASSERT_EQ(initialize(), 0);
    ASSERT_EQ(add(1, first), 0);
    ASSERT_EQ(add(1, second), 0);
    ASSERT_EQ(add(2, second), 0);

    press("1\n1\n2\n");

    EXPECT_THAT(await(2), ElementsAre("first 1 key combination 1", "second 2"));
}

TEST_F(KeyCombinationTest, AHandlerThatFinalisesIsRefused) {
    std::atomic<int> result{0};
    inHandler = [this, &result] { result = finalize(); };
    ASSERT_EQ(initialize(), 0);
    ASSERT_EQ(add(1, first), 0);

    press("1\n");

    EXPECT_TRUE(becomesTrue([&result] { return result == -1; }));
    EXPECT_EQ(finalize(), 0);
}

TEST_F(KeyCombinationTest, InitialisingAndFinalisingComeInTurns) {
    EXPECT_EQ(finalize(), -1);
    EXPECT_EQ(initialize(), 0);
    EXPECT_EQ(initialize(), -1);
    EXPECT_EQ(add(1, first), 0);
    EXPECT_EQ(finalize(), 0);
    EXPECT_EQ(finalize(), -1);
    EXPECT_EQ(initialize(), 0);
    EXPECT_EQ(add(2, second), 0);

    press("1\n2\n");

    EXPECT_THAT(await(1), ElementsAre("second 2"));
}

TEST_F(KeyCombinationTest, ALineMayComeInPieces) {
    ASSERT_EQ(initialize(), 0);
    ASSERT_EQ(add(114, second), 0);

    press("1");
    press("1");
    press("4\n");

    EXPECT_THAT(await(1), ElementsAre("second 114"));
}

TEST_F(KeyCombinationTest, LinesThatAreNoNumberAreIgnoredAndLogged) {
    const std::string hostile[] = {"",
                                   " 1",
                                   "1 ",
                                   "0x1",
                                   "1\r",
                                   "%s%n",
                                   "99999999999",
                                   std::string("1\0", 2),
                                   std::string(4000, '1'),
                                   std::string("\033[31m")};
    ASSERT_EQ(initialize(), 0);
    ASSERT_EQ(add(1, second), 0);
    testing::internal::CaptureStderr();

    for (const std::string& line : hostile) {
        press(line + "\n");
    }
    press("1\n");

    EXPECT_THAT(await(1), ElementsAre("second 1"));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), static_cast<std::ptrdiff_t>(std::size(hostile)));
    EXPECT_THAT(log, HasSubstr("'1\\x0d' is no key combination"));
    EXPECT_THAT(log, HasSubstr("'11111111111111111' is no key combination"));
    EXPECT_THAT(log, testing::Not(HasSubstr("\033")));
}

TEST_F(KeyCombinationTest, TheFifoIsMadeForThisUserOnly) {
    std::filesystem::remove_all(kFolder);

    ASSERT_EQ(initialize(), 0);

    struct stat status {};
    ASSERT_EQ(lstat(kFifo, &status), 0);
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(status.st_uid, geteuid());
}

TEST_F(KeyCombinationTest, AFifoThatWasLeftIsTaken) {
    ASSERT_EQ(mkfifo(kFifo, 0600), 0);

    EXPECT_EQ(initialize(), 0);
}

TEST_F(KeyCombinationTest, APlantedFileIsRefusedAndStaysAsItIs) {
    writeFile(kFifo, "114\n");
    ASSERT_EQ(chmod(kFifo, 0600), 0);

    expectRefused("/run/zel-platform/key-combination is no FIFO of this user's with the mode 0600");

    EXPECT_EQ(readFile(kFifo), "114\n");
}

TEST_F(KeyCombinationTest, ALinkIsRefused) {
    ASSERT_EQ(mkfifo("/run/zel-platform/other", 0600), 0);
    std::filesystem::create_symlink("/run/zel-platform/other", kFifo);

    expectRefused("is no FIFO");
}

TEST_F(KeyCombinationTest, ASecondNameOfAFifoIsRefused) {
    ASSERT_EQ(mkfifo("/run/zel-platform/other", 0600), 0);
    std::filesystem::create_hard_link("/run/zel-platform/other", kFifo);

    expectRefused("is no FIFO");
}

TEST_F(KeyCombinationTest, AFifoThatOthersMayWriteIsRefused) {
    ASSERT_EQ(mkfifo(kFifo, 0600), 0);
    ASSERT_EQ(chmod(kFifo, 0622), 0);

    expectRefused("is no FIFO");
}

TEST_F(KeyCombinationTest, AFifoOfSomebodyElseIsRefused) {
    ASSERT_EQ(mkfifo(kFifo, 0600), 0);
    ASSERT_EQ(chown(kFifo, 65534, 65534), 0);

    expectRefused("is no FIFO");
}

TEST_F(KeyCombinationTest, WhereItCantBeMadeIsLogged) {
    std::filesystem::remove_all(kFolder);
    writeFile(kFolder, "");

    expectRefused("can't be made");

    std::filesystem::remove(kFolder);
}

TEST_F(KeyCombinationTest, HandlersComeAndGoWhileKeysArePressed) {
    constexpr int kRounds = 300;
    ASSERT_EQ(initialize(), 0);
    ASSERT_EQ(add(2, second), 0);

    std::thread presser([] {
        for (int round = 0; round < kRounds; ++round) {
            press("1\n");
        }
        press("2\n");
    });
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_EQ(add(1, first), 0);
        EXPECT_EQ(remove(1, first), 0);
    }
    presser.join();

    EXPECT_TRUE(becomesTrue([] { return testing::Value(seen(), testing::Contains("second 2")); }));
}

TEST_F(KeyCombinationTest, NoHandlerRunsAfterFinalisingHoweverManyKeysWerePressed) {
    std::atomic<int> entered{0};
    std::atomic<int> left{0};
    inHandler = [&entered, &left] {
        ++entered;
        std::this_thread::yield();
        ++left;
    };
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(initialize(), 0);
        ASSERT_EQ(add(1, first), 0);
        press("1\n1\n1\n");

        ASSERT_EQ(finalize(), 0);

        const int leftThen = left;
        EXPECT_EQ(entered, leftThen);
    }
}

}  // namespace
