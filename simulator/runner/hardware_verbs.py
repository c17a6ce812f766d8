# SPDX-License-Identifier: Apache-2.0
"""The sentences about the hardware clock, the keys of the remote control and the processors. One function each; the
first line of its text explains it in the help."""

import errno
import os
import pathlib
import re

from failed import Failed
from steps import step

_CLOCK = pathlib.Path("/run/zel-platform/rtc")
_KEYS = "/run/zel-platform/key-combination"


@step("the hardware clock is told {line:text}")
def clock_is_told(_world, line):
    """What it shows from now on: offset SECONDS, time SECONDS, absent, unreadable."""
    _CLOCK.parent.mkdir(exist_ok=True)
    fresh = _CLOCK.with_name("rtc.new")
    fresh.write_text(line + "\n")
    fresh.rename(_CLOCK)


@step("the hardware clock is told nothing")
def clock_is_told_nothing(_world):
    """It shows the system's time."""
    _CLOCK.unlink(missing_ok=True)


def _opened(fifo):
    """A descriptor to write to; None as long as nobody reads."""
    try:
        return os.open(fifo, os.O_WRONLY | os.O_NONBLOCK)
    except OSError as error:
        if error.errno in (errno.ENOENT, errno.ENXIO):
            return None
        raise


def _send(world, text):
    fifo = world.wait("somebody reads the keys", lambda: _opened(_KEYS), lambda seen: seen is not None)
    try:
        os.write(fifo, text.encode())
    finally:
        os.close(fifo)


@step("key combination {combination:number} is hit")
def keys_are_hit(world, combination):
    """Presses those keys of the remote control, as soon as somebody reads them."""
    _send(world, f"{combination}\n")


@step("the keys send {line:text}")
def keys_send(world, line):
    """The same with a line that need not be a number."""
    _send(world, f"{line}\n")


def _wake_ups(pid):
    """How often the threads of a process have waited for something, and were woken."""
    statuses = [status.read_text() for status in pathlib.Path(f"/proc/{pid}/task").glob("*/status")]
    return sum(int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)$", status, re.MULTILINE)[1]) for status in statuses)


@step("the process of {unit} wakes up at most {count:number} times in {seconds:number} seconds")
def process_wakes_up_at_most(world, unit, count, seconds):
    """Watches for so long how often its threads wait anew; shows how often."""
    pid = world.unit(unit)[2]
    before = _wake_ups(pid)
    world.let_pass(seconds)
    woken = _wake_ups(pid) - before
    if woken > count:
        raise Failed(f"at most {count} times", f"{woken} times")
    return f"{woken} times"
