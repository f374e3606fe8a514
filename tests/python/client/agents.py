"""What the tests of the agent client share: agents in processes of their own."""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import unittest

import kel_client

os.environ.setdefault("KEL_TRACE", "PyClient/-")  # the failures that tests are about

DEADLINE = 60  # seconds for an agent to come up or to end

AGENT = """
import sys
import PyServer
server = PyServer.PyServer("acme", sys.argv[1], port=0)
server.start()
sys.stdout.write("%s %d\\n" % (server.socketName, server.port))
sys.stdout.flush()
sys.stdin.read()
server.stop()
"""


class Agent(object):
    """The agent acme.NAME, in a process that serves until end() or kill()."""

    def __init__(self, name="shop"):
        self._process = subprocess.Popen(
            [sys.executable, "-u", "-c", AGENT, name],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, close_fds=True)
        self.pid = self._process.pid
        line = self._within(self._process.stdout.readline)
        if not line:
            raise AssertionError("the agent did not start: status %r" % self._process.wait())
        self.socketName, port = line.rsplit(" ", 1)
        self.port = int(port)

    def end(self):
        """Ends it in order, unless it has ended."""
        if self._process.poll() is None:
            self._process.stdin.close()
            self._within(self._process.wait)
        self._process.stdout.close()

    def kill(self):
        """Ends it with nothing put away."""
        self._process.kill()
        self._process.wait()

    def _within(self, wait):
        timer = threading.Timer(DEADLINE, os.kill, (self.pid, signal.SIGKILL))
        timer.start()
        try:
            return wait()
        finally:
            timer.cancel()


class AgentCase(unittest.TestCase):
    """Gives each test an agent directory, and a retry profile that tries once."""

    def setUp(self):
        self.folder = os.path.realpath(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder, True)
        self._environment = dict(os.environ)
        self.addCleanup(self._restoreEnvironment)
        os.environ["KELC_AGENTS_DIR"] = self.folder
        os.environ.pop("SUBSYSTEMID", None)
        kel_client.retryProfileIs([])

    def agent(self, *args):
        agent = Agent(*args)
        self.addCleanup(agent.end)
        return agent

    def path(self, name):
        return os.path.join(self.folder, name)

    def assertFails(self, cls, text, function, *args):
        """The call raises that class with a text that holds that one."""
        with self.assertRaises(cls) as raised:
            function(*args)
        self.assertIn(text, str(raised.exception))
        return raised.exception

    def _restoreEnvironment(self):
        os.environ.clear()
        os.environ.update(self._environment)
