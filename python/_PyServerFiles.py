"""The files of a server: the agent file with its lock, and the unix socket."""

import errno
import fcntl
import hashlib
import os
import socket
import stat
import time

from _PyServerWire import now

AGENT_FILE_LIMIT = 128  # bytes; readers take no more
SOCKET_NAME_LIMIT = 107  # bytes

_O_CLOEXEC = 0o2000000
_SOCK_CLOEXEC = 0o2000000
_BACKLOG = 128
_LOCK_PAUSE = 0.005  # seconds


class Error(Exception):
    """Why a server could not start; the text is one line, for people."""


def agentDirectory():
    """Where agent files are; the environment is asked each time, as clients do."""
    return os.environ.get("KELC_AGENTS_DIR", "/var/run/agents")


def makeAgentDirectory(path):
    if not path:
        raise Error("KELC_AGENTS_DIR is empty, there is no agent directory")
    try:
        os.mkdir(path, 0o755)
    except OSError as error:
        if error.errno != errno.EEXIST and not os.path.isdir(path):
            raise Error("the agent directory %s cannot be made: %s" % (path, error.strerror))


class DirectoryLock(object):
    """Holds the exclusive lock on a directory that readers and writers of agent files take.

    Raises Error if the directory cannot be opened, or if others hold it for `timeout` seconds.
    """

    def __init__(self, path, timeout):
        self._path = path
        self._timeout = timeout
        self._descriptor = None

    def __enter__(self):
        self._descriptor = _open(self._path, os.O_RDONLY | os.O_DIRECTORY)
        try:
            self._lock()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        descriptor, self._descriptor = self._descriptor, None
        os.close(descriptor)

    def _lock(self):
        # Not a call that waits: nothing would end that at the deadline.
        end = now() + self._timeout
        while not _tryLock(self._descriptor):
            if now() >= end:
                raise Error("%s is locked by another process for %s seconds already" % (
                    self._path, self._timeout))
            time.sleep(_LOCK_PAUSE)


class AgentFile(object):
    """The file by which clients find an agent: its process id, port and socket name.

    Who holds the lock on it is alive. The lock belongs to the open file, which fork shares: a
    child has to call forget(), else the agent seems to live on in it.
    """

    def __init__(self, path):
        self.path = path
        self._descriptor = None

    def claim(self):
        """Makes the file anew and locks it; the directory's lock must be held.

        One that nobody has locked is of a dead agent and goes. Raises Error if an agent lives.
        """
        self._removeStale()
        self._descriptor = _open(self.path, os.O_RDWR | os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW)
        os.fchmod(self._descriptor, 0o600)
        if not _tryLock(self._descriptor):
            raise Error("%s was locked by another process as it was made" % self.path)

    def write(self, port, socketName):
        text = "%d\n%d\n%s\n" % (os.getpid(), port, socketName)
        if len(text) > AGENT_FILE_LIMIT:
            raise Error("%s would have %d bytes, more than %d: the socket name is too long" % (
                self.path, len(text), AGENT_FILE_LIMIT))
        try:
            while text:
                text = text[_retried(os.write, self._descriptor, text):]
        except OSError as error:
            raise Error("%s cannot be written: %s" % (self.path, error.strerror))

    def remove(self):
        """Removes the file, if it still is this one, and gives up the lock."""
        if self._descriptor is None:
            return
        status = os.fstat(self._descriptor)
        removeIfSame(self.path, (status.st_dev, status.st_ino))
        self.forget()

    def forget(self):
        """Closes the file and leaves it where it is."""
        descriptor, self._descriptor = self._descriptor, None
        if descriptor is not None:
            os.close(descriptor)

    def _removeStale(self):
        if not os.path.lexists(self.path):
            return
        # Opening a FIFO must not wait for somebody to write to it.
        descriptor = _open(self.path, os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK)
        try:
            if not stat.S_ISREG(os.fstat(descriptor).st_mode):
                raise Error("%s is in the way: it is no file" % self.path)
            if not _tryLock(descriptor):
                owner = os.read(descriptor, AGENT_FILE_LIMIT).split("\n")[0]
                raise Error("the agent %s is running already, as process %s" % (
                    os.path.basename(self.path), owner or "unknown"))
            os.unlink(self.path)
        except OSError as error:
            raise Error("%s of a dead agent cannot be removed: %s" % (self.path, error.strerror))
        finally:
            os.close(descriptor)


def defaultSocketName(directory, fileName):
    """Where the socket of an agent is by default; `directory` is the absolute path of its file's.

    That is in a folder of the user's own below the agent directory; in one below /tmp, by a
    name that stands for the former, if that were too long.
    """
    uid = os.geteuid()
    path = os.path.join(directory, ".sockets-%d" % uid, fileName)
    if len(path) <= SOCKET_NAME_LIMIT and "\n" not in path:
        return path
    return os.path.join("/tmp/kel-%d" % uid, hashlib.sha1(path).hexdigest())


def makePrivateFolder(path):
    """Makes a folder that only its owner may enter, or checks that the one there is such."""
    _makeFolder(path)
    descriptor = _open(path, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW)
    try:
        status = os.fstat(descriptor)
    finally:
        os.close(descriptor)
    if status.st_uid != os.geteuid():
        raise Error("%s is not safe for a socket: it belongs to user %d" % (path, status.st_uid))
    if status.st_mode & 0o777 != 0o700:
        raise Error("%s is not safe for a socket: its mode is %04o, not 0700" % (
            path, stat.S_IMODE(status.st_mode)))


def makeSafeFolder(path):
    """The same for a folder that a user chose: no other user but root may replace what is in it."""
    _makeFolder(path)
    try:
        status = os.stat(path)
    except OSError as error:
        raise Error("%s: %s" % (path, error.strerror))
    if status.st_uid not in (0, os.geteuid()):
        raise Error("%s is not safe for a socket: it belongs to user %d" % (path, status.st_uid))
    if status.st_mode & 0o022 and not status.st_mode & stat.S_ISVTX:
        raise Error("%s is not safe for a socket: its mode %04o lets others replace it" % (
            path, stat.S_IMODE(status.st_mode)))


def listenOnSocket(path):
    """A listening unix socket that only the user may connect to, in the place of a dead one."""
    _removeDeadSocket(path)
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM | _SOCK_CLOEXEC)
    try:
        # The kernel takes the mode of the file from here, so nobody meets it with another.
        os.fchmod(listener.fileno(), 0o600)
        listener.bind(path)
        if stat.S_IMODE(os.lstat(path).st_mode) != 0o600:
            os.chmod(path, 0o600)  # the umask takes the owner's rights, too
        listener.listen(_BACKLOG)
        return listener
    except EnvironmentError as error:
        listener.close()
        raise Error("the socket %s cannot be made: %s" % (path, error.strerror))


def listenOnPort(port):
    """A listening TCP socket on the loopback address."""
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM | _SOCK_CLOEXEC)
    try:
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        listener.bind(("127.0.0.1", port))
        listener.listen(_BACKLOG)
        return listener
    except EnvironmentError as error:
        listener.close()
        raise Error("port %d of 127.0.0.1 cannot be listened on: %s" % (port, error.strerror))


def fileIdentity(path):
    status = os.lstat(path)
    return status.st_dev, status.st_ino


def removeIfSame(path, identity):
    """Removes the file unless another has come to its place, or it is gone."""
    try:
        if fileIdentity(path) == identity:
            os.unlink(path)
    except OSError:
        pass


def _removeDeadSocket(path):
    try:
        status = os.lstat(path)
    except OSError as error:
        if error.errno == errno.ENOENT:
            return
        raise Error("%s: %s" % (path, error.strerror))
    if not stat.S_ISSOCK(status.st_mode):
        raise Error("%s is in the way: it is no socket" % path)
    if not _isDead(path):
        raise Error("the socket %s is in use" % path)
    try:
        os.unlink(path)
    except OSError as error:
        raise Error("the dead socket %s cannot be removed: %s" % (path, error.strerror))


def _isDead(path):
    probe = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM | _SOCK_CLOEXEC)
    try:
        probe.setblocking(False)
        return probe.connect_ex(path) == errno.ECONNREFUSED
    finally:
        probe.close()


def _makeFolder(path):
    try:
        os.mkdir(path, 0o700)
    except OSError as error:
        if error.errno != errno.EEXIST:
            raise Error("the folder %s cannot be made: %s" % (path, error.strerror))


def _open(path, flags):
    try:
        return _retried(os.open, path, flags | _O_CLOEXEC, 0o600)
    except OSError as error:
        raise Error("%s cannot be opened: %s" % (path, error.strerror))


def _tryLock(descriptor):
    try:
        _retried(fcntl.flock, descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
        return True
    except IOError:
        return False


def _retried(function, *args):
    while True:
        try:
            return function(*args)
        except EnvironmentError as error:
            if error.errno != errno.EINTR:
                raise
