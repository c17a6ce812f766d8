# SPDX-License-Identifier: Apache-2.0
"""The sentences about settings. One function each; the first line of its text explains it in the help."""

import itertools
import subprocess

from failed import Failed
from steps import step

# It is always watched, and all that the daemon does about it is to log it.
_VIEWER = "memory/tv-viewer/viewer_state"
_states = itertools.count(1)


def _vconftool(*arguments):
    return subprocess.run(["vconftool", *arguments], capture_output=True, text=True, check=False)


def _change(*arguments):
    done = _vconftool(*arguments)
    if done.returncode != 0:
        raise Failed(f"vconftool {' '.join(arguments)} succeeds", done.stderr.strip())


def value_of(key):
    """What vconftool prints of a setting, such as "value = 3 (int)"; None when it has no value that can be read."""
    done = _vconftool("get", key)
    return done.stdout.rstrip("\n").removeprefix(f"{key}, ") if done.returncode == 0 else None


@step("setting {key} is set to {value:number}")
def setting_is_set(_world, key, value):
    """Sets a setting to an integer."""
    _change("set", "-f", "-t", "int", key, "--", str(value))


@step("setting {key} is set to {value:text}")
def setting_is_set_to_text(_world, key, value):
    """Sets a setting to a text."""
    _change("set", "-f", "-t", "string", key, "--", value)


@step("setting {key} is removed")
def setting_is_removed(_world, key):
    """Removes a setting."""
    _change("unset", key)


@step("setting {key} has the value {value:number}")
def setting_has_value(world, key, value):
    """Waits until a setting is that integer."""
    world.wait(f"{key} is {value}", lambda: value_of(key), lambda seen: seen == f"value = {value} (int)")


@step("setting {key} has no value")
def setting_has_no_value(world, key):
    """Waits until a setting has none, or one that can't be read."""
    world.wait(f"{key} has no value", lambda: value_of(key), lambda seen: seen is None)


@step("all settings have reached the daemon")
def settings_have_reached(world):
    """Waits until the daemon has done all that it does about what was set before; the viewer's state is another then."""
    # Changes that come together are told in any order, so the second of these comes after all others.
    for _ in range(2):
        state = f"state {next(_states)}"
        _change("set", "-f", "-t", "string", _VIEWER, state)
        world.wait(f"the daemon logs the viewer's {state}", lambda: [entry.text for _, entry in world.lines("ZEL_LITE")],
                   lambda seen, line=f"vconf tv-viewer state({state})": line in seen)
