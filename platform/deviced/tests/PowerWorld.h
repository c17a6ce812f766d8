// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What a test of power needs: a bus, a logind on it, and somebody who is told.
 */
#ifndef DEVICED_TESTS_POWER_WORLD_H
#define DEVICED_TESTS_POWER_WORLD_H

#include <dd-power.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "MainContext.h"
#include "ScriptedLogind.h"
#include "support/PrivateBus.h"
#include "support/StderrPackets.h"
#include "support/Wait.h"

/** Somebody who is told, and what it does then. */
struct Listener {
    std::string name;
    std::vector<std::string>* told;
    std::function<void()> inside;
};

/** Callbacks, as many as there are numbers. Each notes "NAME NUMBER", the number being the one that it got.
 */
template <int>
int hear(int number, void* userData) {
    const auto* listener = static_cast<const Listener*>(userData);
    listener->told->push_back(listener->name + " " + std::to_string(number));
    if (listener->inside) {
        listener->inside();
    }
    return 1;
}

/** What is written to stderr until a line with @p text, which is the last, unless none came for half a
 * minute. */
inline std::vector<std::string> linesUntil(StderrPackets& packets, const std::string& text) {
    std::vector<std::string> lines;
    while (const auto line = packets.await()) {
        lines.push_back(*line);
        if (line->find(text) != std::string::npos) {
            break;
        }
    }
    return lines;
}

/** Waits for a line with a text on stderr. @return whether it came */
inline bool isLogged(StderrPackets& packets, const std::string& text) {
    const std::vector<std::string> lines = linesUntil(packets, text);
    return !lines.empty() && lines.back().find(text) != std::string::npos;
}

/** Needs a process of its own: the library is on one bus as long as the process lives. */
class PowerWorld {
public:
    /** With a logind that the library has found. */
    explicit PowerWorld(const LogindScript& script = {})
        : m_logind(std::make_unique<ScriptedLogind>(script)) {
        watchWakeUps();
        awaitReading();
    }

    PrivateBus& bus() { return m_bus; }
    ScriptedLogind& logind() { return *m_logind; }

    /** What happened, in order. */
    std::vector<std::string> told;

    /** Listeners to subscribe. */
    Listener standby{"standby", &told, nullptr};
    Listener wakeUp{"wake-up", &told, nullptr};
    Listener other{"other", &told, nullptr};

    /** Makes logind go. */
    void removeLogind() { m_logind.reset(); }

    /** Puts another logind in the place of the one there was, and returns when the library has found it. */
    void replaceLogind(const LogindScript& script = {}) {
        m_logind.reset();
        m_logind = std::make_unique<ScriptedLogind>(script);
        awaitReading();
    }

    /** Runs the context until @p count things have happened. */
    bool isTold(std::size_t count) {
        return runUntil([this, count] { return told.size() >= count; });
    }

    /** Sleeps and wakes up, and returns when everything that came before has been told, too. */
    void sleepAndWake() {
        const std::size_t before = m_witnessed.size();
        m_logind->prepareForSleep(true);
        m_logind->prepareForSleep(false);
        awaitWakeUps(before + 1);
    }

    /** Wakes up, and returns when everything that came before has been told, too. */
    void wake() {
        const std::size_t before = m_witnessed.size();
        m_logind->prepareForSleep(false);
        awaitWakeUps(before + 1);
    }

    /** Waits until @p count holds are held, without running the context. */
    bool holds(int count) {
        return becomesTrue([this, count] { return m_logind->held() == count; });
    }

    /** Subscribes to standby and waits for the hold. */
    void watchStandby() {
        device_power_subscribe_standby(hear<0>, &standby);
        if (!holds(1)) {
            throw std::runtime_error("PowerWorld: there is no hold");
        }
    }

    /** Waits, without running the context, until the library has something to tell. */
    static bool somethingIsQueued() {
        return becomesTrue([] { return g_main_context_pending(nullptr) != FALSE; });
    }

private:
    // A witness of its own kind, so that no test has to mind it.
    void watchWakeUps() { device_power_subscribe_early_wakeup(hear<99>, &m_witness); }

    void awaitReading() {
        if (!becomesTrue([this] { return m_logind->reads() > 0; })) {
            throw std::runtime_error("PowerWorld: the library does not find logind");
        }
    }

    void awaitWakeUps(std::size_t count) {
        if (!runUntil([this, count] { return m_witnessed.size() >= count; })) {
            throw std::runtime_error("PowerWorld: no wake-up is told");
        }
    }

    PrivateBus m_bus;
    std::unique_ptr<ScriptedLogind> m_logind;
    std::vector<std::string> m_witnessed;
    Listener m_witness{"witness", &m_witnessed, nullptr};
};

#endif
