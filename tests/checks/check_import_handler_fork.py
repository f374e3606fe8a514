"""Handlers that import, module bodies and forks at the same time never wait for each other.

Half of the rounds fork as they like, while modules leave the runtime alone in their bodies. In the
other half the bodies use the runtime, and forks hold the import lock: docs/locks.md tells why. The
planted fault is such a fork without the import lock.
"""

import os

from frame import HERE, Build, Result

NAME = "import-handler-fork"
PASS = "0 hangs in 10^4 rounds of the long form"
SECONDS = {"short": 5, "long": 60}

ROUNDS = {"short": 500, "long": 5000}  # of each half
ROUND_SECONDS = 30


def _run(mode, rounds, seconds):
    script = os.path.join(HERE, "import_handler_fork.py")
    return Build("release").ready().run([script, mode, str(rounds), str(seconds)],
                                        rounds + 10 * seconds)


def run(form):
    figures, details, passed = [], [], True
    for mode, which in ("plain", "bodies without the runtime"), ("guarded", "bodies that use it"):
        ended = _run(mode, ROUNDS[form], ROUND_SECONDS)
        if ended.status or ended.late:
            passed = False
            details += ended.text()
            figures.append("%s: ended with %d" % (which, ended.status))
        else:
            figures.append("%s: 0 hangs, %s" % (which, ended.out.strip()))
    return Result(passed, "; ".join(figures), details)


def planted(form):
    ended = _run("unguarded", 2000, 3)
    caught = ended.status == -14  # SIGALRM
    return Result(caught, "the hang was %sfound" % ("" if caught else "not "), ended.text())
