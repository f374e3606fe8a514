"""What is compared with _Kel: a hand-written extension, with a single turn of the two locks for each
operation or with as many as _Kel makes, and what a user would take instead.

Each has the classes Thing, Deep4, Point and Owner.
"""

import importlib
import os
import sys

import kel_floor
import kel_floor_collection
import kel_floor_point

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "peers"))

TEXT = "a text of some length"


class Subject(object):
    def __init__(self, name, **classes):
        self.name = name
        self.__dict__.update(classes)


def floors():
    deep = dict(("Deep%d" % depth, getattr(kel_floor, "Deep%d" % depth)) for depth in range(2, 13))
    return [
        Subject("floor", Thing=kel_floor.Thing, Point=kel_floor_point.Point,
                Owner=kel_floor_collection.Owner, **deep),
        Subject("same turns", Thing=kel_floor.SameTurns, Point=kel_floor_point.SameTurns,
                Owner=kel_floor_collection.SameTurns, **deep)]


# (name, module)
PEERS = (("Cython", "peer_cython"), ("SWIG", "_peer_swig"), ("pybind11", "peer_pybind11"),
         ("ctypes", "peer_ctypes"), ("plain class", "peer_plain"))
NAMES = ("kel", "floor", "same turns") + tuple(name for name, _ in PEERS)
TITLES = dict([(name, name) for name in NAMES], kel="_Kel")


def peers():
    """Those that are there."""
    found = []
    for name, module in PEERS:
        try:
            found.append(Subject(name, **importlib.import_module(module).__dict__))
        except ImportError:
            pass
    return found


def lines(name):
    """(first word, the rest) of each line of a file that the build has laid beside the modules."""
    path = os.path.join(os.path.dirname(kel_floor.__file__), name)
    if not os.path.exists(path):
        return []
    with open(path) as source:
        return [tuple(line.strip().split(" ", 1)) for line in source if line.strip()]


def missing():
    """Why a peer is not there, by name."""
    there = set(peer.name for peer in peers())
    why = dict(lines("missing.txt"))
    return dict((name, why.get(name, "it has not been built")) for name, _ in PEERS if name not in there)


def versions():
    """Of the compiler, and of the tools behind the peers that are there."""
    there = set(peer.name for peer in peers()) | set(["compiler"])
    return dict((name, version) for name, version in lines("peers.txt") if name in there)
