# SPDX-License-Identifier: Apache-2.0
"""Measures the daemon from outside: memory, descriptors, process, and what the state file holds."""

import os
import pathlib
import threading
import time

from application import sessions

_CGROUP = pathlib.Path("/sys/fs/cgroup/system.slice/zel-lite.service/cgroup.procs")
_PROGRAM = "/usr/bin/zel-lite"
_PAGE = os.sysconf("SC_PAGE_SIZE")
_PERIOD = 0.01


def daemon_pid():
    """Process id of the daemon, 0 when it does not run."""
    try:
        for pid in _CGROUP.read_text().split():
            if os.readlink(f"/proc/{pid}/exe") == _PROGRAM:
                return int(pid)
    except OSError:
        pass
    return 0


def descriptors_of(pid):
    """What the descriptors of a process are, as the kernel names them; one that closes meanwhile is left out."""
    found, folder = [], pathlib.Path(f"/proc/{pid}/fd")
    for name in os.listdir(folder) if folder.exists() else ():
        try:
            found.append(os.readlink(folder / name))
        except OSError:
            continue
    return found


class Sample:
    """The daemon at one moment: resident memory in bytes, open descriptors, process id."""

    def __init__(self):
        self.pid = daemon_pid()
        self.memory = self.descriptors = 0
        if self.pid:
            try:
                self.memory = int(pathlib.Path(f"/proc/{self.pid}/statm").read_text().split()[1]) * _PAGE
                self.descriptors = len(os.listdir(f"/proc/{self.pid}/fd"))
            except (OSError, IndexError):
                self.pid = 0


class Watcher(threading.Thread):
    """Takes samples until it is stopped. `watched` are the sessions that the state file must hold."""

    def __init__(self):
        super().__init__(daemon=True)
        self.watched = set()
        self.memory = self.descriptors = 0    # the highest
        self.pids = []                        # each process of the daemon, in order
        self.looks = self.missed = 0          # of the state file; how often a watched session was missing
        self._over = False

    def run(self):
        while not self._over:
            self._take(Sample())
            time.sleep(_PERIOD)

    def _take(self, sample):
        if not sample.pid:
            return
        self.memory = max(self.memory, sample.memory)
        self.descriptors = max(self.descriptors, sample.descriptors)
        if not self.pids or self.pids[-1] != sample.pid:
            self.pids.append(sample.pid)
        if self.watched:
            self.looks += 1
            self.missed += not self.watched <= set(sessions())

    def stop(self):
        self._over = True
        self.join()
