# coding: utf-8
"""The agent client against PyServer in another process."""

import errno
import os
import unittest

import kel_client
from kel_testing import in_child

from agents import AgentCase


class Finding(AgentCase):

    def test_an_agent_is_found_by_its_names_its_socket_and_its_port(self):
        agent = self.agent()
        for client in (
                kel_client.Client("acme", "shop"), kel_client.Client(socket=agent.socketName),
                kel_client.Client(port=agent.port)):
            self.assertTrue(client.connected)
            self.assertFalse(client.sameProcess)
            self.assertEqual(client.eval("__import__('os').getpid()"), str(agent.pid))

    def test_the_agent_file_tells_port_and_socket(self):
        agent = self.agent()
        client = kel_client.Client("acme", "shop")
        self.assertEqual(
            client.serverContacts(self.path("acme.shop")), (agent.port, agent.socketName))
        self.assertEqual(client.serverContacts(self.path("acme.other")), (-1, ""))

    def test_agents_are_told_apart_by_name_and_subsystem(self):
        os.environ["SUBSYSTEMID"] = "7"
        first, second = self.agent("shop"), self.agent("bank")
        self.assertTrue(os.path.exists(self.path("acme.shop.7")))
        for agent, name in ((first, "shop"), (second, "bank")):
            client = kel_client.Client("acme", name)
            self.assertEqual(client.serverName, "acme.%s.7" % name)
            self.assertEqual(client.eval("__import__('os').getpid()"), str(agent.pid))
        self.assertFails(
            RuntimeError, "Unable to connect to acme.shop", kel_client.Client, "acme", "shop", None,
            0, "x", "")  # an empty subsystem is none

    def test_an_agent_that_ended_is_not_found(self):
        self.agent().end()
        self.assertFails(
            RuntimeError, 'Kel::RpcConnectionException("Unable to connect to acme.shop")',
            kel_client.Client, "acme", "shop")

    def test_the_file_of_an_agent_that_was_killed_is_removed_by_the_first_look(self):
        agent = self.agent()
        agent.kill()
        self.assertTrue(os.path.exists(self.path("acme.shop")))
        self.assertFails(
            RuntimeError, "Unable to connect to acme.shop", kel_client.Client, "acme", "shop")
        self.assertFalse(os.path.exists(self.path("acme.shop")))

    def test_a_socket_that_is_gone_fails_at_once(self):
        agent = self.agent()
        agent.end()
        error = self.assertFails(OSError, "", kel_client.Client, None, None, agent.socketName)
        self.assertEqual(error.errno, errno.ENOENT)

    def test_any_greeting_byte_will_do(self):
        agent = self.agent()
        for byte in "\0x\xff":
            client = kel_client.Client(port=agent.port, greeting=byte)
            self.assertEqual(client.eval("1"), "1")


class Commands(AgentCase):

    def setUp(self):
        super(Commands, self).setUp()
        self.served = self.agent()
        self.client = kel_client.Client("acme", "shop")

    def test_what_is_executed_stays_for_what_is_evaluated(self):
        self.assertEqual(self.client.execute("x = [1]\nfor i in range(3):\n    x.append(i)\n"), "")
        self.assertEqual(self.client.eval("x"), "[1, 0, 1, 2]")
        self.assertEqual(kel_client.Client("acme", "shop").eval("len(x)"), "4")

    def test_bytes_of_all_values_come_back_as_they_are(self):
        self.assertEqual(
            self.client.eval("''.join(map(chr, range(256)))"), "".join(map(chr, range(256))))
        self.assertEqual(self.client.eval("u'\\xe9'"), "\xc3\xa9")

    def test_the_exception_of_a_text_comes_back_and_the_next_command_runs(self):
        for text in ("nonesuch", "1 +", "raise ValueError('why')", "{}['key']"):
            self.assertFails(RuntimeError, "Kel::RpcException(", self.client.eval, text)
        self.assertFails(
            RuntimeError, "NameError: name 'nonesuch' is not defined", self.client.eval, "nonesuch")
        self.assertEqual(self.client.eval("2"), "2")

    def test_an_exit_in_the_text_ends_nobody(self):
        self.assertFails(
            RuntimeError, "SystemExit", self.client.execute, "import sys; sys.exit(3)")
        self.assertEqual(self.client.eval("2"), "2")

    def test_the_longest_text_arrives_whole(self):
        text = "len('%s')" % ("x" * (4089 - 7))
        self.assertEqual(len(text), 4089)
        self.assertEqual(self.client.eval(text), str(4089 - 7))
        self.assertFails(
            IndexError, "request cannot exceed 4090 bytes", self.client.eval, text + " ")

    def test_a_result_may_fill_the_buffer_but_for_one_byte(self):
        self.client.noReconnect = True
        self.assertEqual(self.client.eval("'x' * 99", 100), "x" * 99)
        self.assertFails(
            RuntimeError, "Cannot talk to server acme.shop, unrecoverable server failure:Buffer",
            self.client.eval, "'x' * 100", 100)

    def test_a_large_result_arrives_whole(self):
        self.assertEqual(self.client.eval("'x' * 5000000", 5000001), "x" * 5000000)

    def test_a_text_whose_result_does_not_fit_runs_twice(self):
        self.client.execute("runs = []")
        self.assertFails(
            RuntimeError, "Cannot talk to server acme.shop", self.client.eval,
            "runs.append(1) or 'x' * 20", 10)
        self.client.connect()
        self.assertEqual(self.client.eval("len(runs)"), "2")

    def test_with_noReconnect_a_text_runs_once(self):
        self.client.execute("runs = []")
        self.client.noReconnect = True
        self.assertFails(
            RuntimeError, "Cannot talk to server acme.shop", self.client.eval,
            "runs.append(1) or 'x' * 20", 10)
        self.assertEqual(self.client.sock, -1)
        self.client.connect()
        self.assertEqual(self.client.eval("len(runs)"), "1")

    def test_two_clients_do_not_meet_each_others_results(self):
        other = kel_client.Client(port=self.served.port)
        for i in range(200):
            self.assertEqual(self.client.eval("%d" % i), str(i))
            self.assertEqual(other.eval("-%d" % i), str(-i))


class Restarts(AgentCase):

    def test_a_client_follows_an_agent_that_was_killed_and_started_anew(self):
        first = self.agent()
        client = kel_client.Client("acme", "shop")
        client.execute("x = 1")
        first.kill()
        second = self.agent()
        self.assertEqual(client.eval("__import__('os').getpid()"), str(second.pid))
        self.assertFails(RuntimeError, "NameError", client.eval, "x")

    def test_a_client_of_an_agent_that_ended_fails(self):
        agent = self.agent()
        client = kel_client.Client("acme", "shop")
        agent.end()
        self.assertFails(RuntimeError, "Unable to connect to acme.shop", client.eval, "1")
        self.assertFalse(client.connected)


class Telling(AgentCase):

    def said(self, trace):
        """What standard error gets while an agent is looked for that is not there."""
        source = """
import kel_client
kel_client.retryProfileIs([1, 1])
try:
    kel_client.Client("acme", "shop")
except RuntimeError:
    pass
"""
        err = in_child(source, env={"KEL_TRACE": trace}).expect().err
        # A machine that stands for a second has the user told of that, too.
        return "".join(line for line in err.splitlines(True) if not line.startswith("[PyServer "))

    def test_the_user_is_told_what_is_waited_for(self):
        lines = self.said("other/*").splitlines()
        self.assertEqual(len(lines), 3)
        for line in lines:
            self.assertIn(" PyClient 0 ", line)
            self.assertTrue(line.endswith(": PyServer acme.shop was not in the agent directory"))

    def test_the_user_may_want_to_hear_nothing(self):
        self.assertEqual(self.said("PyClient/-"), "")


class InitCommand(AgentCase):

    def test_it_runs_in_the_agent_and_forbids_to_reconnect(self):
        agent = self.agent()
        client = kel_client.Client("acme", "shop", init="x = 7")
        self.assertTrue(client.noReconnect)
        self.assertEqual(client.eval("x"), "7")
        agent.kill()
        self.agent()
        self.assertFails(
            RuntimeError, "Cannot talk to server acme.shop, unrecoverable server failure:",
            client.eval, "x")

    def test_its_failure_is_that_of_the_client(self):
        self.agent()
        self.assertFails(
            RuntimeError, "NameError", kel_client.Client, "acme", "shop", None, 0, "x", None,
            "nonesuch")


if __name__ == "__main__":
    unittest.main()
