"""Only the agent's own user and root may connect; the kernel tells who it is."""

import __main__
import os
import socket
import sys
import tempfile
import unittest

import _PyServerLoop
import _PyServerPeer
from kel_testing import in_child, wait_until
from serving import Client, ServerCase, frame

NOBODY = 65534
TABLE_HEAD = (
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid"
    "  timeout inode\n")


class Rule(unittest.TestCase):

    def test_the_own_user_and_root_may_and_nobody_else(self):
        self.assertTrue(_PyServerPeer.mayConnect(os.geteuid()))
        self.assertTrue(_PyServerPeer.mayConnect(0))
        self.assertFalse(_PyServerPeer.mayConnect(os.geteuid() + 1))
        self.assertFalse(_PyServerPeer.mayConnect(None))


class Table(unittest.TestCase):
    """The kernel's table of TCP sockets."""

    def owner(self, *rows):
        with tempfile.NamedTemporaryFile() as table:
            table.write(TABLE_HEAD)
            for number, (local, remote, state, uid, inode) in enumerate(rows):
                table.write(
                    "%4d: %s %s %s 00000000:00000000 00:00000000 00000000 %5d        0 %d 1 "
                    "0000000000000000 20 0 0 10 -1\n" % (number, local, remote, state, uid, inode))
            table.flush()
            return _PyServerPeer.ownerInTable(
                table.name, "0100007F:1234", "0100007F:0050")

    def test_the_row_of_both_addresses_counts(self):
        self.assertEqual(self.owner(
            ("0100007F:0050", "0100007F:1234", "01", 1, 11),
            ("0100007F:1234", "0100007F:0051", "01", 2, 12),
            ("0100007F:1235", "0100007F:0050", "01", 3, 13),
            ("0200007F:1234", "0100007F:0050", "01", 4, 14),
            ("0100007F:1234", "0100007F:0050", "01", 5, 15)), 5)

    def test_without_such_a_row_nobody_is_known(self):
        self.assertEqual(self.owner(), None)
        self.assertEqual(self.owner(("0100007F:0050", "0100007F:1234", "01", 0, 1)), None)

    def test_a_socket_that_is_no_longer_open_counts_for_nobody(self):
        # Without a process a socket stands there as root's.
        for state in ("02", "03", "04", "05", "06", "07", "08", "09", "0A", "0B"):
            self.assertEqual(
                self.owner(("0100007F:1234", "0100007F:0050", state, 0, 1)), None, state)
        self.assertEqual(self.owner(("0100007F:1234", "0100007F:0050", "01", 0, 0)), None)

    def test_a_missing_table_knows_nobody(self):
        self.assertEqual(_PyServerPeer.ownerInTable("/proc/none", "", ""), None)


class Loopback(ServerCase):

    def test_the_own_user_may_come_from_any_loopback_address(self):
        server = self.serve(port=0)
        for family, source, target in (
                (socket.AF_INET, "127.0.0.5", "127.0.0.1"),
                (socket.AF_INET6, None, "::ffff:127.0.0.1")):
            try:
                client = socket.socket(family)
                if source:
                    client.bind((source, 0))
                client.connect((target, server.port))
            except socket.error:
                self.assertEqual(family, socket.AF_INET6)
                continue  # a machine without IPv6
            client.settimeout(30)
            client.sendall("\0R")
            self.assertEqual(client.recv(4), "Kel1")
            client.close()

    def test_two_looks_that_differ_tell_nobody(self):
        looks = [0, None, 0, os.geteuid() + 1]
        self.addCleanup(setattr, _PyServerPeer, "_ownerOf", _PyServerPeer._ownerOf)
        _PyServerPeer._ownerOf = lambda *_: looks.pop(0)
        server = self.serve(port=0)
        for _ in range(2):
            self.assertTrue(self.client(server.port, greet=False).isClosed())
        self.assertEqual(looks, [])

    def test_a_peer_that_has_gone_is_not_asked_for(self):
        listener = socket.socket()
        listener.bind(("127.0.0.1", 0))
        listener.listen(1)
        client = socket.socket()
        client.connect(listener.getsockname())
        accepted, _ = listener.accept()
        self.assertEqual(_PyServerPeer.peerUid(accepted), os.geteuid())
        client.close()
        self.assertEqual(accepted.recv(1), "")  # its end has come
        with self.assertRaises(_PyServerPeer.Gone):
            _PyServerPeer.peerUid(accepted)
        accepted.close()
        listener.close()


@unittest.skipIf(os.geteuid() != 0, "needs root")
class Stranger(ServerCase):

    def setUp(self):
        super(Stranger, self).setUp()
        __main__.evaluated = []
        self.addCleanup(vars(__main__).pop, "evaluated")

    def as_nobody(self, body):
        """Runs body() in a child of another user; gives its exit status."""
        child = os.fork()
        if child == 0:
            status = 99
            try:
                os.setgroups([])
                os.setgid(NOBODY)
                os.setuid(NOBODY)
                status = body() or 0
            except:
                sys.excepthook(*sys.exc_info())
            finally:
                os._exit(status)
        return os.waitpid(child, 0)[1] >> 8

    def talk(self, address):
        """What a stranger finds: he tries all at once, so as to be quick."""
        client = Client(address, greet=False)
        try:
            client.socket.sendall("\0R" + frame("?2", "evaluated.append(1)"))
            return client.take(1)
        except socket.error:
            return ""  # closed even sooner

    def check_refused(self, address):
        self.assertEqual(self.as_nobody(lambda: 7 if self.talk(address) == "" else 8), 7)
        self.assertEqual(__main__.evaluated, [])

    def test_the_modes_keep_a_stranger_from_the_socket(self):
        server = self.serve()
        os.chmod(self.folder, 0o755)

        def body():
            try:
                Client(server.socketName)
            except socket.error as error:
                return error.errno

        self.assertEqual(self.as_nobody(body), 13)  # EACCES
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))

    def test_a_stranger_at_the_socket_is_closed_without_an_answer(self):
        server = self.serve(socketName=self.path("s"))
        os.chmod(self.folder, 0o755)
        os.chmod(server.socketName, 0o666)
        self.check_refused(server.socketName)
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))

    def test_a_stranger_at_the_port_is_closed_without_an_answer(self):
        server = self.serve(port=0)
        self.check_refused(server.port)
        self.assertEqual(self.client(server.port).eval("1"), ("OK", "1"))

    def test_a_stranger_who_leaves_before_he_is_looked_at_is_not_taken_for_root(self):
        server = self.serve(port=0)
        self.addCleanup(setattr, _PyServerLoop, "peerUid", _PyServerLoop.peerUid)
        left = []

        def late(accepted):
            wait_until(lambda: left)
            return _PyServerPeer.peerUid(accepted)

        _PyServerLoop.peerUid = late

        def body():
            client = Client(server.port, greet=False)
            client.socket.sendall("\0R" + frame("?2", "evaluated.append(1)"))
            client.close()

        self.assertEqual(self.as_nobody(body), 0)
        left.append(True)
        self.assertEqual(self.client(server.port).eval("evaluated"), ("OK", "[]"))

    def test_an_agent_of_another_user_serves_him_and_root(self):
        os.chmod(self.folder, 0o777)
        outcome = in_child("""
            import os, sys
            sys.path.insert(0, %r)
            from kel_testing import wait_until
            from serving import Client
            import PyServer
            if os.fork():
                os.setgid(65534)
                os.setuid(65534)
                with PyServer.PyServer("acme", "shop", port=0) as server:
                    assert Client(server.socketName).eval("1") == ("OK", "1")
                    assert Client(server.port).eval("1") == ("OK", "1")
                    assert os.wait()[1] == 0
            else:
                path = os.path.join(os.environ["KELC_AGENTS_DIR"], "acme.shop")
                wait_until(lambda: os.path.exists(path) and open(path).read().count("\\n") == 3)
                _, port, name = open(path).read().split()
                assert Client(name).eval("1") == ("OK", "1")
                assert Client(int(port)).eval("1") == ("OK", "1")
                os._exit(0)
            """ % os.path.dirname(os.path.abspath(__file__))).expect()
        self.assertEqual(outcome.err, "")

    def test_a_refusal_is_traced_with_the_user(self):
        trace = self.path("trace")
        in_child("""
            import os, sys
            sys.path.insert(0, %r)
            from serving import Client
            import PyServer
            with PyServer.PyServer("acme", "shop", port=0) as server:
                child = os.fork()
                if not child:
                    os.setuid(65534)
                    Client(server.port, greet=False).take(1)
                    os._exit(0)
                os.waitpid(child, 0)
            """ % os.path.dirname(os.path.abspath(__file__)),
            env={"KEL_TRACE": "default/0", "KEL_TRACE_FILE": trace}).expect()
        with open(trace) as lines:
            self.assertRegexpMatches(lines.read(), (
                r"^\S+ \d+ \d+ default\[PyServer\] 0 _PyServerLoop\.py:\d+ _admits: "
                r"refused a connection of user 65534\n$"))


if __name__ == "__main__":
    unittest.main()
