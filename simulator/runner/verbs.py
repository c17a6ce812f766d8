# SPDX-License-Identifier: Apache-2.0
"""The sentences that scenarios are made of. One function each; the first line of its text explains it in the help."""

import json
import os
import pathlib
import re
import shlex
import signal
import struct
import subprocess
import time

from failed import Failed
from steps import step
from world import Client, Program, session_table

_STATE_FILE = pathlib.Path("/tmp/zel_lite_sessions_state.txt")
_SWITCHES = pathlib.Path("/etc/zel-lite")
_PRIORITIES = {"error": "3", "info": "6", "debug": "7"}


# What counts

@step("since boot")
def since_boot(world):
    """Everything in the journal counts."""
    world.mark_boot()


@step("from now on")
def from_now_on(world):
    """Only what comes from here on counts for the log and for what the service received."""
    world.mark_now()


@step("within {seconds:number} seconds: {then:step}")
def within(world, seconds, then):
    """Waits longer than anything else may take."""
    usual, world.limit = world.limit, seconds
    try:
        return then(world)
    finally:
        world.limit = usual


# The set

@step("switch {switch} is put in")
def switch_put_in(_world, switch):
    """Makes the file that switches something on the set; most are read only when the daemon starts."""
    _SWITCHES.mkdir(exist_ok=True)
    (_SWITCHES / switch).touch()


@step("switch {switch} is taken out")
def switch_taken_out(_world, switch):
    """Removes the file again."""
    (_SWITCHES / switch).unlink()


# Units

@step("unit {unit} is {state}")
def unit_is(world, unit, state):
    """Waits until systemd says so: active, inactive, failed, activating, deactivating."""
    world.wait(f"{unit} is {state}", lambda: world.unit(unit), lambda seen: seen[0] == state)


@step("start {unit}")
def start(world, unit):
    """Starts a unit and waits until systemd has done so."""
    world.systemctl("start", unit)


@step("stop {unit}")
def stop(world, unit):
    """Stops a unit and waits until systemd has done so."""
    world.systemctl("stop", unit)


@step("mask {unit}")
def mask(world, unit):
    """Forbids systemd to start a unit."""
    world.systemctl("mask", unit)


@step("unmask {unit}")
def unmask(world, unit):
    """Allows it again."""
    world.systemctl("unmask", unit)


@step("kill {unit}")
def kill(world, unit):
    """Kills the main process of a unit with SIGKILL and waits until systemd knows."""
    pid = world.unit(unit)[2]
    if pid == 0:
        raise Failed(f"{unit} has a main process", world.unit(unit))
    os.kill(pid, signal.SIGKILL)
    world.wait(f"process {pid} is no longer the main process", lambda: world.unit(unit), lambda seen: seen[2] != pid)


@step("remember the process of {unit}")
def remember_process(world, unit):
    """Keeps the main process of a unit, to be compared later."""
    world.processes[unit] = world.unit(unit)[2]
    if world.processes[unit] == 0:
        raise Failed(f"{unit} has a main process", world.unit(unit))


@step("the process of {unit} is as remembered")
def process_is_as_remembered(world, unit):
    """The unit runs in the same process as then."""
    if world.unit(unit)[2] != world.processes[unit]:
        raise Failed(f"process {world.processes[unit]}", world.unit(unit))


@step("the process of {unit} is another")
def process_is_another(world, unit):
    """Waits until the unit runs in another process than then."""
    world.wait(f"a process, but not {world.processes[unit]}", lambda: world.unit(unit)[2],
               lambda seen: seen not in (0, world.processes[unit]))


@step("the process of {unit} has no children")
def process_has_no_children(world, unit):
    """Waits until it has none; one that has ended and was not collected counts."""
    world.wait(f"the main process of {unit} has no children", lambda: world.children(world.unit(unit)[2]),
               lambda seen: not seen)


@step("the services that run are {units:rest}")
def services_are(world, units):
    """Compares all services that systemd has started, whoever wanted them."""
    wanted = sorted(units.split())
    world.wait(f"only {wanted}", world.active_services, lambda seen: seen == wanted)


# The bus

@step("name {name} belongs to {unit}")
def name_belongs(world, name, unit):
    """Waits until the main process of the unit owns the bus name."""
    world.wait(f"{name} is owned by the main process of {unit}",
               lambda: {"owner": world.owner_pid(name), "main process": world.unit(unit)[2]},
               lambda seen: seen["owner"] == seen["main process"] != 0)


@step("name {name} is free")
def name_free(world, name):
    """Waits until nobody owns the bus name."""
    world.wait(f"{name} has no owner", lambda: world.owner_pid(name), lambda seen: seen == 0)


# Applications

@step("client {client} comes")
def client_comes(world, client):
    """Starts an application: a process with a bus connection of its own."""
    if client in world.clients:
        raise Failed(f"no client {client} yet", "there is one")
    world.clients[client] = Client()


@step("client {client} comes as {user}")
def client_comes_as(world, client, user):
    """The same, as another user than root."""
    if client in world.clients:
        raise Failed(f"no client {client} yet", "there is one")
    world.clients[client] = Client(user)


@step("client {client} leaves")
def client_leaves(world, client):
    """Ends an application."""
    world.client(client).leave(world.limit)
    del world.clients[client]


@step("client {client} is killed")
def client_is_killed(world, client):
    """Kills an application with SIGKILL."""
    world.client(client).kill()
    world.gone[client] = world.clients.pop(client)


def _expect_ints(outcome, ints):
    values = [int(value) for value in ints.split()]
    expected = {"reply": struct.pack(f"={len(values)}i", *values).hex()}
    if outcome != expected:
        raise Failed(f"{expected} (the integers {ints})", outcome)


def _expect_error(outcome, error):
    if outcome.get("error") != error:
        raise Failed(error, outcome)


@step("client {client} calls method {method:number}: reply {ints:rest}")
def client_calls(world, client, method, ints):
    """Calls an IPC method; the reply must be exactly those integers."""
    world.client(client).send(method=method)
    _expect_ints(world.client(client).receive(world.limit), ints)


@step("client {client} calls method {method:number}: error {error}")
def client_calls_error(world, client, method, error):
    """Calls an IPC method; the answer must be that D-Bus error."""
    world.client(client).send(method=method)
    _expect_error(world.client(client).receive(world.limit), error)


@step("client {client} begins to call method {method:number}")
def client_begins(world, client, method):
    """Sends a call without waiting for the reply."""
    world.client(client).send(method=method)


@step("client {client} is answered {ints:rest}")
def client_is_answered(world, client, ints):
    """Waits for the reply to a call that was begun."""
    _expect_ints(world.client(client).receive(world.limit), ints)


@step("client {client} calls IPC interface {interface}: error {error}")
def client_calls_interface(world, client, interface, error):
    """Calls method 0 of another IPC interface."""
    world.client(client).send(interface=interface)
    _expect_error(world.client(client).receive(world.limit), error)


@step("client {client} calls with signature {signature:text}: error {error}")
def client_calls_malformed(world, client, signature, error):
    """Calls the D-Bus method with arguments it does not take."""
    world.client(client).send(signature=signature)
    _expect_error(world.client(client).receive(world.limit), error)


# Traces and the report

def _opens_trace(world, client, trace, length, text, language):
    request = struct.pack("=qi", trace, length) + text.encode() + struct.pack("=i", language)
    world.client(client).send(method=3, request=request.hex())
    _expect_ints(world.client(client).receive(world.limit), "0")


@step("client {client} opens trace {trace:number} {text:text}")
def client_opens_trace(world, client, trace, text):
    """Opens a debug trace of a program in C++."""
    _opens_trace(world, client, trace, len(text.encode()), text, 1)


@step("client {client} opens trace {trace:number} {text:text} in language {language:number}")
def client_opens_trace_in(world, client, trace, text, language):
    """The same, of a program in another language: 1 is C++, 2 is C#."""
    _opens_trace(world, client, trace, len(text.encode()), text, language)


@step("client {client} opens trace {trace:number} {text:text} with the length {length:number}")
def client_opens_trace_lying(world, client, trace, text, length):
    """The same, with a length that is not the text's."""
    _opens_trace(world, client, trace, length, text, 1)


@step("client {client} closes trace {trace:number}")
def client_closes_trace(world, client, trace):
    """Closes a debug trace."""
    world.client(client).send(method=4, request=struct.pack("=q", trace).hex())
    _expect_ints(world.client(client).receive(world.limit), "0")


@step("client {client} asks for the report")
def client_asks_for_report(world, client):
    """Fetches the debug report: status 0, its length and just as many bytes of JSON."""
    world.client(client).send(method=2)
    outcome = world.client(client).receive(world.limit)
    reply = bytes.fromhex(outcome.get("reply", ""))
    if len(reply) < 8 or struct.unpack_from("=ii", reply) != (0, len(reply) - 8):
        raise Failed("status 0, the length of a text and the text", outcome)
    world.report = reply[8:].decode()
    json.loads(world.report)


@step("client {client} asks for the report until {then:step}")
def client_asks_until(world, client, then):
    """Fetches it again and again until what is said of it holds."""
    end = time.monotonic() + world.limit
    while True:
        late = time.monotonic() >= end
        client_asks_for_report(world, client)
        try:
            return then(world)
        except Failed:
            if late:
                raise


@step("show the report")
def show_report(world):
    """Prints the report that was fetched last."""
    return world.report


def _report_lines(world):
    return [line.strip().rstrip(",") for line in world.report.split("\n")]


@step("the report has {line:rest}")
def report_has(world, line):
    """The report that was fetched last has exactly that line, a comma at its end aside; * stands for anything."""
    if not any(_glob(line).fullmatch(seen) for seen in _report_lines(world)):
        raise Failed(f"a line {line}", world.report)


@step("the report lacks {line:rest}")
def report_lacks(world, line):
    """It has no such line."""
    if any(_glob(line).fullmatch(seen) for seen in _report_lines(world)):
        raise Failed(f"no line {line}", world.report)


def reported_traces(world, keep):
    records = json.loads(world.report)["zel-lite"] or []
    return [(record, trace) for record in records for trace in record["StackTraces"] or [] if keep(record, trace)]


@step("the report shows the {state} traces {texts:rest}")
def report_shows(world, state, texts):
    """All its traces that are open, or closed, in its order: none, or e.g. "first" "second"."""
    wanted = [] if texts == "none" else re.findall(r'"([^"]*)"', texts)
    closed = {"open": False, "closed": True}[state]
    seen = [trace["StackTrace"].rstrip("\0") for _, trace in
            reported_traces(world, lambda record, trace: ("DestructionTime" in trace) == closed)]
    if seen != wanted:
        raise Failed(wanted, world.report)


@step("the report shows {text:text} for client {client}")
def report_shows_for(world, text, client):
    """A trace with that text stands under the process and the program of that client, which may be killed by now."""
    whose = world.client_or_gone(client)
    seen = reported_traces(world, lambda record, trace: trace["StackTrace"].rstrip("\0") == text)
    if [(record["PID"], record["ProcessName"]) for record, _ in seen] != [(str(whose.pid), whose.path)]:
        raise Failed(f"'{text}' under process {whose.pid}, {whose.path}", world.report)


# The daemon's log

def _glob(text):
    return re.compile(".*".join(re.escape(part) for part in text.split("*")), re.DOTALL)


def _log_matches(world, text, level, function, after):
    pattern = _glob(text)
    return [position for position, entry in world.lines("ZEL_LITE")
            if position >= after and pattern.fullmatch(entry.text)
            and (level is None or entry.priority == _PRIORITIES[level])
            and (function is None or entry.function == function)]


def await_log(world, text, level=None, function=None, after=0):
    found = world.wait(f"the daemon logs '{text}'", lambda: _log_matches(world, text, level, function, after), bool)
    world.matched = found[0] + 1


@step("log says {text:text}")
def log_says(world, text):
    """Waits for a line of the daemon with exactly that text; * stands for anything."""
    await_log(world, text)


@step("log says {text:text} ({level}, {function})")
def log_says_exactly(world, text, level, function):
    """The same, with its level (error, info, debug) and the function that logs."""
    await_log(world, text, level, function)


@step("log then says {text:text}")
def log_then_says(world, text):
    """The same, after the line that the last such step has found."""
    await_log(world, text, after=world.matched)


@step("log says {text:text} of client {client}")
def log_says_of(world, text, client):
    """The same as without a client; NAME, PROGRAM and PID in the text stand for the client's."""
    whose = world.client_or_gone(client)
    for word, value in (("NAME", whose.name), ("PROGRAM", whose.program), ("PID", str(whose.pid))):
        text = text.replace(word, value)
    await_log(world, text)


@step("log says {text:text} of the remembered process of {unit}")
def log_says_of_process(world, text, unit):
    """The same as without a process; PID in the text stands for its id."""
    await_log(world, text.replace("PID", str(world.processes[unit])))


@step("log then says {text:text} about {seconds:number} seconds later")
def log_then_says_later(world, text, seconds):
    """The same as without the time; at most a second sooner than that, four seconds later."""
    began = world.journal.entries[world.matched - 1].monotonic
    await_log(world, text, after=world.matched)
    took = world.journal.entries[world.matched - 1].monotonic - began
    if not seconds - 1 <= took <= seconds + 4:
        raise Failed(f"about {seconds} s", f"{took:.3f} s")


@step("log says {text:text} {count:number} times")
def log_says_times(world, text, count):
    """Waits until there are that many such lines, and no more."""
    world.wait(f"the daemon logs '{text}' {count} times", lambda: len(_log_matches(world, text, None, None, 0)),
               lambda seen: seen >= count)
    world.journal.read_all()
    seen = len(_log_matches(world, text, None, None, 0))
    if seen != count:
        raise Failed(count, seen)


@step("log says {text:text} at least {count:number} times")
def log_says_at_least(world, text, count):
    """Waits until there are that many such lines, or more."""
    world.wait(f"the daemon logs '{text}' {count} times", lambda: len(_log_matches(world, text, None, None, 0)),
               lambda seen: seen >= count)


@step("log never says {text:text}")
def log_never_says(world, text):
    """No such line has come, whatever is still on its way to the journal included."""
    world.journal.read_all()
    found = _log_matches(world, text, None, None, 0)
    if found:
        raise Failed(f"no line '{text}'", str(world.journal.entries[found[0]]))


@step("library {tag} logs {text:text}")
def library_logs(world, tag, text):
    """Waits for a line that one of the daemon's libraries logs under its own tag; * stands for anything."""
    world.wait(f"{tag} logs '{text}'", lambda: [entry.message for _, entry in world.lines(tag)],
               lambda seen: any(_glob(text).fullmatch(message) for message in seen))


# The service

def _calls(world):
    calls = []
    for _, entry in world.lines("zel-daemon"):
        notify = re.match(r"Notify\(trigger (-?\d+), source (-?\d+), plug state (-?\d+), value (-?\d+)\)",
                          entry.message)
        if notify:
            data = "" if notify.groups()[1:] == ("0", "0", "0") else f" ({' '.join(notify.groups()[1:])})"
            calls.append(f"trigger {notify[1]}{data}")
        elif entry.message.startswith("Terminate()"):
            calls.append("termination")
    return calls


@step("service received {calls:rest}")
def service_received(world, calls):
    """All that the service was called: nothing, or e.g. "trigger 1, trigger 7 (3 1 0), termination"."""
    wanted = [] if calls == "nothing" else calls.split(", ")
    world.wait(f"{len(wanted)} calls", lambda: _calls(world), lambda seen: len(seen) >= len(wanted))
    world.journal.read_all()
    if _calls(world) != wanted:
        raise Failed(wanted, _calls(world))


@step("service says {text:text}")
def service_says(world, text):
    """Waits for a line of the service; * stands for anything."""
    world.wait(f"the service logs '{text}'", lambda: [entry.message for _, entry in world.lines("zel-daemon")],
               lambda seen: any(_glob(text).fullmatch(message) for message in seen))


@step("service is told {file} {value:text}")
def service_is_told(world, file, value):
    """Writes a control file of the stand-in service."""
    world.tell_service(file, value)


@step("service is told nothing")
def service_is_told_nothing(world):
    """Removes all control files."""
    world.tell_service_nothing()


# The launcher

@step("the launcher ran with {runs:rest}")
def launcher_ran_with(world, runs):
    """The arguments of each run of the launcher, in order: nothing, or e.g. <-r>, <a> <b>."""
    look = lambda: [entry.message for _, entry in world.lines("zel-lite-app-launch")]  # noqa: E731
    wanted = [] if runs == "nothing" else runs.split(", ")
    world.wait(f"{len(wanted)} runs", look, lambda seen: len(seen) >= len(wanted))
    world.journal.read_all()
    if look() != wanted:
        raise Failed(wanted, look())


# Files

@step("file {path} exists")
def file_exists(world, path):
    """Waits until the file exists."""
    world.wait(f"{path} exists", lambda: os.path.lexists(path), bool)


@step("file {path} is absent")
def file_is_absent(world, path):
    """Waits until the file does not exist."""
    world.wait(f"{path} does not exist", lambda: os.path.lexists(path), lambda seen: not seen)


@step("write {path} {content:text}")
def write(_world, path, content):
    """Writes a text to a file."""
    pathlib.Path(path).write_text(content)


@step("write {path} bytes {content:rest}")
def write_bytes(_world, path, content):
    """Writes bytes, given in hexadecimal, to a file."""
    pathlib.Path(path).write_bytes(bytes.fromhex(content))


@step("write {path} integers {ints:rest}")
def write_integers(_world, path, ints):
    """Writes 32-bit integers in the machine's byte order to a file."""
    values = [int(value) for value in ints.split()]
    pathlib.Path(path).write_bytes(struct.pack(f"={len(values)}i", *values))


@step("remove {path}")
def remove(_world, path):
    """Removes a file."""
    os.unlink(path)


@step("remember {path}")
def remember(world, path):
    """Keeps the bytes of a file, to be compared later."""
    world.remembered[path] = pathlib.Path(path).read_bytes()


@step("file {path} is as remembered")
def is_as_remembered(world, path):
    """The file holds the very bytes that were remembered."""
    seen = pathlib.Path(path).read_bytes() if os.path.exists(path) else None
    if seen != world.remembered[path]:
        raise Failed(world.remembered[path], seen)


@step("the state file holds the sessions of {names:rest}")
def state_file_holds(world, names):
    """Waits until the state file is, byte for byte, the table of those clients' and windows' sessions."""
    wanted = session_table([world.session(name) for name in names.split()])
    world.wait(wanted, lambda: _STATE_FILE.read_bytes() if _STATE_FILE.exists() else None,
               lambda seen: seen == wanted)


# Other programs

@step("run {command:rest}")
def run(world, command):
    """Runs a command, split into words as a shell would, and waits for its end; it must succeed."""
    try:
        done = subprocess.run(shlex.split(command), capture_output=True, text=True, timeout=world.limit, check=False)
    except subprocess.TimeoutExpired:
        raise Failed(f"'{command}' ends", f"it still ran after {world.limit} s") from None
    if done.returncode != 0:
        raise Failed(f"'{command}' succeeds", f"status {done.returncode}, {done.stderr.strip()}")


@step("program {program} runs {command:rest}")
def program_runs(world, program, command):
    """Starts a program of the box beside everything else; what it prints is collected."""
    if program in world.programs:
        raise Failed(f"no program {program} yet", "there is one")
    world.programs[program] = Program(shlex.split(command))


@step("program {program} prints {text:text} on {stream}")
def program_prints(world, program, text, stream):
    """Waits until the text is somewhere in what the program has printed on stdout or stderr; * stands for anything."""
    running = world.program(program)
    world.wait(f"'{text}' on {stream}", lambda: running.printed(stream),
               lambda seen: any(_glob(f"*{text}*").fullmatch(line) for line in seen.split("\n")))


@step("program {program} never prints {text:text} on {stream}")
def program_never_prints(world, program, text, stream):
    """The text is nowhere in what the program has printed so far."""
    seen = world.program(program).printed(stream)
    if _glob(f"*{text}*").fullmatch(seen):
        raise Failed(f"no '{text}' on {stream}", seen)


@step("program {program} still runs")
def program_still_runs(world, program):
    """It has not ended."""
    if not world.program(program).runs():
        raise Failed("it runs", "it has ended")


@step("program {program} ends")
def program_ends(world, program):
    """Waits until it has ended by itself."""
    world.wait("it ends", world.program(program).runs, lambda seen: not seen)
    world.programs.pop(program).kill()


@step("program {program} is killed")
def program_is_killed(world, program):
    """Kills the program with SIGKILL."""
    world.program(program).kill()
    del world.programs[program]
