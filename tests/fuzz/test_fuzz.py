"""A bounded run of the fuzzer, and proof that it sees each sort of fault."""

import os
import subprocess
import sys
import unittest

FUZZER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "fuzz_module.py")


def fuzz(*arguments):
    """(exit status, standard output)"""
    # A crash is told by its signal, also where a sanitizer would report it and exit.
    sanitizer = (os.environ.get("ASAN_OPTIONS", "") + ":handle_segv=0").lstrip(":")
    process = subprocess.Popen([sys.executable, FUZZER] + list(arguments), stdout=subprocess.PIPE,
                               env=dict(os.environ, ASAN_OPTIONS=sanitizer))
    output = process.communicate()[0]
    return process.returncode, output


class Fuzz(unittest.TestCase):

    def test_no_wrong_argument_ends_the_process_or_leaves_anything_behind(self):
        status, output = fuzz("--rounds", "5", "--one-in", "100")
        self.assertEqual(status, 0, output)
        self.assertGreater(int(output.split()[0]), 10000)

    def test_a_lock_an_error_a_null_and_a_crash_are_told_with_their_case(self):
        status, output = fuzz("--plant")
        self.assertEqual(status, 1)
        for fault in ("FAULT planted lock: left the activity lock held",
                      "FAULT planted error: left an error pending: KeyError('left',)",
                      "FAULT planted null: SystemError: bad argument to internal function",
                      "FAULT planted crash: ended with status -11"):
            self.assertIn(fault, output)


if __name__ == "__main__":
    unittest.main()
