"""The title of the process, and the runtime's time as the kernel's."""

import ctypes
import unittest

import _Kel
from kel_testing import TestCase, in_child
from kel_testing.case import refusal


class Title(unittest.TestCase):

    SHOWN = """
import os, sys
import _Kel

def shown():
    # As ps has it: up to the NUL bytes that fill the rest.
    return open("/proc/self/cmdline").read().rstrip("\\0")
"""

    def run_script(self, source, args=(), env=None):
        return in_child(self.SHOWN + source, args=args, env=env).expect()

    def test_there_is_none_at_first(self):
        self.run_script("assert _Kel.proctitle() is None")

    def test_it_is_both_texts_and_ps_shows_it(self):
        self.run_script("""
assert _Kel.setproctitle("agent", "one") is None
assert _Kel.proctitle() == "agent one"
assert shown() == "agent one", shown()
_Kel.setproctitle("b", "")
assert _Kel.proctitle() == "b"
assert shown() == "b", shown()
""")

    def test_a_longer_one_goes_over_the_environment_which_stays_readable(self):
        self.run_script("""
title = "x" * 200
_Kel.setproctitle(title, "y")
assert shown() == title + " y", shown()
assert os.environ["KEL_TEST"] == "kept"
os.environ["KEL_OTHER"] = "set"
assert os.popen("echo $KEL_TEST $KEL_OTHER").read() == "kept set\\n"
assert sys.argv[1:] == ["argument"]
""", args=["argument"], env={"KEL_TEST": "kept", "KEL_ROOM": "x" * 300})

    def test_the_whole_title_is_told_also_where_ps_has_no_room(self):
        self.run_script("""
title = "x" * 1000000
_Kel.setproctitle(title, "y")
assert _Kel.proctitle() == title + " y"
assert shown() and title.startswith(shown())
""")

    def test_a_forked_child_has_the_title_and_can_change_its_own(self):
        self.run_script("""
_Kel.setproctitle("parent", "")
child = os.fork()
if child == 0:
    fine = _Kel.proctitle() == "parent"
    _Kel.setproctitle("child", "")
    os._exit(not (fine and shown() == "child"))
assert os.waitpid(child, 0)[1] == 0
assert shown() == "parent"
""")


class Locks(unittest.TestCase):

    CALLS = """
import threading
import _Kel, kel_hand
from kel_testing import wait_until

calls = [lambda: _Kel.setproctitle("a", "b"), _Kel.proctitle,
         lambda: _Kel.kelNowToLinuxMonoTime(1.0), lambda: _Kel.escapedTraceString("a")]
"""

    def test_all_wait_for_the_activity_lock_without_the_GIL(self):
        in_child(self.CALLS + """
for call in calls:
    done = threading.Event()

    def work():
        call()
        done.set()

    _Kel.acquireActivityLock()
    thread = threading.Thread(target=work)
    thread.start()
    wait_until(kel_hand.isLockContended)
    assert not done.is_set()
    _Kel.releaseActivityLock()
    thread.join()
    assert done.is_set() and _Kel.activityLockOwner() == 0
""").expect()

    def test_a_lock_that_cannot_be_taken_is_a_Python_exception(self):
        in_child(self.CALLS + """
for call in calls:
    kel_hand.breakLock()
    try:
        call()
    except OSError as error:
        assert error.filename == "cannot lock", error
    else:
        raise AssertionError("nothing was raised")
    kel_hand.mendLock()
""").expect()

    def test_an_owner_of_the_lock_keeps_it(self):
        in_child(self.CALLS + """
_Kel.acquireActivityLock()
for call in calls:
    call()
    assert _Kel.activityLockOwner() == kel_hand.thread()
_Kel.releaseActivityLock()
""").expect()


class Arguments(TestCase):

    def test_wrong_ones_are_refused_by_the_parser(self):
        for function, arguments, text in [
                (_Kel.setproctitle, (), "setproctitle() takes exactly 2 arguments (0 given)"),
                (_Kel.setproctitle, ("a",), "setproctitle() takes exactly 2 arguments (1 given)"),
                (_Kel.setproctitle, ("a", 5),
                 "setproctitle() argument 2 must be string, not int"),
                (_Kel.setproctitle, ("a\0", "b"),
                 "setproctitle() argument 1 must be string without null bytes, not str"),
                (_Kel.proctitle, (1,), "proctitle() takes no arguments (1 given)"),
                (_Kel.kelNowToLinuxMonoTime, (),
                 "kelNowToLinuxMonoTime() takes exactly 1 argument (0 given)"),
                (_Kel.kelNowToLinuxMonoTime, ("x",), "a float is required")]:
            error = refusal(function, *arguments)
            self.assertEqual((type(error), str(error)), (TypeError, text))

    def test_the_functions_say_what_they_do(self):
        self.assertEqual(_Kel.setproctitle.__doc__, "Set the process title.")
        self.assertEqual(_Kel.proctitle.__doc__, "Return the process title.")
        self.assertEqual(
            _Kel.kelNowToLinuxMonoTime.__doc__,
            "Convert Kel.now() value to Linux monotonic time without SSO time delta.")


class TimeSpec(ctypes.Structure):
    _fields_ = [("seconds", ctypes.c_long), ("nanoseconds", ctypes.c_long)]


def kernel_time():
    """CLOCK_MONOTONIC in seconds."""
    monotonic, time = 1, TimeSpec()
    assert ctypes.CDLL(None).clock_gettime(monotonic, ctypes.byref(time)) == 0
    return time.seconds + time.nanoseconds * 1e-9


class Time(TestCase):

    def test_the_runtimes_time_is_the_kernels_monotonic_time(self):
        clock = _Kel.singleton("Kel::Clock")
        before = kernel_time()
        now = _Kel.kelNowToLinuxMonoTime(clock.now)
        self.assertIs(type(now), float)
        self.assertLessEqual(before, now)
        self.assertLessEqual(now, kernel_time())

    def test_any_number_is_converted(self):
        for number in 0, 0.0, 1.5, -3.25, 7, 7L, True:
            result = _Kel.kelNowToLinuxMonoTime(number)
            self.assertEqual((type(result), result), (float, float(number)))
