"""The wrapper of a runtime object or value: life, identity, order, text, hash, const views."""

import gc
import operator
import unittest
import weakref

import _Kel
import acme
import kel_objects
import odd
from kel_testing import TestCase, zoo

OPERATORS = (operator.lt, operator.le, operator.eq, operator.ne, operator.gt, operator.ge)
NOT_WRAPPED = [None, 5, "x", object(), acme.Size, _Kel.typeNode("U8"),
               _Kel.entityFuture("/a", None), type(acme.Size)("Handmade", (object,), {})()]


class Shape(TestCase):

    def test_wrappers_futures_and_failed_mounts_are_of_one_size(self):
        future = _Kel.entityFuture("/a", None)
        sizes = [type(future).__basicsize__]
        future.convertToFailedMount()
        sizes.append(type(future).__basicsize__)
        for name in ("Acme::Item", "Acme::Size", "Odd::Own", "Odd::SpecialNode", "Kel::Dir"):
            sizes.append(_Kel.pyType(_Kel.typeNode(name)).__basicsize__)
        self.assertEqual(sizes, [40] * len(sizes))

    def test_a_wrapper_has_no_dict_no_weak_references_and_is_not_collected(self):
        for wrapper in (acme.Item("a", 1), acme.Size(1), odd.Own()):
            self.assertFalse(hasattr(wrapper, "__dict__"))
            self.assertRaises(AttributeError, setattr, wrapper, "anything", 1)
            self.assertRaises(TypeError, weakref.ref, wrapper)
            self.assertFalse(gc.is_tracked(wrapper))

    def test_the_class_tells_kelType_and_attributes(self):
        item = acme.Item("a", 1)
        self.assertIs(item.kelType, _Kel.typeNode("Acme::Item"))
        self.assertEqual(item.attributes, acme.Item.attributes)
        self.assertEqual(item.attributes[-2:], ("unit", "describe"))
        for name in ("kelType", "attributes"):
            self.assertRaises(AttributeError, setattr, item, name, 1)


class Life(TestCase):

    def test_a_wrapper_keeps_its_object_and_lets_it_go(self):
        before = odd.Node.live
        node = odd.Node(1)
        self.assertEqual(odd.Node.live, before + 1)
        del node
        self.assertEqual(odd.Node.live, before)

    def test_a_wrapper_owns_one_reference_on_its_generic(self):
        node = odd.Node(1)
        self.assertEqual(kel_objects.genericReferences(node), 1)
        odd.Keeper().node = node
        repr(node), hash(node), node == node, node.value, node.peek(), _Kel.constPtr(node)
        self.assertEqual(kel_objects.genericReferences(node), 1)

    def test_each_wrapper_of_one_object_is_new_and_counts(self):
        node = odd.Node(1)
        count = node.kelSmartPointerReferences()
        views = [_Kel.constPtr(node) for _ in range(3)]
        self.assertEqual(node.kelSmartPointerReferences(), count + 3)
        del views
        self.assertEqual(node.kelSmartPointerReferences(), count)

    def test_an_object_lives_on_in_the_runtime_without_its_wrapper(self):
        keeper = odd.Keeper()
        keeper.node = odd.Node(5)
        self.assertEqual(keeper.node.id, 5)

    def test_a_wrapper_made_from_a_bare_object_is_non_const(self):
        node = _Kel.constPtr(odd.SpecialNode(1))
        made = kel_objects.fromPtrInterface(node)
        self.assertIs(type(made), odd.SpecialNode)
        self.assertEqual(made, node)
        self.assertFalse(_Kel.isConst(made))

    def test_the_class_is_the_dynamic_type_whatever_was_asked(self):
        car = odd.Vehicle("car")
        self.assertIs(type(car), odd.Car)
        self.assertIs(type(odd.Vehicle("cart")), odd.Vehicle)


class Truth(TestCase):

    def test_every_pointer_object_is_true(self):
        for wrapper in (acme.Item("", 0), odd.Node(0), odd.Own(), _Kel.constPtr(odd.Coll()),
                        odd.Car()):
            self.assertIs(bool(wrapper), True)


class Comparison(TestCase):

    def test_equality_is_identity_of_the_object_whatever_the_view(self):
        for one, other in ((odd.Node(1), odd.Node(1)), (acme.Item("a", 1), acme.Item("a", 1)),
                           (odd.Own(), odd.Own())):
            again = _Kel.constPtr(one)
            self.assertIsNot(one, again)
            self.assertTrue(one == again and again == one)
            self.assertFalse(one != again)
            self.assertFalse(one == other)
            self.assertTrue(one != other)
            self.assertEqual(hash(one), hash(again))

    def test_equal_through_a_base_is_equal(self):
        keeper = odd.Keeper()
        special = odd.SpecialNode(1)
        keeper.node = special
        self.assertEqual(keeper.node, special)

    def test_entities_sort_by_their_full_names(self):
        names = ["b", "a", "ab", "B", "", "a/b"]
        items = [acme.Item(name, 1) for name in names]
        things = [acme.Thing(name) for name in names]
        for left in items + things:
            for right in things + items:
                for compare in (operator.lt, operator.le, operator.gt, operator.ge):
                    self.assertEqual(compare(left, right), compare(left.fullName, right.fullName))

    def test_entities_in_directories_sort_by_their_paths(self):
        inner = kel_objects.createEntity("/", "Acme::Shelf", "wrapper-order")
        first = kel_objects.createEntity("/wrapper-order", "Acme::Thing", "a")
        second = acme.Thing("b")
        try:
            self.assertEqual(first.fullName, "/wrapper-order/a")
            self.assertTrue(inner < first < second)
            self.assertTrue(second >= first >= inner)
        finally:
            del inner, first
            kel_objects.deleteEntity("/wrapper-order", "a")
            kel_objects.deleteEntity("/", "wrapper-order")

    def test_two_entities_of_one_name_are_neither_less_nor_greater_and_not_equal(self):
        one, other = acme.Thing("a"), acme.Item("a", 1)
        self.assertEqual([compare(one, other) for compare in OPERATORS],
                         [False, True, False, True, False, True])

    def test_other_objects_sort_by_address(self):
        nodes = [odd.Node(i) for i in range(4)] + [odd.Own(), acme.Item("a", 1)]
        for left in nodes[:-1]:
            for right in nodes:
                for compare in OPERATORS:
                    expected = compare(_Kel.addressOf(left), _Kel.addressOf(right))
                    self.assertIs(compare(left, right), expected)
                    self.assertIs(compare(right, left),
                                  compare(_Kel.addressOf(right), _Kel.addressOf(left)))

    def test_anything_but_a_pointer_object_on_the_right_is_left_to_Python(self):
        node = odd.Node(1)
        for other in NOT_WRAPPED + [acme.Size(1), odd.Empty(), _Kel.const(acme.Point())]:
            for name in ("__lt__", "__le__", "__eq__", "__ne__", "__gt__", "__ge__"):
                self.assertIs(getattr(node, name)(other), NotImplemented)
            self.assertIs(node == other, False)
            self.assertIs(node != other, True)


class Text(TestCase):

    def test_repr_is_the_runtimes_text(self):
        item = acme.Item("a", 1)
        self.assertEqual(repr(item), "entity('a')")
        self.assertRegexpMatches(repr(odd.Node(1)), r"\Ageneric\(0x[0-9a-f]+\)\Z")

    def test_str_tells_type_and_constness(self):
        item = acme.Item("a", 1)
        self.assertEqual(str(item), "<entity('a') of type Acme::Item (non-const)>")
        self.assertEqual(str(_Kel.constPtr(item)), "<entity('a') of type Acme::Item (const)>")
        node = _Kel.constPtr(odd.SpecialNode(1))
        self.assertEqual(str(node), "<%s of type Odd::SpecialNode (const)>" % repr(node))


class Hash(TestCase):

    def test_a_pointer_object_has_a_hash_of_32_bits(self):
        for wrapper in [odd.Node(i) for i in range(50)] + [odd.Own(), acme.Item("a", 1)]:
            self.assertTrue(0 <= hash(wrapper) < 2 ** 32)
            self.assertEqual(hash(wrapper), _Kel.hashOf(wrapper))
            self.assertEqual({wrapper: 1}[_Kel.constPtr(wrapper)], 1)

    def test_a_value_has_a_hash_when_it_is_const(self):
        for value in (acme.Size(5), acme.Name("a"), acme.Point(x=1), odd.Point3(z=2)):
            self.assertEqual(hash(_Kel.const(value)), _Kel.hashOf(value))
            self.assertTrue(0 <= hash(_Kel.const(value)) < 2 ** 32)
            self.assertEqual(hash(_Kel.const(value)), hash(_Kel.const(value)))

    def test_points_of_a_row_or_a_column_have_hashes_of_their_own(self):
        for places in [(n, 7) for n in range(100)], [(7, n) for n in range(100)]:
            points = []
            for x, y in places:
                points.append(acme.Point())
                points[-1].x, points[-1].y = x, y
            self.assertEqual(len(set(hash(_Kel.const(point)) for point in points)), 100)

    def test_a_value_that_can_change_is_unhashable(self):
        for value in (acme.Size(5), acme.Name("a"), _Kel.nonConst(_Kel.const(acme.Size(5))),
                      odd.Segment(acme.Point(), acme.Point()), odd.Empty()):
            text = "non-const %s objects are unhashable" % type(value).kelType.fullTypeName
            self.assertRefused(TypeError, text, hash, value)
            self.assertRefused(TypeError, text, lambda: {value: 1})
            self.assertIs(type(_Kel.hashOf(value)), int)

    def test_a_hash_of_all_ones_is_a_hash(self):
        self.assertEqual(hash(_Kel.const(acme.Size(2 ** 32 - 1))), 2 ** 32 - 1)
        self.assertEqual(_Kel.hashOf(acme.Size(2 ** 31)), 2 ** 31)


class References(TestCase):

    def test_they_are_a_long_below_the_mask(self):
        for wrapper in (odd.Node(1), acme.Item("a", 1), _Kel.constPtr(odd.Coll()), odd.Own()):
            count = wrapper.kelSmartPointerReferences()
            self.assertIs(type(count), long)
            self.assertTrue(1 <= count < 0x20000000)

    def test_they_are_those_that_the_object_counts(self):
        node = odd.Node(1)
        keeper = odd.Keeper()
        keeper.node = node
        self.assertEqual(node.kelSmartPointerReferences(), node.references())
        self.assertEqual(node.kelSmartPointerReferences(), 2)

    def test_the_mark_of_a_deleted_entity_is_no_reference(self):
        thing = kel_objects.createEntity("/", "Acme::Thing", "wrapper-zombie")
        self.assertEqual(thing.kelSmartPointerReferences(), 2)
        kel_objects.deleteEntity("/", "wrapper-zombie")
        self.assertEqual(thing.kelSmartPointerReferences(), 1)

    def test_values_have_none(self):
        for value in (acme.Size(1), _Kel.const(acme.Point()), odd.Holder()):
            self.assertRefused(
                NotImplementedError,
                "cannot get references for object of value, built-in or enum type",
                value.kelSmartPointerReferences)


class ConstViews(TestCase):

    def test_a_copy_of_a_value_is_always_new_and_has_the_asked_constness(self):
        for value in (acme.Size(5), _Kel.const(acme.Size(5))):
            for copy, is_const in ((_Kel.const, True), (_Kel.nonConst, False)):
                made = copy(value)
                self.assertIsNot(made, value)
                self.assertNotEqual(kel_objects.genericAddress(made),
                                    kel_objects.genericAddress(value))
                self.assertIs(_Kel.isConst(made), is_const)
                self.assertEqual(made, value)

    def test_a_copy_of_a_value_is_independent(self):
        point = acme.Point(x=1)
        copy = _Kel.nonConst(point)
        copy.x = 2
        self.assertEqual((point.x, copy.x), (1, 2))

    def test_a_copy_is_of_the_class_of_the_value(self):
        self.assertIs(type(_Kel.const(odd.Point3(z=1))), odd.Point3)
        self.assertEqual(_Kel.const(odd.Point3(z=1)).z, 1)

    def test_a_const_value_refuses_writes(self):
        self.assertRefused(
            AttributeError, 'Acme::Point.x: mutator: Kel::ConstException("cannot change '
            'Acme::Point.x of a const object")', setattr, _Kel.const(acme.Point()), "x", 1)

    def test_a_view_of_an_object_is_new_and_shows_the_same_object(self):
        for make in (lambda: odd.Node(1), lambda: acme.Item("a", 1), odd.Own, odd.Car):
            wrapper = make()
            for view, is_const in ((_Kel.constPtr, True), (_Kel.nonConstPtr, False)):
                for one in (wrapper, _Kel.constPtr(wrapper)):
                    made = view(one)
                    self.assertIsNot(made, one)
                    self.assertNotEqual(kel_objects.genericAddress(made),
                                        kel_objects.genericAddress(one))
                    self.assertEqual(made, wrapper)
                    self.assertIs(_Kel.isConst(made), is_const)
                    self.assertIs(type(made), type(wrapper))

    def test_a_non_const_view_of_a_const_pointer_writes(self):
        node = odd.Node(1)
        _Kel.nonConstPtr(_Kel.constPtr(node)).value = 7
        self.assertEqual(node.value, 7)
        own = odd.Own()
        _Kel.nonConstPtr(_Kel.constPtr(own)).n = 8
        self.assertEqual(own.n, 8)

    def test_reads_have_the_constness_of_the_attribute(self):
        node, other = odd.Node(1), odd.Node(2)
        node.next = node.constNext = other
        self.assertFalse(_Kel.isConst(node.next))
        self.assertTrue(_Kel.isConst(node.constNext))
        node.next = node.constNext = None

    def test_only_values_have_value_copies(self):
        for given in NOT_WRAPPED + [odd.Node(1), acme.Item("a", 1), odd.Own()]:
            for copy in (_Kel.const, _Kel.nonConst):
                self.assertRefused(TypeError, "expected a kelc-Python value object", copy, given)

    def test_only_objects_have_views(self):
        for given in NOT_WRAPPED + [acme.Size(1), odd.Empty(), _Kel.const(acme.Name("a"))]:
            for view in (_Kel.constPtr, _Kel.nonConstPtr):
                self.assertRefused(TypeError, "expected a non-value kelc-Python object",
                                   view, given)


class PointerArguments(TestCase):

    def test_None_is_null(self):
        for name in ("Acme::Item", "Kel::TraceFacility", "Kel::PyObjHandle"):
            self.assertEqual(kel_objects.pointerOrNull(None, _Kel.typeNode(name)), 0)
        self.assertEqual(kel_objects.traceFacilityOrNull(None), 0)

    def test_a_wrapper_of_the_type_or_a_derived_one_gives_the_address(self):
        item = acme.Item("a", 1)
        count = item.kelSmartPointerReferences()
        for name in ("Acme::Item", "Acme::Thing", "Kel::Entity"):
            self.assertEqual(kel_objects.pointerOrNull(item, _Kel.typeNode(name)),
                             _Kel.addressOf(item))
        self.assertEqual(item.kelSmartPointerReferences(), count)
        facility = _Kel.singleton("Kel::TraceFacility")
        self.assertEqual(kel_objects.traceFacilityOrNull(facility), _Kel.addressOf(facility))

    def test_anything_else_is_refused_with_the_type(self):
        for given in NOT_WRAPPED[1:] + [acme.Thing("a"), acme.Size(1)]:
            self.assertRefused(TypeError, "expected a Acme::Item or None",
                               kel_objects.pointerOrNull, given, _Kel.typeNode("Acme::Item"))
            self.assertRefused(TypeError, "expected a Kel::TraceFacility or None",
                               kel_objects.traceFacilityOrNull, given)
            self.assertRefused(TypeError, "expected a Kel::PyObjHandle or None",
                               kel_objects.pointerOrNull, given,
                               _Kel.typeNode("Kel::PyObjHandle"))


class Zoo(TestCase):

    def test_plain_objects_are_no_wrappers_to_any_function(self):
        for given in zoo.PLAIN_OBJECTS:
            self.assertIs(_Kel.isValue(given), False)
            for function in (_Kel.isConst, _Kel.hashOf):
                self.assertRefused(TypeError, "expected a kelc-Python object", function, given)
            self.assertRefused(TypeError, "expected a non-value kelc-Python object",
                               _Kel.addressOf, given)


if __name__ == "__main__":
    unittest.main()
