"""Integers and enum constants: the ends of each width, and the texts of refusals."""

import unittest

import _Kel
import kel_convert
import odd
from kel_testing import TestCase, zoo

WIDTHS = {
    "U8": (0, 2 ** 8 - 1), "S8": (-2 ** 7, 2 ** 7 - 1),
    "U16": (0, 2 ** 16 - 1), "S16": (-2 ** 15, 2 ** 15 - 1),
    "U32": (0, 2 ** 32 - 1), "S32": (-2 ** 31, 2 ** 31 - 1),
    "U64": (0, 2 ** 64 - 1), "S64": (-2 ** 63, 2 ** 63 - 1)}

ENUMS = {
    "U8": "Acme::Color", "S8": "Odd::ES8", "U16": "Odd::EU16", "S16": "Odd::ES16",
    "U32": "Odd::EU32", "S32": "Odd::ES32", "U64": "Odd::EU64", "S64": "Odd::ES64"}


def convert(given, name):
    return kel_convert.toGeneric(given, _Kel.typeNode(name), 0)


class Integers(TestCase):

    def assertTaken(self, given, name):
        self.assertEqual(convert(given, name)[3], given)

    def assertFails(self, given, name, shown=""):
        self.assertRefused(TypeError, zoo.refused(name + shown, given), convert, given, name)

    def test_both_ends_of_each_width_pass_and_their_neighbours_fail_in_both_forms(self):
        for name, (low, high) in WIDTHS.items():
            for form in (int, long):
                self.assertTaken(form(low), name)
                self.assertTaken(form(high), name)
                self.assertFails(form(low - 1), name)
                self.assertFails(form(high + 1), name)

    def test_a_long_5_is_taken_like_an_int_5_by_all_widths(self):
        for name in WIDTHS:
            for given in (5, 5L):
                result = convert(given, name)[3]
                self.assertEqual((type(result), result), (int, 5))

    def test_minus_1_fails_for_every_unsigned_width_in_both_forms(self):
        for name in ("U8", "U16", "U32", "U64"):
            self.assertFails(-1, name)
            self.assertFails(-1L, name)

    def test_True_and_subclasses_are_no_integers(self):
        for name in WIDTHS:
            for given in (True, False, zoo.IntChild(1), zoo.LongChild(1), 1.0, "1", None):
                self.assertFails(given, name)

    def test_a_long_beyond_every_width_fails_and_leaves_no_error(self):
        for name in WIDTHS:
            for given in (2 ** 64, 2 ** 64 - 1 if name != "U64" else 2 ** 65, -2 ** 64, 2 ** 2000):
                self.assertFails(given, name)

    def test_a_long_is_not_cut_to_the_width_before_the_test(self):
        for name, (low, high) in WIDTHS.items():
            if name not in ("U64", "S64"):
                self.assertFails(long(high - low + 1), name)  # 0 after the cut
                self.assertFails(2 ** 40, name)

    def test_U64_reads_as_int_below_2_to_the_63rd_and_as_long_from_there(self):
        scalars = odd.Scalars()
        for number, cls in ((2 ** 63 - 1, int), (2 ** 63, long), (2 ** 64 - 1, long), (0, int)):
            scalars.u64 = number
            self.assertEqual((type(scalars.u64), scalars.u64), (cls, number))


class Enums(TestCase):

    def constants(self, name):
        attrs = _Kel.typeNode(name).attributeQ
        return [(attr.name, attr.enumValue) for attr in attrs]

    def shown(self, name):
        return " (%s)" % ", ".join("'%s'=%d" % pair for pair in self.constants(name))

    def test_an_enum_takes_the_number_of_each_constant_in_both_forms(self):
        for name in ENUMS.values():
            for constant, value in self.constants(name):
                self.assertEqual(convert(int(value), name)[3], constant)
                self.assertEqual(convert(long(value), name)[3], constant)

    def test_an_enum_refuses_every_other_number_also_within_its_width(self):
        for width, name in ENUMS.items():
            low, high = WIDTHS[width]
            values = [value for _, value in self.constants(name)]
            for number in (low, low + 1, -1, 0, 1, 2, 7, high - 1, high, high + 1, low - 1):
                if number not in values:
                    for form in (int, long):
                        self.assertRefused(
                            TypeError, zoo.refused(name + self.shown(name), form(number)),
                            convert, form(number), name)

    def test_the_text_of_an_enum_failure_lists_every_constant_with_its_value(self):
        self.assertRefused(
            TypeError, "Kel::TypeException(\"expected Acme::Color ('red'=0, 'blue'=1), "
            "got int: 7\")", convert, 7, "Acme::Color")
        self.assertRefused(
            TypeError, "Kel::TypeException(\"expected Odd::ES64 ('low'=-9223372036854775808, "
            "'high'=9223372036854775807), got str: 'red'\")", convert, "red", "Odd::ES64")
        self.assertRefused(
            TypeError, "Kel::TypeException(\"expected Odd::EU64 ('zero'=0, "
            "'mid'=9223372036854775807, 'top'=18446744073709551615), got long: 1L\")",
            convert, 1L, "Odd::EU64")

    def test_the_text_of_another_failure_names_type_and_object(self):
        self.assertRefused(
            TypeError, "Kel::TypeException(\"expected Acme::Item, got str: 'alpha'\")",
            convert, "alpha", "Acme::Item")

    def test_what_a_number_without_a_constant_reads_as_cannot_be_written_back(self):
        scalars = odd.Scalars()
        text = scalars.rawColor(7)
        self.assertEqual(text, "Acme::Color(7)")
        for given in (text, 7):
            self.assertRefused(
                TypeError, "Odd::Scalars.color: " +
                zoo.refused("Acme::Color ('red'=0, 'blue'=1)", given),
                setattr, scalars, "color", given)
        self.assertEqual(scalars.color, "red")

    def test_a_repr_that_raises_is_told_in_the_text_and_its_exception_is_gone(self):
        given = zoo.NoRepr()
        self.assertRefused(
            TypeError, "Kel::TypeException(\"expected Acme::Color ('red'=0, 'blue'=1), "
            "got NoRepr: [error getting repr]\")", convert, given, "Acme::Color")
        self.assertRefused(
            TypeError, 'Kel::TypeException("expected U8, got NoRepr: [error getting repr]")',
            convert, given, "U8")

    def test_a_unicode_name_is_no_name(self):
        self.assertRefused(TypeError, zoo.refused("Acme::Color ('red'=0, 'blue'=1)", u"red"),
                           convert, u"red", "Acme::Color")

    def test_a_name_with_a_zero_byte_fails_though_the_text_before_it_is_a_constant(self):
        for given in ("red\0", "red\0x", "\0"):
            self.assertRefused(TypeError, zoo.refused("Acme::Color ('red'=0, 'blue'=1)", given),
                               convert, given, "Acme::Color")


if __name__ == "__main__":
    unittest.main()
