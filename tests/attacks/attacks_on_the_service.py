# SPDX-License-Identifier: Apache-2.0
"""Attacks on the starting and the ending of the service, and by the daemon itself once it is somebody else's."""

import ctypes
import errno
import os
import pathlib
import socket
import time

import wire
from application import DAEMON, OPEN, Application
from attack import Attack, known
from attacks_on_memory import TracesLeftBehind
from attacks_on_the_bus import CallsWithoutReply, LargeCallsWithoutReply
from television import Process, wait

MIB = 1024 * 1024


class _Starts(Attack):
    """The service is terminated and started again, many times."""

    traces_stay = False    # all are closed when the service terminates
    p99 = 2000             # openings that start the service wait for it
    report = 2000          # the report waits for such an opening
    starts = 8

    def prepare(self, television):
        television.service_can_be_terminated()
        # What the daemon opens at its first request to the service is no growth.
        television.terminate_service()

    def meanwhile(self, television):
        time.sleep(0.5)
        for start in range(self.starts):
            television.terminate_service()
            wait(f"start {start + 1} of the service", television.service_runs, 10)
            time.sleep(0.3)


def _names_of_the_daemon(me):
    """The unique names of the daemon's connections, as anybody can find them."""
    pid = me.bus("GetConnectionUnixProcessID", "s", DAEMON).body
    for number in range(60):
        name = f":1.{number}"
        try:
            if me.bus("GetConnectionUnixProcessID", "s", name).body == pid:
                yield name
        except wire.Refused:
            pass


def _send_descriptors(me, name, descriptor):
    """Sends a signal with as many descriptors as the bus carries in one."""
    me.signal(name, signature="h" * 16, body=wire.pack("h" * 16, *range(16)), descriptors=[descriptor] * 16)


@known
class SignalsToTheStartingConnection(_Starts):
    """Signals of 1 MB to the unique name of each of the daemon's connections, among them the one that is read only when
    the service is started."""

    def attack(self, number):
        me, large = wire.Connection(), wire.pack("ay", bytes(MIB))
        while True:
            for name in list(_names_of_the_daemon(me)):
                for _ in range(10):
                    me.signal(name, signature="ay", body=large)
            me.drop_what_came()


@known
class SignalsToEachNewConnection(_Starts):
    """Watches for new connections and sends each, at once, signals of 1 MB and signals with descriptors."""

    attackers = 2

    def attack(self, number):
        me, large = wire.Connection(descriptors=True), wire.pack("ay", bytes(MIB))
        null = os.open("/dev/null", os.O_RDONLY)
        me.bus("AddMatch", "s", "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged'")
        while True:
            news = me.receive(60)
            if news.member != "NameOwnerChanged":
                continue
            name, old, new = news.texts()
            if not name.startswith(":") or old or new == me.name:
                continue
            for _ in range(4):
                me.signal(new, signature="ay", body=large)
                _send_descriptors(me, new, null)


@known
class DescriptorsToTheControlConnection(_Starts):
    """The service starts slowly; meanwhile every new connection of the daemon gets signals with descriptors."""

    starts = 3
    # The service takes 1.5 s to start; openings and the report wait for it.
    p99 = 3000
    report = 3000

    def prepare(self, television):
        super().prepare(television)
        television.tell_service("start-delay-ms", "1500")

    def attack(self, number):
        me = wire.Connection(descriptors=True)
        null = os.open("/dev/null", os.O_RDONLY)
        while True:
            for name in list(_names_of_the_daemon(me)):
                for _ in range(40):
                    _send_descriptors(me, name, null)
            me.drop_what_came()


@known
class OpeningsWhileTheServiceHangs(Attack):
    """The service answers no trigger. Twenty connections open a session and leave. An honest application then calls for
    the state of the service: it waits for the one call that is being served, not for those of the twenty."""

    traces_stay = False    # all are closed when the service terminates
    # Until the call that is being served is given up, after 25 s, there is one thread that calls the service.
    limit = 27
    # The opening that is being served fails: it is answered with -2, if its caller is still there.
    failures = 1

    def prepare(self, television):
        television.service_can_be_terminated()
        television.terminate_service()

    def attack(self, number):
        while not pathlib.Path("/run/service-hangs").exists():
            time.sleep(0.01)
        held = [Application() for _ in range(20)]
        for each in held:
            each.call(OPEN)
        time.sleep(0.2)
        for each in held:
            each.close()
        pathlib.Path("/tmp/twenty-have-left").touch()
        time.sleep(120)

    def meanwhile(self, television):
        television.pause()
        television.terminate_service()
        television.tell_service("never-answer", "notify")
        pathlib.Path("/run/service-hangs").touch()
        wait("twenty have left", pathlib.Path("/tmp/twenty-have-left").exists)
        asker = Process("honest", "asker", user="honest", measuring=True)
        self._asked = asker.line()["asked"]
        television.tell_service("never-answer", "")
        asker.kill()
        television.go_on()

    def afterwards(self, television):
        _, seconds, outcome = self._asked
        yield f"the answer to the question, after at most {self.limit} s", outcome == 0 and seconds <= self.limit, \
            f"{outcome} after {seconds:.1f} s"


@known
class DoorsOfTheDaemon(Attack):
    """The daemon itself is the attacker's: it writes into the memory of the first process, and asks systemd at its own
    socket. What the daemon launches has the same rights, and tries."""

    attackers = 0
    seconds = 1

    _RESULT = pathlib.Path("/tmp/doors")

    def prepare(self, television):
        launcher = pathlib.Path("/usr/apps/zel-lite-app/bin/zel-lite-app-launch")
        launcher.parent.mkdir(parents=True, exist_ok=True)
        launcher.write_text("#!/bin/sh\nexec /usr/bin/python3 -B /run/attacks attacker doors-of-the-daemon 0\n")
        launcher.chmod(0o755)
        television.service_can_be_terminated()
        television.terminate_service()

    def attack(self, number):
        results = [self._memory("process_vm_readv"), self._memory("process_vm_writev"), self._socket()]
        self._RESULT.with_suffix(".new").write_text("\n".join(results))
        self._RESULT.with_suffix(".new").rename(self._RESULT)

    @staticmethod
    def _memory(call):
        """Reads or writes no bytes of process 1: a filter of system calls refuses that as well."""
        libc = ctypes.CDLL(None, use_errno=True)
        done = getattr(libc, call)(1, None, 0, None, 0, 0)
        return f"{call}: {'open' if done == 0 else errno.errorcode[ctypes.get_errno()]}"

    @staticmethod
    def _socket():
        with socket.socket(socket.AF_UNIX) as connection:
            try:
                connection.connect("/run/systemd/private")
                return "/run/systemd/private: open"
            except OSError as failure:
                return f"/run/systemd/private: {errno.errorcode[failure.errno]}"

    def meanwhile(self, television):
        wait("what was tried is written", self._RESULT.exists)

    def afterwards(self, television):
        for line in self._RESULT.read_text().splitlines():
            door, state = line.split(": ")
            yield f"{door} is closed", state != "open", state


@known
class StartsUnderEverything(_Starts):
    """The service is started again and again while four attackers send calls of 1 MB, leave traces of 1 MB behind, send
    signals to each new connection, and open and close sessions without waiting for replies."""

    attackers = 4
    starts = 6
    stays = 24    # MiB: what is within the budget stays

    def attack(self, number):
        (LargeCallsWithoutReply, TracesLeftBehind, SignalsToEachNewConnection, CallsWithoutReply)[number]().attack(0)
