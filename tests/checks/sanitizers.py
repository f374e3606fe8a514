"""Runs of the tests in a build with a sanitizer."""

import multiprocessing
import os
import re

from frame import ROOT, Build, Result


def tests(preset, chosen):
    ended = Build(preset).ctest(["-j", str(multiprocessing.cpu_count())] + chosen, seconds=7200)
    reports = len(re.findall(r"(?:ERROR|WARNING): \w+Sanitizer|runtime error: ", ended.out))
    ran = re.search(r"tests passed, (\d+) tests failed out of (\d+)", ended.out)
    if not ran:
        return Result(False, "the tests did not end", ended.text())
    figure = "%d reports, %s failures in %s tests" % (reports, ran.group(1), ran.group(2))
    # A planted fault has to report, and its test passes only if it does.
    return Result(ended.status == 0, figure, ended.text())


def planted(preset, faults):
    """Faults by the function that commits them, each with the report that it has to give."""
    build = Build(preset).ready("planted")
    modules = os.path.join(ROOT, "build", preset, "planted")
    missed = []
    for name, report in sorted(faults.items()):
        ended = build.run(["-c", "import planted; planted.%s()" % name], 60, PYTHONPATH=modules)
        if report not in ended.out + ended.err:
            missed.append("%s: no '%s'" % (name, report))
    return Result(not missed, "%d of %d faults reported" % (len(faults) - len(missed), len(faults)),
                  missed)
