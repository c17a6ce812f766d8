// SPDX-License-Identifier: Apache-2.0
// What is remembered of callers across a restart, and which of them have left.
#include "CallersFile.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "Connections.h"
#include "support/Files.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

namespace {

constexpr const char* kFile = "/run/zel-platform/ipc-callers";

class CallersFileTest : public testing::Test {
protected:
    CallersFileTest() { std::filesystem::remove_all("/run/zel-platform"); }
};

class ConnectionsTest : public CallersFileTest {
protected:
    static Connections::Identity process(std::uint32_t pid) {
        Connections::Identity identity{{}, 1000};
        identity.properties.pid = pid;
        return identity;
    }

    // A process with two callers that ends.
    static void liveBefore() {
        Connections connections;
        connections.begin("bus1", {":1.0"}, ":1.0");
        for (const std::uint32_t caller : {1U, 2U}) {
            const std::string name = ":1." + std::to_string(caller);
            connections.add(name);
            connections.identify(name, process(100 + caller));
        }
    }

    static std::vector<std::string> texts(const std::vector<Departure>& departures) {
        std::vector<std::string> texts;
        texts.reserve(departures.size());
        for (const Departure& departure : departures) {
            texts.push_back(departure.name + " " + std::to_string(departure.pid));
        }
        return texts;
    }
};

}  // namespace

TEST_F(CallersFileTest, WithoutAFileNobodyIsRemembered) {
    const auto [busId, callers] = CallersFile::read();

    EXPECT_EQ(busId, "");
    EXPECT_THAT(callers, IsEmpty());
}

TEST_F(CallersFileTest, WhoCameAndDidNotLeaveIsRemembered) {
    {
        CallersFile file;
        file.begin("abc", {{":1.1", 11}, {":1.2", 12}});
        file.add(":1.3", 13);
        file.remove(":1.1");
    }

    const auto [busId, callers] = CallersFile::read();

    EXPECT_EQ(busId, "abc");
    EXPECT_THAT(callers, ElementsAre(Pair(":1.2", 12), Pair(":1.3", 13)));
}

TEST_F(CallersFileTest, TheFileIsForItsOwnerOnlyAndIsThereAfterEachChange) {
    CallersFile file;
    file.begin("abc", {});
    file.add(":1.3", 13);

    struct stat status {};
    ASSERT_EQ(stat(kFile, &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_EQ(readFile(kFile), "bus abc\n+ :1.3 13\n");
}

TEST_F(CallersFileTest, ALineThatWasNotWrittenToItsEndIsIgnored) {
    std::filesystem::create_directories("/run/zel-platform");
    writeFile(kFile, "bus abc\n+ :1.1 11\n\nnonsense\n+ :1.5 x\n+ :1.2 1");

    const auto [busId, callers] = CallersFile::read();

    EXPECT_EQ(busId, "abc");
    EXPECT_THAT(callers, ElementsAre(Pair(":1.1", 11)));
}

TEST_F(CallersFileTest, TheFileDoesNotGrowWithThoseWhoLeft) {
    CallersFile file;
    file.begin("abc", {{":1.0", 10}});

    for (int caller = 1; caller < 5000; ++caller) {
        file.add(":1." + std::to_string(caller), 7);
        file.remove(":1." + std::to_string(caller));
    }

    EXPECT_LE(std::filesystem::file_size(kFile), 20'000U);
    EXPECT_THAT(CallersFile::read().second, ElementsAre(Pair(":1.0", 10)));
}

TEST_F(CallersFileTest, AFolderThatCannotBeWrittenToIsLoggedOnce) {
    std::filesystem::create_directories(std::string(kFile) + ".new");
    testing::internal::CaptureStderr();
    CallersFile file;

    file.begin("abc", {});
    file.add(":1.1", 11);
    file.remove(":1.1");

    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, HasSubstr("callers are not remembered across a restart: "));
    EXPECT_EQ(log.find("callers are"), log.rfind("callers are")) << log;
    std::filesystem::remove_all("/run/zel-platform");
}

TEST_F(ConnectionsTest, ARememberedCallerThatIsNotOnTheBusAnyMoreHasLeft) {
    liveBefore();
    Connections connections;

    EXPECT_THAT(texts(connections.begin("bus1", {":1.2", ":1.9"}, ":1.9")), ElementsAre(":1.1 101"));

    EXPECT_TRUE(connections.isOnSameBus());
    EXPECT_THAT(connections.remembered(), ElementsAre(":1.2"));
    EXPECT_THAT(CallersFile::read().second, ElementsAre(Pair(":1.2", 102)));
}

TEST_F(ConnectionsTest, OnAnotherBusEverybodyHasLeft) {
    liveBefore();
    Connections connections;

    EXPECT_THAT(texts(connections.begin("bus2", {":1.1", ":1.2"}, ":1.9")),
                ElementsAre(":1.1 101", ":1.2 102"));

    EXPECT_FALSE(connections.isOnSameBus());
    EXPECT_THAT(connections.remembered(), IsEmpty());
}

TEST_F(ConnectionsTest, ANameWithAnotherProcessIsAnotherConnection) {
    liveBefore();
    Connections connections;
    connections.begin("bus1", {":1.1", ":1.2"}, ":1.9");

    const auto same = connections.identify(":1.1", process(101));
    const auto other = connections.identify(":1.2", process(7));

    EXPECT_FALSE(same);
    ASSERT_TRUE(other);
    EXPECT_EQ(other->pid, 102U);
    EXPECT_EQ(connections.remove(":1.2")->pid, 7U);
}

TEST_F(ConnectionsTest, OwnCallersAreComparedAfterALossAsRememberedOnesAre) {
    Connections connections;
    connections.begin("bus1", {":1.5"}, ":1.0");
    connections.add(":1.1");
    connections.identify(":1.1", process(101));
    connections.add(":1.2");
    connections.identify(":1.2", process(102));

    EXPECT_THAT(texts(connections.begin("bus1", {":1.2", ":1.7"}, ":1.7")),
                ElementsAre(":1.1 101", ":1.5 0"));

    EXPECT_THAT(connections.remembered(), ElementsAre(":1.2"));
    EXPECT_TRUE(connections.add(":1.2")) << "its process is looked up again";
    EXPECT_EQ(connections.identity(":1.2"), nullptr);
}

TEST_F(ConnectionsTest, AComparisonFindsThoseWhoseLeavingWasNotReported) {
    Connections connections;
    connections.begin("bus1", {":1.3"}, ":1.0");
    connections.add(":1.1");
    connections.identify(":1.1", process(101));

    EXPECT_THAT(texts(connections.compare({":1.3"})), ElementsAre(":1.1 101"));

    EXPECT_THAT(texts(connections.compare({":1.3"})), IsEmpty());
    EXPECT_FALSE(connections.remove(":1.1"));
    EXPECT_TRUE(connections.remove(":1.3"));
}

TEST_F(ConnectionsTest, ThoseWhoLeftAreNotRememberedAcrossARestart) {
    {
        Connections connections;
        connections.begin("bus1", {}, ":1.0");
        for (const char* name : {":1.1", ":1.2", ":1.3"}) {
            connections.add(name);
            connections.identify(name, process(101));
        }

        connections.remove(":1.1");
        connections.compare({":1.3"});
    }

    EXPECT_THAT(CallersFile::read().second, ElementsAre(Pair(":1.3", 101)));
}

TEST_F(ConnectionsTest, AProcessThatHasGoneWhenItIsLookedUpIsNotKnown) {
    Connections connections;
    connections.begin("bus1", {}, ":1.0");
    connections.add(":1.1");
    connections.remove(":1.1");

    EXPECT_FALSE(connections.identify(":1.1", process(0)));

    EXPECT_EQ(connections.identity(":1.1"), nullptr);
    EXPECT_THAT(CallersFile::read().second, IsEmpty());
}
