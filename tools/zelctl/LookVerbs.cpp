// SPDX-License-Identifier: Apache-2.0
// The verbs that only look: status, sessions, explain, report.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
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

// Written with the mode that any new file has.
bool writeWhole(int fd, const std::string& content) {
    const mode_t mask = umask(0);
    umask(mask);
    bool written = fchmod(fd, 0666 & ~mask) == 0;
    for (std::size_t done = 0; written && done < content.size();) {
        const ssize_t count = write(fd, content.data() + done, content.size() - done);
        written = count > 0;
        done += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    const int error = errno;
    const bool closed = close(fd) == 0;
    errno = written ? errno : error;
    return written && closed;
}

// Written beside its place and put there as a whole: whoever has a page keeps it until there is a new one,
// and nothing is followed that somebody has planted there.
void writeFile(const std::string& path, const std::string& content) {
    constexpr const char* kElsewhere = "another place, or '-' for standard output";
    struct stat present {};
    if (lstat(path.c_str(), &present) == 0 && !S_ISREG(present.st_mode)) {
        throw Trouble(kFailed, path, "there is something else than a plain file", kElsewhere);
    }
    std::string beside = path + ".XXXXXX";
    const int fd = mkostemp(beside.data(), O_CLOEXEC);
    if (fd >= 0 && writeWhole(fd, content) && std::rename(beside.c_str(), path.c_str()) == 0) {
        return;
    }
    const int error = errno;
    if (fd >= 0) {
        unlink(beside.c_str());
    }
    throw Trouble(kFailed, path, std::string("it could not be written: ") + std::strerror(error), kElsewhere);
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
    const Situation situation = gatherSessions(bus);
    content.sessions = openSessions(situation);
    content.sessionsProblem = situation.sessionsProblem;
    if (!content.sessionsProblem.empty()) {
        std::fprintf(stderr, "zelctl: %s; the page lacks the sessions\n",
                     printable(content.sessionsProblem).c_str());
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
        throw Trouble(kFailed, "standard output", std::strerror(errno), "a place that can be written to");
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
