"""A crash of any sort on any thread is reported with the Python frames, and ends by its signal.

SIGSEGV, SIGABRT, SIGBUS, SIGFPE, an uncaught C++ exception, a stack overflow and a crash inside of
malloc; in the main thread, without the GIL, in a thread of Python, a handler on the runtime's thread
and a thread that Python never saw; each also while an exception is handled whose text needs memory.
"""

import multiprocessing.pool
import os
import re
import select
import signal
import subprocess
import time

import frame
from frame import HERE, Build, Result

NAME = "crash-report"
PASS = "reports with all frames within 2 s, the original signals, 0 hangs of 500 in the long form"
SECONDS = {"short": 10, "long": 60}

ROUNDS = {"short": 1, "long": 8}
# A machine that runs other tests beside the short form may be late.
LONGEST = {"short": 20.0, "long": 2.0}  # seconds

SIGNALS = {"segv": signal.SIGSEGV, "abort": signal.SIGABRT, "bus": signal.SIGBUS,
           "fpe": signal.SIGFPE, "exception": signal.SIGABRT, "overflow": signal.SIGSEGV,
           "malloc": signal.SIGABRT}
PLACES = ("main", "without", "thread", "handler", "native")
HEAD = "\nPython traceback (most recent call FIRST):\n"
NO_FRAMES = "\nNo Python traceback available\n"


def _read(descriptor, enough, end):
    """What comes until enough(text) or the end of the stream; None at the deadline."""
    text = ""
    while not enough(text):
        if not select.select([descriptor], [], [], max(0, end - time.time()))[0]:
            return None
        piece = os.read(descriptor, 65536)
        if not piece:
            break
        text += piece
    return text


def _crash(job):
    """What is wrong with the report, and how long the process took to its end."""
    build, way, place, handled = job
    command = [build.python, os.path.join(HERE, "crashes.py"), way, place, handled]
    child = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                             env=build.environment(), close_fds=True)
    try:
        shown = _read(child.stdout.fileno(), lambda text: text.endswith("now\n"), time.time() + 60)
        started = time.time()
        report = _read(child.stderr.fileno(), lambda text: False, started + 30)
        took = time.time() - started
    finally:
        if child.poll() is None and (shown is None or report is None):
            child.kill()
        status = child.wait()
        child.stdout.close()
        child.stderr.close()
    if shown is None or report is None:
        return "it hung", took
    return _fault(shown[:-len("now\n")], report, status, way), took


def _fault(frames, report, status, way):
    # A text of an exception that hangs has a frame, too.
    told = re.sub('(?<=FIRST.:\n)  File ".*", line [0-9]+, in __str__\n', "", report)
    wanted = HEAD + frames if frames else NO_FRAMES
    if status != -SIGNALS[way]:
        return "it ended with %d\n%s" % (status, report)
    if not told.endswith(wanted):
        return "no frames as wanted:\n%s\nbut\n%s" % (wanted, report)
    if "fatal signal %d " % SIGNALS[way] not in report:
        return "no word of the signal:\n" + report
    return None


def run(form):
    build = Build("release").ready()
    jobs = [(build, way, place, handled) for _ in range(ROUNDS[form]) for way in sorted(SIGNALS)
            for place in PLACES for handled in ("handled", "not")
            if not (place == "native" and handled == "handled")]
    crashes = multiprocessing.pool.ThreadPool(2).imap(_crash, jobs)
    outcomes = list(frame.progress.along(crashes, len(jobs)))
    wrong = ["%s %s %s: %s" % (job[1:] + (fault or "late",)) for job, (fault, took)
             in zip(jobs, outcomes) if fault or took > LONGEST[form]]
    figure = "%d of %d reports whole, 0 hangs, the slowest took %.1f s" % (
        len(jobs) - len(wrong), len(jobs), max(took for _, took in outcomes))
    return Result(not wrong, figure, [line for each in wrong for line in each.splitlines()[-40:]])


def planted(form):
    """A report that tells one frame less."""
    fault, _ = _crash((Build("release").ready(), "segv", "main", "planted"))
    caught = bool(fault) and "no frames as wanted" in fault
    return Result(caught, "the missing frame was %sseen" % ("" if caught else "not "), [str(fault)])
