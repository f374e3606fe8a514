"""Deadlocks planted in the stress test, which its watchdog reports."""

import unittest

from stress_child import CHILD_STATUS, SANITIZER, WATCHDOG_STATUS, run_stress


class Watchdog(unittest.TestCase):

    def run_stuck(self, plant):
        outcome = run_stress("--plant", plant, "--quiet", "3", "--forks", "0")
        outcome.expect(WATCHDOG_STATUS)
        self.assertRegexpMatches(
            outcome.err, r"watchdog: [np][0-9] made no step in 3 seconds, after [0-9]+\n")
        # The stacks of the threads of Python, whoever has the GIL.
        self.assertGreaterEqual(outcome.err.count("\nPython thread 0x"), 8)
        self.assertGreaterEqual(outcome.err.count('worker.py", line '), 8)
        return outcome.err

    def check_native_stacks(self, report, *functions):
        # The sanitizer keeps signals back from a thread that waits for a mutex.
        if SANITIZER != "thread":
            for function in ("pthread_mutex_lock", "/_Kel.so(", "PyEval_EvalFrame") + functions:
                self.assertIn(function, report)
            self.assertGreaterEqual(report.count("\nthread "), 10)
            self.assertNotIn("no answer", report)

    def test_a_lock_that_is_kept_for_ever_is_reported_with_the_stacks_of_all(self):
        report = self.run_stuck("keep_lock")
        self.assertNotIn("the GIL cannot be had", report)
        self.assertIn("(keeper):\n", report)
        self.check_native_stacks(report, "pause")

    def test_locks_taken_against_their_order_are_reported_though_the_GIL_cannot_be_had(self):
        report = self.run_stuck("invert_locks")
        self.assertIn("the GIL cannot be had", report)
        self.assertIn(", in invert\n", report)
        self.check_native_stacks(report, "PyEval_RestoreThread")

    @unittest.skipIf(SANITIZER == "thread", "the sanitizer keeps the alarm back")
    def test_a_forked_child_that_is_stuck_is_ended_with_its_stacks(self):
        outcome = run_stress("--plant", "stick_in_child", "--child-seconds", "1",
                             "--steps", "100", "--forks", "2").expect(1)
        self.assertRegexpMatches(outcome.err, "forked child [0-9]+ is late\n")
        self.assertIn(", in look_around\n", outcome.err)
        self.assertIn("the status of a child is %d\n" % (CHILD_STATUS << 8), outcome.out)
