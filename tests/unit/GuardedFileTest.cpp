// SPDX-License-Identifier: Apache-2.0
// Files in a folder where everybody may plant something, also between the look and the opening.
#include "GuardedFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "support/Files.h"
#include "support/Plant.h"

namespace {

constexpr const char* kPath = "/tmp/guarded";
constexpr const char* kVictim = "/tmp/victim";
constexpr uid_t kStranger = 1234;

// What the calls fail with; 0 for the real call.
int statError = 0;
int truncateError = 0;
int closeError = 0;

// What an attacker does before each of these calls, and how often there was a first one.
std::function<void()> beforeRename;
std::function<void()> beforeExchange;
int renames = 0;

// What there is in /tmp whose path begins like this one.
std::vector<std::string> namesLike(const std::string& path) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        if (entry.path().string().rfind(path, 0) == 0) {
            names.push_back(entry.path());
        }
    }
    return names;
}

mode_t currentUmask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

class GuardedFileTest : public testing::Test {
protected:
    GuardedFileTest() {
        for (const std::string& name : namesLike(kPath)) {
            std::filesystem::remove_all(name);
        }
        unlink(kVictim);
        statError = 0;
        truncateError = 0;
        closeError = 0;
        beforeRename = nullptr;
        beforeExchange = nullptr;
        renames = 0;
        errno = 0;
    }
};

int failWith(int error) {
    errno = error;
    return -1;
}

std::ptrdiff_t openDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

}  // namespace

extern "C" int __real_fstat(int fd, struct stat* status);
extern "C" int __wrap_fstat(int fd, struct stat* status);
extern "C" int __wrap_fstat(int fd, struct stat* status) {
    return statError == 0 ? __real_fstat(fd, status) : failWith(statError);
}

extern "C" int __real_ftruncate(int fd, off_t size);
extern "C" int __wrap_ftruncate(int fd, off_t size);
extern "C" int __wrap_ftruncate(int fd, off_t size) {
    return truncateError == 0 ? __real_ftruncate(fd, size) : failWith(truncateError);
}

extern "C" int __real_close(int fd);
extern "C" int __wrap_close(int fd);
extern "C" int __wrap_close(int fd) {
    const int result = __real_close(fd);
    return closeError == 0 ? result : failWith(closeError);
}

extern "C" int __real_rename(const char* from, const char* to);
extern "C" int __wrap_rename(const char* from, const char* to);
extern "C" int __wrap_rename(const char* from, const char* to) {
    ++renames;
    if (beforeRename) {
        beforeRename();
    }
    return __real_rename(from, to);
}

extern "C" int __real_renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                                unsigned int flags);
extern "C" int __wrap_renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                                unsigned int flags);
extern "C" int __wrap_renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                                unsigned int flags) {
    if (beforeExchange) {
        beforeExchange();
    }
    return __real_renameat2(fromFolder, from, toFolder, to, flags);
}

TEST_F(GuardedFileTest, AMissingFileIsCreatedEmptyWithTheProcessesMode) {
    const mode_t before = umask(022);

    EXPECT_TRUE(CreateOwnFile(kPath));

    umask(before);
    struct stat status {};
    ASSERT_EQ(stat(kPath, &status), 0);
    EXPECT_EQ(status.st_size, 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST_F(GuardedFileTest, AnOwnFileIsTruncatedInPlace) {
    writeFile(kPath, "old");
    struct stat before {};
    stat(kPath, &before);

    EXPECT_TRUE(CreateOwnFile(kPath));

    struct stat after {};
    stat(kPath, &after);
    EXPECT_EQ(after.st_size, 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
}

TEST_F(GuardedFileTest, DescriptorsAreCloseOnExec) {
    const TCFileDescriptor written = CreateOwnFile(kPath);
    const TCFileDescriptor read = OpenOwnFile(kPath);

    EXPECT_EQ(fcntl(written.Get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(read.Get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(GuardedFileTest, ADescriptorIsClosedWithItsOwnerAlsoWhenItIsRefused) {
    const auto before = openDescriptors();

    CreateOwnFile(kPath);
    OpenOwnFile(kPath);
    OpenOwnFile("/tmp");

    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(GuardedFileTest, ALinkIsTakenAwayAndNotWrittenThrough) {
    writeFile(kVictim, "precious");
    ASSERT_EQ(symlink(kVictim, kPath), 0);

    EXPECT_TRUE(CreateOwnFile(kPath));

    EXPECT_FALSE(IsSymbolicLink(kPath));
    EXPECT_EQ(readFile(kVictim), "precious");
}

TEST_F(GuardedFileTest, ALinkPlantedBeforeTheOpenIsTakenAwayAndNotWrittenThrough) {
    writeFile(kVictim, "precious");
    plantAtOpen(kPath, [] { EXPECT_EQ(symlink(kVictim, kPath), 0); });

    EXPECT_TRUE(CreateOwnFile(kPath));

    EXPECT_TRUE(wasPlanted());
    EXPECT_FALSE(IsSymbolicLink(kPath));
    EXPECT_EQ(readFile(kVictim), "precious");
}

TEST_F(GuardedFileTest, ALinkToAStrangersFileIsTakenAwayAndTheFileStays) {
    writeFile(kVictim, "theirs");
    ASSERT_EQ(chown(kVictim, kStranger, kStranger), 0);
    ASSERT_EQ(symlink(kVictim, kPath), 0);

    EXPECT_TRUE(CreateOwnFile(kPath));

    EXPECT_TRUE(IsOwnFile(kPath));
    EXPECT_EQ(readFile(kVictim), "theirs");
}

TEST_F(GuardedFileTest, ADanglingLinkCreatesNothingAtItsEnd) {
    ASSERT_EQ(symlink(kVictim, kPath), 0);

    EXPECT_TRUE(CreateOwnFile(kPath));

    EXPECT_FALSE(exists(kVictim));
}

TEST_F(GuardedFileTest, AFifoNeitherBlocksNorIsWrittenTo) {
    ASSERT_EQ(mkfifo(kPath, 0600), 0);

    EXPECT_FALSE(OpenOwnFile(kPath));
    EXPECT_EQ(errno, EPERM);
    EXPECT_TRUE(CreateOwnFile(kPath));
    EXPECT_TRUE(IsOwnFile(kPath));
}

TEST_F(GuardedFileTest, AFifoWithAReaderThatIsPlantedBeforeTheOpenIsNotWrittenTo) {
    int reader = -1;
    plantAtOpen(kPath, [&reader] {
        ASSERT_EQ(mkfifo(kPath, 0600), 0);
        reader = open(kPath, O_RDONLY | O_NONBLOCK);
    });

    const TCFileDescriptor file = CreateOwnFile(kPath);

    ASSERT_TRUE(file);
    EXPECT_TRUE(wasPlanted());
    EXPECT_EQ(write(file.Get(), "x", 1), 1);
    EXPECT_EQ(readFile(kPath), "x");
    char byte = 0;
    EXPECT_EQ(read(reader, &byte, 1), 0);
    close(reader);
}

TEST_F(GuardedFileTest, ATerminalDoesNotBecomeTheControllingOne) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(grantpt(terminal), 0);
    ASSERT_EQ(unlockpt(terminal), 0);
    const std::string path = ptsname(terminal);

    // The leader of a session without a terminal gets the first one that it opens.
    const pid_t leader = fork();
    if (leader == 0) {
        setsid();
        const bool isRefused = !OpenOwnFile(path.c_str()) && !CreateOwnFile(path.c_str());
        _exit(isRefused && open("/dev/tty", O_RDWR) < 0 && errno == ENXIO ? 0 : 1);
    }

    int status = -1;
    waitpid(leader, &status, 0);
    EXPECT_EQ(status, 0);
    close(terminal);
}

TEST_F(GuardedFileTest, AFolderIsNotReadAndGivesWay) {
    ASSERT_EQ(mkdir(kPath, 0755), 0);

    EXPECT_FALSE(OpenOwnFile(kPath));
    EXPECT_EQ(errno, EISDIR);
    EXPECT_TRUE(CreateOwnFile(kPath));
    EXPECT_TRUE(IsOwnFile(kPath));
    EXPECT_EQ(namesLike(kPath).size(), 1U);
}

TEST_F(GuardedFileTest, AFilledFolderIsRenamedAndGivesWay) {
    ASSERT_EQ(mkdir(kPath, 0755), 0);
    writeFile(std::string(kPath) + "/content", "theirs");

    EXPECT_TRUE(CreateOwnFile(kPath));

    EXPECT_TRUE(IsOwnFile(kPath));
    EXPECT_EQ(namesLike(kPath).size(), 2U);
}

TEST_F(GuardedFileTest, ARenamedFileTakesThePlaceOfWhatIsPlanted) {
    for (const auto& plant : std::vector<std::function<void()>>{
             [] { ASSERT_EQ(mkdir(kPath, 0755), 0); },
             [] {
                 ASSERT_EQ(mkdir(kPath, 0755), 0);
                 writeFile(std::string(kPath) + "/content", "theirs");
             },
             [] { ASSERT_EQ(symlink("/nowhere", kPath), 0); },
             [] { ASSERT_EQ(mkfifo(kPath, 0600), 0); },
             [] {},
         }) {
        std::filesystem::remove_all(kPath);
        plant();
        writeFile(kVictim, "new");

        EXPECT_TRUE(RenameOver(kVictim, kPath));

        EXPECT_EQ(readFile(kPath), "new");
        EXPECT_FALSE(exists(kVictim));
    }
}

TEST_F(GuardedFileTest, AFileThatIsNotThereIsNotRenamed) {
    EXPECT_FALSE(RenameOver(kVictim, kPath));

    EXPECT_EQ(errno, ENOENT);
}

TEST_F(GuardedFileTest, OnlyARegularFileOfThisUserWithOneNameIsAnOwnOne) {
    EXPECT_FALSE(IsOwnFile(kPath));
    writeFile(kPath, "x");
    EXPECT_TRUE(IsOwnFile(kPath));
    ASSERT_EQ(link(kPath, kVictim), 0);
    EXPECT_FALSE(IsOwnFile(kPath));
    ASSERT_EQ(unlink(kVictim), 0);
    ASSERT_EQ(chown(kPath, kStranger, kStranger), 0);
    EXPECT_FALSE(IsOwnFile(kPath));
    ASSERT_EQ(unlink(kPath), 0);
    writeFile(kVictim, "x");
    ASSERT_EQ(symlink(kVictim, kPath), 0);
    EXPECT_FALSE(IsOwnFile(kPath));
}

TEST_F(GuardedFileTest, AStrangersFileIsReplacedByOneOfOurs) {
    writeFile(kPath, "theirs");
    ASSERT_EQ(chown(kPath, kStranger, kStranger), 0);

    EXPECT_TRUE(CreateOwnFile(kPath));

    struct stat status {};
    stat(kPath, &status);
    EXPECT_EQ(status.st_uid, geteuid());
}

TEST_F(GuardedFileTest, TheEffectiveUsersFileIsAnOwnOne) {
    writeFile(kPath, "old");
    ASSERT_EQ(chown(kPath, kStranger, kStranger), 0);
    ASSERT_EQ(seteuid(kStranger), 0);

    const bool isRead = static_cast<bool>(OpenOwnFile(kPath));
    const bool isWritten = static_cast<bool>(CreateOwnFile(kPath));

    ASSERT_EQ(seteuid(0), 0);
    EXPECT_TRUE(isRead);
    EXPECT_TRUE(isWritten);
}

TEST_F(GuardedFileTest, AStrangersFilePlantedBeforeTheOpenIsReplaced) {
    plantAtOpen(kPath, [] {
        writeFile(kPath, "theirs");
        EXPECT_EQ(chown(kPath, kStranger, kStranger), 0);
    });

    EXPECT_TRUE(CreateOwnFile(kPath));

    EXPECT_TRUE(wasPlanted());
    EXPECT_TRUE(IsOwnFile(kPath));
    EXPECT_EQ(readFile(kPath), "");
}

TEST_F(GuardedFileTest, ASecondNameOfAnotherFileIsReplacedAndTheFileStays) {
    writeFile(kVictim, "precious");
    ASSERT_EQ(link(kVictim, kPath), 0);

    EXPECT_TRUE(CreateOwnFile(kPath));

    EXPECT_EQ(readFile(kVictim), "precious");
}

TEST_F(GuardedFileTest, ASecondNamePlantedBeforeTheOpenIsNotTruncated) {
    writeFile(kVictim, "precious");
    plantAtOpen(kPath, [] { EXPECT_EQ(link(kVictim, kPath), 0); });

    EXPECT_TRUE(CreateOwnFile(kPath));

    EXPECT_TRUE(wasPlanted());
    EXPECT_EQ(readFile(kVictim), "precious");
}

TEST_F(GuardedFileTest, TheDescriptorZeroIsAFileToo) {
    const int kept = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    {
        const TCFileDescriptor file = CreateOwnFile(kPath);

        EXPECT_EQ(file.Get(), 0);
        EXPECT_TRUE(file);
    }
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "it is closed as the others are";
    dup2(kept, STDIN_FILENO);
    close(kept);
}

TEST_F(GuardedFileTest, AnAttackerWhoWinsEveryRaceIsBypassed) {
    for (const auto& plant : std::vector<std::function<void()>>{
             [] { EXPECT_EQ(symlink("/nowhere", kPath), 0); },
             [] { EXPECT_EQ(mkdir(kPath, 0755), 0); },
             [] { std::filesystem::create_directories(std::string(kPath) + "/full"); },
             [] { EXPECT_EQ(mkfifo(kPath, 0600), 0); },
         }) {
        unlink(kPath);
        plantAtEveryOpen(kPath, plant);

        const TCFileDescriptor file = CreateOwnFile(kPath);

        stopPlanting();
        ASSERT_TRUE(file);
        EXPECT_EQ(write(file.Get(), "x", 1), 1);
        EXPECT_EQ(readFile(kPath), "x");
        EXPECT_TRUE(IsOwnFile(kPath));
        EXPECT_EQ(fcntl(file.Get(), F_GETFD), FD_CLOEXEC);
        struct stat status {};
        ASSERT_EQ(stat(kPath, &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0666U & ~currentUmask());
    }
}

TEST_F(GuardedFileTest, AFolderThatGoesBeforeTheExchangeIsNoObstacle) {
    writeFile(kVictim, "new");
    ASSERT_EQ(mkdir(kPath, 0755), 0);
    beforeExchange = [] { EXPECT_EQ(rmdir(kPath), 0); };

    EXPECT_TRUE(RenameOver(kVictim, kPath));

    EXPECT_EQ(readFile(kPath), "new");
}

TEST_F(GuardedFileTest, AFolderThatComesAndGoesAHundredTimesInTimeIsGivenUpAndNothingStays) {
    plantAtOpen(kPath, [] { EXPECT_EQ(mkdir(kPath, 0755), 0); });
    beforeRename = [] { mkdir(kPath, 0755); };
    beforeExchange = [] { EXPECT_EQ(rmdir(kPath), 0); };

    EXPECT_FALSE(CreateOwnFile(kPath));

    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(renames, 100);
    EXPECT_TRUE(namesLike(kPath).empty());
}

TEST_F(GuardedFileTest, OnlyWhatIsPlantedIsTakenAway) {
    for (const auto& plant : std::vector<std::function<void()>>{
             [] { ASSERT_EQ(mkdir(kPath, 0755), 0); },
             [] { ASSERT_EQ(symlink("/nowhere", kPath), 0); },
             [] { ASSERT_EQ(mkfifo(kPath, 0600), 0); },
             [] { ASSERT_EQ(link(kVictim, kPath), 0); },
             [] {},
         }) {
        writeFile(kVictim, "precious");
        plant();

        TakeAwayPlanted(kPath);

        EXPECT_TRUE(namesLike(kPath).empty());
        EXPECT_EQ(readFile(kVictim), "precious");
    }
    writeFile(kPath, "mine");

    TakeAwayPlanted(kPath);

    EXPECT_EQ(readFile(kPath), "mine");
}

TEST_F(GuardedFileTest, AFilledFolderIsTakenAwayByAnotherName) {
    std::filesystem::create_directories(std::string(kPath) + "/full");

    TakeAwayPlanted(kPath);

    EXPECT_FALSE(exists(kPath));
    EXPECT_EQ(namesLike(kPath).size(), 1U);
}

TEST_F(GuardedFileTest, WhereNothingCanBeCreatedTheErrorIsThatOfTheOpening) {
    failCreating(kPath, ENOSPC);

    EXPECT_FALSE(CreateOwnFile(kPath));

    EXPECT_EQ(errno, ENOSPC);
    stopPlanting();
    EXPECT_TRUE(namesLike(kPath).empty());
}

TEST_F(GuardedFileTest, AFilledFolderIsExchangedForARenamedFile) {
    writeFile(kVictim, "new");
    std::filesystem::create_directories(std::string(kPath) + "/full");

    EXPECT_TRUE(RenameOver(kVictim, kPath));

    EXPECT_EQ(readFile(kPath), "new");
    EXPECT_FALSE(exists(kVictim));
}

TEST_F(GuardedFileTest, ASecondNameIsNotRead) {
    writeFile(kVictim, "old");
    ASSERT_EQ(link(kVictim, kPath), 0);

    EXPECT_FALSE(OpenOwnFile(kPath));

    EXPECT_EQ(errno, EPERM);
}

TEST_F(GuardedFileTest, AnOwnFileIsRead) {
    writeFile(kPath, "x");

    const TCFileDescriptor file = OpenOwnFile(kPath);

    ASSERT_TRUE(file);
    char byte = 0;
    EXPECT_EQ(read(file.Get(), &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
}

TEST_F(GuardedFileTest, AStrangersFileIsNotRead) {
    writeFile(kPath, "theirs");
    ASSERT_EQ(chown(kPath, kStranger, kStranger), 0);

    EXPECT_FALSE(OpenOwnFile(kPath));

    EXPECT_EQ(errno, EPERM);
}

TEST_F(GuardedFileTest, ALinkIsNotRead) {
    writeFile(kVictim, "mine");
    ASSERT_EQ(symlink(kVictim, kPath), 0);

    EXPECT_FALSE(OpenOwnFile(kPath));

    EXPECT_EQ(errno, ELOOP);
}

TEST_F(GuardedFileTest, AFileThatCannotBeExaminedIsNotOpenedAndTheCauseIsKept) {
    writeFile(kPath, "x");
    statError = EIO;
    closeError = EBADF;

    EXPECT_FALSE(OpenOwnFile(kPath));
    EXPECT_EQ(errno, EIO);
    errno = 0;
    EXPECT_FALSE(CreateOwnFile(kPath));
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(readFile(kPath), "x");
}

TEST_F(GuardedFileTest, AFileThatCannotBeTruncatedIsNotCreatedAndTheCauseIsKept) {
    writeFile(kPath, "x");
    truncateError = EDQUOT;
    closeError = EBADF;

    EXPECT_FALSE(CreateOwnFile(kPath));

    EXPECT_EQ(errno, EDQUOT);
}

TEST_F(GuardedFileTest, OnlyALinkItselfIsALink) {
    writeFile(kVictim, "");
    EXPECT_FALSE(IsSymbolicLink(kPath));
    EXPECT_FALSE(IsSymbolicLink(kVictim));

    ASSERT_EQ(symlink("/nowhere", kPath), 0);

    EXPECT_TRUE(IsSymbolicLink(kPath));
}
