"""The server inside an agent: evaluates Python text that local clients send.

    server = PyServer.PyServer("acme", "shop")
    server.start()              # clients find it as acme.shop from here on
    ...
    server.stop()               # the agent file and the socket are gone; so at exit, too

Text runs in __main__, on the thread of its connection, side by side with the agent's own; what it
takes, such as a lock, it has to give back. One that never ends blocks its own connection only.

Evaluating text is full power over the agent. A client must run as the agent's own user or as
root; the kernel is asked who it is, and anyone else is closed before a byte of his is read.

A child that the agent forks has no part in the server: it neither serves nor keeps the agent
alive in the eyes of clients. That is so for os.fork and all that uses it. A child of a fork(2) in C
that does not exec holds the lock on the agent file while it lives.
"""

import atexit
import os
import thread

import _PyServerText
from _PyServerFiles import (
    AgentFile, DirectoryLock, Error, SOCKET_NAME_LIMIT, agentDirectory, defaultSocketName,
    fileIdentity, listenOnPort, listenOnSocket, makeAgentDirectory, makePrivateFolder,
    makeSafeFolder, removeIfSame)
from _PyServerLoop import Limits, Loop

__all__ = ["Error", "PyServer"]

_REQUEST_LIMIT = 1024 * 1024  # bytes of a text
_LOCK_SECONDS = 10.0  # for the agent directory; readers hold it for moments

_running = set()  # servers that have to stop at exit


class PyServer(object):
    """A server on threads of its own, which are daemons.

    `group` and `name` are those of the agent; with them, the server is announced by the agent file
    GROUP.NAME, or GROUP.NAME.SUBSYSTEMID. A `subsystemId` of None is taken from the environment
    variable SUBSYSTEMID. Without names there is no agent file, and clients must know the socket
    or the port.

    `socketName` is the path of the unix socket, up to 107 bytes. Without it, a server with names
    has one in a folder of the user's own below the agent directory, and one without has none.
    `port` is None for no TCP, 0 for any free port, or a number; only 127.0.0.1 is listened on.

    `idleLimit` is how many seconds a connection may rest between requests, `frameLimit` how many
    an unfinished greeting or request may take. Beyond `maxConnections`, clients are closed at once.

    Raises ValueError for arguments that cannot be meant.
    """

    def __init__(self, group=None, name=None, subsystemId=None, socketName=None, port=None,
                 idleLimit=3600.0, frameLimit=10.0, maxConnections=256):
        self._fileName = _agentFileName(group, name, subsystemId)
        self._wantedSocket = _checkedSocketName(socketName)
        self._wantedPort = _checkedPort(port)
        if self._fileName is None and socketName is None and port is None:
            raise ValueError("a server needs the names of its agent, a socket name or a port")
        self._limits = Limits(
            idle=_positive("idleLimit", idleLimit), frame=_positive("frameLimit", frameLimit),
            connections=_positive("maxConnections", maxConnections), request=_REQUEST_LIMIT)
        self._run = None
        # The path of the unix socket, the TCP port and the path of the agent file, while the server
        # runs; else, and for what it does not have, None, 0 and None.
        self.socketName = None
        self.port = 0
        self.agentFile = None

    @property
    def isRunning(self):
        """Whether it has been started; not so in a process forked from the server's."""
        return self._run is not None and self._run.process == os.getpid()

    def start(self):
        """Listens, announces the server, and returns; the threads go on.

        Raises Error, with nothing left behind, if that cannot be: another live agent has the
        name, the socket or the port is taken, a folder is not safe.
        """
        if self.isRunning:
            raise Error("the server runs already")
        run = _Run()
        try:
            run.start(self._fileName, self._wantedSocket, self._wantedPort, self._limits)
        except (EnvironmentError, thread.error) as error:
            # For want of descriptors, memory or threads, at a place that knows no better text.
            run.stop(0.0)
            raise Error("the server cannot start: %s" % error)
        except BaseException:
            run.stop(0.0)
            raise
        self._run = run
        self.socketName = run.socketName
        self.port = run.port
        self.agentFile = run.agentFile.path if run.agentFile else None
        _running.add(self)

    def stop(self, timeout=2.0):
        """Removes agent file and socket, and closes all connections.

        Waits up to `timeout` seconds for texts that are being evaluated and for their replies to
        be taken; one that goes on loses its reply. Does nothing for a stopped server and in a
        process forked from the server's. It is called at the exit of the interpreter.
        """
        run, self._run = self._run, None
        if run is None:
            return
        try:
            run.stop(timeout)
        except BaseException:
            self._run = run  # a signal handler raised; the rest can go by another stop()
            raise
        _running.discard(self)
        self.socketName, self.port, self.agentFile = None, 0, None

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()


class _LocalServer(object):
    """What a client calls that finds itself in the agent's own process."""

    def doEval(self, text):
        """The value of an expression in __main__, as a str. What it raises is passed on."""
        return _PyServerText.evalText(text)

    def doExec(self, text):
        """Runs statements in __main__ and returns an empty str. What they raise is passed on."""
        return _PyServerText.execText(text)


class _Run(object):
    """The files and threads of a server from start to stop, and of one that fails in between."""

    def __init__(self):
        self.socketName = None
        self.port = 0
        self.agentFile = None
        self.process = os.getpid()
        self._directory = None
        self._socketFolder = None  # if this run may remove it
        self._socketIdentity = None
        self._listeners = []
        self._loop = None

    def start(self, fileName, socketName, port, limits):
        if fileName is None:
            self._listen(socketName, port)
        else:
            self._announce(fileName, socketName, port)
        loop = Loop("PyServer", self._listeners, limits, self._forget)
        loop.start()
        self._loop = loop

    def stop(self, timeout):
        if os.getpid() != self.process:
            return
        try:
            with DirectoryLock(self._directory, _LOCK_SECONDS) if self._directory else _NoLock():
                self._removeFiles()
                self._removeSocketFolder()
                self._stopListening()
        except Error:
            # The directory is gone, or somebody sits on its lock. The file can go even so: it is
            # locked, so nobody takes it for stale meanwhile.
            self._removeFiles()
            self._stopListening()
        if self._loop is not None:
            self._loop.stop(timeout)

    def _announce(self, fileName, socketName, port):
        directory = agentDirectory()
        makeAgentDirectory(directory)
        directory = os.path.abspath(directory)
        with DirectoryLock(directory, _LOCK_SECONDS):
            self._directory = directory
            self.agentFile = AgentFile(os.path.join(directory, fileName))
            self.agentFile.claim()
            # Only now is it sure that a socket of that name is of a dead agent.
            if socketName is None:
                socketName = defaultSocketName(directory, fileName)
                self._makeSocketFolder(os.path.dirname(socketName))
            self._listen(socketName, port)
            self.agentFile.write(self.port, self.socketName)

    def _listen(self, socketName, port):
        if socketName is not None:
            makeSafeFolder(os.path.dirname(socketName))
            self._listeners.append(listenOnSocket(socketName))
            self.socketName = socketName
            self._socketIdentity = fileIdentity(socketName)
        if port is not None:
            self._listeners.append(listenOnPort(port))
            self.port = self._listeners[-1].getsockname()[1]

    def _stopListening(self):
        if self._loop is not None:
            self._loop.stopListening()
        while self._listeners:
            self._listeners.pop().close()

    def _removeFiles(self):
        if self.agentFile is not None:
            self.agentFile.remove()
        if self.socketName is not None:
            removeIfSame(self.socketName, self._socketIdentity)

    def _makeSocketFolder(self, folder):
        makePrivateFolder(folder)
        # Only there does the lock keep other agents of the user from entering it just now.
        if os.path.dirname(folder) == self._directory:
            self._socketFolder = folder

    def _removeSocketFolder(self):
        if self._socketFolder is not None:
            try:
                os.rmdir(self._socketFolder)
            except OSError:
                pass  # it holds the sockets of other agents

    def _forget(self):
        if self.agentFile is not None:
            self.agentFile.forget()


class _NoLock(object):

    def __enter__(self):
        pass

    def __exit__(self, *_):
        pass


def _agentFileName(group, name, subsystemId):
    if group is None and name is None:
        return None
    if subsystemId is None:
        subsystemId = os.environ.get("SUBSYSTEMID", "")
    parts = [_checkedName("group", group, "."), _checkedName("name", name, ".")]
    if subsystemId:
        parts.append(_checkedName("subsystem id", subsystemId, ""))
    fileName = ".".join(parts)
    if len(fileName) > 255:
        raise ValueError("the agent's names have %d bytes, a file name takes 255" % len(fileName))
    return fileName


def _checkedName(what, name, forbidden):
    name = _asBytes(name)
    if not isinstance(name, str) or not name:
        raise ValueError("the %s of an agent cannot be %r" % (what, name))
    bad = [c for c in name if c in "/\x7f" + forbidden or c < " "]
    if bad:
        raise ValueError("the %s %r of an agent has a %r in it" % (what, name, bad[0]))
    return name


def _checkedSocketName(name):
    if name is None:
        return None
    name = _asBytes(name)
    if not isinstance(name, str) or not name or "\0" in name or "\n" in name:
        raise ValueError("%r cannot be the name of a socket" % (name,))
    name = os.path.abspath(name)
    if len(name) > SOCKET_NAME_LIMIT:
        raise ValueError("the socket name %s has %d bytes, more than %d" % (
            name, len(name), SOCKET_NAME_LIMIT))
    return name


def _asBytes(text):
    return text.encode("utf-8") if isinstance(text, unicode) else text


def _checkedPort(port):
    if port is None:
        return None
    if isinstance(port, bool) or not isinstance(port, (int, long)) or not 0 <= port <= 65535:
        raise ValueError("%r is no port" % (port,))
    return port


def _positive(what, number):
    if not number > 0:
        raise ValueError("%s must be above 0, not %r" % (what, number))
    return number


def _stopAll():
    for server in list(_running):
        server.stop()


atexit.register(_stopAll)
