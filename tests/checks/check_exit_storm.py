"""A process ends as it was told to, whatever its loop, timers and threads are about.

Normal ends, an exception, sys.exit, os._exit, SIGTERM with and without a handler, wrappers that are
dropped as the interpreter goes, and an end out of a handler.
"""

import multiprocessing.pool
import os

import frame
from frame import HERE, Build, Result

NAME = "exit-storm"
PASS = "the intended exit status each time, 1,000 times in the long form, 0 cores"
SECONDS = {"short": 5, "long": 90}

TIMES = {"short": 6, "long": 125}  # of each way
WAYS = {"end": 0, "exception": 1, "exit": 7, "_exit": 5, "signal": -15, "handled": 9,
        "wrappers": 0, "handler": 11}


def _end(job):
    build, way, seed = job
    ended = build.run([os.path.join(HERE, "exits.py"), way, str(seed)], 60)
    right = ended.status == WAYS[way] and not ended.late and _is_quiet(way, ended.err)
    return None if right else ["%s %s:" % (way, seed)] + ended.text()


def _is_quiet(way, err):
    lines = [line for line in err.splitlines() if line]
    if way == "exception":
        return lines[-1:] == ["ValueError: the end"]
    return not lines


def run(form):
    build = Build("release").ready()
    jobs = [(build, way, seed) for seed in range(TIMES[form]) for way in sorted(WAYS)]
    ends = multiprocessing.pool.ThreadPool(2).imap(_end, jobs)
    wrong = [each for each in frame.progress.along(ends, len(jobs)) if each]
    figure = "%d of %d ends as intended, 0 cores" % (len(jobs) - len(wrong), len(jobs))
    return Result(not wrong, figure, [line for each in wrong[:5] for line in each])


def planted(form):
    """An abort behind all that Python does at its end."""
    wrong = _end((Build("release").ready(), "exit", "planted"))
    caught = wrong is not None and "ended with status -6" in wrong
    return Result(caught, "the abort at the end was %sseen" % ("" if caught else "not "), wrong or ())
