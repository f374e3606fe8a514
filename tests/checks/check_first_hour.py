"""What docs/first-hour.md shows happens in a bare Debian, from the clone to an agent that is asked.

The page is typed in a chroot, where ./dev installs and builds what it needs, by a clone of what is
committed. It takes root.
"""

import os
import sys

import chroot
import frame

sys.path.insert(0, os.path.join(frame.ROOT, "tests", "docs"))
import first_hour

NAME = "first-hour"
PASS = "each command prints what the page shows, all within an hour"
SECONDS = {"short": 0, "long": 700}
LONG_ONLY = True


def _result(page):
    if chroot.whyNot():
        return frame.Result(True, "skipped: " + chroot.whyNot())
    typed = first_hour.steps(page)
    got = first_hour.in_chroot(typed)
    wrong = first_hour.compare(typed, got)
    sums = first_hour.times(typed, got)
    total = sum(seconds for _, seconds in sums)
    figure = "%d commands in %s" % (len(got), first_hour.clock(total))
    details = ["%s: %s" % (heading, first_hour.clock(seconds)) for heading, seconds in sums]
    return frame.Result(not wrong and total < 3600, figure, wrong + details)


def _page():
    with open(first_hour.PAGE) as source:
        return source.read()


def run(form):
    return _result(_page())


def planted(form):
    """A page that shows another end of the agent than it has."""
    if chroot.whyNot():
        return frame.Result(True, "skipped: " + chroot.whyNot())
    result = _result(_page().replace("status 0\n", "status 9\n"))
    told = [line for line in result.details if line.startswith("+status")]
    return frame.Result(told == ["+status 0"], "told: " + ", ".join(told), result.details)
