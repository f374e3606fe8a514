"""Measures what each row of rows.py leaves behind; under the debug interpreter.

    measure_references.py REPETITIONS [--plant]
"""

import gc
import os
import sys

import kel_hand
import rows

WARM_UPS = 5
TRIES = 3


class Measured(object):
    """References, descriptors and runtime objects there are."""

    def __init__(self):
        self.live = sum(kel_hand.live().values())
        self.descriptors = len(os.listdir("/proc/self/fd"))
        self.references = sys.gettotalrefcount()


def attempt(function):
    """Whether it succeeds, as it also does where it comes to the end of an iteration."""
    try:
        function()
        return True
    except StopIteration:
        return True
    except Exception:
        return False
    finally:
        sys.exc_clear()


def repeat(function, count):
    for _ in xrange(count):
        attempt(function)


def difference(function, count, collected=False):
    if collected:
        gc.collect()
    before = Measured()
    repeat(function, count)
    if collected:
        gc.collect()
    after = Measured()
    return (after.references - before.references, after.descriptors - before.descriptors,
            after.live - before.live)


def nothing():
    pass


def least(function, count, empty):
    """What `count` calls leave behind; of several tries the least, as what the interpreter keeps
    once for itself shows once."""
    best = None
    for number in range(TRIES):
        # Only cycles want a collection, which takes its time.
        found = tuple(left - own for left, own in zip(
            difference(function, count, collected=number > 0), empty))
        best = min(best or found, found, key=lambda each: sum(map(abs, each)))
        if not any(best):
            break
    return best


kept = []


def plant():
    kept.append(object())


def measure(chosen, count):
    """Prints what leaves something behind; gives the operations seen to succeed and to fail."""
    repeat(nothing, 10)
    for _ in range(3):
        empty = difference(nothing, count)
    succeeded, failed, number = set(), set(), 0
    for operation, label, function in chosen:
        for _ in range(WARM_UPS):
            (succeeded if attempt(function) else failed).add(operation)
        left = least(function, count, empty)
        number += 1
        if any(left):
            print "LEFT %s (%s): %d references, %d descriptors, %d runtime objects in %d" % (
                (operation, label) + left + (count,))
    print "ROWS %d" % number
    return succeeded, failed


def main(count, planted):
    if planted:
        measure([("planted", "", plant)], count)
        return
    succeeded, failed = measure(rows.rows(), count)
    wanted = rows.operations() - set(rows.ENDING)
    print "OPERATIONS %d" % len(wanted)
    for name in sorted(wanted - succeeded - failed):
        print "MISSING %s has no row" % name
    for name in sorted((wanted & failed) - succeeded - rows.REFUSED):
        print "MISSING %s never succeeds in its rows" % name
    for name in sorted((wanted & succeeded) - failed - rows.UNFAILING):
        print "MISSING %s never fails in its rows" % name


if __name__ == "__main__":
    main(int(sys.argv[1]), "--plant" in sys.argv)
