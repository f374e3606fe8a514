"""getRawAttribute, attrProperty and _getmethod of every wrapper."""

import unittest

import _Kel
import acme
import kel_objects
import odd
from kel_testing import TestCase


class GetRawAttribute(TestCase):

    def test_it_gives_the_value_as_it_is_stored(self):
        values = odd.Values()
        values.size, values.name, values.boxed = 5, "a", 6
        for name, cls, converted in (("size", acme.Size, 5), ("name", acme.Name, "a"),
                                     ("boxed", odd.Boxed, 6)):
            self.assertIs(type(values.getRawAttribute(name)), cls)
            self.assertEqual(getattr(values, name), converted)
        self.assertIs(type(values.getRawAttribute("point")), acme.Point)

    def test_natives_and_enums_are_as_ever(self):
        scalars = odd.Scalars()
        for name in ("u8", "text", "color", "maybe", "ratio", "flag"):
            self.assertEqual(scalars.getRawAttribute(name), getattr(scalars, name))

    def test_static_and_inherited_attributes_are_found(self):
        item = acme.Item("a", 1)
        self.assertEqual(item.getRawAttribute("unit"), "mm")
        self.assertEqual(item.getRawAttribute("note"), "")

    def test_an_unknown_name_is_refused_with_the_type(self):
        self.assertRefused(AttributeError, "'Acme::Item' object has no attribute 'nothing'",
                           acme.Item("a", 1).getRawAttribute, "nothing")
        self.assertRefused(AttributeError, "'Acme::Store' object has no attribute 'newItem'",
                           acme.Store("s").getRawAttribute, "newItem")

    def test_other_sorts_are_refused(self):
        raw = kel_objects.emptyView(_Kel.typeNode("Odd::Raw"))
        item = acme.Item("a", 1)
        for owner, name, sort in (
                (raw, "constant", "enum constants"), (raw, "invasiveConst", "enum constants"),
                (item, "part", "collection attributes"), (item, "lookup", "function attributes"),
                (odd.Coll(), "registry", "collection attributes"),
                (item, "describe", "function attributes"),
                (odd.Args(), "poke", "function attributes")):
            self.assertRefused(TypeError, "getRawAttribute does not support " + sort,
                               owner.getRawAttribute, name)

    def test_the_argument_is_one_text(self):
        get = odd.Scalars().getRawAttribute
        self.assertRefused(TypeError, "getRawAttribute() takes exactly 1 argument (0 given)", get)
        self.assertRefused(TypeError, "getRawAttribute() takes exactly 1 argument (2 given)",
                           get, "u8", "s8")
        self.assertRefused(TypeError, "getRawAttribute() argument 1 must be string, not int",
                           get, 5)
        self.assertRefused(
            TypeError, "getRawAttribute() argument 1 must be string without null bytes, not str",
            get, "u8\0")

    def test_a_failed_read_tells_the_attribute(self):
        self.assertRefused(SystemError, 'Odd::Faults.bad: Kel::InternalException("read")',
                           odd.Faults().getRawAttribute, "bad")


class AttrProperty(TestCase):

    def test_it_is_the_property_of_the_attribute_wrapper(self):
        item = acme.Item("a", 1)
        properties = [name for name in dir(_Kel.typeNode("Acme::Item").attr("size"))
                      if not name.startswith("_") and name != "enumValue"]
        self.assertIn("isStatic", properties)
        for attr in _Kel.typeNode("Acme::Item").attributeQ:
            for name in properties:
                self.assertEqual(item.attrProperty(attr.name, name), getattr(attr, name))

    def test_an_unknown_attribute_is_refused_with_the_type(self):
        self.assertRefused(AttributeError, "'Acme::Item' object has no attribute 'nothing'",
                           acme.Item("a", 1).attrProperty, "nothing", "isStatic")

    def test_an_unknown_property_is_Pythons_own_refusal(self):
        self.assertRefused(AttributeError, "'_Kel.KelAttr' object has no attribute 'nothing'",
                           acme.Item("a", 1).attrProperty, "size", "nothing")
        self.assertRefused(TypeError, "Acme::Item::size is not an enum constant",
                           acme.Item("a", 1).attrProperty, "size", "enumValue")

    def test_the_arguments_are_two_texts(self):
        prop = acme.Item("a", 1).attrProperty
        self.assertRefused(TypeError, "attrProperty() takes exactly 2 arguments (1 given)",
                           prop, "size")
        self.assertRefused(TypeError, "attrProperty() argument 2 must be string, not int",
                           prop, "size", 5)


class GetMethod(TestCase):

    def test_it_reads_any_attribute(self):
        args = odd.Args()
        self.assertEqual(args._getmethod("one")(4), 4)
        self.assertEqual(odd.Scalars()._getmethod("u8"), 0)
        self.assertIs(args._getmethod("kelType"), args.kelType)

    def test_an_unknown_name_is_Pythons_refusal(self):
        self.assertRefused(AttributeError, "'Odd::Args' object has no attribute 'nothing'",
                           odd.Args()._getmethod, "nothing")

    def test_the_argument_is_one_str(self):
        get = odd.Args()._getmethod
        self.assertRefused(TypeError, "_getmethod() takes exactly 1 argument (0 given)", get)
        self.assertRefused(TypeError, "_getmethod() argument 1 must be str, not unicode",
                           get, u"one")
        self.assertRefused(TypeError, "_getmethod() argument 1 must be str, not None", get, None)


if __name__ == "__main__":
    unittest.main()
