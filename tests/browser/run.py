"""Runs the tests of pages, all or those of the modules named; status 77 where there is no browser."""

import os
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SKIPPED = 77  # as ctest is told

sys.path.insert(0, HERE)
sys.dont_write_bytecode = True

import browsing


def main(names):
    if not browsing.THERE_IS_ONE:
        print(browsing.WHERE_TO_GET)
        return SKIPPED
    loader = unittest.defaultTestLoader
    suite = loader.loadTestsFromNames(names) if names else loader.discover(HERE)
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    return 0 if result.wasSuccessful() and result.testsRun else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
