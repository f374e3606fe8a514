"""The stress test with the atomic reference counts of enableThreadSafePointers()."""

import unittest

from stress_child import run_stress


class SafePointers(unittest.TestCase):

    def test_threads_of_every_sort_lose_no_change_and_never_get_stuck(self):
        self.assertEqual(run_stress("--safe-pointers").expect().err, "")
