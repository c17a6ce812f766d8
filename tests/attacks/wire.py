# SPDX-License-Identifier: Apache-2.0
"""The D-Bus wire on a plain socket, for what a library does not do: calls whose replies are never read, calls that want
none, descriptors, half a message. Knows no code of the daemon."""

import array
import os
import select
import socket
import struct
import time

CALL, REPLY, ERROR, SIGNAL = 1, 2, 3, 4
NO_REPLY = 1
BUS = "/run/dbus/system_bus_socket"
_BUS_NAME = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")
_PATH, _INTERFACE, _MEMBER, _ERROR_NAME, _REPLY_SERIAL, _DESTINATION, _SENDER, _SIGNATURE, _DESCRIPTORS = range(1, 10)


class Refused(Exception):
    """A call was answered with an error; its text is the error's name."""


class Lost(Exception):
    """The bus has closed the connection."""


class Silent(Exception):
    """No answer came in time."""


def _pad(data, size):
    return data + b"\0" * (-len(data) % size)


def _text(value):
    data = value.encode() if isinstance(value, str) else value
    return struct.pack("<I", len(data)) + data + b"\0"


def pack(signature, *values):
    """The bytes of a body. Of the types: s, o, g, i, u, x, h, ay."""
    data = b""
    for kind, value in zip(signature.replace("ay", "A"), values, strict=True):
        if kind == "g":
            data += struct.pack("<B", len(value)) + value.encode() + b"\0"
        elif kind == "x":
            data = _pad(data, 8) + struct.pack("<q", value)
        elif kind in "so":
            data = _pad(data, 4) + _text(value)
        elif kind == "A":
            data = _pad(data, 4) + struct.pack("<I", len(value)) + value
        else:
            data = _pad(data, 4) + struct.pack("<i" if kind == "i" else "<I", value)
    return data


def message(kind, serial, body=b"", signature="", flags=0, descriptors=0, reply_serial=0, **fields):
    """The bytes of a message; `fields` are path, interface, member, destination, error."""
    codes = {"path": (_PATH, "o"), "interface": (_INTERFACE, "s"), "member": (_MEMBER, "s"),
             "destination": (_DESTINATION, "s"), "error": (_ERROR_NAME, "s")}
    header = [(*codes[name], _text(value)) for name, value in fields.items() if value]
    if signature:
        header.append((_SIGNATURE, "g", struct.pack("<B", len(signature)) + signature.encode() + b"\0"))
    if descriptors:
        header.append((_DESCRIPTORS, "u", struct.pack("<I", descriptors)))
    if reply_serial:
        header.append((_REPLY_SERIAL, "u", struct.pack("<I", reply_serial)))
    array_ = b""
    for code, type_, value in header:
        array_ = _pad(array_, 8) + bytes((code, 1)) + type_.encode() + b"\0" + value
    start = struct.pack("<cBBBIII", b"l", kind, flags, 1, len(body), serial, len(array_))
    return _pad(start + array_, 8) + body


class Message:
    """A message that has arrived."""

    def __init__(self, data, body_at):
        self.kind = data[1]
        self.serial = struct.unpack_from("<I", data, 8)[0]
        self.body = data[body_at:]
        self.reply_serial = 0
        self.member = self.sender = self.error = ""
        end, at = 16 + struct.unpack_from("<I", data, 12)[0], 16
        while at < end:
            at += -at % 8
            code, type_ = data[at], chr(data[at + 2])
            at += 4
            if type_ == "g":
                at += 2 + data[at]
                continue
            number = struct.unpack_from("<I", data, at)[0]
            if type_ == "u":
                at += 4
                if code == _REPLY_SERIAL:
                    self.reply_serial = number
                continue
            text = data[at + 4:at + 4 + number]
            at += 5 + number
            if code == _MEMBER:
                self.member = text.decode()
            elif code == _SENDER:
                self.sender = text.decode()
            elif code == _ERROR_NAME:
                self.error = text.decode()

    def texts(self):
        """The texts that its body begins with."""
        found, at = [], 0
        while at + 4 <= len(self.body):
            length = struct.unpack_from("<I", self.body, at)[0]
            found.append(self.body[at + 4:at + 4 + length].decode())
            at += 5 + length
            at += -at % 4
        return found


class Connection:
    """A connection to the system bus that has said who it is."""

    def __init__(self, descriptors=False, receive_buffer=None):
        self.socket = socket.socket(socket.AF_UNIX)
        if receive_buffer:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.socket.connect(BUS)
        self._unread = bytearray()
        self._serial = 0
        self._authenticate(descriptors)
        self.name = self.bus("Hello").texts()[0]

    def _authenticate(self, descriptors):
        self.socket.sendall(b"\0AUTH EXTERNAL " + str(os.geteuid()).encode().hex().encode() + b"\r\n")
        self._line()
        if descriptors:
            self.socket.sendall(b"NEGOTIATE_UNIX_FD\r\n")
            self._line()
        self.socket.sendall(b"BEGIN\r\n")

    def _line(self):
        line = b""
        while not line.endswith(b"\r\n"):
            byte = self.socket.recv(1)
            if not byte:
                raise Lost("during authentication")
            line += byte
        return line

    def serial(self):
        self._serial += 1
        return self._serial

    def send(self, data, descriptors=()):
        """Sends the bytes of a message; blocks while the bus does not read."""
        if descriptors:
            passed = [(socket.SOL_SOCKET, socket.SCM_RIGHTS, array.array("i", descriptors))]
            data = data[self.socket.sendmsg([data], passed):]
        self.socket.sendall(data)

    def signal(self, destination, path="/x", interface="x.y", member="Z", signature="", body=b"", descriptors=()):
        """Sends a signal, to one connection or, without a destination, to all that have asked for it."""
        self.send(message(SIGNAL, self.serial(), body, signature, NO_REPLY, len(descriptors), path=path,
                          interface=interface, member=member, destination=destination), descriptors)

    def receive(self, limit):
        """The next message."""
        end = time.monotonic() + limit
        while True:
            size = self._size()
            if size is not None and len(self._unread) >= size[1]:
                data = bytes(self._unread[:size[1]])
                del self._unread[:size[1]]
                return Message(data, size[0])
            if not select.select([self.socket], [], [], max(0, end - time.monotonic()))[0]:
                raise Silent(f"nothing within {limit} s")
            self._read()

    def _read(self):
        try:
            data = self.socket.recv(1 << 20)
        except ConnectionError as failure:
            raise Lost(str(failure)) from None
        if not data:
            raise Lost("closed")
        self._unread += data

    def _size(self):
        """Where the body of the first unread message begins and where it ends; None while that is unknown."""
        if len(self._unread) < 16:
            return None
        body, _, fields = struct.unpack_from("<III", self._unread, 4)
        at = 16 + fields
        at += -at % 8
        return at, at + body

    def answer(self, serial, limit):
        """The reply to a call; everything else that arrives meanwhile is dropped."""
        end = time.monotonic() + limit
        while True:
            got = self.receive(max(0, end - time.monotonic()))
            if got.reply_serial == serial:
                if got.kind == ERROR:
                    raise Refused(got.error)
                return got

    def bus(self, member, signature="", *values, limit=30):
        """Calls a method of the bus itself."""
        serial = self.serial()
        name, path, interface = _BUS_NAME
        self.send(message(CALL, serial, pack(signature, *values), signature, path=path, interface=interface,
                          member=member, destination=name))
        return self.answer(serial, limit)

    def drop_what_came(self):
        """Reads what has arrived and forgets it."""
        self._unread.clear()
        try:
            while len(self.socket.recv(1 << 20, socket.MSG_DONTWAIT)) == 1 << 20:
                pass
        except BlockingIOError:
            pass

    def close(self):
        self.socket.close()
