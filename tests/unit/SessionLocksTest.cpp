// SPDX-License-Identifier: Apache-2.0
// Everything that session control does, from eight threads at once, for a bounded number of rounds.
#include <gtest/gtest.h>

#include <atomic>
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

// Its clock leaps, so that what was closed a moment ago is old at the next ageing.
class LeapingSessionControl : public TCSessionControl {
public:
    using TCSessionControl::TCSessionControl;

protected:
    std::int64_t t_getTimeMs() override { return m_now += 15'000; }

private:
    std::atomic<std::int64_t> m_now{1};
};

void open(TCSessionControl& control, const std::string& id, std::int64_t traceId) {
    control.OpenDebugTrace(id, traceId, "why", "/usr/bin/app", "app", "1", ESessionControl_ProgLang_Cpp);
}

}  // namespace

TEST(SessionLocksTest, EightThreadsEndWithAnEmptyConsistentTable) {
    fakes::FakeLite::isDebug = true;
    fakes::FakeVconf::setText(kViewer, "live");
    TCZelDaemonStateManager manager;
    LeapingSessionControl control(manager);
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
        // Lets the helper thread age once more.
        [&] { HelperWaits::end(1); },
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
                std::this_thread::yield();
            }
        });
    }

    for (std::thread& thread : threads) {
        thread.join();
    }

    // No ageing begins any more, so none is under way when the control goes.
    HelperWaits::end(0);
    EXPECT_FALSE(control.IsAnySessionActive());
    // The check of pids may have closed "b" before its trace was opened: the first attempt closes it, the
    // second empties the recent traces.
    EXPECT_TRUE(control.TryTerminateZel());
    EXPECT_TRUE(control.TryTerminateZel());
    EXPECT_NE(control.GetDebugInfo().find("\"zel-lite\" : null"), std::string::npos);
}
