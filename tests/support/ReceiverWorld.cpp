// SPDX-License-Identifier: Apache-2.0
#include "support/ReceiverWorld.h"

#include <chrono>
#include <filesystem>

#include "fakes/Actions.h"
#include "fakes/FakeAul.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeSessionControl.h"
#include "fakes/FakeStateManager.h"
#include "support/Files.h"
#include "support/WaylandCalls.h"
#include "util/AppIdCache.h"

using fakes::Actions;
using fakes::FakeDlog;

ReceiverWorld::ReceiverWorld() {
    writeFile(kReady, "");
    std::filesystem::remove("/etc/debug");
    fakes::FakeStateManager::reset();
    fakes::FakeSessionControl::openResult = true;
    fakes::FakeSessionControl::closeResult = true;
    fakes::FakeAul::reset();
    WaylandCalls::reset();
    Compositor::nowhere();
    // It is made, and registered, once in the process.
    TCAppIdCache::Instance();
    make();
}

ReceiverWorld::~ReceiverWorld() {
    WaylandCalls::detach();
}

void ReceiverWorld::make() {
    m_receiver = std::make_unique<CZELLiteWaylandNotificationReceiver>(m_stateManager, m_sessionControl);
    forget();
}

void ReceiverWorld::startOn(const Compositor::Manners& manners) {
    m_compositor = std::make_unique<Compositor>(manners);
    m_receiver->Start(nullptr);
    forget();
}

void ReceiverWorld::forget() {
    FakeDlog::clear();
    Actions::take();
}

std::vector<std::string> ReceiverWorld::linesAfter(std::size_t count) {
    constexpr int kError = 6;
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (FakeDlog::messages(kError).size() < count && std::chrono::steady_clock::now() < limit) {
        g_main_context_iteration(nullptr, FALSE);
    }
    std::vector<std::string> lines = FakeDlog::messages(kError);
    EXPECT_GE(lines.size(), count) << "within 10 seconds";
    return lines;
}
