// SPDX-License-Identifier: Apache-2.0
// The entry function with recording stand-ins for everything it owns and a main loop that returns at once:
// the order of start-up and shut-down.
#include <glib.h>
#include <gmock/gmock.h>

#include <stdexcept>

#include "SessionControl.h"
#include "ZelDaemonStateManager.h"
#include "fakes/Actions.h"
#include "fakes/FakeIpc.h"
#include "fakes/FakeLite.h"
#include "fakes/FakeSessionControl.h"
#include "fakes/FakeStateManager.h"
#include "native/SessionControlNative.h"
#include "util/ExtSourcesManager.h"
#include "util/KeyListener.h"
#include "util/PowerManager.h"
#include "util/TimeManager.h"
#include "util/VconfListener.h"
#include "util/ZELLiteWaylandNotificationReceiver.h"

using fakes::Actions;
using fakes::FakeIpc;
using testing::ElementsAre;
using testing::ElementsAreArray;

/** The entry function under the name that the test's build gave it. */
extern "C" int zelLiteMain();

// The recording stand-ins that only this test needs.

bool IpcConfigurationZelLite::ProcessMethodCallInDefaultContext() const {
    return false;
}

SessionControlCallersObserver::SessionControlCallersObserver(TCSessionControl& sessionControl)
    : m_sessionControl(sessionControl) {
    Actions::add("CallersObserver made");
}

SessionControlCallersObserver::~SessionControlCallersObserver() {
    Actions::add("CallersObserver gone");
}

void SessionControlCallersObserver::SetCurrentCaller(const TSCallerProperties& /*caller*/) {}
void SessionControlCallersObserver::ClearCurrentCaller() {}
void SessionControlCallersObserver::OwnerRemoved(const std::string& connectionName, std::uint32_t /*pid*/) {
    m_sessionControl.CloseOnCrash(connectionName);
}

ZelLiteNativeListener::ZelLiteNativeListener(std::string interfaceName)
    : m_interfaceName(std::move(interfaceName)) {}

std::string ZelLiteNativeListener::GetInterfaceName() {
    return m_interfaceName;
}

SessionControlNative::SessionControlNative(TCSessionControl& sessionControl,
                                           TCZelDaemonStateManager& stateManager,
                                           SessionControlCallersObserver& callersObserver)
    : ZelLiteNativeListener("the listener"),
      m_sessionControl(sessionControl),
      m_stateManager(stateManager),
      m_callersObserver(callersObserver) {
    Actions::add("SessionControlNative made");
}

SessionControlNative::~SessionControlNative() = default;

bool SessionControlNative::OnCallReceived(int /*method*/, TCMessageBuffer& /*request*/,
                                          TCMessageBuffer& /*reply*/) {
    return false;
}

CZELLiteWaylandNotificationReceiver::CZELLiteWaylandNotificationReceiver(
    TCZelDaemonStateManager& stateManager, TCSessionControl& sessionControl)
    : m_stateManager(stateManager), m_sessionControl(sessionControl) {
    Actions::add("Receiver made");
}

CZELLiteWaylandNotificationReceiver::~CZELLiteWaylandNotificationReceiver() {
    Actions::add("Receiver gone");
}

void CZELLiteWaylandNotificationReceiver::OnStart() {}
void CZELLiteWaylandNotificationReceiver::OnTerminate() {}
void CZELLiteWaylandNotificationReceiver::OnTerminateSuccess(const TSZelData& /*data*/) {}

void KeyListener::Initialize(TCSessionControl& /*sessionControl*/) {
    Actions::add("KeyListener::Initialize");
}

void KeyListener::Unregister() {
    Actions::add("KeyListener::Unregister");
}

TCExtSourcesManager::TCExtSourcesManager(TCZelDaemonStateManager& manager) : m_stateManager(manager) {
    Actions::add("ExtSourcesManager made");
}

TCExtSourcesManager::~TCExtSourcesManager() {
    Actions::add("ExtSourcesManager gone");
}

TCTimeManager::TCTimeManager(TCZelDaemonStateManager& manager) : m_stateManager(manager) {
    Actions::add("TimeManager made");
}

TCTimeManager::~TCTimeManager() {
    Actions::add("TimeManager gone");
}

void TCTimeManager::OnStart() {}
void TCTimeManager::OnTerminate() {}
void TCTimeManager::OnTerminateSuccess(const TSZelData& /*data*/) {}

TCPowerManager::TCPowerManager(TCZelDaemonStateManager& stateManager) : m_stateManager(stateManager) {
    Actions::add("PowerManager made");
}

TCPowerManager::~TCPowerManager() {
    Actions::add("PowerManager gone");
}

void TCPowerManager::OnStart() {}
void TCPowerManager::OnTerminate() {}
void TCPowerManager::OnTerminateSuccess(const TSZelData& /*data*/) {}

TCVconfListener::TCVconfListener(TCZelDaemonStateManager& manager) : m_stateManager(manager) {
    Actions::add("VconfListener made");
}

TCVconfListener::~TCVconfListener() {
    Actions::add("VconfListener gone");
}

void TCVconfListener::OnStart() {}
void TCVconfListener::OnTerminate() {}
void TCVconfListener::OnTerminateSuccess(const TSZelData& /*data*/) {}

namespace {

GMainContext* contextOfLoop = nullptr;
GMainLoop* madeLoop = nullptr;

}  // namespace

extern "C" GMainLoop* __real_g_main_loop_new(GMainContext* context, gboolean isRunning);
extern "C" GMainLoop* __wrap_g_main_loop_new(GMainContext* context, gboolean isRunning);
extern "C" GMainLoop* __wrap_g_main_loop_new(GMainContext* context, gboolean isRunning) {
    Actions::add(isRunning != 0 ? "g_main_loop_new running" : "g_main_loop_new");
    contextOfLoop = context;
    madeLoop = __real_g_main_loop_new(context, isRunning);
    return madeLoop;
}

extern "C" void __wrap_g_main_loop_run(GMainLoop* loop);
extern "C" void __wrap_g_main_loop_run(GMainLoop* loop) {
    Actions::add(loop == madeLoop ? "g_main_loop_run" : "g_main_loop_run of another loop");
}

void CZELLiteWaylandNotificationReceiver::Start(GMainLoop* loop) {
    Actions::add(loop == madeLoop ? "Receiver::Start with the loop" : "Receiver::Start with another loop");
}

namespace {

const char* const kSetup = "Setup com.brenlow.ZELLite.SignalIFace /com/brenlow/ZELLite/SignalObject";
const char* const kAssertion =
    "assert ZelServiceAPIManager::Setup( std::make_unique<IpcConfigurationZelLite>( "
    "\"com.brenlow.ZELLite.SignalIFace\", \"/com/brenlow/ZELLite/SignalObject\" ) ) "
    "/usr/src/zel-lite/src/daemon/main.cpp 35";
const char* const kPrintedLine = "ASSERT!!! - function main, line 35";

// All that follows the set-up of IPC.
const std::vector<std::string> kAfterSetup{
    "StateManager made",
    "SessionControl made",
    "CallersObserver made",
    "AddCallersObserver",
    "Receiver made",
    "GetInstance com.brenlow.ZELLite.SignalIFace /com/brenlow/ZELLite/SignalObject",
    "SessionControlNative made",
    "StartNativeAPI the listener",
    "marker ZEL-LITE MAIN: StartNativeAPI() completed.",
    "SessionControl::CheckPIDs",
    "KeyListener::Initialize",
    "ExtSourcesManager made",
    "TimeManager made",
    "PowerManager made",
    "VconfListener made",
    "StateManager::Notify 1 0 0 0",
    "g_main_loop_new",
    "Receiver::Start with the loop",
    "marker Call to resource_register_cpu_inheritance_destination()",
    "inherit zel-lite self",
    "marker ZEL-LITE MAIN: Executing g_main_loop_run().",
    "g_main_loop_run",
    "KeyListener::Unregister",
    "VconfListener gone",
    "PowerManager gone",
    "TimeManager gone",
    "ExtSourcesManager gone",
    "Receiver gone",
    "CallersObserver gone",
    "SessionControl gone",
    "StateManager gone",
};

class StartUpTest : public testing::Test {
protected:
    StartUpTest() {
        fakes::FakeStateManager::reset();
        fakes::FakeSessionControl::throwsAtBirth = false;
        fakes::FakeLite::printedBeforeAssertion = -1;
        FakeIpc::setupResults.clear();
        Actions::take();
    }

    ~StartUpTest() override {
        FakeIpc::dropListener();
        if (madeLoop != nullptr) {
            g_main_loop_unref(madeLoop);
            madeLoop = nullptr;
        }
    }

    // Runs the entry function; what it printed is in m_printed.
    int run() {
        testing::internal::CaptureStdout();
        const int status = zelLiteMain();
        m_printed = testing::internal::GetCapturedStdout();
        return status;
    }

    static std::vector<std::string> with(std::vector<std::string> before) {
        before.insert(before.begin(), "marker ZEL-LITE MAIN: Start.");
        before.insert(before.end(), kAfterSetup.begin(), kAfterSetup.end());
        return before;
    }

    std::string m_printed;
};

}  // namespace

TEST_F(StartUpTest, EverythingIsMadeInOrderAndDestroyedInReverse) {
    EXPECT_EQ(run(), 0);

    EXPECT_THAT(Actions::take(), ElementsAreArray(with({kSetup})));
    EXPECT_EQ(m_printed, "");
    EXPECT_EQ(contextOfLoop, g_main_context_default());
}

TEST_F(StartUpTest, AFirstSetupFailureIsPrintedOnceAndNotAsserted) {
    FakeIpc::setupResults = {false, true};

    EXPECT_EQ(run(), 0);

    EXPECT_THAT(Actions::take(), ElementsAreArray(with({kSetup, kSetup})));
    EXPECT_EQ(m_printed, kPrintedLine);
}

TEST_F(StartUpTest, TwoSetupFailuresAreAssertedAndPrintedOnceAndStartUpGoesOn) {
    FakeIpc::setupResults = {false, false};

    EXPECT_EQ(run(), 0);

    EXPECT_THAT(Actions::take(), ElementsAreArray(with({kSetup, kSetup, kAssertion})));
    EXPECT_EQ(fakes::FakeLite::printedBeforeAssertion, 0) << "the assertion is reported before its line";
    EXPECT_EQ(m_printed, kPrintedLine);
}

TEST_F(StartUpTest, AFailedStartUpTriggerIsIgnored) {
    fakes::FakeStateManager::notifyResult = false;

    EXPECT_EQ(run(), 0);

    EXPECT_THAT(Actions::take(), ElementsAreArray(with({kSetup})));
}

TEST_F(StartUpTest, AConstructorThatThrowsDestroysWhatWasMadeAndLeavesTheEntryFunction) {
    fakes::FakeSessionControl::throwsAtBirth = true;

    EXPECT_THROW(zelLiteMain(), std::runtime_error);

    EXPECT_THAT(Actions::take(), ElementsAre("marker ZEL-LITE MAIN: Start.", kSetup, "StateManager made",
                                             "SessionControl made", "StateManager gone"));
}
