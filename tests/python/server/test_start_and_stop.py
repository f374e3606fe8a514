"""Starting, stopping, forking; and what is left, which is nothing."""

import __main__
import fcntl
import os
import resource
import socket
import sys
import thread
import threading
import unittest

import PyServer
from kel_testing import in_child, wait_until
from serving import Client, ServerCase, frame, open_descriptors


class Start(ServerCase):

    def refusal(self, cls, *args, **keywords):
        before = open_descriptors()
        with self.assertRaises(cls) as raised:
            self.serve(*args, **keywords)
        wait_until(lambda: open_descriptors() == before)
        return str(raised.exception)

    def test_a_server_tells_where_it_is_found_while_it_runs(self):
        server = self.serve(port=0)
        self.assertTrue(server.isRunning)
        self.assertEqual(server.socketName, self.path(".sockets-%d/acme.shop" % os.geteuid()))
        self.assertEqual(server.agentFile, self.path("acme.shop"))
        self.assertEqual(self.client(server.port).eval("1"), ("OK", "1"))
        server.stop()
        self.assertFalse(server.isRunning)
        self.assertEqual((server.socketName, server.port, server.agentFile), (None, 0, None))

    def test_without_a_port_there_is_no_TCP(self):
        server = self.serve()
        self.assertEqual(server.port, 0)
        kinds = open_descriptors().values()
        inodes = [kind[8:-1] for kind in kinds if kind.startswith("socket:")]
        with open("/proc/net/tcp") as table:
            self.assertFalse([row for row in table if row.split()[9] in inodes])

    def listening(self, table, port):
        """The local addresses, as the table has them, at which somebody listens on the port."""
        with open(table) as rows:
            fields = [row.split() for row in rows]
        return [row[1] for row in fields if row[3] == "0A" and row[1].endswith(":%04X" % port)]

    def test_TCP_is_listened_on_at_the_loopback_address_only(self):
        server = self.serve(port=0)
        self.assertEqual(
            self.listening("/proc/net/tcp", server.port), ["0100007F:%04X" % server.port])
        self.assertEqual(self.listening("/proc/net/tcp6", server.port), [])

    def test_a_port_may_be_chosen_and_used_again_at_once(self):
        first = self.serve(port=0)
        port = first.port
        self.assertEqual(self.client(port).eval("1"), ("OK", "1"))
        first.stop()
        second = self.serve(port=port)
        self.assertEqual(second.port, port)
        self.assertEqual(self.client(port).eval("1"), ("OK", "1"))

    def test_a_server_without_names_has_what_it_was_given_and_no_file(self):
        server = self.serve(socketName=self.path("s"), port=0)
        self.assertEqual(os.listdir(self.folder), ["s"])
        self.assertEqual((server.socketName, server.agentFile), (self.path("s"), None))
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))
        server.stop()
        self.assertEqual(os.listdir(self.folder), [])

    def test_a_port_alone_is_enough(self):
        server = self.serve(None, None, port=0)
        self.assertEqual(self.client(server.port).eval("1"), ("OK", "1"))
        self.assertEqual((server.socketName, os.listdir(self.folder)), (None, []))

    def test_a_socket_may_be_in_a_folder_that_is_still_to_be_made(self):
        server = self.serve(socketName=self.path("new/s"))
        self.assertEqual(os.stat(self.path("new")).st_mode & 0o777, 0o700)
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))

    def test_a_server_may_be_a_context(self):
        with PyServer.PyServer("acme", "shop") as server:
            self.assertEqual(self.client(server).eval("1"), ("OK", "1"))
        self.assertEqual(os.listdir(self.folder), [])

    def test_a_running_server_is_not_started_again(self):
        server = self.serve()
        with self.assertRaises(PyServer.Error):
            server.start()
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))

    def test_a_stopped_server_may_be_started_again(self):
        server = self.serve()
        for _ in range(3):
            server.stop()
            server.start()
            self.assertEqual(self.client(server).eval("1"), ("OK", "1"))

    def test_a_taken_port_is_told_and_nothing_is_left(self):
        port = self.serve("acme", "till", port=0).port
        before = sorted(os.listdir(self.folder))
        self.assertEqual(
            self.refusal(PyServer.Error, port=port),
            "port %d of 127.0.0.1 cannot be listened on: Address already in use" % port)
        self.assertEqual(sorted(os.listdir(self.folder)), before)

    def test_a_socket_in_use_is_left_alone(self):
        first = self.serve(socketName=self.path("s"))
        self.assertEqual(
            self.refusal(PyServer.Error, "acme", "till", socketName=self.path("s")),
            "the socket %s is in use" % self.path("s"))
        self.assertEqual(os.listdir(self.folder), ["s"])
        self.assertEqual(self.client(first).eval("1"), ("OK", "1"))

    def test_a_dead_socket_is_replaced(self):
        dead = socket.socket(socket.AF_UNIX)
        dead.bind(self.path("s"))
        dead.close()
        server = self.serve(socketName=self.path("s"))
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))

    def test_what_is_no_socket_is_left_alone(self):
        with open(self.path("s"), "w") as other:
            other.write("mine")
        self.assertEqual(
            self.refusal(PyServer.Error, socketName=self.path("s")),
            "%s is in the way: it is no socket" % self.path("s"))
        with open(self.path("s")) as other:
            self.assertEqual(other.read(), "mine")

    def test_a_missing_place_is_told(self):
        self.assertIn("No such file", self.refusal(
            PyServer.Error, socketName=self.path("none/such/s")))
        os.environ["KELC_AGENTS_DIR"] = self.path("none/such")
        self.assertEqual(
            self.refusal(PyServer.Error),
            "the agent directory %s cannot be made: No such file or directory"
            % self.path("none/such"))

    def test_a_want_of_descriptors_is_told_wherever_it_comes_and_no_file_is_left(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        texts, highest, taken = set(), max(open_descriptors()), []
        while not taken or taken[-1] < highest:
            taken.append(os.dup(0))
        try:
            for more in range(1, 30):
                resource.setrlimit(resource.RLIMIT_NOFILE, (taken[-1] + more, hard))
                server = PyServer.PyServer("acme", "shop", port=0)
                try:
                    server.start()
                except PyServer.Error as error:
                    texts.add(str(error))
                else:
                    server.stop()
                    break
        finally:
            resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))
            for descriptor in taken:
                os.close(descriptor)
        # The folder of sockets stays where the lock that guards it cannot be had either.
        self.assertLessEqual(set(os.listdir(self.folder)), {".sockets-%d" % os.geteuid()})
        self.assertEqual([names for _, _, names in os.walk(self.folder) if names], [])
        self.assertGreaterEqual(len(texts), 3)
        self.assertIn("the server cannot start: [Errno 24] Too many open files", texts)

    def test_a_want_of_threads_is_told_and_nothing_is_left(self):
        def refuse(*args):
            raise thread.error("can't start new thread")

        start, threading._start_new_thread = threading._start_new_thread, refuse
        try:
            text = self.refusal(PyServer.Error, "acme", "shop")
        finally:
            threading._start_new_thread = start
        self.assertEqual(text, "the server cannot start: can't start new thread")
        self.assertEqual(os.listdir(self.folder), [])

    def test_arguments_that_cannot_be_meant_are_refused(self):
        for keywords in (
                {}, {"group": "acme"}, {"name": "shop"}, {"group": "", "name": "shop"},
                {"group": "acme", "name": "../shop"}, {"group": "ac.me", "name": "shop"},
                {"group": "acme", "name": "sh.op"}, {"group": "acme", "name": "shop\n"},
                {"group": "acme", "name": "sh\0p"}, {"group": 1, "name": 2},
                {"group": "acme", "name": "s" * 251}, {"socketName": ""}, {"socketName": 5},
                {"socketName": "/tmp/a\nb"}, {"socketName": "/tmp/a\0b"},
                {"socketName": "/" + "s" * 107},
                {"port": -1}, {"port": 65536}, {"port": "80"}, {"port": True}, {"port": 1.5},
                {"port": 0, "idleLimit": 0}, {"port": 0, "frameLimit": -1},
                {"port": 0, "maxConnections": 0},
                {"group": "acme", "name": "shop", "subsystemId": "a/b"}):
            with self.assertRaises(ValueError):
                PyServer.PyServer(**keywords)

    def test_names_may_be_unicode(self):
        server = self.serve(u"acme", u"sh\xf6p", socketName=unicode(self.path("s")))
        self.assertEqual(server.agentFile, self.path("acme.sh\xc3\xb6p"))
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))


class Stop(ServerCase):

    def setUp(self):
        super(Stop, self).setUp()
        __main__.entered, __main__.go = threading.Event(), threading.Event()
        self.addCleanup(vars(__main__).pop, "entered")
        self.addCleanup(vars(__main__).pop, "go")

    def test_stop_closes_clients_in_every_state(self):
        server = self.serve(port=0)
        clients = [self.client(address, greet=False)
                   for address in (server.socketName, server.port) for _ in range(4)]
        for client in clients[1::2]:
            client.greet()
        clients[3].socket.sendall("?1\0\0")
        clients[5].socket.sendall("?1\0\0\0\x05'on")
        clients[7].socket.sendall(frame("?1", "'a' * 10000000"))  # not taken by the client
        wait_until(lambda: threading.active_count() == 10)
        server.stop(timeout=0.2)
        wait_until(lambda: threading.active_count() == 1)
        for client in clients[:7]:
            self.assertTrue(client.isClosed())

    def test_stop_lets_a_text_that_ends_in_time_have_its_answer(self):
        server = self.serve()
        client, other = self.client(server), self.client(server)
        client.socket.sendall(frame("?1", "entered.set() or go.wait(60)"))
        __main__.entered.wait()
        stopping = threading.Thread(target=server.stop, args=(60,))
        stopping.start()
        self.assertTrue(other.isClosed())
        __main__.go.set()
        self.assertEqual(client.reply(), ("OK", "True"))
        self.assertTrue(client.isClosed())
        stopping.join()

    def test_stop_does_not_wait_for_a_text_that_goes_on(self):
        server = self.serve()
        client = self.client(server)
        client.socket.sendall(frame("?1", "go.wait(60)"))
        server.stop(timeout=0.1)
        self.assertEqual(os.listdir(self.folder), [])
        self.assertTrue(client.isClosed())
        __main__.go.set()

    def test_stop_twice_or_before_start_does_nothing(self):
        PyServer.PyServer("acme", "shop").stop()
        server = self.serve()
        server.stop()
        server.stop()

    def test_a_text_may_stop_its_server_and_gets_its_answer(self):
        __main__.server = server = self.serve()
        self.addCleanup(vars(__main__).pop, "server")
        client, other = self.client(server), self.client(server)
        self.assertEqual(client.execute("server.stop()"), ("OK", ""))
        self.assertTrue(client.isClosed() and other.isClosed())
        self.assertEqual(os.listdir(self.folder), [])

    def test_many_rounds_leave_no_descriptor_and_no_thread(self):
        for _ in range(30):
            server = self.serve(port=0)
            for address in (server.socketName, server.port):
                self.assertEqual(self.client(address).eval("1"), ("OK", "1"))
            server.stop()


class Fork(ServerCase):
    """A child of the agent is no agent."""

    def fork(self, body):
        """Runs body() in a child; gives the child's exit status."""
        child = os.fork()
        if child == 0:
            status = 99
            try:
                status = body() or 0
            except:
                sys.excepthook(*sys.exc_info())
            finally:
                os._exit(status)
        return os.waitpid(child, 0)[1] >> 8

    def test_a_child_holds_neither_socket_nor_lock(self):
        server = self.serve(port=0)
        client = self.client(server)

        def body():
            kinds = open_descriptors()
            mine = client.socket.fileno()
            del kinds[mine]
            assert not [kind for kind in kinds.values() if kind.startswith("socket:")], kinds
            assert server.agentFile not in kinds.values(), kinds

        self.assertEqual(self.fork(body), 0)
        self.assertEqual(client.eval("1"), ("OK", "1"))

    def test_a_child_may_stop_the_server_to_no_effect(self):
        server = self.serve()

        def body():
            assert not server.isRunning
            server.stop()

        self.assertEqual(self.fork(body), 0)
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))

    def test_a_child_may_have_a_server_of_its_own(self):
        self.serve()

        def body():
            with PyServer.PyServer("acme", "child") as server:
                client = Client(server.socketName)
                assert client.eval("1") == ("OK", "1")

        self.assertEqual(self.fork(body), 0)

    def test_a_child_does_not_keep_the_agent_alive(self):
        in_child("""
            import os
            import PyServer
            from kel_testing import wait_until
            PyServer.PyServer("acme", "shop").start()
            agent = os.getpid()
            if os.fork():
                os._exit(0)     # as a crash would
            # Its last thread may still have the file open when the child gets another parent.
            wait_until(lambda: not os.path.exists("/proc/%d" % agent))
            PyServer.PyServer("acme", "shop").start()
            open("taken over", "w").close()
            """.replace("taken over", self.path("taken over"))).expect()
        wait_until(lambda: os.path.exists(self.path("taken over")))
        wait_until(lambda: os.listdir(self.folder) == ["taken over"])

    def test_a_text_that_forks_is_answered_once(self):
        server = self.serve()
        client = self.client(server)
        for text in ("fork()", "fork() or 1 / 0", "fork() or _exit(0)"):
            __main__.fork, __main__._exit = os.fork, os._exit
            status, child = client.eval(text)
            self.assertEqual(status, "OK")
            _, ended = os.waitpid(int(child), 0)
            self.assertEqual(ended >> 8, 1 if "1 / 0" in text else 0)
            self.assertEqual(client.eval("'next'"), ("OK", "next"))

    def test_a_child_of_a_text_ends_as_it_says(self):
        client = self.client(self.serve())
        for code, status in (("", 0), ("3", 3), ("None", 0), ("'no'", 1)):
            client.execute("import os, sys\nchild = os.fork()\nif not child: sys.exit(%s)" % code)
            _, ended = os.waitpid(int(client.eval("child")[1]), 0)
            self.assertEqual(ended, status << 8)

    def test_whatever_the_server_opens_is_closed_on_exec(self):
        before = open_descriptors()
        client = self.client(self.serve(port=0))
        opened = set(open_descriptors()) - set(before) - set([client.socket.fileno()])
        self.assertEqual(len(opened), 6)  # the file, two listeners, a connection, two ends to wake
        for descriptor in opened:
            self.assertTrue(fcntl.fcntl(descriptor, fcntl.F_GETFD) & fcntl.FD_CLOEXEC)

    def test_a_program_that_is_started_holds_nothing(self):
        server = self.serve(port=0)
        client = self.client(server)
        text = "__import__('subprocess').check_output(['ls', '-l', '/proc/self/fd'])"
        status, listing = client.eval(text)
        self.assertEqual(status, "OK")
        self.assertNotIn(server.agentFile, listing)
        sockets = [line for line in listing.splitlines() if "socket:" in line]
        own = "socket:[%d]" % os.fstat(client.socket.fileno()).st_ino
        self.assertEqual([line for line in sockets if own not in line], [])


if __name__ == "__main__":
    unittest.main()
