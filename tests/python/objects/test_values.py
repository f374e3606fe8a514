"""What values do in Python: text, comparison, truth, numbers, copies, and their gNMI forms."""

import copy
import operator
import unittest

import _Kel
import acme
import kel_counted  # noqa: it registers a type as it loads
import kel_objects
import odd
from kel_testing import TestCase

Number = _Kel.pyType(_Kel.typeNode("Counted::Number"))
Size = acme.Size


class Repr(TestCase):

    def test_it_lists_the_domain_attributes_with_inherited_ones_first(self):
        self.assertEqual(repr(acme.Point(x=1, y=-2)),
                         "Value('Acme::Point', ** {'x': 1, 'y': -2})")
        self.assertEqual(repr(odd.Point3(x=1, z=3)),
                         "Value('Odd::Point3', ** {'x': 1, 'y': 0, 'z': 3})")

    def test_a_value_without_domain_attributes_shows_empty_braces(self):
        self.assertEqual(repr(odd.Empty()), "Value('Odd::Empty', ** {})")
        self.assertEqual(repr(odd.Tags()), "Value('Odd::Tags', ** {})")

    def test_attributes_outside_of_the_domain_are_not_shown(self):
        self.assertEqual(repr(odd.QuietHolder(n=2)), "Value('Odd::QuietHolder', ** {'n': 2})")
        self.assertEqual(repr(odd.OneDomain(other=5)), "Value('Odd::OneDomain', ** {'value': 0})")
        self.assertEqual(repr(odd.Boxed()), "Value('Odd::Boxed', ** {'inner': 0})")

    def test_a_long_has_no_L_a_text_is_its_repr_and_bytes_have_a_b(self):
        payload = odd.Payload(data="a\0'", n=2 ** 64 - 1, text="x\n")
        self.assertEqual(repr(payload), "Value('Odd::Payload', ** {'data': b\"a\\x00'\", "
                                        "'n': 18446744073709551615, 'text': 'x\\n'})")
        self.assertEqual(repr(odd.Payload(n=5)),
                         "Value('Odd::Payload', ** {'data': b'', 'n': 5, 'text': ''})")

    def test_a_nested_value_shows_its_own_repr_and_an_object_its_own(self):
        node = odd.Node(1)
        self.assertEqual(repr(odd.Nest(holder=odd.Holder())),
                         "Value('Odd::Nest', ** {'holder': Value('Odd::Holder', ** "
                         "{'node': None})})")
        self.assertEqual(repr(odd.Holder(node=node)),
                         "Value('Odd::Holder', ** {'node': %r})" % node)

    def test_a_union_shows_exactly_its_live_alternative(self):
        shape = odd.Shape()
        self.assertEqual(repr(shape), "Value('Odd::Shape', ** {'circle': 0})")
        shape.square = acme.Point(x=1)
        self.assertEqual(repr(shape), "Value('Odd::Shape', ** {'square': "
                                      "Value('Acme::Point', ** {'x': 1, 'y': 0})})")
        shape.circle = 3
        self.assertEqual(repr(shape), "Value('Odd::Shape', ** {'circle': 3})")

    def test_each_item_is_an_ordinary_read_that_counts(self):
        before = _Kel.attributeAccessorCount()
        repr(acme.Point())
        self.assertEqual(_Kel.attributeAccessorCount() - before, 2)

    def test_a_read_that_fails_ends_it(self):
        self.assertRefused(SystemError, 'Odd::Thrower.value: Kel::InternalException("read")',
                           repr, odd.Thrower())

    def test_a_repr_that_fails_ends_it_and_one_with_a_NUL_is_cut(self):
        self.assertEqual(repr(odd.PyText(source="1\0")), "Value('Odd::PyText', ** "
                                                         "{'source': '1\\x00'})")

    def test_str_is_the_runtimes_text(self):
        self.assertEqual(str(Size(3)), "Acme::Size(value=3)")
        self.assertEqual(str(acme.Name("a\0b")), "a\0b")
        self.assertEqual(str(_Kel.const(acme.Point(x=1))), "Acme::Point(x=1, y=0)")


class Truth(TestCase):

    def test_it_is_the_runtimes(self):
        self.assertIs(bool(Size(0)), False)
        self.assertIs(bool(Size(7)), True)
        self.assertIs(bool(_Kel.const(Size(7))), True)

    def test_a_type_without_it_is_refused(self):
        for value in (acme.Point(), odd.Segment(), odd.Empty(), odd.ColorSet()):
            text = "%s does not support __nonzero__" % value.kelType.fullTypeName
            self.assertRefused(TypeError, text, bool, value)


class Comparison(TestCase):

    def test_all_six_operators_follow_the_runtimes_two(self):
        for left in range(3):
            for right in range(3):
                for compare in (operator.lt, operator.le, operator.eq, operator.ne, operator.gt,
                                operator.ge):
                    expected = compare(left, right)
                    self.assertIs(compare(Size(left), Size(right)), expected)
                    self.assertIs(compare(_Kel.const(Size(left)), Size(right)), expected)

    def assertOps(self, expected, compare, left, right):
        Number.log()
        result = compare(Number(left), Number(right))
        self.assertEqual((Number.log(), result), (expected, compare(left, right)))

    def test_each_operator_makes_just_the_calls_of_the_table(self):
        for left, right in ((1, 2), (2, 1), (1, 1)):
            self.assertOps("less", operator.lt, left, right)
            self.assertOps("less", operator.gt, left, right)
            self.assertOps("equal", operator.eq, left, right)
            self.assertOps("equal", operator.ne, left, right)
            self.assertOps("less" if left < right else "less equal", operator.le, left, right)
            self.assertOps("less" if left > right else "less equal", operator.ge, left, right)

    def test_greater_asks_whether_the_right_one_is_less(self):
        self.assertOps("less-negative", operator.gt, 1, -1)
        self.assertOps("less", operator.gt, -1, 1)
        self.assertOps("less-negative", operator.ge, 1, -1)
        self.assertOps("less equal-negative", operator.ge, -1, 1)

    def test_all_others_ask_in_the_order_of_the_operands(self):
        self.assertOps("less-negative", operator.lt, -1, 1)
        self.assertOps("less equal", operator.le, 1, -1)
        self.assertOps("equal-negative", operator.eq, -1, 1)
        self.assertOps("equal-negative", operator.ne, -1, 1)

    def test_other_classes_do_not_compare_and_the_runtime_is_not_asked(self):
        point = acme.Point()
        for other in (odd.Point3(), Size(0), odd.Node(1), 0, None, "x", object()):
            for name in ("__lt__", "__le__", "__eq__", "__ne__", "__gt__", "__ge__"):
                self.assertIs(getattr(point, name)(other), NotImplemented)
            self.assertIs(point == other, False)
            self.assertIs(point != other, True)
        self.assertIs(odd.Point3() == point, False)
        Number.log()
        Number(1) == 1, Number(1) < Size(2)
        self.assertEqual(Number.log(), "")

    def test_a_lacking_operator_is_refused(self):
        for compare in (operator.lt, operator.le, operator.eq, operator.ne, operator.gt,
                        operator.ge):
            self.assertRefused(TypeError, "Odd::Segment does not support operator",
                               compare, odd.Segment(), odd.Segment())
        for compare in (operator.lt, operator.le, operator.gt, operator.ge):
            self.assertRefused(TypeError, "Odd::Empty does not support operator",
                               compare, odd.Empty(), odd.Empty())
        self.assertTrue(odd.Empty() == odd.Empty())
        self.assertFalse(odd.Empty() != odd.Empty())


class Numbers(TestCase):

    def test_the_operators_are_the_runtimes_and_give_what_a_read_would(self):
        seven, two = Size(7), Size(2)
        for function, expected in ((operator.add, 9), (operator.sub, 5), (operator.mul, 14),
                                   (operator.div, 3), (operator.floordiv, 3),
                                   (operator.truediv, 3), (operator.mod, 1), (operator.and_, 2),
                                   (operator.or_, 7), (operator.xor, 5)):
            result = function(seven, two)
            self.assertEqual((type(result), result), (int, expected))
            self.assertEqual(function(_Kel.const(seven), two), expected)
        self.assertEqual(~seven, 2 ** 32 - 8)

    def test_the_three_divisions_are_one_operation(self):
        for divide in (operator.div, operator.floordiv, operator.truediv):
            Number.log()
            divide(Number(1), Number(2))
            self.assertEqual(Number.log(), "divide")

    def test_a_result_without_default_attribute_is_a_new_wrapper(self):
        total = acme.Point(x=1) + acme.Point(y=2)
        self.assertIs(type(total), acme.Point)
        self.assertEqual((total.x, total.y), (1, 2))
        self.assertEqual((odd.Point3(z=5) - odd.Point3(z=2)).z, 3)
        both = odd.ColorSet(red=True) | odd.ColorSet(blue=True)
        self.assertTrue(both.red and both.blue)
        self.assertTrue((~odd.ColorSet()).red)

    def test_an_in_place_operator_binds_a_new_object(self):
        point = kept = acme.Point(x=1)
        point += acme.Point(x=2)
        self.assertEqual((point.x, kept.x), (3, 1))

    def test_a_lacking_operator_is_Pythons_own_refusal(self):
        point = acme.Point()
        for function, sign in ((operator.mul, "*"), (operator.div, "/"), (operator.mod, "%"),
                               (operator.and_, "&"), (operator.or_, "|"), (operator.xor, "^"),
                               (operator.floordiv, "//"), (operator.truediv, "/")):
            self.assertRefused(
                TypeError, "unsupported operand type(s) for %s: 'Acme::Point' and 'Acme::Point'"
                % sign, function, point, point)

    def test_a_lacking_inversion_is_refused_with_the_type(self):
        for value in (acme.Point(), odd.Segment(), acme.Name("a")):
            self.assertRefused(TypeError, "bad operand type for unary ~: %s" %
                               value.kelType.fullTypeName, operator.inv, value)

    def test_other_operand_types_are_left_to_Python(self):
        for other, name in ((1, "int"), (2L, "long"), (1.5, "float"), (acme.Point(), "Acme::Point"),
                            (None, "NoneType"), (odd.Node(1), "Odd::Node")):
            self.assertRefused(
                TypeError, "unsupported operand type(s) for +: 'Acme::Size' and '%s'" % name,
                operator.add, Size(1), other)
            self.assertRefused(
                TypeError, "unsupported operand type(s) for +: '%s' and 'Acme::Size'" % name,
                operator.add, other, Size(1))
        self.assertRaises(TypeError, operator.add, odd.Point3(), acme.Point())
        for name in ("__add__", "__radd__", "__sub__"):
            self.assertIs(getattr(acme.Point(), name)(odd.Point3()), NotImplemented)

    def test_there_are_no_other_number_operations(self):
        size = Size(1)
        for function in (operator.neg, operator.pos, abs, int, long, float, operator.index):
            self.assertRaises(TypeError, function, size)
        for function in (operator.pow, operator.lshift, operator.rshift, divmod):
            self.assertRaises(TypeError, function, size, size)

    def test_a_failure_of_the_runtime_is_told_for_the_type(self):
        for divide in (operator.div, operator.floordiv, operator.truediv, operator.mod):
            self.assertRefused(IndexError, 'Acme::Size: Kel::RangeException("division by zero")',
                               divide, Size(1), Size(0))


class Copies(TestCase):

    def test_a_const_value_is_its_own_copy(self):
        for value in (_Kel.const(Size(1)), _Kel.const(odd.Segment())):
            self.assertIs(copy.copy(value), value)
            self.assertIs(copy.deepcopy(value), value)

    def test_a_value_that_can_change_is_copied(self):
        point = acme.Point(x=1)
        for made in (copy.copy(point), copy.deepcopy(point)):
            self.assertIsNot(made, point)
            self.assertEqual(made, point)
            self.assertFalse(_Kel.isConst(made))
            made.x = 5
            self.assertEqual(point.x, 1)

    def test_an_object_cannot_be_copied(self):
        for wrapper in (odd.Node(1), acme.Item("a", 1), odd.Own(), _Kel.constPtr(odd.Coll())):
            name = wrapper.kelType.fullTypeName
            self.assertRefused(TypeError, "%s objects cannot be copied" % name, copy.copy, wrapper)
            self.assertRefused(TypeError, "%s objects cannot be deep copied" % name,
                               copy.deepcopy, wrapper)

    def test_a_value_with_a_pointer_in_its_domain_is_copied_but_not_deeply(self):
        node = odd.Node(1)
        for value in (odd.Holder(node=node), odd.Nest(holder=odd.Holder(node=node)), odd.Holder()):
            name = value.kelType.fullTypeName
            self.assertEqual(copy.copy(value), value)
            for one in (value, _Kel.const(value)):
                self.assertRefused(TypeError, "%s objects cannot be deep copied" % name,
                                   copy.deepcopy, one)

    def test_a_pointer_outside_of_the_domain_does_not_hinder_it(self):
        value = odd.QuietHolder(node=odd.Node(1), n=2)
        self.assertEqual(copy.deepcopy(value).n, 2)

    def test_the_methods_take_what_copy_passes(self):
        point = acme.Point(x=1)
        self.assertEqual(point.__copy__(), point)
        self.assertEqual(point.__deepcopy__({}), point)
        self.assertEqual(point.__deepcopy__("any memo"), point)
        self.assertRaises(TypeError, point.__copy__, 1)
        self.assertRaises(TypeError, point.__deepcopy__)

    def test_a_copy_is_no_instance_to_the_hook(self):
        calls = []
        point = acme.Point()
        _Kel.newInstanceHookIs(calls.append)
        try:
            copy.copy(point), copy.deepcopy(point)
        finally:
            _Kel.newInstanceHookIs(None)
        self.assertEqual(calls, [])


class Gnmi(TestCase):

    def test_a_text_is_cut_at_its_first_NUL_and_bytes_are_not(self):
        payload = odd.Payload(text="a\0b", data="c\0d\0")
        self.assertEqual(payload.valueToGnmiString(), "a")
        self.assertEqual(payload.valueToGnmiBytes(), "c\0d\0")

    def test_every_wrapper_has_both(self):
        for wrapper in (acme.Point(), odd.Node(1), acme.Item("a", 1), odd.Own()):
            self.assertIsInstance(wrapper.valueToGnmiString(), str)
            self.assertIsInstance(wrapper.valueToGnmiBytes(), str)

    def test_JSON_keeps_NUL_bytes(self):
        self.assertEqual(_Kel.gnmiJsonString(odd.Payload(raw="r\0s"), "raw"), "r\0s")
        values = odd.Values()
        values.json = acme.Point(x=1, y=2)
        self.assertEqual(_Kel.gnmiJsonString(values, "json"), '{"x":1,"y":2}')

    def test_JSON_of_a_foreign_object_is_refused(self):
        for given, name in ((5, "int"), (None, "NoneType"), (acme.Point, "_Kel.Type"),
                            (_Kel.entityFuture("/a", None), "_Kel.EntityFuture")):
            self.assertRefused(
                AttributeError,
                "first argument was expected to be kelc-Python object, got '%s'" % name,
                _Kel.gnmiJsonString, given, "x")

    def test_JSON_of_an_unknown_attribute_or_of_one_without_it_is_refused(self):
        values = odd.Values()
        self.assertRefused(AttributeError, "'Odd::Values' object has no attribute 'nothing'",
                           _Kel.gnmiJsonString, values, "nothing")
        self.assertRefused(NotImplementedError, "'point' attribute has no gnmiJsonString function",
                           _Kel.gnmiJsonString, values, "point")

    def test_the_methods_of_an_object_that_failed_are_refused(self):
        entity = kel_objects.createEntity("/", "Acme::Thing", "values-gnmi")
        text, octets = entity.valueToGnmiString, entity.valueToGnmiBytes
        _Kel.convertEntityToFailedMount(entity)
        self.assertRaises(TypeError, text)
        self.assertRaises(TypeError, octets)
        kel_objects.deleteEntity("/", "values-gnmi")


if __name__ == "__main__":
    unittest.main()
