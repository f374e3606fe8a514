"""Ctrl-C: it asks the runtime's loop to stop, and then does what it did before."""

import signal
import unittest

from kel_testing import in_child

class Sigint(unittest.TestCase):

    def test_it_sets_the_stop_flag_and_then_runs_Pythons_handler(self):
        in_child("""
import os, signal, time
import _Kel, kel_crash
assert not kel_crash.stopOnQuiesce()
try:
    os.kill(os.getpid(), signal.SIGINT)
    time.sleep(30)
except KeyboardInterrupt:
    assert kel_crash.stopOnQuiesce()
else:
    raise AssertionError("Python's handler did not run")
""").expect()

    def test_the_handler_of_the_program_gets_the_same_number(self):
        in_child("""
import ctypes, os, signal
numbers = []
HANDLER = ctypes.CFUNCTYPE(None, ctypes.c_int)
handler = HANDLER(numbers.append)
libc = ctypes.CDLL(None)
libc.signal.restype = ctypes.c_void_p
libc.signal(signal.SIGINT, handler)
import kel_crash
import _Kel
assert numbers == []
getattr(libc, "raise")(signal.SIGINT)
assert numbers == [signal.SIGINT], numbers
assert kel_crash.stopOnQuiesce()
""").expect()

    def test_with_the_default_action_before_the_signal_ends_in_the_handler(self):
        outcome = in_child("""
import os, signal
signal.signal(signal.SIGINT, signal.SIG_DFL)
import _Kel, kel_crash
os.kill(os.getpid(), signal.SIGINT)
assert kel_crash.stopOnQuiesce()
print "lived on"
""").expect()
        self.assertEqual(outcome.out, "lived on\n")

    def test_an_ignored_signal_before_is_called_like_a_handler(self):
        # Its value is not told apart from a handler: the call ends the process.
        outcome = in_child("""
import os, signal
signal.signal(signal.SIGINT, signal.SIG_IGN)
import _Kel
os.kill(os.getpid(), signal.SIGINT)
""").expect(-signal.SIGSEGV)
        self.assertIn("fatal signal 11", outcome.err)

    def test_a_thread_in_the_runtime_gets_it_without_harm(self):
        in_child("""
import os, signal, threading
import _Kel, acme, kel_crash
stop = threading.Event()
item = acme.Item("one", 1)

def churn():
    while not stop.is_set():
        item.size = 3
        item.add(1, 2)

threads = [threading.Thread(target=churn) for _ in range(2)]
[thread.start() for thread in threads]
interrupts = 0
for _ in range(20):
    try:
        os.kill(os.getpid(), signal.SIGINT)
        for _ in xrange(100000):
            pass
    except KeyboardInterrupt:
        interrupts += 1
stop.set()
[thread.join() for thread in threads]
assert interrupts > 0
assert kel_crash.stopOnQuiesce()
assert _Kel.activityLockOwner() == 0
""").expect()
