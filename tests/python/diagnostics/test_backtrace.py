"""_Kel.Backtrace, the view of a native stack."""

import gc
import sys

import _Kel
import kel_failures
import odd
from kel_testing import TestCase, refusal


class Backtrace(TestCase):

    def test_its_repr_tells_the_number_of_frames(self):
        for frames in 0, 1, 12, 64:
            self.assertEqual(repr(kel_failures.backtrace(frames)),
                             "<_Kel.Backtrace with %d frames>" % frames)

    def test_frames_is_a_new_list_of_a_line_each(self):
        backtrace = kel_failures.backtrace(12)
        frames = backtrace.frames()
        self.assertIs(type(frames), list)
        self.assertEqual(len(frames), 12)
        for line in frames:
            self.assertIs(type(line), str)
            self.assertRegexpMatches(line, r"kel_failures\.so\(.*\) \[0x[0-9a-f]+\]$")
        self.assertEqual(backtrace.frames(), frames)
        self.assertIsNot(backtrace.frames(), frames)

    def test_an_empty_one_has_an_empty_list(self):
        self.assertEqual(kel_failures.backtrace(0).frames(), [])

    def test_that_of_a_null_pointer_is_None(self):
        self.assertIs(kel_failures.backtrace(-1), None)

    def test_frames_takes_no_argument(self):
        self.assertRefused(TypeError, "frames() takes no arguments (1 given)",
                           kel_failures.backtrace(1).frames, 1)

    def test_its_method_says_what_it_does(self):
        self.assertEqual(_Kel.Backtrace.frames.__doc__, "return stack frames")
        self.assertEqual(_Kel.Backtrace.__doc__, "Wraps a Kel::Backtrace")
        own = set(_Kel.Backtrace.__dict__) - set(["__doc__", "__repr__"])
        self.assertEqual(own, set(["frames"]))

    def test_it_cannot_be_made_or_changed_in_Python(self):
        self.assertRefused(TypeError, "cannot create '_Kel.Backtrace' instances", _Kel.Backtrace)
        with self.assertRaises(AttributeError):
            kel_failures.backtrace(1).note = 1

    def test_that_of_an_exception_shows_who_threw_it(self):
        backtrace = refusal(odd.Faults().failTraced, "x").backtrace
        frames = backtrace.frames()
        self.assertEqual(repr(backtrace), "<_Kel.Backtrace with %d frames>" % len(frames))
        # A sanitizer may put frames of its own on top.
        self.assertTrue(any("failTraced" in line for line in frames[:3]), frames)

    def test_it_lives_without_the_exception_and_goes_with_its_last_reference(self):
        backtrace = refusal(odd.Faults().failTraced, "x").backtrace
        gc.collect()
        frames = backtrace.frames()
        self.assertEqual(backtrace.frames(), frames)
        for _ in range(2000):
            kel_failures.backtrace(64).frames()
        before = sys.getrefcount(_Kel.Backtrace)
        kept = [kel_failures.backtrace(3) for _ in range(10)]
        del kept
        self.assertEqual(sys.getrefcount(_Kel.Backtrace), before)
