"""What each failure of the runtime is in Python."""

import os
import sys
import traceback
import unittest

import _Kel
import acme
import odd
import kel_failures
from kel_testing import TestCase, in_child, refusal

TRANSLATION = [
    ("Kel::NoTypeNodeException", TypeError),
    ("Kel::TypeException", TypeError),
    ("Kel::IllegalNameException", NameError),
    ("Kel::NameInUseException", NameError),
    ("Kel::ConstException", AttributeError),
    ("Kel::NondeletableAttrException", AttributeError),
    ("Kel::NoImplementationException", NotImplementedError),
    ("Kel::RpcException", RuntimeError),
    ("Kel::RpcConnectionException", RuntimeError),
    ("Kel::RangeException", IndexError),
    ("Kel::MemoryException", MemoryError),
    ("Kel::InternalException", SystemError),
    ("Kel::OpNotSupportedException", NotImplementedError),
    ("Kel::Exception", Exception),
]


class RuntimeExceptions(TestCase):

    def test_each_class_has_its_class_in_Python_and_its_name_in_the_text(self):
        faults = odd.Faults()
        for name, cls in TRANSLATION:
            error = self.assertRefused(
                cls, 'Odd::Faults.fail: %s("told so")' % name, faults.fail, name, "told so")
            self.assertEqual(error.args, (str(error),))
            self.assertFalse(hasattr(error, "backtrace"), name)

    def test_the_empty_prefix_leaves_class_and_message(self):
        self.assertRefused(IndexError, 'Kel::RangeException("x")',
                           kel_failures.fail, "Kel::RangeException", "x", "")

    def test_a_prefix_names_the_stage(self):
        self.assertRefused(IndexError, 'mutator: Kel::RangeException("x")',
                           kel_failures.fail, "Kel::RangeException", "x", "mutator: ")

    def test_the_form_of_an_attribute_names_type_and_attribute(self):
        attr = acme.Item.kelType.attr("size")
        self.assertRefused(IndexError, 'Acme::Item.size: Kel::RangeException("x")',
                           kel_failures.fail, "Kel::RangeException", "x", "", attr)
        self.assertRefused(IndexError, 'Acme::Item.size: index: Kel::RangeException("x")',
                           kel_failures.fail, "Kel::RangeException", "x", "index: ", attr)

    def test_the_form_of_a_type_names_it(self):
        self.assertRefused(
            IndexError, 'Acme::Item: resolution: Kel::RangeException("x")',
            kel_failures.fail, "Kel::RangeException", "x", "resolution: ", acme.Item.kelType)

    def test_messages_are_no_formats(self):
        self.assertRefused(IndexError, '%d%s%n Kel::RangeException("%s%n")',
                           kel_failures.fail, "Kel::RangeException", "%s%n", "%d%s%n ")

    def test_an_empty_and_a_long_message_stand_whole(self):
        for text in "", "x" * 5000:
            self.assertRefused(IndexError, 'Kel::RangeException("%s")' % text,
                               kel_failures.fail, "Kel::RangeException", text, "")

    def test_a_derived_class_is_told_by_its_own_name(self):
        self.assertRefused(IndexError, 'KelFailures::DerivedRange("x")',
                           kel_failures.fail, "derived", "x", "")

    def test_a_class_beside_the_table_is_an_Exception(self):
        self.assertRefused(Exception, 'KelFailures::NewKind("x")',
                           kel_failures.fail, "new kind", "x", "")

    def test_a_failure_is_translated_in_a_frame_without_the_GIL(self):
        self.assertRefused(IndexError, 'Kel::RangeException("x")',
                           kel_failures.failWithoutGil, "Kel::RangeException", "x")


class SystemErrors(TestCase):

    def test_it_holds_the_number_the_systems_text_and_the_text_as_file_name(self):
        error = refusal(kel_failures.fail, "errno", "/no/such/path", "")
        self.assertIs(type(error), OSError)
        self.assertEqual((error.errno, error.strerror, error.filename),
                         (2, os.strerror(2), "/no/such/path"))

    def test_it_has_no_prefix(self):
        error = refusal(kel_failures.fail, "errno", "path", "mutator: ", acme.Item.kelType)
        self.assertEqual(str(error), "[Errno 2] %s: 'path'" % os.strerror(2))

    def test_any_number_is_told(self):
        faults = odd.Faults()
        for number in 0, 1, 13, 4096, -1, 2 ** 31 - 1:
            error = refusal(faults.failErrno, number, "text")
            self.assertIs(type(error), OSError)
            self.assertEqual((error.errno, error.strerror, error.filename),
                             (number, os.strerror(number), "text"))
        error = refusal(faults.fail, "Kel::ErrnoException", "text")
        self.assertEqual(error.errno, 5)

    def test_an_empty_text_is_an_empty_file_name(self):
        self.assertEqual(refusal(odd.Faults().failErrno, 5, "").filename, "")

    def test_a_backtrace_rides_on_it_too(self):
        error = refusal(kel_failures.fail, "errno traced", "path", "")
        self.assertIs(type(error.backtrace), _Kel.Backtrace)
        self.assertEqual(error.errno, 2)
        self.assertFalse(hasattr(refusal(kel_failures.fail, "errno", "path", ""), "backtrace"))


class OtherExceptions(TestCase):

    def test_a_standard_one_is_a_SystemError_of_its_text_alone(self):
        self.assertRefused(SystemError, "index: bare text",
                           kel_failures.fail, "logic_error", "bare text", "index: ")
        self.assertRefused(SystemError, "Odd::Faults.fail: told so",
                           odd.Faults().fail, "std::runtime_error", "told so")

    def test_bad_alloc_is_a_SystemError_and_no_MemoryError(self):
        self.assertRefused(SystemError, "std::bad_alloc", kel_failures.fail, "bad_alloc", "", "")
        self.assertRefused(SystemError, "Odd::Faults.fail: std::bad_alloc",
                           odd.Faults().fail, "std::bad_alloc", "")

    def test_any_other_thrown_thing_is_told_by_its_type(self):
        for kind, name in (("int", "int"), ("text", "char const*"),
                           ("plain", "KelFailures::Plain"),
                           ("hidden", "KelFailures::(anonymous namespace)::Hidden")):
            self.assertRefused(
                Exception, "membership check: unknown C++ exception of type '%s'" % name,
                kel_failures.fail, kind, "", "membership check: ")
        self.assertRefused(
            Exception, "Odd::Faults.fail: unknown C++ exception of type 'int'",
            odd.Faults().fail, "int", "")

    def test_they_carry_no_backtrace(self):
        for kind in "logic_error", "int":
            self.assertFalse(hasattr(refusal(kel_failures.fail, kind, "", ""), "backtrace"))


class Backtraces(TestCase):

    def test_an_exception_with_a_native_stack_has_it_as_its_attribute(self):
        error = refusal(odd.Faults().failTraced, "x")
        self.assertEqual((type(error), str(error)),
                         (IndexError, 'Odd::Faults.failTraced: Kel::RangeException("x")'))
        self.assertIs(type(error.backtrace), _Kel.Backtrace)
        self.assertIn("failTraced", "\n".join(error.backtrace.frames()))

    def test_one_without_has_no_such_attribute(self):
        error = refusal(odd.Faults().fail, "Kel::RangeException", "")
        self.assertFalse(hasattr(error, "backtrace"))

    def test_the_instance_is_whole_before_it_is_raised(self):
        class Collected(Exception):
            def __setattr__(self, name, value):
                seen.append((name, type(value), self.args))
                super(Collected, self).__setattr__(name, value)

        seen = []
        error = refusal(kel_failures.setBacktrace, Collected, "x", "p: ", None, 3)
        self.assertIs(type(error), Collected)
        self.assertEqual(seen, [("backtrace", _Kel.Backtrace, ('p: Kel::RangeException("x")',))])
        self.assertEqual(repr(error.backtrace), "<_Kel.Backtrace with 3 frames>")

    def test_given_arguments_make_the_instance(self):
        error = refusal(kel_failures.setBacktrace, IOError, "x", "p: ", (4, "a", "b"), 0)
        self.assertEqual((error.errno, error.strerror, error.filename), (4, "a", "b"))
        self.assertEqual(error.backtrace.frames(), [])

    def test_an_instance_that_refuses_the_attribute_is_raised_all_the_same(self):
        class Sealed(Exception):
            def __setattr__(self, name, value):
                raise KeyError(name)

        error = refusal(kel_failures.setBacktrace, Sealed, "x", "", None, 3)
        self.assertEqual((type(error), str(error)), (Sealed, 'Kel::RangeException("x")'))

    def test_a_class_that_takes_no_text_is_raised_without_a_value(self):
        class Bare(Exception):
            def __init__(self):
                super(Bare, self).__init__("made by Python")

        error = refusal(kel_failures.setBacktrace, Bare, "x", "", None, -1)
        self.assertEqual((type(error), str(error)), (Bare, "made by Python"))
        error = refusal(kel_failures.setBacktrace, Bare, "x", "", (1, 2, 3), -1)
        self.assertEqual((type(error), str(error)), (Bare, "made by Python"))

    def test_failures_leave_no_reference_behind(self):
        class Kept(Exception):
            pass

        self.assertIs(type(refusal(kel_failures.setBacktrace, Kept, "x", "", None, 3)), Kept)
        before = sys.getrefcount(Kept)
        for args in None, (1, 2):
            for _ in range(100):
                refusal(kel_failures.setBacktrace, Kept, "x", "", args, 3)
        self.assertEqual(sys.getrefcount(Kept), before)


class PythonErrors(TestCase):

    def tearDown(self):
        _Kel.newInstanceHookIs(None)
        super(PythonErrors, self).tearDown()

    def test_an_error_of_a_hook_arrives_unchanged_with_its_traceback(self):
        class Own(Exception):
            pass

        def failing_hook(cls):
            raise thrown

        thrown = Own("own text")
        _Kel.newInstanceHookIs(failing_hook)
        try:
            acme.Size(1)
        except Own as caught:
            self.assertIs(caught, thrown)
            names = [entry[2] for entry in traceback.extract_tb(sys.exc_info()[2])]
            self.assertEqual(names[-1], "failing_hook")
        else:
            self.fail("nothing was raised")

    def test_an_error_below_a_conversion_arrives_unchanged_with_its_traceback(self):
        class Proxy(object):
            def __kel_object__(self):
                raise thrown

        thrown = KeyError("from below")
        try:
            odd.Link(Proxy(), "red")
        except KeyError as caught:
            self.assertIs(caught, thrown)
            names = [entry[2] for entry in traceback.extract_tb(sys.exc_info()[2])]
            self.assertEqual(names[-1], "__kel_object__")
        else:
            self.fail("nothing was raised")

    def test_the_translator_leaves_a_pending_error_that_comes_with_the_marker(self):
        error = refusal(kel_failures.fail, "python, with an error", "", "index: ")
        self.assertEqual((type(error), error.args), (KeyError, ("pending",)))


class Faults(unittest.TestCase):

    def check(self, kind, text):
        outcome = in_child("""
            import _Kel, kel_failures, sys
            kel_failures.fail(sys.argv[1], "x", "")
            """, [kind]).expect(-6)
        self.assertIn("assertion failed: %s (" % text, outcome.err)

    def test_a_failure_while_an_error_is_pending_ends_the_process(self):
        for kind in "Kel", "errno", "std", "int":
            self.check(kind + ", with a pending error", "!PyErr_Occurred()")

    def test_a_marker_without_an_error_ends_the_process(self):
        self.check("python, without one", "PyErr_Occurred()")

    def test_an_exception_without_a_type_ends_the_process(self):
        self.check("foreign", "ti")
