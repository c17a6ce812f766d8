// SPDX-License-Identifier: Apache-2.0
// When the service is asked to terminate, what is recorded of it, who is still alive, and the helper thread.
#include <gmock/gmock.h>
#include <sys/mount.h>

#include <climits>
#include <memory>
#include <thread>
#include <utility>

#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeLite.h"
#include "fakes/FakeStateManager.h"
#include "fakes/FakeVconf.h"
#include "support/Files.h"
#include "support/HelperWaits.h"
#include "support/SessionWorld.h"
#include "support/Wait.h"

using fakes::Actions;
using fakes::FakeDlog;
using fakes::FakeStateManager;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr int kInfo = 4;
constexpr int kError = 6;
constexpr const char* kViewer = "memory/tv-viewer/viewer_state";

struct ThreadStarts {
    static bool recordActions;
};
bool ThreadStarts::recordActions = false;

class SessionPolicyTest : public SessionWorld {
protected:
    // The key has a new value at this time.
    void viewerBecomes(const std::string& state, std::int64_t time) {
        fakes::FakeVconf::setText(kViewer, state);
        m_control->setTime(time);
        fakes::FakeVconf::tell(kViewer, kViewer);
    }
};

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

std::vector<ETerminateErrorType> errors(std::initializer_list<int> numbers) {
    std::vector<ETerminateErrorType> list;
    for (const int number : numbers) {
        list.push_back(static_cast<ETerminateErrorType>(number));
    }
    return list;
}

}  // namespace

// What the constructor of std::thread calls to start it.
extern "C" void __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    std::thread* thread, std::unique_ptr<std::thread::_State> state, void (*depend)());
extern "C" void __wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    std::thread* thread, std::unique_ptr<std::thread::_State> state, void (*depend)());
extern "C" void __wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    std::thread* thread, std::unique_ptr<std::thread::_State> state, void (*depend)()) {
    if (ThreadStarts::recordActions) {
        Actions::add("thread starts");
    }
    __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
        thread, std::move(state), depend);
}

// The attempt

TEST_F(SessionPolicyTest, AnAttemptWithoutSessionsAsksTheService) {
    EXPECT_TRUE(m_control->TryTerminateZel());

    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::RequestTerminate"));
    EXPECT_THAT(
        FakeDlog::messages(kInfo),
        ElementsAre("Try Terminate ZEL", "m_isDebug(0), disableSessionsCheck(0), m_termianteErrorsCount(0)"));
    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"LastTryTerminateResult\" : \"SUCCESS\""));
}

TEST_F(SessionPolicyTest, AnAttemptWithSessionsOpenIsRefusedAndNamesThem) {
    m_control->Open("b", "bee", "2");
    m_control->Open("a", "ant", "1");
    m_control->TryTerminateZel();
    forget();
    m_control->setTime(7500);

    EXPECT_FALSE(m_control->TryTerminateZel());

    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Can not terminate zel-daemon. There are sessions open, activeSessionsCount(2)",
                            "Opened Session, sessionId(a), progName(ant), pid(1)",
                            "Opened Session, sessionId(b), progName(bee), pid(2)"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "TryTerminateZel");
    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"LastTryTerminateResult\" : \"FAIL\""));
    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"LastTryTerminateTime\" : \"7.500\""));
}

TEST_F(SessionPolicyTest, AnAttemptBeginsItsLinesAndIsTimedBeforeTheServiceAnswers) {
    FakeDlog::recordActions();
    m_control->setTime(7500);
    FakeStateManager::duringTerminate = [this] { m_control->setTime(9000); };

    EXPECT_TRUE(m_control->TryTerminateZel());

    EXPECT_THAT(Actions::take(),
                ElementsAre("log TryTerminateZel: Try Terminate ZEL", "StateManager::RequestTerminate",
                            "log TryTerminateZel: m_isDebug(0), disableSessionsCheck(0), "
                            "m_termianteErrorsCount(0)"));
    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"LastTryTerminateTime\" : \"7.500\""));
}

TEST_F(SessionPolicyTest, ARefusedAttemptBeginsItsLinesToo) {
    m_control->Open("a", "ant", "1");
    forget();
    FakeDlog::recordActions();

    EXPECT_FALSE(m_control->TryTerminateZel());

    EXPECT_THAT(Actions::take(),
                ElementsAre("log TryTerminateZel: Try Terminate ZEL",
                            "log TryTerminateZel: Can not terminate zel-daemon. There are sessions open, "
                            "activeSessionsCount(1)",
                            "log TryTerminateZel: Opened Session, sessionId(a), progName(ant), pid(1)"));
}

TEST_F(SessionPolicyTest, ARefusalForSessionsForgetsAnEarlierSuccess) {
    ASSERT_TRUE(m_control->TryTerminateZel());
    m_control->Open("a", "ant", "1");

    EXPECT_FALSE(m_control->TryTerminateZel());

    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"LastTryTerminateResult\" : \"FAIL\""));
}

TEST_F(SessionPolicyTest, ARefusingServiceMakesTheAttemptFail) {
    FakeStateManager::terminateResult = false;
    FakeStateManager::terminateErrors = errors({4, 5});

    EXPECT_FALSE(m_control->TryTerminateZel());

    EXPECT_THAT(FakeDlog::messages(kInfo),
                Contains("m_isDebug(0), disableSessionsCheck(0), m_termianteErrorsCount(0)"));
    EXPECT_THAT(m_control->GetDebugInfo(), Not(HasSubstr("##_LAST_TERMINATE_ERRORS")))
        << "errors are recorded on debug sets only";
}

TEST_F(SessionPolicyTest, OnADebugSetTheOverrideSendsTheRequestDespiteSessions) {
    startDebug();
    m_control->Open("a", "ant", "1");
    setSwitch("zel_lite_disable_opened_sessions_check");
    forget();

    EXPECT_TRUE(m_control->TryTerminateZel());

    EXPECT_THAT(Actions::take(), Contains("StateManager::RequestTerminate"));
    EXPECT_THAT(FakeDlog::messages(kInfo),
                Contains("m_isDebug(1), disableSessionsCheck(1), m_termianteErrorsCount(0)"));
}

TEST_F(SessionPolicyTest, TheOverrideIsLookedForAtEachAttempt) {
    startDebug();
    m_control->Open("a", "ant", "1");
    EXPECT_FALSE(m_control->TryTerminateZel());
    setSwitch("zel_lite_disable_opened_sessions_check");
    EXPECT_TRUE(m_control->TryTerminateZel());
    setSwitch("zel_lite_disable_opened_sessions_check", false);

    EXPECT_FALSE(m_control->TryTerminateZel());
}

TEST_F(SessionPolicyTest, OnAnOrdinarySetTheOverrideIsNotEvenLookedFor) {
    m_control->Open("a", "ant", "1");
    setSwitch("zel_lite_disable_opened_sessions_check");
    forget();

    EXPECT_FALSE(m_control->TryTerminateZel());

    EXPECT_THAT(Actions::take(), IsEmpty());
}

TEST_F(SessionPolicyTest, SuccessForceClosesEveryOpenTrace) {
    openTrace(9, "nine", ":1.2");
    openTrace(2, "two");
    openTrace(1, "one");
    forget();

    EXPECT_TRUE(m_control->TryTerminateZel());

    EXPECT_THAT(
        FakeDlog::messages(kError),
        ElementsAre(
            "Force to close debug trace, sessionId(:1.1), progName(app), pid(77), traceID(1)", "ST(one)",
            "Force to close debug trace, sessionId(:1.1), progName(app), pid(77), traceID(2)", "ST(two)",
            "Force to close debug trace, sessionId(:1.2), progName(app), pid(77), traceID(9)", "ST(nine)"));
    const std::string report = m_control->GetDebugInfo();
    EXPECT_THAT(report, HasSubstr("\"DestructionTime\" : \"1.000\"")) << "they are recent traces now";
    EXPECT_THAT(report, HasSubstr("\"TerminationTime\" : \"1.000\""));
    forget();
    m_control->TryTerminateZel();
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty()) << "nothing is open any more";
}

TEST_F(SessionPolicyTest, ARefusalForceClosesNothing) {
    openTrace(1, "one");
    FakeStateManager::terminateResult = false;
    forget();

    EXPECT_FALSE(m_control->TryTerminateZel());

    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty());
    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"StackTrace\" : \"one\""));
}

TEST_F(SessionPolicyTest, ErrorsBecomeTracesUnderTheReservedIdUntilTheNextAttempt) {
    startDebug();
    FakeStateManager::terminateResult = false;
    FakeStateManager::terminateErrors = errors({12, -3});

    EXPECT_FALSE(m_control->TryTerminateZel());

    const std::string report = m_control->GetDebugInfo();
    EXPECT_THAT(report, HasSubstr("\"ProcessName\" : \"##_LAST_TERMINATE_ERRORS\""));
    EXPECT_THAT(report, HasSubstr("\"PID\" : \"-1\""));
    EXPECT_THAT(report, HasSubstr("\"Language\" : \"C/C++\""));
    EXPECT_THAT(report, HasSubstr("\"Termination error (ETerminateErrorType): 12\""));
    EXPECT_THAT(report, HasSubstr("\"Termination error (ETerminateErrorType): -3\""));
    EXPECT_LT(report.find("): 12"), report.find("): -3")) << "in the order of the service's list";
    EXPECT_THAT(FakeDlog::messages(kInfo),
                Contains("m_isDebug(1), disableSessionsCheck(0), m_termianteErrorsCount(2)"));
    m_control->CloseDebugTrace("##_LAST_TERMINATE_ERRORS", 0);
    m_control->CloseDebugTrace("##_LAST_TERMINATE_ERRORS", 1);
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty()) << "their ids are 0 and 1";
}

TEST_F(SessionPolicyTest, ErrorsAreRecordedAlsoAfterSuccess) {
    startDebug();
    FakeStateManager::terminateErrors = errors({6});

    EXPECT_TRUE(m_control->TryTerminateZel());

    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("(ETerminateErrorType): 6"));
    forget();
    FakeStateManager::terminateErrors.clear();
    m_control->TryTerminateZel();
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty()) << "they were open, and were closed once";
}

TEST_F(SessionPolicyTest, EveryErrorBecomesATraceAndTheNextAttemptClosesAllOfThem) {
    startDebug();
    FakeStateManager::terminateResult = false;
    FakeStateManager::terminateErrors = errors({7, 7, 9});

    m_control->TryTerminateZel();

    EXPECT_THAT(FakeDlog::messages(kInfo),
                Contains("m_isDebug(1), disableSessionsCheck(0), m_termianteErrorsCount(3)"));
    EXPECT_EQ(occurrences(m_control->GetDebugInfo(), "ETerminateErrorType"), 3U);
    FakeStateManager::terminateErrors.clear();
    FakeStateManager::terminateResult = true;
    forget();
    m_control->TryTerminateZel();
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty()) << "none was left to be closed by force";
    EXPECT_EQ(occurrences(m_control->GetDebugInfo(), "ETerminateErrorType"), 0U);
}

// What the record of the errors says of its program is seen when one more trace under the same id has to go.
TEST_F(SessionPolicyTest, ErrorsAreRecordedInTheNameOfTheService) {
    startDebug();
    FakeStateManager::terminateErrors = errors({12});
    m_control->TryTerminateZel();
    openTrace(99, "one more", "##_LAST_TERMINATE_ERRORS");
    FakeStateManager::terminateErrors.clear();
    forget();

    m_control->TryTerminateZel();

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Force to close debug trace, sessionId(##_LAST_TERMINATE_ERRORS), "
                            "progName(zel-daemon), pid(-1), traceID(99)",
                            "ST(one more)"));
}

TEST_F(SessionPolicyTest, TheNextAttemptClosesTheErrorsAndEmptiesTheRecentTracesBeforeItLooksAtSessions) {
    startDebug();
    FakeStateManager::terminateResult = false;
    FakeStateManager::terminateErrors = errors({1, 2});
    m_control->TryTerminateZel();
    openTrace(5, "recent");
    m_control->CloseDebugTrace(":1.1", 5);
    m_control->Open("a", "ant", "1");
    forget();

    EXPECT_FALSE(m_control->TryTerminateZel());

    const std::string report = m_control->GetDebugInfo();
    EXPECT_THAT(report, Not(HasSubstr("ETerminateErrorType")));
    EXPECT_THAT(report, Not(HasSubstr("recent")));
    EXPECT_THAT(FakeDlog::messages(kError), Not(Contains(HasSubstr("Can not close StackTrace"))))
        << "both were open until then";
    FakeStateManager::terminateErrors.clear();
    m_control->Close("a");
    forget();
    m_control->TryTerminateZel();
    EXPECT_THAT(FakeDlog::messages(kError), IsEmpty()) << "the count was reset: nothing is closed twice";
}

// The attempt with the companion application

TEST_F(SessionPolicyTest, TheApplicationIsLaunchedAlwaysOrOnADebugSetAfterAFailure) {
    struct Row {
        bool debug;
        bool always;
        bool terminates;
        bool launches;
    };
    const std::vector<Row> rows{
        {false, false, false, false}, {false, false, true, false}, {false, true, false, true},
        {false, true, true, true},    {true, false, false, true},  {true, false, true, false},
        {true, true, false, true},    {true, true, true, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.debug << row.always << row.terminates);
        fakes::FakeLite::isDebug = row.debug;
        start();
        FakeStateManager::terminateResult = row.terminates;

        EXPECT_EQ(m_control->TryTerminateZelWithAppLaunch(row.always), row.terminates);

        const auto actions = Actions::take();
        EXPECT_EQ(std::count(actions.begin(), actions.end(), "StateManager::LaunchZelLiteApp 0"),
                  row.launches ? 1 : 0);
        EXPECT_EQ(FakeDlog::count(kInfo, "Launch zel-lite-app, alwaysLaunchApp(" +
                                             std::to_string(static_cast<int>(row.always)) + "), terminated(" +
                                             std::to_string(static_cast<int>(row.terminates)) + ")"),
                  row.launches ? 1U : 0U);
    }
}

TEST_F(SessionPolicyTest, TheApplicationIsLaunchedAfterTheAttempt) {
    m_control->TryTerminateZelWithAppLaunch(true);

    EXPECT_THAT(Actions::take(),
                ElementsAre("StateManager::RequestTerminate", "StateManager::LaunchZelLiteApp 0"));
}

// The delay

TEST_F(SessionPolicyTest, ClosingTheLastSessionSchedulesOneAttemptAfterTenSeconds) {
    setSwitch("zel_lite_aggressive_terminate");
    start();
    m_control->Open("a", "ant", "1");
    m_control->Open("b", "bee", "2");
    forget();

    m_control->Close("a");
    EXPECT_THAT(Actions::take(), IsEmpty()) << "somebody holds a session still";
    m_control->Close("b");

    EXPECT_THAT(Actions::take(), ElementsAre("g_timeout_add_seconds 10"));
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Will try to terminate ZEL after 10 seconds"));
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_tryTerminateWithDelay");
}

TEST_F(SessionPolicyTest, WithoutTheSwitchNothingIsScheduled) {
    m_control->Open("a", "ant", "1");
    setSwitch("zel_lite_aggressive_terminate");
    forget();

    m_control->Close("a");

    EXPECT_THAT(Actions::take(), IsEmpty()) << "the switch is read at start only";
}

TEST_F(SessionPolicyTest, ACrashOfTheLastOwnerSchedulesAnAttemptToo) {
    setSwitch("zel_lite_aggressive_terminate");
    start();
    m_control->Open("a", "ant", "1");
    forget();

    m_control->CloseOnCrash("a");

    EXPECT_THAT(Actions::take(), ElementsAre("g_timeout_add_seconds 10"));
}

TEST_F(SessionPolicyTest, ALastCloseThatCannotBeSavedSchedulesAnAttemptAllTheSame) {
    setSwitch("zel_lite_aggressive_terminate");
    start();
    m_control->Open("a", "ant", "1");
    // A file on which another one is mounted can be neither removed nor renamed.
    ASSERT_EQ(mount("/dev/null", "/tmp/zel_lite_sessions_state.txt", nullptr, MS_BIND, nullptr), 0);
    forget();

    EXPECT_TRUE(m_control->Close("a"));

    EXPECT_EQ(umount("/tmp/zel_lite_sessions_state.txt"), 0);
    EXPECT_THAT(Actions::take(),
                ElementsAre(testing::StartsWith("assert saved "), "g_timeout_add_seconds 10"));
}

TEST_F(SessionPolicyTest, AScheduledAttemptRunsOnce) {
    setSwitch("zel_lite_aggressive_terminate");
    start();
    m_control->Open("a", "ant", "1");
    m_control->Close("a");
    forget();

    EXPECT_THAT(runScheduled(), ElementsAre(false));

    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre("Try to terminate ZEL after delay"));
    EXPECT_THAT(Actions::take(), ElementsAre("StateManager::RequestTerminate"));
}

TEST_F(SessionPolicyTest, TwoLastClosesLeadToTwoAttempts) {
    setSwitch("zel_lite_aggressive_terminate");
    start();
    for (int round = 0; round < 2; ++round) {
        m_control->Open("a", "ant", "1");
        m_control->Close("a");
    }
    forget();

    EXPECT_THAT(runScheduled(), ElementsAre(false, false));

    EXPECT_THAT(Actions::take(),
                ElementsAre("StateManager::RequestTerminate", "StateManager::RequestTerminate"));
}

TEST_F(SessionPolicyTest, ASessionOpenedWithinTheDelayMakesTheAttemptARefusal) {
    setSwitch("zel_lite_aggressive_terminate");
    start();
    m_control->Open("a", "ant", "1");
    m_control->Close("a");
    m_control->Open("b", "bee", "2");
    forget();

    runScheduled();

    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_THAT(FakeDlog::messages(kError), Contains("Opened Session, sessionId(b), progName(bee), pid(2)"));
}

// The owners of restored sessions

TEST_F(SessionPolicyTest, OwnersThatAreGoneLoseTheirSessionsAndTheOthersStay) {
    Processes::scripted = true;
    Processes::alive = {100};
    m_control->Open("alive", "p", "100");
    m_control->Open("dead", "p", "200");
    m_control->Open("zero", "p", "0");
    m_control->Open("empty", "p", "");
    m_control->Open("text", "p", "abc");
    // The daemon starts anew and reads them back.
    start();

    m_control->CheckPIDs();

    EXPECT_THAT(Processes::probed, ElementsAre(100, 200));
    EXPECT_EQ(FakeDlog::count(kInfo, "Check PIDs, sessionsNum(5)"), 1U);
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Application not running, pid(200)", "Can not check pid", "Can not check pid",
                            "Can not check pid"));
    EXPECT_FALSE(m_control->Close("dead"));
    for (const char* kept : {"alive", "zero", "empty", "text"}) {
        EXPECT_TRUE(m_control->Close(kept)) << kept;
    }
}

TEST_F(SessionPolicyTest, ADeadOwnersTracesAreClosedOnADebugSetOnly) {
    for (const bool debug : {true, false}) {
        fakes::FakeLite::isDebug = debug;
        start();
        Processes::scripted = true;
        m_control->Open(":1.1", "p", "200");
        openTrace(1);

        m_control->CheckPIDs();

        EXPECT_EQ(m_control->GetDebugInfo().find("DestructionTime") != std::string::npos, debug);
    }
}

TEST_F(SessionPolicyTest, AProcessThatMayNotBeSignalledCountsAsNotRunning) {
    Processes::scripted = true;
    Processes::error = EPERM;
    m_control->Open("other", "p", "300");

    m_control->CheckPIDs();

    EXPECT_FALSE(m_control->Close("other"));
}

TEST_F(SessionPolicyTest, APidBeyondThirtyTwoBitsIsTheLargestAsWhereLongHasThirtyTwo) {
    Processes::scripted = true;
    m_control->Open("large", "p", "4294967297");
    m_control->Open("larger", "p", "99999999999999999999");
    m_control->Open("small", "p", "-4294967297");

    m_control->CheckPIDs();

    EXPECT_THAT(Processes::probed, ElementsAre(INT_MAX, INT_MAX, INT_MIN));
    EXPECT_FALSE(m_control->IsAnySessionActive()) << "a negative one that is not there is gone too";
}

TEST_F(SessionPolicyTest, ThePidIsReadAsFarAsItIsADecimalNumber) {
    Processes::scripted = true;
    m_control->Open("a", "p", " 42xyz");
    m_control->Open("b", "p", "010");

    m_control->CheckPIDs();

    EXPECT_THAT(Processes::probed, ElementsAre(42, 10));
}

TEST_F(SessionPolicyTest, WithoutSessionsNobodyIsProbed) {
    Processes::scripted = true;

    m_control->CheckPIDs();

    EXPECT_THAT(Processes::probed, IsEmpty());
    EXPECT_THAT(FakeDlog::messages(kInfo), ElementsAre("Check PIDs, sessionsNum(0)"));
}

// The viewer's state

TEST_F(SessionPolicyTest, TheViewersStateIsNotSetUntilItsFirstChange) {
    fakes::FakeVconf::setText(kViewer, "live");
    start();
    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"TvViewerState\" : \"not set\""));
    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"TvViewerStateChangeTime\" : \"\""));
    m_control->setTime(2345);

    fakes::FakeVconf::tell(kViewer, kViewer);

    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"TvViewerState\" : \"live\""));
    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"TvViewerStateChangeTime\" : \"2.345\""));
    EXPECT_EQ(FakeDlog::count(kInfo, "vconf tv-viewer state(live)"), 1U);
}

TEST_F(SessionPolicyTest, AChangeOfTheViewersStateToTheSameStateHasItsTimeToo) {
    viewerBecomes("live", 2345);

    viewerBecomes("live", 6789);

    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"TvViewerStateChangeTime\" : \"6.789\""));
}

TEST_F(SessionPolicyTest, TheViewersLastStateIsTheOneThatCounts) {
    viewerBecomes("live", 2345);

    viewerBecomes("off", 6789);

    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"TvViewerState\" : \"off\""));
}

TEST_F(SessionPolicyTest, AForeignKeyANamelessOneAndNobodyAreLoggedAndChangeNothing) {
    viewerBecomes("live", 2345);
    fakes::FakeVconf::setText(kViewer, "other");
    m_control->setTime(6789);

    fakes::FakeVconf::tell(kViewer, "memory/other");
    fakes::FakeVconf::tellNameless(kViewer);
    fakes::FakeVconf::tellNobody(kViewer);

    EXPECT_THAT(
        FakeDlog::messages(kError),
        ElementsAre(testing::MatchesRegex("vconf callback error, sessionControl\\(0x.*\\), name\\(0x.*\\), "
                                          "nameStr\\(memory/other\\)"),
                    testing::MatchesRegex("vconf callback error, sessionControl\\(0x.*\\), "
                                          "name\\(\\(nil\\)\\), nameStr\\(\\)"),
                    testing::MatchesRegex("vconf callback error, sessionControl\\(\\(nil\\)\\), "
                                          "name\\(0x.*\\), nameStr\\(memory/tv-viewer/viewer_state\\)")));
    EXPECT_EQ(FakeDlog::lines().back().function(), "m_tvViewerVconfCallback");
    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"TvViewerState\" : \"live\""));
    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"TvViewerStateChangeTime\" : \"2.345\""));
}

TEST_F(SessionPolicyTest, AStateThatCannotBeReadIsLoggedAndChangesNothing) {
    viewerBecomes("live", 2345);
    fakes::FakeVconf::remove(kViewer);
    m_control->setTime(6789);

    fakes::FakeVconf::tell(kViewer, kViewer);

    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre("Getting vconf key failed, key(memory/tv-viewer/viewer_state)"));
    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"TvViewerState\" : \"live\""));
    EXPECT_THAT(m_control->GetDebugInfo(), HasSubstr("\"TvViewerStateChangeTime\" : \"2.345\""));
}

TEST_F(SessionPolicyTest, TheKeyIsIgnoredBeforeTheHelperThreadIsToldToEnd) {
    HelperWaits::reset();
    const auto watched = [] {
        const auto actions = Actions::take();
        return actions.empty() ? std::string("nothing") : actions.front();
    };
    std::string beforeTheEnd;
    FakeDlog::onLineOfOthers([&](const std::string& message) {
        if (message == "Helper Thread End") {
            beforeTheEnd = watched();
        }
    });
    // The thread has to be in its wait to say its end.
    HelperWaits::end(1);
    ASSERT_TRUE(becomesTrue([] { return !HelperWaits::seconds().empty(); }));

    m_control.reset();

    EXPECT_EQ(beforeTheEnd, "vconf_ignore_key_changed memory/tv-viewer/viewer_state");
}

TEST_F(SessionPolicyTest, TheKeyIsNotWatchedAfterTheEnd) {
    ASSERT_EQ(fakes::FakeVconf::watchers(kViewer), 1U);

    m_control.reset();

    EXPECT_THAT(Actions::take(), ElementsAre("vconf_ignore_key_changed memory/tv-viewer/viewer_state"));
    EXPECT_EQ(fakes::FakeVconf::watchers(kViewer), 0U);
}

// The helper thread

TEST_F(SessionPolicyTest, TheHelperThreadIsStartedAfterTheSwitchesAreReadAndBeforeTheKeyIsWatched) {
    m_control.reset();
    Actions::take();
    ThreadStarts::recordActions = true;

    m_control = std::make_unique<ClockedSessionControl>(m_stateManager);

    ThreadStarts::recordActions = false;
    EXPECT_THAT(Actions::take(), ElementsAre("IsDebug", "mkpath zel-lite/zel_lite_disable_tracing",
                                             "mkpath zel-lite/zel_lite_aggressive_terminate", "thread starts",
                                             "vconf_notify_key_changed memory/tv-viewer/viewer_state"));
}

TEST_F(SessionPolicyTest, TheHelperThreadFindsTheStopWhenItIsNotified) {
    m_control.reset();
    HelperWaits::reset();
    FakeDlog::clear();
    auto control = std::make_unique<TCSessionControl>(m_stateManager);
    ASSERT_TRUE(becomesTrue([] { return HelperWaits::seconds().size() == 1; }));
    bool isAwake = false;
    HelperWaits::afterNotifyAll([&isAwake] {
        isAwake = becomesTrue([] { return FakeDlog::messagesOfOthers().size() == 2; });
        // Lets the thread go on if it has aged instead of ended.
        HelperWaits::end(1);
    });

    control.reset();

    EXPECT_TRUE(isAwake);
    EXPECT_THAT(FakeDlog::messagesOfOthers(), ElementsAre("4 Helper Thread Start", "4 Helper Thread End"));
}

TEST_F(SessionPolicyTest, TheHelperThreadAgesEveryThirtySeconds) {
    HelperWaits::end(3);

    EXPECT_TRUE(becomesTrue([] { return HelperWaits::seconds().size() >= 4; }));

    EXPECT_THAT(HelperWaits::seconds(), testing::Each(30));
    const auto messages = FakeDlog::messagesOfOthers();
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "4 Remove old records"), 3);
}

TEST_F(SessionPolicyTest, TheHelperThreadSaysItsStartAndItsEnd) {
    m_control.reset();
    HelperWaits::reset();
    FakeDlog::clear();
    auto control = std::make_unique<TCSessionControl>(m_stateManager);
    ASSERT_TRUE(becomesTrue([] { return HelperWaits::seconds().size() == 1; }));

    control.reset();

    EXPECT_THAT(FakeDlog::messagesOfOthers(), ElementsAre("4 Helper Thread Start", "4 Helper Thread End"));
}

TEST_F(SessionPolicyTest, AStopSeenAtTheTopOfTheLoopIsSilent) {
    m_control.reset();
    HelperWaits::reset();
    FakeDlog::clear();
    FakeDlog::onLineOfOthers([](const std::string& message) {
        if (message == "Remove old records") {
            HelperWaits::waitForNotifyAll();
        }
    });
    HelperWaits::end(1);
    auto control = std::make_unique<TCSessionControl>(m_stateManager);
    ASSERT_TRUE(becomesTrue([] { return FakeDlog::messagesOfOthers().size() == 2; }));

    control.reset();

    EXPECT_THAT(FakeDlog::messagesOfOthers(), ElementsAre("4 Helper Thread Start", "4 Remove old records"));
}
