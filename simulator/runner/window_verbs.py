# SPDX-License-Identifier: Apache-2.0
"""The sentences about windows. One function each; the first line of its text explains it in the help."""

import itertools
import pathlib

from failed import Failed
from steps import step
from verbs import await_log, reported_traces
from windows import Application, Window, window_program

_STATES = {"visible": 0, "partially visible": 1, "not visible": 2, "gone": None}
_USUAL = (640, 360, "opaque")
_random = itertools.count(1000)   # what tells two units of one application apart


def _scope_of(app):
    escaped = app.replace("-", r"\x2d")
    return f"app-{escaped}-{next(_random)}.scope"


def _open(world, window, unit, command, nested=None):
    """Starts an application and waits until the window manager has its window on the screen, seen or not."""
    if window in world.windows and world.windows[window].is_open:
        raise Failed(f"no window {window} yet", "there is one")
    application = Application(unit, command, nested)
    world.windows[window] = opened = Window(application)
    try:
        world.wait(f"'{command[0]}' has a window",
                   lambda: opened.found_by(world.watcher) or application.complaints(), lambda seen: seen is True)
    except Failed:
        opened.kill()
        raise


# Windows come and go

@step("application {app} opens window {window}")
def application_opens(world, app, window):
    """Starts an application, as a user and in a scope named after it, with an opaque window in the middle."""
    _open(world, window, _scope_of(app), window_program(*_USUAL))


@step("application {app} opens window {window} at {x:number} {y:number}, {width:number} by {height:number}, {kind}")
def application_opens_at(world, app, window, x, y, width, height, kind):
    """The same with a place, a size, and a kind: opaque or translucent. The screen has 1920 by 1080 pixels."""
    _open(world, window, _scope_of(app), window_program(width, height, kind, (x, y)))


@step("window {window} opens in unit {unit}")
def window_opens_in(world, window, unit):
    """The same as without a place, in a scope or service of that name."""
    _open(world, window, unit, window_program(*_USUAL))


@step("window {window} opens in unit {unit}, there in {nested}")
def window_opens_below(world, window, unit, nested):
    """The same, in a cgroup of its own below the unit's."""
    _open(world, window, unit, window_program(*_USUAL), nested)


@step("program {program} opens window {window}")
def program_opens(world, program, window):
    """Starts any Wayland program that opens a window, such as weston-flower, as the application of its name."""
    _open(world, window, _scope_of(program), [program])


@step("window {window} closes")
def window_closes(world, window):
    """Ends the window's application."""
    world.open_window(window).close(world.limit)


@step("window {window} is killed")
def window_is_killed(world, window):
    """Kills the window's application with SIGKILL."""
    world.open_window(window).kill()


# What a window does

@step("window {window} moves to {x:number} {y:number}")
def window_moves(world, window, x, y):
    """Puts its upper left corner there; it stays as far in front as it is."""
    world.open_window(window).tell(f"place {x} {y}", world.limit)


@step("window {window} becomes {width:number} by {height:number}, {kind}")
def window_becomes(world, window, width, height, kind):
    """Gives it another size and kind: opaque or translucent."""
    world.open_window(window).tell(f"look {width} {height} {kind}", world.limit)


@step("window {window} is raised")
def window_is_raised(world, window):
    """Brings it to the front, also when it is minimised."""
    world.open_window(window).tell("raise", world.limit)


@step("window {window} is minimised")
def window_is_minimised(world, window):
    """Takes it from the screen until it is raised."""
    world.open_window(window).tell("minimise", world.limit)


@step("window {window} loses its content")
def window_hides(world, window):
    """Unmaps it."""
    world.open_window(window).tell("hide", world.limit)


@step("window {window} has content again")
def window_shows(world, window):
    """Maps it again."""
    world.open_window(window).tell("show", world.limit)


@step("window {window} gets the hint")
def window_gets_hint(world, window):
    """Adds its auxiliary hint."""
    world.open_window(window).tell("hint 1", world.limit)


@step("window {window} loses the hint")
def window_loses_hint(world, window):
    """Removes its auxiliary hint."""
    world.open_window(window).tell("hint 2", world.limit)


@step("window {window} is announced as ready, visibility {visibility:number}")
def window_ready(world, window, visibility):
    """Has the window manager send a ready visibility change."""
    world.open_window(window).tell(f"ready {visibility}", world.limit)


@step("window {window} is announced out of order, visibility {visibility:number}")
def window_async(world, window, visibility):
    """Has the window manager send an asynchronous visibility change."""
    world.open_window(window).tell(f"async {visibility}", world.limit)


@step("the application of window {window} calls method {method:number}")
def application_calls(world, window, method):
    """Calls an IPC method of the daemon from the window's process, over a connection that it then keeps."""
    world.open_window(window).tell(f"call {method}", world.limit)


# What is seen of windows

@step("the window manager has window {window} {state:rest}")
def window_manager_has(world, window, state):
    """Waits until the notifier tells that: visible, partially visible, not visible, gone."""
    number = world.window(window).id
    world.wait(f"window {number} is {state}", lambda: world.watcher.look().visibility.get(number),
               lambda seen: seen == _STATES[state])


@step("the window on top is {window}")
def window_manager_has_on_top(world, window):
    """The notifier answers so when it is asked."""
    number = world.window(window).id
    if world.watcher.top(world.limit) != number:
        raise Failed(f"window {number}", world.watcher.top(world.limit))


@step("log says {text:text} of window {window}")
def log_says_of_window(world, text, window):
    """The same as without a window; WINDOW and PID in the text stand for the window's."""
    await_log(world, world.window(window).named_in(text))


@step("log then says {text:text} of window {window}")
def log_then_says_of_window(world, text, window):
    """The same, after the line that the last such step has found."""
    await_log(world, world.window(window).named_in(text), after=world.matched)


@step("the report shows window {window} as {name:text}, {state}")
def report_shows_window(world, window, name, state):
    """It has one trace of the window's session, open or closed, under that name and the application's process."""
    whose = world.window(window)
    seen = [(record["ProcessName"], record["PID"], "DestructionTime" in trace) for record, trace in
            reported_traces(world, lambda record, trace: trace["StackTrace"].rstrip("\0") == whose.session[0])]
    if seen != [(whose.named_in(name), str(whose.pid), {"open": False, "closed": True}[state])]:
        raise Failed(f"window {whose.id} as {name} of process {whose.pid}, {state}", world.report)


# Processors

def _ticks(pid):
    """What a process has taken of the processors, in hundredths of a second."""
    after_name = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return int(after_name[11]) + int(after_name[12])


@step("the process of {unit} takes at most {percent:number} percent of a processor in {seconds:number} seconds")
def process_takes_at_most(world, unit, percent, seconds):
    """Watches for so long what its threads take together."""
    pid = world.unit(unit)[2]
    taken = _ticks(pid)
    world.let_pass(seconds)
    taken = _ticks(pid) - taken
    if taken > percent * seconds:
        raise Failed(f"at most {percent} percent", f"{taken / seconds} percent")
