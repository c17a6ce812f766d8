# SPDX-License-Identifier: Apache-2.0
"""The sentences about settings. One function each; the first line of its text explains it in the help."""

import subprocess

from failed import Failed
from steps import step


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
