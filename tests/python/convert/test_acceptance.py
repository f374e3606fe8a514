"""Which Python objects pass for which scalar type: each cell of the table."""

import ctypes
import unittest

import _Kel
import kel_convert
import odd
from kel_testing import TestCase, refusal, zoo

REFUSED = object()


def integer(low, high):
    def expected(given):
        if type(given) in (int, long) and low <= given <= high:
            return int(given)
        return REFUSED
    return expected


def real(given):
    if type(given) not in (int, long, float):
        return REFUSED
    try:
        return float(given)
    except OverflowError:
        return REFUSED


def narrow_real(given):
    wide = real(given)
    return wide if wide is REFUSED else ctypes.c_float(wide).value


def boolean(given):
    return given if type(given) is bool else REFUSED


def character(given):
    return str(given) if isinstance(given, str) and len(given) == 1 else REFUSED


def text(given):
    if isinstance(given, str):
        return str(given)
    return given.encode("utf-8") if isinstance(given, unicode) else REFUSED


def octets(given):
    return str(given) if isinstance(given, (str, bytearray)) else REFUSED


def enum(constants):
    """`constants` are (name, value) in the order of the schema."""
    def expected(given):
        if isinstance(given, str):
            return self_name(given)
        if type(given) in (int, long):
            return next((name for name, value in constants if value == given), REFUSED)
        return REFUSED

    def self_name(given):
        values = [value for name, value in constants if name == given]
        return next((name for name, value in constants if value in values), REFUSED)
    return expected


def shown(constants):
    return " (%s)" % ", ".join("'%s'=%d" % constant for constant in constants)


def attribute_of(type_name):
    """The attribute of Odd::Scalars that is of that type."""
    return next(attr.name for attr in _Kel.typeNode("Odd::Scalars").attributeQ
                if attr.memberType.fullTypeName == type_name and attr.writable)


class ScalarTargets(TestCase):

    def check(self, type_name, expected, constants=()):
        kel_type = _Kel.typeNode(type_name)
        name = attribute_of(type_name)
        wanted = type_name + (shown(constants) if constants else "")
        for given in zoo.PLAIN_OBJECTS + zoo.wrappers().values():
            result = expected(given)
            if result is REFUSED:
                self.check_refused(given, kel_type, name, zoo.refused(wanted, given))
            else:
                self.check_taken(given, kel_type, name, result)

    def check_taken(self, given, kel_type, name, result):
        for convert in (kel_convert.toGeneric, kel_convert.toGenericWithoutGil):
            made = convert(given, kel_type, 0)
            # A constant by name is the runtime's own; all else is new and can be changed.
            is_constant = kel_type.isEnumType and isinstance(given, str)
            self.assertEqual(made[:2], (kel_type.fullTypeName, is_constant), given)
            self.check_same(made[3], result, given)
        scalars = odd.Scalars()
        setattr(scalars, name, given)
        self.check_same(getattr(scalars, name), result, given)

    def check_refused(self, given, kel_type, name, text):
        for convert in (kel_convert.toGeneric, kel_convert.toGenericWithoutGil):
            self.assertRefused(TypeError, text, convert, given, kel_type, 0)
        scalars = odd.Scalars()
        before = getattr(scalars, name)
        self.assertRefused(
            TypeError, "Odd::Scalars.%s: %s" % (name, text), setattr, scalars, name, given)
        self.check_same(getattr(scalars, name), before, given)

    def check_same(self, result, expected, given):
        # By repr, which tells a NaN and the sign of a zero.
        self.assertEqual((type(result), repr(result)), (type(expected), repr(expected)), given)

    def test_U8_takes_exactly_int_and_long_from_0_to_255(self):
        self.check("U8", integer(0, 255))

    def test_S8_takes_exactly_int_and_long_from_minus_128_to_127(self):
        self.check("S8", integer(-128, 127))

    def test_U16_takes_exactly_int_and_long_of_its_range(self):
        self.check("U16", integer(0, 65535))

    def test_S16_takes_exactly_int_and_long_of_its_range(self):
        self.check("S16", integer(-32768, 32767))

    def test_U32_takes_exactly_int_and_long_of_its_range(self):
        self.check("U32", integer(0, 2 ** 32 - 1))

    def test_S32_takes_exactly_int_and_long_of_its_range(self):
        self.check("S32", integer(-2 ** 31, 2 ** 31 - 1))

    def test_U64_takes_exactly_int_and_long_of_its_range(self):
        self.check("U64", integer(0, 2 ** 64 - 1))

    def test_S64_takes_exactly_int_and_long_of_its_range(self):
        self.check("S64", integer(-2 ** 63, 2 ** 63 - 1))

    def test_bool_takes_exactly_bool(self):
        self.check("bool", boolean)

    def test_char_takes_a_str_of_length_1(self):
        self.check("char", character)

    def test_float_takes_numbers_and_narrows_them_without_a_range_test(self):
        self.check("float", narrow_real)

    def test_double_takes_exactly_int_long_and_float(self):
        self.check("double", real)

    def test_Seconds_take_exactly_int_long_and_float(self):
        self.check("Kel::Seconds", real)

    def test_String_takes_str_and_unicode_as_utf_8_with_their_zero_bytes(self):
        self.check("Kel::String", text)

    def test_Bytes_take_str_and_bytearray(self):
        self.check("Kel::Bytes", octets)

    def check_enum(self, type_name, *constants):
        self.check(type_name, enum(constants), constants)

    def test_an_enum_of_U8_takes_names_and_numbers_of_its_constants(self):
        self.check_enum("Acme::Color", ("red", 0), ("blue", 1))

    def test_an_enum_of_S8_takes_names_and_numbers_of_its_constants(self):
        self.check_enum("Odd::ES8", ("low", -128), ("none", 0), ("high", 127))

    def test_an_enum_of_U16_takes_names_and_numbers_of_its_constants(self):
        self.check_enum("Odd::EU16", ("zero", 0), ("top", 65535))

    def test_an_enum_of_S16_takes_names_and_numbers_of_its_constants(self):
        self.check_enum("Odd::ES16", ("low", -32768), ("high", 32767))

    def test_an_enum_of_U32_takes_names_and_numbers_of_its_constants(self):
        self.check_enum("Odd::EU32", ("zero", 0), ("top", 2 ** 32 - 1))

    def test_an_enum_of_S32_takes_names_and_numbers_of_its_constants(self):
        self.check_enum("Odd::ES32", ("low", -2 ** 31), ("high", 2 ** 31 - 1))

    def test_an_enum_of_U64_takes_names_and_numbers_of_its_constants(self):
        self.check_enum("Odd::EU64", ("zero", 0), ("mid", 2 ** 63 - 1), ("top", 2 ** 64 - 1))

    def test_an_enum_of_S64_takes_names_and_numbers_of_its_constants(self):
        self.check_enum("Odd::ES64", ("low", -2 ** 63), ("high", 2 ** 63 - 1))

    def test_an_enum_with_two_names_of_one_number_reads_as_the_earlier(self):
        self.check_enum("Odd::Twin", ("first", 1), ("second", 1), ("other", 2))


class Optional(TestCase):

    def test_None_is_null_for_an_optional_of_any_type_and_refused_for_others(self):
        for name in ("U8", "bool", "char", "double", "Kel::String", "Acme::Color", "Acme::Size",
                     "Acme::Point", "Odd::PyText", "Odd::BadName", "Odd::Node", "Odd::Own"):
            self.assertIsNone(kel_convert.toGeneric(None, _Kel.typeNode(name), 1), name)
        self.assertIsNotNone(refusal(kel_convert.toGeneric, None, _Kel.typeNode("U8"), 0))

    def test_an_optional_attribute_takes_None_and_its_values(self):
        scalars = odd.Scalars()
        scalars.maybe = 5
        self.assertEqual(scalars.maybe, 5)
        scalars.maybe = None
        self.assertIsNone(scalars.maybe)
        scalars.maybeSize = 7
        self.assertEqual(scalars.maybeSize, 7)
        scalars.maybeSize = None
        self.assertIsNone(scalars.maybeSize)

    def test_a_subclass_of_str_that_lies_about_its_length_is_taken_by_its_bytes(self):
        class Liar(str):
            def __len__(self):
                return 1

            def __str__(self):
                return "x"
        self.assertIsNotNone(refusal(kel_convert.toGeneric, Liar("ab"), _Kel.typeNode("char"), 0))
        self.assertEqual(
            kel_convert.toGeneric(Liar("ab"), _Kel.typeNode("Kel::String"), 0)[3], "ab")


if __name__ == "__main__":
    unittest.main()
