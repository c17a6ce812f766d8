// SPDX-License-Identifier: Apache-2.0
#include <cpu-boosting.h>
#include <glib.h>
#include <unistd.h>

#include <memory>
#include <type_traits>

#include "Diagnostics.h"
#include "SessionControl.h"
#include "TCIpcProperties.h"
#include "TriggerTypes.h"
#include "ZelDaemonStateManager.h"
#include "ZelServiceAPIManager.h"
#include "native/SessionControlNative.h"
#include "util/ExtSourcesManager.h"
#include "util/KeyListener.h"
#include "util/PowerManager.h"
#include "util/TimeManager.h"
#include "util/VconfListener.h"
#include "util/ZELLiteWaylandNotificationReceiver.h"

namespace {

constexpr const char* kBusInterface = "com.brenlow.ZELLite.SignalIFace";
constexpr const char* kObjectPath = "/com/brenlow/ZELLite/SignalObject";

// The line number that a failed set-up reports. Readers of the assertion know it, so it is a contract and
// does not follow the source.
constexpr int kSetUpLine = 35;

bool SetUpIpcOnce() {
    return ZelServiceAPIManager::Setup(std::make_unique<IpcConfigurationZelLite>(kBusInterface, kObjectPath));
}

// Without IPC the daemon still serves windows, inputs, power and time, so start-up goes on in every case.
void SetUpIpc() {
    if (SetUpIpcOnce()) {
        return;
    }
    if (!SetUpIpcOnce()) {
        _TCApiAssert(
            "ZelServiceAPIManager::Setup( std::make_unique<IpcConfigurationZelLite>( "
            "\"com.brenlow.ZELLite.SignalIFace\", \"/com/brenlow/ZELLite/SignalObject\" ) )",
            __FILE__, kSetUpLine, nullptr);
    }
    // Printed for the first failure, whatever the second attempt gave.
    PrintAssertion("main", kSetUpLine);
}

void InheritCpuBoost() {
    resource_pid_t self{};
    self.pid = getpid();
    BootMarker("Call to resource_register_cpu_inheritance_destination()");
    resource_register_cpu_inheritance_destination("zel-lite", self);
}

// The manager, whether its library gives a reference or a pointer: the set's header is not public.
template <typename TManager>
ZelServiceAPIManager& Manager(TManager&& manager) {
    if constexpr (std::is_pointer_v<std::remove_reference_t<TManager>>) {
        return *manager;
    } else {
        return manager;
    }
}

}  // namespace

int main() {
    BootMarker("ZEL-LITE MAIN: Start.");
    SetUpIpc();

    TCZelDaemonStateManager stateManager;
    TCSessionControl sessionControl(stateManager);
    SessionControlCallersObserver callersObserver(sessionControl);
    TCIpcProperties::Instance().AddCallersObserver(callersObserver);
    CZELLiteWaylandNotificationReceiver waylandReceiver(stateManager, sessionControl);

    // Calls arrive from here on, so everything they reach stands already.
    Manager(ZelServiceAPIManager::GetInstance(kBusInterface, kObjectPath))
        .StartNativeAPI(
            std::make_unique<SessionControlNative>(sessionControl, stateManager, callersObserver));
    BootMarker("ZEL-LITE MAIN: StartNativeAPI() completed.");

    // Owners of restored sessions may have died while nobody watched.
    sessionControl.CheckPIDs();

    KeyListener::Initialize(sessionControl);
    TCExtSourcesManager extSourcesManager(stateManager);
    TCTimeManager timeManager(stateManager);
    TCPowerManager powerManager(stateManager);
    TCVconfListener vconfListener(stateManager);

    stateManager.Notify(TRIGGER_TYPE_START_ZEL_MAIN, TSNotifyData());

    // The loop lives as long as the process and has no quit path: the daemon ends by being killed.
    GMainLoop* const loop = g_main_loop_new(g_main_context_default(), FALSE);
    waylandReceiver.Start(loop);
    InheritCpuBoost();
    BootMarker("ZEL-LITE MAIN: Executing g_main_loop_run().");
    g_main_loop_run(loop);

    KeyListener::Unregister();
    return 0;
}
