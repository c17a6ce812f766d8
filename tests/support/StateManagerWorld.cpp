// SPDX-License-Identifier: Apache-2.0
#include "support/StateManagerWorld.h"

#include <dbus/dbus.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "fakes/FakeControl.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeLite.h"
#include "fakes/FakePrctl.h"
#include "support/Files.h"

using fakes::Actions;
using fakes::FakeControl;

StateManagerWorld::StateManagerWorld() {
    for (const char* path : {kSubsequentStart, kIsRunning, kRestart}) {
        std::filesystem::remove_all(path);
    }
    fakes::FakeLite::isDebug = false;
    fakes::FakeLite::printedBeforeAssertion = -1;
    FakeControl::reset();
    forget();
}

std::unique_ptr<TCZelDaemonStateManager> StateManagerWorld::bornAtBoot() {
    unlink(kSubsequentStart);
    return std::make_unique<TCZelDaemonStateManager>();
}

std::unique_ptr<TCZelDaemonStateManager> StateManagerWorld::bornAfterTermination() {
    writeFile(kSubsequentStart, "");
    unlink(kIsRunning);
    return std::make_unique<TCZelDaemonStateManager>();
}

std::unique_ptr<TCZelDaemonStateManager> StateManagerWorld::bornIn(EZelState state) {
    if (state == STATE_UNDEFINED) {
        auto manager = bornAfterTermination();
        forget();
        return manager;
    }
    auto manager = bornAtBoot();
    std::vector<ETerminateErrorType> errors;
    TSZelData data;
    if (state == STATE_RUNNING) {
        manager->Notify(kStart, TSNotifyData());
    } else if (state == STATE_TERMINATED) {
        manager->RequestTerminate(errors, data);
    } else if (state == STATE_UNDEFINED_AFTER_TERMINATE) {
        // The request fails, and so does the restart that follows it.
        FakeControl::terminateResult = -1;
        FakeControl::notifyResult = -1;
        manager->RequestTerminate(errors, data);
        FakeControl::reset();
    }
    forget();
    return manager;
}

int StateManagerWorld::stateOf(TCZelDaemonStateManager& manager) {
    forget();
    manager.Notify(kStart, TSNotifyData());
    const std::string line = fakes::FakeDlog::messages(4).front();
    const std::string word = "m_zelState(";
    return std::stoi(line.substr(line.find(word) + word.size()));
}

void StateManagerWorld::dropConnection() {
    if (DBusConnection* old = dbus_bus_get(DBUS_BUS_SYSTEM, nullptr)) {
        dbus_connection_set_exit_on_disconnect(old, 0);
        while (dbus_connection_read_write_dispatch(old, 0) != 0) {
        }
        dbus_connection_unref(old);
    }
}

void StateManagerWorld::forget() {
    fakes::FakeDlog::clear();
    fakes::takeBootMarks();
    Actions::take();
}

std::vector<std::string> StateManagerWorld::actions() {
    std::vector<std::string> all = Actions::take();
    all.erase(std::remove_if(all.begin(), all.end(),
                             [](const std::string& action) { return action.rfind("marker ", 0) == 0; }),
              all.end());
    return all;
}

std::vector<std::string> StateManagerWorld::firstOf(std::vector<std::string> all, std::size_t count) {
    all.resize(std::min(count, all.size()));
    return all;
}

std::vector<std::string> StateManagerWorld::lastOf(const std::vector<std::string>& all, std::size_t count) {
    return {all.end() - static_cast<std::ptrdiff_t>(std::min(count, all.size())), all.end()};
}
