# SPDX-License-Identifier: Apache-2.0
"""The sentences about sleep and what ends it. One function each; the first line of its text explains it in the help.

logind's part has python3-dbusmock (systemd-logind.service of the box): it says what it is told to say.
"""

import datetime
import re
import subprocess
import time

from failed import Failed
from setting_verbs import value_of
from steps import step

_LOGIND = ("org.freedesktop.login1", "/org/freedesktop/login1")
_MANAGER = "org.freedesktop.login1.Manager"
_MOCK = "org.freedesktop.DBus.Mock"
_TIMER_ID = "db/menu/broadcasting/autotune-wakeuptimer-timer_id"


# Sleep

def _ask(world, interface, method, signature, *arguments):
    return world.call(*_LOGIND, interface, method, signature, arguments)


def _delays(world):
    """Who delays sleep, by the name they gave."""
    return sorted(str(who) for what, who, _, mode, _, _ in _ask(world, _MANAGER, "ListInhibitors", "")
                  if "sleep" in what.split(":") and mode == "delay")


def _prepare_for_sleep(world, prepares):
    _ask(world, _MOCK, "UpdateProperties", "sa{sv}", _MANAGER, {"PreparingForSleep": prepares})
    _ask(world, _MOCK, "EmitSignal", "sssav", _MANAGER, "PrepareForSleep", "b", [prepares])


@step("the set goes to standby")
def set_goes_to_standby(world):
    """logind announces sleep, and waits until nobody delays it any more."""
    began = time.time()
    _prepare_for_sleep(world, True)
    world.wait("nobody delays sleep", lambda: _delays(world), lambda seen: not seen)
    world.standby = began, time.time()


@step("the set wakes up")
def set_wakes_up(world):
    """logind says that the machine runs again."""
    _prepare_for_sleep(world, False)


@step("{who} delays standby")
def delays_standby(world, who):
    """Waits until that program, or nobody, and nobody else has asked logind to wait for it before sleep."""
    wanted = [] if who == "nobody" else [who]
    world.wait(f"{who} delays sleep", lambda: _delays(world), lambda seen: seen == wanted)


# The timer that wakes the set

def _timers():
    listed = subprocess.check_output(
        ["systemctl", "list-units", "--all", "--plain", "--no-legend", "zel-tvtimer-*.timer"], text=True)
    return [line.split()[0] for line in listed.splitlines()]


def _timer():
    """The unit of the timer that the set remembers."""
    identity = re.fullmatch(r"value = (\d+) \(int\)", value_of(_TIMER_ID) or "")
    return f"zel-tvtimer-{identity[1]}.timer" if identity else None


def _property(unit, name):
    return subprocess.check_output(["systemctl", "show", f"--property={name}", "--value", unit], text=True).strip()


def _await_only_timer(world):
    """Waits until one timer is set, and it is the one that the set remembers."""
    world.wait("the one timer that is set is the one that the set remembers",
               lambda: {"set": _timers(), "remembered": _timer()},
               lambda seen: seen["set"] == [seen["remembered"]])
    return _timer()


def _expect_date(world, dates):
    wanted = [f"{date:%Y-%m-%d %H:%M:%S} UTC" for date in dates]
    calendar = _property(_await_only_timer(world), "TimersCalendar")
    seen = re.search(r"OnCalendar=([^;]*?) ;", calendar)
    if seen is None or seen[1] not in wanted:
        raise Failed(f"one of {wanted}", calendar)


def _utc(seconds):
    return datetime.datetime.fromtimestamp(int(seconds), datetime.timezone.utc)


@step("a timer wakes the set {seconds:number} seconds after standby")
def timer_wakes_after(world, seconds):
    """The only timer that is set has that date, give or take what going to standby took."""
    began, ended = world.standby
    _expect_date(world, [_utc(second + seconds) for second in range(int(began), int(ended) + 1)])


@step("a timer wakes the set at {hour:number} o'clock")
def timer_wakes_at(world, hour):
    """The only timer that is set has that hour in UTC of the day of standby."""
    _expect_date(world, [_utc(second).replace(hour=hour, minute=0, second=0) for second in world.standby])


@step("no timer is set")
def no_timer_is_set(world):
    """Waits until systemd knows no timer of the daemon."""
    world.wait("no timer is set", _timers, lambda seen: not seen)


@step("the timer will go off")
def timer_will_go_off(world):
    """systemd lists the timer with its next date, and waits for it."""
    timer = _await_only_timer(world)
    listed = subprocess.check_output(["systemctl", "list-timers", "--no-legend", timer], text=True)
    seen = {"listed": listed, "state": _property(timer, "SubState")}
    if seen["state"] != "waiting" or not re.match(r"\w{3} \d{4}-", listed):
        raise Failed("a timer with a next date", seen)


@step("the timer will never go off")
def timer_will_never_go_off(world):
    """systemd has the timer, but no next date for it, and did not start what it would start."""
    timer = _await_only_timer(world)
    seen = {"state": _property(timer, "SubState"),
            "next": _property(timer, "NextElapseUSecRealtime"), "last": _property(timer, "LastTriggerUSec")}
    if seen != {"state": "elapsed", "next": "", "last": ""}:
        raise Failed("an active timer without a next and a last date", seen)


@step("remember the timer")
def remember_timer(world):
    """Keeps which timer is set, to be compared later."""
    world.remembered["timer"] = _await_only_timer(world)


@step("the timer is as remembered")
def timer_is_as_remembered(world):
    """It is still that one."""
    if _await_only_timer(world) != world.remembered["timer"]:
        raise Failed(world.remembered["timer"], _timers())


@step("the timer is another")
def timer_is_another(world):
    """Waits until there is another one in its place."""
    world.wait(f"another timer than {world.remembered['timer']}", lambda: _await_only_timer(world),
               lambda seen: seen != world.remembered["timer"])
