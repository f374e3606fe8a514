"""Instructions of common operations, by the part of the process that makes them: unlike times, these
are the same on a busy machine.

One that locks takes the time of many others, so the time lies more with the C library and the
interpreter, who have the locks.
"""

import imp
import sys

import callgrind

TITLES = ("U32 read", "str read", "U32 write", "pointer read and drop of its wrapper", "method of two ints",
          "construct and destroy, 2 arguments", "coll[key], collection held", "comparison of wrappers")
SUBJECTS = ("kel", "floor", "same turns")
EMPTY = "empty loop"
TIMES = 200


def counted(name, statement, names):
    import kel_callgrind
    names = dict(names)
    exec "def run_(times):\n    for _ in xrange(times):\n        %s\n" % statement in names
    names["run_"](100)
    kel_callgrind.begin()
    names["run_"](TIMES)
    kel_callgrind.end(name)


def count():
    """Runs under callgrind: a dump for each operation and subject."""
    import operations
    import subjects
    counted(EMPTY, "pass", {})
    floors = subjects.floors()
    for row in operations.rows():
        if row.title in TITLES:
            for name, statement, names in row.subjects(floors):
                counted("%s|%s" % (row.title, name), statement, names)


def measure():
    """[{"title", "figures": {subject: {part: instructions}}}] of one operation, the empty loop taken off.

    Nothing where the build has found no valgrind.
    """
    try:
        imp.find_module("kel_callgrind")
    except ImportError:
        return []
    counts = dict((name, callgrind.by_part(costs))
                  for name, costs in callgrind.counts(__file__.replace(".pyc", ".py")).items())
    empty = counts[EMPTY]

    def of(title, name):
        found = counts["%s|%s" % (title, name)]
        return dict((part, max(0, found[part] - empty[part]) // TIMES) for part in callgrind.PARTS)

    return [{"title": title, "figures": dict((name, of(title, name)) for name in SUBJECTS)} for title in TITLES]


if __name__ == "__main__" and "--count" in sys.argv:
    count()
