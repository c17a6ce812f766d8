// SPDX-License-Identifier: Apache-2.0
#include "support/SessionWorld.h"

#include <glib.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>

#include "fakes/Actions.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeLite.h"
#include "fakes/FakeStateManager.h"
#include "fakes/FakeVconf.h"
#include "support/Files.h"
#include "support/HelperWaits.h"

using fakes::Actions;

bool Processes::scripted = false;
std::vector<int> Processes::alive;
int Processes::error = ESRCH;
std::vector<int> Processes::probed;

namespace {

struct Scheduled {
    GSourceFunc function;
    gpointer data;
};

std::vector<Scheduled> scheduled;

}  // namespace

extern "C" int __real_kill(pid_t pid, int signal);
extern "C" int __wrap_kill(pid_t pid, int signal);
extern "C" int __wrap_kill(pid_t pid, int signal) {
    if (!Processes::scripted) {
        return __real_kill(pid, signal);
    }
    Processes::probed.push_back(pid);
    if (signal == 0 &&
        std::find(Processes::alive.begin(), Processes::alive.end(), pid) != Processes::alive.end()) {
        return 0;
    }
    errno = Processes::error;
    return -1;
}

extern "C" guint __wrap_g_timeout_add_seconds(guint seconds, GSourceFunc function, gpointer data);
extern "C" guint __wrap_g_timeout_add_seconds(guint seconds, GSourceFunc function, gpointer data) {
    Actions::add("g_timeout_add_seconds " + std::to_string(seconds));
    scheduled.push_back({function, data});
    return static_cast<guint>(scheduled.size());
}

SessionWorld::SessionWorld() {
    std::filesystem::remove_all("/tmp/zel_lite_sessions_state.txt");
    std::filesystem::remove_all("/etc/zel-lite");
    fakes::FakeStateManager::reset();
    fakes::FakeVconf::reset();
    fakes::FakeLite::isDebug = false;
    Processes::scripted = false;
    Processes::alive.clear();
    Processes::probed.clear();
    Processes::error = ESRCH;
    scheduled.clear();
    HelperWaits::reset();
    start();
}

SessionWorld::~SessionWorld() {
    fakes::FakeDlog::onLineOfOthers(nullptr);
}

void SessionWorld::start() {
    m_control.reset();
    m_control = std::make_unique<ClockedSessionControl>(m_stateManager);
    forget();
}

void SessionWorld::startDebug() {
    fakes::FakeLite::isDebug = true;
    start();
}

void SessionWorld::setSwitch(const std::string& name, bool present) {
    std::filesystem::create_directories("/etc/zel-lite");
    if (present) {
        writeFile("/etc/zel-lite/" + name, "");
    } else {
        std::filesystem::remove("/etc/zel-lite/" + name);
    }
}

void SessionWorld::openTrace(std::int64_t traceId, const std::string& text, const std::string& sessionId) {
    m_control->OpenDebugTrace(sessionId, traceId, text, "/usr/bin/app", "app", "77",
                              ESessionControl_ProgLang_Cpp);
}

void SessionWorld::forget() {
    fakes::FakeDlog::clear();
    Actions::take();
}

std::vector<bool> SessionWorld::runScheduled() {
    std::vector<bool> answers;
    for (const Scheduled& attempt : std::exchange(scheduled, {})) {
        answers.push_back(attempt.function(attempt.data) != 0);
    }
    return answers;
}
