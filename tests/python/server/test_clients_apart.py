"""A client that is slow, silent, hostile or stuck is a matter of its own connection only."""

import __main__
import contextlib
import ctypes
import errno
import imp
import os
import resource
import signal
import socket
import struct
import sys
import threading
import time
import unittest

import _PyServerLoop
import _PyServerWire
from _PyServerWire import now
from kel_testing import in_child, wait_until
from serving import ServerCase, frame


class Apart(ServerCase):
    """`served` is another client, which has to be served whatever happens."""

    def begin(self, **keywords):
        self.server = self.serve(**keywords)
        self.served = self.client(self.server)

    def check_others(self):
        self.assertEqual(self.served.eval("1 + 1"), ("OK", "2"))
        fresh = self.client(self.server)
        self.assertEqual(fresh.eval("2 + 2"), ("OK", "4"))
        fresh.close()


class Rubbish(Apart):

    def test_a_header_of_no_command_is_told_so_and_closed(self):
        self.begin()
        for header in ("?3", "GE", "\0\0", "1?", "\xff\xff", "OK"):
            client = self.client(self.server)
            status, text = client.command(header, "1")
            self.assertEqual(status, "ER")
            self.assertEqual(
                text, "a request begins with '?1' or '?2', not with %r" % header)
            self.assertTrue(client.isClosed())
            self.check_others()

    def test_a_length_of_four_gigabytes_takes_no_memory(self):
        self.begin()
        before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
        for length in (2 ** 32 - 1, 2 ** 31, 2 ** 31 - 1, 2 ** 24):
            client = self.client(self.server)
            client.socket.sendall("?1" + struct.pack(">I", length) + "x" * 1000)
            self.assertEqual(client.reply(), (
                "ER", "a request of %d bytes is too long, the limit is 1048576" % length))
            self.assertTrue(client.isClosed())
        self.check_others()
        after = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
        self.assertLess(after - before, 16 * 1024)  # KiB

    def test_the_refusal_reaches_a_client_that_has_sent_more(self):
        self.begin(port=0)
        for address in (self.server.socketName, self.server.port):
            client = self.client(address)
            client.socket.sendall("?1\xff\xff\xff\xff" + "x" * 20000000)
            self.assertEqual(client.reply()[0], "ER")

    def test_a_flood_behind_a_refusal_is_taken_for_a_while_only(self):
        class Flood(object):
            fileno = sys.stdin.fileno

            def setblocking(self, *_):
                pass

            setsockopt = shutdown = setblocking

            def recv(self, size, _):
                return "x" * size

        stream = _PyServerWire.Stream(Flood(), 1)
        stream.deadlineIn(0.1, "")
        stream.drain()

    def test_random_bytes_harm_nobody(self):
        self.begin()
        for seed in range(50):
            client = self.client(self.server, greet=False)
            noise = os.urandom(1000)
            try:
                client.socket.sendall(noise if seed % 2 else "\0R" + noise)
                client.socket.shutdown(socket.SHUT_WR)
                while client.socket.recv(4096):
                    pass
            except socket.error:
                pass  # it was closed before it said all
            client.close()
        self.check_others()

    def test_a_client_may_go_at_any_point(self):
        self.begin(port=0)
        whole = "\0R" + frame("?1", "1 + 1")
        for address in (self.server.socketName, self.server.port):
            for sent in range(len(whole) + 1):
                for reset in (False, True):
                    client = self.client(address, greet=False)
                    client.socket.sendall(whole[:sent])
                    if reset:
                        client.socket.setsockopt(
                            socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                    client.close()
        self.check_others()

    def test_a_client_may_go_before_its_answer(self):
        self.begin()
        __main__.go = threading.Event()
        self.addCleanup(vars(__main__).pop, "go")
        client = self.client(self.server)
        client.socket.sendall(frame("?1", "go.wait(60) and 'a' * 10000000"))
        client.close()
        __main__.go.set()
        self.check_others()
        wait_until(lambda: connections() == 1)


    def test_a_process_that_dies_of_broken_pipes_does_not_die_of_a_client(self):
        in_child("""
            import os, signal, sys, threading
            sys.path.insert(0, %r)
            from kel_testing import in_child, wait_until
            from serving import Client, frame
            import PyServer
            signal.signal(signal.SIGPIPE, signal.SIG_DFL)
            go = threading.Event()
            with PyServer.PyServer("acme", "shop") as server:
                client = Client(server.socketName)
                client.socket.sendall(frame("?1", "go.wait(60)"))
                client.close()
                go.set()
                wait_until(lambda: threading.active_count() == 2)
                assert Client(server.socketName).eval("1") == ("OK", "1")
            """ % os.path.dirname(os.path.abspath(__file__))).expect()


class Slow(Apart):

    @contextlib.contextmanager
    def granting(self, **seconds):
        """Meanwhile the server grants so many; before and behind, all that a busy client may need."""
        limits = self.server._run._loop.limits
        usual = dict(vars(limits))
        vars(limits).update(seconds)
        try:
            yield
        finally:
            vars(limits).update(usual)

    def test_bytes_may_come_one_at_a_time(self):
        self.begin()
        client = self.client(self.server, greet=False)
        client.socket.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 1)
        for byte in "\0R":
            client.socket.sendall(byte)
            self.check_others()
        self.assertEqual(client.take(4), "Kel1")
        for byte in frame("?1", "'one' + 'two'"):
            client.socket.sendall(byte)
            self.check_others()
        self.assertEqual(client.reply(), ("OK", "onetwo"))

    def test_a_silent_client_is_closed_after_a_while(self):
        server = self.serve(frameLimit=1)
        self.assertTrue(self.client(server, greet=False).isClosed())

    def test_half_a_greeting_is_closed_after_a_while(self):
        self.begin()
        with self.granting(frame=1):
            client = self.client(self.server, greet=False)
            client.socket.sendall("\0")
            self.assertTrue(client.isClosed())
        self.check_others()

    def test_half_a_request_is_closed_after_a_while_at_any_point(self):
        self.begin()
        whole = frame("?1", "1 + 1")
        clients = [self.client(self.server) for _ in whole[1:]]
        with self.granting(frame=1):
            for sent, client in enumerate(clients, 1):
                client.socket.sendall(whole[:sent])
            for client in clients:
                self.assertTrue(client.isClosed())
        self.check_others()

    def test_bytes_that_trickle_do_not_prolong_a_request(self):
        self.begin()
        client = self.client(self.server)
        trickled = 0
        with self.granting(frame=1):
            client.socket.sendall("?1" + struct.pack(">I", 100000))
            try:
                while trickled < 10000:
                    client.socket.sendall("x")
                    trickled += 1
                    time.sleep(0.005)
            except socket.error as error:
                self.assertEqual(error.errno, errno.EPIPE)
        self.assertLess(trickled, 10000)
        self.check_others()

    def test_the_time_of_a_request_does_not_limit_a_rest_nor_a_text(self):
        self.begin()
        with self.granting(frame=1):
            time.sleep(1.5)
            self.assertEqual(self.served.eval("__import__('time').sleep(1.5)"), ("OK", "None"))
        self.check_others()

    def test_a_client_that_rests_for_too_long_is_closed(self):
        server = self.serve(idleLimit=1)
        self.assertTrue(self.client(server).isClosed())

    def test_a_client_that_takes_no_answer_is_closed_after_a_while(self):
        self.begin()
        client = self.client(self.server)
        with self.granting(idle=0.5):
            client.socket.sendall(frame("?1", "'a' * 30000000"))
            wait_until(lambda: connections() == 1)
        self.assertLess(len(client.take(30000000)), 30000000)
        self.check_others()

    def test_an_answer_may_be_taken_slowly(self):
        self.begin(idleLimit=5)
        client = self.client(self.server)
        client.socket.sendall(frame("?1", "'a' * 3000000"))
        left = 3000006
        while left:
            left -= len(client.socket.recv(min(left, 50000)))
            time.sleep(0.001)


class Stuck(Apart):

    def test_a_text_that_does_not_end_blocks_its_own_connection_only(self):
        self.begin()
        __main__.go = threading.Event()
        self.addCleanup(vars(__main__).pop, "go")
        stuck = self.client(self.server)
        stuck.socket.sendall(frame("?1", "go.wait(60)"))
        busy = self.client(self.server)
        busy.socket.sendall(frame("?2", "while not go.is_set(): pass"))
        self.check_others()
        __main__.go.set()
        self.assertEqual((stuck.reply(), busy.reply()), (("OK", "True"), ("OK", "")))

    def test_the_server_needs_no_import_lock(self):
        self.begin()
        imp.acquire_lock()
        try:
            self.check_others()
            for text, status in (("u'\\u20ac'", "OK"), ("u'\xe2\x82\xac'", "OK"), ("1/0", "ER"),
                                 ("1+", "ER"), ("open('/none')", "ER")):
                self.assertEqual(self.served.eval(text)[0], status)
        finally:
            imp.release_lock()

    def test_signals_disturb_nobody(self):
        signal.signal(signal.SIGUSR1, lambda *_: None)
        self.addCleanup(signal.signal, signal.SIGUSR1, signal.SIG_DFL)
        self.begin()
        half = self.client(self.server)
        half.socket.sendall("?1\0\0\0\x05'on")
        slow = self.client(self.server)
        slow.socket.sendall(frame("?1", "'a' * 3000000"))
        kill = ctypes.CDLL(None).pthread_kill
        threads = [thread for thread in threading.enumerate() if "PyServer" in thread.name]
        self.assertEqual(len(threads), 4)
        for _ in range(200):
            for thread in threads:
                self.assertEqual(kill(ctypes.c_ulong(thread.ident), signal.SIGUSR1), 0)
        half.socket.sendall("e'")
        self.assertEqual(half.reply(), ("OK", "one"))
        self.assertEqual(slow.reply(), ("OK", "a" * 3000000))
        self.check_others()


class Many(Apart):

    def test_many_clients_are_served_at_once_and_none_gets_the_answer_of_another(self):
        server = self.serve()
        failed = []

        def work(number):
            try:
                client = self.client(server)
                for i in range(50):
                    reply = client.eval("'%d-%d'" % (number, i))
                    if reply != ("OK", "%d-%d" % (number, i)):
                        failed.append(reply)
            except Exception as error:
                failed.append(error)

        workers = [threading.Thread(target=work, args=(number,)) for number in range(40)]
        for worker in workers:
            worker.start()
        for worker in workers:
            worker.join()
        self.assertEqual(failed, [])

    def test_beyond_the_limit_clients_are_closed_until_another_goes(self):
        server = self.serve(maxConnections=3)
        clients = [self.client(server) for _ in range(3)]
        for _ in range(3):
            self.assertTrue(self.client(server, greet=False).isClosed())
        for client in clients:
            self.assertEqual(client.eval("1"), ("OK", "1"))
        clients.pop().close()
        wait_until(lambda: connections() == 2)
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))

    def test_by_default_there_may_be_256(self):
        server = self.serve()
        clients = [self.client(server) for _ in range(256)]
        self.assertTrue(self.client(server, greet=False).isClosed())
        self.assertEqual(set(client.eval("1") for client in clients), set([("OK", "1")]))

    def test_a_lack_of_descriptors_is_waited_out_without_turning(self):
        self.begin()
        pauses, begin = [], now()
        pause = _PyServerLoop.Loop._pause
        self.addCleanup(setattr, _PyServerLoop.Loop, "_pause", pause)
        _PyServerLoop.Loop._pause = lambda loop: (pauses.append(1), pause(loop))
        client = socket.socket(socket.AF_UNIX)
        limits = resource.getrlimit(resource.RLIMIT_NOFILE)
        held = []
        resource.setrlimit(resource.RLIMIT_NOFILE, (64, limits[1]))
        try:
            while True:
                held.append(os.open(os.devnull, os.O_RDONLY))
        except OSError as error:
            self.assertEqual(error.errno, errno.EMFILE)
        try:
            client.connect(self.server.socketName)
            wait_until(lambda: len(pauses) >= 2)
            self.assertEqual(self.served.eval("1"), ("OK", "1"))
            self.assertLess(len(pauses), 2 + (now() - begin) / _PyServerLoop._ACCEPT_PAUSE)
        finally:
            for descriptor in held:
                os.close(descriptor)
            resource.setrlimit(resource.RLIMIT_NOFILE, limits)
        client.settimeout(30)
        client.sendall("\0R")
        self.assertEqual(client.recv(4), "Kel1")
        client.close()
        self.check_others()

    def test_a_lack_of_threads_closes_the_new_client_only(self):
        self.begin()
        start = _PyServerLoop.Connection.start
        self.addCleanup(setattr, _PyServerLoop.Connection, "start", start)

        def fail(connection):
            raise threading.ThreadError("can't start new thread")

        _PyServerLoop.Connection.start = fail
        self.assertTrue(self.client(self.server, greet=False).isClosed())
        self.assertEqual(self.served.eval("1"), ("OK", "1"))
        _PyServerLoop.Connection.start = start
        self.check_others()


def connections():
    return len([
        thread for thread in threading.enumerate()
        if isinstance(thread, _PyServerLoop.Connection)])


if __name__ == "__main__":
    unittest.main()
