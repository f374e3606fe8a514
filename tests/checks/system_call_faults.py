"""One call into the kernel goes wrong in each round: system_call_faults.py SIDE STEP PLANT.

SIDE is "server", whose calls from start to stop are counted, on all of its threads, or "client",
whose connection, commands and end are. Each ordinal meets each fault, or every STEPth one, until
there is no call of that ordinal any more. With a PLANT of "leak" a fault costs a descriptor.
"""

import ctypes
import errno
import os
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import traceback

import PyServer
import kel_client
from kel_testing import wait_until

ONE_BYTE = -1
FAULTS = [errno.EINTR, errno.EAGAIN, errno.ECONNRESET, errno.EPIPE, errno.EMFILE, errno.ENOMEM,
          ONE_BYTE]
ROUND_SECONDS = 30

faults = ctypes.CDLL(None)
faults.kel_faults_failed.restype = ctypes.c_char_p


class Spared(object):
    """The calls of this thread are not counted in here."""

    def __enter__(self):
        faults.kel_faults_spare(1)

    def __exit__(self, *error):
        faults.kel_faults_spare(0)


def descriptors():
    return len(os.listdir("/proc/self/fd"))


def ask(path):
    """Greets a server and asks it for a sum: its answer, None where the connection ends first."""
    connection = socket.socket(socket.AF_UNIX)
    connection.settimeout(ROUND_SECONDS / 2)
    try:
        connection.connect(path)
        connection.sendall("\0R?1" + struct.pack(">I", 3) + "2+3")
        data = ""
        while len(data) < 11:
            piece = connection.recv(100)
            if not piece:
                return None
            data += piece
        return data
    except socket.timeout:
        raise
    except socket.error:
        return None
    finally:
        connection.close()


RIGHT = "Kel1" + struct.pack(">I", 3) + "OK5"


class ServerSide(object):

    def __init__(self):
        self.left = []

    def round(self):
        """A server serves two clients, whose own calls do not count, one with a fault perhaps."""
        server = PyServer.PyServer("faults", "server")
        try:
            server.start()
        except PyServer.Error:
            return self.settle()
        with Spared():
            answers = [ask(server.socketName)]
            if answers[0] not in (RIGHT, None):
                raise AssertionError("another answer: %r" % answers[0])
        server.stop()
        self.settle()

    def settle(self):
        with Spared():
            wait_until(lambda: threading.active_count() == 1, ROUND_SECONDS)

    def check(self):
        """Behind a fault all works again."""
        server = PyServer.PyServer("faults", "server")
        server.start()
        if ask(server.socketName) != RIGHT:
            raise AssertionError("no answer behind a fault")
        server.stop()
        self.settle()

    def close(self):
        pass


SERVER = """
import sys, PyServer
server = PyServer.PyServer("faults", "server")
server.start()
print "ready"
sys.stdout.flush()
sys.stdin.read()
"""


class ClientSide(object):
    """A client of an agent in another process, by the agent's name."""

    def __init__(self):
        kel_client.retryProfileIs([1, 1, 1])
        environment = dict((name, value) for name, value in os.environ.items()
                           if name != "LD_PRELOAD")
        self.server = subprocess.Popen([sys.executable, "-c", SERVER], stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE, env=environment)
        if self.server.stdout.readline() != "ready\n":
            raise AssertionError("the server did not start")

    def round(self):
        try:
            client = kel_client.Client(group="faults", name="server")
            for text, right in ("2+3", "5"), ("'x' * 3000", "x" * 3000), ("2+4", "6"):
                answer = client.eval(text)
                # Behind a lost byte nothing is sure but that it ends.
                if answer != right and not faults.kel_faults_failed():
                    raise AssertionError("another answer: %r" % answer)
        except (EnvironmentError, RuntimeError) as error:
            return error

    def check(self):
        client = kel_client.Client(group="faults", name="server")
        if client.eval("2+3") != "5":
            raise AssertionError("no answer behind a fault")

    def close(self):
        self.server.stdin.close()
        self.server.wait()


class Figures(object):
    rounds = 0
    calls = set()
    most = 0


def meet(side, ordinal, fault, plant):
    """One round; whether there was a call of that ordinal."""
    signal.alarm(ROUND_SECONDS)
    before = descriptors()
    faults.kel_faults_arm(ordinal, fault)
    call = None
    try:
        side.round()
        faults.kel_faults_disarm()
        call = faults.kel_faults_failed()
        if call is None:
            return False
        if plant == "leak":
            os.dup(0)
        side.check()
        wait_until(lambda: descriptors() <= before, 5)
    except Exception as error:
        faults.kel_faults_disarm()
        traceback.print_exc()
        sys.exit("%s of call %d, %s: %s; %d descriptors before, %d after" % (
            errno.errorcode.get(fault, "one byte"), ordinal, call or faults.kel_faults_failed(),
            error, before, descriptors()))
    Figures.rounds += 1
    Figures.calls.add(call)
    Figures.most = max(Figures.most, ordinal)
    return True


def main(which, step, plant):
    folder = tempfile.mkdtemp()
    os.environ["KELC_AGENTS_DIR"] = folder
    side = {"server": ServerSide, "client": ClientSide}[which]()
    try:
        side.round()
        side.check()
        for index, fault in enumerate(FAULTS):
            ordinal = 1 + index % int(step)
            while meet(side, ordinal, fault, plant):
                ordinal += int(step)
    finally:
        side.close()
        shutil.rmtree(folder)
    print "%d faults in up to %d calls (%s)" % (
        Figures.rounds, Figures.most, ", ".join(sorted(Figures.calls)))


if __name__ == "__main__":
    main(*sys.argv[1:])
