// SPDX-License-Identifier: Apache-2.0
// The verb self-test: the whole way, step by step, each with what is wrong and what to do.
#include <fcntl.h>
#include <linux/rtc.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>

#include "Explanation.h"
#include "Files.h"
#include "Gather.h"
#include "Text.h"
#include "Verbs.h"

namespace zelctl {

namespace {

/** What a check has found. */
enum class Verdict {
    /** As it must be. */
    Right,
    /** Odd, but the daemon lives with it. */
    Odd,
    /** Not looked at, and why. */
    Skipped,
    /** Wrong. */
    Wrong
};

struct Finding {
    Verdict verdict;
    std::string text;
    std::string advice;
    /** How the program exits when it is wrong. */
    Status status = kFailed;
};

Finding right(const std::string& text) {
    return {Verdict::Right, text, "", kDone};
}

Finding skipped(const std::string& text) {
    return {Verdict::Skipped, text, "", kDone};
}

Finding odd(const std::string& text, const std::string& advice) {
    return {Verdict::Odd, text, advice, kDone};
}

Finding wrong(const std::string& text, const std::string& advice, Status status = kFailed) {
    return {Verdict::Wrong, text, advice, status};
}

/** What the checks work on. */
struct Subject {
    const Bus& bus;
    Situation situation;
    bool withSession;
};

Finding checkSystemd(Subject& subject) {
    if (!subject.situation.daemon) {
        return wrong("systemd does not answer on the bus",
                     "systemctl status; without it no service can be started");
    }
    return right("it answers on the bus");
}

Finding checkUnit(Subject& subject) {
    const auto& unit = subject.situation.daemon;
    if (!unit) {
        return skipped("systemd does not answer");
    }
    if (unit->load != "loaded") {
        return wrong("zel-lite.service is " + unit->load,
                     "install it once more, or systemctl unmask zel-lite.service");
    }
    if (unit->active != "active") {
        return wrong("zel-lite.service is " + unit->active + " (" + unit->sub + ')',
                     "systemctl start zel-lite.service, and journalctl -u zel-lite.service", kNoDaemon);
    }
    return right("zel-lite.service runs as process " + std::to_string(unit->pid));
}

Finding checkName(Subject& subject) {
    const Situation& situation = subject.situation;
    if (situation.daemonOwner == 0) {
        return wrong(
            "nobody has the name com.brenlow.ZELLite",
            "systemctl restart zel-lite.service; is /etc/dbus-1/system.d/com.brenlow.ZELLite.conf there?",
            kNoDaemon);
    }
    if (situation.daemon && situation.daemon->pid != situation.daemonOwner) {
        return wrong("process " + std::to_string(situation.daemonOwner) +
                         " has the name com.brenlow.ZELLite, which is not the one of zel-lite.service",
                     "end that process, then systemctl restart zel-lite.service", kNoDaemon);
    }
    return right("com.brenlow.ZELLite belongs to process " + std::to_string(situation.daemonOwner));
}

// A check that fails as a call does.
template <typename Check>
Finding called(Check check) {
    try {
        return check();
    } catch (const Trouble& trouble) {
        return {Verdict::Wrong, trouble.what(), "", trouble.status()};
    }
}

Finding checkCall(Subject& subject) {
    return called([&subject] {
        Daemon daemon(subject.bus);
        subject.situation.isTerminated = daemon.isTerminated();
        return right(*subject.situation.isTerminated ? "the daemon answers: the service is terminated"
                                                     : "the daemon answers: the service is not terminated");
    });
}

Finding checkReport(Subject& subject) {
    return called([&subject] {
        Daemon daemon(subject.bus);
        return right("traces of " + counted(daemon.readReport().records.size(), "session"));
    });
}

Finding checkStateFile(Subject& subject) {
    const Situation& situation = subject.situation;
    if (!situation.sessionsProblem.empty()) {
        return wrong(
            situation.sessionsProblem,
            "remove it; the daemon writes it anew with the next session, and forgets none while it runs");
    }
    return right(counted(situation.sessions.size(), "session") + " saved");
}

// Why a session of one's own would do more than be there and go again, or may; empty when it would not.
std::string sideEffect(const Situation& situation) {
    const std::string state = serviceState(situation);
    if (state != "running") {
        return "it would start the service, which is " + state;
    }
    if (*situation.isTerminated) {
        return "it would start the service, which the daemon takes for terminated";
    }
    if (!openSessions(situation).empty()) {
        return {};
    }
    switch (isTriedAfterLastSession(situation)) {
        case Certainty::Yes:
            return "the service would be asked to terminate 10 seconds later, because nobody else holds it";
        case Certainty::Unknown:
            return "the service might be asked to terminate 10 seconds later, because nobody else holds it: "
                   "the switch " +
                   situation.switches[kAggressive].path + " may have been there when the daemon started";
        case Certainty::No:
            break;
    }
    return {};
}

bool isSaved(const std::string& id) {
    return savedSessions().count(id) > 0;
}

Finding makeRoundTrip(Subject& subject) {
    // A connection of its own, so that no session is left whatever happens.
    const Bus bus(subject.bus.limit());
    Daemon daemon(bus);
    const std::string id = bus.uniqueName();
    if (!daemon.open()) {
        daemon.close();
        return wrong("the daemon reports no success: the service could not be started or told",
                     "what the checks beside this one say, and systemctl status zel_deamon.service",
                     kNotStarted);
    }
    const bool saved = isSaved(id);
    if (!daemon.close()) {
        return wrong("the session could not be closed", "zelctl sessions");
    }
    if (!saved || isSaved(id)) {
        return wrong(std::string(kStateFile) + (saved ? " still has" : " did not have") + " the session",
                     "look whether /tmp is full, or somebody has planted a file there");
    }
    return right("a session was opened, saved and closed");
}

Finding checkSession(Subject& subject) {
    if (!subject.situation.isTerminated) {
        return skipped("the daemon has not answered");
    }
    const std::string effect = sideEffect(subject.situation);
    if (!effect.empty() && !subject.withSession) {
        return skipped("left out: " + effect + "; --with-session does it all the same");
    }
    try {
        return called([&subject] { return makeRoundTrip(subject); });
    } catch (const std::exception& problem) {
        return wrong(std::string(kStateFile) + ": " + problem.what(), "remove it");
    }
}

// A call of a method that is not there reaches the service and does nothing.
Finding checkControl(Subject& subject) {
    Situation& situation = subject.situation;
    lookAtService(subject.bus, situation);
    const std::string state = serviceState(situation);
    if (situation.service && situation.service->load != "loaded") {
        return wrong("zel_deamon.service is " + situation.service->load,
                     "install the service, or systemctl unmask zel_deamon.service");
    }
    if (situation.serviceOwner == 0) {
        return state == "running" ? wrong("the service runs, but nobody has the name com.brenlow.ZELDaemon",
                                          "journalctl -u zel_deamon.service")
                                  : skipped("the service is " + state);
    }
    sd_bus_message* made = nullptr;
    sd_bus_message_new_method_call(subject.bus.get(), &made, kServiceName, "/com/brenlow/ZELDaemon",
                                   "com.brenlow.IZelControl", "IsReachable");
    const Message call(made);
    sd_bus_message_set_auto_start(made, 0);
    BusError error;
    const int result = sd_bus_call(subject.bus.get(), made, 0, error.get(), nullptr);
    if (result >= 0 || error.is(SD_BUS_ERROR_UNKNOWN_METHOD)) {
        return right("the service answers as process " + std::to_string(situation.serviceOwner));
    }
    if (error.is(SD_BUS_ERROR_ACCESS_DENIED)) {
        return geteuid() == 0 ? wrong("the bus does not let root call the service",
                                      "look at the policy of com.brenlow.ZELDaemon in /etc/dbus-1/system.d",
                                      kNotPermitted)
                              : skipped("only root may call it");
    }
    return wrong("the service does not answer: " + error.text(), "journalctl -u zel_deamon.service");
}

Finding checkMarkers(Subject& subject) {
    Situation& situation = subject.situation;
    situation.markers = markers();
    for (const Marker& marker : situation.markers) {
        if (!marker.problem.empty()) {
            return wrong(marker.path + ": " + marker.problem, "find out who made it, and remove it");
        }
    }
    if (!situation.markers[kSubsequentStart].isPresent && situation.daemonOwner != 0) {
        return wrong(situation.markers[kSubsequentStart].path + " is missing, though the daemon runs",
                     "touch it, and keep whatever cleans /tmp away: without it the daemon takes its next "
                     "start for a boot");
    }
    const bool marked = situation.markers[kRunning].isPresent;
    const std::string state = serviceState(situation);
    if (marked && (state == "terminated" || state == "stopped" || state == "failed")) {
        return odd(
            "the marker says that the service runs, which is " + state,
            "nothing, if somebody has stopped it: the next application that needs it may have to wait");
    }
    return right("plain files of root");
}

Finding checkClock(Subject& /*subject*/) {
    const int device = ::open("/dev/rtc0", O_RDONLY | O_CLOEXEC);
    if (device < 0) {
        const int error = errno;
        return error == EACCES
                   ? skipped("only root may read /dev/rtc0")
                   : odd(std::string("/dev/rtc0: ") + std::strerror(error),
                         "nothing, on a machine without one; the daemon then never notices a wrong clock");
    }
    rtc_time record{};
    const int result = ioctl(device, RTC_RD_TIME, &record);
    const int error = errno;
    ::close(device);
    if (result < 0) {
        return wrong(std::string("/dev/rtc0 can't be read: ") + std::strerror(error), "hwclock --show");
    }
    std::tm parts{};
    parts.tm_year = record.tm_year;
    parts.tm_mon = record.tm_mon;
    parts.tm_mday = record.tm_mday;
    parts.tm_hour = record.tm_hour;
    parts.tm_min = record.tm_min;
    parts.tm_sec = record.tm_sec;
    const std::time_t apart = std::time(nullptr) - timegm(&parts);
    constexpr std::time_t kTolerated = 3;
    const std::string text =
        "the system's clock and the hardware's are " + std::to_string(std::labs(apart)) + " s apart";
    return std::labs(apart) > kTolerated
               ? odd(text,
                     "hwclock --systohc, if the system's is right; a terminated service is started for this")
               : right(text);
}

Finding checkCompositor(Subject& subject) {
    const Marker ready = inspect("/run/.wm_ready", "the window manager is ready");
    if (!ready.isPresent) {
        return wrong(
            "there is no " + ready.path + ": the window manager is not ready, so no window holds a session",
            "start the window manager, then systemctl restart zel-lite.service");
    }
    const auto& unit = subject.situation.daemon;
    if (unit && unit->activeSince != 0 && ready.changed > unit->activeSince) {
        return wrong(
            "the window manager became ready after the daemon had started, which looks for it only then",
            "systemctl restart zel-lite.service; sessions survive it");
    }
    return right("ready since before the daemon started");
}

struct Check {
    const char* name;
    Finding (*look)(Subject& subject);
};

// In the order of the way: what comes first is the likelier cause of what comes after.
constexpr std::array<Check, 11> kChecks{{{"systemd", checkSystemd},
                                         {"daemon", checkUnit},
                                         {"name", checkName},
                                         {"call", checkCall},
                                         {"report", checkReport},
                                         {"state file", checkStateFile},
                                         {"markers", checkMarkers},
                                         {"session", checkSession},
                                         {"service", checkControl},
                                         {"clock", checkClock},
                                         {"compositor", checkCompositor}}};

const char* wordFor(Verdict verdict) {
    switch (verdict) {
        case Verdict::Right:
            return "ok    ";
        case Verdict::Odd:
            return "odd   ";
        case Verdict::Skipped:
            return "-     ";
        case Verdict::Wrong:
            return "WRONG ";
    }
    return "";
}

void tell(const std::string& name, const Finding& finding) {
    std::string text =
        wordFor(finding.verdict) + name + std::string(12 - name.size(), ' ') + printable(finding.text) + '\n';
    if (!finding.advice.empty()) {
        text += std::string(18, ' ') + "try: " + printable(finding.advice) + '\n';
    }
    print(text);
}

}  // namespace

Status selfTest(bool withSession, std::chrono::seconds limit) {
    const Bus bus(limit);
    tell("bus", right("this is " + bus.uniqueName()));
    Subject subject{bus, gatherSessions(bus), withSession};
    Status result = kDone;
    for (const Check& check : kChecks) {
        const Finding finding = check.look(subject);
        tell(check.name, finding);
        if (finding.verdict == Verdict::Wrong && result == kDone) {
            result = finding.status;
        }
    }
    return result;
}

}  // namespace zelctl
