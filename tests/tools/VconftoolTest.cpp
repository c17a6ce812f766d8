// SPDX-License-Identifier: Apache-2.0
// vconftool as whoever calls it sees it: arguments, output, exit status, and what the settings are then.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vconf.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/Files.h"
#include "support/Wait.h"

namespace {

namespace fs = std::filesystem;

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

using Arguments = std::vector<std::string>;

constexpr const char* kFolder = "/run/zel-platform/vconf/memory/test";

// A started program, killed when nobody waited for its end.
class Program {
public:
    explicit Program(Arguments arguments, const char* path = VCONFTOOL, const char* output = nullptr)
        : m_name("/tmp/program-" + std::to_string(++s_count)) {
        std::vector<char*> argv{const_cast<char*>("vconftool")};
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions{};
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO,
                                         output == nullptr ? outputFile().c_str() : output,
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile().c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        EXPECT_EQ(posix_spawn(&m_pid, path, &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Program() {
        if (m_pid > 0) {
            end(SIGKILL);
            wait();
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Waits for its end. Gives the exit status, or the negative number of the signal that ended it.
    int wait() {
        if (m_pid > 0) {
            waitpid(m_pid, &m_status, 0);
            m_pid = -1;
        }
        return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -WTERMSIG(m_status);
    }
    bool runs() {
        if (m_pid > 0 && waitpid(m_pid, &m_status, WNOHANG) == m_pid) {
            m_pid = -1;
        }
        return m_pid > 0;
    }
    void end(int signal) const { kill(m_pid, signal); }
    std::string output() const { return readFile(outputFile()); }
    std::string errors() const { return readFile(errorFile()); }

private:
    std::string outputFile() const { return m_name + ".out"; }
    std::string errorFile() const { return m_name + ".err"; }

    static inline int s_count = 0;
    std::string m_name;
    pid_t m_pid = -1;
    int m_status = 0;
};

struct Outcome {
    int status;
    std::string output;
    std::string errors;
};

Outcome run(const Arguments& arguments) {
    Program program(arguments);
    const int status = program.wait();
    return {status, program.output(), program.errors()};
}

void expectDone(const Arguments& arguments, const std::string& output) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, output);
    EXPECT_EQ(outcome.errors, "");
}

void expectRefused(const Arguments& arguments, const std::string& error) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "vconftool: " + error + "\n");
}

std::string textOf(const char* key) {
    const std::unique_ptr<char, decltype(&std::free)> text(vconf_get_str(key), &std::free);
    return text ? text.get() : "none";
}

int numberOf(const char* key) {
    int number = 12345;
    vconf_get_int(key, &number);
    return number;
}

void putKeyFile(const std::string& contents) {
    fs::create_directories(kFolder);
    writeFile(std::string(kFolder) + "/key", contents);
}

class VconftoolTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::remove_all("/run/zel-platform");
        fs::remove_all("/var/lib/zel-platform");
    }
};

TEST_F(VconftoolTest, GetPrintsTheKeyItsValueAndItsType) {
    vconf_set_int("memory/test/int", -5);
    vconf_set_bool("memory/test/bool", 1);
    vconf_set_dbl("db/test/double", 2.5);
    vconf_set_str("file/test/string", "two words");

    expectDone({"get", "memory/test/int"}, "memory/test/int, value = -5 (int)\n");
    expectDone({"get", "memory/test/bool"}, "memory/test/bool, value = 1 (bool)\n");
    expectDone({"get", "db/test/double"}, "db/test/double, value = 2.5 (double)\n");
    expectDone({"get", "file/test/string"}, "file/test/string, value = two words (string)\n");
}

TEST_F(VconftoolTest, GetSaysThatAKeyHasNoValue) {
    expectRefused({"get", "memory/test/none"}, "memory/test/none: has no value");
}

TEST_F(VconftoolTest, GetTakesAFileThatIsNoValueForNone) {
    putKeyFile("int\nfive");

    expectRefused({"get", "memory/test/key"}, "memory/test/key: has no value");
}

TEST_F(VconftoolTest, AValueTakesOneLineWhateverIsInIt) {
    vconf_set_str("memory/test/key", "a\nb\x1b[2J\x7f\xc3\xa9");

    expectDone({"get", "memory/test/key"},
               "memory/test/key, value = a\\x0ab\\x1b[2J\\x7f\xc3\xa9 (string)\n");
}

TEST_F(VconftoolTest, WhatIsNoKeyIsRefusedByEveryCommandWithTheRule) {
    const std::string rule =
        "is no key; one begins with memory/, db/ or file/, and none of its parts is empty, '.', '..' or "
        "begins with "
        "'.vconf-'";

    expectRefused({"get", "etc/passwd"}, "etc/passwd: " + rule);
    expectRefused({"set", "-t", "int", "memory/../key", "1"}, "memory/../key: " + rule);
    expectRefused({"unset", "memory"}, "memory: " + rule);
    expectRefused({"watch", "memory/test/key", "memory//key"}, "memory//key: " + rule);
    expectRefused({"get", "memory/a\nb"}, "memory/a\\x0ab: " + rule);
}

TEST_F(VconftoolTest, SetMakesAKeyOfTheGivenType) {
    int truth = 99;
    double real = 99;

    expectDone({"set", "-t", "int", "memory/test/int", "2147483647"}, "");
    expectDone({"set", "-t", "bool", "memory/test/bool", "1"}, "");
    expectDone({"set", "-t", "double", "memory/test/double", "-0.25"}, "");
    expectDone({"set", "-t", "string", "memory/test/string", "5"}, "");

    EXPECT_EQ(numberOf("memory/test/int"), 2147483647);
    EXPECT_EQ(vconf_get_bool("memory/test/bool", &truth), 0);
    EXPECT_EQ(truth, 1);
    EXPECT_EQ(vconf_get_dbl("memory/test/double", &real), 0);
    EXPECT_EQ(real, -0.25);
    EXPECT_EQ(textOf("memory/test/string"), "5");
}

TEST_F(VconftoolTest, ABoolMayBeAWord) {
    int truth = 99;

    expectDone({"set", "-t", "bool", "memory/test/key", "true"}, "");
    vconf_get_bool("memory/test/key", &truth);
    EXPECT_EQ(truth, 1);

    expectDone({"set", "-t", "bool", "memory/test/key", "false"}, "");
    vconf_get_bool("memory/test/key", &truth);
    EXPECT_EQ(truth, 0);
}

TEST_F(VconftoolTest, OptionsOfSetMayStandAnywhere) {
    expectDone({"set", "-t", "int", "memory/test/key", "1", "-f"}, "");
    EXPECT_EQ(numberOf("memory/test/key"), 1);

    expectDone({"set", "memory/test/key", "2", "--force", "--type", "int"}, "");
    EXPECT_EQ(numberOf("memory/test/key"), 2);
}

TEST_F(VconftoolTest, ANegativeNumberIsAValue) {
    expectDone({"set", "-t", "int", "memory/test/key", "-7", "-f"}, "");

    EXPECT_EQ(numberOf("memory/test/key"), -7);
}

TEST_F(VconftoolTest, ATextIsTakenAsItStands) {
    for (const char* text :
         {"", " ", "[1,2]", "\"quoted\"", "'q'", "a=b", "two\nlines", "\xc3\xa9", "get", "%d"}) {
        SCOPED_TRACE(text);
        expectDone({"set", "-t", "string", "memory/test/key", text}, "");
        EXPECT_EQ(textOf("memory/test/key"), text);
    }
}

TEST_F(VconftoolTest, ATextThatLooksLikeAnOptionComesAfterTwoDashes) {
    expectDone({"set", "-t", "string", "memory/test/key", "--", "--force"}, "");

    EXPECT_EQ(textOf("memory/test/key"), "--force");
}

TEST_F(VconftoolTest, AKeyOfAnotherTypeIsLeftAlone) {
    vconf_set_int("memory/test/key", 5);

    expectRefused({"set", "-t", "string", "memory/test/key", "on"},
                  "memory/test/key: expected int, which the key is, found string; -f changes the type");

    EXPECT_EQ(numberOf("memory/test/key"), 5);
}

TEST_F(VconftoolTest, ForceChangesTheType) {
    vconf_set_int("memory/test/key", 5);

    expectDone({"set", "-t", "string", "memory/test/key", "on", "-f"}, "");

    EXPECT_EQ(textOf("memory/test/key"), "on");
}

TEST_F(VconftoolTest, AKeyThatCannotBeReadHasNoTypeToKeep) {
    putKeyFile("garbage");

    expectDone({"set", "-t", "int", "memory/test/key", "3"}, "");

    EXPECT_EQ(numberOf("memory/test/key"), 3);
}

TEST_F(VconftoolTest, AValueThatIsNoneOfTheTypeIsRefusedAndChangesNothing) {
    const std::vector<std::pair<const char*, const char*>> rows{
        {"int", ""},     {"int", "five"},       {"int", "5 "},  {"int", " 5"},     {"int", "+5"},
        {"int", "0x5"},  {"int", "2147483648"}, {"int", "1.5"}, {"int", "-"},      {"bool", "2"},
        {"bool", ""},    {"bool", "TRUE"},      {"bool", "on"}, {"double", "1,5"}, {"double", ""},
        {"double", "x"}, {"double", "1.5 "},
    };
    for (const auto& [type, value] : rows) {
        SCOPED_TRACE(std::string(type) + " '" + value + "'");
        vconf_set_str("memory/test/key", "before");

        expectRefused({"set", "-t", type, "memory/test/key", value, "-f"},
                      std::string("memory/test/key: expected ") + type + ", found '" + value + "'");

        EXPECT_EQ(textOf("memory/test/key"), "before");
    }
}

TEST_F(VconftoolTest, AKeyThatCannotBeWrittenIsNamed) {
    vconf_set_int("memory/test/key", 1);

    expectRefused({"set", "-t", "int", "memory/test", "1"}, "memory/test: could not be written");
    expectRefused({"set", "-t", "int", "memory/test/key/below", "1"},
                  "memory/test/key/below: could not be written");

    EXPECT_EQ(numberOf("memory/test/key"), 1);
}

TEST_F(VconftoolTest, UnsetRemovesAKeyOnce) {
    vconf_set_int("memory/test/key", 1);

    expectDone({"unset", "memory/test/key"}, "");
    EXPECT_FALSE(exists(std::string(kFolder) + "/key"));

    expectRefused({"unset", "memory/test/key"}, "memory/test/key: is not there, or could not be removed");
}

TEST_F(VconftoolTest, LsPrintsAFolderSortedByName) {
    vconf_set_str("memory/test/b", "text");
    vconf_set_int("memory/test/a/deep", 1);
    vconf_set_int("memory/test/c", 2);
    const std::string lines =
        "memory/test/a/\n"
        "memory/test/b, value = text (string)\n"
        "memory/test/c, value = 2 (int)\n";

    expectDone({"ls", "memory/test"}, lines);
    expectDone({"ls", "memory/test/"}, lines);
    expectDone({"ls", "memory"}, "memory/test/\n");
}

TEST_F(VconftoolTest, RecursiveLsPrintsTheKeysOfFoldersInTheirPlace) {
    vconf_set_int("memory/test/b/deep/deeper", 3);
    vconf_set_int("memory/test/a", 1);
    vconf_set_int("memory/test/b/deep/a", 2);
    vconf_set_int("memory/test/c", 4);
    const std::string lines =
        "memory/test/a, value = 1 (int)\n"
        "memory/test/b/deep/a, value = 2 (int)\n"
        "memory/test/b/deep/deeper, value = 3 (int)\n"
        "memory/test/c, value = 4 (int)\n";

    expectDone({"ls", "-r", "memory"}, lines);
    expectDone({"ls", "memory", "--recursive"}, lines);
}

TEST_F(VconftoolTest, LsTellsWhichKeysHaveNoValue) {
    putKeyFile("garbage");

    expectDone({"ls", "memory/test"}, "memory/test/key, no value\n");
}

TEST_F(VconftoolTest, LsLeavesOutWhatIsBeingWritten) {
    vconf_set_int("memory/test/key", 1);
    writeFile(std::string(kFolder) + "/.vconf-1-0", "int\n2");

    expectDone({"ls", "-r", "memory"}, "memory/test/key, value = 1 (int)\n");
}

TEST_F(VconftoolTest, LsRefusesWhatIsNoFolder) {
    vconf_set_int("memory/test/key", 1);

    expectRefused({"ls", "memory/none"}, "memory/none: is no folder of keys");
    expectRefused({"ls", "memory/test/key"}, "memory/test/key: is no folder of keys");
    expectRefused({"ls", "memory/../.."}, "memory/../..: is no folder of keys");
}

// Whether the program watches by now: it prints changes.
bool hasSeenAChange(const Program& program) {
    return becomesTrue([&program] {
        vconf_set_int("memory/test/first", 0);
        return !program.output().empty();
    });
}

bool prints(const Program& program, const std::string& line) {
    return becomesTrue([&] { return program.output().find(line + '\n') != std::string::npos; });
}

TEST_F(VconftoolTest, WatchPrintsEachChangeOfEachKeyAtOnce) {
    const Program program({"watch", "memory/test/first", "db/test/second"});
    ASSERT_TRUE(hasSeenAChange(program));

    vconf_set_int("memory/test/first", 4);
    EXPECT_TRUE(prints(program, "memory/test/first, value = 4 (int)"));

    vconf_set_str("db/test/second", "two\nlines");
    EXPECT_TRUE(prints(program, "db/test/second, value = two\\x0alines (string)"));
}

TEST_F(VconftoolTest, WatchTellsThatAKeyWasRemoved) {
    const Program program({"watch", "memory/test/first"});
    ASSERT_TRUE(hasSeenAChange(program));

    vconf_unset("memory/test/first");

    EXPECT_TRUE(prints(program, "memory/test/first, no value"));
}

TEST_F(VconftoolTest, WatchPrintsNothingAboutOtherKeys) {
    const Program program({"watch", "memory/test/first"});
    ASSERT_TRUE(hasSeenAChange(program));

    vconf_set_int("memory/test/other", 4);
    vconf_set_int("memory/test/first", 5);

    ASSERT_TRUE(prints(program, "memory/test/first, value = 5 (int)"));
    EXPECT_EQ(program.output().find("other"), std::string::npos);
}

TEST_F(VconftoolTest, AKeyMayBeGivenTwiceToWatch) {
    const Program program({"watch", "memory/test/first", "memory/test/first"});

    EXPECT_TRUE(hasSeenAChange(program));
}

TEST_F(VconftoolTest, WatchEndsByASignal) {
    Program program({"watch", "memory/test/first"});
    ASSERT_TRUE(hasSeenAChange(program));
    EXPECT_TRUE(program.runs());

    program.end(SIGTERM);

    ASSERT_TRUE(becomesTrue([&program] { return !program.runs(); }));
    EXPECT_EQ(program.wait(), -SIGTERM);
    EXPECT_EQ(program.errors(), "");
}

TEST_F(VconftoolTest, AKeyThatCannotBeWatchedIsNamed) {
    vconf_set_int("memory/test/key", 1);

    expectRefused({"watch", "memory/test/key/below"}, "memory/test/key/below: can't be watched");
}

TEST_F(VconftoolTest, OutputThatCannotBeWrittenIsAFailure) {
    vconf_set_int("memory/test/first", 1);
    vconf_set_int("memory/test/second", 2);
    for (const Arguments& arguments :
         {Arguments{"get", "memory/test/first"}, Arguments{"ls", "memory/test"}}) {
        Program program(arguments, VCONFTOOL, "/dev/full");

        EXPECT_EQ(program.wait(), 1);
        EXPECT_EQ(program.errors(), "vconftool: standard output: could not be written\n");
    }
}

TEST_F(VconftoolTest, WatchEndsWhenItCannotPrint) {
    Program program({"watch", "memory/test/first"}, VCONFTOOL, "/dev/full");

    ASSERT_TRUE(becomesTrue([&program] {
        vconf_set_int("memory/test/first", 0);
        return !program.runs();
    }));

    EXPECT_EQ(program.wait(), 1);
    EXPECT_EQ(program.errors(), "vconftool: standard output: could not be written\n");
}

TEST_F(VconftoolTest, ACommandLineThatMakesNoSenseIsAnswered2) {
    for (const Arguments& arguments :
         {Arguments{}, Arguments{"put"}, Arguments{"get"}, Arguments{"get", "memory/a", "memory/b"},
          Arguments{"set", "memory/test/key", "1"}, Arguments{"set", "-t", "int", "memory/test/key"},
          Arguments{"set", "-t", "long", "memory/test/key", "1"},
          Arguments{"set", "-t", "string", "memory/test/key", "--force-it"}, Arguments{"unset"},
          Arguments{"ls"}, Arguments{"watch"}, Arguments{"get", "memory/test/key", "--nothing"}}) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const Outcome outcome = run(arguments);

        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.output, "");
        EXPECT_FALSE(outcome.errors.empty());
    }
    EXPECT_FALSE(exists("/run/zel-platform"));
}

TEST_F(VconftoolTest, AnUnknownTypeIsAnsweredWithTheKnownOnes) {
    EXPECT_THAT(run({"set", "-t", "long", "memory/test/key", "1"}).errors,
                StartsWith("--type: long not in {int,bool,double,string}\n"));
}

TEST_F(VconftoolTest, HelpNamesTheCommands) {
    const Outcome outcome = run({"--help"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.errors, IsEmpty());
    for (const char* command : {"\n  get", "\n  set", "\n  unset", "\n  ls", "\n  watch"}) {
        EXPECT_THAT(outcome.output, HasSubstr(command));
    }
}

TEST_F(VconftoolTest, KilledBetweenWritingAndRenamingItLeavesTheOldValue) {
    vconf_set_str("memory/test/key", "old");

    Program program({"set", "-t", "string", "memory/test/key", "new"}, VCONFTOOL_KILLED);

    EXPECT_EQ(program.wait(), -SIGKILL);
    EXPECT_EQ(textOf("memory/test/key"), "old");
    std::vector<std::string> written;
    for (const auto& entry : fs::directory_iterator(kFolder)) {
        if (entry.path().filename() != "key") {
            written.push_back(readFile(entry.path()));
        }
    }
    EXPECT_THAT(written, ::testing::ElementsAre("string\nnew"));
    expectDone({"ls", "memory/test"}, "memory/test/key, value = old (string)\n");
    expectDone({"set", "-t", "string", "memory/test/key", "newer"}, "");
    EXPECT_EQ(textOf("memory/test/key"), "newer");
}

TEST_F(VconftoolTest, TwoWritersNeverMix) {
    constexpr int kRounds = 50;
    const std::string shorter(20000, 'a');
    const std::string longer(100000, 'b');
    vconf_set_str("memory/test/key", shorter.c_str());

    for (int round = 0; round < kRounds; ++round) {
        Program first({"set", "-t", "string", "memory/test/key", shorter});
        Program second({"set", "-t", "string", "memory/test/key", longer});
        while (first.runs() || second.runs()) {
            const std::string read = textOf("memory/test/key");
            ASSERT_TRUE(read == shorter || read == longer)
                << "round " << round << ", " << read.size() << " bytes";
        }
        EXPECT_EQ(first.wait(), 0);
        EXPECT_EQ(second.wait(), 0);
    }
}

}  // namespace
