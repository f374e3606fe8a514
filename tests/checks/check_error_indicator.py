"""Each function of the module fails if and only if it sets an error, over the Python tests.

The exceptions to it are those that docs/reliability.md lists; the check reads them there.
"""

import glob
import os
import re
import tempfile
import threading

import frame
from check_exceptions import DOCUMENT, table_rows

NAME = "error-indicator"
PASS = "0 violations but for those documented"
SECONDS = {"short": 30, "long": 120}

# The others need the tools and servers, too, or are long.
SHORT = ("objects", "collections", "convert", "reflection", "classes", "core", "notify")
SHORT_WITHOUT = ("test_fork.py", "test_interrupt.py", "test_fatal_handlers.py")


def _modules(form):
    found = sorted(glob.glob(os.path.join(frame.PYTHON_TESTS, "*", "test_*.py")))
    if form == "long":
        return found
    return [path for path in found if os.path.basename(os.path.dirname(path)) in SHORT
            and os.path.basename(path) not in SHORT_WITHOUT]


def _documented():
    with open(DOCUMENT) as document:
        rows = table_rows(document.read(), "function")
    return set("%s: %s" % (name.strip("`"), what) for name, what, _ in rows)


def _environment(log):
    watched = os.path.join(frame.HERE, "watched")
    build = frame.Build("release").ready("importable")
    path = ":".join([watched, build.folder, frame.PYTHON_TESTS])
    return build, {"PYTHONPATH": path, "KEL_CHECKED_LOG": log}


def _watch(form, log):
    """Runs the tests; gives the number of them that were killed at their deadline."""
    build, environment = _environment(log)
    if form == "long":
        frame.dev("build", "release")
    runner = os.path.join(frame.ROOT, "cmake", "run_python_test.py")
    waiting, late = _modules(form), []

    def work():
        while waiting:
            if build.run([runner, waiting.pop()], 300, **environment).late:
                late.append(1)

    workers = [threading.Thread(target=work) for _ in range(2)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    return len(late)


def _figures(log):
    """(violations and how often, calls, the most functions that one process watched)"""
    with open(log) as lines:
        text = lines.read()
    violations = {}
    for name in re.findall(r"^VIOLATION (.*)$", text, re.M):
        violations[name] = violations.get(name, 0) + 1
    told = [map(int, pair) for pair in re.findall(r"^CALLS (\d+) of (\d+) functions$", text, re.M)]
    return violations, sum(pair[0] for pair in told), max([0] + [pair[1] for pair in told])


def run(form):
    with tempfile.NamedTemporaryFile() as log:
        late = _watch(form, log.name)
        violations, calls, functions = _figures(log.name)
    documented = _documented()
    wrong = sorted(name for name in violations if name not in documented
                   and not name.startswith("kel_checked."))
    figure = "%d violations in %d calls of %d functions; %d as documented" % (
        sum(violations[name] for name in wrong), calls, functions,
        sum(count for name, count in violations.items() if name in documented))
    details = wrong + ["%d tests did not end" % late] * bool(late)
    return frame.Result(not details and calls > 10000, figure, details)


def planted(form):
    script = ("import _Kel, kel_checked\n"
              "for function in kel_checked.failsInSilence, kel_checked.succeedsInError:\n"
              "    try: function(); iter(()).next()\n"
              "    except Exception: pass\n")
    with tempfile.NamedTemporaryFile() as log:
        build, environment = _environment(log.name)
        ended = build.run(["-c", script], 60, **environment)
        violations = _figures(log.name)[0]
    wanted = {"kel_checked.failsInSilence: fails without an error": 1,
              "kel_checked.succeedsInError: succeeds with an error": 1}
    return frame.Result(violations == wanted, "%d of 2 faults seen" % len(violations), ended.text())
