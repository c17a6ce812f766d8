// SPDX-License-Identifier: Apache-2.0
// Values: reading, writing, and the files that they are in.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vconf.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;

constexpr const char* kMemoryFolder = "/run/zel-platform/vconf/memory/test";

struct Free {
    void operator()(char* text) const { std::free(text); }
};
using CText = std::unique_ptr<char, Free>;

std::string contentsOf(const fs::path& path) {
    std::ostringstream contents;
    contents << std::ifstream(path, std::ios::binary).rdbuf();
    return contents.str();
}

std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    return names;
}

void addName(const char* name, int isFolder, void* names) {
    static_cast<std::vector<std::string>*>(names)->push_back(std::string(name) +
                                                             (isFolder == 1 ? " folder" : ""));
}

std::vector<std::string> listed(const char* folder) {
    std::vector<std::string> names;
    EXPECT_EQ(vconf_list(folder, addName, &names), 0);
    return names;
}

class VconfTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::remove_all("/run/zel-platform");
        fs::remove_all("/var/lib/zel-platform");
    }

    // Puts bytes of anybody's choice where the value of memory/test/key is.
    static void putKeyFile(const std::string& contents) {
        fs::create_directories(kMemoryFolder);
        std::ofstream(fs::path(kMemoryFolder) / "key", std::ios::binary) << contents;
    }

    static void expectUnreadable() {
        int number = 1234;
        int truth = 1234;
        double real = 12.5;
        EXPECT_EQ(vconf_get_int("memory/test/key", &number), -1);
        EXPECT_EQ(vconf_get_bool("memory/test/key", &truth), -1);
        EXPECT_EQ(vconf_get_dbl("memory/test/key", &real), -1);
        EXPECT_EQ(CText(vconf_get_str("memory/test/key")), nullptr);
        EXPECT_EQ(vconf_get_key_type("memory/test/key"), 0);
        EXPECT_EQ(number, 1234);
        EXPECT_EQ(truth, 1234);
        EXPECT_EQ(real, 12.5);
    }
};

TEST_F(VconfTest, TheTypesHaveTheSetsNumbers) {
    EXPECT_EQ(VCONF_TYPE_NONE, 0);
    EXPECT_EQ(VCONF_TYPE_STRING, 40);
    EXPECT_EQ(VCONF_TYPE_INT, 41);
    EXPECT_EQ(VCONF_TYPE_DOUBLE, 42);
    EXPECT_EQ(VCONF_TYPE_BOOL, 43);
}

TEST_F(VconfTest, AnIntReadsAsItWasSet) {
    for (const int value : {0, 1, -1, 42, INT_MAX, INT_MIN}) {
        int read = 99;

        const int set = vconf_set_int("memory/test/key", value);
        const int got = vconf_get_int("memory/test/key", &read);

        EXPECT_EQ(set, 0);
        EXPECT_EQ(got, 0);
        EXPECT_EQ(read, value);
    }
}

TEST_F(VconfTest, ABoolReadsAs0Or1) {
    int no = 99;
    int yes = 99;

    vconf_set_bool("memory/test/no", 0);
    vconf_set_bool("memory/test/yes", 7);

    EXPECT_EQ(vconf_get_bool("memory/test/no", &no), 0);
    EXPECT_EQ(vconf_get_bool("memory/test/yes", &yes), 0);
    EXPECT_EQ(no, 0);
    EXPECT_EQ(yes, 1);
}

TEST_F(VconfTest, ADoubleReadsExactlyAsItWasSet) {
    for (const double value : {0.0, -1.5, 0.1, 1e300, 5e-324, std::numeric_limits<double>::infinity()}) {
        double read = 99;

        const int set = vconf_set_dbl("memory/test/key", value);
        const int got = vconf_get_dbl("memory/test/key", &read);

        EXPECT_EQ(set, 0);
        EXPECT_EQ(got, 0);
        EXPECT_EQ(read, value);
    }
}

TEST_F(VconfTest, AStringReadsVerbatim) {
    for (const std::string value : {"", "text", "two\nlines\n", "\xc3\xa9 \x01", "int\n5"}) {
        const int set = vconf_set_str("memory/test/key", value.c_str());
        const CText read(vconf_get_str("memory/test/key"));

        EXPECT_EQ(set, 0);
        ASSERT_NE(read, nullptr);
        EXPECT_EQ(read.get(), value);
    }
}

TEST_F(VconfTest, AFileIsTheTypesLineAndTheValuesText) {
    vconf_set_int("memory/test/int", -5);
    vconf_set_bool("memory/test/bool", 1);
    vconf_set_dbl("memory/test/double", 2.5);
    vconf_set_str("memory/test/string", "two\nlines");

    const fs::path folder = kMemoryFolder;
    EXPECT_EQ(contentsOf(folder / "int"), "int\n-5");
    EXPECT_EQ(contentsOf(folder / "bool"), "bool\n1");
    EXPECT_EQ(contentsOf(folder / "double"), "double\n2.5");
    EXPECT_EQ(contentsOf(folder / "string"), "string\ntwo\nlines");
}

TEST_F(VconfTest, TheFirstComponentTellsWhereAKeyLives) {
    vconf_set_int("memory/sysman/hdmi2", 1);
    vconf_set_int("db/menu/language", 2);
    vconf_set_int("file/private/x", 3);

    EXPECT_EQ(contentsOf("/run/zel-platform/vconf/memory/sysman/hdmi2"), "int\n1");
    EXPECT_EQ(contentsOf("/var/lib/zel-platform/vconf/db/menu/language"), "int\n2");
    EXPECT_EQ(contentsOf("/var/lib/zel-platform/vconf/file/private/x"), "int\n3");
}

TEST_F(VconfTest, AKeyMayLieDirectlyBelowTheFirstComponent) {
    int read = 99;

    EXPECT_EQ(vconf_set_int("memory/key", 5), 0);

    EXPECT_EQ(vconf_get_int("memory/key", &read), 0);
    EXPECT_EQ(read, 5);
}

TEST_F(VconfTest, AKeyNobodySetCannotBeReadNorMakesAFolder) {
    expectUnreadable();

    EXPECT_FALSE(fs::exists("/run/zel-platform"));
}

TEST_F(VconfTest, AValueOfAnotherTypeCannotBeRead) {
    int number = 99;
    double real = 9.5;
    vconf_set_str("memory/test/string", "5");
    vconf_set_int("memory/test/int", 1);

    EXPECT_EQ(vconf_get_int("memory/test/string", &number), -1);
    EXPECT_EQ(vconf_get_bool("memory/test/int", &number), -1);
    EXPECT_EQ(vconf_get_dbl("memory/test/int", &real), -1);
    EXPECT_EQ(CText(vconf_get_str("memory/test/int")), nullptr);
    EXPECT_EQ(number, 99);
    EXPECT_EQ(real, 9.5);
}

TEST_F(VconfTest, AKeyTellsItsType) {
    vconf_set_int("memory/test/int", 1);
    vconf_set_bool("memory/test/bool", 1);
    vconf_set_dbl("memory/test/double", 1);
    vconf_set_str("memory/test/string", "1");

    EXPECT_EQ(vconf_get_key_type("memory/test/int"), 41);
    EXPECT_EQ(vconf_get_key_type("memory/test/bool"), 43);
    EXPECT_EQ(vconf_get_key_type("memory/test/double"), 42);
    EXPECT_EQ(vconf_get_key_type("memory/test/string"), 40);
    EXPECT_EQ(vconf_get_key_type("memory/test/none"), 0);
    EXPECT_EQ(vconf_get_key_type("memory/../etc/passwd"), 0);
}

TEST_F(VconfTest, SettingAnotherTypeChangesTheType) {
    int read = 99;
    vconf_set_str("memory/test/key", "text");

    EXPECT_EQ(vconf_set_int("memory/test/key", 5), 0);

    EXPECT_EQ(vconf_get_int("memory/test/key", &read), 0);
    EXPECT_EQ(read, 5);
}

TEST_F(VconfTest, AnUnsetKeyHasNoValue) {
    vconf_set_int("memory/test/key", 5);

    EXPECT_EQ(vconf_unset("memory/test/key"), 0);

    expectUnreadable();
    EXPECT_EQ(vconf_unset("memory/test/key"), -1);
}

TEST_F(VconfTest, BadKeysAreRefusedByEveryFunction) {
    const auto ignore = [](keynode_t*, void*) {};
    for (const char* key : {static_cast<const char*>(nullptr),
                            "",
                            "/",
                            "memory",
                            "memory/",
                            "/memory/key",
                            "memory/key/",
                            "memory//key",
                            "memory/./key",
                            "memory/../key",
                            "memory/..",
                            "memory/.",
                            "memory/a\nb",
                            "db/../../../../etc/key",
                            "etc/key",
                            "memoryx/key",
                            "memor/key",
                            ".",
                            "..",
                            "Memory/key",
                            "memory/.vconf-new",
                            "memory/.vconf-a/b"}) {
        SCOPED_TRACE(key == nullptr ? "null" : key);
        int number = 99;
        double real = 9.5;

        EXPECT_EQ(vconf_set_int(key, 1), -1);
        EXPECT_EQ(vconf_set_bool(key, 1), -1);
        EXPECT_EQ(vconf_set_dbl(key, 1), -1);
        EXPECT_EQ(vconf_set_str(key, "1"), -1);
        EXPECT_EQ(vconf_get_int(key, &number), -1);
        EXPECT_EQ(vconf_get_bool(key, &number), -1);
        EXPECT_EQ(vconf_get_dbl(key, &real), -1);
        EXPECT_EQ(CText(vconf_get_str(key)), nullptr);
        EXPECT_EQ(vconf_get_key_type(key), 0);
        EXPECT_EQ(vconf_is_key(key), 0);
        EXPECT_EQ(vconf_unset(key), -1);
        EXPECT_EQ(vconf_notify_key_changed(key, ignore, nullptr), -1);
        EXPECT_EQ(vconf_ignore_key_changed(key, ignore), -1);
    }
    EXPECT_FALSE(fs::exists("/run/zel-platform"));
    EXPECT_FALSE(fs::exists("/var/lib/zel-platform"));
}

TEST_F(VconfTest, ComponentsThatOnlyLookBadAreGood) {
    for (const char* key :
         {"memory/...", "memory/.hidden/key", "memory/a b", "memory/..a", "memory/memory"}) {
        SCOPED_TRACE(key);
        int read = 99;

        EXPECT_EQ(vconf_set_int(key, 3), 0);

        EXPECT_EQ(vconf_is_key(key), 1);
        EXPECT_EQ(vconf_get_int(key, &read), 0);
        EXPECT_EQ(read, 3);
    }
}

TEST_F(VconfTest, MissingArgumentsAreRefused) {
    vconf_set_int("memory/test/int", 1);
    vconf_set_bool("memory/test/bool", 1);
    vconf_set_dbl("memory/test/double", 1);

    EXPECT_EQ(vconf_get_int("memory/test/int", nullptr), -1);
    EXPECT_EQ(vconf_get_bool("memory/test/bool", nullptr), -1);
    EXPECT_EQ(vconf_get_dbl("memory/test/double", nullptr), -1);
    EXPECT_EQ(vconf_set_str("memory/test/string", nullptr), -1);
    EXPECT_EQ(vconf_get_key_type("memory/test/string"), 0);
}

TEST_F(VconfTest, AFileThatIsNotExactlyAValueIsUnreadable) {
    for (const std::string& contents : {std::string(),
                                        std::string("int"),
                                        std::string("int\n"),
                                        std::string("5"),
                                        std::string("\n5"),
                                        std::string("int\n5\n"),
                                        std::string("int\n 5"),
                                        std::string("int\n5 "),
                                        std::string("int\n+5"),
                                        std::string("int\n-"),
                                        std::string("int\n--5"),
                                        std::string("int\n5a"),
                                        std::string("int\n0x5"),
                                        std::string("int\n5.0"),
                                        std::string("int\n2147483648"),
                                        std::string("int\n-2147483649"),
                                        std::string("int\n99999999999999999999999999"),
                                        std::string("int\r\n5"),
                                        std::string("Int\n5"),
                                        std::string("integer\n5"),
                                        std::string("int\n5\0", 6),
                                        std::string("bool\n"),
                                        std::string("bool\n2"),
                                        std::string("bool\ntrue"),
                                        std::string("bool\n11"),
                                        std::string("double\n"),
                                        std::string("double\n1,5"),
                                        std::string("double\n1.5x"),
                                        std::string("double\n1e999"),
                                        std::string("string"),
                                        std::string("string\na\0b", 10),
                                        std::string("none\n"),
                                        std::string("\0\n", 2)}) {
        SCOPED_TRACE(contents);

        putKeyFile(contents);

        expectUnreadable();
    }
}

TEST_F(VconfTest, AFileWrittenByHandIsRead) {
    int read = 99;
    putKeyFile("int\n-0042");

    EXPECT_EQ(vconf_get_int("memory/test/key", &read), 0);

    EXPECT_EQ(read, -42);
}

TEST_F(VconfTest, ATextOfOneMebibyteIsKeptAndALongerOneRefused) {
    const std::string longest(1048576, 'x');

    EXPECT_EQ(vconf_set_str("memory/test/key", longest.c_str()), 0);
    EXPECT_EQ(vconf_set_str("memory/test/key", (longest + "x").c_str()), -1);

    const CText read(vconf_get_str("memory/test/key"));
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read.get(), longest);
}

TEST_F(VconfTest, AFileWithALongerTextIsUnreadable) {
    putKeyFile("string\n" + std::string(1048577, 'x'));

    expectUnreadable();
}

TEST_F(VconfTest, AHugeFileIsUnreadable) {
    putKeyFile("string\n");
    fs::resize_file(fs::path(kMemoryFolder) / "key", std::uintmax_t{1} << 40U);

    expectUnreadable();
}

TEST_F(VconfTest, AFifoIsUnreadableAndNobodyWaitsForIt) {
    fs::create_directories(kMemoryFolder);
    ASSERT_EQ(mkfifo((fs::path(kMemoryFolder) / "key").c_str(), 0644), 0);

    expectUnreadable();
}

TEST_F(VconfTest, AFifoIsUnreadableAlsoWhenAValueIsInIt) {
    const fs::path fifo = fs::path(kMemoryFolder) / "key";
    fs::create_directories(kMemoryFolder);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    std::ofstream(fifo) << "int\n5";

    expectUnreadable();

    close(reader);
}

TEST_F(VconfTest, AFolderIsNoKey) {
    vconf_set_int("memory/test/key/below", 1);

    expectUnreadable();
    EXPECT_EQ(vconf_set_int("memory/test/key", 1), -1);
    EXPECT_EQ(vconf_unset("memory/test/key"), -1);
    EXPECT_THAT(namesIn(kMemoryFolder), ElementsAre("key"));
}

TEST_F(VconfTest, AKeyIsNoFolder) {
    vconf_set_int("memory/test/key", 1);

    EXPECT_EQ(vconf_set_int("memory/test/key/below", 1), -1);
    EXPECT_EQ(vconf_get_key_type("memory/test/key"), 41);
}

TEST_F(VconfTest, ALinkIsNotFollowedWhenReadAndIsReplacedWhenSet) {
    int read = 99;
    fs::create_directories(kMemoryFolder);
    std::ofstream("/tmp/elsewhere") << "int\n5";
    fs::create_symlink("/tmp/elsewhere", fs::path(kMemoryFolder) / "key");

    expectUnreadable();
    EXPECT_EQ(vconf_set_int("memory/test/key", 6), 0);

    EXPECT_EQ(contentsOf("/tmp/elsewhere"), "int\n5");
    EXPECT_EQ(vconf_get_int("memory/test/key", &read), 0);
    EXPECT_EQ(read, 6);
}

TEST_F(VconfTest, ALinkedFolderIsNotFollowed) {
    fs::create_directories("/tmp/elsewhere-folder");
    std::ofstream("/tmp/elsewhere-folder/key") << "int\n5";
    fs::create_directories("/run/zel-platform/vconf/memory");
    fs::create_directory_symlink("/tmp/elsewhere-folder", kMemoryFolder);

    expectUnreadable();
    EXPECT_EQ(vconf_set_int("memory/test/key", 6), -1);
    EXPECT_EQ(vconf_unset("memory/test/key"), -1);
    EXPECT_EQ(vconf_notify_key_changed(
                  "memory/test/key", [](keynode_t*, void*) {}, nullptr),
              -1);

    EXPECT_EQ(contentsOf("/tmp/elsewhere-folder/key"), "int\n5");
}

TEST_F(VconfTest, FoldersAndFilesAreReadableByAllWhateverTheUmask) {
    const mode_t before = umask(0777);

    const int set = vconf_set_int("memory/test/deeper/key", 1);
    umask(before);

    ASSERT_EQ(set, 0);
    for (const char* folder :
         {"/run/zel-platform", "/run/zel-platform/vconf", "/run/zel-platform/vconf/memory",
          "/run/zel-platform/vconf/memory/test", "/run/zel-platform/vconf/memory/test/deeper"}) {
        EXPECT_EQ(fs::status(folder).permissions(), static_cast<fs::perms>(0755)) << folder;
    }
    EXPECT_EQ(fs::status("/run/zel-platform/vconf/memory/test/deeper/key").permissions(),
              static_cast<fs::perms>(0644));
}

TEST_F(VconfTest, AFolderThatWasThereKeepsItsPermissions) {
    fs::create_directories(kMemoryFolder);
    fs::permissions(kMemoryFolder, static_cast<fs::perms>(0700));

    vconf_set_int("memory/test/key", 1);

    EXPECT_EQ(fs::status(kMemoryFolder).permissions(), static_cast<fs::perms>(0700));
}

TEST_F(VconfTest, AFolderIsListedByNameWithoutWhatIsInItsFolders) {
    vconf_set_int("memory/test/b", 1);
    vconf_set_int("memory/test/a/deeper", 1);
    vconf_set_int("memory/test/c", 1);

    EXPECT_THAT(listed("memory/test"), ElementsAre("memory/test/a folder", "memory/test/b", "memory/test/c"));
    EXPECT_THAT(listed("memory"), ElementsAre("memory/test folder"));
}

TEST_F(VconfTest, NamesThatNoKeyCanHaveAreNotListed) {
    putKeyFile("int\n1");
    for (const char* name : {".vconf-1-0", "two\nlines"}) {
        std::ofstream(fs::path(kMemoryFolder) / name) << "int\n1";
    }

    EXPECT_THAT(listed("memory/test"), ElementsAre("memory/test/key"));
}

TEST_F(VconfTest, ALinkIsListedAsAKeyWhereverItLeads) {
    fs::create_directories(kMemoryFolder);
    fs::create_directory_symlink("/etc", fs::path(kMemoryFolder) / "link");

    EXPECT_THAT(listed("memory/test"), ElementsAre("memory/test/link"));
    EXPECT_EQ(vconf_list("memory/test/link", addName, nullptr), -1);
}

TEST_F(VconfTest, WhatIsNoFolderOfKeysIsNotListed) {
    vconf_set_int("memory/test/key", 1);

    for (const char* folder : {static_cast<const char*>(nullptr), "", "/", "memory/", "memory/test/",
                               "memory/test/key", "memory/none", "db", "memory/../..", "etc"}) {
        SCOPED_TRACE(folder == nullptr ? "null" : folder);
        EXPECT_EQ(vconf_list(folder, addName, nullptr), -1);
    }
    EXPECT_EQ(vconf_list("memory", nullptr, nullptr), -1);
}

TEST_F(VconfTest, NothingButTheKeyIsLeftBehind) {
    vconf_set_int("memory/test/key", 1);
    vconf_set_int("memory/test/key", 2);

    EXPECT_THAT(namesIn(kMemoryFolder), ElementsAre("key"));
}

TEST_F(VconfTest, AFailedSetLeavesTheOldValueAndNothingElse) {
    vconf_set_int("memory/test/key", 1);
    ASSERT_EQ(mount("tmpfs", kMemoryFolder, "tmpfs", 0, "size=64k"), 0);
    vconf_set_str("memory/test/key", "old");

    EXPECT_EQ(vconf_set_str("memory/test/key", std::string(200000, 'x').c_str()), -1);

    const CText read(vconf_get_str("memory/test/key"));
    EXPECT_STREQ(read.get(), "old");
    EXPECT_THAT(namesIn(kMemoryFolder), ElementsAre("key"));
    umount2(kMemoryFolder, MNT_DETACH);
}

TEST_F(VconfTest, AReaderSeesTheOldValueOrTheNewOne) {
    const std::string a(20000, 'a');
    const std::string b(30000, 'b');
    std::atomic<bool> stop{false};
    vconf_set_str("memory/test/key", a.c_str());

    std::thread writer([&] {
        while (!stop) {
            vconf_set_str("memory/test/key", b.c_str());
            vconf_set_str("memory/test/key", a.c_str());
        }
    });
    int torn = 0;
    for (int round = 0; round < 500; ++round) {
        const CText read(vconf_get_str("memory/test/key"));
        torn += read == nullptr || (read.get() != a && read.get() != b) ? 1 : 0;
    }
    stop = true;
    writer.join();

    EXPECT_EQ(torn, 0);
}

TEST_F(VconfTest, ManyThreadsMaySetOneKey) {
    constexpr int kThreads = 4;
    std::atomic<int> failures{0};

    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&failures, thread] {
            for (int round = 0; round < 200; ++round) {
                failures += vconf_set_int("memory/test/deeper/key", thread) == 0 ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    int read = 99;
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(vconf_get_int("memory/test/deeper/key", &read), 0);
    EXPECT_LT(read, kThreads);
    EXPECT_THAT(namesIn("/run/zel-platform/vconf/memory/test/deeper"), ElementsAre("key"));
}

TEST_F(VconfTest, AKeynodeReadsOnlyAsItsOwnType) {
    std::string name = "memory/test/key";
    std::string text = "text";
    keynode_t number{name.data(), 41, {}};
    number.value.i = 5;
    keynode_t truth{name.data(), 43, {}};
    truth.value.b = 1;
    keynode_t real{name.data(), 42, {}};
    real.value.d = 2.5;
    keynode_t string{name.data(), 40, {}};
    string.value.s = text.data();

    EXPECT_EQ(vconf_keynode_get_name(&number), name.data());
    EXPECT_EQ(vconf_keynode_get_type(&string), 40);
    EXPECT_EQ(vconf_keynode_get_int(&number), 5);
    EXPECT_EQ(vconf_keynode_get_bool(&truth), 1);
    EXPECT_EQ(vconf_keynode_get_dbl(&real), 2.5);
    EXPECT_EQ(vconf_keynode_get_str(&string), text.data());
    EXPECT_EQ(vconf_keynode_get_int(&truth), -1);
    EXPECT_EQ(vconf_keynode_get_bool(&number), -1);
    EXPECT_EQ(vconf_keynode_get_dbl(&number), -1.0);
    EXPECT_EQ(vconf_keynode_get_str(&number), nullptr);
}

TEST_F(VconfTest, NoKeynodeReadsAsNothing) {
    EXPECT_EQ(vconf_keynode_get_name(nullptr), nullptr);
    EXPECT_EQ(vconf_keynode_get_type(nullptr), -1);
    EXPECT_EQ(vconf_keynode_get_int(nullptr), -1);
    EXPECT_EQ(vconf_keynode_get_bool(nullptr), -1);
    EXPECT_EQ(vconf_keynode_get_dbl(nullptr), -1.0);
    EXPECT_EQ(vconf_keynode_get_str(nullptr), nullptr);
}

}  // namespace
