"""Lets each allocation of each row of rows.py fail, once and for ever.

    fail_allocations.py ONE_IN [--plant]

of all rows only one in so many. Each row runs in a child, which the next allocation outlives: a
documented assertion ends the child alone. After a failure the row has to come out as before.
"""

import gc
import os
import re
import resource
import signal
import sys
import tempfile

import kel_failing  # ahead of _Kel
import _Kel
import kel_hand
import rows

# Where nothing can be told to a caller, the process ends with one of these, as documented: an
# assertion where a function has no way to fail, and a handler of the runtime that raises.
ENDINGS = re.compile(
    r"assertion failed: (?:syms|buf|encoded|rc != -1) \(|"
    r"^(?:Python notifiee handler function raised an exception|"
    r"Exception occurred building '.*' argument to Python notifiee handler function|"
    r"PyClockNotifiee::handleNotification's handler raised an exception)$", re.M)

LIMIT = 3000  # allocations of a row
SILENCE = 60  # seconds


def outcome(function):
    """The exception, None if there is none."""
    try:
        function()
    except BaseException as error:
        return error
    finally:
        sys.exc_clear()
    return None


def live():
    """How many runtime objects there are."""
    return sum(kel_hand.live().values())


def named(error):
    """Class and text. There has to be memory."""
    return ("", "") if error is None else (type(error).__name__, str(error))


def is_fine(found, usual):
    """Whether the row may come to this while memory runs out."""
    name, text = found
    if name in ("", "MemoryError") or name == usual[0]:
        return True
    # What the runtime's allocator throws.
    return name == "SystemError" and "std::bad_alloc" in text


def tried(function, usual, number, for_ever):
    """(whether there is an allocation of that number, what is wrong or None)"""
    before = live()
    kel_failing.arm(number, for_ever)
    found = outcome(function)
    asked, failed = kel_failing.disarm()
    if not failed:
        return False, None
    found = named(found)
    if not is_fine(found, usual):
        return True, "came to %s: %s" % found
    again = named(outcome(function))
    if again[0] != usual[0]:
        return True, "came to %s: %s when memory was back, not to %s" % (again + usual[:1])
    if _Kel.activityLockOwner() != 0:
        return True, "left the activity lock held"
    if live() != before and (gc.collect(), live())[1] != before:
        return True, "left %d runtime objects" % (live() - before)
    return True, None


def child(function, place, first, for_ever, told):
    """Writes "n" before allocation n, "wrong n: text", and "end"."""
    outcome(function)
    usual = named(outcome(function))
    for number in range(first, LIMIT):
        os.write(told, "at %d\n" % number)
        there, wrong = tried(function, usual, number, for_ever)
        if wrong:
            os.write(told, "wrong allocation %d of %s %s\n" % (number, place, wrong))
        if not there:
            break
    os.write(told, "end\n")


class Row(object):

    def __init__(self, function, place):
        self.function, self.place = function, place
        self.allocations, self.endings, self.wrong = 0, 0, []

    def run(self, for_ever):
        first = 0
        while first is not None and len(self.wrong) < 5:
            first = self._run_from(first, for_ever)

    def _run_from(self, first, for_ever):
        """Where to go on, None at the end."""
        with tempfile.TemporaryFile() as err, tempfile.TemporaryFile() as told:
            sys.stdout.flush()
            process = os.fork()
            if process == 0:
                os.dup2(err.fileno(), 2)
                signal.alarm(SILENCE)
                try:
                    child(self.function, self.place, first, for_ever, told.fileno())
                finally:
                    os._exit(0)
            _, status = os.waitpid(process, 0)
            told.seek(0)
            lines = told.read().splitlines()
            err.seek(0)
            return self._after(lines, status, err.read())

    def _after(self, lines, status, text):
        at = [int(line.split()[1]) for line in lines if line.startswith("at ")]
        self.allocations += max(0, len(at) - 1)
        self.wrong += [line for line in lines if line.startswith("wrong ")]
        if lines and lines[-1] == "end":
            return None
        last = at[-1] if at else 0
        if os.WIFSIGNALED(status) and ENDINGS.search(text):
            self.endings += 1
        else:
            self.wrong.append("wrong allocation %d of %s ended with status %d: %s" % (
                last, self.place, status, "; ".join(text.splitlines()[:30])))
        return last + 1


def plant():
    """Takes the lack of memory for something else."""
    try:
        rows.acme.Size(1)
    except (MemoryError, SystemError):
        raise KeyError("planted")


def main(one_in, planted):
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    chosen = [(plant, "planted")] if planted else [
        (function, "%s (%s)" % (operation, label)) for operation, label, function in rows.rows()]
    totals, operations, performed = [0, 0, 0], set(), 0
    for number, (function, place) in enumerate(chosen):
        if number % one_in:
            continue
        operations.add(place.split(" ")[0])
        performed += 1
        for for_ever in (0, 1):
            row = Row(function, place)
            row.run(for_ever)
            for line in row.wrong:
                print line + ("" if not for_ever else ", for ever")
            totals = [one + other for one, other in zip(
                totals, (row.allocations, row.endings, len(row.wrong)))]
    print "TOTAL %d failures, %d documented endings, %d wrong, in %d rows of %d operations" % (
        tuple(totals) + (performed, len(operations)))


if __name__ == "__main__":
    main(int(sys.argv[1]), "--plant" in sys.argv)
