// SPDX-License-Identifier: Apache-2.0
#include <aul.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "TestCgroups.h"
#include "support/Wait.h"

namespace {

// What a test sees of an answer: the result, and a buffer that was full of '.' with what was written into it.
struct Answer {
    int result;
    std::string buffer;
};

Answer ask(int pid, int len, std::size_t size = 1024) {
    Answer answer{99, std::string(size, '.')};
    answer.result = aul_app_get_appid_bypid(pid, answer.buffer.data(), len);
    return answer;
}

// The id of a process; where there is none, the result in its place.
std::string appIdOf(const Process& process) {
    const Answer answer = ask(process.id(), 1023);
    return answer.result == 0 ? answer.buffer.substr(0, answer.buffer.find('\0'))
                              : std::to_string(answer.result);
}

class AulTest : public testing::Test {
protected:
    // Gives the id of a process in a unit, both made for the occasion.
    static std::string appIdIn(const std::string& unit) {
        const Process process;
        process.enter(unifiedFolder() + "/" + unit);
        return appIdOf(process);
    }

    const Process m_process;
};

TEST_F(AulTest, AScopeNamesTheApplication) {
    EXPECT_EQ(appIdIn("app-org.example.Viewer-1234.scope"), "org.example.Viewer");
    EXPECT_EQ(appIdIn("app-shell-org.example.Viewer-1234.scope"), "org.example.Viewer");
    EXPECT_EQ(appIdIn("app-org.example.Viewer.scope"), "org.example.Viewer");
}

TEST_F(AulTest, AServiceNamesTheApplication) {
    EXPECT_EQ(appIdIn("app-org.example.Viewer.service"), "org.example.Viewer");
    EXPECT_EQ(appIdIn("app-org.example.Viewer@1234.service"), "org.example.Viewer");
    EXPECT_EQ(appIdIn("app-shell-org.example.Viewer@1234.service"), "org.example.Viewer");
}

TEST_F(AulTest, EscapesInTheNameOfAUnitAreUndone) {
    EXPECT_EQ(appIdIn("app-org.example.Two\\x2dPart\\x20Name-1.scope"), "org.example.Two-Part Name");
    EXPECT_EQ(appIdIn("app-\\xc3\\xa9t\\xc3\\xa9.service"), "\xc3\xa9t\xc3\xa9");
}

TEST_F(AulTest, TheInnermostApplicationUnitDecides) {
    EXPECT_EQ(appIdIn("user.slice/user@1000.service/app.slice/app-viewer-1.scope"), "viewer");
    EXPECT_EQ(appIdIn("app-outer-1.scope/app-inner@2.service"), "inner");
    EXPECT_EQ(appIdIn("app-outer-1.scope/app-outer.slice/worker"), "outer");
}

TEST_F(AulTest, AMalformedUnitIsPassedOver) {
    EXPECT_EQ(appIdIn("app-outer-1.scope/app-inner\\x-1.scope"), "outer");
    EXPECT_EQ(appIdIn("app-outer-1.scope/app-in\\x00ner-1.scope"), "outer");
    EXPECT_EQ(appIdIn("app-outer-1.scope/app--1.scope"), "outer");
    EXPECT_EQ(appIdIn("app-inner\\x-1.scope"), "-1");
}

TEST_F(AulTest, AProcessInNoApplicationUnitIsUnknown) {
    EXPECT_EQ(appIdOf(m_process), "-1");
    EXPECT_EQ(appIdIn("session-2.scope"), "-1");
    EXPECT_EQ(appIdIn("app.slice/app-viewer.slice"), "-1");
}

TEST_F(AulTest, TheOwnProcessIsOneLikeAnyOther) {
    EXPECT_EQ(ask(getpid(), 1023).result, -1);
}

TEST_F(AulTest, AProcessThatIsGoneIsUnknown) {
    Process process;
    process.enter(unifiedFolder() + "/app-viewer-1.scope");
    const int pid = process.id();

    const int before = ask(pid, 1023).result;
    process.endForGood();
    const int after = ask(pid, 1023).result;

    EXPECT_EQ(before, 0);
    EXPECT_EQ(after, -1);
}

TEST_F(AulTest, AProcessThatEndedWithItsUnitIsUnknown) {
    const std::string unit = unifiedFolder() + "/app-outer-1.scope/app-ended-2.scope";
    m_process.enter(unit);

    m_process.end();
    ASSERT_TRUE(becomesTrue([&unit] { return rmdir(unit.c_str()) == 0; }));

    EXPECT_EQ(appIdOf(m_process), "-1");
}

TEST_F(AulTest, AProcessWhosePathIsTooLongForTheKernelIsUnknown) {
    std::string units;
    for (int unit = 0; unit < 20; ++unit) {
        units += "/app-" + std::string(240, 'a') + "-1.scope";
    }

    EXPECT_EQ(appIdIn("app-outer-1.scope" + units), "-1");
}

TEST_F(AulTest, AProcessIdThatNobodyHasIsUnknown) {
    EXPECT_EQ(ask(INT_MAX, 1023).result, -1);
}

TEST_F(AulTest, EveryCallTellsWhatIsSoNow) {
    m_process.enter(unifiedFolder() + "/app-first-1.scope");
    const std::string first = appIdOf(m_process);

    m_process.enter(unifiedFolder() + "/app-second-1.scope");
    const std::string second = appIdOf(m_process);

    EXPECT_EQ(first, "first");
    EXPECT_EQ(second, "second");
}

TEST_F(AulTest, TheNamedHierarchyOfAHybridMachineNamesTheApplication) {
    m_process.enter(namedFolder() + "/app.slice/app-named-1.scope");

    EXPECT_EQ(appIdOf(m_process), "named");
}

TEST_F(AulTest, TheUnifiedHierarchyCountsMoreThanTheNamedOne) {
    m_process.enter(namedFolder() + "/app-named-1.scope");
    m_process.enter(unifiedFolder() + "/app-unified-1.scope");

    EXPECT_EQ(appIdOf(m_process), "unified");
}

TEST_F(AulTest, AnIdShorterThanTheLengthIsTerminated) {
    m_process.enter(unifiedFolder() + "/app-viewer-1.scope");

    const Answer answer = ask(m_process.id(), 7, 10);

    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.buffer, std::string("viewer\0...", 10));
}

TEST_F(AulTest, WhatIsLeftOfTheLengthBehindTheTerminationIsNotTouched) {
    m_process.enter(unifiedFolder() + "/app-viewer-1.scope");

    const Answer answer = ask(m_process.id(), 10, 10);

    EXPECT_EQ(answer.buffer, std::string("viewer\0...", 10));
}

TEST_F(AulTest, AnIdAsLongAsTheLengthIsNotTerminated) {
    m_process.enter(unifiedFolder() + "/app-viewer-1.scope");

    const Answer answer = ask(m_process.id(), 6, 10);

    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.buffer, "viewer....");
}

TEST_F(AulTest, AnIdLongerThanTheLengthIsCut) {
    m_process.enter(unifiedFolder() + "/app-viewer-1.scope");

    const Answer five = ask(m_process.id(), 5, 10);
    const Answer one = ask(m_process.id(), 1, 10);

    EXPECT_EQ(five.result, 0);
    EXPECT_EQ(five.buffer, "viewe.....");
    EXPECT_EQ(one.result, 0);
    EXPECT_EQ(one.buffer, "v.........");
}

// systemd itself names no unit with more than 255 characters, but a cgroup can have more.
TEST_F(AulTest, AnIdOf600CharactersIsCutToALengthOf511) {
    m_process.enter(unifiedFolder() + "/app-" + std::string(600, 'a') + "-1.scope");

    const Answer whole = ask(m_process.id(), 601, 602);
    const Answer cut = ask(m_process.id(), 511, 602);

    EXPECT_EQ(whole.buffer, std::string(600, 'a') + '\0' + '.');
    EXPECT_EQ(cut.result, 0);
    EXPECT_EQ(cut.buffer, std::string(511, 'a') + std::string(91, '.'));
}

TEST_F(AulTest, AFailureLeavesTheBufferAlone) {
    const std::string untouched(16, '.');

    EXPECT_EQ(ask(m_process.id(), 16, 16).buffer, untouched);
    EXPECT_EQ(ask(INT_MAX, 16, 16).buffer, untouched);
    EXPECT_EQ(ask(0, 16, 16).buffer, untouched);
    EXPECT_EQ(ask(m_process.id(), 0, 16).buffer, untouched);
}

TEST_F(AulTest, AnArgumentThatIsNullOrNotAboveZeroIsRefused) {
    m_process.enter(unifiedFolder() + "/app-viewer-1.scope");

    EXPECT_EQ(ask(0, 1023).result, -4);
    EXPECT_EQ(ask(-1, 1023).result, -4);
    EXPECT_EQ(ask(INT_MIN, 1023).result, -4);
    EXPECT_EQ(ask(m_process.id(), 0).result, -4);
    EXPECT_EQ(ask(m_process.id(), -1).result, -4);
    EXPECT_EQ(ask(m_process.id(), INT_MIN).result, -4);
    EXPECT_EQ(aul_app_get_appid_bypid(m_process.id(), nullptr, 1023), -4);
}

TEST_F(AulTest, NoDescriptorStaysOpen) {
    const auto openDescriptors = [] {
        const std::filesystem::directory_iterator descriptors("/proc/self/fd");
        return std::distance(begin(descriptors), end(descriptors));
    };
    m_process.enter(unifiedFolder() + "/app-viewer-1.scope");
    const auto before = openDescriptors();

    const std::string known = appIdOf(m_process);
    const int unknown = ask(getpid(), 1023).result;

    EXPECT_EQ(known, "viewer");
    EXPECT_EQ(unknown, -1);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(AulTest, AnyNumberOfThreadsMayAsk) {
    std::atomic<int> right{0};
    m_process.enter(unifiedFolder() + "/app-viewer-1.scope");

    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([this, &right] {
            for (int call = 0; call < 50; ++call) {
                right += appIdOf(m_process) == "viewer" ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(right, 400);
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    return runWithCgroups([] { return RUN_ALL_TESTS(); });
}
