# SPDX-License-Identifier: Apache-2.0
"""Sentences of a scenario and the functions behind them.

A step is declared by a sentence with places in braces:

    @step("file {path} is absent")
    def file_is_absent(world, path): ...

A place takes one word; {name:text} takes a quoted text, {name:number} an integer, {name:rest} the rest of the line,
{name:step} another sentence. The function acts, or waits for what must be seen; it raises Failed when that does not
come. A text that it gives back is shown below the line.
"""

import re

_KINDS = {
    "word": (r"\S+?", str),
    "text": (r'"[^"]*"', lambda text: text[1:-1]),
    "number": (r"-?\d+", int),
    "rest": (r".+", str),
}

_steps = []


def find(line):
    """What to call for a line of a scenario, or None when it matches no sentence, or more than one."""
    found = []
    for _, pattern, converters, function in _steps:
        match = pattern.fullmatch(line)
        if match:
            arguments = {name: convert(match[name]) for name, convert in converters.items()}
            if None not in arguments.values():
                found.append(lambda world, function=function, arguments=arguments: function(world, **arguments))
    return found[0] if len(found) == 1 else None


# A place for another sentence holds what to call for that; without one the line means nothing.
_KINDS["step"] = (r".+", find)


def step(sentence):
    """Declares the decorated function as what the sentence means."""
    def declare(function):
        pattern, converters = "", {}
        for part in re.split(r"(\{[^}]+\})", sentence):
            if part.startswith("{"):
                name, _, kind = part[1:-1].partition(":")
                expression, converters[name] = _KINDS[kind or "word"]
                pattern += f"(?P<{name}>{expression})"
            else:
                pattern += re.escape(part)
        _steps.append((sentence, re.compile(pattern), converters, function))
        return function
    return declare


def sentences():
    """All sentences with what they mean, for the help."""
    return [(sentence, (function.__doc__ or "").strip()) for sentence, _, _, function in _steps]
