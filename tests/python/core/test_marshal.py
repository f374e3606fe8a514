"""Texts, byte strings and integers between Python and the runtime."""

import errno
import os
import unittest

import _Kel
import kel_marshal
from kel_testing import in_child

TEXTS = ["", "a", "\0", "a\0b", "\0" * 300, "\xff\xfe", "x" * 100000, "trailing\0"]


class Texts(unittest.TestCase):

    def test_an_empty_and_a_null_text_are_the_empty_str(self):
        self.assertEqual(kel_marshal.nullString(), "")
        self.assertEqual(kel_marshal.emptyString(), "")
        self.assertIs(type(kel_marshal.nullString()), str)

    def test_a_str_keeps_its_full_length_there_and_back(self):
        for text in TEXTS:
            self.assertEqual(kel_marshal.str(text), text)
            self.assertEqual(kel_marshal.lengths(text), (len(text), len(text)))

    def test_a_unicode_becomes_utf_8(self):
        for text in u"", u"a\0b", u"\xe9", u"\u20ac", u"\U0001f40d", u"\ud800":
            self.assertEqual(kel_marshal.unicode(text), text.encode("utf-8"))

    def test_bytes_keep_their_full_length_there_and_back(self):
        for text in TEXTS:
            self.assertEqual(kel_marshal.bytes(text), text)
            self.assertEqual(kel_marshal.byteArray(bytearray(text)), text)

    def test_null_bytes_are_the_empty_str(self):
        self.assertEqual(kel_marshal.nullBytes(), "")

    def test_another_object_is_a_fault_of_the_program(self):
        for call, text in (("str(5)", "buf"), ("unicode('\\xff')", "encoded"),
                           ("bytes(5)", "rc != -1"), ("str(None)", "buf")):
            outcome = in_child("import _Kel, kel_marshal; kel_marshal.%s" % call).expect(-6)
            self.assertIn("assertion failed: %s (" % text, outcome.err)


class Integers(unittest.TestCase):

    def check(self, function, number, cls):
        result = function(number)
        self.assertEqual((result, type(result)), (number, cls))

    def test_an_unsigned_one_is_a_long_from_2_to_the_63_on(self):
        for number in 0, 1, 2 ** 31, 2 ** 32, 2 ** 63 - 1:
            self.check(kel_marshal.unsignedNumber, number, int)
        for number in 2 ** 63, 2 ** 64 - 1:
            self.check(kel_marshal.unsignedNumber, number, long)

    def test_a_signed_one_is_an_int(self):
        for number in 0, -1, 2 ** 63 - 1, -2 ** 63:
            self.check(kel_marshal.signedNumber, number, int)


class ErrorTexts(unittest.TestCase):

    def test_they_are_the_systems(self):
        for number in errno.errorcode.keys() + [0, -1, 12345]:
            self.assertEqual(kel_marshal.error(number), os.strerror(number))
