"""What runtime values are in Python."""

import struct
import sys
import unittest

import _Kel
import acme
import kel_convert
import odd
from kel_testing import TestCase


def through(given, type_name, default=1):
    return kel_convert.throughGeneric(given, _Kel.typeNode(type_name), default)


class Natives(TestCase):

    def test_null_is_None_with_a_new_reference(self):
        before = sys.getrefcount(None)
        results = [kel_convert.nullToPython(flag) for flag in (True, False) * 50]
        self.assertEqual(results, [None] * 100)
        self.assertGreaterEqual(sys.getrefcount(None), before + 100)

    def test_a_handle_of_nothing_on_a_type_with_its_own_interface_is_None(self):
        for default in (0, 1):
            self.assertIsNone(through(None, "Odd::Own", default))
        self.assertIsNone(odd.Keeper().own)
        self.assertIsNone(odd.Keeper().getRawAttribute("own"))
        self.assertIsInstance(through(odd.Own(), "Odd::Own"), odd.Own)

    def test_integers_are_int_at_both_ends(self):
        ends = {"U8": (0, 255), "S8": (-128, 127), "U16": (0, 65535), "S16": (-32768, 32767),
                "U32": (0, 2 ** 32 - 1), "S32": (-2 ** 31, 2 ** 31 - 1),
                "S64": (-2 ** 63, 2 ** 63 - 1), "U64": (0, 2 ** 63 - 1)}
        for name, both in ends.items():
            for number in both:
                result = through(number, name)
                self.assertEqual((type(result), result), (int, number))

    def test_U64_from_2_to_the_63rd_is_long(self):
        for number in (2 ** 63, 2 ** 64 - 1):
            result = through(number, "U64")
            self.assertEqual((type(result), result), (long, number))

    def test_bool_char_and_texts(self):
        self.assertIs(through(True, "bool"), True)
        self.assertIs(through(False, "bool"), False)
        for byte in ("\0", "a", "\xff"):
            self.assertEqual(through(byte, "char"), byte)
        for text in ("", "a", "\0", "a\0b", "\xc3\xa4"):
            for name in ("Kel::String", "Kel::Bytes"):
                result = through(text, name)
                self.assertEqual((type(result), result), (str, text))

    def test_unicode_comes_back_as_the_bytes_of_its_utf_8(self):
        self.assertEqual(through(u"\u20ac\0", "Kel::String"), "\xe2\x82\xac\0")

    def test_a_float_is_widened_and_not_rounded_to_a_shorter_decimal(self):
        self.assertEqual(through(0.1, "float"), struct.unpack("f", struct.pack("f", 0.1))[0])
        self.assertNotEqual(through(0.1, "float"), 0.1)
        self.assertEqual(through(0.1, "double"), 0.1)
        self.assertEqual(through(1e300, "float"), float("inf"))
        self.assertEqual(through(2.5, "Kel::Seconds"), 2.5)

    def test_natives_and_enums_are_the_same_without_default_attributes(self):
        for given, name in ((5, "U8"), (True, "bool"), ("a", "char"), (1.5, "double"),
                            ("x", "Kel::String"), ("x", "Kel::Bytes"), (1.5, "Kel::Seconds"),
                            ("red", "Acme::Color")):
            self.assertEqual(through(given, name, 0), given)
            self.assertIs(type(through(given, name, 0)), type(given))


class Enums(TestCase):

    def test_a_constant_is_the_identical_interned_name_each_time(self):
        scalars = odd.Scalars()
        self.assertEqual(scalars.color, "red")
        self.assertIs(scalars.color, scalars.color)
        self.assertIs(scalars.color, intern("red"))
        self.assertIs(scalars.color, acme.Color.red)

    def test_a_number_without_a_constant_reads_as_type_and_number(self):
        scalars = odd.Scalars()
        self.assertEqual(scalars.rawColor(7), "Acme::Color(7)")
        self.assertEqual(scalars.rawColor(255), "Acme::Color(255)")
        self.assertEqual(scalars.rawES32(-5), "Odd::ES32(-5)")
        self.assertEqual(scalars.rawEU64(2 ** 64 - 2), "Odd::EU64(18446744073709551614)")
        self.assertEqual(scalars.rawES64(-2 ** 63 + 1), "Odd::ES64(-9223372036854775807)")

    def test_every_width_behaves_alike(self):
        widths = {"Acme::Color": (0, 255), "Odd::ES8": (-128, 127), "Odd::EU16": (0, 2 ** 16 - 1),
                  "Odd::ES16": (-2 ** 15, 2 ** 15 - 1), "Odd::EU32": (0, 2 ** 32 - 1),
                  "Odd::ES32": (-2 ** 31, 2 ** 31 - 1), "Odd::EU64": (0, 2 ** 64 - 1),
                  "Odd::ES64": (-2 ** 63, 2 ** 63 - 1)}
        for name, (low, high) in widths.items():
            kel_type = _Kel.typeNode(name)
            constants = dict((attr.enumValue, attr.name) for attr in kel_type.attributeQ)
            for number in (low, low + 1, 0, 1, 100, high - 1, high):
                if number in constants:
                    self.assertIs(kel_convert.enumText(kel_type, number), constants[number])
                else:
                    self.assertEqual(kel_convert.enumText(kel_type, number),
                                     "%s(%d)" % (name, number))

    def test_of_two_constants_with_one_number_the_earlier_gives_the_name(self):
        scalars = odd.Scalars()
        scalars.twin = "second"
        self.assertEqual(scalars.twin, "first")
        scalars.twin = 2
        self.assertEqual(scalars.twin, "other")

    def test_what_is_read_can_be_written_back(self):
        scalars = odd.Scalars()
        for attr in _Kel.typeNode("Odd::Scalars").attributeQ:
            if attr.writable:
                setattr(scalars, attr.name, getattr(scalars, attr.name))


class Values(TestCase):

    def test_a_value_with_default_attribute_reads_as_that_attribute(self):
        self.assertEqual(through(5, "Acme::Size"), 5)
        self.assertEqual(through("a", "Acme::Name"), "a")
        self.assertEqual(through(5, "Odd::OneDomain"), 5)

    def test_default_attributes_chain_until_a_type_without_one(self):
        self.assertEqual(through(6, "Odd::Boxed"), 6)
        self.assertEqual(through(6, "Odd::MoreBoxed"), 6)

    def test_an_absent_default_attribute_is_None(self):
        self.assertIsNone(odd.Values().maybeBoxed)
        self.assertIsNone(through(None, "Odd::MaybeBoxed"))

    def test_without_default_attributes_a_value_is_its_wrapper(self):
        for given, name in ((5, "Acme::Size"), ("a", "Acme::Name"), (6, "Odd::Boxed"),
                            (7, "Odd::PyText")):
            result = through(given, name, 0)
            self.assertIs(type(result), _Kel.pyType(_Kel.typeNode(name)))

    def test_a_value_without_default_attribute_is_a_new_wrapper_each_time(self):
        values = odd.Values()
        first, second = values.point, values.point
        self.assertIsNot(first, second)
        self.assertEqual(first, second)
        self.assertIs(type(first), acme.Point)

    def test_the_dynamic_type_decides_the_class(self):
        keeper = odd.Keeper()
        keeper.node = odd.SpecialNode(1)
        self.assertEqual(_Kel.typeNode("Odd::Keeper").attr("node").memberType.fullTypeName,
                         "Odd::Node")
        self.assertIs(type(keeper.node), odd.SpecialNode)
        self.assertIs(type(odd.Node.make("special", 1)), odd.SpecialNode)
        self.assertIs(type(odd.Node.make("plain", 1)), odd.Node)
        self.assertIsNone(odd.Node.make("none", 1))

    def test_two_reads_of_one_object_are_two_wrappers_that_are_equal(self):
        keeper = odd.Keeper()
        keeper.node = odd.Node(1)
        self.assertIsNot(keeper.node, keeper.node)
        self.assertEqual(keeper.node, keeper.node)

    def test_a_failed_read_of_the_default_attribute_is_told_for_the_type(self):
        values = odd.Values()
        values.thrower = 5
        for _ in range(2):
            self.assertRefused(SystemError, 'Odd::Thrower: Kel::InternalException("read")',
                               getattr, values, "thrower")
        self.assertIs(type(values.getRawAttribute("thrower")), odd.Thrower)

    def test_a_bad_declaration_raises_at_each_read(self):
        values = odd.Values()
        for attr, text in (
                ("badStatic", "illegal defaultAttribute in type Odd::BadStatic"),
                ("badKind", "illegal defaultAttribute in type Odd::BadKind"),
                ("badColl", "illegal defaultAttribute in type Odd::BadColl"),
                ("badFunc", "illegal defaultAttribute in type Odd::BadFunc"),
                ("badName", "defaultAttribute 'nothing' not found in type Odd::BadName"),
                ("badRepr", "defaultReprAttribute 'number' in type Odd::BadRepr not of required "
                            "type Kel::String")):
            name = "Odd::" + attr[0].upper() + attr[1:]
            for _ in range(3):
                self.assertRefused(TypeError, '%s: Kel::TypeException("%s")' % (name, text),
                                   getattr, values, attr)
            self.assertEqual(values.getRawAttribute(attr).kelType.fullTypeName, name)

    def test_unions_bit_sets_and_values_without_attributes_are_wrappers(self):
        values = odd.Values()
        self.assertIs(type(values.shape), odd.Shape)
        self.assertIs(type(values.colorSet), odd.ColorSet)
        self.assertIs(type(values.empty), odd.Empty)


class SourceText(TestCase):

    def test_a_python_object_travels_as_its_repr(self):
        values = odd.Values()
        for given in ((1, "a"), [1, [2]], {"a": (None, 1.5)}, None, True, "x", u"\u20ac", 2 ** 70):
            values.pyText = given
            self.assertEqual(values.pyText, given)
            self.assertEqual(values.getRawAttribute("pyText").source, repr(given))

    def test_the_text_is_evaluated_with_the_names_of_the_reader(self):
        values = odd.Values()
        set_source(values, "local + GLOBAL")
        local = 41  # the evaluation sees it
        self.assertEqual(values.pyText, local + GLOBAL)
        set_source(values, "sys.maxint")
        self.assertEqual(values.pyText, sys.maxint)
        set_source(values, "no_such_name")
        self.assertRefused(NameError, "name 'no_such_name' is not defined",
                           lambda: values.pyText)

    def test_a_text_that_is_no_expression_raises_the_SyntaxError_of_the_evaluation(self):
        values = odd.Values()
        for source in ("1 +", "x = 1", "", "<odd.Thing object>"):
            set_source(values, source)
            self.assertRaises(SyntaxError, lambda: values.pyText)
            self.assertEqual(values.getRawAttribute("pyText").source, source)

    def test_an_exception_of_the_evaluation_stands(self):
        values = odd.Values()
        set_source(values, "1 / 0")
        self.assertRefused(ZeroDivisionError, "integer division or modulo by zero",
                           lambda: values.pyText)

    def test_the_repr_of_a_value_may_come_back_through_the_namespace(self):
        values = odd.Values()
        values.pyText = acme.Point(x=1)
        self.assertEqual(values.getRawAttribute("pyText").source,
                         "Value('Acme::Point', ** {'x': 1, 'y': 0})")
        Value = lambda name, **attributes: (name, attributes)  # noqa: the evaluation calls it
        self.assertEqual(values.pyText, Value("Acme::Point", x=1, y=0))


GLOBAL = 1


class Source(object):
    """An object whose repr is any text."""

    def __init__(self, text):
        self.text = text

    def __repr__(self):
        return self.text


def set_source(values, text):
    values.pyText = Source(text)


if __name__ == "__main__":
    unittest.main()
