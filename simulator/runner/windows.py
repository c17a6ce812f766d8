# SPDX-License-Identifier: Apache-2.0
"""Applications with windows, and somebody who hears what the window manager tells, beside the daemon."""

import os
import pathlib
import select
import signal
import subprocess
import tempfile
import time

from failed import Failed

_PROGRAMS = pathlib.Path("/usr/libexec/zel-simulator")
_WINDOW = str(_PROGRAMS / "zel-window")
_ENVIRONMENT = {"PATH": "/usr/bin:/bin", "WAYLAND_DISPLAY": "/run/wayland-0", "SHELL": "/bin/sh", "LANG": "C.UTF-8"}
_AS_USER = ("setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups")


class Lines:
    """The lines that a process prints."""

    def __init__(self, stream):
        self._stream = stream
        self._text = b""
        os.set_blocking(stream.fileno(), False)

    def new(self):
        """What has come since the last call."""
        self._text += self._stream.read() or b""
        *lines, self._text = self._text.split(b"\n")
        return [line.decode() for line in lines]

    def await_one(self, limit):
        """The next line; the program prints only one until it is told more."""
        end = time.monotonic() + limit
        while time.monotonic() < end:
            select.select([self._stream], [], [], 0.01)
            lines = self.new()
            if lines:
                return lines[0]
        raise Failed("the program says something", f"nothing within {limit} s")


class Application:
    """A process of a user, in a unit of its own, that has a window sooner or later."""

    def __init__(self, unit, command, nested=None):
        self.unit = unit
        self._obeys = command[0] == _WINDOW
        self._is_scope = unit.endswith(".scope")
        wrapped = [*_AS_USER, *command]
        if nested:
            wrapped = ["sh", "-c", 'group=/sys/fs/cgroup$(sed -n s/^0:://p /proc/self/cgroup)/$1 && mkdir "$group" && '
                       'echo $$ >"$group/cgroup.procs" && shift && exec "$@"', "sh", nested, *wrapped]
        kind = ["--scope"] if self._is_scope else ["--pipe", "--wait", "--collect"]
        settings = [] if self._is_scope else [f"--setenv={name}={value}" for name, value in _ENVIRONMENT.items()]
        self._complaints = tempfile.TemporaryFile()
        self._process = subprocess.Popen(
            ["systemd-run", "--quiet", f"--unit={unit}", *kind, *settings, "--", *wrapped],
            bufsize=0, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self._complaints, env=_ENVIRONMENT)
        self._lines = Lines(self._process.stdout)

    @property
    def pid(self):
        """systemd-run becomes the program of a scope; that of a service is a child of systemd."""
        if self._is_scope:
            return self._process.pid
        return int(subprocess.check_output(["systemctl", "show", "--value", "--property=MainPID", self.unit]))

    def complaints(self):
        """What it has printed on stderr."""
        self._complaints.seek(0)
        return self._complaints.read().decode(errors="backslashreplace")

    def tell(self, line, limit):
        """Has zel-window do something."""
        self._process.stdin.write(line.encode() + b"\n")
        said = self._lines.await_one(limit)
        if said != "done":
            raise Failed("the application does so", said)

    def close(self, limit):
        """Ends it: zel-window with its input, any other program on request."""
        self._process.stdin.close()
        if not self._obeys:
            self._send("TERM")
        try:
            self._process.wait(limit)
        except subprocess.TimeoutExpired:
            raise Failed("the application ends", f"it still ran after {limit} s") from None

    def _send(self, name):
        """Sends a signal to the program, not to what waits for it."""
        if self._is_scope:
            self._process.send_signal(signal.Signals[f"SIG{name}"])
        else:
            subprocess.run(["systemctl", "kill", f"--signal={name}", self.unit], check=True)

    def kill(self):
        if self._process.poll() is None:
            self._send("KILL")
        self._process.wait()
        for stream in (self._process.stdin, self._process.stdout, self._complaints):
            stream.close()


class Window:
    """A window of a scenario; what it was called stays known when it is gone."""

    def __init__(self, application):
        self._application = application
        self.pid = 0
        self.id = 0
        self.is_open = True

    def found_by(self, watcher):
        """Tells whether the window manager has it on the screen; from then on its numbers are known."""
        self.pid = self._application.pid
        self.id = watcher.window_of(self.pid) or 0
        return self.id != 0

    @property
    def session(self):
        """Its session as the state file has it: id, no program, no process id."""
        return f"##_WM_USE_HINTS_WIN__winID_{self.id}", "", ""

    def named_in(self, text):
        """A text with the window's numbers in the places of WINDOW and PID."""
        return text.replace("WINDOW", str(self.id)).replace("PID", str(self.pid))

    def tell(self, line, limit):
        self._application.tell(line, limit)

    def close(self, limit):
        self.is_open = False
        self._application.close(limit)
        self._application.kill()

    def kill(self):
        if self.is_open:
            self.is_open = False
            self._application.kill()


class Watcher:
    """What the window manager tells; binds anew when there is another window manager."""

    def __init__(self):
        self._process = None
        self._lines = None
        self.visibility = {}   # by window id; no entry when it is gone or was never on the screen
        self.pids = {}         # by window id
        self._answers = []     # to the question for the window on top

    def look(self):
        """Takes in what was told since the last call; gives itself."""
        if self._process is None or self._process.poll() is not None:
            self._bind()
        for line in self._lines.new():
            what, *numbers = line.split()
            if what == "visibility":
                window, pid, state = map(int, numbers)
                self.visibility[window] = state
                self.pids[window] = pid
            elif what == "gone":
                self.visibility.pop(int(numbers[0]), None)
            elif what == "top":
                self._answers.append(int(numbers[0]))
        return self

    def top(self, limit):
        """The window on top, -1 when there is none."""
        self.look()._answers.clear()
        self._process.stdin.write(b"\n")
        end = time.monotonic() + limit
        while not self.look()._answers:
            if time.monotonic() >= end:
                raise Failed("the window manager answers", f"nothing within {limit} s")
            time.sleep(0.005)
        return self._answers[0]

    def window_of(self, pid):
        """The window of a process, None as long as it has none."""
        return next((window for window, owner in self.look().pids.items()
                     if owner == pid and window in self.visibility), None)

    def _bind(self):
        self.kill()
        self.visibility, self.pids, self._answers = {}, {}, []
        self._process = subprocess.Popen([_PROGRAMS / "zel-window-watcher"], bufsize=0, stdin=subprocess.PIPE,
                                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=_ENVIRONMENT)
        self._lines = Lines(self._process.stdout)

    def kill(self):
        if self._process is not None:
            self._process.kill()
            self._process.wait()
            for stream in (self._process.stdin, self._process.stdout):
                stream.close()
            self._process = None


def window_program(width, height, kind, place=None):
    """The command of an application whose window looks so."""
    return [_WINDOW, str(width), str(height), kind, *map(str, place or ())]
