"""Attribute wrappers: what an attribute of a runtime type tells of itself."""

import sys
import unittest

import _Kel
import acme
import kel_schema
import odd
from kel_testing import TestCase, in_child

# Each flag and its bit of the row.
BITS = {
    "isQueueCollection": 1, "isStackCollection": 2, "isStatic": 3, "isFunction": 4, "isPtr": 5,
    "isDynArray": 6, "instantiating": 8, "anonymous": 9, "isIndependentDomainAttr": 10,
    "readable": 11, "writable": 12, "isImmutable": 13, "doesNotify": 14, "isLogging": 15,
    "hasDataMember": 16, "isPodArray": 17, "hasAutomanagedKey": 17, "rawPtrInterface": 18,
    "isSet": 19, "isConstPtr": 20, "isNonconstPtr": 21, "hasConstPtrIndex": 22,
    "gnmiScalarArray": 23, "gnmiStreamAttr": 24, "toGnmiJsonString": 25, "hasPackedRep": 26,
    "isOptionalValue": 27,
}

# What several bits say together: bits 0, 4 and 7 of the row.
FORMS = ["isCollection", "isEnumConst", "isInvasiveFunction", "isVector"]

DOCS = {
    "name": "attribute name",
    "attributeId": "attribute ID",
    "scope": "scope",
    "memberType": "member type",
    "indexType": "index type",
    "indexAttr": "indexAttr",
    "hasInternalIndex": "hasInternalIndex",
    "internalIndexName": "internalIndexName",
    "instantiatingArgNameQ": "instantiating arg name queue",
    "instantiatingArgTypeQ": "instantiating arg type queue",
    "enumValue": "enum value",
}

node = _Kel.typeNode


def attr(type_name, name):
    return node(type_name).attr(name)


KelAttr = type(attr("Acme::Item", "size"))

TYPES = ["Acme::Color", "Acme::Size", "Acme::Name", "Acme::Item", "Acme::Store", "Acme::Shelf",
         "Odd::Scalars", "Odd::Values", "Odd::Node", "Odd::Coll", "Odd::Args", "Odd::Raw",
         "Odd::Tags", "Odd::Payload", "Odd::ES64", "Kel::Dir", "Kel::Clock"]


def all_attributes():
    return [each for name in TYPES for each in node(name).attributeQ]


class Shape(TestCase):

    def test_the_type_has_its_getters_with_their_doc_strings(self):
        for name in list(BITS) + FORMS:
            self.assertEqual(getattr(KelAttr, name).__doc__, name)
        for name, doc in DOCS.items():
            self.assertEqual(getattr(KelAttr, name).__doc__, doc)

    def test_it_has_nothing_else(self):
        own = set(KelAttr.__dict__) - set(["__doc__", "__repr__"])
        self.assertEqual(own, set(BITS) | set(FORMS) | set(DOCS))

    def test_nothing_can_be_written(self):
        for name in list(BITS) + FORMS + list(DOCS):
            with self.assertRaises(AttributeError):
                setattr(attr("Acme::Item", "size"), name, None)

    def test_flags_are_bools(self):
        for each in all_attributes():
            for flag in list(BITS) + FORMS + ["hasInternalIndex"]:
                self.assertIs(type(getattr(each, flag)), bool, (each, flag))


class Identity(TestCase):

    def test_one_row_has_one_wrapper_by_whatever_road(self):
        size = attr("Acme::Item", "size")
        self.assertIs(attr("Acme::Item", "size"), size)
        self.assertIn(size, acme.Item.kelType.attributeQ)
        self.assertIs(attr("Acme::Item", "note"), attr("Acme::Thing", "note"))
        self.assertIs(attr("Acme::Item", "part").indexAttr, attr("Kel::Entity", "name"))

    def test_a_null_handle_is_None(self):
        self.assertIs(kel_schema.nullAttr(), None)

    def test_the_first_road_to_a_row_gives_the_scope_for_good(self):
        in_child("""
            import _Kel, acme, kel_schema
            item, store = _Kel.typeNode("Acme::Item"), _Kel.typeNode("Acme::Store")
            own_index, first = kel_schema.indices(item)
            other_index, _ = kel_schema.indices(store)
            assert own_index != other_index
            # The row of Acme::Item's first attribute, by the index of another type of its record.
            strange = kel_schema.attr(item, other_index, first)
            assert strange.name == "id"
            assert repr(strange) == "type('Acme::Store').attr('id')", strange
            assert strange.scope is store
            honest = item.attr("id")
            assert honest is strange
            assert honest.scope is store
            assert repr(honest) == "type('Acme::Store').attr('id')"
            assert kel_schema.attr(item, own_index, first) is strange
            assert item.attributeQ[-len(item.attributeQ) + 3] is strange
            # And the other way about for the next row.
            honest = item.attr("size")
            assert kel_schema.attr(item, other_index, first + 1) is honest
            assert honest.scope is item
            """).expect()

    def test_equality_is_identity(self):
        a, b = attr("Acme::Item", "size"), attr("Acme::Item", "color")
        self.assertTrue(a == a and a != b)
        self.assertEqual({a: 1, b: 2}[attr("Acme::Item", "size")], 1)


class Texts(TestCase):

    def test_its_repr_finds_it(self):
        self.assertEqual(repr(attr("Acme::Item", "size")), "type('Acme::Item').attr('size')")
        for each in all_attributes():
            self.assertIs(eval(repr(each), {"type": node}), each)

    def test_its_name_is_an_interned_str(self):
        for each in all_attributes():
            self.assertIs(each.name, intern(each.name))

    def test_its_id_is_an_int_and_that_within_its_type(self):
        for name in TYPES:
            queue = [each for each in node(name).attributeQ if each.scope is node(name)]
            ids = [each.attributeId for each in queue]
            self.assertEqual(len(set(ids)), len(ids))
            for each in queue:
                self.assertIs(type(each.attributeId), int)
                self.assertTrue(0 <= each.attributeId < 2 ** 32)
                self.assertIs(node(name).attr(each.attributeId), each)


class Types(TestCase):

    def test_member_and_index_types_are_wrappers(self):
        for type_name, name, member, index in (
                ("Acme::Item", "size", "Acme::Size", None),
                ("Acme::Item", "part", "Acme::Item", "Kel::String"),
                ("Acme::Store", "price", "U32", "Kel::String"),
                ("Acme::Store", "order", "Kel::String", "U32"),
                ("Acme::Store", "alias", "Acme::Name", "Acme::Name"),
                ("Odd::Coll", "byNode", "U32", "Odd::Node"),
                ("Odd::Node", "next", "Odd::Node", None)):
            each = attr(type_name, name)
            self.assertIs(each.memberType, node(member))
            self.assertIs(each.indexType, index and node(index))

    def test_a_reference_to_no_type_is_None(self):
        mystery = attr("Odd::Raw", "mystery")
        self.assertIs(mystery.memberType, None)
        self.assertIs(mystery.indexType, None)

    def test_an_enum_constant_has_no_index(self):
        # Where others keep the reference, it keeps its value.
        for name in "Acme::Color", "Odd::ES8", "Odd::ES64", "Odd::EU64":
            for each in node(name).attributeQ:
                self.assertIs(each.indexType, None)
                self.assertIs(each.indexAttr, None)
                self.assertIs(each.hasInternalIndex, False)
                self.assertIs(each.internalIndexName, None)
                self.assertEqual(each.instantiatingArgNameQ, ())
                self.assertEqual(each.instantiatingArgTypeQ, ())


class Indices(TestCase):

    def test_an_internal_index_is_an_attribute_of_the_member_type(self):
        part = attr("Acme::Item", "part")
        self.assertIs(part.hasInternalIndex, True)
        self.assertIs(part.indexAttr, attr("Kel::Entity", "name"))
        self.assertIs(part.internalIndexName, intern("name"))
        item = attr("Acme::Store", "item")
        self.assertIs(item.indexAttr, attr("Acme::StockItem", "sku"))
        self.assertEqual(item.internalIndexName, "sku")

    def test_without_one_there_is_nothing(self):
        for type_name, name in (("Acme::Store", "price"), ("Acme::Item", "size"),
                                ("Acme::Store", "tag"), ("Acme::Item", "lookup")):
            each = attr(type_name, name)
            self.assertIs(each.indexAttr, None)
            self.assertIs(each.internalIndexName, None)
            self.assertIs(each.hasInternalIndex, False)

    def test_the_three_agree_on_every_attribute(self):
        for each in all_attributes():
            self.assertEqual(each.hasInternalIndex, each.indexAttr is not None)
            self.assertEqual(each.internalIndexName, each.indexAttr and each.indexAttr.name)

    def test_a_name_that_the_member_type_lacks_is_no_index(self):
        lacking = kel_schema.forged(4).attr("lacking")
        self.assertIs(lacking.indexAttr, None)
        self.assertIs(lacking.internalIndexName, None)
        self.assertIs(lacking.hasInternalIndex, False)


class Arguments(TestCase):

    def test_instantiating_arguments_are_named_with_their_types(self):
        item = attr("Acme::Store", "item")
        self.assertEqual(item.instantiatingArgNameQ, ("sku", "count"))
        self.assertEqual(item.instantiatingArgTypeQ, ("Kel::String", "U32"))
        for text in item.instantiatingArgNameQ + item.instantiatingArgTypeQ:
            self.assertIs(text, intern(text))

    def test_others_have_none(self):
        for name in "price", "favorite", "tag":
            self.assertEqual(attr("Acme::Store", name).instantiatingArgNameQ, ())
            self.assertEqual(attr("Acme::Store", name).instantiatingArgTypeQ, ())

    def test_those_of_a_function_are_its_parameters(self):
        add = attr("Acme::Item", "add")
        self.assertEqual(add.instantiatingArgNameQ, ("a", "b"))
        self.assertEqual(add.instantiatingArgTypeQ, ("S32", "S32"))


class Flags(TestCase):

    def test_each_flag_is_its_bit_of_the_row(self):
        for probe in range(28):
            row = kel_schema.attrWithFlags(1 << probe)
            for flag, bit in BITS.items():
                self.assertIs(getattr(row, flag), probe == bit, (flag, probe))

    def test_bits_0_4_and_7_tell_the_form_together(self):
        for form in range(8):
            collection_form, function, constant = form & 1, form & 2, form & 4
            row = kel_schema.attrWithFlags(
                (1 if collection_form else 0) | (16 if function else 0) | (128 if constant else 0))
            self.assertIs(row.isCollection, bool(collection_form and not function))
            self.assertIs(row.isVector, bool(collection_form and constant and not function))
            self.assertIs(row.isInvasiveFunction, bool(collection_form and function))
            self.assertIs(row.isEnumConst, bool(constant and (not collection_form or function)))

    def test_an_attribute_with_all_three_is_a_function_and_an_enum_constant(self):
        each = attr("Odd::Raw", "invasiveConst")
        self.assertEqual(
            (each.isFunction, each.isEnumConst, each.isInvasiveFunction, each.isCollection,
             each.isVector), (True, True, True, False, False))

    def test_a_POD_array_and_an_automanaged_key_are_one_bit(self):
        for each in all_attributes():
            self.assertIs(each.isPodArray, each.hasAutomanagedKey)
        self.assertIs(attr("Odd::Coll", "pod").isPodArray, True)

    def test_declared_attributes_have_the_flags_that_fit(self):
        for type_name, name, flags in (
                ("Acme::Item", "id", "readable isImmutable"),
                ("Acme::Item", "size", "readable writable doesNotify"),
                ("Acme::Point", "x", "readable writable isIndependentDomainAttr"),
                ("Odd::Sealed", "n", "readable isIndependentDomainAttr"),
                ("Odd::Holder", "node", "readable writable isIndependentDomainAttr"),
                ("Acme::Item", "part", "isCollection isConstPtr"),
                ("Acme::Item", "add", "isFunction"),
                ("Acme::Item", "unit", "isStatic readable writable"),
                ("Acme::Item", "describe", "isStatic isFunction"),
                ("Acme::Store", "item", "isCollection instantiating doesNotify"),
                ("Acme::Store", "order", "isCollection isQueueCollection doesNotify"),
                ("Acme::Store", "undo", "isCollection isStackCollection"),
                ("Acme::Store", "track", "isCollection isVector"),
                ("Acme::Store", "tag", "isCollection isSet doesNotify"),
                ("Odd::Coll", "slot", "isCollection isDynArray"),
                ("Odd::Coll", "packed", "isCollection hasPackedRep"),
                ("Odd::Coll", "byNode", "isCollection hasConstPtrIndex"),
                ("Odd::Node", "next", "readable writable isNonconstPtr"),
                ("Odd::Node", "constNext", "readable writable isConstPtr"),
                ("Odd::Node", "rawNext", "readable writable rawPtrInterface"),
                ("Odd::Scalars", "maybe", "readable writable isOptionalValue"),
                ("Odd::Scalars", "fixed", "readable"),
                ("Odd::Values", "json", "readable writable toGnmiJsonString"),
                ("Odd::Args", "poke", "isFunction isInvasiveFunction"),
                ("Acme::Color", "red", "isEnumConst isStatic")):
            each = attr(type_name, name)
            for flag in flags.split():
                self.assertIs(getattr(each, flag), True, (each, flag))

    def test_and_lack_those_that_do_not(self):
        for type_name, name, flags in (
                ("Acme::Item", "id", "writable doesNotify isStatic isFunction isCollection"),
                ("Acme::Item", "size", "isImmutable isPtr isOptionalValue isEnumConst"),
                ("Acme::Item", "part", "instantiating isFunction isSet isVector"),
                ("Acme::Item", "unit", "isIndependentDomainAttr doesNotify"),
                ("Odd::OneDomain", "other", "isIndependentDomainAttr"),
                ("Odd::QuietHolder", "node", "isIndependentDomainAttr"),
                ("Odd::Tags", "entry", "isIndependentDomainAttr"),
                ("Odd::Boxed", "defaultAttribute", "isIndependentDomainAttr"),
                ("Acme::Store", "favorite", "instantiating"),
                ("Acme::Store", "order", "isStackCollection isVector"),
                ("Odd::Node", "next", "isConstPtr rawPtrInterface"),
                ("Odd::Args", "poke", "isCollection isEnumConst")):
            each = attr(type_name, name)
            for flag in flags.split():
                self.assertIs(getattr(each, flag), False, (each, flag))


class EnumValues(TestCase):

    def test_a_constant_has_its_value_as_an_int_or_a_long(self):
        for type_name, name, value, cls in (
                ("Acme::Color", "red", 0, int), ("Acme::Color", "blue", 1, int),
                ("Odd::ES8", "low", -128, int), ("Odd::ES8", "high", 127, int),
                ("Odd::EU16", "zero", 0, int), ("Odd::EU16", "top", 65535, int),
                ("Odd::ES16", "low", -32768, int), ("Odd::ES16", "high", 32767, int),
                ("Odd::EU32", "top", 4294967295, int), ("Odd::ES32", "low", -2147483648, int),
                ("Odd::ES32", "high", 2147483647, int), ("Odd::EU64", "zero", 0, int),
                ("Odd::EU64", "mid", 2 ** 63 - 1, int), ("Odd::EU64", "top", 2 ** 64 - 1, long),
                ("Odd::ES64", "low", -2 ** 63, int), ("Odd::ES64", "high", 2 ** 63 - 1, int),
                ("Odd::Twin", "first", 1, int), ("Odd::Twin", "second", 1, int)):
            result = attr(type_name, name).enumValue
            self.assertEqual((result, type(result)), (value, cls), (type_name, name))

    def test_any_other_attribute_has_none(self):
        for each in all_attributes():
            if not each.isEnumConst:
                text = "%s::%s is not an enum constant" % (each.scope.fullTypeName, each.name)
                self.assertRefused(TypeError, text, getattr, each, "enumValue")

    def test_the_refusal_names_type_and_attribute(self):
        self.assertRefused(TypeError, "Acme::Item::size is not an enum constant",
                           getattr, attr("Acme::Item", "size"), "enumValue")


class Faults(unittest.TestCase):

    def check(self, expression, text):
        outcome = in_child("""
            import sys, _Kel, acme, odd, kel_schema
            eval(sys.argv[1])
            """, [expression]).expect(-6)
        self.assertIn("assertion failed: %s (" % text, outcome.err)

    def test_a_constant_of_a_type_that_is_no_enum_ends_the_process(self):
        for name in "constant", "invasiveConst":
            self.check("_Kel.typeNode('Odd::Raw').attr('%s').enumValue" % name, "underlyingType")

    def test_a_constant_of_an_enum_without_an_underlying_type_ends_the_process(self):
        self.check("kel_schema.forged(1).attributeQ[0].enumValue", "underlyingType")

    def test_a_constant_over_a_type_that_is_no_integer_ends_the_process(self):
        self.check("kel_schema.forged(2).attributeQ[0].enumValue", "false")

    def test_a_constant_over_a_type_of_another_record_ends_the_process(self):
        self.check("kel_schema.forged(3).attributeQ[0].enumValue", "false")


class Converters(TestCase):

    def test_an_attribute_wrapper_is_taken(self):
        size = attr("Acme::Item", "size")
        self.assertIs(kel_schema.asAttr(size), size)

    def test_all_else_is_refused(self):
        for thing in None, 5, "size", node("Acme::Item"), acme.Item.__dict__["size"], KelAttr:
            self.assertRefused(TypeError, "expected a _Kel.KelAttr", kel_schema.asAttr, thing)
