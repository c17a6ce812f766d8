# SPDX-License-Identifier: Apache-2.0
"""The sentences about zelctl, run in the box as whoever works with a set runs it."""

import json
import os
import pathlib
import re
import shlex
import signal
import subprocess
import sys

from failed import Failed
from steps import step
from world import Program, World

_PLACES = re.compile(r"\bNAME\((\w+)\)")


class _Outcome:
    """What the last zelctl that was waited for has printed, and how it ended."""
    stdout = ""
    stderr = ""
    status = None


# What a shell with job control does for what it starts: a process group of its own, in which it can be stopped.
_AS_A_JOB = """import os, sys
os.setpgid(0, 0)
os.execv(sys.argv[1], sys.argv[1:])
"""


def _as_a_job(*command):
    return [sys.executable, "-c", _AS_A_JOB, *command]


class _Tool(Program):
    """A zelctl that runs beside everything else."""

    def __init__(self, command):
        super().__init__(_as_a_job(*command))

    def states(self):
        """How the kernel has the process and its children: R, S, T for stopped."""
        pids = [self._process.pid, *World.children(self._process.pid)]
        return [pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(") ")[2][0] for pid in pids]

    def signal(self, number):
        self._process.send_signal(number)

    def status(self):
        """Its exit status, None while it runs."""
        return self._process.poll()


class _Terminal(Program):
    """A terminal and the leader of its session, a shell with job control unless another command is given; what stands on
    the screen is what it prints on stdout. Killed, it is a terminal that was closed."""

    def __init__(self, command="bash --norc --noprofile -i"):
        super().__init__(_as_a_job("/usr/bin/script", "--quiet", "--command", f"exec {command}", "/dev/null"),
                         stdin=subprocess.PIPE)

    def type(self, keys):
        self._process.stdin.write(keys)
        self._process.stdin.flush()


def _open_terminal(world, name, *command):
    if name in world.programs:
        raise Failed(f"no program {name} yet", "there is one")
    world.programs[name] = _Terminal(*command)


def _words(world, arguments):
    """The words of a command line; NAME(A) stands for the connection of client A."""
    return shlex.split(_PLACES.sub(lambda place: world.client(place[1]).name, arguments))


def _run(world, arguments, user=None):
    environment = {**os.environ, "TZ": "UTC"}
    words = _words(world, arguments)
    while words and re.fullmatch(r"[A-Z_]+=.*", words[0]):
        name, _, value = words.pop(0).partition("=")
        environment[name] = value
    try:
        done = subprocess.run(["/usr/bin/zelctl", *words], capture_output=True, timeout=world.limit, check=False,
                              user=user, stdin=subprocess.DEVNULL, env=environment)
    except subprocess.TimeoutExpired:
        raise Failed(f"zelctl {arguments} ends", f"it still ran after {world.limit} s") from None
    _Outcome.stdout = done.stdout.decode(errors="backslashreplace")
    _Outcome.stderr = done.stderr.decode(errors="backslashreplace")
    _Outcome.status = done.returncode


def _seen():
    return {"status": _Outcome.status, "stdout": _Outcome.stdout, "stderr": _Outcome.stderr}


def _expect_status(status):
    if _Outcome.status != status:
        raise Failed(f"status {status}", _seen())


def _glob(text):
    return re.compile(".*".join(re.escape(part) for part in text.split("*")))


def _has(world, printed, text):
    wanted = _glob(_PLACES.sub(lambda place: world.client(place[1]).name, text))
    return any(wanted.search(line) for line in printed.split("\n"))


@step("zelctl {arguments:text} exits with {status:number}")
def zelctl_exits(world, arguments, status):
    """Runs zelctl to its end; NAME(A) in the arguments is the connection of client A, A=B before them a variable."""
    _run(world, arguments)
    _expect_status(status)


@step("as {user} zelctl {arguments:text} exits with {status:number}")
def zelctl_exits_as(world, user, arguments, status):
    """The same, as another user than root."""
    _run(world, arguments, user)
    _expect_status(status)


@step("zelctl {arguments:text} comes to print {text:text}")
def zelctl_comes_to_print(world, arguments, text):
    """Runs zelctl again and again until a line that it prints has the text; * stands for anything."""
    def look():
        _run(world, arguments)
        return _Outcome.stdout
    world.wait(f"a line with '{text}'", look, lambda seen: _has(world, seen, text))


@step("it has printed {text:text}")
def it_has_printed(world, text):
    """A line of what the last zelctl has printed has the text; * stands for anything."""
    if not _has(world, _Outcome.stdout, text):
        raise Failed(f"a line with '{text}'", _seen())


@step("it has not printed {text:text}")
def it_has_not_printed(world, text):
    """No such line."""
    if _has(world, _Outcome.stdout, text):
        raise Failed(f"no line with '{text}'", _seen())


@step("it has complained {text:text}")
def it_has_complained(world, text):
    """The same about standard error."""
    if not _has(world, _Outcome.stderr, text):
        raise Failed(f"a complaint with '{text}'", _seen())


@step("it has complained of nothing")
def it_has_complained_of_nothing(_world):
    """Standard error was empty."""
    if _Outcome.stderr:
        raise Failed("no complaint", _seen())


@step("its JSON has {path} {value:text}")
def its_json_has(world, path, value):
    """What it has printed is JSON, with that value, as text, at a path such as sessions.0.id."""
    found = json.loads(_Outcome.stdout)
    for part in path.split("."):
        found = found[int(part)] if isinstance(found, list) and part.lstrip("-").isdigit() else found[part]
    found = found if isinstance(found, str) else json.dumps(found)
    wanted = _PLACES.sub(lambda place: world.client(place[1]).name, value)
    if not _glob(wanted).fullmatch(found):
        raise Failed(f"{path} is {wanted}", found)


@step("it has printed the report of client {client} byte for byte")
def it_has_printed_the_report(world, client):
    """The daemon gives the same client the same bytes, while nobody opens or closes traces."""
    world.client(client).send(method=2)
    wanted = bytes.fromhex(world.client(client).receive(world.limit)["reply"])[8:].decode()
    if _Outcome.stdout != wanted:
        raise Failed(wanted, _Outcome.stdout)


@step("zelctl {name} begins with {arguments:text}")
def zelctl_begins(world, name, arguments):
    """Starts a zelctl beside everything else; it is a program of that name for other sentences."""
    if name in world.programs:
        raise Failed(f"no program {name} yet", "there is one")
    world.programs[name] = _Tool(["/usr/bin/zelctl", *_words(world, arguments)])


@step("zelctl {name} is sent {number}")
def zelctl_is_sent(world, name, number):
    """Sends it a signal, e.g. SIGTERM."""
    world.program(name).signal(signal.Signals[number])


@step("zelctl {name} and its command are stopped")
def zelctl_is_stopped(world, name):
    """Waits until the kernel has stopped both."""
    world.wait("both are stopped", world.program(name).states, lambda seen: seen == ["T", "T"])


@step("zelctl {name} and its command go on")
def zelctl_goes_on(world, name):
    """Waits until neither is stopped."""
    world.wait("neither is stopped", world.program(name).states, lambda seen: len(seen) == 2 and "T" not in seen)


@step("zelctl {name} ends with {status:number}")
def zelctl_ends_with(world, name, status):
    """Waits until it has ended by itself; its exit status must be that, or minus the signal that killed it."""
    tool = world.program(name)
    world.wait(f"it ends with {status}", tool.status, lambda seen: seen is not None)
    if tool.status() != status:
        raise Failed(f"status {status}", f"{tool.status()}, {tool.printed('stdout')}, {tool.printed('stderr')}")
    world.programs.pop(name).kill()


@step("terminal {name} opens")
def terminal_opens(world, name):
    """An interactive bash at a terminal of its own; it is a program of that name for other sentences."""
    _open_terminal(world, name)


@step("terminal {name} opens with {command:text}")
def terminal_opens_with(world, name, command):
    """The same with a command in place of the shell, as ssh -t starts one: nothing is between it and the terminal."""
    _open_terminal(world, name, command)


@step("terminal {name} is typed {keys:text}")
def terminal_is_typed(world, name, keys):
    """Types at it; ^C, ^Z and the like are those keys, and ^M is Return."""
    world.program(name).type(re.sub(r"\^([A-Z])", lambda key: chr(ord(key[1]) - ord("@")), keys).encode())


@step("the daemon falls silent")
def daemon_falls_silent(world):
    """It is stopped: it has its name and answers nobody."""
    world.systemctl("kill", "--signal=SIGSTOP", "zel-lite.service")


@step("the daemon speaks again")
def daemon_speaks_again(world):
    """It goes on."""
    world.systemctl("kill", "--signal=SIGCONT", "zel-lite.service")


@step("zelctl's page {path} stands alone")
def page_stands_alone(_world, path):
    """The file is a page that fetches nothing and runs nothing."""
    page = pathlib.Path(path).read_text()
    if not page.startswith("<!DOCTYPE html>") or re.search(r"<script|<link|<img|src=|https?:|url\(", page):
        raise Failed("a page without script and reference", page)
