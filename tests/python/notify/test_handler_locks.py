"""The order of the two locks around a handler: behind it nobody waits for the one with the other."""

import os
import unittest

from kel_testing import in_child

SCRIPT = """
import threading
import _Kel, kel_hand, odd
from kel_testing import wait_until
from reactors import *

notes = odd.Notes()
held = threading.Event()

def hold():
    # On a thread of the runtime, which has the activity lock and wants the GIL now and then.
    held.set()
    wait_until(kel_hand.isLockContended)

def handler(*args):
    # Somebody has the activity lock when this returns.
    other.start()
    held.wait()

other = threading.Thread(target=kel_hand.callUnderActivityLock, args=[hold])
%s
manager.runUntilIdle()
assert held.is_set()
other.join()
assert _Kel.activityLockOwner() == 0
"""


class BehindAHandler(unittest.TestCase):

    def run_script(self, arm):
        path = os.pathsep.join([os.path.dirname(os.path.abspath(__file__)),
                                os.environ["PYTHONPATH"]])
        in_child(SCRIPT % arm, env={"PYTHONPATH": path}).expect()

    def test_a_notifiee_waits_for_the_activity_lock_without_the_GIL(self):
        self.run_script("kept = notifiee(notes, handler); notes.a = 1")

    def test_a_timer_waits_for_the_activity_lock_without_the_GIL(self):
        self.run_script("kept = timer(handler, clock.now)")
