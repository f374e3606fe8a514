"""Every allocation of every operation fails, once and for ever: that is told, or it completes.

The allocations are those of the module and of the runtime; the operations the rows of rows.py.
Once there is memory again, the same operation comes out as ever.
"""

import os
import re

import frame

NAME = "allocation-failure"
PASS = "0 wrong: completion, the usual error, want of memory, or a documented ending"
SECONDS = {"short": 5, "long": 120}
ONE_IN = {"short": 10, "long": 1}

SCRIPT = os.path.join(frame.HERE, "fail_allocations.py")


def _fail(one_in, *arguments):
    build = frame.Build("release").ready()
    return build.run([SCRIPT, str(one_in)] + list(arguments), 3600,
                     KEL_TRACE="default/-", KEL_TRACE_FILE="/dev/null")


def run(form):
    ended = _fail(ONE_IN[form])
    wrong = re.findall(r"^wrong .*", ended.out, re.M)
    told = re.search(r"^TOTAL (.*)$", ended.out, re.M)
    passed = told is not None and not wrong and ended.status == 0
    return frame.Result(passed, told.group(1) if told else "it did not end",
                        wrong or ended.text())


def planted(form):
    ended = _fail(1, "--plant")
    found = re.findall(r"^wrong .* of planted .*", ended.out, re.M)
    return frame.Result(len(found) == 2, found[0] if found else "nothing was seen", ended.text())
