"""The stress test with the plain reference counts of a process that turns on no others: the locks
alone keep them right."""

import unittest

from stress_child import LOCK_ORDER_IS_WATCHED, run_stress


class PlainPointers(unittest.TestCase):

    def test_threads_of_every_sort_lose_no_change_and_never_get_stuck(self):
        outcome = run_stress().expect()
        self.assertEqual(outcome.err, "")
        self.assertEqual("the order of the locks was watched" in outcome.out,
                         LOCK_ORDER_IS_WATCHED)

    def test_nor_do_they_with_forks_that_Python_prepares(self):
        self.assertEqual(run_stress("--prepared-forks").expect().err, "")
