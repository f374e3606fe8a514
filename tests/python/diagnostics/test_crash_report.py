"""The Python stack in the report of a crash. Each crash has a process of its own."""

import re
import signal
import unittest

from kel_testing import in_child

NONE = "\nNo Python traceback available\n"
FRAMES = "\nPython traceback (most recent call FIRST):\n"
EXCEPTION = "Current Python exception (most recent call LAST):\n"

TOOLS = """
import os, sys, threading
import _Kel, kel_crash
from kel_crash import report
"""


def script(source):
    return TOOLS + source


class Crash(unittest.TestCase):

    def crash(self, source, number=signal.SIGSEGV):
        return in_child(script(source)).expect(-number).err

    def python_part(self, err):
        """What stands behind the native stack."""
        lines = err.splitlines(True)
        last = max(n for n, line in enumerate(lines) if re.search(r"\[0x[0-9a-f]+\]$", line))
        return "".join(lines[last + 1:])

    def test_a_fault_in_the_main_thread_shows_its_frames_innermost_first(self):
        err = self.crash("""
def inner():
    kel_crash.fault()

def outer():
    inner()

outer()
""")
        self.assertIn("fatal signal 11 (SIGSEGV)", err)
        part = self.python_part(err)
        self.assertRegexpMatches(part, "^" + re.escape(FRAMES) +
                                 r'  File "<string>", line 7, in inner\n'
                                 r'  File "<string>", line 10, in outer\n'
                                 r'  File "<string>", line 12, in <module>\n$')

    def test_an_assertion_shows_them_too(self):
        err = self.crash("""
import kel_marshal
def inner():
    kel_marshal.str(5)
inner()
""", signal.SIGABRT)
        self.assertIn("assertion failed: buf (", err)
        self.assertRegexpMatches(self.python_part(err), re.escape(FRAMES) +
                                 r'  File "<string>", line \d+, in inner\n'
                                 r'  File "<string>", line \d+, in <module>\n$')

    def test_a_crash_of_a_thread_that_never_ran_Python_says_just_so(self):
        err = self.crash("kel_crash.faultOnNativeThread()\n")
        self.assertEqual(self.python_part(err), NONE)

    def test_a_crash_of_a_thread_of_Python_shows_the_frames_of_that_thread(self):
        err = self.crash("""
def in_thread():
    kel_crash.fault()

thread = threading.Thread(target=in_thread)
thread.start()
thread.join()
""")
        part = self.python_part(err)
        self.assertTrue(part.startswith(FRAMES + '  File "<string>", line 7, in in_thread\n'), part)
        self.assertIn("threading.py", part)
        self.assertNotIn("<module>", part)

    def test_a_crash_without_the_GIL_shows_the_frames_while_another_thread_runs(self):
        err = self.crash("""
def churn():
    while True:
        pass

thread = threading.Thread(target=churn)
thread.daemon = True
thread.start()

def inner():
    kel_crash.faultWithoutGil()
inner()
""")
        self.assertTrue(self.python_part(err).startswith(
            FRAMES + '  File "<string>", line 15, in inner\n'), err)

    def test_a_crash_in_an_exception_handler_shows_the_exception_and_then_the_frames(self):
        err = self.crash("""
def thrower():
    raise ValueError("what went wrong")

def handler():
    try:
        thrower()
    except ValueError:
        kel_crash.fault()

handler()
""")
        self.assertEqual(
            self.python_part(err),
            EXCEPTION +
            '  File "<string>", line 11, in handler\n'
            '  File "<string>", line 7, in thrower\n'
            'exceptions.ValueError: what went wrong\n' +
            FRAMES +
            '  File "<string>", line 13, in handler\n'
            '  File "<string>", line 15, in <module>\n')

    def check_frames_behind_mute_exception(self, body):
        err = self.crash("""
class Mute(Exception):
    def __str__(self):
        %s

def handler():
    try:
        raise Mute()
    except Mute:
        kel_crash.fault()

handler()
""" % body)
        self.assertEqual(
            self.python_part(err).split("Mute: ")[1],
            "(failed to get exception error message)\n" + FRAMES +
            '  File "<string>", line 8, in __str__\n'
            '  File "<string>", line 14, in handler\n'
            '  File "<string>", line 16, in <module>\n')

    def test_the_text_of_an_exception_may_crash_too(self):
        self.check_frames_behind_mute_exception("kel_crash.fault()")

    def test_the_text_of_an_exception_may_never_come(self):
        self.check_frames_behind_mute_exception("while True: pass")

    def test_a_broken_traceback_does_not_keep_the_frames_back(self):
        err = self.crash("""
import ctypes

def handler():
    try:
        raise ValueError("what went wrong")
    except ValueError:
        next_field = id(sys.exc_info()[2]) + object.__basicsize__
        ctypes.c_void_p.from_address(next_field).value = 8
        kel_crash.fault()

handler()
""")
        self.assertEqual(
            self.python_part(err),
            EXCEPTION +
            '  File "<string>", line 10, in handler\n'
            '(failed to get exception error message)\n' +
            FRAMES +
            '  File "<string>", line 14, in handler\n'
            '  File "<string>", line 16, in <module>\n')

    def test_without_the_GIL_Python_makes_no_text_of_an_exception(self):
        mute = "(failed to get exception error message)"
        for source, text in (
                ("Told = ValueError", "exceptions.ValueError: told"),
                ("Told = KeyError", "exceptions.KeyError: " + mute),
                ("class Told(ValueError): pass", "Told: told"),
                ("class Told(ValueError): __str__ = lambda self: 'told'", "Told: " + mute),
                ("Told = lambda text: ValueError()", "exceptions.ValueError: " + mute),
                ("Told = lambda text: ValueError(5)", "exceptions.ValueError: " + mute)):
            err = self.crash(source + """
try:
    raise Told("told")
except Exception:
    kel_crash.faultWithoutGil()
""")
            self.assertIn("\n" + text + "\n" + FRAMES, err)

    def test_a_crash_in_a_runtime_call_shows_the_Python_caller(self):
        err = self.crash("""
import odd
def caller():
    odd.Probe().thread
    kel_crash.faultUnderLocks()
caller()
""")
        self.assertTrue(self.python_part(err).startswith(
            FRAMES + '  File "<string>", line 9, in caller\n'), err)


class Report(unittest.TestCase):
    """The text alone, of a process that lives on."""

    def report(self, source):
        return in_child(script(source)).expect().out

    def test_a_handled_exception_that_is_over_is_not_shown(self):
        out = self.report("""
def over():
    try:
        raise ValueError("over")
    except ValueError:
        pass
over()
sys.stdout.write(report())
""")
        self.assertTrue(out.startswith(FRAMES), out)
        self.assertNotIn("over", out)

    def test_the_class_of_an_old_style_exception_is_unknown(self):
        out = self.report("""
class Old:
    def __str__(self):
        return "old text"
try:
    raise Old()
except Old:
    text = report()
sys.stdout.write(text)
""")
        self.assertTrue(out.startswith(EXCEPTION), out)
        self.assertIn("\n<unknown>: old text\n", out)

    def test_a_class_of_Python_is_told_by_its_name(self):
        out = self.report("""
class Own(Exception):
    pass
try:
    raise Own("own text")
except Own:
    text = report()
sys.stdout.write(text)
""")
        self.assertIn("\nOwn: own text\n", out)

    def test_an_exception_that_has_no_text_is_shown_all_the_same(self):
        for body in ('raise KeyError("no")', "return 5", 'return u"\\u20ac"'):
            out = self.report("""
class Mute(Exception):
    def __str__(self):
        %s
try:
    raise Mute()
except Mute:
    text = report()
sys.stdout.write(text)
""" % body)
            self.assertIn("\nMute: (failed to get exception error message)\n" + FRAMES, out)

    def test_an_empty_text_is_shown_empty(self):
        out = self.report("""
try:
    raise ValueError()
except ValueError:
    text = report()
sys.stdout.write(text)
""")
        self.assertIn("\nexceptions.ValueError: \n" + FRAMES, out)

    def test_long_texts_are_cut_to_the_buffer_and_nothing_is_written_past_it(self):
        out = self.report("""
try:
    raise ValueError("x" * 100000)
except ValueError:
    text = report()
sys.stdout.write(text)
""")
        self.assertIn("exceptions.ValueError: " + "x" * 1999 + "\n", out)
        self.assertNotIn("x" * 2000, out)

    def test_names_of_the_exceptions_frames_are_cut_to_500_bytes_and_others_are_not(self):
        out = self.report("""
source = '''
def %s():
    try:
        raise ValueError("v")
    except ValueError:
        return report()
text = %s()
''' % ("f" * 700, "f" * 700)
exec compile(source, "n" * 800, "exec")
sys.stdout.write(text)
""")
        exception, frames = out.split(FRAMES)
        self.assertIn('  File "%s", line 4, in %s\n' % ("n" * 500, "f" * 500), exception)
        self.assertIn('  File "%s", line 6, in %s\n' % ("n" * 800, "f" * 700), frames)

    def test_a_line_of_a_frame_beyond_the_buffer_is_cut(self):
        out = self.report("""
source = '''
text = report()
'''
exec compile(source, "n" * 5000, "exec")
sys.stdout.write(text)
""")
        self.assertIn('  File "' + "n" * (1999 - len('  File "')), out)
        self.assertNotIn("n" * (2000 - len('  File "')), out)

    def test_percent_signs_are_texts(self):
        out = self.report("""
try:
    raise ValueError("%s%n%d")
except ValueError:
    text = report()
sys.stdout.write(text)
""")
        self.assertIn("exceptions.ValueError: %s%n%d\n", out)

    def test_a_traceback_that_is_none_is_told(self):
        out = self.report("""
def handler():
    try:
        raise ValueError("v")
    except ValueError:
        kel_crash.setTraceback(5)
        return report()
text = handler()
sys.stdout.write(text)
""")
        self.assertTrue(out.startswith(
            EXCEPTION + "Internal error: PyThreadState contains an invalid traceback\n"
            "exceptions.ValueError: v\n" + FRAMES), out)

    def test_a_traceback_without_a_frame_ends_with_the_line_that_there_is_none(self):
        out = self.report("""
try:
    raise ValueError("v")
except ValueError:
    text = kel_crash.reportWithoutFrame()
sys.stdout.write(text)
""")
        self.assertEqual(
            out, EXCEPTION + '  File "<string>", line 7, in <module>\n'
            "exceptions.ValueError: v\n" + NONE)

    def test_names_that_are_no_str_are_unknown(self):
        out = self.report("""
def strange():
    try:
        raise ValueError("v")
    except ValueError:
        kel_crash.forgetNames(strange.func_code)
        return report()
text = strange()
sys.stdout.write(text)
sys.stdout.flush()
os._exit(0)
""")
        self.assertEqual(out.count('  File "<unknown>", line'), 2, out)
        self.assertEqual(out.count("in <unknown>\n"), 2, out)

    def test_a_descriptor_that_takes_nothing_is_no_harm(self):
        self.report("""
kel_crash.printBacktrace(-1)
kel_crash.printBacktrace(1000)
""")

    def test_a_thread_without_Python_reports_while_another_has_the_GIL(self):
        out = self.report("""
sys.stdout.write(kel_crash.reportOfNativeThread())
""")
        self.assertEqual(out, NONE)
