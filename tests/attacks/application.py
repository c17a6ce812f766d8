# SPDX-License-Identifier: Apache-2.0
"""An application: a connection to the bus that makes the calls of applications."""

import os
import stat
import struct

import wire

OPEN, CLOSE, REPORT, OPEN_TRACE, CLOSE_TRACE, IS_TERMINATED = range(6)
DAEMON = "com.brenlow.ZELLite"
STATE_FILE = "/tmp/zel_lite_sessions_state.txt"


def trace(number, text):
    """The request that opens a trace."""
    text = text.encode() if isinstance(text, str) else text
    return struct.pack("<qi", number, len(text)) + text + struct.pack("<i", 1)


def sessions():
    """The ids of the sessions in the state file, none when there is no such file of root's."""
    try:
        file = os.open(STATE_FILE, os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK)
    except OSError:
        return []
    try:
        status = os.fstat(file)
        if not stat.S_ISREG(status.st_mode) or status.st_uid != 0:
            return []
        data = os.read(file, status.st_size)
    finally:
        os.close(file)
    found, at = [], 4
    for number in range(3 * struct.unpack_from("=i", data)[0]):
        length = struct.unpack_from("=i", data, at)[0]
        if number % 3 == 0:
            found.append(data[at + 4:at + 4 + length].decode())
        at += 4 + length
    return found


class Application(wire.Connection):
    """A connection with the calls that the daemon takes."""

    def call(self, method, request=b"", reply=True, descriptors=()):
        """Begins a call and returns its serial number."""
        serial = self.serial()
        signature = "siay" + "h" * len(descriptors)
        body = wire.pack(signature, "com.brenlow.ISessionControl", method, request, *range(len(descriptors)))
        self.send(
            wire.message(wire.CALL, serial, body, signature, 0 if reply else wire.NO_REPLY, len(descriptors),
                         path="/com/brenlow/ZELLite/SignalObject", interface="com.brenlow.ZELLite.SignalIFace",
                         member="Call", destination=DAEMON), descriptors)
        return serial

    def ask(self, method, request=b"", limit=60):
        """Makes a call and returns the bytes of its reply; they begin with a status."""
        body = self.answer(self.call(method, request), limit).body
        return body[4:4 + struct.unpack_from("<I", body)[0]]

    def status(self, method, request=b"", limit=60):
        """Makes a call and returns the status: 0, or -2."""
        return struct.unpack_from("<i", self.ask(method, request, limit))[0]

    def report(self, limit=60):
        """The report, as bytes."""
        return self.ask(REPORT, limit=limit)[8:]
