"""Peers of all sorts upon one server, in a process of its own: hostile_peers.py TIMES PLANT.

So many TIMES ten connections come, and a thousand idle ones, or fewer if TIMES is small. With a
PLANT of "leak" the server opens a descriptor for each connection and keeps it.
"""

import os
import random
import resource
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

LIMIT = 1200  # of connections at once
FRAME_SECONDS = 5.0
DEADLINE = 30.0
SETTLE_SECONDS = 10.0
SLOW_AT_ONCE = 40

SERVER = """
import os, socket, sys, PyServer, _PyServerLoop
if %(plant)r == "leak":
    kept = []
    admits = _PyServerLoop.Loop._admits
    def leak(self, accepted):
        kept.append(os.dup(0))
        return admits(self, accepted)
    _PyServerLoop.Loop._admits = leak
server = PyServer.PyServer(socketName=%(path)r, port=0, idleLimit=600.0, frameLimit=%(frame)r,
                           maxConnections=%(limit)d)
server.start()
print server.port
sys.stdout.flush()
sys.stdin.read()
server.stop()
"""


class Server(object):

    def __init__(self, folder, plant):
        self.path = os.path.join(folder, "socket")
        source = SERVER % {"plant": plant, "path": self.path, "frame": FRAME_SECONDS,
                           "limit": LIMIT}
        self.process = subprocess.Popen(
            [sys.executable, "-c", source], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            env=dict(os.environ, KEL_TRACE="default/-"))
        self.port = int(self.process.stdout.readline())
        self.before = None

    def counts(self):
        """Its descriptors and its threads."""
        folder = "/proc/%d/" % self.process.pid
        return len(os.listdir(folder + "fd")), len(os.listdir(folder + "task"))

    def settle(self):
        """Waits until they are what they were."""
        end = time.time() + SETTLE_SECONDS
        while self.counts() > self.before and time.time() < end:
            time.sleep(0.05)
        return self.counts()

    def end(self):
        self.process.stdin.close()
        return self.process.wait()


def connect(path, greeting="\0R"):
    connection = socket.socket(socket.AF_UNIX)
    connection.settimeout(DEADLINE)
    end = time.time() + DEADLINE
    while connection.connect_ex(path) != 0:
        # Too many wait already to be taken.
        if time.time() > end:
            raise AssertionError("no connection to be had")
        time.sleep(0.002)
    if greeting:
        connection.sendall(greeting)
    return connection


def request(text):
    return "?1" + struct.pack(">I", len(text)) + text


def take_all(connection):
    """All that comes before the end."""
    data = ""
    try:
        while True:
            piece = connection.recv(4096)
            if not piece:
                return data
            data += piece
    except socket.error as error:
        if isinstance(error, socket.timeout):
            raise AssertionError("the server neither answers nor closes")
        return data


def half_closing(path):
    connection = connect(path)
    connection.sendall(request("2+3"))
    connection.shutdown(socket.SHUT_WR)
    assert take_all(connection) == "Kel1" + struct.pack(">I", 3) + "OK5"


def rubbish(path):
    connection = connect(path, None)
    try:
        connection.sendall("".join(chr(random.randrange(256)) for _ in range(200)))
    except socket.error:
        pass
    take_all(connection)


def rubbish_behind_greeting(path):
    connection = connect(path)
    connection.sendall("??" + "\xff" * 100)
    assert "a request begins with" in take_all(connection)


def huge_header(path):
    connection = connect(path)
    connection.sendall("?1" + struct.pack(">I", 0xfffffff0) + "x" * 100)
    assert "is too long, the limit is" in take_all(connection)


def vanishing(path):
    connect(path, random.choice([None, "\0", "\0R", "\0R?1", "\0R" + request("2+3")])).close()


def vanishing_by_reset(path):
    connection = connect(path, "\0R" + request("'x' * 100000"))
    connection.recv(1)
    connection.close()  # the rest of the answer is unread


def silent(path):
    """What it begins and does not end is closed at the deadline."""
    connection = connect(path, "\0R?1")
    assert take_all(connection) == "Kel1"


def slow(path):
    """A byte a second, for longer than a request may take."""
    connection = connect(path)
    try:
        for byte in request("2+3"):
            connection.sendall(byte)
            time.sleep(1)
    except socket.error:
        return
    assert take_all(connection) == "Kel1"


QUICK = [half_closing, rubbish, rubbish_behind_greeting, huge_header, vanishing, vanishing_by_reset,
         vanishing, rubbish, huge_header]


class Others(threading.Thread):
    """A client that behaves, and what it saw."""

    def __init__(self, path):
        super(Others, self).__init__()
        self.daemon = True
        self.path = path
        self.answers = 0
        self.longest = 0.0
        self.fault = None
        self.stopping = False

    def run(self):
        try:
            while not self.stopping:
                started = time.time()
                connection = connect(self.path)
                connection.sendall(request("6*7"))
                connection.shutdown(socket.SHUT_WR)
                answer = take_all(connection)
                assert answer == "Kel1" + struct.pack(">I", 4) + "OK42", repr(answer)
                connection.close()
                self.answers += 1
                self.longest = max(self.longest, time.time() - started)
                time.sleep(0.01)
        except Exception as error:
            self.fault = repr(error)


def in_threads(jobs, count):
    """Runs each job (function, path) on one of so many threads; the first fault."""
    faults = []

    def work():
        while jobs and not faults:
            try:
                function, path = jobs.pop()
                function(path)
            except IndexError:
                return
            except Exception as error:
                faults.append("%s: %r" % (function.__name__, error))

    threads = [threading.Thread(target=work) for _ in range(count)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return faults


def idle(path, count):
    connections = [connect(path) for _ in range(count)]
    for connection in connections:
        assert connection.recv(4) == "Kel1"
    return connections


def refused(server, times):
    """How many connections of another user were refused, by socket and by port; None where there
    is no other user to be."""
    if os.geteuid() != 0:
        return None
    child = os.fork()
    if child == 0:
        status = 1
        try:
            # Whatever the rights of files, the kernel is to be asked.
            os.chmod(os.path.dirname(server.path), 0o755)
            os.chmod(server.path, 0o666)
            os.setgid(65534)
            os.setuid(65534)
            signal.alarm(60)
            for number in range(times):
                family = socket.AF_UNIX if number % 2 else socket.AF_INET
                connection = socket.socket(family)
                connection.settimeout(DEADLINE)
                connection.connect(server.path if number % 2 else ("127.0.0.1", server.port))
                try:
                    connection.sendall("\0R" + request("2+3"))
                except socket.error:
                    pass
                assert take_all(connection) == ""
                connection.close()
            status = 0
        except:
            sys.excepthook(*sys.exc_info())
        finally:
            os._exit(status)
    return times if os.waitpid(child, 0)[1] == 0 else 0


def work(server, times):
    """What went wrong, in words, and the figure."""
    half_closing(server.path)
    time.sleep(0.2)
    server.before = server.counts()
    others = Others(server.path)
    others.start()
    idlers = idle(server.path, min(1000, times))
    faults = in_threads([(function, server.path) for function in (silent, slow)
                         for _ in range(SLOW_AT_ONCE)], SLOW_AT_ONCE)
    jobs = [(function, server.path) for _ in range(times) for function in QUICK]
    random.Random(5).shuffle(jobs)
    connections = len(jobs) + len(idlers) + 2 * SLOW_AT_ONCE
    faults += in_threads(jobs, 16)
    for each in idlers:
        each.sendall(request("2+3"))
        assert take_all_of_answer(each) == struct.pack(">I", 3) + "OK5"
        each.close()
    foreign = refused(server, 200)
    others.stopping = True
    others.join()
    if others.fault:
        faults.append("others: " + others.fault)
    after = server.settle()
    if after > server.before:
        faults.append("%d descriptors and %d threads before, %d and %d after" % (
            server.before + after))
    if foreign == 0:
        faults.append("another user was served")
    figure = ("%d connections, descriptors and threads back to start, %d answers to others "
              "meanwhile, the slowest in %.2f s, " % (connections, others.answers, others.longest))
    return faults, figure + ("no other user to try: it takes root" if foreign is None else
                             "%d of %d connections of another user refused" % (foreign, foreign))


def take_all_of_answer(connection):
    data = ""
    while len(data) < 7:
        piece = connection.recv(7 - len(data))
        assert piece, "the server closed instead of its answer"
        data += piece
    return data


def main(times, plant):
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(4096, hard), hard))
    folder = tempfile.mkdtemp()
    try:
        server = Server(folder, plant)
        faults, figure = work(server, int(times))
        if server.end() != 0:
            faults.append("the server did not end well")
    finally:
        shutil.rmtree(folder)
    for fault in faults:
        print fault
    if not faults:
        print figure
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
