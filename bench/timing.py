"""How everything here is timed: subjects take turns within one process, so that their ratios hold
where absolute figures drift."""

import time

UNROLLED = 20
ROUND = 1.5e-3  # seconds: so short that there are rounds which nothing interrupts


def timed(statement, names, unrolled):
    """A function that gives the seconds of `loops` * unrolled runs of the statement."""
    source = "def run(loops, clock):\n    start = clock()\n    for _ in loops:\n%s    return clock() - start\n" % (
        ("        %s\n" % statement.replace("\n", "\n        ")) * unrolled)
    # Names in global variables cost the same for each subject.
    names = dict(names)
    exec source in names
    return lambda loops: names["run"](xrange(loops), time.time)


class Timed(object):
    """A statement with as many loops as fit into a round, and its samples."""

    def __init__(self, statement, names, loops, each):
        unrolled = UNROLLED if each < 1000 else 1
        self.run, self.empty = timed(statement, names, unrolled), timed("pass", {}, unrolled)
        self.run(1)  # the first makes what stays
        self.loops = max(1, min(loops, int(ROUND / max(self.run(1), 1e-7))))
        self.operations = self.loops * unrolled * each
        self.seconds, self.bare = [], []

    def round(self):
        self.bare.append(self.empty(self.loops))
        self.seconds.append(self.run(self.loops))

    def samples(self):
        return [(seconds - min(self.bare)) / self.operations * 1e9 for seconds in self.seconds]


def figure(samples):
    """What is kept of the samples of several rounds: the least, the quartiles and the median."""
    samples = sorted(samples)
    last = len(samples) - 1
    return {"least": samples[0], "low": samples[last // 4], "median": samples[last // 2],
            "high": samples[last - last // 4]}


def samples(subjects, rounds, loops, each=1):
    """The ns of one operation in each round, for each (name, statement, names), the empty loop taken off.

    A statement makes `each` operations.
    """
    runs = [(name, Timed(statement, names, loops, each)) for name, statement, names in subjects]
    for _ in range(rounds):
        for _, run in runs:
            run.round()
    return dict((name, run.samples()) for name, run in runs)


def turns(*arguments):
    """The figures of such samples."""
    return dict((name, figure(ns)) for name, ns in samples(*arguments).items())
