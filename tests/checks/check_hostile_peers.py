"""Peers that send a byte a second, close by halves, send rubbish, vanish or idle harm nobody else.

The server has a process of its own. Connections of another user are tried where there can be one.
"""

import os

from frame import HERE, Build, Result

NAME = "hostile-peers"
PASS = ("descriptors and threads back to start behind 10^4 connections, others served meanwhile, "
        "another user refused each time")
SECONDS = {"short": 10, "long": 90}

TIMES = {"short": 60, "long": 1100}


def _run(times, plant):
    script = os.path.join(HERE, "hostile_peers.py")
    return Build("release").ready().run([script, str(times), plant], 1800)


def run(form):
    ended = _run(TIMES[form], "none")
    lines = ended.out.strip().splitlines() or ["nothing said"]
    return Result(ended.status == 0, lines[-1], ended.text())


def planted(form):
    ended = _run(10, "leak")
    caught = ended.status == 1 and "descriptors and" in ended.out
    return Result(caught, "the kept descriptors were %sseen" % ("" if caught else "not "),
                  ended.text())
