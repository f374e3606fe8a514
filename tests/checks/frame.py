"""What the checks share: builds made ready, processes with deadlines, results.

A check is a module check_NAME.py of this folder with

    NAME        as in ./dev check NAME
    PASS        the figure that it has to reach, in words
    SECONDS     about how long each form takes on two cores once its builds stand:
                {"short": .., "long": ..}
    run(form)       of "short" or "long": the Result
    planted(form)   the same with one fault planted: the Result is passed if the fault was caught

and a docstring whose first line says what it proves. LONG_ONLY = True keeps it out of the short
run.
"""

import ctypes
import os
import resource
import signal
import subprocess
import sys
import tempfile
import threading

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(ROOT, "tools"))
from progress import Silent  # noqa: E402

PYTHON_TESTS = os.path.join(ROOT, "tests", "python")

# What a sanitizer's runtime is told, beside what the check itself sets.
SANITIZER_OPTIONS = {
    "asan": {"ASAN_OPTIONS": "detect_leaks=0:detect_stack_use_after_return=1",
             "UBSAN_OPTIONS": "print_stacktrace=1"},
    "tsan": {"TSAN_OPTIONS": "halt_on_error=1:second_deadlock_stack=1:report_thread_leaks=0"}}

PRELOADED = {"asan": ("libasan.so", "libubsan.so", "libstdc++.so"),
             "tsan": ("libtsan.so", "libstdc++.so")}


_PR_SET_PDEATHSIG = 1
_prctl = ctypes.CDLL(None).prctl

# How far the run is, for a check that has many steps: progress.step() and progress.along().
progress = Silent()


class Result(object):
    """`figure` is one line, `details` are the lines behind it that a failure shows."""

    def __init__(self, passed, figure, details=()):
        self.passed, self.figure, self.details = passed, figure, list(details)


class NotReady(Exception):
    """A build or an interpreter cannot be had; the text says why."""


class Ended(object):
    """How a process ended: `status` as the shell's exit status, or minus the signal's number."""

    def __init__(self, status, out, err, late):
        self.status, self.out, self.err = status, out, err
        self.late = late  # it was killed at the deadline

    def text(self):
        how = "killed at its deadline" if self.late else "ended with status %d" % self.status
        return [how] + (self.out + self.err).splitlines()[-40:]


def dev(*arguments):
    """Runs a verb of ./dev; gives what it prints."""
    process = subprocess.Popen([os.path.join(ROOT, "dev")] + list(arguments),
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    text = process.communicate()[0]
    if process.returncode != 0:
        raise NotReady("./dev %s failed:\n%s" % (" ".join(arguments), text[-6000:]))
    return text


def plain_interpreter():
    """One without an allocator of its own, for leak checkers. Its first time takes some minutes."""
    return dev("interpreter", "plain").splitlines()[-1]


class Build(object):
    """A build of all that Python imports: "release", "asan", "tsan", or "checked", which is for
    Debian's debug interpreter. The interpreter may be another of the same sort."""

    def __init__(self, preset, python=None):
        self.preset = preset
        # A test of ctest is told the build that it belongs to.
        self.folder = os.environ.get("KEL_CHECK_RELEASE") if preset == "release" else None
        self._python = python

    @property
    def python(self):
        if self._python:
            return self._python
        if self.preset == "checked":
            return os.path.join(ROOT, "build", "python27-debug", "python2.7")
        return sys.executable

    def ready(self, *targets):
        """Builds what is not up to date; gives itself. All that Python imports, unless targets
        are named."""
        if self.folder is None:
            command = ["build", self.preset]
            for target in targets or ("importable",):
                command += ["--target", target]
            dev(*command)
            self.folder = os.path.join(ROOT, "build", self.preset, "python")
        return self

    def environment(self, **others):
        """Of a process that imports from this build."""
        path = [self.folder, PYTHON_TESTS, HERE]
        environment = dict(os.environ, PYTHONPATH=":".join(path), PYTHONDONTWRITEBYTECODE="1")
        environment.update(SANITIZER_OPTIONS.get(self.preset, {}))
        libraries = [_library(name) for name in PRELOADED.get(self.preset, ())]
        if libraries:
            environment["LD_PRELOAD"] = ":".join(libraries)
        environment.update(others)
        return environment

    def run(self, arguments, seconds, **environment):
        """Runs the interpreter, in a session of its own that ends with it; gives how it Ended."""
        return self.run_under([], arguments, seconds, **environment)

    def run_under(self, tool, arguments, seconds, **environment):
        """The same, with a tool of that command in front."""
        environment = self.environment(**environment)
        command = tool + [self.python, "-u"] + list(arguments)
        if without_aslr(self.preset):
            # Only behind the program that turns the randomisation off.
            preload = "LD_PRELOAD=" + environment.pop("LD_PRELOAD")
            command = without_aslr(self.preset) + ["env", preload] + command
        return run_process(command, seconds, environment)

    def ctest(self, arguments, seconds):
        """Runs tests of a whole build; gives how ctest Ended."""
        dev("build", self.preset)
        return run_process(without_aslr(self.preset) + ["ctest", "--preset", self.preset] +
                           list(arguments), seconds, dict(os.environ), folder=ROOT)


def _library(name, known={}):
    if name not in known:
        command = ["g++", "-print-file-name=" + name]
        known[name] = subprocess.Popen(command, stdout=subprocess.PIPE).communicate()[0].strip()
    return known[name]


def without_aslr(preset):
    """The thread sanitizer wants its shadow memory where wide randomisation may put others."""
    if preset != "tsan":
        return []
    quiet = open(os.devnull, "w")
    return ["setarch", "-R"] if subprocess.call(
        ["setarch", "-R", "true"], stderr=quiet) == 0 else []


def _start():
    os.setsid()
    _prctl(_PR_SET_PDEATHSIG, signal.SIGKILL)  # of a check that is itself ended at once
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    signal.signal(signal.SIGINT, signal.default_int_handler)


def run_process(command, seconds, environment, folder=None):
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        child = subprocess.Popen(command, stdin=open(os.devnull), stdout=out, stderr=err,
                                 env=environment, cwd=folder, preexec_fn=_start, close_fds=True)
        late = []

        def end():
            late.append(True)
            _kill_group(child.pid)

        timer = threading.Timer(seconds, end)
        timer.start()
        try:
            status = child.wait()
        finally:
            timer.cancel()
            _kill_group(child.pid)
        out.seek(0)
        err.seek(0)
        return Ended(status, out.read(), err.read(), bool(late))


def _kill_group(number):
    try:
        os.killpg(number, signal.SIGKILL)
    except OSError:
        pass  # all of it has ended
