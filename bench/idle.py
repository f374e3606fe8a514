"""The chief operations while other threads of Python are alive and wait.

Python keeps what belongs to a thread in one list for all of them and walks along it, so what looks
there costs more with each thread that lives. Nothing that is common should.
"""

import threading

import operations
import subjects
from timing import figure

THREADS = (1, 50, 500)
PASSES = 3
STACK = 256 * 1024
CHIEF = ("U32 read", "U32 write", "method of two ints", "comparison of wrappers",
         "construct and destroy, 2 arguments", "coll[key], collection held", "iterate, per key, 10^4")


class Waiting(object):
    """So many threads that wait until the end of the block."""

    def __init__(self, count):
        self.count, self.end = count, threading.Lock()

    def __enter__(self):
        self.end.acquire()
        before = threading.stack_size(STACK)
        self.threads = [threading.Thread(target=self.wait) for _ in range(self.count)]
        for thread in self.threads:
            thread.start()
        threading.stack_size(before)

    def wait(self):
        with self.end:
            pass

    def __exit__(self, *_):
        self.end.release()
        for thread in self.threads:
            thread.join()


def measure(rounds, loops):
    """{"title", "unit", "curves": by subject, the figure for each number of threads} of each operation.

    The numbers of threads take turns as well.
    """
    others = subjects.floors() + subjects.peers()
    chief = [row for row in operations.rows() if row.title in CHIEF]
    found = [dict((name, dict((str(count), []) for count in THREADS)) for name, _, _ in row.subjects(others))
             for row in chief]
    for _ in range(PASSES):
        for count in THREADS:
            with Waiting(count):
                for row, into in zip(chief, found):
                    for name, ns in row.samples(others, max(1, rounds // PASSES), loops).items():
                        into[name][str(count)] += ns
    return [{"title": row.title, "unit": "ns", "curves": dict(
        (name, dict((count, figure(ns)) for count, ns in curve.items())) for name, curve in curves.items())}
        for row, curves in zip(chief, found)]
