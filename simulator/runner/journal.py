# SPDX-License-Identifier: Apache-2.0
"""The journal of the box, as a list that grows.

Reads through libsystemd itself, because a follower of `journalctl` learns of a new line only a quarter of a second
later.
"""

import ctypes
import re
import subprocess

_FIELDS = ("MESSAGE", "PRIORITY", "SYSLOG_IDENTIFIER", "_PID", "_SYSTEMD_UNIT")
# A line of the daemon: source file, function, line of the source, text.
_DAEMON_LINE = re.compile(r"(?P<file>[^:]+): (?P<function>\S+)\((?P<line>\d+)\) > (?P<text>.*)", re.DOTALL)

_lib = ctypes.CDLL("libsystemd.so.0", use_errno=True)


def _check(result):
    if result < 0:
        raise OSError(-result, "reading the journal failed")
    return result


class Entry:
    """One line of the journal; what a field lacks is an empty text."""

    def __init__(self, fields, monotonic):
        self.message = fields.get("MESSAGE", "")
        self.priority = fields.get("PRIORITY", "")
        self.identifier = fields.get("SYSLOG_IDENTIFIER", "")
        self.pid = fields.get("_PID", "")
        self.unit = fields.get("_SYSTEMD_UNIT", "")
        self.monotonic = monotonic
        parts = _DAEMON_LINE.fullmatch(self.message) if self.identifier == "ZEL_LITE" else None
        self.function = parts["function"] if parts else ""
        self.text = parts["text"] if parts else self.message

    def __str__(self):
        return f"[{self.monotonic:11.6f}] {self.identifier}[{self.pid}]: {self.message}"


class Journal:
    """All lines since the box has booted, in `entries`; `read()` adds what is new."""

    def __init__(self):
        self.entries = []
        self._handle = ctypes.c_void_p()
        _check(_lib.sd_journal_open(ctypes.byref(self._handle), ctypes.c_int(1)))

    def read(self):
        """Adds the lines that have arrived since the last call."""
        _check(_lib.sd_journal_process(self._handle))
        while _check(_lib.sd_journal_next(self._handle)) > 0:
            self.entries.append(self._entry())

    def read_all(self):
        """Adds every line that was sent before this call, also those that the journal has not stored yet."""
        subprocess.run(["journalctl", "--sync"], check=True)
        self.read()

    def _entry(self):
        fields = {}
        for name in _FIELDS:
            data, size = ctypes.c_void_p(), ctypes.c_size_t()
            if _lib.sd_journal_get_data(self._handle, name.encode(), ctypes.byref(data), ctypes.byref(size)) >= 0:
                raw = ctypes.string_at(data, size.value)
                fields[name] = raw[len(name) + 1:].decode(errors="backslashreplace")
        microseconds, boot = ctypes.c_uint64(), (ctypes.c_uint8 * 16)()
        _check(_lib.sd_journal_get_monotonic_usec(self._handle, ctypes.byref(microseconds), boot))
        return Entry(fields, microseconds.value / 1e6)
