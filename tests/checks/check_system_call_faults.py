"""Any call into the kernel may fail, in the client and in the server, and nothing stays behind.

EINTR, EAGAIN, ECONNRESET, EPIPE, EMFILE, ENOMEM and results of one byte, at each call that a server
makes from its start to its stop, and that a client makes from its connection to its end. Behind each
fault the same side works again.
"""

import os

from frame import HERE, Build, Result

NAME = "system-call-faults"
PASS = "each ordinal times each fault reached; no crash, no hang, descriptors back to start"
SECONDS = {"short": 15, "long": 45}

# Of the ordinals; which ones differs from fault to fault.
STEPS = {"short": 2, "long": 1}


def _run(side, step, plant="none"):
    build = Build("release").ready()
    watch = os.path.join(build.folder, "libsystem_faults.so")
    script = os.path.join(HERE, "system_call_faults.py")
    return build.run([script, side, str(step), plant], 600, LD_PRELOAD=watch,
                     KEL_TRACE="default/-,PyClient/-")


def run(form):
    figures, details, passed = [], [], True
    for side in "client", "server":
        ended = _run(side, STEPS[form])
        if ended.status or ended.late:
            passed = False
            figures.append("%s: FAILED" % side)
            details += ended.text()
        else:
            figures.append("%s: %s" % (side, ended.out.strip()))
    return Result(passed, "; ".join(figures), details)


def planted(form):
    ended = _run("server", 5, "leak")
    caught = ended.status == 1 and "descriptors before" in ended.err
    return Result(caught, "the kept descriptor was %sseen" % ("" if caught else "not "),
                  ended.text())
