"""Attributes read and written through the descriptors of a class."""

import sys
import unittest

import _Kel
import acme
import kel_objects
import odd
from kel_testing import TestCase, refusal
from kel_testing.proxy import Proxy, RaisingProxy

HELD = ('Kel::Exception("Attempting to resolve mount proxy while holding the activity lock, which '
        'can cause a deadlock. See BUG853618.")')


def descriptor(cls, name):
    return cls.__dict__[name]


class Reads(TestCase):

    def test_a_plain_attribute_on_the_class_requires_an_instance(self):
        for name in ("size", "part", "addPart", "lookup"):
            self.assertRefused(
                AttributeError,
                "accessing non-static attribute '%s' requires an instance" % name,
                getattr, acme.Item, name)

    def test_a_static_attribute_is_read_on_the_class_and_on_instances_alike(self):
        item = acme.Item("a", 1)
        self.assertEqual(acme.Item.unit, "mm")
        self.assertEqual(item.unit, acme.Item.unit)
        self.assertEqual(acme.Item.describe("blue"), "a blue item")
        self.assertEqual(item.describe("red"), "a red item")

    def test_a_static_attribute_read_through_an_instance_forgets_the_instance(self):
        coll, item = odd.Coll(), acme.Item("a", 1)
        for found in (coll.registry, odd.Coll.registry, item.describe, acme.Item.describe):
            self.assertIsNone(found.parent)
        before = sys.getrefcount(coll)
        found = [coll.newFleet, coll.addShared]
        self.assertEqual(sys.getrefcount(coll), before)
        found.append(coll.addNode)
        self.assertEqual(sys.getrefcount(coll), before + 1)
        self.assertIs(item.lookup.parent, item)
        self.assertIs(coll.track.parent, coll)

    def test_a_foreign_object_is_refused_with_its_class(self):
        text = "descriptor '%s' requires a '%s' object but received a '%s'"
        cases = [
            (acme.Item, "size", "Acme::Item", 5, "int"),
            (acme.Item, "size", "Acme::Item", acme.Thing("a"), "Acme::Thing"),
            (acme.Item, "unit", "Acme::Item", "x", "str"),
            (acme.Item, "describe", "Acme::Item", odd.Node(1), "Odd::Node"),
            (acme.Item, "part", "Acme::Item", acme.Size(1), "Acme::Size"),
            (acme.Store, "newItem", "Acme::Store", [], "list"),
            (acme.Store, "addFavorite", "Acme::Store", odd.Coll(), "Odd::Coll"),
            (acme.Color, "red", "Acme::Color", "red", "str"),
            (acme.Point, "x", "Acme::Point", odd.Segment(), "Odd::Segment")]
        for cls, name, scope, given, received in cases:
            before = _Kel.attributeAccessorCount()
            message = text % (name, scope, received)
            self.assertRefused(TypeError, message, descriptor(cls, name).__get__, given)
            self.assertRefused(TypeError, message, descriptor(cls, name).__set__, given, 1)
            self.assertRefused(TypeError, message, descriptor(cls, name).__delete__, given)
            self.assertEqual(_Kel.attributeAccessorCount(), before)

    def test_an_object_of_a_derived_type_is_accepted(self):
        item = acme.Item("a", 1)
        self.assertEqual(descriptor(acme.Thing, "note").__get__(item), "")
        descriptor(acme.Thing, "note").__set__(item, "new")
        self.assertEqual(item.note, "new")
        self.assertEqual(descriptor(acme.Point, "x").__get__(odd.Point3(x=4)), 4)

    def test_an_enum_constant_reads_as_its_own_name(self):
        self.assertIs(acme.Color.red, intern("red"))
        self.assertIs(odd.Twin.second, intern("second"))
        self.assertIs(descriptor(acme.Color, "blue").__get__(None, acme.Color), intern("blue"))
        raw = kel_objects.emptyView(_Kel.typeNode("Odd::Raw"))
        self.assertIs(raw.constant, intern("constant"))

    def test_a_row_of_constant_and_function_form_is_an_enum_constant(self):
        raw = kel_objects.emptyView(_Kel.typeNode("Odd::Raw"))
        self.assertIs(raw.invasiveConst, intern("invasiveConst"))

    def test_the_other_sorts_read_as_a_new_object_each_time(self):
        coll, args = odd.Coll(), odd.Args()
        kinds = [(coll, "track", "Collection"), (coll, "addNode", "AddMemberFunction"),
                 (coll, "newFleet", "NewMemberFunction"), (args, "none", "Function"),
                 (args, "poke", "Function")]
        for owner, name, kind in kinds:
            first, second = getattr(owner, name), getattr(owner, name)
            self.assertIsNot(first, second)
            self.assertEqual(repr(type(first)), "<type '_Kel.%s'>" % kind)
        self.assertTrue(_Kel.isCollection(coll.track))
        self.assertTrue(_Kel.isFunction(args.none))

    def test_what_is_read_keeps_its_owner_alive(self):
        args = odd.Args()
        before = sys.getrefcount(args)
        function = args.none
        self.assertEqual(sys.getrefcount(args), before + 1)
        del function
        self.assertEqual(sys.getrefcount(args), before)

    def test_a_failed_read_tells_type_and_attribute_without_a_stage(self):
        self.assertRefused(SystemError, 'Odd::Faults.bad: Kel::InternalException("read")',
                           getattr, odd.Faults(), "bad")

    def test_an_attribute_that_no_class_declares_is_Pythons_refusal(self):
        self.assertRefused(AttributeError, "'Acme::Item' object has no attribute 'nothing'",
                           getattr, acme.Item("a", 1), "nothing")


class Counter(TestCase):

    def assertCounts(self, by, function, *args):
        before = _Kel.attributeAccessorCount()
        refusal(function, *args)
        self.assertEqual(_Kel.attributeAccessorCount() - before, by)

    def test_it_is_a_long(self):
        self.assertIs(type(_Kel.attributeAccessorCount()), long)

    def test_every_sort_of_read_counts_one(self):
        coll, args = odd.Coll(), odd.Args()
        for owner, name in ((coll, "track"), (coll, "addNode"), (coll, "newFleet"),
                            (coll, "registry"), (odd.Coll, "registry"), (args, "none"),
                            (odd.Scalars(), "u8"), (acme.Color, "red"), (acme.Item, "unit"),
                            (acme.Item, "describe"), (odd.Values(), "boxed")):
            self.assertCounts(1, getattr, owner, name)

    def test_a_read_that_fails_in_the_runtime_counts(self):
        self.assertCounts(1, getattr, odd.Faults(), "bad")

    def test_a_read_that_fails_its_checks_does_not_count(self):
        self.assertCounts(0, getattr, acme.Item, "size")
        self.assertCounts(0, getattr, acme.Item("a", 1), "nothing")
        self.assertCounts(0, descriptor(acme.Item, "size").__get__, 5)

    def test_writes_raw_reads_and_properties_do_not_count(self):
        scalars = odd.Scalars()
        self.assertCounts(0, setattr, scalars, "u8", 1)
        self.assertCounts(0, setattr, scalars, "u8", "x")
        self.assertCounts(0, delattr, scalars, "u8")
        self.assertCounts(0, scalars.getRawAttribute, "u8")
        self.assertCounts(0, scalars.attrProperty, "u8", "isStatic")
        self.assertCounts(0, lambda: scalars.kelType)
        self.assertCounts(0, lambda: scalars.attributes)

    def test_getmethod_counts_as_the_read_that_it_is(self):
        self.assertCounts(1, odd.Scalars()._getmethod, "u8")
        self.assertCounts(0, odd.Scalars()._getmethod, "kelType")

    def test_operations_on_a_collection_do_not_count_beyond_the_read_of_it(self):
        coll = odd.Coll()
        self.assertCounts(1, lambda: coll.size)
        self.assertCounts(1, lambda: coll.slot[0])
        slot = coll.slot
        self.assertEqual(slot[0], 0)
        self.assertCounts(0, lambda: len(slot))
        self.assertCounts(0, lambda: slot[0])
        self.assertCounts(0, lambda: slot["no index"])


class Writes(TestCase):

    def test_nothing_can_be_deleted_whatever_its_sort(self):
        item, store, coll = acme.Item("a", 1), acme.Store("s"), odd.Coll()
        raw = kel_objects.emptyView(_Kel.typeNode("Odd::Raw"))
        for owner, scope, name, shown in (
                (item, "Acme::Item", "size", "size"), (item, "Acme::Thing", "note", "note"),
                (item, "Acme::Item", "id", "id"), (item, "Acme::Item", "unit", "unit"),
                (item, "Acme::Item", "lookup", "lookup"), (item, "Acme::Item", "part", "part"),
                (item, "Acme::Item", "addPart", "part"), (store, "Acme::Store", "newItem", "item"),
                (store, "Acme::Store", "badge", "badge"),
                (coll, "Odd::Coll", "registry", "registry"),
                (raw, "Odd::Raw", "constant", "constant"),
                (raw, "Odd::Raw", "invasiveConst", "invasiveConst")):
            self.assertRefused(TypeError, "cannot delete attribute %s.%s" % (scope, shown),
                               delattr, owner, name)

    def test_constants_collections_methods_and_functions_cannot_be_written(self):
        item, store, coll, args = acme.Item("a", 1), acme.Store("s"), odd.Coll(), odd.Args()
        raw = kel_objects.emptyView(_Kel.typeNode("Odd::Raw"))
        for owner, name, text in (
                (raw, "constant", "cannot write enum constant Odd::Raw.constant"),
                (raw, "invasiveConst", "cannot write enum constant Odd::Raw.invasiveConst"),
                (item, "part", "cannot write collection attribute Acme::Item.part"),
                (item, "addPart", "cannot write method Acme::Item.addPart"),
                (store, "newItem", "cannot write method Acme::Store.newItem"),
                (store, "item", "cannot write collection attribute Acme::Store.item"),
                (store, "order", "cannot write collection attribute Acme::Store.order"),
                (store, "track", "cannot write collection attribute Acme::Store.track"),
                (coll, "registry", "cannot write collection attribute Odd::Coll.registry"),
                (item, "lookup", "cannot write function attribute Acme::Item.lookup"),
                (item, "describe", "cannot write function attribute Acme::Item.describe"),
                (args, "poke", "cannot write function attribute Odd::Args.poke")):
            for value in (1, None, RaisingProxy(KeyError())):
                self.assertRefused(TypeError, text, setattr, owner, name, value)

    def test_a_collection_of_instantiating_kind_is_not_unset_by_None(self):
        store = acme.Store("s")
        store.restock("a", 1)
        self.assertRefused(TypeError, "cannot write collection attribute Acme::Store.item",
                           setattr, store, "item", None)
        self.assertEqual(len(store.item), 1)

    def test_an_attribute_of_a_class_cannot_be_written_through_the_class(self):
        self.assertRefused(
            TypeError, "can't set attributes of built-in/extension type 'Acme::Item'",
            setattr, acme.Item, "unit", "cm")

    def test_a_static_attribute_is_written_through_any_instance(self):
        item, other = acme.Item("a", 1), acme.Item("b", 2)
        try:
            item.unit = "cm"
            self.assertEqual((acme.Item.unit, other.unit), ("cm", "cm"))
        finally:
            item.unit = "mm"

    def test_None_unsets_an_instantiating_attribute_and_a_tuple_makes_its_object(self):
        store = acme.Store("s")
        self.assertIsNone(store.badge)
        store.badge = ("gold", 3)
        self.assertEqual((store.badge.text, store.badge.level), ("gold", 3))
        first = store.badge
        store.badge = ("iron", 1)
        self.assertNotEqual(store.badge, first)
        self.assertEqual(first.text, "gold")
        store.badge = None
        self.assertIsNone(store.badge)
        store.badge = None
        self.assertIsNone(store.badge)

    def test_the_arguments_of_an_instantiating_attribute_are_checked_without_a_stage(self):
        store = acme.Store("s")
        store.badge = ("gold", 3)
        for given, text in (
                (("a",), "expected 2 parameters ('text', 'level'), got 1"),
                (5, "expected tuple, got int"), ("ab", "expected tuple, got str"),
                (["a", 1], "expected tuple, got list"),
                (store.badge, "expected tuple, got Acme::Badge"),
                ((1, 1), "Error processing parameter 0 ('text'): expected Kel::String, got int: 1"),
                (("a", None),
                 "Error processing parameter 1 ('level'): expected U32, got NoneType: None")):
            self.assertRefused(TypeError, 'Acme::Store.badge: Kel::TypeException("%s")' % text,
                               setattr, store, "badge", given)
            self.assertEqual(store.badge.text, "gold")

    def test_None_on_a_plain_attribute_has_the_sense_of_its_type(self):
        item = acme.Item("a", 1)
        item.parent = acme.Item("b", 2)
        item.parent = None
        self.assertIsNone(item.parent)
        self.assertRefused(
            TypeError, 'Acme::Item.size: Kel::TypeException("expected Acme::Size, '
            'got NoneType: None")', setattr, item, "size", None)
        scalars = odd.Scalars()
        scalars.maybe = 1
        scalars.maybe = None
        self.assertIsNone(scalars.maybe)

    def test_a_write_goes_to_the_runtime_whatever_the_schema_says_of_it(self):
        node = odd.Node(1)
        self.assertFalse(_Kel.typeNode("Odd::Node").attr("id").writable)
        self.assertRefused(
            NotImplementedError, 'Odd::Node.id: mutator: Kel::NoImplementationException("attribute '
            'Odd::Node.id is not writable")', setattr, node, "id", 5)

    def test_the_stages_of_a_write_come_in_their_order(self):
        faults = odd.Faults()
        # The value is resolved first, converted second, written last.
        self.assertRefused(AttributeError, 'Odd::Faults.bad: mutator: Kel::ConstException("write")',
                           setattr, faults, "bad", 1)
        self.assertRefused(
            TypeError, "Odd::Faults.bad: Kel::TypeException(\"expected U32, got str: 'x'\")",
            setattr, faults, "bad", "x")
        self.assertRefused(KeyError, "'proxy'", setattr, faults, "bad",
                           RaisingProxy(KeyError("proxy")))

    def test_a_mutator_that_refuses_an_instantiating_write_tells_its_stage(self):
        store = _Kel.constPtr(acme.Store("s"))
        self.assertRefused(
            AttributeError, 'Acme::Store.badge: mutator: Kel::ConstException("cannot change '
            'Acme::Store.badge of a const object")', setattr, store, "badge", ("a", 1))

    def test_a_refused_unset_tells_no_stage(self):
        store = _Kel.constPtr(acme.Store("s"))
        self.assertRefused(
            AttributeError, 'Acme::Store.badge: Kel::ConstException("cannot change '
            'Acme::Store.badge of a const object")', setattr, store, "badge", None)

    def test_a_proxy_as_value_stands_for_its_object(self):
        item, parent = acme.Item("a", 1), acme.Item("b", 2)
        proxy = Proxy(parent)
        item.parent = proxy
        self.assertEqual(item.parent, parent)
        self.assertEqual(proxy.calls, 1)

    def test_a_proxy_under_the_activity_lock_is_refused_and_nothing_is_written(self):
        item, before = acme.Item("a", 1), acme.Item("b", 2)
        item.parent = before
        proxy = Proxy(acme.Item("c", 3))
        _Kel.acquireActivityLock()
        try:
            self.assertRefused(Exception, "Acme::Item.parent: resolution: " + HELD,
                               setattr, item, "parent", proxy)
        finally:
            _Kel.releaseActivityLock()
        self.assertEqual((item.parent, proxy.calls), (before, 0))

    def test_what_cannot_be_written_is_refused_before_a_proxy_is_asked(self):
        item, proxy = acme.Item("a", 1), Proxy(acme.Item("b", 2))
        for name in ("part", "lookup", "addPart"):
            self.assertRaises(TypeError, setattr, item, name, proxy)
        self.assertRaises(TypeError, descriptor(acme.Item, "parent").__set__, 5, proxy)
        self.assertEqual(proxy.calls, 0)

    def test_a_write_leaves_no_reference_behind(self):
        values, given = odd.Values(), ("x" * 30, 2 ** 70)
        before = sys.getrefcount(given)
        for _ in range(5):
            values.pyText = given
            refusal(setattr, values, "u8", given)
            refusal(setattr, values, "size", given)
        sys.exc_clear()
        self.assertEqual(sys.getrefcount(given), before)


if __name__ == "__main__":
    unittest.main()
