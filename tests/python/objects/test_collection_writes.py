"""The functions through which collections write and delete: their order of stages."""

import unittest

import _Kel
import acme
import kel_objects
import odd
from kel_testing import TestCase, in_child
from kel_testing.proxy import Proxy, RaisingProxy

HELD = ('Kel::Exception("Attempting to resolve mount proxy while holding the activity lock, which '
        'can cause a deadlock. See BUG853618.")')
STORE = _Kel.typeNode("Acme::Store")
COLL = _Kel.typeNode("Odd::Coll")
PRICE, FAVORITE, ITEM = (STORE.attr(name) for name in ("price", "favorite", "item"))


class Sets(TestCase):

    def setUp(self):
        self.store = acme.Store("s")

    def tearDown(self):
        del self.store
        super(Sets, self).tearDown()

    def test_a_member_under_a_key_gives_None(self):
        self.assertIsNone(kel_objects.set(self.store, PRICE, 5, "a"))
        self.assertEqual(self.store.price["a"], 5)

    def test_a_member_with_its_own_key_is_added_and_gives_None(self):
        member = acme.StockItem("a", 1)
        self.assertIsNone(kel_objects.set(self.store, FAVORITE, member))
        self.assertEqual(self.store.favorite["a"], member)

    def test_an_instantiating_collection_makes_the_member_and_gives_it(self):
        made = kel_objects.set(self.store, ITEM, ("a", 1))
        self.assertIs(type(made), acme.StockItem)
        self.assertEqual(self.store.item["a"], made)

    def test_proxies_stand_for_keys_members_and_arguments(self):
        node = odd.Node(1)
        coll = odd.Coll()
        kel_objects.set(coll, COLL.attr("byNode"), 5, Proxy(node))
        self.assertEqual(coll.byNode[node], 5)
        kel_objects.set(coll, COLL.attr("node"), Proxy(node))
        self.assertEqual(coll.node[1], node)
        kel_objects.del_(coll, COLL.attr("byNode"), Proxy(node))
        self.assertEqual(len(coll.byNode), 0)

    def test_the_key_is_resolved_first(self):
        self.assertRefused(KeyError, "'key'", kel_objects.set, self.store, PRICE,
                           RaisingProxy(KeyError("value")), RaisingProxy(KeyError("key")))

    def test_the_value_is_resolved_second(self):
        self.assertRefused(KeyError, "'value'", kel_objects.set, self.store, PRICE,
                           RaisingProxy(KeyError("value")), object())

    def test_the_key_is_converted_before_the_value(self):
        self.assertRefused(
            TypeError, 'Acme::Store.price: index: Kel::TypeException("expected Kel::String, '
            'got int: 5")', kel_objects.set, self.store, PRICE, "x", 5)

    def test_a_value_that_does_not_fit_tells_no_stage(self):
        self.assertRefused(
            TypeError, "Acme::Store.price: Kel::TypeException(\"expected U32, got str: 'x'\")",
            kel_objects.set, self.store, PRICE, "x", "a")
        self.assertRefused(
            TypeError, 'Acme::Store.favorite: Kel::TypeException("expected Acme::StockItem, '
            'got int: 5")', kel_objects.set, self.store, FAVORITE, 5)
        self.assertRefused(
            TypeError, "Acme::Store.item: Kel::TypeException(\"expected 2 parameters "
            "('sku', 'count'), got 1\")", kel_objects.set, self.store, ITEM, ("a",))

    def test_a_mutator_that_refuses_tells_its_stage(self):
        const = _Kel.constPtr(self.store)
        for attr, arguments in ((PRICE, (5, "a")), (FAVORITE, (acme.StockItem("a", 1),)),
                                (ITEM, (("a", 1),))):
            self.assertRefused(
                AttributeError, 'Acme::Store.%s: mutator: Kel::ConstException("cannot change '
                'Acme::Store.%s of a const object")' % (attr.name, attr.name),
                kel_objects.set, const, attr, *arguments)

    def test_a_proxy_under_the_activity_lock_tells_which_argument_it_is(self):
        _Kel.acquireActivityLock()
        try:
            self.assertRefused(Exception, "Acme::Store.price: index resolution: " + HELD,
                               kel_objects.set, self.store, PRICE, Proxy(None), Proxy(None))
            self.assertRefused(Exception, "Acme::Store.price: rhs resolution: " + HELD,
                               kel_objects.set, self.store, PRICE, Proxy(None), "a")
            self.assertRefused(Exception, "Acme::Store.item: rhs resolution: " + HELD,
                               kel_objects.set, self.store, ITEM, ("a", Proxy(None)))
        finally:
            _Kel.releaseActivityLock()
        self.assertEqual((len(self.store.price), len(self.store.item)), (0, 0))

    def test_optional_members_take_None(self):
        coll = odd.Coll()
        kel_objects.set(coll, COLL.attr("maybe"), None, "a")
        self.assertIsNone(coll.maybe["a"])

    def test_static_collections_need_no_object(self):
        registry = COLL.attr("registry")
        kel_objects.set(None, registry, 5, "collection-writes")
        self.assertEqual(odd.Coll.registry["collection-writes"], 5)
        kel_objects.del_(None, registry, "collection-writes")
        self.assertNotIn("collection-writes", odd.Coll.registry)


class Deletes(TestCase):

    def setUp(self):
        self.store = acme.Store("s")
        self.store.price["a"] = 1

    def tearDown(self):
        del self.store
        super(Deletes, self).tearDown()

    def test_a_member_goes_and_a_missing_one_is_no_error(self):
        self.assertIsNone(kel_objects.del_(self.store, PRICE, "a"))
        self.assertEqual(len(self.store.price), 0)
        self.assertIsNone(kel_objects.del_(self.store, PRICE, "a"))

    def test_the_stages_of_a_delete(self):
        self.assertRefused(KeyError, "'key'", kel_objects.del_, self.store, PRICE,
                           RaisingProxy(KeyError("key")))
        self.assertRefused(
            TypeError, 'Acme::Store.price: index: Kel::TypeException("expected Kel::String, '
            'got int: 5")', kel_objects.del_, self.store, PRICE, 5)
        self.assertRefused(
            AttributeError, 'Acme::Store.price: Kel::ConstException("cannot change '
            'Acme::Store.price of a const object")',
            kel_objects.del_, _Kel.constPtr(self.store), PRICE, "a")
        _Kel.acquireActivityLock()
        try:
            self.assertRefused(Exception, "Acme::Store.price: resolution: " + HELD,
                               kel_objects.del_, self.store, PRICE, Proxy(None))
        finally:
            _Kel.releaseActivityLock()
        self.assertEqual(self.store.price["a"], 1)


class Faults(TestCase):
    """States that no accepted schema and no caller of this module brings about."""

    def check_abort(self, call, expression):
        outcome = in_child("""
            import _Kel, acme, odd, kel_objects
            coll, store = odd.Coll(), acme.Store("s")
            attr = lambda owner, name: owner.kelType.attr(name)
            %s
        """ % call).expect(-6)
        self.assertIn(expression, outcome.err)

    def test_a_key_for_a_member_that_carries_its_own_ends_the_process(self):
        self.check_abort(
            "kel_objects.set(store, attr(store, 'favorite'), acme.StockItem('a', 1), 'a')",
            "!resolvedIndex")

    def test_instantiating_without_an_internal_index_ends_the_process(self):
        self.check_abort("kel_objects.set(coll, attr(coll, 'intake'), ('a', 1), 0)",
                         "hasInternalIndex")


if __name__ == "__main__":
    unittest.main()
