"""Calls of classes: the objects and values that Python makes in the runtime."""

import sys
import unittest

import _Kel
import acme
import kel_objects
import odd
from kel_testing import TestCase, refusal
from kel_testing.proxy import Proxy, RaisingProxy

EXPLAINED = ("cannot mutate non-writable constructor parameter %s; to call the non-default "
             "constructor, pass the constructor parameters as positional arguments")


class Positional(TestCase):

    def test_arguments_go_to_the_constructor(self):
        item = acme.Item("a", 5)
        self.assertEqual((item.name, item.id), ("a", 5))
        segment = odd.Segment(acme.Point(x=1), acme.Point(y=2))
        self.assertEqual((segment.start.x, segment.end.y), (1, 2))

    def test_what_is_made_is_non_const(self):
        for made in (acme.Item("a", 1), acme.Size(1), acme.Size(), odd.Own(), odd.Empty()):
            self.assertFalse(_Kel.isConst(made))

    def test_an_entity_made_so_is_in_no_directory(self):
        for name in ("a", "", "a/b", "/"):
            item = acme.Item(name, 1)
            self.assertEqual((item.name, item.fullName), (name, name))
        self.assertIsNone(kel_objects.entity("/a"))

    def test_a_value_without_arguments_is_the_default_value(self):
        # Acme::Size has a constructor argument: the vector of no arguments would be refused.
        self.assertEqual(_Kel.typeNode("Acme::Size").constructorArgNameQ, ("value",))
        self.assertEqual(acme.Size().value, 0)
        self.assertEqual(acme.Name().value, "")
        self.assertEqual(odd.Segment().start, acme.Point())
        self.assertEqual(acme.Size(**{}).value, 0)

    def test_an_object_without_arguments_is_refused_where_it_needs_some(self):
        self.assertRefused(
            TypeError, "Acme::Item: Kel::TypeException(\"expected 2 constructor parameters "
            "('name', 'id'), got 0\")", acme.Item)
        self.assertRefused(
            TypeError, "Odd::Node: Kel::TypeException(\"expected 1 constructor parameter "
            "('id'), got 0\")", odd.Node)

    def test_a_wrong_number_is_told_for_the_type(self):
        self.assertRefused(
            TypeError, "Acme::Size: Kel::TypeException(\"expected 1 constructor parameter "
            "('value'), got 2\")", acme.Size, 1, 2)
        self.assertRefused(
            TypeError, 'Acme::Point: Kel::TypeException("expected 0 constructor parameters, '
            'got 1")', acme.Point, 1)

    def test_an_argument_that_does_not_fit_is_told_by_index_and_name(self):
        self.assertRefused(
            TypeError, "Acme::Item: Kel::TypeException(\"Error processing constructor parameter 1 "
            "('id'): expected U32, got str: 'x'\")", acme.Item, "a", "x")

    def test_a_constructor_that_throws_is_told_for_the_type(self):
        self.assertEqual(odd.Refuser(9).n, 9)
        self.assertRefused(IndexError, 'Odd::Refuser: Kel::RangeException("refused")',
                           odd.Refuser, 10)

    def test_the_wrapper_is_of_the_class_that_the_runtime_made(self):
        car = odd.Vehicle("car")
        self.assertIs(type(car), odd.Car)
        self.assertEqual(type(car).kelType.fullTypeName, "Odd::Car")
        self.assertIs(type(odd.Vehicle("bike")), odd.Vehicle)

    def test_a_proxy_among_the_arguments_stands_for_its_object(self):
        node, proxy = odd.Node(1), Proxy(odd.Node(2))
        self.assertEqual(odd.Link(Proxy(node), "red").node, node)
        self.assertEqual(odd.Link(proxy, "red").node.id, 2)
        self.assertEqual(proxy.calls, 1)

    def test_a_proxy_that_fails_is_told_as_a_resolution(self):
        self.assertRefused(KeyError, "'proxy'", odd.Link, RaisingProxy(KeyError("proxy")), "red")
        _Kel.acquireActivityLock()
        try:
            self.assertRefused(
                Exception, 'Odd::Link: resolution: Kel::Exception("Attempting to resolve mount '
                'proxy while holding the activity lock, which can cause a deadlock. See '
                'BUG853618.")', odd.Link, Proxy(odd.Node(1)), "red")
        finally:
            _Kel.releaseActivityLock()

    def test_built_in_and_enum_classes_refuse(self):
        for name in ("U8", "Kel::String", "bool", "Acme::Color", "Odd::ES64"):
            cls = _Kel.pyType(_Kel.typeNode(name))
            for arguments in ((), (1,), ("red",)):
                self.assertRefused(NotImplementedError,
                                   "cannot construct object of built-in or enum type",
                                   cls, *arguments)

    def test_new_of_a_base_makes_the_class_that_was_asked(self):
        self.assertIs(type(acme.Thing.__new__(acme.Item, "a", 1)), acme.Item)
        self.assertRaises(TypeError, acme.Size.__new__, int)
        self.assertRaises(TypeError, object.__new__, acme.Size)

    def test_a_failed_call_leaves_nothing_behind(self):
        node, live = odd.Node(1), odd.Node.live
        count = node.kelSmartPointerReferences()
        for _ in range(5):
            self.assertIsNotNone(refusal(odd.Link, node, "green"))
            self.assertIsNotNone(refusal(odd.Node, "x"))
        sys.exc_clear()
        self.assertEqual((node.kelSmartPointerReferences(), odd.Node.live), (count, live))


class Keywords(TestCase):

    def test_they_are_assigned_behind_the_default_constructor(self):
        point = acme.Point(x=1, y=2)
        self.assertEqual((point.x, point.y), (1, 2))

    def test_they_are_assigned_behind_a_constructor_with_arguments(self):
        segment = odd.Segment(acme.Point(x=1), acme.Point(), label="l")
        self.assertEqual((segment.start.x, segment.label), (1, "l"))
        self.assertEqual(acme.Size(1, value=3).value, 3)

    def test_one_that_names_a_writable_constructor_parameter_is_an_assignment(self):
        self.assertEqual(acme.Size(value=4).value, 4)

    def test_inherited_attributes_may_be_given(self):
        point = odd.Point3(x=1, z=2)
        self.assertEqual((point.x, point.z), (1, 2))

    def test_only_values_take_keywords(self):
        for cls, arguments in ((odd.Node, (1,)), (acme.Item, ("a", 1)), (odd.Scalars, ()),
                               (odd.Own, ())):
            self.assertRefused(TypeError, "keyword arguments are not supported",
                               cls, *arguments, value=1)
            self.assertIs(type(cls(*arguments, **{})), cls)

    def test_one_that_names_a_constructor_parameter_that_cannot_be_written_is_explained(self):
        self.assertRefused(NotImplementedError, EXPLAINED % "Acme::Name.value",
                           acme.Name, value="a")
        self.assertRefused(NotImplementedError, EXPLAINED % "Odd::Segment.end",
                           odd.Segment, acme.Point(), acme.Point(), end=acme.Point())

    def test_one_that_can_be_written_keeps_the_text_of_its_own_failure(self):
        error = NotImplementedError("proxy")
        self.assertRefused(NotImplementedError, "proxy", acme.Size, value=RaisingProxy(error))
        self.assertRefused(NotImplementedError, EXPLAINED % "Acme::Name.value",
                           acme.Name, value=RaisingProxy(error))

    def test_another_one_that_cannot_be_written_keeps_the_runtimes_text(self):
        self.assertRefused(
            NotImplementedError, 'Odd::Sealed.n: mutator: Kel::NoImplementationException('
            '"attribute Odd::Sealed.n is not writable")', odd.Sealed, n=1)

    def test_any_other_failure_stands_as_it_is(self):
        self.assertRefused(AttributeError, "'Acme::Point' object has no attribute 'q'",
                           acme.Point, q=1)
        self.assertRefused(
            TypeError, "Acme::Size.value: Kel::TypeException(\"expected U32, got str: 'x'\")",
            acme.Size, value="x")
        # A constructor parameter that cannot be written, but that failed to convert.
        self.assertRefused(
            TypeError, 'Acme::Name.value: Kel::TypeException("expected Kel::String, got int: 5")',
            acme.Name, value=5)
        self.assertRefused(TypeError, "cannot write collection attribute Odd::Tags.entry",
                           odd.Tags, entry=1)
        self.assertRefused(KeyError, "'proxy'", odd.Holder, node=RaisingProxy(KeyError("proxy")))

    def test_a_key_with_a_NUL_is_refused(self):
        for key in ("x\0", "\0", "x\0y"):
            self.assertRefused(ValueError, "string must not contain embedded NULs",
                               acme.Point, **{key: 1})

    def test_a_key_that_is_no_text_is_Pythons_refusal(self):
        self.assertRefused(TypeError, "expected string or Unicode object, int found",
                           lambda: acme.Point(**{5: 1}))
        self.assertRaises(UnicodeEncodeError, lambda: acme.Point(**{u"\u20ac": 1}))
        self.assertEqual(acme.Point(**{u"x": 4}).x, 4)

    def test_the_constructor_fails_before_any_keyword_is_looked_at(self):
        self.assertRefused(
            TypeError, "Acme::Size: Kel::TypeException(\"Error processing constructor parameter 0 "
            "('value'): expected U32, got str: 'x'\")", acme.Size, "x", nothing=1)

    def test_a_failed_keyword_releases_the_object_and_what_it_held(self):
        node = odd.Node(1)
        count = node.kelSmartPointerReferences()
        for _ in range(5):
            self.assertIsNotNone(refusal(odd.QuietHolder, node=node, n="x"))
        sys.exc_clear()
        self.assertEqual(node.kelSmartPointerReferences(), count)

    def test_keywords_are_reads_of_nothing(self):
        before = _Kel.attributeAccessorCount()
        acme.Point(x=1, y=2)
        self.assertEqual(_Kel.attributeAccessorCount(), before)


class Hook(TestCase):

    def tearDown(self):
        _Kel.newInstanceHookIs(None)
        super(Hook, self).tearDown()

    def test_it_is_called_with_the_class_before_each_instance(self):
        calls = []
        _Kel.newInstanceHookIs(lambda *given: calls.append(given))
        acme.Size(1)
        odd.Node(1)
        acme.Point()
        odd.Vehicle("car")
        self.assertEqual(calls, [(acme.Size,), (odd.Node,), (acme.Point,), (odd.Vehicle,)])

    def test_values_that_are_converted_or_read_are_no_instances_to_it(self):
        calls = []
        _Kel.newInstanceHookIs(calls.append)
        values = odd.Values()
        values.size = 5
        values.getRawAttribute("size"), values.point, _Kel.const(values.point)
        self.assertEqual(calls, [odd.Values])

    def test_its_exception_passes_and_nothing_is_made(self):
        error, live = KeyError("hook"), odd.Node.live

        def refuse(cls):
            raise error
        _Kel.newInstanceHookIs(refuse)
        raised = refusal(odd.Node, 1)
        self.assertIs(raised, error)
        self.assertEqual(odd.Node.live, live)

    def test_a_hook_that_cannot_be_called_is_Pythons_refusal(self):
        _Kel.newInstanceHookIs(5)
        self.assertRefused(TypeError, "'int' object is not callable", acme.Size, 1)

    def test_it_has_run_also_where_the_arguments_fail(self):
        calls = []
        _Kel.newInstanceHookIs(calls.append)
        self.assertIsNotNone(refusal(odd.Node, "x"))
        self.assertIsNotNone(refusal(odd.Node))
        self.assertIsNotNone(refusal(acme.Point, q=1))
        self.assertEqual(calls, [odd.Node, odd.Node, acme.Point])

    def test_refused_keywords_come_before_it(self):
        calls = []
        _Kel.newInstanceHookIs(calls.append)
        self.assertIsNotNone(refusal(odd.Scalars, u8=1))
        self.assertIsNotNone(refusal(acme.Color))
        self.assertEqual(calls, [])

    def test_it_comes_before_the_proxies(self):
        order = []
        _Kel.newInstanceHookIs(lambda cls: order.append("hook"))
        node = kel_objects.fromPtrInterface(odd.Node.make("plain", 1))
        odd.Link(Proxy(node, look=lambda: order.append("proxy")), "red")
        self.assertEqual(order, ["hook", "proxy"])

    def test_its_result_is_dropped(self):
        result = object()
        before = sys.getrefcount(result)
        _Kel.newInstanceHookIs(lambda cls: result)
        self.assertIs(type(acme.Size(1)), acme.Size)
        self.assertEqual(sys.getrefcount(result), before)

    def test_it_may_take_itself_away_while_it_runs(self):
        calls = []

        def once(cls):
            _Kel.newInstanceHookIs(None)
            calls.append(cls)
        _Kel.newInstanceHookIs(once)
        del once
        acme.Size(1)
        acme.Size(2)
        self.assertEqual(calls, [acme.Size])

    def test_it_may_make_instances_of_its_own(self):
        made = []

        def hook(cls):
            if cls is odd.Link:
                made.append(odd.Node(1))
        _Kel.newInstanceHookIs(hook)
        link = odd.Link(None, "red")
        self.assertEqual((link.color, len(made)), ("red", 1))


if __name__ == "__main__":
    unittest.main()
