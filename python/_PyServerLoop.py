"""The threads of a server: one that takes connections, and one for each connection.

They wait without the GIL, and of the activity lock they know nothing.
"""

import errno
import fcntl
import os
import select
import socket
import sys
import threading

import _PyServerText
import _PyServerWire
from _PyServerPeer import Gone, mayConnect, peerUid
from _PyServerTrace import Trace
from _PyServerWire import Closed, Late, Rubbish

REPLY_LIMIT = 64 * 1024 * 1024  # bytes of a result

_ACCEPT_PAUSE = 0.2  # seconds, after a connection could not be taken for want of something
_LISTENING_SECONDS = 2.0  # far above what the loop needs to end
_LARGE = 64 * 1024  # bytes; what is larger is not copied to stand behind its head
_SOCK_CLOEXEC = 0o2000000

_commands = {
    _PyServerWire.EVAL: _PyServerText.evalText,
    _PyServerWire.EXEC: _PyServerText.execText,
}


class Limits(object):
    """What a server grants its clients: seconds, connections, bytes."""

    def __init__(self, idle, frame, connections, request):
        self.idle = idle
        self.frame = frame
        self.connections = connections
        self.request = request


class Loop(threading.Thread):
    """Takes connections on the listeners, which it owns, until stop().

    `forget` is called in a child of a fork.
    """

    def __init__(self, name, listeners, limits, forget):
        super(Loop, self).__init__(name=name)
        self.daemon = True
        self.limits = limits
        self.trace = Trace()
        self.stopping = False
        self.process = os.getpid()
        self._forgetFiles = forget
        self._listeners = listeners
        self._wakeEnd, self._stopEnd = socket.socketpair(
            socket.AF_UNIX, socket.SOCK_STREAM | _SOCK_CLOEXEC)
        # Guards the set, and no socket in it is closed before it is taken out.
        self._lock = threading.Lock()
        self._connections = set()

    def stopListening(self):
        """Takes no more connections; those there are go on until stop()."""
        self.stopping = True
        self._stopEnd.close()
        self._join(self, _PyServerWire.now() + _LISTENING_SECONDS)

    def stop(self, timeout):
        """Closes all connections; waits so many seconds for texts that are being evaluated and for
        their answers to be taken."""
        end = _PyServerWire.now() + timeout
        for connection in self._hangUp(socket.SHUT_RD):
            self._join(connection, end)
        self._hangUp(socket.SHUT_RDWR)
        self.trace.stop(max(0.0, end - _PyServerWire.now()))

    def _hangUp(self, direction):
        """Shuts that direction of all connections, which wakes those that wait for it; gives them."""
        with self._lock:
            for connection in self._connections:
                connection.hangUp(direction)
            return list(self._connections)

    def run(self):
        try:
            self._takeConnections()
        finally:
            while self._listeners:
                self._listeners.pop().close()
            self._wakeEnd.close()

    def ended(self, connection):
        """Takes a connection out, which then closes its socket."""
        with self._lock:
            self._connections.discard(connection)

    def _takeConnections(self):
        poll = select.poll()
        poll.register(self._wakeEnd, select.POLLIN)
        waiting = {}
        for listener in self._listeners:
            listener.setblocking(False)
            poll.register(listener, select.POLLIN)
            waiting[listener.fileno()] = listener
        while not self.stopping:
            for descriptor in _ready(poll):
                if descriptor in waiting and not self.stopping:
                    self._takeConnection(waiting[descriptor])

    def _takeConnection(self, listener):
        accepted = None
        try:
            accepted, _ = listener.accept()
            _closeOnExec(accepted.fileno())
            if self._admits(accepted):
                self._serve(accepted)
                return
        except Exception as error:
            if getattr(error, "errno", None) not in _PASSING_ERRORS:
                # For want of descriptors, memory or threads. Where the connection still waits, no
                # pause would mean to try at full speed.
                self.trace(0, "cannot take a connection: %s" % error)
                self._pause()
        if accepted is not None:
            accepted.close()

    def _admits(self, accepted):
        try:
            uid = peerUid(accepted)
        except Gone:
            self.trace(8, "a client was gone before it was known")
            return False
        if not mayConnect(uid):
            who = "an unknown user" if uid is None else "user %d" % uid
            self.trace(0, "refused a connection of %s" % who)
            return False
        if len(self._connections) >= self.limits.connections:
            self.trace(0, "refused a connection, there are %d" % self.limits.connections)
            return False
        return True

    def _serve(self, accepted):
        connection = Connection(self, accepted)
        with self._lock:
            self._connections.add(connection)
        try:
            connection.start()
        except BaseException:
            self.ended(connection)
            raise

    def _pause(self):
        poll = select.poll()
        poll.register(self._wakeEnd, select.POLLIN)
        _ready(poll, _ACCEPT_PAUSE)

    def _join(self, thread, end):
        if thread is not threading.current_thread():
            thread.join(max(0.0, end - _PyServerWire.now()))

    def _reset_internal_locks(self):
        # The threading module calls this in the child of a fork: this version of Python has no
        # other hook there.
        super(Loop, self)._reset_internal_locks()
        if os.getpid() != self.process:
            self._forget()

    def _forget(self):
        """Lets go, in a child, of all that the parent alone should hold.

        Else clients would wait at a socket that lives on in a child that serves nobody. The numbers
        stay taken, since objects of the parent's threads still close them at some time. No
        lock: the thread that held one is not here to release it.
        """
        self.stopping = True
        self.trace = _noTrace
        descriptors = [connection.descriptor for connection in self._connections]
        for end in [self._wakeEnd, self._stopEnd] + self._listeners:
            try:
                descriptors.append(end.fileno())
            except socket.error:
                pass  # closed already
        null = os.open(os.devnull, os.O_RDWR)
        for descriptor in descriptors:
            os.dup2(null, descriptor)
            _closeOnExec(descriptor)
        os.close(null)
        self._forgetFiles()


class Connection(threading.Thread):
    """Serves one client, which is known to be one that may connect."""

    def __init__(self, loop, accepted):
        super(Connection, self).__init__(name="PyServer connection")
        self.daemon = True
        self.descriptor = accepted.fileno()
        self._loop = loop
        self._socket = accepted
        self._stream = _PyServerWire.Stream(accepted, loop.limits.idle)

    def hangUp(self, direction):
        """Wakes the thread, if it waits for its client. A thread lets its own answer out."""
        if threading.current_thread() is not self:
            _shutDown(self._socket, direction)

    def run(self):
        try:
            self._serveAll()
        except (Closed, Late) as end:
            self._loop.trace(8 if isinstance(end, Closed) else 1, "closes a connection: %s" % end)
        finally:
            self._loop.ended(self)
            _shutDown(self._socket, socket.SHUT_RDWR)
            self._socket.close()

    def _serveAll(self):
        limits = self._loop.limits
        try:
            self._stream.deadlineIn(limits.frame, "no greeting in time")
            _PyServerWire.readGreeting(self._stream.read)
            self._stream.write(_PyServerWire.GREETING_REPLY, limits.frame)
        except Rubbish as rubbish:
            self._loop.trace(1, "refused a connection: %s" % rubbish)
            return
        try:
            while not self._loop.stopping:
                self._serveOne(limits)
        except Rubbish as rubbish:
            self._loop.trace(1, "closes a connection: %s" % rubbish)
            self._reply(_PyServerWire.FAILURE, str(rubbish))
            self._stream.deadlineIn(limits.frame, "")
            self._stream.drain()

    def _serveOne(self, limits):
        # A call of its own, so that nothing of a request outlives it while the next is awaited.
        self._stream.awaitData()
        self._stream.deadlineIn(limits.frame, "an unfinished request")
        header, text = _PyServerWire.readRequest(self._stream.read, limits.request)
        self._reply(*self._answer(header, text))

    def _answer(self, header, text):
        error, payload = None, ""
        try:
            payload = _commands[header](text)
        except:  # whatever the text raises is its own affair, SystemExit not excepted
            error = sys.exc_info()[1]
            payload = _PyServerText.failureText(text, *sys.exc_info())
        if os.getpid() != self._loop.process:
            _endChild(error, payload)
        if len(payload) > REPLY_LIMIT:
            return _PyServerWire.FAILURE, "a result of %d bytes is too long, the limit is %d" % (
                len(payload), REPLY_LIMIT)
        return _PyServerWire.SUCCESS if error is None else _PyServerWire.FAILURE, payload

    def _reply(self, status, payload):
        head = _PyServerWire.replyHead(status, payload)
        seconds = self._loop.limits.idle
        if len(payload) < _LARGE:
            self._stream.write(head + payload, seconds)
        else:
            self._stream.write(head, seconds)
            self._stream.write(payload, seconds)


# Not worth a line; EMFILE and its like are.
_PASSING_ERRORS = (errno.EAGAIN, errno.EINTR, errno.ECONNABORTED)


def _endChild(error, failure):
    """Ends a process that a text has forked and then returned in: one request has one answer."""
    status = 0
    try:
        if isinstance(error, SystemExit):
            status = error.code if isinstance(error.code, int) else int(error.code is not None)
        elif error is not None:
            status = 1
            sys.stderr.write(failure + "\n")
        sys.stdout.flush()
        sys.stderr.flush()
    finally:
        os._exit(status & 0xff)


def _noTrace(level, text):
    pass


def _ready(poll, seconds=None):
    """The descriptors on which something is up; maybe none."""
    try:
        return [descriptor for descriptor, _ in poll.poll(seconds and int(seconds * 1000))]
    except select.error:
        return []  # a signal


def _closeOnExec(descriptor):
    fcntl.fcntl(descriptor, fcntl.F_SETFD, fcntl.FD_CLOEXEC)


def _shutDown(connection, direction):
    try:
        connection.shutdown(direction)
    except socket.error:
        pass
