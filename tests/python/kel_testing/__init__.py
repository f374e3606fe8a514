"""What the Python tests share.

in_child runs a script in a process of its own, with a deadline; TestCase checks that a test leaves
as many runtime objects and Python references of this module behind as it found.
"""

from kel_testing.case import TestCase, refusal, unless_thread_sanitizer
from kel_testing.child import Outcome, in_child, wait_until

__all__ = ["Outcome", "TestCase", "in_child", "refusal", "unless_thread_sanitizer",
           "wait_until"]
