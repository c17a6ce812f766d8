# SPDX-License-Identifier: Apache-2.0
"""Builds and runs the unit test programs: once unchanged, then once for each mutant, with as little work as possible.

Bench builds a copy of the tree and learns from ninja and the linker which objects a program consists of and which files
an object depends on. A Worker has its own copy of src/; it compiles the objects that depend on the changed file, links
them with the objects of the unchanged build, and runs the programs until one fails.
"""

import contextlib
import filecmp
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import threading
import time
from collections import Counter, namedtuple

_COMPILER_FLAGS = "-O0 -g0"
_COMPILE_LIMIT = 120     # seconds
# Seconds that a test program may always take. A test that waits in vain for ten seconds, and the next one too, must come
# to its verdict.
_SHORTEST_LIMIT = 60
# A mutant that allocates without end must not take the machine with it.
_LIMITED = ["prlimit", "--as=4294967296", "--core=0", "--"]
_INCLUDE = re.compile(r"^#include <.+>$", re.MULTILINE)
_MEMBER = re.compile(r"\(?([^()]+\.a)[()](.+\.o)\)?")
_FAILED = re.compile(r"^\[  FAILED  \] ([\w/.]+)", re.MULTILINE)
_RUN = re.compile(r"^\[ RUN      \] ([\w/.]+)", re.MULTILINE)
_NOT_COPIED = {".git", "__pycache__"}

Result = namedtuple("Result", "verdict detail")


class Broken(Exception):
    """The unchanged tree does not build or does not pass, so no mutant can be judged."""


class Stopped(Exception):
    """The run ends before its time."""


class Program:
    """A test program: how it is linked, from which objects, and how long it runs unchanged."""

    def __init__(self, name, path, link, objects):
        self.name, self.path, self.link, self.objects = name, path, link, objects
        self.seconds = 0.0

    def limit(self):
        return max(_SHORTEST_LIMIT, 5 * self.seconds)


class Bench:
    """The unchanged build. Its public members do not change after construction, except for the count of kills."""

    def __init__(self, source, folder, jobs):
        self.source, self.jobs = source, jobs
        self.tree, self.build = folder / "tree", folder / "build"
        self.kills = Counter()
        self._processes, self._lock, self._stopped = set(), threading.Lock(), False
        self._controlled = set()
        self._copy_tree()
        self.build.mkdir(parents=True, exist_ok=True)
        self._configure()
        self._read_commands()
        self.programs = [self._program(name) for name in self.names]
        self.precompiled = self._precompile()
        self._check()

    def _copy_tree(self):
        """Brings the copy up to date; a file that has not changed keeps its time, so that ninja does not rebuild."""
        wanted = set()
        for path in _files(self.source):
            copy = self.tree / path
            wanted.add(path)
            if not copy.is_file() or not filecmp.cmp(self.source / path, copy, shallow=False):
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(self.source / path, copy)
        if self.tree.is_dir():
            for path in set(_files(self.tree)) - wanted:
                (self.tree / path).unlink()

    def _configure(self):
        linker = ["-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold"] if shutil.which("ld.gold") else []
        self._do(["cmake", "-G", "Ninja", "-S", str(self.tree), "-B", str(self.build), "-DZEL_PLATFORM=linux",
                  "-DCMAKE_BUILD_TYPE=Debug", f"-DCMAKE_CXX_FLAGS_DEBUG={_COMPILER_FLAGS}", *linker])
        tests = json.loads(self._do(["ctest", "--test-dir", str(self.build / "tests/unit"), "--show-only=json-v1"]))
        self.names = sorted(pathlib.Path(test["command"][-1]).name for test in tests["tests"])
        self._do(["ninja", "-C", str(self.build), f"-j{self.jobs}", *self.names])

    def _read_commands(self):
        """Learns from ninja how each object, archive and program is made and what the objects depend on."""
        self.compiles, self.links, self.archives, self.renames = {}, {}, {}, {}
        for line in self._do(["ninja", "-C", str(self.build), "-t", "commands", *self.names]).splitlines():
            for words in _split_commands(line):
                if "-c" in words:
                    self.compiles[words[words.index("-o") + 1]] = words
                elif "-o" in words:
                    self.links[words[words.index("-o") + 1]] = words
                elif "qc" in words:
                    self.archives[words[2]] = words[3:]
                elif "--redefine-sym" in words:
                    renamed, made = (os.path.relpath(word, self.build) for word in words[-2:])
                    self.renames[made] = renamed, words
        self.sources = {}
        made = None
        for line in self._do(["ninja", "-C", str(self.build), "-t", "deps"]).splitlines():
            if line.startswith(" "):
                path = os.path.relpath(line.strip(), self.tree)
                if path.startswith("src" + os.sep):
                    self.sources.setdefault(made, set()).add(path)
            else:
                made = line.partition(":")[0]
        for made, (renamed, _) in self.renames.items():
            self.sources[made] = self.sources[renamed]

    def _program(self, name):
        """What a program consists of: the linker tells which members of an archive it takes."""
        path = f"tests/unit/{name}"
        link = self.links[path]
        objects = set()
        for line in self._do([*link, "-Wl,--trace"]).splitlines():
            member = _MEMBER.fullmatch(line.strip())
            if member and member[1] in self.archives:
                objects.update(path for path in self.archives[member[1]] if os.path.basename(path) == member[2])
            elif line.strip() in self.compiles or line.strip() in self.renames:
                objects.add(line.strip())
        return Program(name, self.build / path, link, objects)

    def _precompile(self):
        """A header with what src/ includes from outside, compiled once; None when the compiler cannot do that."""
        includes = {line for path in (self.tree / "src").rglob("*") if path.is_file()
                    for line in _INCLUDE.findall(path.read_text())}
        header = self.build / "mutants.h"
        header.write_text("\n".join(sorted(includes)) + "\n")
        words = max((words for made, words in self.compiles.items() if self.is_of_src(made)), key=len)
        command = [*_plain(words, "-x", "c++-header"), "-o", f"{header}.gch", "-c", str(header)]
        try:
            self._do(command)
        except Broken:
            return None
        return header

    def _check(self):
        """Every program passes unchanged; notes how long it takes."""
        for program in self.programs:
            began = time.monotonic()
            code, output = self.run(self.test_command(program.path), 300)
            program.seconds = time.monotonic() - began
            if code != 0:
                raise Broken(f"{program.name} fails in the unchanged tree:\n{output[-2000:]}")

    def is_of_src(self, made):
        """Whether an object is compiled from a file of src/."""
        return self.compiles[made][-1].startswith(str(self.tree / "src") + os.sep)

    def test_command(self, path):
        private_root = str(self.tree / "tests/support/private-root")
        return [*_LIMITED, private_root, str(self.source), str(path), "--gtest_fail_fast"]

    def programs_of(self, file):
        """The programs that contain something of a file, first those that have killed its mutants, then the quick."""
        chosen = [program for program in self.programs
                  if any(file in self.sources.get(made, ()) for made in program.objects)]
        return sorted(chosen, key=lambda program: (-self.kills[file, program.name], program.seconds))

    def needs_control(self, file):
        """Whether no caller has asked for this file before."""
        with self._lock:
            known = file in self._controlled
            self._controlled.add(file)
            return not known

    def _do(self, command):
        code, output = self.run(command, None)
        if code != 0:
            raise Broken(f"{shlex.join(command)[:300]}\n{output[-3000:]}")
        return output

    def run(self, command, limit):
        """Runs a command; returns its exit status, None when it has reached the limit, and its output."""
        with self._lock:
            if self._stopped:
                raise Stopped
            process = subprocess.Popen(command, cwd=self.build, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                       stderr=subprocess.STDOUT, start_new_session=True, text=True, errors="replace")
            self._processes.add(process)
        try:
            output, _ = process.communicate(timeout=limit)
            return process.returncode, output
        except subprocess.TimeoutExpired:
            _kill(process)
            return None, process.communicate()[0]
        finally:
            _kill(process)
            with self._lock:
                self._processes.discard(process)
                if self._stopped:
                    raise Stopped

    def stop(self):
        """Ends what runs and lets nothing else begin."""
        with self._lock:
            self._stopped = True
            for process in self._processes:
                _kill(process)


class Worker:
    """Judges one mutant after the other, in a folder of its own."""

    def __init__(self, bench, folder):
        self._bench, self._folder = bench, folder
        self._optimised = {}
        shutil.rmtree(folder, ignore_errors=True)
        shutil.copytree(bench.tree / "src", folder / "src")

    def judge(self, file, text, compares):
        """The result for a mutant: a file of src/ with another text. With compares, a survivor's optimised objects are
        compared with the unchanged ones."""
        path = self._folder / file
        original = path.read_text()
        # Without this control, a mistake in how a worker builds or runs would look like a kill of every mutant. Headers
        # have none, because it would take long: their objects are made in the same way.
        if path.suffix == ".cpp" and self._bench.needs_control(file):
            result = self._judge(file)
            if result:
                raise Broken(f"{file} without a change: {result.verdict}, {result.detail}")
        path.write_text(text)
        try:
            result = self._judge(file)
            if result:
                return result
            same = compares and self._is_same(file, original)
            return Result("survived", "the same object at -O2" if same else "")
        finally:
            path.write_text(original)

    def _judge(self, file):
        """What ends the mutant whose file is in place, None when it survives."""
        bench = self._bench
        shutil.rmtree(self._folder / "made", ignore_errors=True)
        affected = {made for made, sources in bench.sources.items() if file in sources}
        programs = bench.programs_of(file)
        if not programs:
            raise Broken(f"no unit test program contains {file}")
        for program in programs:
            for made in sorted(affected & program.objects):
                error = self._make(made)
                if error and "static assertion" in error and str(bench.tree / "tests") in error:
                    return Result("killed", f"{program.name}, {error}")
                if error:
                    return Result("does not compile", error)
            path = self._link(program, affected)
            began = time.monotonic()
            code, output = bench.run(bench.test_command(path), program.limit())
            if code is None:
                return Result("timed out", f"{program.name}, {_last(_RUN, output)}, {time.monotonic() - began:.0f} s")
            if code != 0:
                self._check_world(program, output)
                bench.kills[file, program.name] += 1
                return Result("killed", f"{program.name}, {_first_failed(output, code)}")
        return None

    def _check_world(self, program, output):
        """A program that did not even begin may have found a broken machine."""
        if "[==========]" not in output:
            code, output = self._bench.run(self._bench.test_command(program.path), program.limit())
            if code != 0:
                raise Broken(f"{program.name} fails unchanged, too:\n{output[-2000:]}")

    def _made(self, path):
        return self._folder / "made" / path

    def _make(self, made):
        """Compiles an object for this mutant, unless it is there; returns the compiler's first error."""
        target = self._made(made)
        if target.exists():
            return None
        target.parent.mkdir(parents=True, exist_ok=True)
        if made in self._bench.renames:
            renamed, words = self._bench.renames[made]
            error = self._make(renamed)
            return error or self._error([*words[:-2], str(self._made(renamed)), str(target)])
        words = self._bench.compiles[made]
        included = self._bench.precompiled and self._bench.is_of_src(made)
        options = _plain(words, *(["-include", str(self._bench.precompiled)] if included else []))
        return self._error(self._moved([*options, "-o", str(target), "-c", words[-1]]))

    def _moved(self, words):
        """A command, with the worker's src/ in place of the unchanged one."""
        source = str(self._bench.tree / "src")
        moved = [re.sub(rf"^((?:-I)?){re.escape(source)}(?=/|$)", rf"\1{self._folder}/src", word) for word in words]
        return [moved[0], f"-fmacro-prefix-map={self._folder}=/usr/src/zel-lite", *moved[1:]]

    def _error(self, command):
        code, output = self._bench.run(command, _COMPILE_LIMIT)
        if code == 0:
            return None
        return next((line for line in output.splitlines() if "error" in line), output[-200:] or "no end")

    def _link(self, program, affected):
        """Links a program of the mutant's objects and those of the unchanged build."""
        words = list(program.link)
        for index, word in enumerate(words):
            members = sorted(affected & program.objects & set(self._bench.archives.get(word, ())))
            if members:
                archive = self._made(word)
                shutil.copy(self._bench.build / word, archive)
                self._must(["ar", "r", str(archive), *(str(self._made(member)) for member in members)])
            if members or (word in affected and word in program.objects):
                words[index] = str(self._made(word))
        path = self._made(program.name)
        words[words.index("-o") + 1] = str(path)
        self._must(words)
        return path

    def _must(self, command):
        error = self._error(command)
        if error:
            raise Broken(f"{shlex.join(command)[:300]}\n{error}")

    def _is_same(self, file, original):
        """Whether the optimising compiler makes the same objects of the mutant and of the original."""
        path = self._folder / file
        made = sorted(made for made, sources in self._bench.sources.items()
                      if file in sources and made in self._bench.compiles and self._bench.is_of_src(made))
        mutated = path.read_text()
        for name in made:
            changed = self._optimise(name)
            if name not in self._optimised:
                path.write_text(original)
                self._optimised[name] = self._optimise(name)
                path.write_text(mutated)
            if changed is None or changed != self._optimised[name]:
                return False
        return bool(made)

    def _optimise(self, made):
        target = self._folder / "optimised.o"
        words = self._bench.compiles[made]
        error = self._error(self._moved([*_plain(words, "-O2"), "-o", str(target), "-c", words[-1]]))
        return None if error else target.read_bytes()


def _files(folder):
    """The files below a folder that a build may need, relative to it."""
    for root, folders, names in os.walk(folder):
        folders[:] = [name for name in folders
                      if name not in _NOT_COPIED and not (name == "build" and root == str(folder))]
        yield from (os.path.relpath(os.path.join(root, name), folder) for name in names)


def _split_commands(line):
    """The commands of a line of ninja's that build something."""
    words, commands = shlex.split(line), [[]]
    for word in words:
        if word == "&&":
            commands.append([])
        else:
            commands[-1].append(word)
    return [command for command in commands if len(command) > 2]


def _plain(words, *added):
    """The compiler and its options without warnings, dependencies, input and output."""
    kept, skipped = [], False
    for word in words[:-1]:
        if skipped or word in ("-o", "-MT", "-MF"):
            skipped = not skipped
        elif word not in ("-c", "-MD") and not re.match(r"-W(?!l,)", word):
            kept.append(word)
    # A function that ends without its result has no behaviour that a test could see.
    return [*kept, "-Werror=return-type", *added]


def _kill(process):
    """Ends a command with all that it has started: private-root ends its namespace when it ends."""
    if process.returncode is None:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)


def _last(pattern, output):
    names = pattern.findall(output)
    return names[-1] if names else "before the first test"


def _first_failed(output, code):
    """The test that failed first; where none did, the program ended within one."""
    failed = _FAILED.search(output)
    return failed[1] if failed else f"{_last(_RUN, output)} ended with {code}"
