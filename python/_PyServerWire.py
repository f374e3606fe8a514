"""The bytes between client and server.

Greeting: any byte and "R"; the answer is "Kel1". Then requests, each answered before the next:

    "?1" (an expression) or "?2" (statements), length, text
    length, "OK" or "ER", the result or the text of the failure

Lengths are four bytes, the highest first; that of an answer counts the status, too.
"""

import errno
import os
import select
import socket
import struct

GREETING_REPLY = "Kel1"
EVAL = "?1"
EXEC = "?2"
SUCCESS = "OK"
FAILURE = "ER"

_MSG_DONTWAIT = 0x40
_MSG_NOSIGNAL = 0x4000
_PIECE = 8192  # a request of the client's own longest, at one go
_LARGE_PIECE = 65536


class Closed(Exception):
    """The peer has closed, or is as good as gone."""


class Late(Exception):
    """The peer has not done in time what the text tells."""


class Rubbish(Exception):
    """What the peer sent is not of the protocol; the text is for it to read."""


def readGreeting(read):
    """`read` gives exactly as many bytes as it is asked for, or raises."""
    greeting = read(2)
    if greeting[1] != "R":
        raise Rubbish("a greeting of %r" % greeting)


def readRequest(read, limit):
    """Header and text of a request; `read` as above. A text longer than `limit` is Rubbish."""
    head = read(6)
    header, length = struct.unpack(">2sI", head)
    if header not in (EVAL, EXEC):
        raise Rubbish("a request begins with %r or %r, not with %r" % (EVAL, EXEC, header))
    if length > limit:
        raise Rubbish("a request of %d bytes is too long, the limit is %d" % (length, limit))
    return header, read(length)


def replyHead(status, payload):
    return struct.pack(">I2s", len(payload) + len(status), status)


def now():
    """Seconds on a clock that nobody sets."""
    return os.times()[4]


class Stream(object):
    """Exact reads and whole writes on a socket, each until a deadline.

    The rest between requests has a limit of its own, the kernel's: it costs no call, and requests
    mostly come whole.
    """

    def __init__(self, connection, idle):
        """`idle` is how many seconds awaitData waits."""
        microseconds = max(1, int(min(idle, 2 ** 31) * 1e6))  # 0 would be no limit
        connection.setblocking(True)
        connection.setsockopt(
            socket.SOL_SOCKET, socket.SO_RCVTIMEO,
            struct.pack("ll", *divmod(microseconds, 1000000)))
        self._socket = connection
        self._idle = idle
        self._poll = select.poll()
        self._poll.register(connection, 0)
        self._read = bytearray()  # received and not yet asked for
        self.deadlineIn(0, "")

    def awaitData(self):
        """Waits until there is something to read."""
        end = now() + self._idle
        while not self._read:
            try:
                piece = self._socket.recv(_PIECE)
            except socket.error as error:
                if error.errno not in (errno.EAGAIN, errno.EINTR):
                    raise Closed()
                if error.errno == errno.EAGAIN or now() > end:
                    raise Late("no request for too long")
                continue
            if not piece:
                raise Closed()
            self._read += piece

    def deadlineIn(self, seconds, missed):
        """For what is read from here on; `missed` tells what the peer has not done by then."""
        self._deadline = now() + seconds
        self._missed = missed

    def read(self, count):
        while len(self._read) < count:
            missing = count - len(self._read)
            self._read += self._receive(_PIECE if missing <= _PIECE else _LARGE_PIECE)
        data = str(self._read[:count])
        del self._read[:count]
        return data

    def write(self, data, seconds):
        """Each piece has so many seconds to go."""
        sent = 0
        while sent < len(data):
            try:
                sent += self._socket.send(buffer(data, sent), _MSG_DONTWAIT | _MSG_NOSIGNAL)
            except socket.error as error:
                self.deadlineIn(seconds, "it does not take the answer")
                self._after(error, select.POLLOUT)

    def drain(self):
        """Takes and drops what comes until the peer closes or the deadline is there.

        A socket closed with bytes unread may take away from the peer what was sent to it.
        """
        try:
            self._socket.shutdown(socket.SHUT_WR)
            while True:
                self._receive(_LARGE_PIECE)
        except (Closed, Late, socket.error):
            pass

    def _receive(self, size):
        while True:
            if now() > self._deadline:
                raise Late(self._missed)
            try:
                piece = self._socket.recv(size, _MSG_DONTWAIT)
            except socket.error as error:
                self._after(error, select.POLLIN)
                continue
            if not piece:
                raise Closed()
            return piece

    def _after(self, error, event):
        if error.errno in (errno.EAGAIN, errno.EWOULDBLOCK):
            self._wait(event)
        elif error.errno != errno.EINTR:
            raise Closed()

    def _wait(self, event):
        self._poll.modify(self._socket, event)
        while True:
            left = self._deadline - now()
            if left <= 0:
                raise Late(self._missed)
            try:
                if self._poll.poll(int(min(left * 1000 + 1, 2 ** 31 - 1))):
                    return
            except select.error as error:
                if error.args[0] != errno.EINTR:
                    raise Closed()
