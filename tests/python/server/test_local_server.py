# coding: utf-8
"""What a client calls in its own process, and the server next to the runtime."""

import __main__
import os
import unittest

import PyServer
from kel_testing import in_child
from serving import ServerCase

HERE = os.path.dirname(os.path.abspath(__file__))


class LocalServer(unittest.TestCase):

    def setUp(self):
        self.local = PyServer._LocalServer()
        self.addCleanup(vars(__main__).pop, "told", None)

    def test_it_is_a_type_without_arguments(self):
        self.assertIsInstance(PyServer._LocalServer, type)
        self.assertIn("_LocalServer", vars(PyServer))

    def test_an_expression_gives_a_str(self):
        __main__.told = 41
        for text, result in (
                ("told + 1", "42"), ("None", "None"), ("'\\xff'", "\xff"), ("u'€'", "€"),
                ("''", ""), ("'a' * 100000000", "a" * 100000000)):
            answer = self.local.doEval(text)
            self.assertIs(type(answer), str)
            self.assertTrue(answer == result, text)

    def test_statements_give_an_empty_str(self):
        answer = self.local.doExec("told = 5\nif told:\n    told += 1")
        self.assertEqual((type(answer), answer, __main__.told), (str, "", 6))

    def test_what_a_text_raises_is_passed_on(self):
        for text, cls in (("1 / 0", ZeroDivisionError), ("1 +", SyntaxError)):
            self.assertRaises(cls, self.local.doEval, text)
        self.assertRaises(SystemExit, self.local.doExec, "raise SystemExit")

    def test_it_needs_no_running_server(self):
        self.assertEqual(self.local.doEval("1 + 1"), "2")


class Runtime(ServerCase):

    def test_a_held_activity_lock_holds_up_nobody(self):
        trace = self.path("trace")
        in_child("""
            import sys, threading
            sys.path.insert(0, %r)
            import _Kel, PyServer
            from kel_testing import wait_until
            from serving import Client
            server = PyServer.PyServer("acme", "shop", maxConnections=1)
            server.start()
            _Kel.acquireActivityLock()
            for _ in range(3):
                client = Client(server.socketName)
                assert client.eval("1 / 0")[0] == "ER"
                assert Client(server.socketName, greet=False).isClosed()
                client.close()
                wait_until(lambda: "PyServer connection" not in [
                    thread.name for thread in threading.enumerate()])
            _Kel.releaseActivityLock()
            server.stop()
            wait_until(lambda: threading.active_count() == 1)
            """ % HERE, env={"KEL_TRACE": "default/0-9", "KEL_TRACE_FILE": trace}).expect()
        with open(trace) as lines:
            self.assertEqual(lines.read().count("refused a connection, there are 1"), 3)

    def test_the_text_of_a_client_changes_the_runtime(self):
        in_child("""
            import sys
            sys.path.insert(0, %r)
            import _Kel, acme, PyServer
            from serving import Client
            item = acme.Item("one", 1)
            with PyServer.PyServer("acme", "shop") as server:
                client = Client(server.socketName)
                assert client.execute("item.size = 5") == ("OK", "")
                assert client.eval("int(item.size)") == ("OK", "5"), client.eval("item.size")
                assert _Kel.activityLockOwner() == 0
            """ % HERE).expect()

    def test_without_the_runtime_there_is_a_server_and_no_trace(self):
        in_child("""
            import sys
            sys.path.insert(0, %r)
            sys.modules["_Kel"] = None      # as if it could not be imported
            import PyServer
            sys.modules["kel_testing"] = __import__("imp").new_module("kel_testing")
            sys.modules["kel_testing"].wait_until = None
            from serving import Client
            with PyServer.PyServer("acme", "shop", maxConnections=1) as server:
                client = Client(server.socketName)
                assert client.eval("1") == ("OK", "1")
                assert Client(server.socketName, greet=False).isClosed()
            """ % HERE).expect()


if __name__ == "__main__":
    unittest.main()
