# SPDX-License-Identifier: Apache-2.0
"""Runs one attack beside honest applications, measures, and judges."""

import math
import os
import threading
import time

from application import sessions
from television import MEASURING, Late, Process, Television
from watcher import Sample, Watcher, descriptors_of

_MIB = 1024 * 1024
_CALM = 60          # seconds after which everything must be as before
_SHORTEST_CALM = 3  # seconds for which the honest ones go on after the attack
# A call of the daemon passes the bus twice as often as one of the bus itself. Where that is slow, because the machine or the
# bus is, a call of the daemon may take this many times as long as the bus's own answers, if that is more than the bound.
_TIMES_OF_THE_BUS = 3
# Descriptors. A library opens its connection, with four of them, when it is first needed: that may be in the attack.
_SLACK = 5


class Trial:
    """One attack on one television."""

    def __init__(self, name, attack):
        self._name, self._attack = name, attack
        self._television = Television()
        self._failed = self._slow = 0
        self._processes = []

    def run(self):
        """0 when everything held, 3 when only times did not, 1 otherwise."""
        attack, television = self._attack, self._television
        attack.prepare(television)
        since = television.cursor()
        self._start_honest()
        self._watch_quiet()
        self._attack_now()
        self._calm_down()
        self._judge(since)
        return 1 if self._failed else 3 if self._slow else 0

    def _process(self, *arguments, **keywords):
        process = Process(*arguments, **keywords)
        self._processes.append(process)
        return process

    def _start_honest(self):
        attack, television = self._attack, self._television
        self._kept = set()
        self._observer = self._leaver = None
        if attack.observed:
            self._observer = self._process("honest", "observer", user="watcher", measuring=True)
            self._kept.add(self._observer.line()["name"])
        self._regular = self._process("honest", "regular", user=attack.regular_user, measuring=True)
        self._may_be = {self._regular.line()["name"]}
        self._looker = self._process("honest", "looker", user=None, measuring=True)
        self._looker.line()
        if attack.leaver:
            self._leaver = self._process("honest", "departing", user="leaver")
            self._leaver.line()
        television.honest = [self._regular, self._looker]

    def _watch_quiet(self):
        """What the daemon has before the attack."""
        os.setpriority(os.PRIO_PROCESS, 0, MEASURING)
        time.sleep(1)
        self._before = Sample()
        self._watcher = Watcher()
        self._watcher.watched = self._kept
        self._watcher.start()

    def _attack_now(self):
        attack = self._attack
        self._attackers = [self._process("attacker", self._name, str(number), user="nobody")
                           for number in range(attack.attackers)]
        self._began = time.monotonic()
        self._trouble = None
        if self._leaver:
            threading.Timer(attack.seconds / 2, self._leaver.kill).start()
        try:
            attack.meanwhile(self._television)
        except Late as failure:
            self._trouble = str(failure)
        if any(process.has_failed() for process in self._attackers):
            self._trouble = f"an attacker ended with an error; {self._trouble or ''}"
        for process in (*self._attackers, *filter(None, [self._leaver])):
            process.kill()
        self._ended = time.monotonic()

    def _as_before(self):
        """Whether each thing differs from what it was before the attack."""
        now = Sample()
        if not now.pid:
            return dict.fromkeys(("memory", "descriptors", "sessions"), True)
        return {
            "memory": now.memory - self._before.memory > self._attack.stays * _MIB,
            "descriptors": now.descriptors - self._before.descriptors > _SLACK,
            "sessions": not set(sessions()) <= self._kept | self._may_be,
        }

    def _calm_down(self):
        """Waits until everything is as before, and notes when each thing was."""
        self._back = dict.fromkeys(self._as_before())
        while True:
            passed = time.monotonic() - self._ended
            for what, differs in self._as_before().items():
                if differs:
                    self._back[what] = None
                elif self._back[what] is None:
                    self._back[what] = passed
            done = all(seconds is not None for seconds in self._back.values())
            if (done and passed > _SHORTEST_CALM) or passed > _CALM:
                break
            time.sleep(0.05)
        self._at_the_end = Sample()
        self._left_over = set(sessions()) - self._kept - self._may_be

    def _check(self, what, holds, figure, bound="", is_time=False):
        self._failed += not holds and not is_time
        self._slow += not holds and is_time
        limit = f" (at most {bound})" if bound else ""
        print(f"{'ok    ' if holds else 'FAILED'} {what:38} {figure}{limit}", flush=True)

    def _judge(self, since):
        attack, television = self._attack, self._television
        self._watcher.stop()
        self._looker.order("look")
        looks = self._looker.finish()["looks"]
        said = self._regular.finish()
        closed = self._observer.finish()["closed"] if self._observer else None
        for process in self._processes:
            process.kill()
        lines = television.lines(since)
        if self._trouble:
            self._check("the attack itself", False, self._trouble)
        self._judge_sessions(said, closed)
        self._judge_honest(said["calls"])
        self._judge_report(looks, said["calls"])
        self._judge_resources()
        self._judge_lines(lines)
        for what, holds, figure in attack.afterwards(television) or ():
            self._check(what, holds, figure)

    def _judge_sessions(self, said, closed):
        attack = self._attack
        if closed:
            self._check("the observer's session", closed[2] == 0, f"its close returned {closed[2]}")
            missed, looks = self._watcher.missed, self._watcher.looks
            self._check("the observer in the state file", missed <= attack.missing,
                        f"missing {missed} of {looks} times", attack.missing)
        self._check("openings that were not saved", said["unsaved"] <= attack.unsaved, said["unsaved"], attack.unsaved)
        back = self._back["sessions"]
        self._check("sessions of those who were killed", back is not None and back <= attack.left_over,
                    f"closed after {back:.1f} s" if back is not None else f"{len(self._left_over)} still open",
                    f"{attack.left_over} s")

    def _judge_honest(self, calls):
        attack = self._attack
        ours = [call for call in calls if call[0] != "bus"]
        wrong = [str(call[3]) for call in ours if call[3] != 0]
        self._check("honest calls without success", len(wrong) <= attack.failures,
                    f"{len(wrong)} of {len(ours)} {', '.join(sorted(set(wrong)))}", attack.failures)
        of_bus, _, figure_of_bus = self._times(call for call in calls if call[0] == "bus")
        p99, _, figure = self._times(ours)
        bound = max(attack.p99, _TIMES_OF_THE_BUS * of_bus)
        self._check("honest calls, p99", p99 <= bound, figure, f"{bound:.0f} ms", is_time=True)
        print(f"       the bus's own answers, for comparison: {figure_of_bus}")

    def _times(self, calls):
        """The 99th percentile of the calls under the attack and shortly after it and the longest, in ms, and as text."""
        until = self._ended + _SHORTEST_CALM
        times = sorted(seconds * 1000 for _, began, seconds, _ in calls
                       if began + seconds >= self._began and began <= until)
        p99 = times[math.ceil(0.99 * len(times)) - 1]
        return p99, times[-1], f"{p99:.1f} ms, median {times[len(times) // 2]:.1f}, longest {times[-1]:.1f}, of {len(times)}"

    def _judge_report(self, looks, calls):
        attack = self._attack
        slowest = max(look["seconds"] for look in looks) * 1000
        _, longest_of_bus, _ = self._times(call for call in calls if call[0] == "bus")
        bound = max(attack.report, _TIMES_OF_THE_BUS * longest_of_bus)
        self._check("the report, slowest", slowest <= bound,
                    f"{slowest:.0f} ms, of {len(looks)}, largest {max(look['bytes'] for look in looks)} bytes",
                    f"{bound:.0f} ms", is_time=True)
        invalid = [look["outcome"] for look in looks if not look["valid"]]
        self._check("reports refused or not valid", not invalid, f"{len(invalid)} {', '.join(sorted(set(invalid)))}")
        if attack.observed and attack.traces_stay:
            self._check("the observer's traces in the report", looks[-1]["observed"] == 3, looks[-1]["observed"])

    def _judge_resources(self):
        attack, before, watcher = self._attack, self._before, self._watcher
        growth = (watcher.memory - before.memory) / _MIB
        self._check("growth of memory", growth <= attack.growth, f"{growth:.1f} MiB over {before.memory / _MIB:.1f}",
                    f"{attack.growth} MiB")
        memory = (self._at_the_end.memory - before.memory) / _MIB
        self._judge_back("memory", f"{memory:.1f} MiB more", f"{watcher.memory / _MIB:.1f} MiB")
        descriptors = self._at_the_end.descriptors - before.descriptors
        self._judge_back("descriptors", f"{descriptors} more", str(watcher.descriptors))
        if self._back["descriptors"] is None:
            print("       they are: " + ", ".join(descriptors_of(self._at_the_end.pid)))
        ends = len(watcher.pids) - 1
        self._check("processes of the daemon that ended", ends == self._television.restarts, ends,
                    self._television.restarts)

    def _judge_back(self, what, left, peak):
        seconds = self._back[what]
        when = "not" if seconds is None else f"after {seconds:.1f} s"
        self._check(f"{what} back", seconds is not None, f"{when}, {left}, highest {peak}", f"{_CALM} s")

    def _judge_lines(self, lines):
        lost = sum("the bus is lost" in line for line in lines)
        self._check("losses of the bus", lost == 0, f"{lost}")
        failed = sum("FAILED to start ZEL" in line or "Starting ZEL Failed" in line for line in lines)
        self._check("starts that failed", failed <= self._attack.failures, f"{failed}; {len(lines)} lines in all",
                    self._attack.failures)
