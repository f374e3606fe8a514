"""Function attributes: bound callables and their calls."""

import sys
import unittest

import _Kel
import acme
import odd
from kel_testing import TestCase, refusal
from kel_testing.proxy import Proxy, RaisingProxy

HELD = ('Kel::Exception("Attempting to resolve mount proxy while holding the activity lock, which '
        'can cause a deadlock. See BUG853618.")')


class Objects(TestCase):

    def test_each_read_is_a_new_function_of_the_same_parent(self):
        args = odd.Args()
        first, second = args.one, args.one
        self.assertIsNot(first, second)
        self.assertIs(first.parent, args)
        self.assertIs(second.parent, args)
        self.assertIs(first.kelAttr, _Kel.typeNode("Odd::Args").attr("one"))
        self.assertTrue(_Kel.isFunction(first))

    def test_a_static_function_has_no_parent(self):
        for function in (acme.Item.describe, acme.Item("a", 1).describe):
            self.assertIs(function.parent, None)

    def test_repr_shows_parent_and_name(self):
        item = acme.Item("a", 1)
        self.assertEqual(repr(item.add), "method(entity('a'),'add')")
        self.assertEqual(repr(acme.Item.describe), "method(None,'describe')")

    def test_str_shows_the_address_where_there_is_a_parent(self):
        item = acme.Item("a", 1)
        self.assertRegexpMatches(
            str(item.add), r"\A<_Kel\.Function 'add' of type 'Acme::Item' at 0x[0-9a-f]+>\Z")
        self.assertEqual(str(acme.Item.describe),
                         "<_Kel.Function 'describe' of type 'Acme::Item'>")

    def test_str_names_the_type_that_declares_it(self):
        self.assertIn("'peek' of type 'Odd::Node' at", str(odd.SpecialNode(1).peek))

    def test_a_function_keeps_its_parent_alive(self):
        live = odd.Node.live
        peek = odd.Node(1).peek
        self.assertEqual(odd.Node.live, live + 1)
        self.assertEqual(peek(), 0)
        del peek
        self.assertEqual(odd.Node.live, live)

    def test_documentation_of_the_type(self):
        cls = type(odd.Args().one)
        self.assertEqual(cls.__doc__, "kelc-Python function attribute.")
        self.assertEqual(cls.kelAttr.__doc__, "Kel::KelAttr object.")
        self.assertRaises(TypeError, cls)
        for name in ("parent", "kelAttr"):
            self.assertRaises(AttributeError, setattr, odd.Args().one, name, None)


class Calls(TestCase):

    def test_arguments_and_results_are_converted(self):
        args, node = odd.Args(), odd.Node(1)
        self.assertEqual(args.none(), 0)
        self.assertEqual(args.one(7), 7)
        self.assertEqual(args.size(7), 7)
        self.assertEqual(args.size(acme.Size(8)), 8)
        self.assertEqual(args.node(node), node)
        self.assertEqual(args.pyText((1, "a")), (1, "a"))
        self.assertEqual(acme.Item("a", 1).add(2, -5), -3)

    def test_a_function_without_result_gives_None(self):
        args, node = odd.Args(), odd.Node(1)
        self.assertIsNone(args.keep(node))
        self.assertEqual(args.kept(), node)
        item = acme.Item("a", 1)
        self.assertIsNone(item.resize(5))
        self.assertEqual(item.size, 5)

    def test_an_invasive_function_is_called_like_any(self):
        args = odd.Args()
        self.assertEqual([args.poke(), args.poke()], [1, 2])

    def test_a_static_function_is_called_without_an_object(self):
        self.assertEqual(acme.Item.describe("red"), "a red item")
        self.assertEqual(odd.Node.make("special", 3).id, 3)

    def test_inherited_functions_are_called(self):
        node = odd.SpecialNode(1)
        node.bump()
        self.assertEqual(node.peek(), 1)

    def test_keywords_are_refused_before_the_arguments_are_looked_at(self):
        proxy = Proxy(odd.Node(1))
        for call in (lambda: odd.Args().one(a=1), lambda: odd.Args().one("x", a=1),
                     lambda: odd.Args().node(proxy, n=1), lambda: odd.Args().none(x=1)):
            self.assertRefused(TypeError, "keyword arguments are not supported", call)
        self.assertEqual(proxy.calls, 0)

    def test_no_keywords_are_none(self):
        self.assertEqual(odd.Args().none(**{}), 0)
        self.assertEqual(odd.Args().one(4, **{}), 4)

    def test_arguments_that_do_not_fit_tell_their_stage(self):
        args = odd.Args()
        self.assertRefused(
            TypeError, "Odd::Args.one: function args: Kel::TypeException(\"expected 1 parameter "
            "('a'), got 0\")", args.one)
        self.assertRefused(
            TypeError, "Odd::Args.one: function args: Kel::TypeException(\"Error processing "
            "parameter 0 ('a'): expected U32, got str: 'x'\")", args.one, "x")
        error = refusal(args.unknown, 1)
        self.assertTrue(str(error).startswith(
            "Odd::Args.unknown: function args: Kel::NoTypeNodeException("), error)

    def test_a_proxy_stands_for_its_object(self):
        node = odd.Node(1)
        self.assertEqual(odd.Args().node(Proxy(node)), node)

    def test_a_proxy_that_cannot_be_resolved_tells_its_stage(self):
        args, proxy = odd.Args(), Proxy(odd.Node(1))
        self.assertRefused(KeyError, "'proxy'", args.node, RaisingProxy(KeyError("proxy")))
        _Kel.acquireActivityLock()
        try:
            self.assertRefused(Exception, "Odd::Args.node: resolution: " + HELD, args.node, proxy)
        finally:
            _Kel.releaseActivityLock()

    def test_a_function_that_throws_tells_no_stage(self):
        self.assertRefused(IndexError, 'Odd::Faults.fail: Kel::RangeException("far")',
                           odd.Faults().fail, "Kel::RangeException", "far")

    def test_constness_is_the_runtimes_to_judge(self):
        node = _Kel.constPtr(odd.Node(1))
        self.assertEqual(node.peek(), 0)
        self.assertRefused(
            AttributeError, 'Odd::Node.bump: Kel::ConstException("cannot call the non-const '
            'function Odd::Node.bump of a const object")', node.bump)

    def test_a_call_leaves_no_reference_behind(self):
        args, given = odd.Args(), odd.Node(1)
        before = sys.getrefcount(given), given.kelSmartPointerReferences()
        for _ in range(5):
            args.node(given)
            args.many(given, 1, 2, 3, 4, 5, 6, 7, 8)
            refusal(args.many, given, 1, 2, 3, 4, 5, 6, 7, "x")
            refusal(args.one, given)
        sys.exc_clear()
        self.assertEqual((sys.getrefcount(given), given.kelSmartPointerReferences()), before)

    def test_the_arguments_of_a_call_by_star_are_any_iterable(self):
        self.assertEqual(odd.Args().nine(*range(9)), 36)


if __name__ == "__main__":
    unittest.main()
