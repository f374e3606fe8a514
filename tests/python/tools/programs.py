"""kel-agent and kel-eval as child processes, each test with an agents' folder of its own."""

import os
import resource
import shutil
import signal
import subprocess
import tempfile
import textwrap
import unittest

import Kel
from kel_testing import Outcome, wait_until

DEADLINE = 60  # seconds; far above what a program needs, for machines under load

# The programs lie beside the folder of the Python modules.
_BIN = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(Kel.__file__))), "bin")
AGENT = os.path.join(_BIN, "kel-agent")
BROWSE = os.path.join(_BIN, "kel-browse")
EVAL = os.path.join(_BIN, "kel-eval")
SCHEMA = os.path.join(_BIN, "kel-schema")

# For scripts that react; the runtime's own names are long.
REACTORS = """
import os, signal, sys, time
import _Kel
manager = _Kel.singleton("Kel::ActivityManager")
clock = _Kel.singleton("Kel::Clock")
ClockNotifiee = _Kel.pyType(_Kel.typeNode("Kel::PyClockNotifiee"))

def timer(function, time=0.0):
    made = ClockNotifiee(clock, _Kel.handle(function))
    made.timeMinProxy = time
    return made

"""


def start_group():
    # A group of its own, so that what it starts goes with it.
    os.setsid()
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    signal.signal(signal.SIGINT, signal.SIG_DFL)


class Program(object):
    """One that runs. Its output goes through files, so that a child that lives on holds nobody."""

    def __init__(self, command, env, cwd, prepare=start_group, text=""):
        self._out = tempfile.TemporaryFile()
        self._err = tempfile.TemporaryFile()
        given = tempfile.TemporaryFile()
        given.write(text)
        given.seek(0)
        with given:
            self._child = subprocess.Popen(
                command, stdin=given, stdout=self._out, stderr=self._err, env=env, cwd=cwd,
                preexec_fn=prepare, close_fds=True)
        self.pid = self._child.pid

    def send(self, number):
        os.kill(self.pid, number)

    @property
    def lives(self):
        """False once it has ended; its id stays taken until wait() or kill()."""
        with open("/proc/%d/stat" % self.pid) as status:
            return status.read().rpartition(")")[2].split()[0] != "Z"

    def wait(self):
        """How it ended; at the deadline it is killed."""
        late = False
        try:
            wait_until(lambda: not self.lives, DEADLINE)
        except AssertionError:
            late = True
        self.kill()
        return Outcome(self._child.returncode, self.out, self.err, late)

    def kill(self):
        """Ends it and what it has left of its group."""
        if self._child.returncode is None:
            os.killpg(self.pid, signal.SIGKILL)
            self._child.wait()

    @property
    def out(self):
        return _text(self._out)

    @property
    def err(self):
        return _text(self._err)


def _text(stream):
    # By a descriptor of its own: the place in the stream is the program's.
    with open("/proc/self/fd/%d" % stream.fileno()) as again:
        return again.read()


class ProgramCase(unittest.TestCase):
    """A test has a folder; every program that it started is ended with it."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="kel-")
        self.addCleanup(shutil.rmtree, self.folder, True)
        self.agents = os.path.join(self.folder, "agents")
        os.mkdir(self.agents)
        self.env = dict(os.environ, KELC_AGENTS_DIR=self.agents, HOME=self.folder,
                        PYTHONUNBUFFERED="1")
        # The programs find their modules by themselves.
        for name in "PYTHONPATH", "SUBSYSTEMID", "KEL_TRACE", "KEL_TRACE_FILE":
            self.env.pop(name, None)

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def write(self, name, text):
        with open(self.path(name), "w") as out:
            out.write(textwrap.dedent(text))
        return self.path(name)

    def program(self, command, **keywords):
        program = Program(command, self.env, self.folder, **keywords)
        self.addCleanup(program.kill)
        return program

    def agent(self, script=None, *args, **keywords):
        """Starts the agent acme.shop; `script` is the text of its script."""
        options = ["--group", "acme", "--name", keywords.pop("name", "shop"), "--schema", "acme"]
        options += keywords.pop("options", [])
        if script is not None:
            options.append(self.write("script.py", script))
        return self.program([AGENT] + options + list(args), **keywords)

    def run_agent(self, *args, **keywords):
        """Starts one and waits for its end."""
        return self.agent(*args, **keywords).wait()

    def serving(self, *args, **keywords):
        """Starts one and waits until its script is done and the loop runs."""
        name = keywords.get("name", "shop")
        agent = self.agent(*args, **keywords)
        running = "__import__('_Kel').singleton('Kel::ActivityManager').isRunning"

        def serves():
            if not agent.lives:
                raise AssertionError("the agent has ended: %r" % agent.wait())
            return (os.path.exists(self.agent_file(name)) and
                    self.eval("--no-wait", "acme." + name, running).out == "True\n")

        wait_until(serves, DEADLINE)
        return agent

    def command(self, program, *args, **keywords):
        return self.program([program] + list(args), **keywords).wait()

    def eval(self, *args, **keywords):
        return self.command(EVAL, *args, **keywords)

    def value(self, text):
        """The value of an expression in acme.shop."""
        return self.eval("acme.shop", text).expect().out.rstrip("\n")

    def agent_file(self, name="shop"):
        return os.path.join(self.agents, "acme." + name)

    def socket_of(self, name="shop"):
        with open(self.agent_file(name)) as lines:
            return lines.read().split("\n")[2]

    def assertGone(self, socket_name):
        """Agent file and socket are."""
        self.assertEqual([name for name in os.listdir(self.agents) if name[0] != "."], [])
        self.assertFalse(os.path.exists(socket_name))

    def assertSays(self, outcome, status, text):
        """It ended with that status and one line on standard error that holds the text."""
        outcome.expect(status)
        self.assertEqual(outcome.out, "")
        self.assertIn(text, outcome.err)
        self.assertEqual(outcome.err.count("\n"), 1, outcome.err)
