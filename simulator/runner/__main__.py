# SPDX-License-Identifier: Apache-2.0
"""Walks through a scenario inside the box, narrates each step with how long it took, and stops at the first that
does not hold.

    runner SCENARIO              a name below ../scenarios, or a path
    runner --false SCENARIO      every step must fail to hold: shows that the sentences notice what they are for
    runner --sentences           what a scenario may say
"""

import argparse
import pathlib
import sys
import time

import steps
import verbs  # noqa: F401  (declares the sentences)
from world import Failed, World

_SCENARIOS = pathlib.Path(__file__).resolve().parent.parent / "scenarios"
_SHOWN_LINES = 60


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
                 if not text.startswith("==") and steps.find(text) is None]
        if wrong:
            raise SystemExit("no sentence, or more than one, for\n  " + "\n  ".join(wrong))


def _explain(world, failure):
    print(f"      expected: {failure.expected}")
    print(f"      seen:     {failure.seen}")
    world.journal.read_all()
    entries = world.journal.entries[world.mark:]
    if len(entries) > _SHOWN_LINES:
        print(f"      the journal since the chapter began ({len(entries)} lines, the last {_SHOWN_LINES}):")
    else:
        print("      the journal since the chapter began:")
    for entry in entries[-_SHOWN_LINES:]:
        print(f"        {entry}")


def _walk(script, world):
    """Does every step; tells whether all held."""
    current = None
    for name, number, text in script.lines:
        if current not in (None, name):
            world.end_all()
        current = name
        if text.startswith("=="):
            world.mark_now()
            print(f"\n{text.lstrip('= ')}", flush=True)
            continue
        began = time.monotonic()
        try:
            steps.find(text)(world)
        except Failed as failure:
            print(f"  FAILED   {name}, line {number}: {text}")
            _explain(world, failure)
            return False
        print(f"  {(time.monotonic() - began) * 1000:6.0f} ms  {text}", flush=True)
    return True


def _walk_false(script, world):
    """Does every step that begins with '!', which must fail, and every other one, which must not."""
    for name, number, text in script.lines:
        wanted = not text.startswith("!")
        try:
            steps.find(text.lstrip("! "))(world)
            held = True
        except Failed:
            held = False
        if held != wanted:
            print(f"  FAILED   {name}, line {number}: this {'held' if held else 'did not hold'}: {text}")
            return False
        print(f"  {'held    ' if held else 'noticed '} {text}", flush=True)
    return True


def main():
    parser = argparse.ArgumentParser(prog="runner", description="Walks through a scenario.")
    parser.add_argument("scenario", nargs="?")
    parser.add_argument("--sentences", action="store_true", help="list what a scenario may say")
    parser.add_argument("--limit", type=float, default=20, help="seconds that anything may take (20)")
    arguments = parser.parse_args()
    if arguments.sentences:
        for sentence, meaning in steps.sentences():
            print(f"{sentence}\n    {meaning}")
        return 0
    if not arguments.scenario:
        parser.error("which scenario?")
    path = pathlib.Path(arguments.scenario)
    script = Script(path if path.suffix else _SCENARIOS / f"{arguments.scenario}.scenario")
    script.check()
    world = World(arguments.limit)
    began = time.monotonic()
    try:
        held = _walk(script, world)
    finally:
        world.end_all()
    print(f"\n{'all of' if held else 'not all of'} {path.stem} held, {time.monotonic() - began:.1f} s")
    return 0 if held else 1


sys.exit(main())
