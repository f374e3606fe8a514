"""Scripts in processes of their own: for what ends a process, or might hang, or must be fresh."""

import os
import resource
import signal
import subprocess
import sys
import tempfile
import textwrap
import threading
import time

DEADLINE = 60  # seconds; far above what a child needs, for machines under load


class Outcome(object):
    """How a child ended: `status` as the shell's exit status, or minus the signal's number."""

    def __init__(self, status, out, err, late):
        self.status = status
        self.out = out
        self.err = err
        self.late = late  # it was killed at the deadline

    def __repr__(self):
        return "Outcome(status=%r, late=%r)\n--- out\n%s\n--- err\n%s" % (
            self.status, self.late, self.out, self.err)

    def expect(self, status=0):
        """Gives itself, or raises an AssertionError that shows all that is known."""
        if self.late or self.status != status:
            raise AssertionError("expected status %r of %r" % (status, self))
        return self


def _start():
    # A group of its own, so that at the deadline its children go with it.
    os.setsid()
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    signal.signal(signal.SIGINT, signal.default_int_handler)


def in_child(source, args=(), env=None, deadline=DEADLINE):
    """Runs Python source, indented as it may be, in the same interpreter as this one.

    Standard output and error go through files, so that a grandchild that lives on holds nobody up.
    """
    environment = dict(os.environ, **(env or {}))
    # A crash ends a child by its signal under a sanitizer too.
    for name in "ASAN_OPTIONS", "TSAN_OPTIONS":
        options = environment.get(name)
        environment[name] = (options + ":" if options else "") + "handle_segv=0"
    command = [sys.executable, "-u", "-c", textwrap.dedent(source)] + list(args)
    late = []
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        child = subprocess.Popen(
            command, stdin=open(os.devnull), stdout=out, stderr=err, env=environment,
            preexec_fn=_start, close_fds=True)

        def end():
            late.append(True)
            os.killpg(child.pid, signal.SIGKILL)

        timer = threading.Timer(deadline, end)
        timer.start()
        status = child.wait()
        timer.cancel()
        out.seek(0)
        err.seek(0)
        return Outcome(status, out.read(), err.read(), bool(late))


def wait_until(condition, deadline=DEADLINE):
    """Returns once condition() is true; raises an AssertionError at the deadline."""
    end = os.times()[4] + deadline  # which nobody sets
    while not condition():
        if os.times()[4] > end:
            raise AssertionError("it did not come true in %s seconds" % deadline)
        time.sleep(0.002)
