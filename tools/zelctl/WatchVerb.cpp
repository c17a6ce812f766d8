// SPDX-License-Identifier: Apache-2.0
// The verb watch: a line whenever something changes. Nothing is asked over and over; whoever changes
// something is heard: the kernel for files, systemd for units, the journal for what the daemon says.
#include <csignal>
#include <cstdio>
#include <ctime>
#include <exception>
#include <string_view>

#include "Changes.h"
#include "Files.h"
#include "Journal.h"
#include "Loop.h"
#include "Verbs.h"

namespace zelctl {

namespace {

constexpr std::string_view kOurFiles = "zel_";

std::uint64_t realtimeNow() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec) / 1000;
}

class Watch {
public:
    Watch(const Bus& bus, bool json) : m_bus(bus), m_json(json) {}

    void tell(const std::vector<Change>& changes, std::uint64_t time) const {
        for (const Change& change : changes) {
            print(m_json ? changeJson(change, time) : changeText(change, time));
        }
    }

    void lookAtUnits() {
        lookAt("service", kServiceUnit, m_service);
        lookAt("daemon", kDaemonUnit, m_daemon);
    }

    void lookAtFiles() {
        const std::vector<Marker> found = markers();
        tell(markerChanges(m_markers, found), realtimeNow());
        m_markers = found;
        try {
            const Sessions sessions = savedSessions();
            tell(sessionChanges(m_sessions, sessions), realtimeNow());
            m_sessions = sessions;
            m_problem.clear();
        } catch (const std::exception& problem) {
            if (m_problem != problem.what()) {
                m_problem = problem.what();
                tell({{"session", "unknown", std::string(kStateFile) + ": " + m_problem, {}}}, realtimeNow());
            }
        }
    }

    void readLog() {
        while (const std::optional<TimedEvent> timed = m_journal.next()) {
            tell(logChanges(timed->event), timed->realtime);
        }
    }

    void followLog(Loop& loop) {
        if (!m_journal.skipToEnd()) {
            std::fputs(
                "zelctl: no line of the daemon can be read in the journal: triggers and attempts may not be "
                "shown; try: as root\n",
                stderr);
        }
        const int fd = m_journal.isOpen() ? sd_journal_get_fd(m_journal.get()) : -1;
        if (fd < 0) {
            return;
        }
        loop.onReadable(fd, [this] {
            sd_journal_process(m_journal.get());
            readLog();
        });
    }

private:
    void lookAt(const char* kind, const char* name, std::optional<Unit>& last) {
        const std::optional<Unit> unit = m_bus.unit(name);
        tell(unitChanges(kind, last, unit), realtimeNow());
        last = unit;
    }

    const Bus& m_bus;
    bool m_json;
    std::optional<Unit> m_service;
    std::optional<Unit> m_daemon;
    std::vector<Marker> m_markers;
    // None before they were first seen.
    std::optional<Sessions> m_sessions;
    std::string m_problem;
    Journal m_journal;
};

std::string unitMatch(const char* unit) {
    return "type='signal',sender='org.freedesktop.systemd1',interface='org.freedesktop.DBus.Properties',"
           "member='PropertiesChanged',path='" +
           unitPath(unit) + "'";
}

}  // namespace

Status watch(bool json) {
    const Bus bus;
    // A second connection, because one that is read in the loop should not be asked in the midst of it.
    const Bus questions;
    Watch watch(questions, json);
    Loop loop(bus);
    loop.onSignals({SIGINT, SIGTERM}, [&loop](const signalfd_siginfo& /*info*/) { loop.stop(); });
    loop.onBusLost(
        [] { throw Trouble(kNoBus, "the system bus", "it has gone", "systemctl status dbus.service"); });
    loop.onFolder(
        kStateFolder, IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB | IN_CLOSE_WRITE,
        [&watch](const char* name) {
            if (name == nullptr || std::string_view(name).substr(0, kOurFiles.size()) == kOurFiles) {
                watch.lookAtFiles();
            }
        });
    for (const char* const unit : {kDaemonUnit, kServiceUnit}) {
        loop.onBusSignal(unitMatch(unit), [&watch](sd_bus_message* /*signal*/) { watch.lookAtUnits(); });
    }
    if (!bus.subscribeToUnits()) {
        std::fputs("zelctl: systemd does not tell of its units: their changes are not shown\n", stderr);
    }
    watch.followLog(loop);
    watch.lookAtUnits();
    watch.lookAtFiles();
    watch.readLog();
    loop.run();
    return kDone;
}

}  // namespace zelctl
