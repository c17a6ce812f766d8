# SPDX-License-Identifier: Apache-2.0
"""Attacks with what the daemon must remember, and with what it has to answer."""

import time

from application import CLOSE_TRACE, OPEN, OPEN_TRACE, REPORT, Application, trace
from attack import Attack, known

MIB = 1024 * 1024
LARGE = b"x" * (MIB - 64)    # the largest text of a trace, nearly
WITHIN_THE_BUDGET = 24       # MiB: what applications make the daemon remember is up to 16, the rest is the allocator's
FULL_REPORT = 100            # ms for which the bus carries the report of a full budget; other replies wait behind it


PART = 100_000               # bytes: ten such traces are about what one session may have


def _open_traces(application, traces, text):
    for number in range(traces):
        application.call(OPEN_TRACE, trace(number, text), reply=False)
    application.status(OPEN_TRACE, trace(traces, "the last"))


def _fill(mib, byte=b"x"):
    """Makes the daemon remember that much, and returns the connections that hold it."""
    held = []
    for _ in range(mib):
        held.append(Application())
        _open_traces(held[-1], 10, byte * PART)
    return held


@known
class TracesLeftBehind(Attack):
    """Opens fifty traces of 1 MB without a session, leaves, and comes again. The traces of those who have left stay."""

    stays = WITHIN_THE_BUDGET

    def attack(self, number):
        while True:
            me = Application()
            _open_traces(me, 49, LARGE)
            me.close()


@known
class TracesLeftBehindByMany(Attack):
    """The same with connections that leave ten traces of 100 KB each."""

    stays = WITHIN_THE_BUDGET
    p99 = FULL_REPORT

    def attack(self, number):
        while True:
            for each in _fill(1):
                each.close()


@known
class TextsThatGrowInTheReport(Attack):
    """Thirty connections hold 1 MB of traces each. The texts are control characters: six bytes each in JSON."""

    stays = WITHIN_THE_BUDGET
    p99 = FULL_REPORT

    def attack(self, number):
        _held = _fill(30, b"\x01")
        time.sleep(60)


@known
class TracesOpenedAndClosed(Attack):
    """Opens a trace of 1 MB and closes it, again and again. Closed traces stay for a while."""

    stays = WITHIN_THE_BUDGET

    def attack(self, number):
        me, each = Application(), 0
        while True:
            me.call(OPEN_TRACE, trace(each, LARGE), reply=False)
            me.status(CLOSE_TRACE, each.to_bytes(8, "little"))
            each += 1


@known
class ForgetfulApplications(Attack):
    """Two thousand applications come, open a trace of 2 KB each, and leave without closing it. Each is honest."""

    seconds = 5
    stays = WITHIN_THE_BUDGET

    def attack(self, number):
        for _ in range(2000):
            me = Application()
            me.status(OPEN_TRACE, trace(1, "x" * 2048))
            me.close()


@known
class ReportsNotRead(Attack):
    """Fills the report with 24 MB, calls for it 128 times and reads no answer, from two processes."""

    attackers = 2
    seconds = 6
    stays = WITHIN_THE_BUDGET
    p99 = FULL_REPORT

    def attack(self, number):
        me, _held = Application(), _fill(24)
        for _ in range(128):
            me.call(REPORT)
        time.sleep(60)


@known
class ReportsKeptOnTheBus(Attack):
    """Fills the report with 16 MB and calls for it ten times without reading, which is more than the bus keeps for one
    connection, and then does nothing more."""

    stays = WITHIN_THE_BUDGET
    p99 = FULL_REPORT

    def attack(self, number):
        me, _held = Application(receive_buffer=4096), _fill(16)
        for _ in range(10):
            me.call(REPORT)
        time.sleep(60)


@known
class SlowReaderAndFastCaller(Attack):
    """One connection fills the report with 8 MB, calls for it without end and reads the answers 4 KB at a time; another
    calls as fast as it is answered."""

    attackers = 2
    stays = WITHIN_THE_BUDGET
    p99 = FULL_REPORT

    def attack(self, number):
        me = Application(receive_buffer=4096)
        if number == 1:
            while True:
                me.status(OPEN)
        _held = _fill(8)
        me.socket.setblocking(False)
        while True:
            try:
                me.call(REPORT)
            except BlockingIOError:
                pass
            try:
                me.socket.recv(4096)
            except BlockingIOError:
                pass
            time.sleep(0.01)


@known
class ManyConnectionsWithOneTraceEach(Attack):
    """A thousand connections hold a session and a trace of 16 KB each, and end all at once."""

    seconds = 6
    stays = WITHIN_THE_BUDGET
    p99 = 150              # a record costs a line of the log besides, in each report
    report = 400    # ms: a thousand records are a thousand lines of the log

    def attack(self, number):
        held = []
        for _ in range(1000):
            held.append(Application())
            held[-1].status(OPEN)
            held[-1].status(OPEN_TRACE, trace(1, "x" * 16384))
        time.sleep(60)


@known
class TextsThatLookLikeSomethingElse(Attack):
    """Traces whose texts are ids of windows' sessions, ends of the JSON document, control characters and bytes that are
    no UTF-8."""

    seconds = 3

    def attack(self, number):
        texts = [b"##_WM_USE_HINTS_WIN__winID_1", b'"}]}]}', b"\\u0000\\", b"\0\0\0", b"\n\r\t\x1b[2J",
                 b"\xff\xfe\xc0\xaf", b"\xed\xa0\x80",
                 b"##_LAST_TERMINATE_ERRORS", "\u202e".encode(), b'","StackTrace":"observer 9']
        me = Application()
        me.status(OPEN)
        while True:
            for each, text in enumerate(texts):
                me.status(OPEN_TRACE, trace(each, text * 10))
            for each in range(len(texts)):
                me.status(CLOSE_TRACE, each.to_bytes(8, "little"))
            time.sleep(0.02)


@known
class FullBudgetThenARestart(Attack):
    """Two processes fill what the daemon may remember; a third makes a folder where the daemon writes its sessions whenever
    there is nothing. Then the daemon is killed, twice."""

    attackers = 3
    stays = WITHIN_THE_BUDGET
    report = 400           # the daemon starts twice meanwhile
    p99 = 150
    traces_stay = False    # the daemon remembers sessions over a restart, and no traces

    def attack(self, number):
        from attacks_on_files import race_with_folders
        if number == 2:
            race_with_folders()
        while True:
            try:
                for each in _fill(5):
                    each.close()
            except Exception:  # noqa: BLE001  the daemon has been killed
                time.sleep(0.1)

    def meanwhile(self, television):
        for _ in range(2):
            time.sleep(2)
            television.pause()
            television.kill_daemon()
            television.go_on()
        time.sleep(1)
