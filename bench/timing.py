"""How everything here is timed: subjects take turns within one process, so that their ratios hold
where absolute figures drift."""

import time

UNROLLED = 20


def timed(statement, names):
    """A function that gives the seconds of `loops` * UNROLLED runs of the statement."""
    source = "def run(loops, clock):\n    start = clock()\n    for _ in loops:\n%s    return clock() - start\n" % (
        ("        %s\n" % statement.replace("\n", "\n        ")) * UNROLLED)
    # Names in global variables cost the same for each subject.
    names = dict(names)
    exec source in names
    return lambda loops: names["run"](xrange(loops), time.time)


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
    runs = [(name, timed(statement, names)) for name, statement, names in subjects]
    empty = timed("pass", {})
    seconds = dict((name, []) for name, _ in runs)
    bare = []
    for _ in range(rounds):
        bare.append(empty(loops))
        for name, run in runs:
            seconds[name].append(run(loops))
    scale = 1e9 / (loops * UNROLLED * each)
    return dict((name, [(each - min(bare)) * scale for each in seconds[name]]) for name, _ in runs)


def turns(*arguments):
    """The figures of such samples."""
    return dict((name, figure(ns)) for name, ns in samples(*arguments).items())
