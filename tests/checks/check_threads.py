"""The thread sanitizer has nothing to say of stress, handlers, timers and locks.

The long form runs the stress test and the Python tests of locks, handlers and timers in a build for
the sanitizer, whose runtime is preloaded into an interpreter that is not instrumented, so that what
it reports is ours. The short form runs the tests of the runtime alone: no other build takes as long.
"""

import glob
import os
import re

import sanitizers
from frame import PYTHON_TESTS, ROOT, Build, Result, run_process, without_aslr
from stress_runs import Run

NAME = "threads"
PASS = "0 reports in our objects"
SECONDS = {"short": 20, "long": 70}

STEPS = 3000  # of the stress test, of each of ten threads
# Without forks: the sanitizer takes the threads of the parent for living in a child.
TESTS = ("notify/test_*.py", "core/test_lock*.py", "core/test_failures.py", "core/test_m*.py",
         "objects/test_locks.py")
# All but those that fork, crash or use up the process.
RUNTIME_TESTS = ("-Fork.*:*Crash*:EarlierHandler.*:*FatalSignal*:Assert.*:*child*:"
                 "*that_gets_no_thread*:Watchdog.*:*own_thread_as_that_ends")


def _reports(ended):
    return len(re.findall("WARNING: ThreadSanitizer: ", ended.out + ended.err))


def _runtime():
    build = Build("tsan").ready("kel_tests")
    program = os.path.join(ROOT, "build", "tsan", "bin", "kel_tests")
    environment = build.environment()
    del environment["LD_PRELOAD"]  # the program brings it
    ended = run_process(without_aslr("tsan") + [program, "--gtest_filter=" + RUNTIME_TESTS], 600,
                        environment)
    ran = re.search(r"(\d+) tests? from \d+ test suites? ran", ended.out)
    figure = "%d reports in %s tests of the runtime" % (
        _reports(ended), ran.group(1) if ran else "no")
    return Result(ended.status == 0 and ran is not None, figure, ended.text())


def run(form):
    if form == "short":
        return _runtime()
    build = Build("tsan").ready()
    runner = os.path.join(ROOT, "cmake", "run_python_test.py")
    modules = [path for pattern in TESTS
               for path in sorted(glob.glob(os.path.join(PYTHON_TESTS, pattern)))]
    ends = [build.run([runner, path], 600) for path in modules]
    ends.append(Run(["--steps", STEPS, "--forks", 0, "--quiet", 120], 1500, "tsan").ended)
    failed = [ended for ended in ends if ended.status or ended.late]
    figure = "%d reports in %d test modules and %d steps of the stress test" % (
        sum(map(_reports, ends)), len(modules), 10 * STEPS)
    return Result(not failed, figure, [line for ended in failed for line in ended.text()])


def planted(form):
    """Two threads that copy a pointer without the lock, or that raise a number."""
    if form == "short":
        return sanitizers.planted("tsan", {"race": "ThreadSanitizer: data race"})
    stress = Run(["--steps", 100, "--forks", 0, "--plant", "copy_without_lock"], 300, "tsan")
    caught = _reports(stress.ended) > 0 and "Kel::VFPtrInterface::ref" in stress.ended.err
    return Result(caught, "the race was %sreported" % ("" if caught else "not "), stress.details())
