"""Pokes everything that the module hands out with objects that nobody should pass.

    fuzz_module.py [--rounds N] [--seed N] [--one-in N] [--only TEXT] [--plant]

A wrong argument may raise any Exception. It must not end the process, leave an error pending,
return a null without an error, hang, or leave the activity lock held. Each batch of targets runs
in a process of its own; where one ends, its last case is told and the next goes on behind it.
Every case of one argument is tried; of those with more arguments as many as the number of rounds
says, chosen by the seed. With --one-in it is one in so many of all these, chosen likewise.
"""

import argparse
import ctypes
import itertools
import mmap
import os
import random
import resource
import signal
import struct
import subprocess
import sys
import tempfile
import threading

BATCHES = 8
NOTE_SIZE = 4096
SILENCE = 60  # seconds without a new case: the process hangs
LEFT_OUT = {"acquireActivityLock", "timedAcquireActivityLock"}  # they hold the lock by intent


class Note(object):
    """What a child tells its parent even if it ends: the number and the text of its case."""

    def __init__(self, path):
        with open(path, "r+b") as file:
            self._map = mmap.mmap(file.fileno(), NOTE_SIZE)

    def set(self, number, text):
        data = text.encode("ascii", "replace")[:NOTE_SIZE - 16]
        self._map[:16] = struct.pack("=QQ", number, len(data))
        self._map[16:16 + len(data)] = data

    def get(self):
        number, length = struct.unpack("=QQ", self._map[:16])
        return number, self._map[16:16 + length].decode("ascii")


def cases(index, options):
    """(text, function, maker of the target, makers of the arguments), in a fixed order."""
    from odd_objects import OBJECTS
    from operations import operations
    from targets import ENDING, targets
    for number, (label, make) in enumerate(targets()):
        if number % BATCHES != index:
            continue
        choose = random.Random("%d %s" % (options.seed, label))
        for name, count, function in operations(label, make(), ENDING):
            if count <= 1:
                chosen = itertools.product(OBJECTS, repeat=count)
            else:
                chosen = [[choose.choice(OBJECTS) for _ in range(count)]
                          for _ in range(options.rounds)]
            for arguments in chosen:
                if options.one_in > 1 and choose.randrange(options.one_in):
                    continue
                text = "%s | %s | %s" % (label, name, ", ".join(one for one, _ in arguments))
                yield text, function, make, [maker for _, maker in arguments]


class Watch(object):
    """Looks after each case for what it left behind."""

    def __init__(self):
        import _Kel
        import targets
        self._kel, self._excused = _Kel, targets.PENDING
        self._pending = ctypes.pythonapi.PyErr_Occurred
        self._pending.restype = ctypes.c_void_p

    def look(self, text):
        """The fault that the case left, None if there is none."""
        try:
            if self._pending():
                return "left an error pending"
        except BaseException as error:
            if self._excused not in text:
                return "left an error pending: %r" % error
        if self._kel.activityLockOwner() != 0:
            self._kel.releaseActivityLock()
            if not any(name in text for name in LEFT_OUT):
                return "left the activity lock held"
        for hook in (self._kel.newInstanceHookIs, self._kel.newEntityHookIs,
                     self._kel.getitemHookIs):
            hook(None)
        return None


def run_case(function, make, makers):
    """The text of a fault, None if all is well."""
    it, arguments = make(), [maker() for maker in makers]
    try:
        function(it, *arguments)
    except SystemError as error:
        if "without exception set" in str(error) or "internal" in str(error).lower():
            if "Kel::InternalException" not in str(error):
                return "SystemError: %s" % error
    except (Exception, SystemExit):
        pass
    return None


def child(options, note):
    os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
    watch, faults, number = Watch(), 0, 0
    for number, (text, function, make, makers) in enumerate(cases(options.child, options)):
        if number < options.first or options.only not in text:
            continue
        note.set(number, text)
        fault = run_case(function, make, makers) or watch.look(text)
        if fault:
            faults += 1
            sys.stderr.write("FAULT %s: %s\n" % (text, fault))
    note.set(number, "end")
    return faults


def planted(note):
    """Faults of every sort, to see that they are told."""
    import kel_objects
    watch = Watch()
    plants = [
        ("planted lock", lambda it: watch._kel.acquireActivityLock()),
        ("planted error", lambda it: kel_objects.leaveError()),
        ("planted null", lambda it: ctypes.pythonapi.PyErr_BadInternalCall()),
        ("planted crash", lambda it: ctypes.string_at(0))]
    for number, (text, function) in enumerate(plants):
        note.set(number, text)
        fault = run_case(function, lambda: None, []) or watch.look(text)
        sys.stderr.write("FAULT %s: %s\n" % (text, fault))


def start():
    os.setsid()
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


class Batch(object):
    """The processes of one batch, each going on behind the case that ended the one before."""

    def __init__(self, options, index):
        self.options, self.index = options, index
        self.faults, self.cases = [], 0

    def run(self):
        first = 0
        while first is not None and len(self.faults) < 50:
            first = self._run_from(first)

    def _run_from(self, first):
        with tempfile.NamedTemporaryFile() as file, tempfile.TemporaryFile() as err:
            file.write("\0" * NOTE_SIZE)
            file.flush()
            note = Note(file.name)
            command = [sys.executable, os.path.abspath(__file__), "--child", str(self.index),
                       "--first", str(first), "--note", file.name] + self.options
            process = subprocess.Popen(command, stdin=open(os.devnull), stderr=err,
                                       preexec_fn=start)
            hung = self._wait(process, note)
            number, text = note.get()
            err.seek(0)
            output = err.read()
            told = [line for line in output.splitlines() if line.startswith("FAULT ")]
            self.faults.extend(told)
            self.cases = max(self.cases, number + 1)
            if process.returncode in (0, 1) and text == "end":
                return None
            how = "hung" if hung else "ended with status %d" % process.returncode
            self.faults.append("FAULT %s: %s\n%s" % (text, how, output[-4000:]))
            # One that ends before its first case would end there again.
            return None if not text or text.startswith("planted") else number + 1

    def _wait(self, process, note):
        """Whether it had to be killed."""
        last, silent = None, 0
        done = threading.Event()
        waiter = threading.Thread(target=lambda: (process.wait(), done.set()))
        waiter.start()
        while not done.wait(1):
            number, silent = note.get()[0], silent + 1
            if number != last:
                last, silent = number, 0
            if silent > SILENCE:
                os.killpg(process.pid, signal.SIGKILL)
                waiter.join()
                return True
        waiter.join()
        return False


def parse(arguments):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=30, help="cases of more than one argument")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--one-in", type=int, default=1, help="of all cases only one in so many")
    parser.add_argument("--only", default="", help="cases whose text holds this")
    parser.add_argument("--plant", action="store_true", help="faults that must be found")
    parser.add_argument("--child", type=int, help=argparse.SUPPRESS)
    parser.add_argument("--first", type=int, default=0, help=argparse.SUPPRESS)
    parser.add_argument("--note", help=argparse.SUPPRESS)
    return parser.parse_args(arguments)


def main(arguments):
    options = parse(arguments)
    here = os.path.dirname(os.path.abspath(__file__))
    sys.path[:0] = [here]
    if options.child is not None:
        note = Note(options.note)
        if options.plant:
            return planted(note)
        return 1 if child(options, note) else 0
    passed_on = ["--rounds", str(options.rounds), "--seed", str(options.seed), "--one-in",
                 str(options.one_in), "--only", options.only] + ["--plant"] * options.plant
    batches = [Batch(passed_on, index) for index in range(1 if options.plant else BATCHES)]
    for batch in batches:
        batch.run()
        for fault in batch.faults:
            print fault
    faults = sum(len(batch.faults) for batch in batches)
    print "%d cases, %d faults, seed %d" % (
        sum(batch.cases for batch in batches), faults, options.seed)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
