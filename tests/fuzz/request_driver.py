"""The handling of one connection by PyServer, against what each stream of requests has to come to.

An input is
    1 byte    most bytes that the kernel hands out at once, and takes by 64, 0 for all it can
    1 byte    flags: SIGNALS, WAITS, GONE, SILENT, SLOW, LEAVES
    the rest  what the client sends: greeting and requests
All but the evaluation is PyServer's own, and so is the socket; the clock goes on only where the
server waits. The first letter of a text tells what its evaluation comes to.
"""

import errno
import os
import socket
import struct

import _PyServerLoop
import _PyServerText
import _PyServerWire

SIGNALS = 1  # every other call on the socket is interrupted
WAITS = 2  # every third one finds nothing
GONE = 4  # the client is gone before the first answer
SILENT = 8  # the client sends no more, and does not close
SLOW = 16  # each piece takes a second
LEAVES = 32  # the client closes with the first answer unread

PIECE = 500  # bytes that the server asks for at once
LARGE_PIECE = 2000  # the same where more than PIECE is missing
REQUEST_LIMIT = 1000
REPLY_LIMIT = 4000
LARGE = 2000  # bytes of an answer that is sent in two parts
LIMITS = _PyServerLoop.Limits(idle=60.0, frame=10.0, connections=4, request=REQUEST_LIMIT)

_MSG_DONTWAIT = 0x40
_room = bytearray(1 << 16)  # made once: large pieces of memory take time under the sanitizer


class Fault(Exception):
    pass


def expect(holds, text):
    if not holds:
        raise Fault(text)


class Clock(object):

    def __init__(self):
        self.time = 0.0

    def __call__(self):
        return self.time


clock = Clock()


class Loop(object):
    """Of the server's loop, what a connection has to do with."""

    def __init__(self):
        self.limits = LIMITS
        self.stopping = False
        self.process = os.getpid()
        self.endings = 0

    def trace(self, level, text):
        expect(0 <= level <= 9 and len(text) < 300, "a trace of %d bytes" % len(text))

    def ended(self, connection):
        self.endings += 1


class Socket(object):
    """A real socket whose calls do less than they could."""

    def __init__(self, most, flags, stream):
        self._server, self._client = socket.socketpair()
        self._most = most or 2 * LARGE_PIECE
        self._flags = flags
        self._calls = 0
        self.answers = bytearray()
        self.isOpen = True
        self._client.sendall(stream)
        if flags & GONE:
            self._client.close()
        elif not flags & SILENT:
            self._client.shutdown(socket.SHUT_WR)

    def recv(self, size, flags=0):
        self._before(flags)
        try:
            return self._server.recv(min(size, self._most), _MSG_DONTWAIT)
        except socket.error as error:
            expect(flags or self._flags & SILENT or error.errno != errno.EAGAIN,
                   "waits for nothing")
            clock.time += 0 if flags else LIMITS.idle
            raise

    def send(self, data, flags):
        self._before(flags)
        sent = self._server.send(data[:self._most * 64], flags)
        if self._flags & LEAVES:
            self._client.close()
        self.collect()
        return sent

    def collect(self):
        """Takes the answers over, so that there is room for more."""
        try:
            while not self._flags & (GONE | LEAVES):
                count = self._client.recv_into(_room, 0, _MSG_DONTWAIT)
                if not count:
                    return
                self.answers += _room[:count]
        except socket.error as error:
            expect(error.errno in (errno.EAGAIN, errno.ECONNRESET), "the client sees %s" % error)

    def close(self):
        self._server.close()
        self.isOpen = False

    def __getattr__(self, name):
        return getattr(self._server, name)

    def _before(self, flags):
        self._calls += 1
        if self._flags & SLOW:
            clock.time += 1.0
        if self._flags & SIGNALS and self._calls % 2:
            raise socket.error(errno.EINTR, "a signal")
        if flags and self._flags & WAITS and self._calls % 3 == 0:
            raise socket.error(errno.EAGAIN, "nothing")


class Held(bytearray):
    """What the server has received of requests to come."""

    def __iadd__(self, piece):
        self.extend(piece)
        expect(len(self) <= REQUEST_LIMIT - PIECE + LARGE_PIECE, "%d bytes are held" % len(self))
        return self


class Poll(object):
    """Lets time pass where there is nothing to wait for."""

    def __init__(self, real):
        self._real = real

    def modify(self, connection, event):
        self._real.modify(connection, event)

    def poll(self, milliseconds):
        expect(milliseconds > 0, "a wait without an end")
        found = self._real.poll(0)
        if not found:
            clock.time += milliseconds / 1e3
        return found


def fail(text, calls):
    if calls:
        fail(text, calls - 1)
    raise ValueError(text)


def evaluate(text):
    if text.startswith("F"):
        fail(text, 0)
    if text.startswith("D"):
        fail(text * 4, min(len(text), 40))
    if text.startswith("S"):
        raise SystemExit(text)
    if text.startswith("L"):
        return "x" * (LARGE + len(text))
    if text.startswith("M"):
        return "x" * (REPLY_LIMIT + 1)
    if text.startswith("C"):
        _PyServerText._compiled(text[1:], "exec")
        return "compiled"
    return text[::-1]


def answer(header, text):
    """Status, and the payload or where it is not one text, what it has in it."""
    if text.startswith(("F", "D")):
        return "ER", None, "ValueError"
    if text.startswith("S"):
        return "ER", None, "SystemExit"
    if text.startswith("M"):
        return "ER", "a result of %d bytes is too long, the limit is %d" % (
            REPLY_LIMIT + 1, REPLY_LIMIT), ""
    if text.startswith("C"):
        return None, None, ""
    return "OK", evaluate(text), ""


def expected(stream):
    """Whether there is an answer to the greeting, and those to the requests, in a list."""
    if len(stream) < 2 or stream[1] != "R":
        return False, []
    answers, at = [], 2
    while len(stream) - at >= 6:
        header, length = struct.unpack(">2sI", stream[at:at + 6])
        if header not in ("?1", "?2"):
            return True, answers + [("ER", None, "a request begins with")]
        if length > REQUEST_LIMIT:
            return True, answers + [("ER", None, "is too long, the limit is")]
        if len(stream) - at - 6 < length:
            break
        answers.append(answer(header, stream[at + 6:at + 6 + length]))
        at += 6 + length
    return True, answers


def split(data):
    """The answers in what the client got."""
    answers = []
    while data:
        expect(len(data) >= 6, "an answer of %d bytes" % len(data))
        length, status = struct.unpack(">I2s", data[:6])
        expect(2 <= length <= REPLY_LIMIT + 2, "an answer that says it has %d bytes" % length)
        expect(len(data) >= 4 + length, "half an answer")
        answers.append((status, data[6:4 + length]))
        data = data[4 + length:]
    return answers


def check(data, stream, hasty):
    """`hasty` if the connection may end before all is answered."""
    greeted, right = expected(stream)
    if not greeted or hasty and not data:
        return expect(not data, "an answer to no greeting")
    expect(data.startswith("Kel1"), "another answer to the greeting")
    given = split(data[4:])
    expect(len(given) == len(right) or hasty and len(given) < len(right),
           "%d answers to %d requests" % (len(given), len(right)))
    for (status, payload), (rightStatus, rightPayload, part) in zip(given, right):
        expect(status in ("OK", "ER") and rightStatus in (status, None), "another status")
        expect(rightPayload in (payload, None), "another payload")
        expect(part in payload, "a payload without %r" % part)
        expect(status == "OK" or len(payload) <= _PyServerText.FAILURE_LIMIT, "a long failure")


def run(data):
    """One input. Raises Fault, or what the server should not."""
    if len(data) < 2:
        return
    most, flags, stream = ord(data[0]), ord(data[1]), data[2:]
    clock.time = 0.0
    loop = Loop()
    served = Socket(most, flags, stream)
    connection = _PyServerLoop.Connection(loop, served)
    connection._stream._read = Held()
    connection._stream._poll = Poll(connection._stream._poll)
    connection.run()
    served.collect()
    served._client.close()
    expect(loop.endings == 1, "the loop was told %d times of an end" % loop.endings)
    expect(not served.isOpen, "the socket stays open")
    if not flags & (GONE | LEAVES):
        check(bytes(served.answers), stream, flags & SLOW)


def plant():
    """A reader that takes a request of one byte more."""
    readRequest = _PyServerWire.readRequest
    _PyServerWire.readRequest = lambda read, limit: readRequest(read, limit + 1)


_PyServerWire.now = clock
_PyServerWire._PIECE = PIECE
_PyServerWire._LARGE_PIECE = LARGE_PIECE
_PyServerLoop.REPLY_LIMIT = REPLY_LIMIT
_PyServerLoop._LARGE = LARGE
_PyServerLoop._commands = {_PyServerWire.EVAL: evaluate, _PyServerWire.EXEC: evaluate}
if os.environ.get("KEL_FUZZ_PLANT"):
    plant()
