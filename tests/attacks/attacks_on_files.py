# SPDX-License-Identifier: Apache-2.0
"""Attacks with what is planted in /tmp."""

import itertools
import os
import pathlib
import shutil
import socket
import time

from application import STATE_FILE, Application, sessions
from attack import Attack, known
from television import RUNNING_MARKER, wait

TEMPORARY = "/tmp/zel_lite_sessions_state_tmp.txt"
TARGET = pathlib.Path("/run/planted-target")    # where planted links lead: a file of root's


def _file(path):
    os.close(os.open(path, os.O_CREAT | os.O_EXCL | os.O_WRONLY, 0o666))


def _link(path):
    os.symlink(TARGET, path)


def _fifo(path):
    os.mkfifo(path, 0o666)


def _socket(path):
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(path)


def _folder(path):
    os.mkdir(path, 0o777)


def _filled_folder(path):
    os.mkdir(path, 0o700)
    pathlib.Path(path, "inside").touch()


_NO_LINKS = (_file, _fifo, _socket, _folder, _filled_folder)


def _take_away(path):
    """Removes what the attacker has planted, if it is there still."""
    try:
        if os.path.isdir(path) and not os.path.islink(path):
            shutil.rmtree(path)
        else:
            os.unlink(path)
    except OSError:
        pass


def _planted(path, plant):
    """Plants something, unless there is something already."""
    try:
        plant(str(path))
        return True
    except OSError:
        return False


def race_with_folders():
    """Makes a folder where the daemon writes its sessions whenever there is nothing."""
    while True:
        _planted(TEMPORARY, _folder)


@known
class PlantedRunningMarker(Attack):
    """While the service is terminated, plants a file, a FIFO, a socket, a folder or a link where the daemon keeps the
    mark that the service runs. Then the daemon is killed and starts again: the next opening must start the service."""

    traces_stay = False     # all are closed when the service terminates
    p99 = 2000              # openings that start the service wait for it
    report = 2000           # the report waits for such an opening
    failures = 1            # the trigger that finds a link fails, as one that cannot set its mark

    def prepare(self, television):
        TARGET.write_text("of root's\n")
        television.service_can_be_terminated()

    def attack(self, number):
        kinds = itertools.cycle((*_NO_LINKS, _link))
        kind = next(kinds)
        while True:
            if _planted(RUNNING_MARKER, kind):
                kind = next(kinds)
            time.sleep(0.001)

    def meanwhile(self, television):
        for _ in range(6):
            television.pause()
            television.terminate_service()
            wait("something is planted", lambda: os.path.lexists(RUNNING_MARKER))
            kind = "link" if RUNNING_MARKER.is_symlink() else oct(os.lstat(RUNNING_MARKER).st_mode)
            television.kill_daemon()
            television.go_on()
            wait(f"the service is started although something ({kind}) is at its mark", television.service_runs, 5)

    def afterwards(self, television):
        yield "the file behind the link is as before", TARGET.read_text() == "of root's\n", TARGET.read_text().strip()


@known
class PlantedAtTheStateFile(Attack):
    """Plants a file, a FIFO, a socket, a folder and a filled folder at the path of the state file, which is free while
    there is no session, and at that of the file that becomes it."""

    observed = False    # with a session open the path is never free
    leaver = False
    seconds = 5

    def attack(self, number):
        while True:
            for path in (TEMPORARY, STATE_FILE):
                for kind in _NO_LINKS:
                    while not _planted(path, kind):
                        pass
                    time.sleep(0.2)
                    _take_away(path)


@known
class PlantedLinks(Attack):
    """Plants links to a file of root's at the paths of the state file and of the file that becomes it, twice a second.
    Each costs the daemon at most the one save that finds it."""

    observed = False
    leaver = False
    unsaved = 10    # a save that finds a link fails; the next one succeeds
    seconds = 5

    def prepare(self, television):
        TARGET.write_text("of root's\n")

    def attack(self, number):
        while True:
            _planted(TEMPORARY, _link)
            _planted(STATE_FILE, _link)
            time.sleep(0.5)

    def afterwards(self, television):
        yield "the file behind the links is as before", TARGET.read_text() == "of root's\n", TARGET.read_text().strip()


@known
class RacedAtTheStateFile(Attack):
    """Two processes make and remove FIFOs, folders, sockets and files at the path of the file that becomes the state
    file, as fast as they can."""

    attackers = 2

    def attack(self, number):
        while True:
            for kind in _NO_LINKS:
                if _planted(TEMPORARY, kind):
                    _take_away(TEMPORARY)


class _PutBack(Attack):
    """What both ways of putting an old state file back have in common: an application had a session once and has none
    now. Its connection stays, so the session in the old file would count as open."""

    observed = False    # with a session open the path is never free
    leaver = False
    folder = pathlib.Path("/tmp/kept-by-a-stranger")

    def put_back(self):
        raise NotImplementedError

    def attack(self, number):
        self.folder.mkdir()
        while not pathlib.Path("/run/put-back").exists():
            time.sleep(0.005)
        self.put_back()
        time.sleep(60)

    def meanwhile(self, television):
        wait("the attacker's folder", self.folder.exists)
        television.pause()
        once = Application()
        once.status(0)
        self._name = once.name
        # The attacker does this where the kernel does not forbid it (fs.protected_hardlinks=0); here it may.
        os.link(STATE_FILE, self.folder / "old")
        once.status(1)
        wait("no session is left", lambda: not os.path.exists(STATE_FILE))
        self.prepare_file()
        pathlib.Path("/run/put-back").touch()
        wait("the old state file is back", lambda: os.path.exists(STATE_FILE))
        television.kill_daemon()
        new = Application()
        new.status(0)
        self._seen = sessions()
        new.status(1)
        television.go_on()
        time.sleep(1)
        self._once = once

    def prepare_file(self):
        """As root: what the kernel may forbid the attacker."""

    def afterwards(self, television):
        yield "the old session is not open again", self._name not in self._seen, self._seen


@known
class OldStateFileLinkedBack(_PutBack):
    """Keeps a second name of the state file while a session is open, and gives the file its first name again when the
    session is closed. Then the daemon is killed and starts again."""

    def prepare_file(self):
        os.link(self.folder / "old", STATE_FILE)

    def put_back(self):
        pass


@known
class OldStateFileMovedBack(_PutBack):
    """Keeps a second name of the state file in a folder of its own and moves it back when the session is closed: then
    the file has one name again. Then the daemon is killed and starts again."""

    def put_back(self):
        os.rename(self.folder / "old", STATE_FILE)


@known
class ConnectionsThatLeaveWhileTheDaemonIsDown(Attack):
    """Fifty connections of one process hold sessions. While the daemon does not run they leave; the process stays."""

    traces_stay = False    # the daemon remembers sessions over a restart, and no traces

    def attack(self, number):
        held = [Application() for _ in range(50)]
        for each in held:
            each.status(0)
        pathlib.Path("/tmp/all-are-open").touch()
        while not pathlib.Path("/run/daemon-is-down").exists():
            time.sleep(0.005)
        for each in held:
            each.close()
        pathlib.Path("/tmp/all-have-left").touch()
        time.sleep(120)

    def meanwhile(self, television):
        television.pause()
        wait("fifty sessions", pathlib.Path("/tmp/all-are-open").exists)
        television.stop_daemon()
        pathlib.Path("/run/daemon-is-down").touch()
        wait("they have left", pathlib.Path("/tmp/all-have-left").exists)
        television.start_daemon()
        television.go_on()
        wait("the fifty sessions are closed while the process lives", lambda: len(sessions()) < 10, 20)
