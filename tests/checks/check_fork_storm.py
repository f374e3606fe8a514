"""Forks among busy threads, of Python and of the runtime, have children that never get stuck.

A child of a Python thread uses the runtime, a new thread and the loop; a child of a native thread
uses the runtime alone. Each has a deadline of 30 seconds.
"""

from frame import Result
from stress_runs import Run

NAME = "fork-storm"
PASS = "0 hung children; in the long form of 10^4 forks of Python and 10^3 of native threads"
SECONDS = {"short": 5, "long": 480}

THREADS = 4  # of each sort
FORKS = {"short": (60, 15), "long": (2550, 260)}  # of each thread, about: of Python, native
LEAST = {"short": (150, 30), "long": (10000, 1000)}
PROGRAMS = {"short": 10, "long": 200}


def run(form):
    python, native = FORKS[form]
    result = Run(["--steps", 2 * python, "--forks", python, "--native-forks", native,
                  "--python-threads", THREADS, "--native-threads", THREADS,
                  "--programs", PROGRAMS[form]], seconds=60 + python)
    figure = "0 hung children of %d forks of Python, %d of native threads, %d programs" % (
        result.python_forks, result.native_forks, 2 * PROGRAMS[form])
    enough = result.python_forks >= LEAST[form][0] and result.native_forks >= LEAST[form][1]
    if not result.passed:
        figure = "it ended with %d" % result.ended.status
    return Result(result.passed and enough, figure, result.details())


def planted(form):
    result = Run(["--steps", 100, "--forks", 2, "--plant", "stick_in_child", "--child-seconds", 1],
                 seconds=60)
    caught = result.ended.status == 1 and "is late" in result.ended.err
    return Result(caught, "the hung child was %sfound" % ("" if caught else "not "),
                  result.details())
