// SPDX-License-Identifier: Apache-2.0
// The log as it looks on stderr, each write(2) being one packet.
#include <dlog.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/StderrPackets.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

std::string messageOf(const std::string& line) {
    const std::size_t start = line.find("): ");
    return start == std::string::npos ? "no header in: " + line : line.substr(start + 3);
}

TEST(DlogTest, ALineHasTimeZonePriorityTagProcessAndThread) {
    StderrPackets packets;

    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "TAG", "hello %d", 7);

    const std::string line = packets.next().value_or("");
    EXPECT_THAT(
        line, MatchesRegex("[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9][.][0-9][0-9][0-9][+-][0-9]"
                           "[0-9][0-9][0-9] I/TAG     [(]P *[0-9]+, T *[0-9]+[)]: hello 7\n"));
    char ids[64];
    std::snprintf(ids, sizeof ids, "I/TAG     (P%5d, T%5d): ", static_cast<int>(getpid()),
                  static_cast<int>(syscall(SYS_gettid)));
    EXPECT_THAT(line, HasSubstr(ids));
}

TEST(DlogTest, TheTimeIsLocalTimeWithItsOffset) {
    StderrPackets packets;
    setenv("TZ", "XYZ-05:30", 1);
    tzset();
    const std::time_t before = std::time(nullptr);

    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "x");

    const std::string line = packets.next().value_or("");
    tm parsed{};
    tm today{};
    localtime_r(&before, &today);
    ASSERT_NE(strptime(line.c_str(), "%m-%d %H:%M:%S", &parsed), nullptr);
    parsed.tm_year = today.tm_year;
    parsed.tm_isdst = -1;
    const std::time_t logged = std::mktime(&parsed);
    unsetenv("TZ");
    tzset();
    EXPECT_GE(logged, before);
    EXPECT_LE(logged, std::time(nullptr));
    EXPECT_EQ(line.substr(18, 5), "+0530");
}

TEST(DlogTest, TheThreadIsTheCallersNotTheProcess) {
    StderrPackets packets;
    char id[32] = "";

    std::thread([&id] {
        std::snprintf(id, sizeof id, ", T%5d): ", static_cast<int>(syscall(SYS_gettid)));
        __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "x");
    }).join();

    EXPECT_THAT(packets.next().value_or(""), HasSubstr(id));
}

TEST(DlogTest, EachPriorityHasItsLetter) {
    StderrPackets packets;

    for (const int priority : {3, 4, 5, 6, 7}) {
        __dlog_print(LOG_ID_MAIN, priority, "T", "x");
    }

    for (const char* letter : {" D/T ", " I/T ", " W/T ", " E/T ", " F/T "}) {
        EXPECT_THAT(packets.next().value_or(""), HasSubstr(letter));
    }
}

TEST(DlogTest, ALongTagIsNotPaddedNorCut) {
    StderrPackets packets;

    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "LONGER_THAN_EIGHT", "x");

    EXPECT_THAT(packets.next().value_or(""), HasSubstr("I/LONGER_THAN_EIGHT(P"));
}

TEST(DlogTest, ControlCharactersOfTheTextAreEscaped) {
    StderrPackets packets;

    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%s", "a\nb\tc\x1b[0m\r\x7f\x01 d\n");

    EXPECT_EQ(messageOf(packets.next().value_or("")), "a\\x0ab\\x09c\\x1b[0m\\x0d\\x7f\\x01 d\\x0a\n");
}

TEST(DlogTest, ControlCharactersOfTheTagAreEscaped) {
    StderrPackets packets;

    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T\nA", "x");

    EXPECT_THAT(packets.next().value_or(""), HasSubstr("I/T\\x0aA  (P"));
}

TEST(DlogTest, BytesFrom0x80OnPass) {
    StderrPackets packets;

    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%s", "\xc3\xa9\xff\x80");

    EXPECT_EQ(messageOf(packets.next().value_or("")), "\xc3\xa9\xff\x80\n");
}

TEST(DlogTest, ALineOf4076BytesIsWholeAndALongerOneIsCut) {
    StderrPackets packets;
    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%s", "");
    const std::size_t header = packets.next().value_or("").size() - 1;

    const int whole =
        __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%s", std::string(4076 - header, 'w').c_str());
    const int cut = __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%s", std::string(4077 - header, 'c').c_str());
    const int huge = __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%s", std::string(100000, 'h').c_str());

    EXPECT_EQ(messageOf(packets.next().value_or("")), std::string(4076 - header, 'w') + "\n");
    EXPECT_EQ(messageOf(packets.next().value_or("")), std::string(4076 - header, 'c') + "\n");
    EXPECT_EQ(packets.next().value_or("").size(), 4077U);
    EXPECT_EQ(whole, 4077);
    EXPECT_EQ(cut, 4077);
    EXPECT_EQ(huge, 4077);
}

TEST(DlogTest, ALineIsNotCutInsideAnEscape) {
    StderrPackets packets;
    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%s", "");
    const std::size_t header = packets.next().value_or("").size() - 1;
    const std::string filling(4076 - header - 3, 'x');

    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%s\nmore", filling.c_str());

    EXPECT_EQ(messageOf(packets.next().value_or("")), filling + "\n");
}

TEST(DlogTest, ALineIsNotCutInsideACharacter) {
    for (const std::string character : {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"}) {
        for (std::size_t room = 1; room <= character.size(); ++room) {
            StderrPackets packets;
            __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%s", "");
            const std::size_t header = packets.next().value_or("").size() - 1;
            const std::string filling(4076 - header - room, 'x');

            __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%s%sz", filling.c_str(), character.c_str());

            const std::string expected = room == character.size() ? filling + character : filling;
            EXPECT_EQ(messageOf(packets.next().value_or("")), expected + "\n");
        }
    }
}

TEST(DlogTest, AnEndlessTagIsCutToo) {
    StderrPackets packets;

    __dlog_print(LOG_ID_MAIN, DLOG_INFO, std::string(5000, 't').c_str(), "x");

    EXPECT_EQ(packets.next().value_or("").size(), 4077U);
}

TEST(DlogTest, TheResultIsTheNumberOfBytesWritten) {
    StderrPackets packets;

    const int written = __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "five!");

    EXPECT_EQ(static_cast<std::size_t>(written), packets.next().value_or("").size());
}

TEST(DlogTest, BadArgumentsAreRefusedAndWriteNothing) {
    StderrPackets packets;
    const char* volatile none = nullptr;

    EXPECT_LT(__dlog_print(LOG_ID_MAIN, 2, "T", "x"), 0);
    EXPECT_LT(__dlog_print(LOG_ID_MAIN, 8, "T", "x"), 0);
    EXPECT_LT(__dlog_print(LOG_ID_MAIN, -1, "T", "x"), 0);
    EXPECT_LT(__dlog_print(LOG_ID_MAIN, DLOG_INFO, none, "x"), 0);
    EXPECT_LT(__dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", none, 1), 0);

    EXPECT_FALSE(packets.next().has_value());
}

TEST(DlogTest, ATextThatCannotBeFormattedIsRefused) {
    StderrPackets packets;
    const wchar_t unpaired[] = {static_cast<wchar_t>(0xd800), 0};

    const int result = __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "%ls", unpaired);

    EXPECT_LT(result, 0);
    EXPECT_FALSE(packets.next().has_value());
}

TEST(DlogTest, ErrnoIsTheCallersInTheFormatAndAfterwards) {
    StderrPackets packets;
    const std::string format = "%s: %m";  // %m is no ISO C++, as the compiler would say of a literal

    errno = ENOENT;
    __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", format.c_str(), "open");
    const int after = errno;

    EXPECT_EQ(after, ENOENT);
    EXPECT_EQ(messageOf(packets.next().value_or("")), "open: No such file or directory\n");
}

TEST(DlogTest, ErrnoSurvivesALogThatNobodyTakes) {
    const int saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    close(STDERR_FILENO);

    errno = ERANGE;
    const int result = __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "x");
    const int after = errno;
    dup2(saved, STDERR_FILENO);
    close(saved);

    EXPECT_LT(result, 0);
    EXPECT_EQ(after, ERANGE);
}

TEST(DlogTest, FatalDoesNotEndTheProcess) {
    StderrPackets packets;

    const int written = __dlog_print(LOG_ID_MAIN, DLOG_FATAL, "T", "the end");

    EXPECT_GT(written, 0);
    EXPECT_THAT(packets.next().value_or(""), EndsWith(": the end\n"));
}

TEST(DlogTest, MessagesOfManyThreadsArriveWholeAndOnce) {
    constexpr int kThreads = 8;
    constexpr int kMessages = 200;
    StderrPackets packets;
    std::multiset<std::string> seen;
    std::multiset<std::string> said;
    for (int thread = 0; thread < kThreads; ++thread) {
        for (int message = 0; message < kMessages; ++message) {
            said.insert("thread " + std::to_string(thread) + " message " + std::to_string(message) + "\n");
        }
    }

    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread] {
            for (int message = 0; message < kMessages; ++message) {
                __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "thread %d message %d", thread, message);
            }
        });
    }
    for (int message = 0; message < kThreads * kMessages; ++message) {
        seen.insert(messageOf(packets.await().value_or("nothing came")));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(seen, said);
    EXPECT_FALSE(packets.next().has_value());
}

TEST(DlogTest, AChildLogsUnderItsOwnNumber) {
    StderrPackets packets;

    const pid_t child = fork();
    if (child == 0) {
        __dlog_print(LOG_ID_MAIN, DLOG_INFO, "T", "from the child");
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    char ids[64];
    std::snprintf(ids, sizeof ids, "(P%5d, T%5d): from the child", static_cast<int>(child),
                  static_cast<int>(child));

    EXPECT_THAT(packets.next().value_or(""), HasSubstr(ids));
}

}  // namespace
