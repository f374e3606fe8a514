"""The agent client in the agent's own process, where commands go to PyServer._LocalServer."""

import shutil
import tempfile
import unittest

from kel_testing import in_child

PROLOGUE = """
import os
import threading
import kel_client
import PyServer

kel_client.retryProfileIs([])


def refusal(function, *args):
    try:
        function(*args)
    except Exception as error:
        return "%s: %s" % (type(error).__name__, error)


server = PyServer.PyServer("acme", "shop")
server.start()
client = kel_client.Client("acme", "shop")
assert client.sameProcess and client.connected
assert client.sock == -1
"""


class SameProcess(unittest.TestCase):

    def run_child(self, source):
        folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, folder, True)
        # In __main__, where the text is evaluated, and with nothing indented.
        outcome = in_child(PROLOGUE + source, env={
            "KELC_AGENTS_DIR": folder, "KEL_TRACE": "PyClient/-"})
        outcome.expect(0)
        return outcome

    def test_commands_run_in_main_on_the_callers_thread(self):
        self.run_child("""
assert client.execute("x = 7") == ""
assert x == 7
assert client.eval("x + 1") == "8"
assert client.eval("threading.current_thread().name") == "MainThread"
assert client.eval("u'\\\\xe9'") == "\\xc3\\xa9"
""")

    def test_a_failure_tells_only_where_it_happened(self):
        self.run_child("""
for text in ("nonesuch", "1 +", "exit(3)"):
    told = refusal(client.eval, text)
    assert told == 'RuntimeError: Kel::RpcException("Error calling doEval on ' \\
        '_LocalServer instance")', told
told = refusal(client.execute, "raise ValueError")
assert "Error calling doExec" in told, told
assert client.eval("2") == "2"
""")

    def test_a_result_is_cut_to_the_buffer(self):
        self.run_child("""
assert client.eval("'0123456789'", 10) == "0123456789"
assert client.eval("'0123456789'", 4) == "0123"
""")

    def test_an_init_command_runs(self):
        self.run_child("""
other = kel_client.Client("acme", "shop", init="y = 'r' * 1000")
assert len(y) == 1000
assert other.noReconnect
""")

    def test_a_child_of_the_agent_is_no_agent_and_finds_its_parent(self):
        self.run_child("""
child = os.fork()
if child == 0:
    # The parent answers from the thread of its server.
    try:
        other = kel_client.Client("acme", "shop")
        fine = not other.sameProcess and other.eval("os.getpid()") == str(os.getppid())
    finally:
        os._exit(0 if fine else 1)
assert os.waitpid(child, 0)[1] == 0
""")


if __name__ == "__main__":
    unittest.main()
