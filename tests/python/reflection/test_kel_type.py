"""Type wrappers: what a runtime type tells of itself."""

import gc
import sys
import unittest

import _Kel
import acme
import kel_schema
import odd
from kel_testing import TestCase, in_child

FLAGS = ["isValue", "isEntity", "isConstrainer", "isBuiltinType", "isEnumType", "isBitSetType",
         "hasOwnPtrInterface", "hasAttrLogSupport", "isPolymorphic", "hasBackupSupport",
         "isAbstractType", "containsOptionalsOrCollections", "toGnmiString", "gnmiDelete",
         "toGnmiBytes", "isUnionType"]

DOCS = {
    "fullTypeName": "full type name",
    "size": "size (in bytes)",
    "align": "alignment (in bytes)",
    "baseType": "base type",
    "underlyingType": "underlying type of an enum type",
    "valAttr": "valAttr",
    "defaultCollection": "default collection",
    "attributeQ": "attribute queue",
    "constructorArgNameQ": "constructor arg name queue",
    "constructorArgTypeQ": "constructor arg type queue",
}

node = _Kel.typeNode
KelType = type(node("U32"))
KelAttr = type(acme.Size.kelType.valAttr)

NAMES = ["U8", "S64", "bool", "char", "double", "Kel::String", "Kel::Bytes", "Kel::Seconds",
         "Kel::PtrInterface", "Kel::Entity", "Kel::Dir", "Kel::Clock", "Kel::TraceFacility",
         "Acme::Color", "Acme::Size", "Acme::Name", "Acme::Point", "Acme::Thing", "Acme::Item",
         "Acme::StockItem", "Acme::Badge", "Acme::Store", "Acme::Shelf", "Odd::ES8", "Odd::Scalars",
         "Odd::Point3", "Odd::Shape", "Odd::ColorSet", "Odd::Payload", "Odd::Tags", "Odd::Empty",
         "Odd::Node", "Odd::SpecialNode", "Odd::Own", "Odd::Gate", "Odd::SubGate", "Odd::Coll",
         "Odd::Raw"]


class Shape(TestCase):

    def test_the_type_has_its_methods_and_getters_with_their_doc_strings(self):
        for name in FLAGS:
            self.assertEqual(getattr(KelType, name).__doc__, name)
        for name, doc in DOCS.items():
            self.assertEqual(getattr(KelType, name).__doc__, doc)
        self.assertEqual(KelType.isDerived.__doc__, "is type in my chain of base types?")
        self.assertEqual(KelType.attr.__doc__, "retrieve an attribute by name or ID")

    def test_it_has_nothing_else(self):
        own = set(KelType.__dict__) - set(["__doc__", "__repr__"])
        self.assertEqual(own, set(FLAGS) | set(DOCS) | set(["isDerived", "attr"]))

    def test_nothing_can_be_written(self):
        for name in FLAGS + list(DOCS):
            with self.assertRaises(AttributeError):
                setattr(node("U32"), name, None)
            with self.assertRaises(AttributeError):
                delattr(node("U32"), name)

    def test_flags_are_bools(self):
        for name in NAMES:
            for flag in FLAGS:
                self.assertIs(type(getattr(node(name), flag)), bool, (name, flag))


class Identity(TestCase):

    def test_one_type_has_one_wrapper_by_whatever_road(self):
        item = acme.Item("one", 1)
        kel_type = node("Acme::Item")
        self.assertIs(node("Acme::Item"), kel_type)
        self.assertIs(acme.Item.kelType, kel_type)
        self.assertIs(item.kelType, kel_type)
        self.assertIs(kel_type.attr("size").scope, kel_type)
        self.assertIs(kel_type.attr("parent").memberType, kel_type)

    def test_equality_and_hash_are_those_of_the_object(self):
        a, b = node("Acme::Item"), node("Acme::Size")
        self.assertTrue(a == a and a != b and not a == b)
        self.assertEqual(hash(a), hash(node("Acme::Item")))
        self.assertEqual({a: 1, b: 2}[node("Acme::Item")], 1)

    def test_a_second_fetch_allocates_nothing(self):
        kel_type = node("Acme::Item")
        before = sys.getrefcount(kel_type)
        again = kel_type.attr("size").scope
        self.assertIs(again, kel_type)
        self.assertEqual(sys.getrefcount(kel_type), before + 1)
        addresses = set(id(node("Acme::Item")) for _ in range(100))
        self.assertEqual(len(addresses), 1)

    def test_it_lives_on_without_a_holder(self):
        address = id(node("Odd::Nest"))
        gc.collect()
        fillers = [object() for _ in range(1000)]
        self.assertEqual(id(node("Odd::Nest")), address)
        self.assertTrue(fillers)

    def test_a_null_handle_is_None(self):
        before = sys.getrefcount(None)
        nulls = [kel_schema.nullType() for _ in range(100)]
        self.assertEqual(nulls, [None] * 100)
        self.assertGreaterEqual(sys.getrefcount(None), before + 90)


class Texts(TestCase):

    def test_its_repr_is_a_call_of_type_with_its_name(self):
        self.assertEqual(repr(node("Kel::Entity")), "type('Kel::Entity')")
        for name in NAMES:
            self.assertIs(eval(repr(node(name)), {"type": node}), node(name))

    def test_its_name_is_an_interned_str(self):
        for name in NAMES:
            self.assertEqual(node(name).fullTypeName, name)
            self.assertIs(node(name).fullTypeName, intern(name))


class Measures(TestCase):

    def test_size_and_alignment_are_longs(self):
        for name, size in (("U8", 1), ("S16", 2), ("U32", 4), ("S64", 8), ("double", 8),
                           ("Acme::Point", 8), ("Acme::Color", 1), ("Kel::String", 8)):
            self.assertEqual(node(name).size, size)
            self.assertEqual(node(name).align, min(size, 8) if name != "Acme::Point" else 4)
        for name in NAMES:
            self.assertIs(type(node(name).size), long)
            self.assertIs(type(node(name).align), long)


class Chains(TestCase):

    def test_the_base_is_the_declared_one(self):
        for name, base in (("Acme::Item", "Acme::Thing"), ("Acme::Thing", "Kel::Entity"),
                           ("Acme::Name", "Kel::String"), ("Odd::Point3", "Acme::Point"),
                           ("Odd::SpecialNode", "Odd::Node"), ("Acme::Shelf", "Kel::Dir")):
            self.assertIs(node(name).baseType, node(base))
        for name in "U32", "Kel::PtrInterface", "Acme::Size", "Odd::Own", "Odd::Raw":
            self.assertIs(node(name).baseType, None)

    def test_an_enum_type_has_an_underlying_type_and_no_base(self):
        for name, underlying in (("Acme::Color", "U8"), ("Odd::ES8", "S8"), ("Odd::EU16", "U16"),
                                 ("Odd::ES16", "S16"), ("Odd::EU32", "U32"), ("Odd::ES32", "S32"),
                                 ("Odd::EU64", "U64"), ("Odd::ES64", "S64")):
            self.assertIs(node(name).underlyingType, node(underlying))
            self.assertIs(node(name).baseType, None)

    def test_other_types_have_no_underlying_type(self):
        for name in "U32", "Acme::Item", "Acme::Name", "Odd::Point3", "Odd::ColorSet":
            self.assertIs(node(name).underlyingType, None)

    def test_isDerived_asks_for_the_chain_from_the_type_itself_on(self):
        item = node("Acme::Item")
        for name in "Acme::Item", "Acme::Thing", "Kel::Entity":
            self.assertIs(item.isDerived(node(name)), True)
        for name in "Acme::Store", "Kel::Dir", "U32":
            self.assertIs(item.isDerived(node(name)), False)
        self.assertIs(node("Acme::Thing").isDerived(item), False)
        self.assertIs(node("Acme::Color").isDerived(node("U8")), False)

    def test_isDerived_takes_a_type_wrapper_alone(self):
        item = node("Acme::Item")
        for thing in None, 5, "Acme::Item", acme.Item, acme.Item.kelType.attr("size"):
            self.assertRefused(TypeError, "expected a _Kel.KelType", item.isDerived, thing)
        self.assertRefused(
            TypeError, "isDerived() takes exactly 1 argument (0 given)", item.isDerived)

    def test_a_core_reference_of_minus_one_is_the_first_core_type(self):
        # Which is no type.
        self.assertIs(kel_schema.coreType(0), None)
        for entry, name in ((12, "bool"), (16, "Kel::String"), (24, "Kel::Seconds")):
            self.assertIs(kel_schema.coreType(entry), node(name))


class Attributes(TestCase):

    def test_the_value_attribute_is_that_of_the_chains_end(self):
        self.assertIs(node("Acme::Size").valAttr, node("Acme::Size").attr("value"))
        self.assertIs(node("Odd::TwoDomain").valAttr, node("Odd::TwoDomain").attr("value"))
        for name in "Acme::Name", "Acme::Point", "Acme::Item", "U32", "Acme::Color":
            self.assertIs(node(name).valAttr, None)

    def test_the_default_collection_is_the_third_attribute_of_a_directory(self):
        self.assertIs(node("Kel::Dir").defaultCollection, node("Kel::Dir").attr("entityPtr"))
        self.assertIs(node("Acme::Shelf").defaultCollection, node("Acme::Shelf").attr("slot"))
        for name in "Kel::Entity", "Acme::Store", "Acme::Size", "U32":
            self.assertIs(node(name).defaultCollection, None)

    def test_all_are_listed_those_of_the_bases_first(self):
        names = [attr.name for attr in node("Odd::Point3").attributeQ]
        self.assertEqual(names, ["x", "y", "z"])
        queue = node("Acme::Shelf").attributeQ
        self.assertIs(type(queue), tuple)
        self.assertEqual([attr.name for attr in queue],
                         ["name", "fullName", "mountMode", "isMounted", "entityPtr", "mountExempt",
                          "capacity", "owner", "slot"])
        self.assertEqual([attr.scope.fullTypeName for attr in queue],
                         ["Kel::Entity"] * 2 + ["Kel::Dir"] * 4 + ["Acme::Shelf"] * 3)
        for attr in queue:
            self.assertIs(node("Acme::Shelf").attr(attr.name), attr)

    def test_a_type_without_any_has_an_empty_tuple(self):
        for name in "Odd::Empty", "U32", "Odd::Gate":
            self.assertEqual(node(name).attributeQ, ())

    def test_constructor_arguments_are_named_with_their_types(self):
        for name, names, types in (
                ("Acme::Item", ("name", "id"), ("Acme::Name", "U32")),
                ("Acme::Size", ("value",), ("U32",)),
                ("Odd::Link", ("node", "color"), ("Odd::Node", "Acme::Color")),
                ("Odd::Scalars", (), ()), ("U32", (), ()), ("Acme::Color", (), ()),
                ("Odd::Empty", (), ())):
            self.assertEqual(node(name).constructorArgNameQ, names)
            self.assertEqual(node(name).constructorArgTypeQ, types)
            for text in node(name).constructorArgNameQ + node(name).constructorArgTypeQ:
                self.assertIs(text, intern(text))

    def test_tuples_are_new_and_their_items_are_not(self):
        first, second = node("Acme::Item").attributeQ, node("Acme::Item").attributeQ
        self.assertIsNot(first, second)
        self.assertTrue(all(a is b for a, b in zip(first, second)))


class Flags(TestCase):

    def names(self, flag, names=NAMES):
        return [name for name in names if getattr(node(name), flag)]

    def test_values(self):
        self.assertEqual(
            [name for name in NAMES if not node(name).isValue],
            ["Kel::PtrInterface", "Kel::Entity", "Kel::Dir", "Kel::Clock", "Kel::TraceFacility",
             "Acme::Thing", "Acme::Item", "Acme::StockItem", "Acme::Badge", "Acme::Store",
             "Acme::Shelf", "Odd::Scalars", "Odd::Node", "Odd::SpecialNode", "Odd::Own",
             "Odd::Gate", "Odd::SubGate", "Odd::Coll", "Odd::Raw"])

    def test_entities(self):
        self.assertEqual(set(self.names("isEntity")) - set(["Kel::TraceFacility", "Kel::Clock"]),
                         set(["Kel::Entity", "Kel::Dir", "Acme::Thing", "Acme::Item", "Acme::Store",
                              "Acme::Shelf"]))

    def test_built_in_and_enum_types(self):
        self.assertEqual(self.names("isBuiltinType"),
                         ["U8", "S64", "bool", "char", "double", "Kel::String", "Kel::Bytes",
                          "Kel::Seconds"])
        self.assertEqual(self.names("isEnumType"), ["Acme::Color", "Odd::ES8"])

    def test_one_bit_is_a_bit_set_on_values_and_a_constrainer_on_pointers(self):
        self.assertEqual(self.names("isBitSetType"), ["Odd::ColorSet"])
        self.assertEqual(self.names("isConstrainer"), ["Odd::Gate", "Odd::SubGate"])

    def test_special_shapes(self):
        self.assertEqual(self.names("hasOwnPtrInterface"), ["Odd::Own"])
        self.assertEqual(self.names("isUnionType"), ["Odd::Shape"])
        self.assertEqual(self.names("toGnmiString"), ["Odd::Payload"])
        self.assertEqual(self.names("toGnmiBytes"), ["Odd::Payload"])
        self.assertIs(node("Odd::Tags").containsOptionalsOrCollections, True)
        self.assertIs(node("Acme::Point").containsOptionalsOrCollections, False)

    def test_each_flag_is_its_bit_of_the_row(self):
        bits = {"isValue": 0, "isBuiltinType": 1, "isEnumType": 2, "hasOwnPtrInterface": 4,
                "hasAttrLogSupport": 5, "isPolymorphic": 6, "hasBackupSupport": 7,
                "isAbstractType": 8, "containsOptionalsOrCollections": 10, "toGnmiString": 12,
                "gnmiDelete": 13, "toGnmiBytes": 14, "isUnionType": 15}
        for flag, bit in bits.items():
            for probe in range(16):
                if probe == 3:
                    continue
                row = kel_schema.typeWithFlags(1 << probe)
                self.assertIs(getattr(row, flag), probe == bit, (flag, probe))
        for word, is_bit_set, is_constrainer in ((8, False, True), (9, True, False),
                                                 (0, False, False), (1, False, False)):
            row = kel_schema.typeWithFlags(word)
            self.assertEqual((row.isBitSetType, row.isConstrainer), (is_bit_set, is_constrainer))


class Lookup(TestCase):

    item = node("Acme::Item")

    def test_a_name_finds_an_attribute_of_the_type_or_its_bases(self):
        self.assertEqual(self.item.attr("size").name, "size")
        self.assertIs(self.item.attr("note"), node("Acme::Thing").attr("note"))
        self.assertIs(self.item.attr(u"note"), self.item.attr("note"))

    def test_an_unknown_name_or_number_is_None(self):
        for key in ("noSuchName", u"noSuchName", u"\u20ac", u"\ud800", "", "size ", 0, 1, -1, 123456,
                    2L, 2 ** 40):
            self.assertIs(self.item.attr(key), None, key)

    def test_a_number_finds_the_attribute_of_that_id(self):
        for attr in self.item.attributeQ:
            self.assertIs(self.item.attr(attr.attributeId), attr)
            self.assertIs(self.item.attr(long(attr.attributeId)), attr)

    def test_a_number_is_cut_to_32_bits(self):
        size = self.item.attr("size")
        for number in (size.attributeId + 2 ** 32, size.attributeId + 2 ** 40,
                       size.attributeId - 2 ** 32, long(size.attributeId + 2 ** 40)):
            self.assertIs(self.item.attr(number), size)

    def test_a_number_beyond_64_bits_is_an_OverflowError(self):
        for number in 2 ** 70, -2 ** 70, 2 ** 63:
            self.assertRefused(OverflowError, "Python int too large to convert to C long",
                               self.item.attr, number)

    def test_the_key_is_told_by_its_exact_type(self):
        class OwnStr(str):
            pass

        class OwnUnicode(unicode):
            pass

        class OwnInt(int):
            pass

        class OwnLong(long):
            pass

        for key in (3.5, None, True, OwnStr("size"), OwnUnicode(u"size"), OwnInt(1), OwnLong(1),
                    [], object, bytearray("size")):
            self.assertRefused(TypeError, "expected a str, int or long", self.item.attr, key)
        self.assertRefused(TypeError, "attr() takes exactly 1 argument (0 given)", self.item.attr)

    def test_a_name_ends_at_a_NUL(self):
        self.assertIs(self.item.attr("size\0more"), self.item.attr("size"))
        self.assertIs(self.item.attr(u"size\0more"), self.item.attr("size"))

    def test_a_lookup_by_unicode_leaves_no_reference_behind(self):
        name = u"size"
        before = sys.getrefcount(name)
        for _ in range(100):
            self.item.attr(name)
        self.assertEqual(sys.getrefcount(name), before)


class Locks(unittest.TestCase):

    def test_it_is_read_while_another_thread_holds_the_activity_lock(self):
        in_child("""
            import threading
            import _Kel, acme
            held, release = threading.Event(), threading.Event()
            item = acme.Item.kelType

            def hold():
                _Kel.acquireActivityLock()
                held.set()
                release.wait()
                _Kel.releaseActivityLock()

            thread = threading.Thread(target=hold)
            thread.start()
            held.wait()
            for name in dir(item):
                getattr(item, name)
            for attr in item.attributeQ:
                for name in dir(attr):
                    if name != "enumValue":
                        getattr(attr, name)
            repr(item), item.isDerived(item), item.attr("size"), _Kel.pyType(item)
            release.set()
            thread.join()
            """).expect()


class Converters(TestCase):

    def test_a_type_wrapper_is_taken(self):
        item = node("Acme::Item")
        self.assertIs(kel_schema.asType(item), item)
        self.assertIs(kel_schema.asTypeOrNull(item), item)

    def test_None_is_a_null_handle_where_that_is_allowed(self):
        self.assertIs(kel_schema.asTypeOrNull(None), None)
        self.assertRefused(TypeError, "expected a _Kel.KelType", kel_schema.asType, None)

    def test_all_else_is_refused(self):
        for thing in 5, "Acme::Item", acme.Item, KelType, node("Acme::Item").attr("size"):
            self.assertRefused(TypeError, "expected a _Kel.KelType", kel_schema.asType, thing)
            self.assertRefused(TypeError, "expected a _Kel.KelType or None",
                               kel_schema.asTypeOrNull, thing)

