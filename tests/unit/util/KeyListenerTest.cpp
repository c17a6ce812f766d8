// SPDX-License-Identifier: Apache-2.0
// The key combination, with real libraries in the place of the window-utility library.
#include "util/KeyListener.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <thread>

#include "SessionControl.h"
#include "ZelDaemonStateManager.h"
#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeLite.h"
#include "fakes/FakeSessionControl.h"
#include "fakes/KeyLibrary.h"
#include "support/Files.h"
#include "support/FreshProcess.h"

using fakes::Actions;
using fakes::FakeDlog;
using fakes::FakeLite;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr int kDebug = 3;
constexpr int kError = 6;

const char* const kLibrary = "/usr/lib/libkq-win-util.so";

KeyHandler handler = nullptr;
// What dlclose returns in place of its own result, unless 0.
int closeResult = 0;
// Runs inside each entry of the library, with the entry's name, when set.
std::function<void(const std::string& entry)> duringCall;

void call(const char* entry) {
    if (duringCall) {
        duringCall(entry);
    }
}

}  // namespace

extern "C" void keyLibraryCalled(const char* entry) {
    Actions::add(entry);
    call(entry);
}

extern "C" void keyLibraryCalledWithHandler(const char* entry, int combination, KeyHandler called) {
    Actions::add(std::string(entry) + " " + std::to_string(combination));
    handler = called;
    call(entry);
}

extern "C" int __real_dlclose(void* handle);
extern "C" int __wrap_dlclose(void* handle);
extern "C" int __wrap_dlclose(void* handle) {
    Actions::add("dlclose");
    const int result = __real_dlclose(handle);
    if (closeResult == 0) {
        return result;
    }
    // Leaves an error behind, as a failed dlclose would.
    return dlsym(RTLD_DEFAULT, "whatWasNotClosed") == nullptr ? closeResult : 0;
}

namespace {

class KeyListenerTest : public testing::Test {
protected:
    KeyListenerTest() {
        FakeLite::isDebug = true;
        FakeLite::isPerf = false;
        closeResult = 0;
        handler = nullptr;
        duringCall = nullptr;
        unlink(kLibrary);
        forget();
    }

    static void forget() {
        Actions::take();
        FakeDlog::clear();
    }

    // Puts a library in its place: "all", or what is wrong with it.
    static void install(const std::string& variant) {
        std::filesystem::copy_file(std::string(KEY_LIBRARIES) + "/libkey-library-" + variant + ".so",
                                   kLibrary);
    }

    // The messages at a priority, with LINE in place of a number in brackets that is a line of the call which
    // logged it.
    static std::vector<std::string> messages(int priority) {
        std::vector<std::string> messages;
        for (const fakes::LogLine& line : FakeDlog::lines()) {
            if (line.priority == priority) {
                messages.push_back(withoutLine(line.message(), line.line()));
            }
        }
        return messages;
    }

    // The brackets must have the number of the line's own prefix.
    static std::string withoutLine(std::string message, int callsLine) {
        const std::string number = std::to_string(callsLine);
        const std::size_t brackets = message.find("][" + number + "] ");
        if (brackets != std::string::npos) {
            message.replace(brackets + 2, number.size(), "LINE");
        }
        return message;
    }

    // What was done, without the questions for the kind of set.
    static std::vector<std::string> done() {
        std::vector<std::string> actions = Actions::take();
        actions.erase(std::remove_if(actions.begin(), actions.end(),
                                     [](const std::string& action) { return action.rfind("Is", 0) == 0; }),
                      actions.end());
        return actions;
    }

    TCZelDaemonStateManager m_stateManager;
    TCSessionControl m_sessionControl{m_stateManager};
};

class KeyListenerDeathTest : public KeyListenerTest {
protected:
    // What a process that ended logged, as messages() would give it.
    static std::string messageInTheFile() {
        const std::string text = readFile(FakeDlog::kFile);
        const fakes::LogLine line{0, kError, "", "", text.substr(0, text.find('\n')), {}};
        return withoutLine(line.message(), line.line());
    }

    static auto saysThatIsMissing(const std::string& entry) {
        return AllOf(StartsWith("[m_CallInitializeFinalizeFunctions][LINE] There was error during getting " +
                                entry + " function: "),
                     HasSubstr("undefined symbol"), EndsWith(" "));
    }
};

}  // namespace

// The first test that runs in this process: nothing was initialised before it.
TEST_F(KeyListenerTest, AHandlerThatFiresBeforeTheStartIsLoggedAndDoesNothing) {
    std::string text = "RED GREEN";

    KeyListener::m_LaunchLiteApp(_KeyComb{114}, text.data());

    EXPECT_THAT(messages(kDebug), ElementsAre("[m_LaunchLiteApp][LINE] RED GREEN hit sucessfully! 114"));
    EXPECT_THAT(messages(kError), ElementsAre("[m_LaunchLiteApp][LINE] m_Wrapper is nullptr"));
    EXPECT_THAT(done(), IsEmpty());
}

TEST_F(KeyListenerTest, OnADebugSetTheCombinationIsRegisteredAndRemovedAgain) {
    install("all");

    KeyListener::Initialize(m_sessionControl);
    EXPECT_THAT(done(), ElementsAre("Initialize", "Add_Handler 114"));

    KeyListener::Unregister();
    EXPECT_THAT(done(), ElementsAre("Remove_Handler 114", "Finalize", "dlclose"));
    EXPECT_THAT(FakeDlog::lines(), IsEmpty());
}

TEST_F(KeyListenerTest, TheHandlerThatWasAddedIsTheOneThatIsRemoved) {
    install("all");
    KeyListener::Initialize(m_sessionControl);
    const KeyHandler added = handler;
    handler = nullptr;

    KeyListener::Unregister();

    EXPECT_EQ(reinterpret_cast<void*>(added), reinterpret_cast<void*>(KeyListener::m_LaunchLiteApp));
    EXPECT_EQ(handler, added);
}

// In a process that begins anew, in which no earlier start has left anything to act on.
TEST_F(KeyListenerDeathTest, AKeyThatIsHitDuringTheStartIsNotLost) {
    inFreshProcess([this] {
        install("all");
        duringCall = [](const std::string& /*entry*/) {
            std::string text = "RED GREEN";
            KeyListener::m_LaunchLiteApp(_KeyComb{114}, text.data());
        };

        KeyListener::Initialize(m_sessionControl);

        EXPECT_THAT(done(), ElementsAre("Initialize", "SessionControl::TryTerminateZelWithAppLaunch 1",
                                        "Add_Handler 114", "SessionControl::TryTerminateZelWithAppLaunch 1"));
        EXPECT_THAT(messages(kError), IsEmpty());
    });
}

TEST_F(KeyListenerTest, AKeyThatIsHitDuringTheEndIsNotLost) {
    install("all");
    KeyListener::Initialize(m_sessionControl);
    forget();
    duringCall = [](const std::string& /*entry*/) {
        std::string text = "RED GREEN";
        handler(114, text.data());
    };

    KeyListener::Unregister();

    EXPECT_THAT(done(), ElementsAre("Remove_Handler 114", "SessionControl::TryTerminateZelWithAppLaunch 1",
                                    "Finalize", "SessionControl::TryTerminateZelWithAppLaunch 1", "dlclose"));
    EXPECT_THAT(messages(kError), IsEmpty());
}

TEST_F(KeyListenerTest, AHitIsLoggedBeforeTheServiceIsTerminated) {
    install("all");
    KeyListener::Initialize(m_sessionControl);
    forget();
    FakeDlog::recordActions();
    std::string text = "RED GREEN";

    handler(115, text.data());

    EXPECT_THAT(Actions::take(), ElementsAre(AllOf(StartsWith("log m_LaunchLiteApp: [m_LaunchLiteApp]["),
                                                   EndsWith("] RED GREEN hit sucessfully! 115")),
                                             "SessionControl::TryTerminateZelWithAppLaunch 1"));
    EXPECT_THAT(messages(kDebug), ElementsAre("[m_LaunchLiteApp][LINE] RED GREEN hit sucessfully! 115"));
    KeyListener::Unregister();
}

TEST_F(KeyListenerTest, OnAPerformanceSetToo) {
    FakeLite::isDebug = false;
    FakeLite::isPerf = true;
    install("all");

    KeyListener::Initialize(m_sessionControl);
    EXPECT_THAT(done(), ElementsAre("Initialize", "Add_Handler 114"));

    KeyListener::Unregister();
    EXPECT_THAT(done(), ElementsAre("Remove_Handler 114", "Finalize", "dlclose"));
}

TEST_F(KeyListenerTest, PerformanceIsAskedForOnlyWhereTheSetIsNoDebugSet) {
    install("all");

    KeyListener::Initialize(m_sessionControl);
    EXPECT_THAT(Actions::take(), ElementsAre("Initialize", "IsDebug", "Add_Handler 114"));

    FakeLite::isDebug = false;
    KeyListener::Unregister();
    EXPECT_THAT(Actions::take(), ElementsAre("IsDebug", "IsPerf", "Finalize", "dlclose"));
}

TEST_F(KeyListenerTest, OnAnyOtherSetTheLibraryIsLoadedAndTheCombinationDoesNothing) {
    FakeLite::isDebug = false;
    install("all");

    KeyListener::Initialize(m_sessionControl);
    EXPECT_THAT(done(), ElementsAre("Initialize"));

    KeyListener::Unregister();
    EXPECT_THAT(done(), ElementsAre("Finalize", "dlclose"));
    EXPECT_EQ(handler, nullptr);
}

TEST_F(KeyListenerTest, TheCombinationTerminatesTheServiceAndLaunchesTheApplicationOnTheLibrarysThread) {
    install("all");
    KeyListener::Initialize(m_sessionControl);
    forget();
    std::string text = "RED GREEN";

    std::thread([&] { handler(114, text.data()); }).join();

    EXPECT_THAT(done(), ElementsAre("SessionControl::TryTerminateZelWithAppLaunch 1"));
    EXPECT_THAT(
        FakeDlog::messagesOfOthers(),
        ElementsAre(ContainsRegex("^3 \\[m_LaunchLiteApp\\]\\[[0-9]+\\] RED GREEN hit sucessfully! 114$")));
    KeyListener::Unregister();
}

TEST_F(KeyListenerTest, ALibraryThatIsNotThereIsLoggedAndNothingElseHappens) {
    KeyListener::Initialize(m_sessionControl);

    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_THAT(messages(kError), ElementsAre("[Initialize][LINE] Couldn't open the library"));
}

// Found out at once, not when a tester hits the keys.
TEST_F(KeyListenerTest, ALibraryThatLacksSomethingDoesNotOpen) {
    install("unresolved");

    KeyListener::Initialize(m_sessionControl);

    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_THAT(FakeDlog::messages(kError), ElementsAre(EndsWith("Couldn't open the library")));
}

TEST_F(KeyListenerTest, ALibraryThatNeverOpenedIsNotUsedAtTheEnd) {
    KeyListener::Initialize(m_sessionControl);
    forget();

    KeyListener::Unregister();

    EXPECT_THAT(Actions::take(), IsEmpty());
    EXPECT_THAT(FakeDlog::lines(), IsEmpty());
}

TEST_F(KeyListenerTest, UnregisteringTwiceClosesOnce) {
    install("all");
    KeyListener::Initialize(m_sessionControl);
    KeyListener::Unregister();
    forget();

    KeyListener::Unregister();

    EXPECT_THAT(Actions::take(), IsEmpty());
}

TEST_F(KeyListenerTest, MissingHandlerEntriesAreLoggedAndNotCalled) {
    install("without-handlers");

    KeyListener::Initialize(m_sessionControl);
    KeyListener::Unregister();

    EXPECT_THAT(done(), ElementsAre("Initialize", "Finalize", "dlclose"));
    const std::string begin = "[m_CallHandlerFunction][LINE] There was error during getting ";
    EXPECT_THAT(messages(kError),
                ElementsAre(AllOf(StartsWith(begin + "KeyCombination_Add_Handler function: "),
                                  HasSubstr("undefined symbol"), EndsWith(" ")),
                            AllOf(StartsWith(begin + "KeyCombination_Remove_Handler function: "),
                                  HasSubstr("undefined symbol"), EndsWith(" "))));
}

// Such a library is not supported: the call of nothing ends the process, after the line that says why.
TEST_F(KeyListenerDeathTest, AMissingInitialiseEntryIsLoggedAndCalledAllTheSame) {
    install("without-initialize");

    EXPECT_DEATH(KeyListener::Initialize(m_sessionControl), "");

    EXPECT_THAT(messageInTheFile(), saysThatIsMissing("KeyCombination_Initialize"));
}

TEST_F(KeyListenerDeathTest, AMissingFinaliseEntryIsLoggedAndCalledAllTheSame) {
    install("without-finalize");

    // The child alone loads the library, which stays loaded in it.
    EXPECT_DEATH(
        {
            KeyListener::Initialize(m_sessionControl);
            KeyListener::Unregister();
        },
        "");

    EXPECT_THAT(messageInTheFile(), saysThatIsMissing("KeyCombination_Finalize"));
}

TEST_F(KeyListenerTest, AFailureToCloseIsLoggedWithItsReason) {
    install("all");
    for (const int result : {-1, 1}) {
        KeyListener::Initialize(m_sessionControl);
        closeResult = result;
        forget();

        KeyListener::Unregister();

        EXPECT_THAT(messages(kError),
                    ElementsAre(AllOf(
                        StartsWith("[Unregister][LINE] There was error during closing dynamic library: "),
                        HasSubstr("whatWasNotClosed"))))
            << result;
    }
}

TEST_F(KeyListenerTest, AfterAFailureToCloseTheLibraryCountsAsClosed) {
    install("all");
    KeyListener::Initialize(m_sessionControl);
    closeResult = -1;
    KeyListener::Unregister();
    forget();

    KeyListener::Unregister();

    EXPECT_THAT(Actions::take(), IsEmpty());
}
