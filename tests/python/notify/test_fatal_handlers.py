"""Handlers that fail: nobody is there to catch what they raise, so the process ends."""

import os
import signal
import unittest

from kel_testing import in_child

SCRIPT = """
import sys, thread, time
import _Kel, acme, odd
from reactors import *

notes = odd.Notes()

def raising(*args):
    raise ValueError("from the handler")

def on_main_thread():
    manager.runUntilIdle()

# The interpreter may end before the main thread waits, and takes the names of modules away.

def on_a_thread_of_Python():
    wait = thread.allocate_lock().acquire
    wait()
    thread.start_new_thread(manager.runUntilIdle, ())
    wait()

def on_the_runtimes_thread():
    sleep = time.sleep
    manager.start()
    sleep(60)
"""

THREADS = ["on_main_thread()", "on_a_thread_of_Python()", "on_the_runtimes_thread()"]
NOTIFIEE_RAISED = "Python notifiee handler function raised an exception\n"
KEY_FAILED = "Exception occurred building 'key' argument to Python notifiee handler function\n"
CLOCK_RAISED = "PyClockNotifiee::handleNotification's handler raised an exception\n"
TRACEBACK = "Traceback (most recent call last):\n"


class Case(unittest.TestCase):

    def run_script(self, source, status):
        path = os.pathsep.join([os.path.dirname(os.path.abspath(__file__)),
                                os.environ["PYTHONPATH"]])
        return in_child(SCRIPT + source, env={"PYTHONPATH": path}).expect(status)

    def aborts(self, source):
        """What it wrote to standard error before the report of the crash."""
        err = self.run_script(source, -signal.SIGABRT).err
        self.assertIn("fatal signal 6", err)
        return err[:err.index("fatal signal 6")]


class Notifiees(Case):

    def test_a_handler_that_raises_ends_the_process_with_its_traceback(self):
        for thread in THREADS:
            err = self.aborts("""
kept = notifiee(notes, raising)
notes.a = 1
%s
""" % thread)
            self.assertTrue(err.startswith(NOTIFIEE_RAISED + TRACEBACK), err)
            self.assertIn(", in raising\n", err)
            self.assertIn("\nValueError: from the handler\n", err)

    def test_a_handler_that_cannot_be_called_so_raises(self):
        for function, message in [
                ("None", "TypeError: 'NoneType' object is not callable"),
                ("lambda: None", "TypeError: <lambda>() takes no arguments (2 given)"),
                ("5", "TypeError: 'int' object is not callable")]:
            err = self.aborts("""
kept = notifiee(notes, %s)
notes.a = 1
on_main_thread()
""" % function)
            self.assertTrue(err.startswith(NOTIFIEE_RAISED), err)
            self.assertIn(message, err)

    def test_a_key_that_cannot_be_built_ends_the_process(self):
        for thread in THREADS:
            err = self.aborts("""
class Key(object):
    def __repr__(self):
        return "1 +"

kept = notifiee(notes, lambda attr, key: None)
notes.byText[Key()] = 1
%s
""" % thread)
            self.assertTrue(err.startswith(KEY_FAILED), err)
            self.assertIn("SyntaxError: unexpected EOF while parsing\n", err)

    def test_a_key_is_not_built_for_what_the_filter_keeps_away(self):
        self.run_script("""
class Key(object):
    def __repr__(self):
        return "1 +"

seen = Seen()
kept = notifiee(notes, seen, "a")
notes.byText[Key()] = 1
notes.a = 1
on_main_thread()
assert seen == [("a", None)], seen
""", 0)

    def test_nothing_runs_behind_a_handler_that_raised(self):
        outcome = self.run_script("""
def tell(attr, key):
    print "told"

kept = [notifiee(notes, tell), notifiee(notes, raising), notifiee(notes, tell)]
notes.a = 1
try:
    on_main_thread()
finally:
    print "behind"
""", -signal.SIGABRT)
        self.assertEqual(outcome.out, "told\n")

    def test_SystemExit_ends_it_as_it_does_anywhere(self):
        for thread in THREADS:
            outcome = self.run_script("""
kept = notifiee(notes, lambda attr, key: sys.exit(3))
notes.a = 1
%s
""" % thread, 3)
            self.assertTrue(outcome.err.startswith(NOTIFIEE_RAISED), outcome)
            self.assertNotIn("fatal signal", outcome.err)

    def test_a_notifiee_without_a_handler_faults_at_the_first_change_that_passes(self):
        outcome = self.run_script("""
kept = _Kel.newNotifiee(notes, None)
kept.filtered = True
notes.a = 1
on_main_thread()
print "kept away"
kept.filterAttr["a"] = True
notes.a = 2
on_main_thread()
""", -signal.SIGSEGV)
        self.assertEqual(outcome.out, "kept away\n")


class ClockNotifiees(Case):

    def test_a_handler_that_raises_ends_the_process_with_its_traceback(self):
        for thread in THREADS:
            err = self.aborts("kept = timer(raising, clock.now)\n" + thread)
            self.assertTrue(err.startswith(CLOCK_RAISED + TRACEBACK), err)
            self.assertIn(", in raising\n", err)
            self.assertIn("\nValueError: from the handler\n", err)

    def test_the_line_is_out_before_anything_else_may_fail(self):
        outcome = self.run_script("""
import ctypes
libc, buffer = ctypes.CDLL(None), ctypes.create_string_buffer(1 << 16)
libc.setvbuf(ctypes.c_void_p.in_dll(libc, "stderr"), buffer, 0, len(buffer))
timer(raising).handleTime()
""", -signal.SIGABRT)
        self.assertTrue(outcome.err.startswith(CLOCK_RAISED), outcome)

    def test_so_does_one_that_is_called_through_handleTime(self):
        err = self.aborts("timer(raising).handleTime()")
        self.assertTrue(err.startswith(CLOCK_RAISED + TRACEBACK), err)

    def test_SystemExit_ends_it_as_it_does_anywhere(self):
        for thread in THREADS:
            outcome = self.run_script(
                "kept = timer(lambda: sys.exit(3), clock.now)\n" + thread, 3)
            self.assertTrue(outcome.err.startswith(CLOCK_RAISED), outcome)
            self.assertNotIn("fatal signal", outcome.err)

    def test_a_notifiee_without_a_handler_faults_at_its_time(self):
        outcome = self.run_script("""
kept = ClockNotifiee(clock, None)
on_main_thread()
print "not yet"
kept.timeMinProxy = clock.now
on_main_thread()
""", -signal.SIGSEGV)
        self.assertEqual(outcome.out, "not yet\n")
