"""No operation leaves a reference, a descriptor or a runtime object behind, in success or failure.

The rows are those of rows.py, which has to have one for each name that introspection finds in the
module and its types, under the debug interpreter of Debian 11.
"""

import os
import re

import frame

NAME = "reference-delta"
PASS = "0 references, 0 descriptors, 0 runtime objects, for all operations"
SECONDS = {"short": 25, "long": 150}
REPETITIONS = {"short": 100, "long": 1000}

SCRIPT = os.path.join(frame.HERE, "measure_references.py")


def _measure(form, *arguments):
    build = frame.Build("checked").ready()
    return build.run([SCRIPT, str(REPETITIONS[form])] + list(arguments), 3600,
                     KEL_TRACE="default/-", KEL_TRACE_FILE="/dev/null")


def run(form):
    ended = _measure(form)
    lines = ended.out.splitlines()
    bad = [line for line in lines if line.startswith(("LEFT ", "MISSING "))]
    figures = dict(re.findall(r"^(ROWS|OPERATIONS) (\d+)$", ended.out, re.M))
    if ended.status != 0 or len(figures) != 2:
        return frame.Result(False, "the measurement did not end", ended.text())
    sums = [0, 0, 0]
    for line in bad:
        found = re.search(r"(-?\d+) references, (-?\d+) descriptors, (-?\d+) runtime", line)
        if found:
            sums = [total + abs(int(each)) for total, each in zip(sums, found.groups())]
    figure = "%d references, %d descriptors, %d runtime objects over %s operations in %s rows" % (
        tuple(sums) + (figures["OPERATIONS"], figures["ROWS"]))
    return frame.Result(not bad, figure, bad)


def planted(form):
    ended = _measure(form, "--plant")
    found = re.search(r"LEFT planted.*", ended.out)
    return frame.Result(bool(found), found.group(0) if found else "a kept object was not seen",
                        ended.text())
