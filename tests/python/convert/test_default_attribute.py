"""Which attribute of a value type stands for the whole value."""

import unittest

import _Kel
import acme
import kel_convert
import odd
from kel_testing import TestCase


def default(name):
    """The name of the default attribute, and whether it holds source text; or None."""
    read, written, is_repr = kel_convert.defaultAttr(_Kel.typeNode(name))
    assert read is written
    return None if read is None else (read.name, is_repr)


class DefaultAttribute(TestCase):

    def test_a_declaration_names_it(self):
        self.assertEqual(default("Odd::Boxed"), ("inner", False))
        self.assertEqual(default("Odd::MaybeBoxed"), ("inner", False))
        self.assertEqual(default("Odd::Thrower"), ("value", False))

    def test_a_repr_declaration_names_one_of_source_text(self):
        self.assertEqual(default("Odd::PyText"), ("source", True))

    def test_defaultAttribute_wins_over_defaultReprAttribute(self):
        self.assertEqual(default("Odd::Both"), ("a", False))

    def test_behind_defaultAttribute_a_bad_defaultReprAttribute_is_not_looked_at(self):
        self.assertEqual(odd.Renamed.defaultReprAttribute, "nothing")
        self.assertEqual(default("Odd::Renamed"), ("value", False))

    def test_an_inherited_declaration_counts(self):
        self.assertEqual(default("Odd::MoreBoxed"), ("inner", False))

    def test_the_only_domain_attribute_that_is_the_value_attribute_needs_no_declaration(self):
        self.assertEqual(default("Acme::Size"), ("value", False))
        self.assertEqual(default("Odd::OneDomain"), ("value", False))

    def test_a_second_domain_attribute_leaves_none(self):
        self.assertIsNone(default("Odd::TwoDomain"))

    def test_without_value_attribute_and_declaration_there_is_none(self):
        for name in ("Acme::Point", "Odd::Point3", "Odd::Segment", "Odd::Sealed", "Odd::Shape",
                     "Odd::Holder", "Odd::Nest", "Odd::QuietHolder", "Odd::Tags", "Odd::Payload",
                     "Odd::Empty", "Odd::ColorSet"):
            self.assertIsNone(default(name), name)

    def test_a_type_derived_from_String_uses_its_attribute_value(self):
        self.assertIsNone(_Kel.typeNode("Acme::Name").valAttr)
        self.assertEqual(default("Acme::Name"), ("value", False))

    def test_a_pointer_type_never_has_one_whatever_it_declares(self):
        for name in ("Odd::PtrDefault", "Odd::Node", "Acme::Item", "Kel::Dir"):
            self.assertIsNone(default(name), name)
        self.assertEqual(_Kel.pyType(_Kel.typeNode("Odd::PtrDefault")).defaultAttribute, "value")
        self.assertIsInstance(
            kel_convert.throughGeneric(odd.PtrDefault(), _Kel.typeNode("Odd::PtrDefault"), 1),
            odd.PtrDefault)

    def test_built_in_and_enum_types_have_none(self):
        for name in ("U8", "bool", "Acme::Color", "Odd::ES64"):
            self.assertIsNone(default(name), name)

    def assertBad(self, name, text):
        message = 'Kel::TypeException("%s")' % text
        kel_type = _Kel.typeNode(name)
        for _ in range(3):
            self.assertRefused(TypeError, message, kel_convert.defaultAttr, kel_type)

    def test_a_declaration_that_is_not_static_or_no_text_is_illegal_at_each_use(self):
        for name in ("Odd::BadStatic", "Odd::BadKind", "Odd::BadColl", "Odd::BadFunc"):
            self.assertBad(name, "illegal defaultAttribute in type %s" % name)

    def test_a_declaration_that_names_no_attribute_is_refused_at_each_use(self):
        self.assertBad("Odd::BadName",
                       "defaultAttribute 'nothing' not found in type Odd::BadName")

    def test_a_repr_declaration_of_another_type_than_String_is_refused_at_each_use(self):
        self.assertBad("Odd::BadRepr", "defaultReprAttribute 'number' in type Odd::BadRepr not of "
                                       "required type Kel::String")

    def test_a_found_attribute_is_remembered_and_so_is_that_there_is_none(self):
        for name in ("Acme::Size", "Acme::Point"):
            self.assertEqual(default(name), default(name))
            self.assertEqual(default(name), default(name))


class InUse(TestCase):

    def test_a_value_reads_as_its_default_attribute(self):
        values = odd.Values()
        values.size, values.name, values.boxed, values.both = 1, "a", 2, 3
        self.assertEqual((values.size, values.name, values.boxed, values.both), (1, "a", 2, 3))

    def test_a_name_with_a_NUL_keeps_it(self):
        item = acme.Item("a\0b", 1)
        self.assertEqual(item.name, "a\0b")

    def test_None_under_a_repr_attribute_reads_back_as_None(self):
        values = odd.Values()
        values.pyText = None
        self.assertEqual(values.getRawAttribute("pyText").source, "None")
        self.assertIs(values.pyText, None)


if __name__ == "__main__":
    unittest.main()
