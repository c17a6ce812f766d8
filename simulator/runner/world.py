# SPDX-License-Identifier: Apache-2.0
"""What a scenario acts on and looks at: the box from inside, without a line of the daemon's code."""

import json
import os
import pathlib
import select
import struct
import subprocess
import sys
import time

import dbus
import dbus.bus

from failed import Failed
from journal import Journal
from windows import Watcher

SERVICE_FOLDER = pathlib.Path("/run/zel-platform/service")
_SYSTEMD = ("org.freedesktop.systemd1", "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager")
_POLL = 0.005          # seconds between two looks
_START_LIMIT = 30      # seconds for the start of a client


class Client:
    """An application process of the scenario."""

    def __init__(self, user=None):
        self._process = subprocess.Popen(
            [sys.executable, str(pathlib.Path(__file__).with_name("client.py"))],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, user=user)
        self.name = self.receive(_START_LIMIT)["name"]
        self.pid = self._process.pid
        self.path = os.readlink(f"/proc/{self.pid}/exe")
        self.program = os.path.basename(self.path)

    @property
    def session(self):
        """Its session as the state file has it: id, program, process id."""
        return self.name, self.program, str(self.pid)

    def send(self, interface="com.brenlow.ISessionControl", method=0, signature="siay", request=""):
        """Begins a call; its outcome is for receive()."""
        call = {"interface": interface, "method": method, "signature": signature, "request": request}
        self._process.stdin.write(json.dumps(call) + "\n")
        self._process.stdin.flush()

    def receive(self, limit):
        """The outcome of the oldest call that was sent and not received."""
        if not select.select([self._process.stdout], [], [], limit)[0]:
            raise Failed("the client hears something", f"nothing within {limit} s")
        line = self._process.stdout.readline()
        if not line:
            raise Failed("the client hears something", "its process ended")
        return json.loads(line)

    def leave(self, limit):
        """Ends the application the way a program ends by itself."""
        self._process.stdin.close()
        try:
            self._process.wait(limit)
        except subprocess.TimeoutExpired:
            raise Failed("the client's process ends", f"it still ran after {limit} s") from None
        finally:
            self.kill()

    def kill(self):
        """Ends the application without a chance to say good-bye."""
        self._process.kill()
        self._process.wait()
        self._process.stdout.close()


class Program:
    """Any program that a scenario starts itself; what it prints is collected."""

    def __init__(self, command, stdin=subprocess.DEVNULL):
        self._process = subprocess.Popen(
            command, stdin=stdin, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self._printed = {"stdout": b"", "stderr": b""}
        for stream in (self._process.stdout, self._process.stderr):
            os.set_blocking(stream.fileno(), False)

    def printed(self, stream):
        """All it has printed so far on "stdout" or "stderr"."""
        self._printed[stream] += getattr(self._process, stream).read() or b""
        return self._printed[stream].decode(errors="backslashreplace")

    def runs(self):
        return self._process.poll() is None

    def kill(self):
        self._process.kill()
        self._process.wait()
        for stream in (self._process.stdin, self._process.stdout, self._process.stderr):
            if stream:
                stream.close()


class World:
    """The box, and what the scenario has in it. `limit` is how long anything may take, in seconds."""

    def __init__(self, limit):
        self.limit = limit
        self.journal = Journal()
        self.mark = 0      # the first journal entry that counts
        self.matched = 0   # the one after the last that a step has matched
        self.clients = {}
        self.gone = {}     # the clients that were killed
        self.programs = {}
        self.windows = {}  # also those that are gone
        self.watcher = Watcher()
        self.remembered = {}
        self.processes = {}   # of units, to be compared later
        self.report = None
        self.standby = (0, 0)  # when it was last announced, and when nothing delayed it any more
        self._bus = dbus.bus.BusConnection(dbus.bus.BusConnection.TYPE_SYSTEM)

    def wait(self, expected, look, holds):
        """Looks until what is seen holds, at most for the limit; gives what was seen."""
        end = time.monotonic() + self.limit
        while True:
            late = time.monotonic() >= end
            seen = look()
            if holds(seen):
                return seen
            if late:
                raise Failed(expected, seen)
            time.sleep(_POLL)

    @staticmethod
    def let_pass(seconds):
        """Lets time pass, for what is measured over time."""
        time.sleep(seconds)

    # The journal

    def mark_now(self):
        """Only what comes from now on counts."""
        self.journal.read_all()
        self.mark = self.matched = len(self.journal.entries)

    def mark_boot(self):
        """All that came since the box began to boot counts."""
        self.mark = self.matched = 0

    def lines(self, identifier):
        """The lines of that identifier that count, as (position, entry)."""
        self.journal.read()
        return [(position, entry) for position, entry in enumerate(self.journal.entries)
                if position >= self.mark and entry.identifier == identifier]

    # systemd and the bus

    def call(self, *arguments):
        """Calls a method: name, object, interface, method, signature, its arguments."""
        return self._bus.call_blocking(*arguments)

    def unit(self, name):
        """ActiveState, SubState and main process id of a unit, as systemd has them."""
        path = self._bus.call_blocking(*_SYSTEMD, "LoadUnit", "s", (name,))
        get = lambda interface, key: self._bus.call_blocking(  # noqa: E731
            _SYSTEMD[0], path, dbus.PROPERTIES_IFACE, "Get", "ss", (f"org.freedesktop.systemd1.{interface}", key))
        pid = int(get("Service", "MainPID")) if name.endswith(".service") else 0
        return str(get("Unit", "ActiveState")), str(get("Unit", "SubState")), pid

    def active_services(self):
        units = self._bus.call_blocking(*_SYSTEMD, "ListUnits", "", ())
        return sorted(str(unit[0]) for unit in units
                      if str(unit[0]).endswith(".service") and str(unit[3]) not in ("inactive", "failed"))

    def systemctl(self, *arguments):
        """Runs systemctl; a job is waited for."""
        done = subprocess.run(["systemctl", "--quiet", *arguments], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Failed("systemctl succeeds", f"status {done.returncode}, {done.stderr.strip()}")

    @staticmethod
    def children(pid):
        """Process ids of the children of a process, those that have ended and wait to be collected included."""
        tasks = pathlib.Path(f"/proc/{pid}/task").glob("*/children")
        return [int(child) for task in tasks for child in task.read_text().split()]

    def owner_pid(self, name):
        """Process id of the owner of a bus name, 0 when it has none."""
        try:
            return int(self._bus.call_blocking(
                "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                "GetConnectionUnixProcessID", "s", (name,)))
        except dbus.DBusException:
            return 0

    # The applications

    def client(self, name):
        if name not in self.clients:
            raise Failed(f"client {name} exists", f"clients: {', '.join(self.clients) or 'none'}")
        return self.clients[name]

    def client_or_gone(self, name):
        """The client, also after it was killed, for what is still said of it."""
        return self.client(name) if name not in self.gone else self.gone[name]

    def window(self, name):
        if name not in self.windows:
            raise Failed(f"window {name} exists", f"windows: {', '.join(self.windows) or 'none'}")
        return self.windows[name]

    def open_window(self, name):
        if not self.window(name).is_open:
            raise Failed(f"window {name} is open", "it is gone")
        return self.windows[name]

    def session(self, name):
        """The session of a client or of a window."""
        return (self.windows[name] if name in self.windows else self.client(name)).session

    def program(self, name):
        if name not in self.programs:
            raise Failed(f"program {name} exists", f"programs: {', '.join(self.programs) or 'none'}")
        return self.programs[name]

    def end_all(self):
        """Ends what the scenario has started and not ended, and takes back what it told the service."""
        for running in (*self.clients.values(), *self.programs.values(), *self.windows.values(), self.watcher):
            running.kill()
        self.clients.clear()
        self.windows.clear()
        self.gone.clear()
        self.programs.clear()
        self.tell_service_nothing()

    # The service

    @staticmethod
    def tell_service(name, value):
        for folder, mode in ((SERVICE_FOLDER.parent, 0o755), (SERVICE_FOLDER, 0o700)):
            folder.mkdir(mode=mode, exist_ok=True)
        (SERVICE_FOLDER / name).write_text(value + "\n")

    @staticmethod
    def tell_service_nothing():
        for file in SERVICE_FOLDER.glob("*"):
            file.unlink()


def session_table(sessions):
    """The bytes of a state file that holds those sessions."""
    table = struct.pack("=i", len(sessions))
    for session in sorted(sessions, key=lambda session: session[0].encode()):
        for text in session:
            table += struct.pack("=i", len(text.encode())) + text.encode()
    return table
