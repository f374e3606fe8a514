"""Mount proxies: replaced by the object that they stand for before anything reaches the runtime."""

import sys
import unittest

import _Kel
import acme
import kel_convert
import odd
from kel_testing import TestCase
from kel_testing.proxy import Proxy, RaisingProxy

HELD = ("Attempting to resolve mount proxy while holding the activity lock, which can cause a "
        "deadlock. See BUG853618.")


class PropertyProxy(object):
    """Its method is a property that raises."""

    @property
    def __kel_object__(self):
        raise ValueError("property")


class GetattrProxy(object):
    """Answers for any name."""

    def __init__(self, target):
        self.target = target

    def __getattr__(self, name):
        return lambda: self.target


class RaisingGetattr(object):
    def __getattr__(self, name):
        raise KeyboardInterrupt


class OldProxy:
    def __init__(self, target):
        self.target = target

    def __kel_object__(self):
        return self.target


class TupleProxy(tuple):
    def __kel_object__(self):
        return odd.Node(1)


class StrProxy(str):
    def __kel_object__(self):
        return self.target


class SingleObjects(TestCase):

    def test_null_stays_null(self):
        self.assertTrue(kel_convert.nullStaysNull())

    def test_an_object_without_the_method_is_itself(self):
        for given in (None, 5, "x", u"x", [], {}, object(), odd.Node(1), acme.Size(1),
                      [Proxy(odd.Node(1))], {1: Proxy(odd.Node(1))}, type, sys):
            before = sys.getrefcount(given)
            self.assertIs(kel_convert.resolved(given), given)
            self.assertEqual(sys.getrefcount(given), before)

    def test_a_proxy_is_the_object_that_its_method_gives(self):
        node = odd.Node(1)
        subclass = StrProxy("x")
        subclass.target = node
        for proxy in (Proxy(node), OldProxy(node), GetattrProxy(node), subclass):
            self.assertIs(kel_convert.resolved(proxy), node)

    def test_any_object_whose_class_derives_from_PtrInterface_counts(self):
        # Odd::Node declares no base; its Python class has one.
        self.assertIsNone(_Kel.typeNode("Odd::Node").baseType)
        for target in (odd.Node(1), odd.SpecialNode(1), acme.Item("a", 1), odd.Car(),
                       _Kel.constPtr(odd.Coll())):
            self.assertIs(kel_convert.resolved(Proxy(target)), target)

    def test_any_other_result_leaves_the_proxy_as_it_is(self):
        for target in (None, 5, "x", object(), acme.Size(1), odd.Own(), odd.Node, acme.Item,
                       _Kel.entityFuture("/a", None), [odd.Node(1)],
                       type(acme.Size)("Handmade", (object,), {})()):
            proxy = Proxy(target)
            self.assertIs(kel_convert.resolved(proxy), proxy)
            self.assertEqual(proxy.calls, 1)

    def test_a_proxy_of_a_proxy_is_not_followed(self):
        inner = Proxy(odd.Node(1))
        outer = Proxy(inner)
        self.assertIs(kel_convert.resolved(outer), outer)
        self.assertEqual((outer.calls, inner.calls), (1, 0))

    def test_a_method_that_raises_passes_its_exception_unchanged(self):
        error = KeyError("proxy", 5)
        try:
            kel_convert.resolved(RaisingProxy(error))
            self.fail("nothing was raised")
        except KeyError as raised:
            self.assertIs(raised, error)
            self.assertEqual(sys.exc_info()[2].tb_next.tb_frame.f_code.co_name, "__kel_object__")

    def test_an_attribute_that_cannot_be_called_raises_Pythons_own_error(self):
        class NotCallable(object):
            __kel_object__ = 5
        self.assertRefused(TypeError, "attribute of type 'int' is not callable",
                           kel_convert.resolved, NotCallable())

    def test_a_property_that_raises_makes_no_proxy(self):
        for given in (PropertyProxy(), RaisingGetattr()):
            self.assertIs(kel_convert.resolved(given), given)
            self.assertRefused(TypeError, "Odd::Scalars.u8: Kel::TypeException(\"expected U8, "
                               "got %s: %r\")" % (type(given).__name__, given),
                               setattr, odd.Scalars(), "u8", given)

    def test_an_error_that_was_pending_is_kept(self):
        node = odd.Node(1)
        plain = object()
        for given, resolved in ((Proxy(node), node), (plain, plain), (5, 5), ("x", "x"),
                                (acme.Item, acme.Item)):
            found, is_pending = kel_convert.resolvedWithPendingError(given)
            self.assertIs(found, resolved)
            self.assertTrue(is_pending)
        for given in (PropertyProxy(), RaisingGetattr()):
            self.assertEqual(kel_convert.resolvedWithPendingError(given), (given, True))

    def test_a_resolved_object_lives_as_long_as_the_call(self):
        keeper = odd.Keeper()
        keeper.node = Proxy(odd.Node(7))
        self.assertEqual(keeper.node.id, 7)
        self.assertEqual(odd.Args().node(Proxy(odd.Node(8))).id, 8)


class Tuples(TestCase):

    def test_a_tuple_without_a_proxy_is_the_tuple_itself(self):
        for size in (0, 1, 7, 8, 9, 20):
            given = tuple(object() for _ in range(size))
            before = [sys.getrefcount(one) for one in given]
            self.assertIs(kel_convert.resolved(given), given)
            self.assertEqual([sys.getrefcount(one) for one in given], before)

    def test_a_tuple_with_a_proxy_is_a_new_one_with_the_other_elements_as_they_are(self):
        for size in (1, 7, 8, 9, 20):
            for place in sorted({0, size // 2, size - 1}):
                node = odd.Node(1)
                given = [object() for _ in range(size)]
                given[place] = Proxy(node)
                before = [sys.getrefcount(one) for one in given]
                found = kel_convert.resolved(tuple(given))
                self.assertIs(type(found), tuple)
                self.assertEqual(len(found), size)
                for i in range(size):
                    self.assertIs(found[i], node if i == place else given[i])
                del found
                self.assertEqual([sys.getrefcount(one) for one in given], before)

    def test_every_proxy_of_a_tuple_is_resolved_in_order_once(self):
        order = []
        nodes = [odd.Node(i) for i in range(9)]
        proxies = [Proxy(node, look=lambda i=i: order.append(i)) for i, node in enumerate(nodes)]
        self.assertEqual(kel_convert.resolved(tuple(proxies)), tuple(nodes))
        self.assertEqual(order, range(9))

    def test_a_proxy_that_is_not_resolved_leaves_the_tuple_itself(self):
        given = (Proxy(None), 5)
        self.assertIs(kel_convert.resolved(given), given)

    def test_a_proxy_in_a_nested_tuple_is_not_looked_at(self):
        proxy = Proxy(odd.Node(1))
        for given in (((proxy,),), (1, (proxy, 2)), ([proxy],)):
            self.assertIs(kel_convert.resolved(given), given)
        self.assertEqual(proxy.calls, 0)

    def test_a_tuple_of_a_subclass_is_looked_into_and_not_asked_itself(self):
        node = odd.Node(1)
        given = TupleProxy((Proxy(node), 5))
        self.assertEqual(kel_convert.resolved(given), (node, 5))
        plain = TupleProxy((1, 2))
        self.assertIs(kel_convert.resolved(plain), plain)

    def test_an_element_that_raises_ends_it_and_releases_the_others(self):
        for place in (0, 5, 8):
            node = odd.Node(1)
            given = [Proxy(node) for _ in range(9)]
            given[place] = RaisingProxy(KeyError("element"))
            before = sys.getrefcount(node)
            self.assertRefused(KeyError, "'element'", kel_convert.resolved, tuple(given))
            sys.exc_clear()
            self.assertEqual(sys.getrefcount(node), before)

    def test_functions_of_eight_and_of_nine_parameters_take_proxies(self):
        node = odd.Node(1)
        args = odd.Args()
        self.assertEqual(args.many(Proxy(node), 1, 2, 3, 4, 5, 6, 7, 8), node)
        self.assertEqual(args.node(Proxy(node)), node)
        self.assertEqual(odd.Link(Proxy(node), "red").node, node)


class UnderTheActivityLock(TestCase):

    def setUp(self):
        _Kel.acquireActivityLock()

    def tearDown(self):
        _Kel.releaseActivityLock()
        super(UnderTheActivityLock, self).tearDown()

    def test_a_proxy_is_refused_before_its_code_runs(self):
        proxy = Proxy(odd.Node(1))
        text = 'resolution: Kel::Exception("%s")' % HELD
        for given in (proxy, (1, proxy), (1,) * 9 + (proxy,)):
            error = self.assertRefused(Exception, text, kel_convert.resolved, given)
            self.assertIs(type(error), Exception)
        self.assertEqual(proxy.calls, 0)

    def test_each_entry_names_its_stage(self):
        node, args, proxy = odd.Node(1), odd.Args(), Proxy(odd.Node(2))
        text = 'resolution: Kel::Exception("%s")' % HELD
        self.assertRefused(Exception, "Odd::Args.node: " + text, args.node, proxy)
        self.assertRefused(Exception, "Odd::Node.next: " + text, setattr, node, "next", proxy)
        self.assertRefused(Exception, "Odd::Link: " + text, odd.Link, proxy, "red")
        self.assertIsNone(node.next)
        self.assertEqual(proxy.calls, 0)

    def test_objects_that_are_no_proxies_pass(self):
        self.assertEqual(odd.Args().one(4), 4)
        for given in (PropertyProxy(), RaisingGetattr(), object(), (1, object())):
            self.assertIs(kel_convert.resolved(given), given)

    def test_the_refusal_takes_the_place_of_an_error_that_was_pending(self):
        self.assertRefused(Exception, 'resolution: Kel::Exception("%s")' % HELD,
                           kel_convert.resolvedWithPendingError, Proxy(odd.Node(1)))


if __name__ == "__main__":
    unittest.main()
