// SPDX-License-Identifier: Apache-2.0
// The key combination, with real libraries in the place of the window-utility library.
#include "util/KeyListener.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "SessionControl.h"
#include "ZelDaemonStateManager.h"
#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeLite.h"
#include "fakes/FakeSessionControl.h"
#include "fakes/KeyLibrary.h"
#include "support/Files.h"

using fakes::Actions;
using fakes::FakeDlog;
using fakes::FakeLite;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr int kDebug = 3;
constexpr int kError = 6;

const char* const kLibrary = "/usr/lib/libkq-win-util.so";

KeyHandler handler = nullptr;
bool closingFails = false;

}  // namespace

extern "C" void keyLibraryCalled(const char* entry) {
    Actions::add(entry);
}

extern "C" void keyLibraryCalledWithHandler(const char* entry, int combination, KeyHandler called) {
    Actions::add(std::string(entry) + " " + std::to_string(combination));
    handler = called;
}

extern "C" int __real_dlclose(void* handle);
extern "C" int __wrap_dlclose(void* handle);
extern "C" int __wrap_dlclose(void* handle) {
    Actions::add("dlclose");
    const int result = __real_dlclose(handle);
    if (!closingFails) {
        return result;
    }
    // Leaves an error behind, as a failed dlclose would.
    return dlsym(RTLD_DEFAULT, "whatWasNotClosed") == nullptr ? -1 : 0;
}

namespace {

class KeyListenerTest : public testing::Test {
protected:
    KeyListenerTest() {
        FakeLite::isDebug = true;
        FakeLite::isPerf = false;
        closingFails = false;
        handler = nullptr;
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

using KeyListenerDeathTest = KeyListenerTest;

}  // namespace

// The first test that runs in this process: nothing was initialised before it.
TEST_F(KeyListenerTest, AHandlerThatFiresBeforeTheStartIsLoggedAndDoesNothing) {
    std::string text = "RED GREEN";

    KeyListener::m_LaunchLiteApp(_KeyComb{114}, text.data());

    EXPECT_THAT(
        FakeDlog::messages(kDebug),
        ElementsAre(ContainsRegex("^\\[m_LaunchLiteApp\\]\\[[0-9]+\\] RED GREEN hit sucessfully! 114$")));
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre(ContainsRegex("^\\[m_LaunchLiteApp\\]\\[[0-9]+\\] m_Wrapper is nullptr$")));
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
    EXPECT_THAT(FakeDlog::messages(kError),
                ElementsAre(ContainsRegex("^\\[Initialize\\]\\[[0-9]+\\] Couldn't open the library$")));
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
    const char* const kBegin = "^\\[m_CallHandlerFunction\\]\\[[0-9]+\\] There was error during getting ";
    EXPECT_THAT(
        FakeDlog::messages(kError),
        ElementsAre(AllOf(ContainsRegex(std::string(kBegin) + "KeyCombination_Add_Handler function: "),
                          HasSubstr("undefined symbol"), EndsWith(" ")),
                    AllOf(ContainsRegex(std::string(kBegin) + "KeyCombination_Remove_Handler function: "),
                          HasSubstr("undefined symbol"), EndsWith(" "))));
}

// Such a library is not supported: the call of nothing ends the process, after the line that says why.
TEST_F(KeyListenerDeathTest, AMissingInitialiseEntryIsLoggedAndCalledAllTheSame) {
    install("without-initialize");

    EXPECT_DEATH(KeyListener::Initialize(m_sessionControl), "");

    EXPECT_THAT(readFile(FakeDlog::kFile),
                HasSubstr("There was error during getting KeyCombination_Initialize function: "));
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

    EXPECT_THAT(readFile(FakeDlog::kFile),
                HasSubstr("There was error during getting KeyCombination_Finalize function: "));
}

TEST_F(KeyListenerTest, AFailureToCloseIsLoggedWithItsReason) {
    install("all");
    KeyListener::Initialize(m_sessionControl);
    closingFails = true;

    KeyListener::Unregister();

    EXPECT_THAT(
        FakeDlog::messages(kError),
        ElementsAre(AllOf(
            ContainsRegex("^\\[Unregister\\]\\[[0-9]+\\] There was error during closing dynamic library: "),
            HasSubstr("whatWasNotClosed"))));
}
