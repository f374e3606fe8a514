"""The base of test cases."""

import gc
import os
import unittest

import _Kel  # first: it sets up how the runtime and Python fork together
import kel_hand

# For tests that misuse a mutex, of which the thread sanitizer tells before the module can.
unless_thread_sanitizer = unittest.skipIf(
    "libtsan" in os.environ.get("LD_PRELOAD", ""), "the thread sanitizer speaks first")


class TestCase(unittest.TestCase):
    """Fails a test that leaves the activity lock held, or more or fewer runtime objects alive.

    A class whose tests make objects for good (types that live on, singletons) sets
    `counts_objects = False`.
    """

    counts_objects = True

    def run(self, result=None):
        self._live_before = kel_hand.live() if self.counts_objects else None
        super(TestCase, self).run(result)

    def tearDown(self):
        if _Kel.activityLockOwner() != 0:
            self.fail("the activity lock is still held by thread %d" % _Kel.activityLockOwner())
        # Locals of a failed test live in its traceback: its own failure is the one to see.
        self.addCleanup(self._check_live)

    def _check_live(self):
        if self._live_before is None or self._failed():
            return
        gc.collect()
        live = kel_hand.live()
        changed = dict(
            (name, (self._live_before.get(name, 0), count)) for name, count in live.items()
            if count != self._live_before.get(name, 0))
        self.assertEqual(changed, {}, "runtime objects alive (before, after)")

    def _failed(self):
        outcome = self._resultForDoCleanups
        return any(test is self for test, _ in outcome.failures + outcome.errors)

    def assertRefused(self, cls, text, function, *args, **keywords):
        """The call raises exactly that class with exactly that text."""
        error = refusal(function, *args, **keywords)
        self.assertIsNotNone(error, "nothing was raised")
        self.assertEqual((type(error), str(error)), (cls, text))
        return error


def refusal(function, *args, **keywords):
    """The exception that the call raises, None if it raises none."""
    try:
        function(*args, **keywords)
    except Exception as error:
        return error
    return None
