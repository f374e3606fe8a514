"""The activity lock as Python functions. What could hang runs in a child process."""

import os
import unittest

import _Kel
import kel_hand
from kel_testing import TestCase, in_child, unless_thread_sanitizer


class InOneThread(TestCase):

    counts_objects = False

    def test_a_second_acquire_says_that_the_lock_is_held_already(self):
        self.assertIs(_Kel.acquireActivityLock(), True)
        self.assertIs(_Kel.acquireActivityLock(), False)
        self.assertEqual(_Kel.activityLockOwner(), kel_hand.thread())
        self.assertIs(_Kel.releaseActivityLock(), None)
        self.assertEqual(_Kel.activityLockOwner(), 0)

    def test_the_owner_is_told_as_a_long(self):
        self.assertIs(type(_Kel.activityLockOwner()), long)
        _Kel.acquireActivityLock()
        self.assertEqual(_Kel.activityLockOwner(), os.getpid())
        self.assertIs(type(_Kel.activityLockOwner()), long)
        self.assertEqual(kel_hand.ownerWithoutPython(), os.getpid())
        _Kel.releaseActivityLock()
        self.assertEqual(kel_hand.ownerWithoutPython(), 0)

    def test_a_timed_acquire_takes_a_free_lock(self):
        for seconds in 0, 1, -5, -2 ** 31, 2 ** 31 - 1:
            self.assertIs(_Kel.timedAcquireActivityLock(seconds), True)
            self.assertEqual(_Kel.activityLockOwner(), kel_hand.thread())
            _Kel.releaseActivityLock()

    def test_a_timed_acquire_by_the_owner_is_False(self):
        _Kel.acquireActivityLock()
        self.assertIs(_Kel.timedAcquireActivityLock(0), False)
        self.assertIs(_Kel.timedAcquireActivityLock(1000), False)
        _Kel.releaseActivityLock()
        self.assertEqual(_Kel.activityLockOwner(), 0)

    def test_a_timed_acquire_takes_an_int(self):
        self.assertRefused(
            TypeError, "an integer is required", _Kel.timedAcquireActivityLock, "1")
        self.assertRefused(TypeError, "an integer is required", _Kel.timedAcquireActivityLock, None)
        self.assertRefused(OverflowError, "signed integer is greater than maximum",
                           _Kel.timedAcquireActivityLock, 2 ** 31)


class BetweenThreads(unittest.TestCase):

    # Another thread holds the lock from `held` on until `release` is set.
    HOLDER = """
import threading
import _Kel, kel_hand
from kel_testing import wait_until

held, release = threading.Event(), threading.Event()

def hold():
    assert _Kel.acquireActivityLock()
    holder.append(kel_hand.thread())
    held.set()
    release.wait()
    _Kel.releaseActivityLock()

holder = []
thread = threading.Thread(target=hold)
thread.start()
held.wait()
"""

    def with_holder(self, source):
        in_child(self.HOLDER + source).expect()

    def test_a_timed_acquire_gives_up_without_a_harm_to_the_holder(self):
        self.with_holder("""
assert _Kel.timedAcquireActivityLock(0) is False
assert _Kel.timedAcquireActivityLock(-1) is False
assert _Kel.timedAcquireActivityLock(-2 ** 31) is False
assert _Kel.activityLockOwner() == holder[0]
release.set()
thread.join()
assert _Kel.activityLockOwner() == 0
""")

    def test_the_owner_is_told_while_another_thread_holds_the_lock(self):
        self.with_holder("""
assert holder[0] != kel_hand.thread()
assert _Kel.activityLockOwner() == holder[0]
assert kel_hand.ownerWithoutPython() == holder[0]
release.set()
""")

    def test_acquire_waits_without_the_GIL(self):
        self.with_holder("""
# The holder needs the GIL to see that somebody waits, and to release.
def release_once_awaited():
    wait_until(kel_hand.isLockContended)
    release.set()

threading.Thread(target=release_once_awaited).start()
assert _Kel.acquireActivityLock() is True
assert _Kel.activityLockOwner() == kel_hand.thread()
_Kel.releaseActivityLock()
""")

    def test_a_timed_acquire_waits_without_the_GIL(self):
        self.with_holder("""
def release_once_awaited():
    wait_until(kel_hand.isLockContended)
    release.set()

threading.Thread(target=release_once_awaited).start()
assert _Kel.timedAcquireActivityLock(1000) is True
assert _Kel.activityLockOwner() == kel_hand.thread()
_Kel.releaseActivityLock()
""")

    @unless_thread_sanitizer
    def test_a_release_by_another_thread_ends_the_process(self):
        outcome = in_child(self.HOLDER + "_Kel.releaseActivityLock()").expect(-6)
        self.assertIn("terminate called after throwing an instance of 'Kel::ErrnoException'",
                      outcome.err)


class Faults(unittest.TestCase):

    TERMINATED = "terminate called after throwing an instance of 'Kel::ErrnoException'"

    @unless_thread_sanitizer
    def test_a_release_of_a_free_lock_ends_the_process(self):
        outcome = in_child("import _Kel; _Kel.releaseActivityLock()").expect(-6)
        self.assertIn(self.TERMINATED, outcome.err)

    @unless_thread_sanitizer
    def test_a_failing_acquire_ends_the_process(self):
        outcome = in_child("""
            import _Kel, kel_hand
            kel_hand.breakLock()
            _Kel.acquireActivityLock()
            """).expect(-6)
        self.assertIn(self.TERMINATED, outcome.err)

    def test_a_failing_timed_acquire_is_a_Python_exception(self):
        in_child("""
            import _Kel, errno, kel_hand, os, threading
            kel_hand.breakLock()
            try:
                _Kel.timedAcquireActivityLock(1)
            except OSError as error:
                assert error.errno == errno.EINVAL, error
                assert error.strerror == os.strerror(errno.EINVAL), error
                assert error.filename == "cannot lock", error
            else:
                raise AssertionError("nothing was raised")
            kel_hand.mendLock()
            # The GIL is back in its order: other threads can take it in turn.
            done = threading.Event()
            threading.Thread(target=done.set).start()
            done.wait()
            assert _Kel.timedAcquireActivityLock(1)
            _Kel.releaseActivityLock()
            """).expect()
