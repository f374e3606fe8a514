"""Faults planted in the stress test, which its counters and the watch over the locks find."""

import unittest

from stress_child import LOCK_ORDER_IS_WATCHED, SANITIZER, run_stress

FEW = ("--steps", "200", "--forks", "2")


class Counters(unittest.TestCase):

    def test_a_lost_change_is_told(self):
        outcome = run_stress("--plant", "lose_one", *FEW).expect(1)
        self.assertRegexpMatches(outcome.out, "Odd::Notes: change [0-9]+ is .*, seen was ")

    def test_a_change_that_is_seen_twice_is_told(self):
        outcome = run_stress("--plant", "see_twice", *FEW).expect(1)
        self.assertRegexpMatches(outcome.out, "Odd::Notes: change [0-9]+ is .*, seen was ")


class Locks(unittest.TestCase):

    @unittest.skipUnless(LOCK_ORDER_IS_WATCHED, "a sanitizer stands before the mutex")
    def test_a_thread_that_wants_the_activity_lock_with_the_GIL_is_told(self):
        outcome = run_stress("--plant", "lock_with_gil", *FEW).expect(1)
        self.assertIn("the order of the locks was not kept\n", outcome.out)
        self.assertIn("the activity lock is wanted with the GIL held, by\n", outcome.err)

    @unittest.skipUnless(SANITIZER == "thread", "it takes the thread sanitizer")
    def test_a_pointer_that_is_copied_without_the_lock_is_a_race(self):
        outcome = run_stress("--plant", "copy_without_lock", *FEW)
        self.assertNotEqual(outcome.status, 0)
        self.assertIn("ThreadSanitizer: data race", outcome.err)
        self.assertIn("Kel::VFPtrInterface::ref", outcome.err)
