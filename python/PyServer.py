"""The server inside an agent: evaluates Python text that local clients send.

    server = PyServer.PyServer("acme", "shop")
    server.start()              # clients find it as acme.shop from here on
    ...
    server.stop()               # the agent file and the socket are gone; so at exit, too

Evaluating text is full power over the agent. A client must run as the agent's own user or as
root; the kernel is asked who it is, and anyone else is closed before a byte of his is read.
"""

__all__ = ["Error", "PyServer"]


class Error(Exception):
    """Why a server could not start; the text is one line, for people."""


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
        # The path of the unix socket, and the TCP port; None and 0 while there is none.
        self.socketName = socketName
        self.port = 0
        # The path of the agent file; None without names and while the server is stopped.
        self.agentFile = None

    def start(self):
        """Listens, announces the server, and returns; the threads go on.

        Raises Error, with nothing left behind, if that cannot be: another live agent has the
        name, the socket or the port is taken, a folder is not safe.
        """
        raise NotImplementedError

    def stop(self, timeout=2.0):
        """Removes agent file and socket, and closes all connections.

        Waits up to `timeout` seconds for texts that are being evaluated; one that goes on loses
        its reply. Does nothing for a stopped server and in a process forked from the server's.
        It is called at the exit of the interpreter.
        """
        raise NotImplementedError

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()


class _LocalServer(object):
    """What a client calls that finds itself in the agent's own process."""

    def doEval(self, text):
        """The value of an expression in __main__, as a str. What it raises is passed on."""
        raise NotImplementedError

    def doExec(self, text):
        """Runs statements in __main__ and returns an empty str. What they raise is passed on."""
        raise NotImplementedError
