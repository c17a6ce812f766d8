// SPDX-License-Identifier: Apache-2.0
// The verbs that only look: status, sessions, explain, report.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>

#include "Explanation.h"
#include "Files.h"
#include "Gather.h"
#include "Journal.h"
#include "Page.h"
#include "Text.h"
#include "Verbs.h"

namespace zelctl {

namespace {

// A file that is written or not there afterwards: what could not be written whole is of no use.
void writeFile(const std::string& path, const std::string& content) {
    const auto fail = [&path] {
        throw Trouble(kFailed, path, std::string("it could not be written: ") + std::strerror(errno),
                      "another place, or '-' for standard output");
    };
    std::FILE* const file = std::fopen(path.c_str(), "we");
    if (file == nullptr) {
        fail();
    }
    const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    if (std::fclose(file) != 0 || !written) {
        fail();
    }
}

std::string wallTime() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S %Z", localtime_r(&now, &parts));
    return text.data();
}

std::string hostName() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "this machine";
}

// When the sessions were opened, as far as the log of the running daemon reaches.
std::map<std::string, DaemonTime> openingTimes(unsigned int pid) {
    std::map<std::string, DaemonTime> times;
    Journal journal;
    journal.limitTo(pid);
    while (const std::optional<TimedEvent> timed = journal.next()) {
        if (timed->event.kind == EventKind::Opened && timed->event.values[0] == "1") {
            times[timed->event.values[1]] = static_cast<DaemonTime>(timed->monotonic / 1000);
        }
    }
    return times;
}

PageContent pageContent(const Bus& bus, Report report) {
    PageContent content;
    content.report = std::move(report);
    try {
        content.sessions = savedSessions();
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "zelctl: %s: %s; the page lacks the sessions\n", kStateFile,
                     printable(problem.what()).c_str());
    }
    content.opened = openingTimes(bus.ownerPid(kDaemonName));
    content.now = daemonNow();
    content.when = wallTime();
    content.host = hostName();
    return content;
}

void requireSessions(const Situation& situation) {
    if (!situation.sessionsProblem.empty()) {
        throw Trouble(kFailed, "the sessions", situation.sessionsProblem, "zelctl self-test");
    }
}

// What the daemon could not tell is said, and how the program exits.
Status complain(const Gathered& gathered) {
    if (!gathered.trouble) {
        return kDone;
    }
    std::fprintf(stderr, "zelctl: %s\n", gathered.trouble->what());
    return gathered.trouble->status();
}

}  // namespace

void print(const std::string& text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
        throw Trouble(kFailed, "standard output", std::strerror(errno), "a place with room");
    }
}

Status status(bool json, std::chrono::seconds limit) {
    const Bus bus(limit);
    const Gathered gathered = gather(bus);
    print(json ? statusJson(gathered.situation) : statusText(gathered.situation));
    if (const Status trouble = complain(gathered); trouble != kDone) {
        return trouble;
    }
    const std::string state = serviceState(gathered.situation);
    if (state == "unknown") {
        throw Trouble(kFailed, "systemd", "it does not say how the service is", "systemctl status");
    }
    return state == "running" ? kDone : kServiceDown;
}

Status sessions(bool json) {
    const Bus bus;
    const Situation situation = gatherSessions(bus);
    requireSessions(situation);
    print(json ? sessionsJson(situation) : sessionsText(situation));
    return kDone;
}

Status explain(const std::set<std::string>& without, std::chrono::seconds limit) {
    const Bus bus(limit);
    const Gathered gathered = gather(bus);
    if (without.empty()) {
        print(explanationText(explain(gathered.situation)));
    } else {
        requireSessions(gathered.situation);
        const std::vector<std::string> unknown = unknownIds(gathered.situation, without);
        if (!unknown.empty()) {
            throw Trouble(kFailed, "session " + unknown.front(), "nobody holds a session of that id",
                          "zelctl sessions, which lists them");
        }
        print(explanationText(foresee(gathered.situation, without)));
    }
    return complain(gathered);
}

Status report(bool json, const std::string& html, std::chrono::seconds limit) {
    const Bus bus(limit);
    Daemon daemon(bus);
    if (json) {
        print(daemon.report());
        return kDone;
    }
    Report report = daemon.readReport();
    if (html.empty()) {
        print(reportText(report, daemonNow()));
        return kDone;
    }
    const std::string page = renderPage(pageContent(bus, std::move(report)));
    if (html == "-") {
        print(page);
    } else {
        writeFile(html, page);
    }
    return kDone;
}

}  // namespace zelctl
