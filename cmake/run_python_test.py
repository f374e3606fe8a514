"""Runs the unittest module whose path is given; fails if a test fails or if there is none."""

import os
import sys
import unittest


def main(path):
    folder, name = os.path.split(os.path.splitext(os.path.abspath(path))[0])
    sys.path.insert(0, folder)
    suite = unittest.defaultTestLoader.loadTestsFromName(name)
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    if result.testsRun == 0:
        sys.stderr.write("%s holds no test\n" % path)
    return 0 if result.wasSuccessful() and result.testsRun else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
