"""An agent out of an installed prefix, which the prefix's own kel-eval questions."""

import subprocess
import sys

import _Kel
import Kel
import PyServer

answer = subprocess.check_output([sys.argv[1], "package.test", "6 * 7"])
sys.exit(0 if answer == "42\n" else "the answer was %r" % answer)
