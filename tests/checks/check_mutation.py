"""Iterators stay safe and truthful while their collection changes, under the address sanitizer.

See iterate_mutations.py for what an iterator may do. docs/reliability.md tells it to users.
"""

import os
import re

import frame

NAME = "mutation-while-iterating"
PASS = "0 faults, 0 reports"
SECONDS = {"short": 6, "long": 80}
ROUNDS = {"short": 5000, "long": 100000}

SCRIPT = os.path.join(frame.HERE, "iterate_mutations.py")


def _iterate(rounds, *arguments):
    build = frame.Build("asan").ready()
    return build.run([SCRIPT, str(rounds), "1"] + list(arguments), 3600)


def run(form):
    ended = _iterate(ROUNDS[form])
    faults = re.findall(r"^FAULT .*", ended.out, re.M)
    reports = len(re.findall(r"ERROR: AddressSanitizer|runtime error: ", ended.err))
    told = re.search(r"^ROUNDS (\d+) of (\d+) kinds$", ended.out, re.M)
    figure = "%d faults, %d reports in %s interleavings over %s kinds of collection" % (
        (len(faults), reports) + (told.groups() if told else ("not all", "the")))
    passed = told and not faults and not reports and ended.status == 0
    return frame.Result(bool(passed), figure, faults + ended.text() * (not passed))


def planted(form):
    ended = _iterate(100, "--plant")
    faults = re.findall(r"^FAULT round .*", ended.out, re.M)
    return frame.Result(len(faults) == 1, faults[0] if faults else "nothing was seen", ended.text())
