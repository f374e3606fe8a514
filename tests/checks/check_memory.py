"""All operations under the address and undefined behaviour sanitizers; their leaks by two checkers.

The short form is the first part alone. The leaks want an interpreter without an allocator of its
own, which is built from source: LeakSanitizer and valgrind look at what each row of rows.py leaves
behind at the end of the process. All tests under the sanitizers are the check sanitizers-address.
"""

import os
import re

import frame

NAME = "memory"
PASS = "0 reports, 0 bytes above those of an empty script"
SECONDS = {"short": 4, "long": 30}

SCRIPT = os.path.join(frame.HERE, "perform_rows.py")
QUIET = {"KEL_TRACE": "default/-", "KEL_TRACE_FILE": "/dev/null"}
VALGRIND = ["valgrind", "--leak-check=full", "--show-leak-kinds=definite,indirect",
            "--errors-for-leak-kinds=definite,indirect", "--error-exitcode=9"]


def _sanitized(arguments):
    return frame.Build("asan").ready().run(arguments, 3600, **QUIET)


def _leaks(arguments):
    """(bytes that LeakSanitizer tells of, how it ended)"""
    build = frame.Build("asan", frame.plain_interpreter()).ready()
    options = "detect_leaks=1:detect_stack_use_after_return=0"
    ended = build.run(arguments, 3600, ASAN_OPTIONS=options, **QUIET)
    found = re.search(r"SUMMARY: AddressSanitizer: (\d+) byte\(s\) leaked", ended.err)
    return int(found.group(1)) if found else 0, ended


def _losses(arguments):
    """(errors, bytes lost) that valgrind tells of, and how it ended."""
    build = frame.Build("release", frame.plain_interpreter()).ready()
    ended = build.run_under(VALGRIND, arguments, 3600, **QUIET)
    lost = re.findall(r"(?:definitely|indirectly) lost: ([\d,]+) bytes", ended.err)
    errors = re.search(r"ERROR SUMMARY: (\d+) errors", ended.err)
    count = int(errors.group(1)) if errors else -1
    return count, sum(int(each.replace(",", "")) for each in lost), ended


def run(form):
    sanitized = _sanitized([SCRIPT, "3"])
    rows = re.search(r"^ROWS (\d+)$", sanitized.out, re.M)
    reports = len(re.findall(r"ERROR: \w+Sanitizer|runtime error: ", sanitized.err))
    if sanitized.status != 0 or not rows:
        return frame.Result(False, "%d reports" % reports, sanitized.text())
    if form == "short":
        return frame.Result(True, "0 reports over %s rows; leaks are for the long form" %
                            rows.group(1))
    base, _ = _leaks(["-c", "pass"])
    leaked, leaks = _leaks([SCRIPT, "1"])
    _, base_lost, _ = _losses(["-c", "pass"])
    errors, lost, losses = _losses([SCRIPT, "1"])
    figure = ("0 reports over %s rows; LeakSanitizer: %d bytes above the empty script; "
              "valgrind: %d errors, %d bytes above it" % (
                  rows.group(1), leaked - base, errors, lost - base_lost))
    passed = leaks.status == 0 and losses.status == 0 and errors == 0
    passed = passed and leaked == base and lost == base_lost
    return frame.Result(passed and "ROWS" in leaks.out and "ROWS" in losses.out, figure,
                        leaks.text() + losses.text())


def planted(form):
    """An overrun; in the long form ten blocks that are lost as well."""
    build = frame.Build("asan").ready("planted", "importable")
    modules = os.path.join(frame.ROOT, "build", "asan", "planted")
    ended = build.run(["-c", "import planted; planted.overrun()"], 60, PYTHONPATH=modules)
    seen = ["the overrun"] * ("AddressSanitizer: heap-buffer-overflow" in ended.err)
    wanted = 1
    if form == "long":
        wanted = 3
        seen += ["a leak"] * (_leaks([SCRIPT, "1", "--plant"])[0] >= 900)
        seen += ["a loss"] * (_losses([SCRIPT, "1", "--plant"])[1] >= 900)
    return frame.Result(len(seen) == wanted, "%d of %d seen" % (len(seen), wanted), seen)
