// SPDX-License-Identifier: Apache-2.0
// The log of a process whose stderr is the journal. The journal is the test itself: it listens where the
// journal listens, and connects the speaker's stderr as the service manager would.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Fields = std::map<std::string, std::string>;

class Descriptor {
public:
    explicit Descriptor(int fd = -1) : m_fd(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    void reset(int fd = -1) {
        if (m_fd >= 0) {
            close(m_fd);
        }
        m_fd = fd;
    }
    int get() const { return m_fd; }

private:
    int m_fd;
};

std::string readAll(int fd) {
    std::string all;
    std::array<char, 8192> part{};
    ssize_t size = 0;
    while ((size = read(fd, part.data(), part.size())) > 0) {
        all.append(part.data(), static_cast<std::size_t>(size));
    }
    return all;
}

Fields parseFields(const std::string& datagram) {
    Fields fields;
    for (std::size_t start = 0; start < datagram.size();) {
        const std::size_t end = std::min(datagram.find('\n', start), datagram.size());
        const std::string line = datagram.substr(start, end - start);
        const std::size_t equals = line.find('=');
        fields[line.substr(0, equals)] = equals == std::string::npos ? "" : line.substr(equals + 1);
        start = end + 1;
    }
    return fields;
}

class DlogJournalTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories("/run/systemd/journal");
        std::filesystem::remove("/run/systemd/journal/socket");
        m_journal.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        sockaddr_un address{AF_UNIX, "/run/systemd/journal/socket"};
        ASSERT_EQ(bind(m_journal.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        std::array<int, 2> stream{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, stream.data()), 0);
        m_streamReader.reset(stream[0]);
        m_stream.reset(stream[1]);
        struct stat status {};
        ASSERT_EQ(fstat(m_stream.get(), &status), 0);
        m_streamName = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    }

    // Runs the speaker to its end with stderr connected to the stream and the given JOURNAL_STREAM.
    pid_t speak(std::vector<std::string> arguments, const std::optional<std::string>& journalStream) {
        std::array<int, 2> output{};
        EXPECT_EQ(pipe2(output.data(), O_CLOEXEC), 0);
        Descriptor outputReader(output[0]);
        Descriptor outputWriter(output[1]);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, outputWriter.get(), STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, m_stream.get(), STDERR_FILENO);
        arguments.insert(arguments.begin(), DLOG_SPEAKER);
        std::vector<char*> argv;
        argv.reserve(arguments.size() + 1);
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        std::string variable = "JOURNAL_STREAM=" + journalStream.value_or("");
        std::array<char*, 2> environment{journalStream ? variable.data() : nullptr, nullptr};
        pid_t speaker = -1;
        EXPECT_EQ(posix_spawn(&speaker, DLOG_SPEAKER, &actions, nullptr, argv.data(), environment.data()), 0);
        posix_spawn_file_actions_destroy(&actions);
        outputWriter.reset();
        m_stream.reset();
        m_output = readAll(outputReader.get());
        m_stderr = readAll(m_streamReader.get());
        int status = -1;
        waitpid(speaker, &status, 0);
        EXPECT_EQ(status, 0) << m_stderr;
        return speaker;
    }

    // The oldest entry that the journal was sent; empty when there is none. To be called when the speaker is
    // gone.
    Fields nextEntry() {
        std::array<char, 16384> datagram{};
        const ssize_t size = recv(m_journal.get(), datagram.data(), datagram.size(), 0);
        return size <= 0 ? Fields() : parseFields({datagram.data(), static_cast<std::size_t>(size)});
    }

    const std::string& streamName() const { return m_streamName; }
    const std::string& output() const { return m_output; }
    const std::string& stderrText() const { return m_stderr; }

private:
    Descriptor m_journal;
    Descriptor m_streamReader;
    Descriptor m_stream;
    std::string m_streamName;
    std::string m_output;
    std::string m_stderr;
};

TEST_F(DlogJournalTest, AnEntryHasTextPriorityTagAndThreadAndNothingElse) {
    const pid_t speaker = speak({"4", "THE_TAG", "the text"}, streamName());

    const Fields expected{{"MESSAGE", "the text"},
                          {"PRIORITY", "6"},
                          {"SYSLOG_IDENTIFIER", "THE_TAG"},
                          {"TID", std::to_string(speaker)}};
    EXPECT_EQ(nextEntry(), expected);
    EXPECT_THAT(nextEntry(), IsEmpty());
    EXPECT_EQ(stderrText(), "");
    EXPECT_EQ(output(), "8\n");
}

class DlogJournalPriorityTest : public DlogJournalTest,
                                public ::testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(DlogJournalPriorityTest, APriorityIsTheJournalsPriority) {
    speak({GetParam().first, "T", "x"}, streamName());

    EXPECT_EQ(nextEntry()["PRIORITY"], GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(All, DlogJournalPriorityTest,
                         ::testing::Values(std::pair("3", "7"), std::pair("4", "6"), std::pair("5", "4"),
                                           std::pair("6", "3"), std::pair("7", "2")));

TEST_F(DlogJournalTest, ControlCharactersAreEscapedInTextAndTag) {
    speak({"4", "T\nPRIORITY=0", "a\nPRIORITY=0\x1b"}, streamName());

    const Fields entry = nextEntry();
    EXPECT_EQ(entry.at("MESSAGE"), "a\\x0aPRIORITY=0\\x1b");
    EXPECT_EQ(entry.at("SYSLOG_IDENTIFIER"), "T\\x0aPRIORITY=0");
    EXPECT_EQ(entry.at("PRIORITY"), "6");
}

TEST_F(DlogJournalTest, ATextIsCutAt4076Bytes) {
    speak({"4", "T", std::string(5000, 'x')}, streamName());

    EXPECT_EQ(nextEntry()["MESSAGE"], std::string(4076, 'x'));
    EXPECT_EQ(output(), "4076\n");
}

TEST_F(DlogJournalTest, ATextIsNotCutInsideACharacter) {
    speak({"4", "T", std::string(4075, 'x') + "\xc3\xa9z"}, streamName());

    EXPECT_EQ(nextEntry()["MESSAGE"], std::string(4075, 'x'));
}

TEST_F(DlogJournalTest, AStderrOnAnotherDeviceThanTheVariableNamesGetsTheLine) {
    speak({"4", "T", "the text"}, "1" + streamName());

    EXPECT_THAT(stderrText(), AllOf(HasSubstr(" I/T       (P"), HasSubstr("): the text\n")));
    EXPECT_THAT(nextEntry(), IsEmpty());
}

TEST_F(DlogJournalTest, AStderrOfAnotherInodeThanTheVariableNamesGetsTheLine) {
    speak({"4", "T", "the text"}, streamName() + "1");

    EXPECT_THAT(stderrText(), HasSubstr("): the text\n"));
    EXPECT_THAT(nextEntry(), IsEmpty());
}

TEST_F(DlogJournalTest, WithoutTheVariableStderrGetsTheLine) {
    speak({"4", "T", "the text"}, std::nullopt);

    EXPECT_THAT(stderrText(), HasSubstr("): the text\n"));
    EXPECT_THAT(nextEntry(), IsEmpty());
}

TEST_F(DlogJournalTest, AMalformedVariableMeansStderr) {
    speak({"4", "T", "the text"}, streamName() + "x");

    EXPECT_THAT(stderrText(), HasSubstr("): the text\n"));
    EXPECT_THAT(nextEntry(), IsEmpty());
}

TEST_F(DlogJournalTest, AStderrThatWasMovedElsewhereGetsTheLine) {
    speak({"--moved", "the text"}, streamName());

    EXPECT_THAT(output(), HasSubstr("): the text\n"));
    EXPECT_THAT(nextEntry(), IsEmpty());
}

TEST_F(DlogJournalTest, AChildOfForkSpeaksUnderItsTagAndItsThread) {
    const pid_t speaker = speak({"--fork", "the text"}, streamName());

    Fields entry = nextEntry();
    EXPECT_EQ(entry["MESSAGE"], "the text");
    EXPECT_EQ(entry["SYSLOG_IDENTIFIER"], "FORK");
    EXPECT_NE(entry["TID"], std::to_string(speaker));
}

TEST_F(DlogJournalTest, AMessageOfAVforkChildDoesNotHarmItsParentsLog) {
    speak({"--vfork", "speaks"}, streamName());

    // Where vfork is a real one the child's line comes over stderr, which the journal reads, too.
    std::string everything = stderrText();
    std::string last;
    for (Fields entry = nextEntry(); !entry.empty(); entry = nextEntry()) {
        last = entry["MESSAGE"];
        everything += last;
    }
    EXPECT_THAT(everything, HasSubstr("child speaks"));
    EXPECT_EQ(last, "parent speaks");
}

}  // namespace
