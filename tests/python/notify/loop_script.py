"""Scripts around the activity loop, each in a process of its own."""

import os

from kel_testing import in_child

SCRIPT = """
import os, signal, sys, threading, time
import _Kel, acme, kel_hand, odd
from kel_testing import wait_until
from reactors import *

notes, seen = odd.Notes(), Seen()
kept = [notifiee(notes, seen)]

# A timer far away: the loop waits and has something to wait for.
kept.append(timer(lambda: None, clock.now + 1e6))
"""


def run_script(source, status=0, first=""):
    """Runs the source behind SCRIPT, and `first` before either; it ends with that status."""
    path = os.pathsep.join(
        [os.path.dirname(os.path.abspath(__file__)), os.environ["PYTHONPATH"]])
    return in_child(first + SCRIPT + source, env={"PYTHONPATH": path}).expect(status)
