"""Who is at the other end of a connection. The kernel is asked, never the peer."""

import os
import socket
import struct

_SO_PEERCRED = 17
_TCP_INFO = 11
_ESTABLISHED = 1
_LOOKS = 3


class Gone(Exception):
    """The peer has closed its end already."""


def mayConnect(uid):
    """Whether that user may evaluate text: the agent's own and root, and nobody unknown (None)."""
    return uid is not None and uid in (0, os.geteuid())


def peerUid(connection):
    """The user id of the peer, None if it cannot be told. Raises Gone."""
    if connection.family == socket.AF_UNIX:
        return _unixPeerUid(connection)
    try:
        return _tcpPeerUid(connection)
    except socket.error:
        raise Gone()


def _unixPeerUid(connection):
    credentials = connection.getsockopt(socket.SOL_SOCKET, _SO_PEERCRED, struct.calcsize("iII"))
    _, uid, _ = struct.unpack("iII", credentials)
    return uid


def _tcpPeerUid(connection):
    """The owner of the peer's socket.

    A socket that its process has closed stands in the kernel's table as root's. One look could meet
    it between the two, so two have to agree, and our own end has to be open at last: while it
    is, no other socket can have the peer's place in the table.
    """
    peer = _tableAddress(connection.getpeername())
    own = _tableAddress(connection.getsockname())
    uid = _ownerOf(peer, own)
    sameUid = _ownerOf(peer, own)
    if ord(connection.getsockopt(socket.IPPROTO_TCP, _TCP_INFO, 1)) != _ESTABLISHED:
        raise Gone()
    return uid if uid == sameUid else None


def _tableAddress(address):
    host, port = address
    return "%08X:%04X" % (struct.unpack("=I", socket.inet_aton(host))[0], port)


def _ownerOf(local, remote):
    # The kernel gives the table in pieces, and a row may slip through between two of them.
    for _ in range(_LOOKS):
        for name, prefix in (("tcp", ""), ("tcp6", "0000000000000000FFFF0000")):
            uid = ownerInTable("/proc/net/" + name, prefix + local, prefix + remote)
            if uid is not None:
                return uid
    return None


def ownerInTable(path, local, remote):
    """The owner of the open socket with these two addresses; None if the table has none."""
    try:
        table = open(path)
    except IOError:
        return None
    with table:
        for row in table:
            if local not in row:
                continue
            fields = row.split()
            established = "%02X" % _ESTABLISHED
            # An inode of 0 is a socket without a process.
            if fields[1:4] == [local, remote, established] and fields[9] != "0":
                return int(fields[7])
    return None
