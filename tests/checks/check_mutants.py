"""Small deliberate changes of the source are noticed by the tests.

Each row of mutants.py is done to a copy of the tree in build/mutants, one at a time: the file is
compiled, its library linked, and the tests that the row names are run. The short form only looks
whether each row still fits the source.
"""

import glob
import json
import multiprocessing
import os
import re
import shutil
import subprocess
import sys

import frame
from mutants import MUTANTS

NAME = "mutants"
PASS = "at least 90 of 100 caught"
SECONDS = {"short": 1, "long": 1200}

COPY = os.path.join(frame.ROOT, "build", "mutants")
BUILD = os.path.join(COPY, "build", "release")
PRISTINE = ".pristine"
TARGETS = ("importable", "kel_tests", "kelpy_tests")
# Of the tests that one change is given to. One that makes a test hang is caught by that.
TEST_SECONDS = 120
# Nobody looks at the code, so it may be made fast. A change may leave something unused.
FLAGS = " -O0 -g0 -w"
PLANTED = (
    ("kel/src/Exception.cpp", "text + \": \" + reason", "text  +  \": \"  +  reason",
     r"^kel\.ErrnoException"),)


def _source(name, folder=frame.ROOT):
    with open(os.path.join(folder, name)) as source:
        return source.read()


def _misfits(mutants):
    """What is wrong with rows, a line each."""
    wrong = []
    for name, text, other, _ in mutants:
        times = _source(name).count(text)
        if times != 1:
            wrong.append("%s: '%s' stands there %d times" % (name, text.strip(), times))
        if text == other:
            wrong.append("%s: '%s' is not changed" % (name, text.strip()))
    return wrong


def _copy_tree():
    """Brings the copy up to date. Only what differs is written, so that little is built again."""
    for folder, names, files in os.walk(frame.ROOT):
        inside = os.path.relpath(folder, frame.ROOT)
        names[:] = [name for name in names if name not in (".git", "__pycache__") and
                    os.path.join(inside, name) != "./build"]
        target = os.path.normpath(os.path.join(COPY, inside))
        if not os.path.isdir(target):
            os.makedirs(target)
        for name in files:
            path = os.path.join(inside, name)
            there = os.path.join(COPY, path)
            if not os.path.exists(there) or _source(path) != _source(path, COPY):
                shutil.copy(os.path.join(frame.ROOT, path), there)


class Library(object):
    """One of the two that changes are made in."""

    def __init__(self, name):
        self.name = name
        lines = subprocess.check_output(["ninja", "-C", BUILD, "-t", "commands", name])
        self.link = [line for line in lines.splitlines() if " -shared " in line][-1]
        output = re.search(r" -o (\S+)", self.link).group(1)
        self.path = os.path.join(BUILD, output)
        self.pristine = self.path + PRISTINE

    def keep(self):
        shutil.copy2(self.path, self.pristine)

    def restore(self):
        # A process of a test may still have the other mapped.
        shutil.copy2(self.pristine, self.path + ".new")
        os.rename(self.path + ".new", self.path)


class Mutator(object):
    def __init__(self):
        # Of a run that was cut off in the middle of a change.
        for pristine in glob.glob(os.path.join(BUILD, "python", "*" + PRISTINE)):
            os.rename(pristine, pristine[:-len(PRISTINE)])
        _copy_tree()
        built = frame.run_process(
            [os.path.join(COPY, "dev"), "build", "release"] +
            [word for target in TARGETS for word in ("--target", target)], 7200, dict(os.environ))
        if built.status != 0:
            raise frame.NotReady("\n".join(built.text()))
        with open(os.path.join(BUILD, "compile_commands.json")) as rows:
            self.commands = dict((os.path.relpath(row["file"], COPY), row["command"])
                                 for row in json.load(rows))
        self.libraries = dict((name, Library(name)) for name in ("kel", "kelpy"))
        for library in self.libraries.values():
            library.keep()

    def test(self, expression):
        return frame.run_process(
            ["ctest", "--stop-on-failure", "-j", str(multiprocessing.cpu_count()),
             "-R", expression], TEST_SECONDS, dict(os.environ), folder=BUILD)

    def unready(self, mutants):
        """What keeps the tests of the rows from telling anything, a line each."""
        names = subprocess.check_output(["ctest", "-N"], cwd=BUILD)
        names = re.findall(r"Test +#\d+: (.*)", names)
        wrong = ["no test is named %s" % row[3] for row in mutants
                 if not any(re.search(row[3], name) for name in names)]
        for expression in sorted(set(row[3] for row in mutants)):
            ended = self.test(expression)
            if ended.status != 0:
                wrong += ["without a change, %s fails" % expression] + ended.text()
        return wrong

    def _build(self, mutant):
        """Makes the library with the change; gives what the compiler says if it cannot."""
        name, text, other, _ = mutant
        library = self.libraries[name.split("/")[0]]
        path = os.path.join(COPY, name)
        command = self.commands[name]
        output = re.search(r" -o (\S+)", command).group(1)
        changed = output + ".changed.o"
        try:
            with open(path, "w") as source:
                source.write(_source(name).replace(text, other))
            compiled = frame.run_process(
                ["sh", "-c", command.replace(" -o " + output, " -o " + changed) + FLAGS], 900,
                dict(os.environ), folder=BUILD)
        finally:
            shutil.copy(os.path.join(frame.ROOT, name), path)
        if compiled.status != 0:
            return compiled.text()
        os.unlink(library.path)
        linked = frame.run_process(
            ["sh", "-c", library.link.replace(" " + output + " ", " " + changed + " ")], 900,
            dict(os.environ), folder=BUILD)
        os.unlink(os.path.join(BUILD, changed))
        return linked.text() if linked.status != 0 else None

    def caught(self, mutant):
        """Whether a test fails, and how it went in a line."""
        try:
            failure = self._build(mutant)
            if failure:
                return False, "cannot be built: " + " | ".join(failure[-6:])
            ended = self.test(mutant[3])
        finally:
            self.libraries[mutant[0].split("/")[0]].restore()
        if ended.late:
            return True, "caught, as a test hangs"
        failed = re.findall(r"\d+ - (.+?) \((?!Not Run)", ended.out.partition("FAILED:")[2])
        return bool(failed), "caught by " + failed[0] if failed else "survived"


def _survivors(mutants):
    """The rows that no test notices, a line each."""
    mutator = Mutator()
    wrong = mutator.unready(mutants)
    if wrong:
        raise frame.NotReady("\n".join(wrong))
    survivors = []
    for number, mutant in enumerate(frame.progress.along(mutants)):
        caught, how = mutator.caught(mutant)
        line = "%s: '%s' as '%s'" % tuple(part.strip() for part in mutant[:3])
        frame.progress.clear()
        sys.stderr.write("   %d: %s: %s\n" % (number + 1, line, how))
        if not caught:
            survivors.append(line + ": " + how)
    return survivors


def run(form):
    wrong = _misfits(MUTANTS)
    if wrong:
        return frame.Result(False, "%d of %d rows do not fit the source" % (
            len(wrong), len(MUTANTS)), wrong)
    if form == "short":
        return frame.Result(True, "each of %d rows fits the source; whether tests notice them is "
                            "for the long form" % len(MUTANTS))
    survivors = _survivors(MUTANTS)
    caught = len(MUTANTS) - len(survivors)
    figure = "%d of %d caught" % (caught, len(MUTANTS))
    if survivors:
        figure += "; survived: " + "; ".join(survivors)
    return frame.Result(caught * 100 >= len(MUTANTS) * 90, figure)


def planted(form):
    """A row that the source does not have; in the long form a change that changes nothing too."""
    gone = [("kel/src/Exception.cpp", "no such text", "", "")]
    seen = ["the row that does not fit"] * len(_misfits(gone))
    wanted = 1
    if form == "long":
        wanted = 2
        seen += ["the change of nothing"] * len(_survivors(PLANTED))
    return frame.Result(len(seen) == wanted, "%d of %d told: %s" % (
        len(seen), wanted, ", ".join(seen)), seen)
