"""Which locks are held where, and that no order of threads ends in a deadlock."""

import unittest

import _Kel
import acme
import kel_hand
import odd
from kel_testing import TestCase, in_child, unless_thread_sanitizer


class InsideOfTheRuntime(TestCase):

    def test_a_call_a_read_and_a_write_run_without_the_GIL_under_the_activity_lock(self):
        probe = odd.Probe()
        self.assertIs(probe.gilHeld(), False)
        self.assertIs(probe.activityLockHeld(), True)
        self.assertEqual(probe.thread(), kel_hand.thread())
        self.assertIs(probe.gilOnRead, False)
        probe.gilOnWrite = 5
        self.assertEqual(probe.gilAtWrite, 0)

    def test_the_locks_are_as_before_behind_them(self):
        probe = odd.Probe()
        probe.gilHeld()
        self.assertEqual(_Kel.activityLockOwner(), 0)

    def test_an_owner_of_the_lock_passes_and_keeps_it(self):
        probe = odd.Probe()
        _Kel.acquireActivityLock()
        me = kel_hand.thread()
        try:
            self.assertEqual(_Kel.typeNode("Acme::Item").fullTypeName, "Acme::Item")
            self.assertEqual(_Kel.activityLockOwner(), me)
            self.assertIs(probe.gilHeld(), False)
            self.assertIs(probe.activityLockHeld(), True)
            self.assertEqual(_Kel.activityLockOwner(), me)
            item = acme.Item("one", 1)
            item.size = 5
            self.assertEqual(item.size, 5)
            self.assertEqual(_Kel.activityLockOwner(), me)
            del item
            self.assertEqual(_Kel.activityLockOwner(), me)
            # One that runs its body with both locks.
            _Kel.convertEntityToFailedMount(acme.Item("two", 2))
            self.assertEqual(_Kel.activityLockOwner(), me)
            with self.assertRaises(TypeError):
                _Kel.typeNode("Acme::Nothing")
            self.assertEqual(_Kel.activityLockOwner(), me)
        finally:
            _Kel.releaseActivityLock()

    def test_a_failing_call_leaves_the_locks_as_before(self):
        with self.assertRaises(IndexError):
            odd.Faults().fail("Kel::RangeException", "x")
        self.assertEqual(_Kel.activityLockOwner(), 0)
        with self.assertRaises(TypeError):
            _Kel.typeNode("Acme::Nothing")
        self.assertEqual(_Kel.activityLockOwner(), 0)


class GuardsThatFail(unittest.TestCase):

    @unless_thread_sanitizer
    def test_a_lock_that_cannot_be_taken_is_a_Python_exception_with_the_GIL_held(self):
        in_child("""
            import _Kel, acme, errno, kel_hand, odd, threading

            def refused(function, *args):
                kel_hand.breakLock()
                try:
                    function(*args)
                except OSError as error:
                    assert (error.errno, error.filename) == (errno.EINVAL, "cannot lock"), error
                else:
                    raise AssertionError("nothing was raised")
                finally:
                    kel_hand.mendLock()
                assert _Kel.activityLockOwner() == 0
                done = threading.Event()
                threading.Thread(target=done.set).start()
                done.wait()

            item, probe, entity = acme.Item("one", 1), odd.Probe(), acme.Item("two", 2)
            future = _Kel.entityFuture("/nowhere", acme.Item.kelType)
            refused(_Kel.typeNode, "Acme::Item")
            refused(getattr, item, "size")
            refused(setattr, item, "color", "blue")
            refused(probe.gilHeld)
            refused(acme.Size, 1)
            refused(repr, item)
            refused(_Kel.constPtr, item)
            refused(_Kel.convertEntityToFailedMount, entity)
            assert item.size == 0
            """).expect()


class WithoutDeadlock(unittest.TestCase):

    def test_a_guard_waits_for_the_activity_lock_without_the_GIL(self):
        in_child("""
            import threading
            import _Kel, acme, kel_hand
            from kel_testing import wait_until

            item = acme.Item("one", 1)
            calls = [lambda: _Kel.typeNode("Acme::Item"), lambda: item.size,
                     lambda: setattr(item, "size", 3), lambda: item.add(1, 2),
                     lambda: acme.Size(1), lambda: repr(item),
                     lambda: _Kel.convertEntityToFailedMount(acme.Item("two", 2))]
            for call in calls:
                done = threading.Event()

                def work():
                    call()
                    done.set()

                _Kel.acquireActivityLock()
                thread = threading.Thread(target=work)
                thread.start()
                wait_until(kel_hand.isLockContended)
                # This thread has the GIL, and the other one has not got past the lock.
                assert not done.is_set()
                _Kel.releaseActivityLock()
                thread.join()
                assert done.is_set()
            """).expect()

    def test_a_holder_of_the_activity_lock_gets_the_GIL_while_others_want_both(self):
        in_child("""
            import sys, threading
            import _Kel, acme, kel_hand

            sys.setcheckinterval(1)
            item = acme.Item("one", 1)
            stop = threading.Event()

            def churn():
                while not stop.is_set():
                    item.size = 3
                    _Kel.typeNode("Acme::Item")
                    if _Kel.acquireActivityLock():
                        _Kel.releaseActivityLock()
                    if _Kel.timedAcquireActivityLock(1):
                        _Kel.releaseActivityLock()

            threads = [threading.Thread(target=churn) for _ in range(3)]
            [thread.start() for thread in threads]
            seen = []

            def reactor():
                # The runtime's thread holds the lock here, so it passes through the guard.
                owner = _Kel.activityLockOwner()
                item.size = 4
                seen.append(owner == kel_hand.thread() == _Kel.activityLockOwner())
                return item.size

            for _ in range(200):
                assert kel_hand.callUnderActivityLock(reactor) == 4
            stop.set()
            [thread.join() for thread in threads]
            assert seen == [True] * 200, seen
            assert _Kel.activityLockOwner() == 0
            """).expect()
