# SPDX-License-Identifier: Apache-2.0
"""Attacks with messages: their size, their number, their descriptors, and to whom they go."""

import os
import select
import socket
import struct
import subprocess
import time

import wire
from application import CLOSE, DAEMON, IS_TERMINATED, OPEN, Application
from attack import Attack, known
from television import switch

MIB = 1024 * 1024
UNKNOWN = 99    # a method that the daemon does not have


@known
class DescriptorsWhileThePidIsAsked(Attack):
    """Sends a call of 1 MB, the first call of a new connection, then 150 calls with 16 descriptors each, repeatedly.
    While the daemon waits for the bus to name the process of the new connection, it holds every descriptor that arrives
    before that answer."""

    def attack(self, number):
        null = os.open("/dev/null", os.O_RDONLY)
        while True:
            large, carriers = Application(), [Application(descriptors=True) for _ in range(3)]
            fresh = [Application() for _ in range(4)]
            for new in fresh:
                large.call(UNKNOWN, bytes(MIB - 64), reply=False)
                new.call(UNKNOWN, reply=False)
                for _ in range(50):
                    for carrier in carriers:
                        carrier.call(UNKNOWN, reply=False, descriptors=[null] * 16)
            for each in (large, *carriers, *fresh):
                each.close()


@known
class LargeCallsWithoutReply(Attack):
    """Three connections send calls of 1 MB that the daemon refuses, without reply. The queue of the bus for the daemon
    fills, and the bus drops what others send, also the news that a connection has left."""

    def attack(self, number):
        callers = [Application() for _ in range(3)]
        while True:
            for caller in callers:
                caller.call(UNKNOWN, bytes(MIB - 64), reply=False)


@known
class CallsOfTheLargestSize(Attack):
    """Calls as large as the bus carries, without reply."""

    growth = 40    # a message is read in one piece, and the bus carries 32 MiB
    p99 = 150      # the bus itself has that message in its hands for as long

    def attack(self, number):
        me, large = Application(), bytes(32 * MIB - 4096)
        while True:
            me.call(UNKNOWN, large, reply=False)


def _batch(application, methods):
    """The bytes of a few hundred calls that want no reply."""
    calls = b""
    for method in methods:
        body = wire.pack("siay", "com.brenlow.ISessionControl", method, b"")
        calls += wire.message(wire.CALL, application.serial(), body, "siay", wire.NO_REPLY, destination=DAEMON,
                              path="/com/brenlow/ZELLite/SignalObject", interface="com.brenlow.ZELLite.SignalIFace",
                              member="Call")
    return calls


@known
class CallsWithoutReply(Attack):
    """Opens and closes a session as fast as the bus takes the calls, and wants no reply."""

    seconds = 6

    def attack(self, number):
        me = Application()
        calls = _batch(me, [OPEN, CLOSE] * 200)
        while True:
            me.send(calls)


@known
class CallsWithoutReplyOnASetThatSavesMemory(CallsWithoutReply):
    """The same where each end of the last session asks for the service's termination. There is no other session."""

    observed = False
    leaver = False
    p99 = 200       # an opening or an end of the last session waits for systemd or the service, and others wait for it
    report = 1000

    def prepare(self, television):
        switch("zel_lite_aggressive_terminate")
        television.restart_daemon()


@known
class NeighboursOfTheSameUser(Attack):
    """A hundred connections, each calling as fast as it is answered; the honest application is of the same user."""

    regular_user = "nobody"

    def attack(self, number):
        callers = {each.socket: each for each in (Application() for _ in range(100))}
        for caller in callers.values():
            caller.call(OPEN)
        while True:
            for ready in select.select(list(callers), [], [])[0]:
                callers[ready].drop_what_came()
                callers[ready].call(OPEN)


@known
class MessagesCutShort(Attack):
    """Connections that end in the middle of a message: in its header, its fields, or its body."""

    attackers = 2

    def attack(self, number):
        while True:
            for part in (7, 40, 300, MIB // 2):
                me = Application()
                body = wire.pack("siay", "com.brenlow.ISessionControl", OPEN, bytes(MIB - 64))
                me.socket.sendall(wire.message(
                    wire.CALL, 2, body, "siay", destination=DAEMON, path="/com/brenlow/ZELLite/SignalObject",
                    interface="com.brenlow.ZELLite.SignalIFace", member="Call")[:part])
                me.close()


@known
class OpeningsThatVanish(Attack):
    """Opens a session and leaves before the answer, thousands of times: also of those nothing may stay."""

    def attack(self, number):
        while True:
            me = Application()
            me.call(OPEN, reply=False)
            me.close()


@known
class ForgedNews(Attack):
    """Signals as the bus and systemd send them, to everybody and to each connection of the daemon: that the owners of
    sessions have left, that jobs are done, that the set goes to sleep."""

    attackers = 2

    def attack(self, number):
        me = wire.Connection()
        names = [f":1.{each}" for each in range(60)]
        while True:
            for name in names:
                for to in (None, DAEMON, *names[:15]):
                    me.signal(to, "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged", "sss",
                              wire.pack("sss", name, name, ""))
                me.signal(None, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager", "JobRemoved", "uoss",
                          wire.pack("uoss", 1, "/org/freedesktop/systemd1/job/1", "zel_deamon.service", "failed"))
                me.signal(None, "/org/freedesktop/login1", "org.freedesktop.login1.Manager", "PrepareForSleep", "u",
                          struct.pack("<I", 1))
            me.drop_what_came()


@known
class AnswersToCallsNeverMade(Attack):
    """Replies and errors to each connection of the daemon, with serial numbers that its calls may have."""

    def attack(self, number):
        me = wire.Connection()
        while True:
            for name in range(30):
                for serial in range(1, 200):
                    me.send(wire.message(wire.REPLY, me.serial(), wire.pack("u", os.getpid()), "u", wire.NO_REPLY,
                                         reply_serial=serial, destination=f":1.{name}"))
                    me.send(wire.message(wire.ERROR, me.serial(), wire.pack("s", "x"), "s", wire.NO_REPLY,
                                         reply_serial=serial, destination=f":1.{name}", error="x.y.Z"))
                me.drop_what_came()


@known
class ThousandsOfMatchRules(Attack):
    """Twenty connections ask the bus for news of 500 names each, then come and go so that there is news."""

    def attack(self, number):
        held = [wire.Connection() for _ in range(20)]
        for connection in held:
            for each in range(500):
                rule = f"type='signal',member='NameOwnerChanged',arg0='x.y{each}'"
                connection.send(wire.message(
                    wire.CALL, connection.serial(), wire.pack("s", rule), "s", wire.NO_REPLY,
                    destination="org.freedesktop.DBus", path="/org/freedesktop/DBus", interface="org.freedesktop.DBus",
                    member="AddMatch"))
        while True:
            wire.Connection().close()


@known
class LinesOfTheLog(Attack):
    """Calls whose only effect is a line in the log, as fast as they are answered, from ten connections."""

    seconds = 5

    def attack(self, number):
        callers = {each.socket: each for each in (Application() for _ in range(10))}
        for caller in callers.values():
            caller.call(IS_TERMINATED)
        while True:
            for ready in select.select(list(callers), [], [])[0]:
                callers[ready].drop_what_came()
                callers[ready].call(IS_TERMINATED)

    def prepare(self, television):
        self._since = television.cursor()

    def afterwards(self, television):
        lines = television.lines(self._since)
        asked = sum("Is ZEL terminated" in line for line in lines)
        # The unit allows 5,000 lines of a priority in 10 seconds; journald allows up to six times that while it has
        # room.
        bound = 30_000
        yield f"lines that the attacker caused, up to {bound}", asked <= bound, asked
        first = next((index for index, line in enumerate(lines) if "Is ZEL terminated" in line), 0)
        quiet = sum("Opened session" in line for line in lines[:first])
        yield "honest openings in the log before it", quiet >= 15, quiet


@known
class DefaultIdOfATraceTaken(Attack):
    """Listens at the addresses where zelctl of another user would hold its next traces under its process id."""

    def attack(self, number):
        held = []
        for each in range(os.getpid(), os.getpid() + 3000):
            listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
            listener.bind(f"\0zelctl/1001/trace/{each}")
            held.append(listener)
        time.sleep(60)

    def meanwhile(self, television):
        time.sleep(1)
        self._held = self._said = 0
        for _ in range(5):
            holder = subprocess.Popen(["zelctl", "trace", "open", "a reason"], user=1001, group=1001, extra_groups=[],
                                      stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
            try:
                holder.wait(0.5)
                self._said = holder.stderr.read().decode().strip()
            except subprocess.TimeoutExpired:
                self._held += 1
            holder.kill()
            holder.wait()

    def afterwards(self, television):
        yield "traces that zelctl could hold, of 5", self._held == 5, f"{self._held} {self._said or ''}"
