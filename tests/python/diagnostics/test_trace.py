"""Tracing from Python: what reaches the runtime's trace, what is suppressed, and which locks it takes.

The environment is read once a process, so whatever writes does so in a child.
"""

import os
import re
import shutil
import tempfile
import unittest

import _Kel
import acme
import kel_hand
import odd
from kel_testing import TestCase, in_child

LINE = re.compile(r"\A\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z (\d+) (\d+) (.*)\n\Z", re.DOTALL)

FACILITY = 'facility = _Kel.singleton("Kel::TraceFacility")\n'


def traced(source, trace="", **env):
    """What the script wrote to standard error, line by line, behind time, process and thread."""
    outcome = in_child("import _Kel\n" + FACILITY + source, env=dict(env, KEL_TRACE=trace)).expect()
    return [LINE.match(line).group(3) for line in outcome.err.splitlines(True)
            if not line.startswith("cannot open the trace file")]


class Lines(unittest.TestCase):

    def test_a_line_holds_all_that_was_given(self):
        self.assertEqual(
            traced('assert _Kel.trace_h(facility, "f.py", 12, "g", "a message", 3) is None',
                   trace="python/*"),
            ["python 3 f.py:12 g: a message"])

    def test_with_a_tag_it_holds_that_too(self):
        self.assertEqual(
            traced('assert _Kel.trace_ht(facility, "t", "f.py", 12, "g", "m", 3) is None',
                   trace="python/*"),
            ["python[t] 3 f.py:12 g: m"])

    def test_None_is_a_null_facility(self):
        self.assertEqual(
            traced('_Kel.trace_h(None, "f", 1, "g", "m", 9)\n'
                   '_Kel.trace_ht(None, "t", "f", 2, "g", "n", 9)', trace="default/9"),
            ["default 9 f:1 g: m", "default[t] 9 f:2 g: n"])

    def test_a_message_with_NUL_bytes_arrives_at_full_length(self):
        self.assertEqual(
            traced(r'_Kel.trace_h(None, "f", 1, "g", "a\0b\0", 0)' "\n"
                   r'_Kel.trace_ht(None, "t", "f", 1, "g", "\0\0c", 0)' "\n"
                   '_Kel.trace_h(None, "f", 1, "g", "", 0)\n'
                   r'_Kel.trace_h(None, "f", 1, "g", "x" * 100000 + "\0end", 0)'),
            [r"default 0 f:1 g: a\x00b\x00", r"default[t] 0 f:1 g: \x00\x00c",
             "default 0 f:1 g: ", "default 0 f:1 g: " + "x" * 100000 + r"\x00end"])

    def test_line_breaks_do_not_make_two_lines(self):
        self.assertEqual(traced(r'_Kel.trace_h(None, "f", 1, "g", "a\nb\\", 0)'),
                         [r"default 0 f:1 g: a\nb\\"])

    def test_what_is_suppressed_is_not_written(self):
        self.assertEqual(
            traced("""
for level in range(-2, 12):
    _Kel.trace_h(facility, "f", 1, "g", str(level), level)
    _Kel.trace_ht(facility, "quiet", "f", 1, "g", str(level), level)
""", trace="python/2-3,python/8,quiet/-"),
            ["python 2 f:1 g: 2", "python 3 f:1 g: 3", "python 8 f:1 g: 8"])

    def test_numbers_may_be_negative_and_longs(self):
        self.assertEqual(traced('_Kel.trace_h(None, "f", -1, "g", "m", 0L)'),
                         ["default 0 f:-1 g: m"])


class Destination(unittest.TestCase):

    def test_it_is_the_file_only_where_lines_go_there(self):
        folder = tempfile.mkdtemp()
        try:
            path = os.path.join(folder, "trace")
            for name, destination in [(path, "file"), ("", "standardError"),
                                      (os.path.join(path, "not a folder"), "standardError")]:
                lines = traced('_Kel.trace_h(facility, "f", 1, "g", facility.destination, 0)',
                               trace="", KEL_TRACE_FILE=name)[-1:]
                if name == path:
                    self.assertEqual(lines, [])
                    with open(path) as written:
                        lines = [LINE.match(written.read()).group(3)]
                self.assertEqual(lines, ["python 0 f:1 g: " + destination])
        finally:
            shutil.rmtree(folder)

    def test_the_environment_of_later_does_not_move_it(self):
        self.assertEqual(traced("""
_Kel.trace_h(facility, "f", 1, "g", facility.destination, 0)
import ctypes
ctypes.CDLL(None).setenv("KEL_TRACE_FILE", "/dev/null", 1)
_Kel.trace_h(facility, "f", 1, "g", facility.destination, 0)
"""), ["python 0 f:1 g: standardError"] * 2)


class Suppression(unittest.TestCase):

    def test_of_a_line_follows_the_levels_of_its_facility(self):
        in_child("import _Kel\n" + FACILITY + """
def shown(facility):
    answers = [_Kel.traceLineSuppressed(facility, level) for level in range(-1, 11)]
    assert all(type(answer) is bool for answer in answers)
    return [level for level, answer in zip(range(-1, 11), answers) if not answer]

assert shown(facility) == [0, 1, 7], shown(facility)
assert shown(None) == [0], shown(None)
""", env={"KEL_TRACE": "python/0-1,python/7"}).expect()

    def test_of_a_tag_follows_what_is_listed_for_it(self):
        in_child("import _Kel\n" + FACILITY + """
assert _Kel.traceTagSuppressed(facility, "quiet") is True
assert _Kel.traceTagSuppressed(facility, "loud") is False
assert _Kel.traceTagSuppressed(None, "quiet") is True
assert _Kel.traceTagSuppressed(None, "loud") is False
""", env={"KEL_TRACE": "quiet/-"}).expect()

    def test_both_keep_the_GIL_and_take_no_lock(self):
        in_child("import _Kel, kel_hand, sys, threading\n" + FACILITY + """
kel_hand.breakLock()
_Kel.traceLineSuppressed(facility, 3)
_Kel.traceTagSuppressed(facility, "t")
kel_hand.mendLock()
""").expect()


class Arguments(TestCase):

    def test_a_facility_is_a_TraceFacility_or_None(self):
        for wrong in 5, "python", odd.Notes(), acme.Size(1), _Kel.singleton("Kel::Clock"):
            for function, rest in [(_Kel.trace_h, ("f", 1, "g", "m", 9)),
                                   (_Kel.trace_ht, ("t", "f", 1, "g", "m", 9)),
                                   (_Kel.traceLineSuppressed, (9,)),
                                   (_Kel.traceTagSuppressed, ("t",))]:
                self.assertRefused(TypeError, "expected a Kel::TraceFacility or None",
                                   function, wrong, *rest)

    def test_wrong_counts_name_the_function(self):
        for function, text in [
                (_Kel.trace_h, "trace_h() takes exactly 6 arguments (0 given)"),
                (_Kel.trace_ht, "trace_ht() takes exactly 7 arguments (0 given)"),
                (_Kel.traceLineSuppressed,
                 "traceLineSuppressed() takes exactly 2 arguments (0 given)"),
                (_Kel.traceTagSuppressed,
                 "traceTagSuppressed() takes exactly 2 arguments (0 given)"),
                (_Kel.escapedTraceString,
                 "escapedTraceString() takes exactly 1 argument (0 given)")]:
            self.assertRefused(TypeError, text, function)

    def test_texts_and_numbers_are_what_they_are_called(self):
        right = [None, "f", 1, "g", "m", 9]
        for at, wrong in [(1, 5), (1, None), (2, "1"), (3, None), (4, 5), (5, "9")]:
            arguments = right[:at] + [wrong] + right[at + 1:]
            with self.assertRaises(TypeError):
                _Kel.trace_h(*arguments)
        # Only the message may hold NUL bytes.
        with self.assertRaises(TypeError):
            _Kel.trace_h(None, "f\0", 1, "g", "m", 9)

    def test_the_functions_say_what_they_do(self):
        self.assertEqual(
            [getattr(_Kel, name).__doc__ for name in (
                "trace_h", "trace_ht", "escapedTraceString", "traceLineSuppressed",
                "traceTagSuppressed")],
            ["Trace a message.", "Trace a message with a tag.",
             "Escape a string for tracing or logging.",
             "Determine if a tracing level is currently suppressed.",
             "Determine if a tracing tag is currently suppressed."])


class Escaping(TestCase):

    def test_what_is_not_printable_is_escaped(self):
        self.assertEqual(_Kel.escapedTraceString("plain text"), "plain text")
        self.assertEqual(_Kel.escapedTraceString(""), "")
        self.assertEqual(_Kel.escapedTraceString("a\nb\rc\td\\"), r"a\nb\rc\td" "\\\\")
        self.assertEqual(_Kel.escapedTraceString("\0a\0\x7f\xff\x1f"), r"\x00a\x00\x7f\xff\x1f")

    def test_unicode_is_taken_in_the_default_encoding(self):
        self.assertEqual(_Kel.escapedTraceString(u"abc"), "abc")
        with self.assertRaises(UnicodeEncodeError):
            _Kel.escapedTraceString(u"\u20ac")

    def test_an_owner_of_the_activity_lock_keeps_it(self):
        _Kel.acquireActivityLock()
        try:
            self.assertEqual(_Kel.escapedTraceString("a"), "a")
            self.assertEqual(_Kel.activityLockOwner(), kel_hand.thread())
        finally:
            _Kel.releaseActivityLock()


class Locks(unittest.TestCase):

    # `hold` keeps the activity lock on another thread until `release` is set; `trace` traces once
    # with either function on a thread of its own.
    TOOLS = """
import threading
import _Kel, kel_hand
from kel_testing import wait_until

held, release = threading.Event(), threading.Event()

def hold():
    _Kel.acquireActivityLock()
    held.set()
    release.wait()
    _Kel.releaseActivityLock()

def start(function):
    thread = threading.Thread(target=function)
    thread.start()
    return thread

calls = [lambda: _Kel.trace_h(None, "f", 1, "g", "m", 9),
         lambda: _Kel.trace_ht(None, "t", "f", 1, "g", "m", 9)]
"""

    def run_script(self, source):
        return in_child(self.TOOLS + source).expect()

    def test_with_plain_pointers_it_waits_for_the_activity_lock_without_the_GIL(self):
        self.run_script("""
for call in calls:
    done = threading.Event()

    def trace():
        call()
        done.set()

    _Kel.acquireActivityLock()
    thread = start(trace)
    # This thread runs Python meanwhile, so the other one has let go of the GIL.
    wait_until(kel_hand.isLockContended)
    assert not done.is_set()
    _Kel.releaseActivityLock()
    thread.join()
    assert done.is_set()
    assert _Kel.activityLockOwner() == 0
""")

    def test_with_atomic_pointers_it_takes_no_lock(self):
        self.run_script("""
_Kel.enableThreadSafePointers()
holder = start(hold)
held.wait()
owner = _Kel.activityLockOwner()
for call in calls:
    call()
    assert _Kel.activityLockOwner() == owner
kel_hand.breakLock()
for call in calls:
    call()
kel_hand.mendLock()
release.set()
holder.join()
""")

    def test_an_owner_of_the_lock_traces_and_keeps_it(self):
        self.run_script("""
for _ in range(2):
    assert _Kel.acquireActivityLock()
    for call in calls:
        call()
        assert _Kel.activityLockOwner() == kel_hand.thread()
    _Kel.releaseActivityLock()
    _Kel.enableThreadSafePointers()
""")

    def test_with_atomic_pointers_it_still_runs_without_the_GIL(self):
        # A line that goes into a full pipe waits for the reader, who needs the GIL to read.
        self.run_script("""
import os
_Kel.enableThreadSafePointers()
reading, writing = os.pipe()
os.dup2(writing, 2)
text = "x" * (1 << 20)
thread = start(lambda: _Kel.trace_h(None, "f", 1, "g", text, 0))
got = 0
while got < len(text):
    got += len(os.read(reading, 1 << 16))
thread.join()
""")

    def test_a_lock_that_cannot_be_released_is_a_Python_exception_with_the_GIL_held(self):
        # It breaks while the line waits for a reader.
        self.run_script("""
import errno, os
reading, writing = os.pipe()
os.dup2(writing, 2)
text, failures = "x" * (1 << 20), []

def trace(function, *tag):
    try:
        function(None, *(tag + ("f", 1, "g", text, 0)))
    except OSError as error:
        failures.append((error.errno, error.filename))
    kel_hand.mendLock()
    _Kel.releaseActivityLock()

for args in (_Kel.trace_h,), (_Kel.trace_ht, "t"):
    thread = threading.Thread(target=trace, args=args)
    thread.start()
    read = os.read(reading, 1)
    kel_hand.breakLock()
    while not read.endswith("\\n"):
        read = os.read(reading, 1 << 16)
    thread.join()
assert failures == [(errno.EINVAL, "cannot unlock")] * 2, failures
assert _Kel.activityLockOwner() == 0
""")

    @unittest.skipIf("LD_PRELOAD" in os.environ, "a sanitizer ends the process without memory")
    def test_a_line_that_finds_no_memory_is_a_Python_exception_without_the_lock(self):
        self.run_script("""
import resource
size = 50 << 20
text = "\\0" * size
for call in [lambda: _Kel.trace_h(None, "f", 1, "g", text, 0),
             lambda: _Kel.trace_ht(None, "t", "f", 1, "g", text, 0)]:
    usual = resource.getrlimit(resource.RLIMIT_AS)
    used = int(open("/proc/self/statm").read().split()[0]) * resource.getpagesize()
    resource.setrlimit(resource.RLIMIT_AS, (used + 3 * size, usual[1]))
    try:
        call()
    except SystemError as error:
        assert str(error) == "std::bad_alloc", error
    else:
        raise AssertionError("nothing was raised")
    finally:
        resource.setrlimit(resource.RLIMIT_AS, usual)
    assert _Kel.activityLockOwner() == 0
""")

    def test_a_lock_that_cannot_be_taken_is_a_Python_exception_with_the_GIL_held(self):
        self.run_script("""
import errno
for call in calls:
    kel_hand.breakLock()
    try:
        call()
    except OSError as error:
        assert (error.errno, error.filename) == (errno.EINVAL, "cannot lock"), error
    else:
        raise AssertionError("nothing was raised")
    kel_hand.mendLock()
    start(lambda: None).join()
    call()
assert _Kel.activityLockOwner() == 0
""")
