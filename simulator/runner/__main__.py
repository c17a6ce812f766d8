# SPDX-License-Identifier: Apache-2.0
"""Walks through a scenario inside the box, narrates each step with how long it took, and stops at the first that
does not hold.

    runner SCENARIO              a name below ../scenarios
    runner --false SCENARIO      lines that begin with '!' must not hold: shows that the sentences notice something
    runner --sentences           what a scenario may say
"""

import argparse
import contextlib
import os
import pathlib
import signal
import sys
import textwrap
import time

import hardware_verbs  # noqa: F401  (declares sentences, as the others do)
import power_verbs  # noqa: F401
import setting_verbs  # noqa: F401
import steps
import verbs  # noqa: F401
import window_verbs  # noqa: F401
import zelctl_verbs  # noqa: F401
from failed import Failed
from world import World

_SCENARIOS = pathlib.Path(__file__).resolve().parent.parent / "scenarios"
_SHOWN_LINES = 60
_LIMIT = 20          # seconds that anything may take
_FALSE_LIMIT = 0.3   # seconds until what must not be seen counts as not seen


class Script:
    """The lines of a scenario as (file, number, text), with `include NAME` replaced by the lines of that scenario."""

    def __init__(self, path):
        self.lines = []
        self._add(path, ())

    def _add(self, path, within):
        if path in within:
            raise SystemExit(f"{path} includes itself")
        if not path.is_file():
            raise SystemExit(f"there is no scenario {path}")
        for number, line in enumerate(path.read_text().splitlines(), 1):
            text = line.strip()
            if text.startswith("include "):
                self._add(path.with_name(text.removeprefix("include ").strip() + ".scenario"), (*within, path))
            elif text and not text.startswith("#"):
                self.lines.append((path.stem, number, text))

    def check(self):
        """Refuses a scenario with a line that means nothing, before anything has happened."""
        wrong = [f"{name}, line {number}: {text}" for name, number, text in self.lines
                 if not text.startswith("==") and steps.find(text.removeprefix("! ")) is None]
        if wrong:
            raise SystemExit("no sentence, or more than one, for\n  " + "\n  ".join(wrong))


def _explain(world, failure):
    print(f"      expected: {getattr(failure, 'expected', 'no error')}")
    print(f"      seen:     {getattr(failure, 'seen', repr(failure))}")
    world.journal.read_all()
    entries = world.journal.entries[world.mark:]
    if len(entries) > _SHOWN_LINES:
        print(f"      what counts of the journal ({len(entries)} lines, the last {_SHOWN_LINES}):")
    else:
        print("      what counts of the journal:")
    for entry in entries[-_SHOWN_LINES:]:
        print(f"        {entry}")


def _stand_alone():
    """What this process starts hears every signal, whatever whoever started this one ignores, and is told nothing that
    is meant for others."""
    for number in signal.valid_signals() - {signal.SIGPIPE, signal.SIGXFSZ}:    # Python's own
        if signal.getsignal(number) == signal.SIG_IGN:
            # A signal that is ignored stays so for what is started, one that is caught does not.
            signal.signal(number, lambda *_: None)
    # A shell's job leads its process group already.
    with contextlib.suppress(PermissionError):
        os.setsid()


def _walk(script, world):
    """Does every step; tells whether all held."""
    current = None
    for name, number, text in script.lines:
        if current != name:
            world.end_all()
            world.mark_now()
            current = name
        if text.startswith("=="):
            print(f"\n{text.lstrip('= ')}", flush=True)
            continue
        began = time.monotonic()
        try:
            shown = steps.find(text)(world)
        except Exception as failure:  # whatever it is, the journal helps  # pylint: disable=broad-except
            print(f"  FAILED   {name}, line {number}: {text}")
            _explain(world, failure)
            return False
        print(f"  {(time.monotonic() - began) * 1000:6.0f} ms  {text}", flush=True)
        if shown:
            print(textwrap.indent(shown, " " * 13), flush=True)
    return True


def _walk_false(script, world):
    """Does every step; one that begins with '!' must fail, any other must not."""
    for name, number, text in script.lines:
        if text.startswith("=="):
            continue
        wanted = not text.startswith("! ")
        world.limit = _LIMIT if wanted else _FALSE_LIMIT
        try:
            steps.find(text.removeprefix("! "))(world)
            held = True
        except (Failed, OSError):
            held = False
        print(f"  {'holds  ' if held else 'noticed'}  {text}", flush=True)
        if held != wanted:
            print(f"  FAILED   {name}, line {number}: this {'held' if held else 'did not hold'}")
            return False
    return True


def main():
    parser = argparse.ArgumentParser(prog="runner", description="Walks through a scenario.")
    parser.add_argument("scenario", nargs="?")
    parser.add_argument("--sentences", action="store_true", help="list what a scenario may say")
    parser.add_argument("--false", action="store_true", help="lines that begin with '!' must fail")
    arguments = parser.parse_args()
    if arguments.sentences:
        for sentence, meaning in steps.sentences():
            print(f"{sentence}\n    {meaning}")
        return 0
    if not arguments.scenario:
        parser.error("which scenario?")
    path = _SCENARIOS / f"{arguments.scenario}.scenario"
    script = Script(path)
    script.check()
    _stand_alone()
    world = World(_LIMIT)
    began = time.monotonic()
    try:
        held = (_walk_false if arguments.false else _walk)(script, world)
    finally:
        world.end_all()
    print(f"\n{'all of' if held else 'not all of'} {path.stem} held, {time.monotonic() - began:.1f} s")
    return 0 if held else 1


sys.exit(main())
