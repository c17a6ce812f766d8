// SPDX-License-Identifier: Apache-2.0
// Everything that session control does, from eight threads at once, for a bounded number of rounds.
#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

#include "SessionControl.h"
#include "ZelDaemonStateManager.h"
#include "fakes/FakeLite.h"
#include "fakes/FakeVconf.h"
#include "support/HelperWaits.h"

namespace {

constexpr int kRounds = 200;
constexpr const char* kViewer = "memory/tv-viewer/viewer_state";

void open(TCSessionControl& control, const std::string& id, std::int64_t traceId) {
    control.OpenDebugTrace(id, traceId, "why", "/usr/bin/app", "app", "1", ESessionControl_ProgLang_Cpp);
}

}  // namespace

TEST(SessionLocksTest, EightThreadsEndWithAnEmptyConsistentTable) {
    fakes::FakeLite::isDebug = true;
    fakes::FakeVconf::setText(kViewer, "live");
    TCZelDaemonStateManager manager;
    TCSessionControl control(manager);
    HelperWaits::end(kRounds);
    const std::vector<std::function<void()>> rounds{
        [&] {
            control.Open("a", "p", "1");
            control.Close("a");
        },
        [&] {
            control.Open("b", "p", "2");
            open(control, "b", 1);
            control.CloseOnCrash("b");
        },
        [&] {
            open(control, "c", 1);
            control.CloseDebugTrace("c", 1);
        },
        [&] { control.GetDebugInfo(); },
        [&] { control.TryTerminateZel(); },
        [&] { control.TryTerminateZelWithAppLaunch(true); },
        [&] { fakes::FakeVconf::tell(kViewer, kViewer); },
        [&] {
            control.CheckPIDs();
            control.IsAnySessionActive();
        },
    };
    ASSERT_EQ(rounds.size(), 8U);
    std::vector<std::thread> threads;
    threads.reserve(rounds.size());
    for (const auto& round : rounds) {
        threads.emplace_back([&round] {
            for (int i = 0; i < kRounds; ++i) {
                round();
            }
        });
    }

    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_FALSE(control.IsAnySessionActive());
    EXPECT_TRUE(control.TryTerminateZel());
    EXPECT_NE(control.GetDebugInfo().find("\"zel-lite\" : null"), std::string::npos);
}
