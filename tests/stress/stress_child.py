"""The stress test in a process of its own."""

import os

import _Kel
import kel_stress
from kel_testing import in_child

FOLDER = os.path.dirname(os.path.abspath(__file__))
WATCHDOG_STATUS = 70  # how the watchdog ends the process, and a late child ends
CHILD_STATUS = 71
LOCK_ORDER = os.path.join(os.path.dirname(os.path.abspath(_Kel.__file__)), "liblock_order.so")
LOCK_ORDER_IS_WATCHED = os.path.exists(LOCK_ORDER)
SANITIZER = kel_stress.sanitizer()
DEADLINE = 110  # seconds
# The address sanitizer of g++ 12 does not hold its allocator's locks over a fork: a child may wait
# for ever for one that another thread had.
FORKS = ("--forks", "0") if SANITIZER == "address" else ()


def run_stress(*args):
    """Runs stress.py with these arguments."""
    env = {"PYTHONPATH": os.pathsep.join([FOLDER, os.environ["PYTHONPATH"]]),
           "KEL_TRACE": "python/*", "KEL_TRACE_FILE": os.devnull}
    if LOCK_ORDER_IS_WATCHED:
        env["LD_PRELOAD"] = LOCK_ORDER
    steps = os.environ.get("KEL_STRESS_STEPS", "1000")
    return in_child("import sys, stress; sys.exit(stress.main())",
                    ("--steps", steps) + FORKS + args, env, DEADLINE)
