# SPDX-License-Identifier: Apache-2.0
"""The honest ones beside an attack, each in a process of its own. What they have seen they print as one line of JSON
when standard input ends."""

import json
import os
import select
import sys
import time

import wire
from application import CLOSE, IS_TERMINATED, OPEN, OPEN_TRACE, Application, sessions, trace

_PERIOD = 0.05    # seconds from one opening to the next
_LIMIT = 60       # seconds for a call


def _say(**what):
    print(json.dumps(what), flush=True)


def _timed(act):
    """When a call began, how long it took, and what came of it: a status, an error's name, or why there is none."""
    began = time.monotonic()
    try:
        outcome = act()
    except (wire.Refused, wire.Lost, wire.Silent) as failure:
        outcome = f"{type(failure).__name__}: {failure}"
    return began, time.monotonic() - began, outcome


class _Orders:
    """Standard input: a line is an order, its end is the end."""

    def __init__(self):
        self.ended = self.paused = False

    def until(self, moment):
        """Waits until then, as long as a pause lasts, or for the order `look`."""
        while not self.ended:
            limit = None if self.paused else max(0, moment - time.monotonic())
            if not select.select([sys.stdin], [], [], limit)[0]:
                return
            order = sys.stdin.readline().strip()
            self.ended = not order
            if order:
                self.paused = order == "pause"
                _say(order=order)
            if order == "look":
                return


def regular():
    """Opens and closes a session every 50 ms, and calls the bus itself, to tell its time from the daemon's. `pause` and
    `go on` are its orders."""
    me, orders, calls, unsaved = Application(), _Orders(), [], 0
    _say(name=me.name)
    due = time.monotonic()
    while not orders.ended:
        calls.append(("bus", *_timed(lambda: me.bus("GetId", limit=_LIMIT) and 0)))
        calls.append(("open", *_timed(lambda: me.status(OPEN, limit=_LIMIT))))
        if calls[-1][-1] == 0 and me.name not in sessions():
            unsaved += 1
        calls.append(("close", *_timed(lambda: me.status(CLOSE, limit=_LIMIT))))
        due = max(due + _PERIOD, time.monotonic())
        orders.until(due)
    _say(calls=calls, unsaved=unsaved)


def observer():
    """Holds a session with three traces, and closes it at the end."""
    me = Application()
    opened = me.status(OPEN)
    for number in range(3):
        me.status(OPEN_TRACE, trace(number, f"observer {number}"))
    _say(name=me.name, opened=opened)
    sys.stdin.read()
    _say(closed=_timed(lambda: me.status(CLOSE, limit=_LIMIT)))


def departing():
    """Five connections that hold a session each; their process is killed during the attack."""
    held = [Application() for _ in range(5)]
    opened = [application.status(OPEN) for application in held]
    _say(names=[application.name for application in held], opened=opened)
    sys.stdin.read()


def looker():
    """Asks for the report every two seconds, and at the order `look`. `pause` and `go on` are its orders too."""
    me, orders, looks = Application(), _Orders(), []
    _say(name=me.name)
    while not orders.ended:
        taken = []
        began, seconds, outcome = _timed(lambda: taken.append(me.report(limit=_LIMIT)) or "report")
        valid, mine = False, 0
        if taken:
            try:
                records = json.loads(taken[0])["zel-lite"] or []
                valid = True
                mine = sum(1 for record in records for each in record["StackTraces"] or []
                           if each["StackTrace"].startswith("observer ") and "DestructionTime" not in each)
            except (ValueError, KeyError) as failure:
                outcome = f"invalid: {failure}"
        looks.append({"began": began, "seconds": seconds, "outcome": outcome, "valid": valid, "observed": mine,
                      "bytes": len(taken[0]) if taken else 0})
        orders.until(time.monotonic() + 2)
    _say(looks=looks)


def asker():
    """Asks once whether the service is terminated."""
    me = Application()
    _say(asked=_timed(lambda: me.status(IS_TERMINATED, limit=_LIMIT)))
    sys.stdin.read()


ROLES = {"asker": asker, "regular": regular, "observer": observer, "departing": departing, "looker": looker}


def main(role):
    os.umask(0o022)
    ROLES[role]()
