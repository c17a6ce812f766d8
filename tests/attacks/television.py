# SPDX-License-Identifier: Apache-2.0
"""The television that is attacked, as root has it: units, switches, the stand-in of the service, the journal."""

import json
import math
import os
import pathlib
import signal
import subprocess
import sys
import time

import wire
from application import DAEMON
from watcher import daemon_pid

USERS = {"honest": 1001, "watcher": 1002, "leaver": 1003, "nobody": 65534}
RUNNING_MARKER = pathlib.Path("/tmp/zel_lite_zel_daemon_is_running")
_SERVICE = pathlib.Path("/run/zel-platform/service")
_KEYS = pathlib.Path("/run/zel-platform/key-combination")
MEASURING = -10    # the niceness of what measures: it must not wait for the processor longer than the daemon does


class Late(Exception):
    """What had to come did not come in time."""


def wait(what, holds, limit=20):
    """Waits until it holds, and returns how many seconds that took."""
    began = time.monotonic()
    while not holds():
        if time.monotonic() - began > limit:
            raise Late(f"{what}: not within {limit} s")
        time.sleep(0.005)
    return time.monotonic() - began


class Process:
    """A process of an attack: one of the honest ones, or an attacker."""

    def __init__(self, *arguments, user, measuring=False):
        uid = USERS[user] if user else None
        self._process = subprocess.Popen(
            [sys.executable, "-B", os.path.dirname(os.path.abspath(__file__)), *arguments],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, user=uid, group=uid,
            extra_groups=[] if uid else None, start_new_session=True, cwd="/")
        self.pid = self._process.pid
        if measuring:
            os.setpriority(os.PRIO_PROCESS, self.pid, MEASURING)

    def line(self):
        """The next line that it prints, from JSON."""
        line = self._process.stdout.readline()
        if not line:
            raise Late(f"process {self.pid} has ended")
        return json.loads(line)

    def order(self, text):
        """Gives an order and waits until it is taken."""
        self._process.stdin.write(text + "\n")
        self._process.stdin.flush()
        return self.line()

    def finish(self):
        """Ends its standard input, and returns what it prints then."""
        self._process.stdin.close()
        said = self.line()
        self._process.wait()
        return said

    def has_failed(self):
        """Whether it has ended by itself with an error."""
        return bool(self._process.poll())

    def kill(self):
        """Ends it, and what it has started, without a chance to say good-bye."""
        try:
            os.killpg(self.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self._process.wait()


class Television:
    """The set and what root does to it."""

    def __init__(self):
        with open("/etc/passwd", "a", encoding="ascii") as users:
            for name, uid in USERS.items():
                if name != "nobody":
                    users.write(f"{name}:x:{uid}:{uid}::/:/bin/sh\n")
        self._bus = wire.Connection()
        self.honest = []         # those who call all the time, once they run
        self.restarts = 0

    # The daemon

    def serves(self):
        """Whether the daemon has its name."""
        try:
            return bool(self._bus.bus("GetNameOwner", "s", DAEMON))
        except wire.Refused:
            return False

    def pause(self):
        """Has the honest ones make no calls until `go_on`, e.g. while there is no daemon to call."""
        for each in self.honest:
            each.order("pause")

    def go_on(self):
        for each in self.honest:
            each.order("go on")

    def kill_daemon(self):
        """Kills the daemon and waits until systemd has started it again."""
        old = daemon_pid()
        os.kill(old, signal.SIGKILL)
        self.restarts += 1
        wait("the daemon is started again", lambda: daemon_pid() not in (0, old) and self.serves())

    def stop_daemon(self):
        """Ends the daemon; only `start_daemon` starts it again."""
        systemctl("stop", "zel-lite.service")

    def start_daemon(self):
        """Starts the daemon and waits until it has its name."""
        systemctl("start", "zel-lite.service")
        self.restarts += 1
        wait("the daemon has its name", self.serves)

    def restart_daemon(self):
        """Has the daemon read its switches."""
        self.stop_daemon()
        self.start_daemon()
        self.restarts -= 1

    # The service

    @staticmethod
    def tell_service(name, value):
        """Writes what the stand-in reads at each call."""
        _SERVICE.mkdir(mode=0o700, exist_ok=True)
        (_SERVICE / name).write_text(value + "\n")

    @staticmethod
    def service_runs():
        """Whether the service's unit is active."""
        return systemctl("is-active", "zel_deamon.service", check=False) == "active"

    def service_can_be_terminated(self):
        """Makes it a set on which the key combination terminates the service whatever sessions there are."""
        pathlib.Path("/etc/debug").touch()
        switch("zel_lite_disable_opened_sessions_check")
        self.restart_daemon()

    def terminate_service(self):
        """Hits the key combination until the service has ended: every five seconds, as a user does. An
        attempt may fail, because nothing protects the service's own connection from strangers."""
        hit = -math.inf

        def has_ended():
            nonlocal hit
            if time.monotonic() - hit >= 5:
                hit = time.monotonic()
                with open(_KEYS, "w", encoding="ascii") as keys:
                    keys.write("114\n")
            return not self.service_runs()

        wait("the service has ended", has_ended)

    # The journal

    @staticmethod
    def lines(since):
        """The daemon's lines since then, a cursor."""
        done = subprocess.run(
            ["journalctl", "--quiet", "--no-pager", "--all", "--output=cat", f"--after-cursor={since}",
             "--unit=zel-lite.service"], capture_output=True, check=True)
        return done.stdout.decode(errors="replace").splitlines()

    @staticmethod
    def cursor():
        """The journal's end."""
        subprocess.run(["journalctl", "--sync"], check=True)
        done = subprocess.run(["journalctl", "--quiet", "--lines=1", "--output=json", "--output-fields=X"],
                              capture_output=True, check=True, text=True)
        return json.loads(done.stdout)["__CURSOR"]


def switch(name):
    """Puts a switch of the set in."""
    pathlib.Path("/etc/zel-lite").mkdir(exist_ok=True)
    (pathlib.Path("/etc/zel-lite") / name).touch()


def systemctl(*arguments, check=True):
    """Runs systemctl and returns what it prints."""
    return subprocess.run(["systemctl", *arguments], capture_output=True, text=True, check=check).stdout.strip()
