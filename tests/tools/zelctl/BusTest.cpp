// SPDX-License-Identifier: Apache-2.0
// zelctl against a daemon that answers what no daemon should, and a bus that goes.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/Files.h"
#include "support/PrivateBus.h"
#include "support/Wait.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

using Bytes = std::vector<std::uint8_t>;

Bytes ints(const std::vector<std::int32_t>& values) {
    Bytes bytes(values.size() * sizeof(std::int32_t));
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

Bytes report(std::int32_t length, const std::string& text) {
    Bytes bytes = ints({0, length});
    bytes.insert(bytes.end(), text.begin(), text.end());
    return bytes;
}

Bytes reportOf(const std::string& text) {
    return report(static_cast<std::int32_t>(text.size()), text);
}

// A report with one record, or null.
std::string reportWith(const std::string& records) {
    return R"({ "zel-lite" : )" + records +
           R"(, "LastTryTerminateTime" : "", "LastTryTerminateResult" : "", "TvViewerState" : "",)"
           R"( "TvViewerStateChangeTime" : "" })";
}

const std::string kNoTraces = reportWith("null");

std::string openTraceOf(pid_t pid) {
    return reportWith(R"([{ "PID" : ")" + std::to_string(pid) +
                      R"(", "ProcessName" : "zelctl", "Language" : "C/C++", "TerminationTime" : "",)"
                      R"( "StackTraces" : [{ "CreationTime" : "1.0", "StackTrace" : "why" }] }])");
}

// A descriptor of this process, closed with it.
class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() { close(m_fd); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    operator int() const { return m_fd; }

private:
    int m_fd;
};

int pipeWithoutReader() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    return ends[1];
}

constexpr const char* kStateFile = "/tmp/zel_lite_sessions_state.txt";

// A table of the first connections of a bus.
std::string stateOf(std::int32_t sessions) {
    std::string state;
    const auto add = [&state](std::int32_t value) {
        state.append(reinterpret_cast<const char*>(&value), sizeof value);
    };
    add(sessions);
    for (std::int32_t i = 0; i < sessions; ++i) {
        for (const std::string& text :
             {":1." + std::to_string(i), std::string("player"), std::string("42")}) {
            add(static_cast<std::int32_t>(text.size()));
            state += text;
        }
    }
    return state;
}

// Has the daemon's name and answers each method with the bytes that a test gives for it.
class FakeDaemon {
public:
    FakeDaemon() : m_connection(sdbus::createSystemBusConnection()) {
        m_object = sdbus::createObject(*m_connection, "/com/brenlow/ZELLite/SignalObject");
        m_object->registerMethod("Call")
            .onInterface("com.brenlow.ZELLite.SignalIFace")
            .implementedAs(
                [this](const std::string& /*interface*/, std::int32_t method, const Bytes& /*request*/) {
                    std::unique_lock<std::mutex> lock(m_mutex);
                    m_called.push_back(method);
                    if (method == m_hookedMethod) {
                        lock.unlock();
                        m_hook();
                        lock.lock();
                    }
                    return m_replies[method];
                });
        m_object->finishRegistration();
        m_connection->requestName("com.brenlow.ZELLite");
        m_thread = std::thread([this] { serve(); });
    }
    ~FakeDaemon() {
        m_connection->leaveEventLoop();
        m_thread.join();
    }
    FakeDaemon(const FakeDaemon&) = delete;
    FakeDaemon& operator=(const FakeDaemon&) = delete;

    void answer(std::int32_t method, const Bytes& reply) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_replies[method] = reply;
    }

    // The methods that were called, in order.
    std::vector<std::int32_t> called() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_called;
    }

    // Runs before a method is answered.
    void before(std::int32_t method, std::function<void()> hook) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_hookedMethod = method;
        m_hook = std::move(hook);
    }

private:
    // Until it is told to end, or the bus goes.
    void serve() {
        try {
            m_connection->enterEventLoop();
        } catch (const sdbus::Error&) {
            return;
        }
    }

    std::mutex m_mutex;
    std::map<std::int32_t, Bytes> m_replies;
    std::vector<std::int32_t> m_called;
    std::int32_t m_hookedMethod = -1;
    std::function<void()> m_hook;
    std::unique_ptr<sdbus::IConnection> m_connection;
    std::unique_ptr<sdbus::IObject> m_object;
    std::thread m_thread;
};

// A zelctl that was started, killed when nobody waited for its end.
class Program {
public:
    static constexpr int kToFile = -1;
    static constexpr int kClosed = -2;

    // Its standard output and errors are files, closed, or descriptors of this process.
    explicit Program(std::vector<std::string> arguments, int output = kToFile, int errors = kToFile) {
        std::vector<char*> argv{const_cast<char*>("zelctl")};
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions{};
        posix_spawn_file_actions_init(&actions);
        direct(actions, STDOUT_FILENO, output, kOutput);
        direct(actions, STDERR_FILENO, errors, kErrors);
        EXPECT_EQ(posix_spawn(&m_pid, ZELCTL, &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Program() {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            wait();
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    int wait() {
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    // Whether wait() would return at once.
    bool hasEnded() const {
        siginfo_t info{};
        return waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               info.si_pid == m_pid;
    }
    pid_t pid() const { return m_pid; }
    static std::string output() { return readFile(kOutput); }
    static std::string errors() { return readFile(kErrors); }

private:
    static void direct(posix_spawn_file_actions_t& actions, int fd, int where, const char* file) {
        if (where == kClosed) {
            posix_spawn_file_actions_addclose(&actions, fd);
        } else if (where == kToFile) {
            posix_spawn_file_actions_addopen(&actions, fd, file, O_WRONLY | O_CREAT | O_TRUNC, 0600);
        } else {
            posix_spawn_file_actions_adddup2(&actions, where, fd);
        }
    }

    static constexpr const char* kOutput = "/tmp/zelctl.out";
    static constexpr const char* kErrors = "/tmp/zelctl.err";

    pid_t m_pid = -1;
};

// A unit that counts how often somebody wants to know something of it.
std::unique_ptr<sdbus::IObject> countReads(sdbus::IConnection& systemd, const std::string& unit, int& asked) {
    auto object = sdbus::createObject(systemd, unit);
    object->registerProperty("LoadState").onInterface("org.freedesktop.systemd1.Unit").withGetter([&asked] {
        ++asked;
        return std::string("loaded");
    });
    object->finishRegistration();
    return object;
}

class ZelctlBusTest : public ::testing::Test {
protected:
    // Each test has a bus of its own.
    ~ZelctlBusTest() override {
        m_bus.stop();
        m_bus.start();
    }

    static int run(const std::vector<std::string>& arguments) { return Program(arguments).wait(); }

    // A trace that the daemon keeps, of a process that can't say so.
    void expectClosedAgain(int output, const std::string& problem) {
        std::promise<pid_t> started;
        m_daemon.answer(3, ints({0}));
        m_daemon.answer(4, ints({0}));
        m_daemon.before(2, [&] { m_daemon.answer(2, reportOf(openTraceOf(started.get_future().get()))); });
        Program program({"trace", "open", "why"}, output);
        started.set_value(program.pid());

        EXPECT_TRUE(becomesTrue([&program] { return program.hasEnded(); }));
        kill(program.pid(), SIGKILL);
        EXPECT_EQ(program.wait(), 1);
        EXPECT_THAT(Program::errors(), HasSubstr("zelctl: standard output: " + problem + "; try: "));
        EXPECT_THAT(m_daemon.called(), ElementsAre(3, 2, 4));
    }

    static PrivateBus m_bus;
    FakeDaemon m_daemon;
};

PrivateBus ZelctlBusTest::m_bus;

TEST_F(ZelctlBusTest, AReportThatIsNotAsLongAsItSaysIsRefused) {
    for (const Bytes& reply : {Bytes{}, ints({0}), ints({1, 0}), report(-1, "{}"), report(3, "{}"),
                               report(1, "{}"), report(INT32_MAX, "{}")}) {
        m_daemon.answer(2, reply);

        EXPECT_EQ(run({"report", "--json"}), 70);
        EXPECT_THAT(Program::output(), IsEmpty());
        EXPECT_THAT(Program::errors(),
                    HasSubstr("its report is not as long as it says; try: zelctl self-test"));
    }
}

TEST_F(ZelctlBusTest, AReportThatIsNoReportIsPassedOnButNotRead) {
    m_daemon.answer(2, report(9, "no report"));

    EXPECT_EQ(run({"report", "--json"}), 0);
    EXPECT_EQ(Program::output(), "no report");
    EXPECT_EQ(run({"report"}), 70);
    EXPECT_THAT(Program::errors(), HasSubstr("the daemon's report: "));
    EXPECT_EQ(run({"report", "--html", "/tmp/page.html"}), 70);
    EXPECT_FALSE(exists("/tmp/page.html"));
}

TEST_F(ZelctlBusTest, ACommandLineThatMakesNoSenseIsRefusedAndSaidToBe) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> kRefused{
        {{}, "zelctl: A verb is required\n"},
        {{"trace"}, "zelctl: A verb is required\n"},
        {{"no-such-verb"}, "zelctl: The following argument was not expected: no-such-verb\n"},
        {{"status", "--no-such-option"},
         "zelctl: The following argument was not expected: --no-such-option\n"},
        {{"run", "--"}, "zelctl: a command behind -- is required\n"},
        {{"run", "--", ""}, "zelctl: CMD: the command is empty\n"},
        {{"run", "--", "", "word"}, "zelctl: CMD: the command is empty\n"},
        {{"report", "--html", ""}, "zelctl: --html: the name of the file is empty\n"},
    };
    m_daemon.answer(2, reportOf(kNoTraces));
    for (const auto& [arguments, message] : kRefused) {
        EXPECT_EQ(run(arguments), 2) << message;
        EXPECT_EQ(Program::output(), "");
        EXPECT_EQ(Program::errors(), message + "Run with --help for more information.\n");
    }
    EXPECT_THAT(m_daemon.called(), IsEmpty());
}

TEST_F(ZelctlBusTest, AnAnswerThatIsTooShortIsRefused) {
    m_daemon.answer(5, ints({0}));
    m_daemon.answer(0, {1, 2});

    EXPECT_EQ(run({"status"}), 70);
    EXPECT_THAT(Program::errors(), HasSubstr("it does not say whether the service is terminated"));
    EXPECT_EQ(run({"run", "--", "touch", "/tmp/ran"}), 70);
    EXPECT_THAT(Program::errors(), HasSubstr("its answer is shorter than it must be"));
    EXPECT_FALSE(exists("/tmp/ran"));
}

TEST_F(ZelctlBusTest, ASignalWhileTheSessionIsClosedDoesNotEndItHalfWay) {
    for (const std::int32_t method : {0, 1, 3, 4}) {
        m_daemon.answer(method, ints({0}));
    }
    Program program({"run", "--trace", "why", "--", "sh", "-c",
                     "while [ ! -e /tmp/enough ]; do sleep 0.01; done; exit 7"});
    m_daemon.before(1, [pid = program.pid()] { kill(pid, SIGTERM); });
    writeFile("/tmp/enough", "");

    EXPECT_EQ(program.wait(), 7);

    EXPECT_THAT(m_daemon.called(), ElementsAre(0, 3, 2, 4, 1));
    unlink("/tmp/enough");
}

// It would outlive the process.
TEST_F(ZelctlBusTest, ATraceOfWhichTheDaemonDoesNotTellIsClosedAgain) {
    m_daemon.answer(3, ints({0}));
    m_daemon.answer(4, ints({0}));
    m_daemon.answer(2, report(9, "no report"));
    EXPECT_EQ(run({"trace", "open", "why"}), 70);
    EXPECT_THAT(m_daemon.called(), ElementsAre(3, 2, 4));

    m_daemon.answer(2, report(2, "{}"));
    EXPECT_NE(run({"trace", "open", "why"}), 0);
    EXPECT_THAT(m_daemon.called(), ElementsAre(3, 2, 4, 3, 2, 4));
}

TEST_F(ZelctlBusTest, ATraceIsClosedAgainWhenStandardOutputIsFull) {
    const Descriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));

    expectClosedAgain(full, "No space left on device");
}

TEST_F(ZelctlBusTest, ATraceIsClosedAgainWhenNobodyReadsStandardOutput) {
    const Descriptor abandoned(pipeWithoutReader());

    expectClosedAgain(abandoned, "Broken pipe");
}

TEST_F(ZelctlBusTest, ATraceIsClosedAgainWhenStandardOutputIsClosed) {
    expectClosedAgain(Program::kClosed, "Bad file descriptor");
}

// The daemon comes to the opening all the same, later.
TEST_F(ZelctlBusTest, ATraceThatWasNotOpenedInTimeIsClosedAgain) {
    m_daemon.answer(3, ints({0}));
    m_daemon.answer(4, ints({0}));
    std::promise<void> isFree;
    m_daemon.before(3, [&isFree] { isFree.get_future().wait(); });

    EXPECT_EQ(run({"trace", "open", "--timeout", "1", "why"}), 75);

    isFree.set_value();
    EXPECT_TRUE(becomesTrue([this] { return m_daemon.called() == std::vector<std::int32_t>{3, 4}; }));
}

TEST_F(ZelctlBusTest, NoSessionIsHeldWithoutAPlaceToSaySo) {
    m_daemon.answer(0, ints({0}));
    m_daemon.answer(1, ints({0}));
    const Descriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));

    EXPECT_EQ(Program({"open"}, full).wait(), 1);
    EXPECT_THAT(Program::errors(), HasSubstr("zelctl: standard output: No space left on device; try: "));
    EXPECT_EQ(Program({"open"}, Program::kClosed).wait(), 1);
    EXPECT_THAT(Program::errors(), HasSubstr("zelctl: standard output: Bad file descriptor; try: "));
    EXPECT_THAT(m_daemon.called(), ElementsAre(0, 1, 0, 1));
}

// Any user could take numbers that can be guessed, such as process ids.
TEST_F(ZelctlBusTest, ATraceWithoutANumberGetsOneThatCannotBeGuessed) {
    m_daemon.answer(3, ints({0}));
    m_daemon.answer(4, ints({0}));
    m_daemon.answer(2, reportOf(kNoTraces));
    std::set<std::int64_t> numbers;

    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(run({"trace", "open", "why"}), 1);
        std::int64_t number = -1;
        EXPECT_EQ(std::sscanf(Program::errors().c_str(),
                              "zelctl: trace %" SCNd64 ": the daemon did not keep it", &number),
                  1)
            << Program::errors();
        numbers.insert(number);
    }

    EXPECT_THAT(numbers, SizeIs(16));
    // All is above what a 32-bit draw gives, and the most of them is near what 63 bits hold.
    EXPECT_GT(*numbers.begin(), std::int64_t{1} << 32);
    EXPECT_GT(*numbers.rbegin(), std::int64_t{1} << 60);
}

// Not with something of zelctl's own there.
TEST_F(ZelctlBusTest, WhatWasClosedIsClosedForTheCommandToo) {
    m_daemon.answer(0, ints({0}));
    m_daemon.answer(1, ints({0}));

    EXPECT_EQ(Program({"run", "--", "sh", "-c", "[ ! -e /proc/self/fd/1 ]"}, Program::kClosed).wait(), 0);
    EXPECT_EQ(run({"run", "--", "sh", "-c", "[ -e /proc/self/fd/1 ]"}), 0);
}

TEST_F(ZelctlBusTest, WhoLeavesCallersOfATraceWaitingIsNotWaitedFor) {
    const int taken = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    // The name is the whole machine's, where other builds of this test may run at the same time.
    const std::string id = std::to_string(std::random_device{}());
    const std::string text = "zelctl/" + std::to_string(geteuid()) + "/trace/" + id;
    std::copy(text.begin(), text.end(), &name.sun_path[1]);
    const auto* address = reinterpret_cast<const sockaddr*>(&name);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
    ASSERT_EQ(bind(taken, address, size), 0);
    ASSERT_EQ(listen(taken, 0), 0);
    const int waiting = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    ASSERT_EQ(connect(waiting, address, size), 0);

    EXPECT_EQ(run({"trace", "close", id}), 1);
    EXPECT_EQ(run({"trace", "open", "--id", id, "why"}), 1);
    EXPECT_THAT(Program::errors(), HasSubstr("trace " + id + ": that id is taken; try: another --id"));

    close(waiting);
    close(taken);
}

TEST_F(ZelctlBusTest, ABusThatAcceptsAndSaysNothingIsNotWaitedFor) {
    const int silent = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un name{AF_UNIX, "/tmp/silent-bus"};
    ASSERT_EQ(bind(silent, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    ASSERT_EQ(listen(silent, 4), 0);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/tmp/silent-bus", 1);

    Program program({"status", "--timeout", "1"});
    EXPECT_TRUE(becomesTrue([&program] { return program.hasEnded(); }));
    EXPECT_EQ(program.wait(), 68);
    EXPECT_THAT(Program::errors(),
                HasSubstr("unix:path=/tmp/silent-bus: it accepts connections and says nothing; try: "));

    setenv("DBUS_SYSTEM_BUS_ADDRESS", m_bus.address().c_str(), 1);
    close(silent);
    unlink("/tmp/silent-bus");
}

TEST_F(ZelctlBusTest, SystemdThatSaysNothingIsWaitedForOnceAndNotLong) {
    m_daemon.answer(5, ints({0, 0}));
    m_daemon.answer(2, reportOf(kNoTraces));
    // Has its name, and reads nothing before zelctl has ended.
    const auto systemd = sdbus::createSystemBusConnection("org.freedesktop.systemd1");
    int asked = 0;
    const std::string units = "/org/freedesktop/systemd1/unit/";
    const auto daemon = countReads(*systemd, units + "zel_2dlite_2eservice", asked);
    const auto service = countReads(*systemd, units + "zel_5fdeamon_2eservice", asked);

    Program program({"status", "--timeout", "1"});
    EXPECT_TRUE(becomesTrue([&program] { return program.hasEnded(); }));
    EXPECT_EQ(program.wait(), 1);
    EXPECT_THAT(Program::output(), HasSubstr("service         unknown\n"));
    EXPECT_THAT(Program::errors(), HasSubstr("systemd: it does not say how the service is; try: "));
    while (systemd->processPendingRequest()) {
    }
    EXPECT_EQ(asked, 1);
}

// It may take its time, in which things change.
TEST_F(ZelctlBusTest, AllIsLookedAtWhenTheDaemonHasAnswered) {
    m_daemon.answer(5, ints({0, 0}));
    m_daemon.answer(2, reportOf(kNoTraces));
    m_daemon.before(5, [] { writeFile(kStateFile, stateOf(1)); });

    run({"status"});

    EXPECT_THAT(Program::output(), HasSubstr("sessions        1 session open\n"));
    unlink(kStateFile);
}

class ZelctlSelfTestTest : public ZelctlBusTest {
protected:
    ZelctlSelfTestTest() {
        m_daemon.answer(0, ints({0}));
        m_daemon.answer(1, ints({0}));
        m_daemon.answer(2, reportOf(kNoTraces));
        m_daemon.answer(5, ints({0, 0}));
    }
    ~ZelctlSelfTestTest() override { unlink(kStateFile); }

private:
    // Somebody has the service's name, so it runs.
    std::unique_ptr<sdbus::IConnection> m_service = sdbus::createSystemBusConnection("com.brenlow.ZELDaemon");
};

TEST_F(ZelctlSelfTestTest, AServiceThatSomebodyElseHasStartedIsLeftAlone) {
    m_daemon.answer(5, ints({0, 1}));

    run({"self-test", "--timeout", "1"});

    EXPECT_THAT(Program::output(),
                HasSubstr("left out: it would start the service, which the daemon takes for terminated"));
    EXPECT_THAT(m_daemon.called(), Not(Contains(0)));
}

TEST_F(ZelctlSelfTestTest, ASessionThatIsNotSavedIsWrong) {
    EXPECT_EQ(run({"self-test", "--with-session", "--timeout", "1"}), 1);

    EXPECT_THAT(Program::output(), HasSubstr("WRONG session     "));
    EXPECT_THAT(Program::output(), HasSubstr("did not have the session"));
}

TEST_F(ZelctlSelfTestTest, ASessionThatStaysSavedIsWrong) {
    writeFile(kStateFile, stateOf(100));

    EXPECT_EQ(run({"self-test", "--with-session", "--timeout", "1"}), 1);

    EXPECT_THAT(Program::output(), HasSubstr("still has the session"));
}

TEST_F(ZelctlBusTest, WhenTheBusGoesTheCommandRunsOn) {
    m_daemon.answer(0, ints({0}));
    Program program(
        {"run", "--", "sh", "-c", "echo up; while [ ! -e /tmp/enough ]; do sleep 0.01; done; exit 7"});
    ASSERT_TRUE(becomesTrue([] { return Program::output() == "up\n"; }));

    m_bus.stop();

    EXPECT_TRUE(becomesTrue([] {
        return Program::errors() ==
               "zelctl: the bus has gone, and the session with it; the command runs on\n";
    })) << Program::errors();
    writeFile("/tmp/enough", "");
    EXPECT_EQ(program.wait(), 7);
    EXPECT_EQ(Program::errors(), "zelctl: the bus has gone, and the session with it; the command runs on\n");
}

// Started by nohup, or in the background by a shell without job control.
TEST_F(ZelctlBusTest, ASignalThatWasIgnoredStaysIgnored) {
    m_daemon.answer(0, ints({0}));
    m_daemon.answer(1, ints({0}));
    const auto before = signal(SIGHUP, SIG_IGN);
    Program program({"run", "--", "env", "--default-signal=HUP", "sh", "-c",
                     "trap 'exit 9' HUP; trap 'exit 7' USR1; echo up; while true; do sleep 0.01; done"});
    signal(SIGHUP, before);
    ASSERT_TRUE(becomesTrue([] { return Program::output() == "up\n"; }));

    kill(program.pid(), SIGHUP);
    kill(program.pid(), SIGUSR1);

    // What is heard is passed on, in this order.
    EXPECT_EQ(program.wait(), 7);
}

TEST_F(ZelctlBusTest, ACommandIsWaitedForAlsoWhereChildrenWereIgnored) {
    m_daemon.answer(0, ints({0}));
    m_daemon.answer(1, ints({0}));
    signal(SIGCHLD, SIG_IGN);
    Program program({"run", "--", "sh", "-c", "while [ ! -e /tmp/enough ]; do sleep 0.01; done; exit 7"});
    signal(SIGCHLD, SIG_DFL);
    writeFile("/tmp/enough", "");

    EXPECT_TRUE(becomesTrue([&program] { return program.hasEnded(); }));
    kill(program.pid(), SIGKILL);
    EXPECT_EQ(program.wait(), 7);
    unlink("/tmp/enough");
}

TEST_F(ZelctlBusTest, ATraceOfACommandThatIsNotKeptIsMissedOnly) {
    for (const std::int32_t method : {0, 1, 3, 4}) {
        m_daemon.answer(method, ints({0}));
    }
    m_daemon.answer(2, reportOf(kNoTraces));

    EXPECT_EQ(run({"run", "--trace", "why", "--", "sh", "-c", "exit 7"}), 7);
    EXPECT_THAT(Program::errors(),
                HasSubstr("does not show the trace; the command is run all the same: the"));

    m_daemon.answer(2, report(9, "no report"));
    EXPECT_EQ(run({"run", "--trace", "why", "--", "sh", "-c", "exit 7"}), 7);
    EXPECT_THAT(Program::errors(), HasSubstr("all the same: the daemon's report: "));

    m_daemon.answer(3, {1, 2});
    EXPECT_EQ(run({"run", "--trace", "why", "--", "sh", "-c", "exit 7"}), 7);
    EXPECT_THAT(Program::errors(), HasSubstr("all the same: the daemon, com.brenlow.ZELLite: its answer is"));
    EXPECT_THAT(m_daemon.called(), ElementsAre(0, 3, 2, 4, 1, 0, 3, 2, 4, 1, 0, 3, 4, 1));
}

// Nobody hears that the trace is missed, and the command runs on.
TEST_F(ZelctlBusTest, ACommandIsRunAlsoWhereNobodyReadsTheErrors) {
    for (const std::int32_t method : {0, 1, 3, 4}) {
        m_daemon.answer(method, ints({0}));
    }
    m_daemon.answer(2, reportOf(kNoTraces));
    const Descriptor abandoned(pipeWithoutReader());

    EXPECT_EQ(
        Program({"run", "--trace", "why", "--", "sh", "-c", "kill -PIPE $$"}, Program::kToFile, abandoned)
            .wait(),
        128 + SIGPIPE);
    EXPECT_THAT(m_daemon.called(), ElementsAre(0, 3, 2, 4, 1));
}

TEST_F(ZelctlBusTest, WhenTheBusGoesBeforeTheCommandIsRunItIsNotRun) {
    m_daemon.answer(0, ints({0}));
    std::promise<void> hasGone;
    m_daemon.before(3, [&hasGone] { hasGone.get_future().wait(); });
    Program program({"run", "--trace", "why", "--", "touch", "/tmp/ran"});
    ASSERT_TRUE(becomesTrue([this] { return m_daemon.called().size() == 2; }));

    m_bus.stop();

    EXPECT_EQ(program.wait(), 68);
    EXPECT_FALSE(exists("/tmp/ran"));
    hasGone.set_value();
}

TEST_F(ZelctlBusTest, WhenTheBusGoesNothingIsHeldAnyMore) {
    m_daemon.answer(0, ints({0}));
    Program program({"open"});
    ASSERT_TRUE(becomesTrue([] { return !Program::output().empty(); }));

    m_bus.stop();

    EXPECT_EQ(program.wait(), 68);
    EXPECT_THAT(Program::errors(), HasSubstr("the system bus: it has gone, and the session with it; try: "));
}

}  // namespace
