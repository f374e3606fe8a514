"""What the tests of PyServer share: servers in a folder of their own, clients of bare sockets."""

import os
import shutil
import socket
import struct
import tempfile
import threading
import unittest

import PyServer
from kel_testing import wait_until

os.environ.setdefault("KEL_TRACE", "default/-")  # the refusals that tests are about

DEADLINE = 30.0  # seconds for whatever a socket has to do


class Client(object):
    """A connection to a server's path or port; greets unless told not to."""

    def __init__(self, address, greet=True):
        family = socket.AF_UNIX if isinstance(address, str) else socket.AF_INET
        self.socket = socket.socket(family)
        self.socket.settimeout(DEADLINE)
        self.socket.connect(address if family == socket.AF_UNIX else ("127.0.0.1", address))
        if greet:
            self.greet()

    def greet(self, greeting="\0R"):
        self.socket.sendall(greeting)
        reply = self.take(4)
        if reply != "Kel1":
            raise AssertionError("greeted with %r" % reply)

    def take(self, count):
        """So many bytes, or what there was before the end."""
        data = ""
        while len(data) < count:
            piece = self.socket.recv(count - len(data))
            if not piece:
                break
            data += piece
        return data

    def reply(self):
        """Status and payload of the next reply."""
        head = self.take(4)
        if len(head) < 4:
            raise AssertionError("the server closed, having sent %r" % head)
        body = self.take(struct.unpack(">I", head)[0])
        return body[:2], body[2:]

    def command(self, header, text):
        self.socket.sendall(frame(header, text))
        return self.reply()

    def eval(self, text):
        return self.command("?1", text)

    def execute(self, text):
        return self.command("?2", text)

    def isClosed(self):
        """Whether the server closes the connection before the deadline, without a byte more."""
        try:
            return self.socket.recv(1) == ""
        except socket.timeout:
            return False
        except socket.error:
            return True  # reset

    def close(self):
        self.socket.close()


def frame(header, text):
    return header + struct.pack(">I", len(text)) + text


def open_descriptors():
    """What each descriptor of this process is."""
    found = {}
    for name in os.listdir("/proc/self/fd"):
        try:
            found[int(name)] = os.readlink("/proc/self/fd/" + name)
        except OSError:
            pass  # the one that listed the folder
    return found


class ServerCase(unittest.TestCase):
    """Gives each test an agent directory, and fails it if threads or descriptors are left."""

    def setUp(self):
        self.folder = os.path.realpath(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder, True)
        self._environment = dict(os.environ)
        self.addCleanup(self._restoreEnvironment)
        os.environ["KELC_AGENTS_DIR"] = self.folder
        os.environ.pop("SUBSYSTEMID", None)
        self._descriptors = open_descriptors()
        self._clients = []
        self._servers = []

    def tearDown(self):
        for client in self._clients:
            client.close()
        for server in self._servers:
            server.stop()
        wait_until(lambda: threading.active_count() == 1)
        wait_until(lambda: open_descriptors() == self._descriptors)

    def serve(self, *args, **keywords):
        """A started server, acme.shop unless named otherwise."""
        names = () if args or "socketName" in keywords else ("acme", "shop")
        server = PyServer.PyServer(*(args or names), **keywords)
        self._servers.append(server)
        server.start()
        return server

    def client(self, address, greet=True):
        if isinstance(address, PyServer.PyServer):
            address = address.socketName
        client = Client(address, greet)
        self._clients.append(client)
        return client

    def path(self, name):
        return os.path.join(self.folder, name)

    def _restoreEnvironment(self):
        os.environ.clear()
        os.environ.update(self._environment)
