// SPDX-License-Identifier: Apache-2.0
#include "Gather.h"

#include <unistd.h>

#include <ctime>
#include <exception>

#include "Daemon.h"
#include "Files.h"
#include "Journal.h"

namespace zelctl {

namespace {

std::int64_t monotonicNow() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

void lookAtFiles(Situation& situation) {
    situation.markers = markers();
    situation.switches = switches();
    try {
        situation.sessions = savedSessions();
    } catch (const std::exception& problem) {
        situation.sessionsProblem = std::string(kStateFile) + ": " + problem.what();
    }
}

// An owner that left without a word to the log is seen on the bus alone.
void lookAtJournal(const Bus& bus, Situation& situation) {
    const unsigned int pid =
        situation.daemon && situation.daemon->pid != 0 ? situation.daemon->pid : situation.daemonOwner;
    if (pid == 0) {
        situation.logProblem = "the daemon does not run";
        return;
    }
    situation.history = historyOf(pid);
    if (situation.history.isEmpty()) {
        situation.logProblem =
            geteuid() == 0 ? "the journal has no line of the daemon that runs"
                           : "the daemon's log can't be read; root and members of systemd-journal can";
    }
    situation.history.forgetUnsaved(
        [&bus](const std::string& id) { return id.compare(0, 1, ":") == 0 && !bus.has(id); });
}

void lookAround(const Bus& bus, Situation& situation) {
    situation.daemon = bus.unit(kDaemonUnit);
    situation.daemonOwner = bus.ownerPid(kDaemonName);
    lookAtService(bus, situation);
    lookAtFiles(situation);
    lookAtJournal(bus, situation);
}

void askDaemon(const Bus& bus, Gathered& gathered) {
    Situation& situation = gathered.situation;
    Daemon daemon(bus);
    try {
        situation.isTerminated = daemon.isTerminated();
        situation.report = daemon.readReport();
        situation.report->records.clear();
    } catch (const Trouble& trouble) {
        gathered.trouble = trouble;
        situation.daemonProblem = trouble.what();
        situation.isDaemonSilent = trouble.status() == kNoAnswer;
    }
}

}  // namespace

void lookAtService(const Bus& bus, Situation& situation) {
    // systemd that has not answered once is not waited for again.
    situation.service = situation.daemon ? bus.unit(kServiceUnit) : std::nullopt;
    situation.serviceOwner = bus.ownerPid(kServiceName);
}

Situation gatherSessions(const Bus& bus) {
    Situation situation;
    lookAround(bus, situation);
    return situation;
}

// The daemon may take its time, so it is asked first: all is then of the moment in which it has answered.
Gathered gather(const Bus& bus) {
    Gathered gathered;
    askDaemon(bus, gathered);
    lookAround(bus, gathered.situation);
    gathered.situation.daemonTime = daemonNow();
    gathered.situation.monotonic = monotonicNow();
    return gathered;
}

}  // namespace zelctl
