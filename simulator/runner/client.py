# SPDX-License-Identifier: Apache-2.0
"""An application: one process with one connection to the system bus, doing what it is told on standard input.

Says its unique name first. Then each line in is a call, each line out its outcome: {"reply": hexadecimal bytes} or
{"error": D-Bus error name, "message": text}. Knows the wire only, nothing of the code on the other side.
"""

import json
import sys

import dbus
import dbus.bus

# One value of each type, for calls that are not what the method takes.
_SAMPLES = {"s": "x", "i": dbus.Int32(0), "x": dbus.Int64(0), "ay": dbus.ByteArray(b"")}


def _say(**outcome):
    print(json.dumps(outcome), flush=True)


def _call(bus, interface, method, signature, request):
    if signature == "siay":
        arguments = (interface, dbus.Int32(method), dbus.ByteArray(bytes.fromhex(request)))
    else:
        types = signature.replace("ay", "A")
        arguments = tuple(_SAMPLES["ay" if name == "A" else name] for name in types)
    return bus.call_blocking(
        "com.brenlow.ZELLite", "/com/brenlow/ZELLite/SignalObject", "com.brenlow.ZELLite.SignalIFace", "Call",
        signature, arguments, timeout=60, byte_arrays=True)


def main():
    bus = dbus.bus.BusConnection(dbus.bus.BusConnection.TYPE_SYSTEM)
    _say(name=bus.get_unique_name())
    for line in sys.stdin:
        try:
            _say(reply=bytes(_call(bus, **json.loads(line))).hex())
        except dbus.DBusException as error:
            _say(error=error.get_dbus_name(), message=error.get_dbus_message())


main()
