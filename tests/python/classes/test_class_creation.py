"""The Python classes of runtime types: shapes, bases, what stands in their dictionaries."""

import sys
import unittest

import _Kel
import acme
import kel_schema
import odd
from kel_testing import TestCase, in_child

node = _Kel.typeNode
Type = type(acme.Size)
Attribute = type(acme.Size.__dict__["value"])

OBJECT_METHODS = {
    "__copy__": "x.__copy__() <==> copy.copy(x)",
    "__deepcopy__": "x.__deepcopy__([memo]) <==> copy.deepcopy(x[, memo])",
    "getRawAttribute":
        "Return the attribute of the given name, avoiding defaultAttribute conversion.",
    "attrProperty": "Return the value of the named property of the attribute of the given name.",
    "_getmethod": "Return a method with the given name.",
    "valueToGnmiBytes": "Return valueToGnmiBytes representation",
    "valueToGnmiString": "Return valueToGnmiString representation",
    "kelSmartPointerReferences":
        "Return the number of smart pointer references to the object.",
}

COLLECTION_METHODS = {
    "keys": "Return a list of keys.",
    "values": "Return a list of values.",
    "items": "Return a list of items.",
    "iterkeys": "Return an iterator over keys.",
    "itervalues": "Return an iterator over values.",
    "iteritems": "Return an iterator over items.",
    "version": "Return the collection version.",
    "members": "Return a list of members.",
    "has_key": "Check collection membership.",
    "get": "Get an element.",
    "setdefault": "Get an element, setting if not present.",
    "clear": "Remove all elements from the collection.",
    "newMember": "Add a member (instantiating collections only).",
    "addMember": "Add a member (non-instantiating collections only).",
    "getRawEntry": "Get an element, avoiding defaultAttribute conversion.",
}

DIRECTORY_METHODS = dict(COLLECTION_METHODS, **{
    "newEntity": "Instantiate a new entity in this Kel::Dir.",
    "mkdir": "Create a new subdirectory of this Kel::Dir.",
    "clear": "Delete all entities in this Kel::Dir.",
})

COLLECTION_SLOTS = ["__contains__", "__len__", "__getitem__", "__setitem__", "__delitem__",
                    "__iter__"]
ROOT_SLOTS = ["__new__", "__hash__", "__repr__", "__str__", "__eq__", "__ne__", "__lt__",
              "__le__", "__gt__", "__ge__"]


def py_type(name):
    return _Kel.pyType(node(name))


def descriptors(cls):
    return dict((name, value) for name, value in cls.__dict__.items() if type(value) is Attribute)


class Identity(TestCase):

    def test_one_type_has_one_class(self):
        for name in "Acme::Item", "Acme::Size", "U32", "Acme::Color", "Kel::Dir":
            self.assertIs(py_type(name), py_type(name))
        self.assertIs(type(acme.Item("one", 1)), py_type("Acme::Item"))
        self.assertIsNot(py_type("Acme::Item"), py_type("Acme::Thing"))

    def test_a_class_is_an_instance_of_the_metaclass_and_carries_its_type(self):
        for name in "Acme::Item", "Acme::Size", "U32", "Acme::Color", "Kel::PtrInterface":
            cls = py_type(name)
            self.assertIs(type(cls), Type)
            self.assertIs(cls.kelType, node(name))
            self.assertTrue(isinstance(cls, type))

    def test_its_name_is_the_runtimes_own(self):
        for name in "Acme::Item", "U32", "Kel::String":
            self.assertEqual(py_type(name).__name__, name)

    def test_its_type_and_attributes_cannot_be_written(self):
        for name in "kelType", "attributes":
            with self.assertRaises(AttributeError):
                setattr(Type.__dict__[name], "__set__", None)
        for name in "kelType", "note", "extra":
            with self.assertRaises(TypeError):
                setattr(acme.Item, name, 5)

    def test_instances_are_40_bytes_with_the_default_flags(self):
        for name in "Acme::Item", "Acme::Size", "U32", "Kel::PtrInterface", "Odd::Own":
            cls = py_type(name)
            self.assertEqual(cls.__basicsize__, 40)
            self.assertEqual(cls.__itemsize__, 0)
            self.assertEqual(cls.__flags__ & 0x201eb, 0x201eb)
            is_heap_type, is_base_type, has_gc = 1 << 9, 1 << 10, 1 << 14
            self.assertEqual(cls.__flags__ & (is_heap_type | is_base_type | has_gc), 0)
            self.assertEqual(cls.__dictoffset__, 0)

    def test_a_class_statement_cannot_derive_from_it(self):
        for cls, name in ((acme.Item, "Acme::Item"), (acme.Size, "Acme::Size"),
                          (py_type("U32"), "U32")):
            with self.assertRaises(TypeError) as caught:
                class Derived(cls):
                    pass
            self.assertIn(
                "type '%s' is not an acceptable base type" % name, str(caught.exception))

    def test_another_thread_gets_the_same_class(self):
        in_child("""
            import threading
            import _Kel, acme
            names = ["Acme::Item", "Acme::Store", "Acme::Shelf", "Acme::Name", "Kel::Clock"]
            got = []

            def make():
                got.append([_Kel.pyType(_Kel.typeNode(name)) for name in names])

            threads = [threading.Thread(target=make) for _ in range(8)]
            [thread.start() for thread in threads]
            [thread.join() for thread in threads]
            assert len(got) == 8 and all(each == got[0] for each in got)
            """).expect()

    def test_code_that_runs_while_a_class_is_made_gets_the_same_class(self):
        # A collection of garbage in the middle of the making calls back.
        in_child("""
            import gc, weakref
            import _Kel, acme

            class Garbage(object):
                pass

            def leave_garbage():
                garbage = Garbage()
                garbage.itself = garbage
                return weakref.ref(garbage, make)

            def make(ref=None):
                got.setdefault(name, []).append(_Kel.pyType(_Kel.typeNode(name)))

            got = {}
            for name in "Acme::Item", "Acme::Size", "Kel::Clock":
                node = _Kel.typeNode(name)
                gc.collect()
                ref = leave_garbage()
                gc.set_threshold(1)
                cls = _Kel.pyType(node)
                gc.set_threshold(0)
                assert got[name] == [cls], (got, cls)
                assert [each.__name__ for each in cls.__base__.__subclasses__()].count(name) == 1
            """).expect()


class Bases(TestCase):

    def check(self, name, base):
        expected = object if base is None else py_type(base)
        self.assertIs(py_type(name).__base__, expected, name)
        self.assertEqual(py_type(name).__bases__, (expected,))

    def test_a_derived_type_has_the_class_of_its_declared_base(self):
        self.check("Acme::Item", "Acme::Thing")
        self.check("Acme::Thing", "Kel::Entity")
        self.check("Acme::Shelf", "Kel::Dir")
        self.check("Kel::Dir", "Kel::Entity")
        self.check("Odd::Point3", "Acme::Point")
        self.check("Odd::SpecialNode", "Odd::Node")
        self.check("Acme::Name", "Kel::String")

    def test_a_pointer_type_without_a_base_descends_from_PtrInterface(self):
        for name in "Kel::Entity", "Odd::Node", "Acme::StockItem", "Odd::Gate", "Odd::Raw":
            self.assertTrue(issubclass(py_type(name), py_type("Kel::PtrInterface")), name)
        self.check("Acme::StockItem", "Kel::PtrInterface")
        self.check("Odd::Node", "Kel::PtrInterface")

    def test_PtrInterface_and_a_type_with_a_pointer_interface_of_its_own_have_object(self):
        self.check("Kel::PtrInterface", None)
        self.check("Odd::Own", None)

    def test_a_value_type_without_a_base_has_object(self):
        for name in "Acme::Size", "Acme::Point", "U32", "Kel::String", "Odd::Empty":
            self.check(name, None)
            self.assertFalse(issubclass(py_type(name), py_type("Kel::PtrInterface")))

    def test_an_enum_type_has_object_though_its_row_holds_a_reference(self):
        for name in "Acme::Color", "Odd::ES64":
            self.check(name, None)

    def test_bases_are_made_first_and_a_chain_is_made_once(self):
        in_child("""
            import _Kel, acme
            item = _Kel.pyType(_Kel.typeNode("Acme::Item"))
            assert [cls.__name__ for cls in item.__mro__] == [
                "Acme::Item", "Acme::Thing", "Kel::Entity", "Kel::PtrInterface", "object"]
            for cls in item.__mro__[:-1]:
                assert _Kel.pyType(cls.kelType) is cls
            """).expect()

    def test_a_value_that_descends_from_pointers_ends_the_process(self):
        outcome = in_child("import _Kel, kel_schema; _Kel.pyType(kel_schema.forged(0))").expect(-6)
        self.assertIn(
            "assertion failed: !baseType || ( type.isValue() == baseType.isValue() ) (",
            outcome.err)


class Shapes(TestCase):

    def test_built_in_and_enum_classes_cannot_be_called(self):
        for name in "U8", "bool", "Kel::String", "double", "Acme::Color", "Odd::ES8":
            for args in (), (1,), ("red", 2):
                self.assertRefused(
                    NotImplementedError, "cannot construct object of built-in or enum type",
                    py_type(name), *args)

    def test_they_hold_their_descriptors_and_nothing_else(self):
        for name in "U8", "Kel::String":
            self.assertEqual(set(py_type(name).__dict__), set(["__new__", "__doc__"]))
        self.assertEqual(set(acme.Color.__dict__), set(["__new__", "__doc__", "red", "blue"]))

    def test_a_root_class_has_the_slots_of_its_kind(self):
        for name in "Acme::Size", "Odd::Empty", "Kel::PtrInterface", "Odd::Own", "Acme::Name":
            for slot in ROOT_SLOTS + ["attributes", "kelType"]:
                self.assertIn(slot, py_type(name).__dict__, (name, slot))

    def test_a_value_over_a_built_in_type_is_a_root_and_can_be_called(self):
        self.assertIs(acme.Name.__base__, py_type("Kel::String"))
        self.assertEqual(acme.Name("text").value, "text")
        self.assertIn("__copy__", acme.Name.__dict__)

    def test_a_derived_class_inherits_them(self):
        for name in "Acme::Item", "Odd::Point3", "Odd::SpecialNode", "Acme::Store":
            for slot in ROOT_SLOTS + list(OBJECT_METHODS) + ["attributes", "kelType"]:
                self.assertNotIn(slot, py_type(name).__dict__, (name, slot))
                self.assertTrue(hasattr(py_type(name), slot), (name, slot))

    def test_root_classes_have_the_object_methods_with_their_doc_strings(self):
        for name in "Acme::Size", "Kel::PtrInterface", "Odd::Own":
            for method, doc in OBJECT_METHODS.items():
                self.assertEqual(py_type(name).__dict__[method].__doc__, doc)
            self.assertEqual(py_type(name).__dict__["attributes"].__doc__,
                             "Tuple of attribute names.")
            self.assertEqual(py_type(name).__dict__["kelType"].__doc__, "Kel::KelType object.")

    def test_pointers_have_truth_as_their_only_number_slot(self):
        numbers = [name for name in ("__nonzero__", "__add__", "__sub__", "__int__", "__invert__",
                                     "__and__", "__coerce__", "__index__", "__hex__")
                   if hasattr(odd.Node, name)]
        self.assertEqual(numbers, ["__nonzero__"])
        self.assertIs(bool(odd.Node(1)), True)

    def test_attribute_access_is_Pythons_own(self):
        for cls in acme.Item, acme.Size, odd.Own:
            self.assertIs(cls.__getattribute__, object.__getattribute__)
            for base in cls.__mro__[:-1]:
                self.assertNotIn("__getattribute__", base.__dict__)
                self.assertNotIn("__setattr__", base.__dict__)

    def test_the_doc_string_of_the_type_is_left_to_the_metaclass(self):
        self.assertIs(acme.Item.__dict__["__doc__"], None)

    def test_the_metaclass_has_doc_strings_on_its_getters(self):
        self.assertEqual(Type.__dict__["attributes"].__doc__, "Tuple of attribute names.")
        self.assertEqual(Type.__dict__["kelType"].__doc__, "Kel::KelType object.")


class DefaultCollections(TestCase):

    def test_a_directory_class_has_the_slots_and_methods_of_a_collection(self):
        cls = py_type("Kel::Dir")
        for slot in COLLECTION_SLOTS:
            self.assertIn(slot, cls.__dict__)
        for method, doc in DIRECTORY_METHODS.items():
            self.assertEqual(cls.__dict__[method].__doc__, doc)
        self.assertEqual(cls.__dict__["kelAttr"].__doc__, "Kel::KelAttr object.")

    def test_a_derived_directory_inherits_them(self):
        for name in COLLECTION_SLOTS + list(DIRECTORY_METHODS) + ["kelAttr"]:
            self.assertNotIn(name, acme.Shelf.__dict__)
            self.assertTrue(hasattr(acme.Shelf, name))

    def test_other_classes_have_none_of_them(self):
        for cls in acme.Item, acme.Store, acme.Size, py_type("Kel::Entity"):
            for name in COLLECTION_SLOTS + list(DIRECTORY_METHODS) + ["kelAttr"]:
                self.assertFalse(hasattr(cls, name), (cls, name))

    def test_the_collection_of_a_derived_directory_is_its_own(self):
        self.assertIs(acme.Shelf("s").kelAttr, acme.Shelf.kelType.attr("slot"))
        self.assertIs(py_type("Kel::Dir")("d").kelAttr, node("Kel::Dir").attr("entityPtr"))


class Descriptors(TestCase):

    def test_each_own_attribute_of_every_sort_has_one(self):
        self.assertEqual(
            set(descriptors(acme.Item)),
            set(["id", "size", "color", "position", "parent", "weight", "lookup", "resize", "add",
                 "part", "addPart", "unit", "describe"]))
        self.assertEqual(set(descriptors(acme.Color)), set(["red", "blue"]))

    def test_an_inherited_attribute_stands_in_the_base_alone_and_is_found(self):
        self.assertNotIn("note", acme.Item.__dict__)
        self.assertIn("note", acme.Thing.__dict__)
        self.assertEqual(acme.Item("one", 1).note, "")

    def test_a_collection_with_an_index_attribute_has_a_second_one(self):
        cls = acme.Store
        self.assertEqual(
            set(name for name in descriptors(cls) if name.startswith(("new", "add"))),
            set(["newItem", "addFavorite"]))
        self.assertIn("item", descriptors(cls))
        self.assertIn("favorite", descriptors(cls))

    def test_a_collection_without_one_has_its_own_name_alone(self):
        for name in "Price", "Alias", "Tag", "Order", "Undo", "Track", "Badge":
            self.assertNotIn("new" + name, acme.Store.__dict__)
            self.assertNotIn("add" + name, acme.Store.__dict__)
        for name in "price", "alias", "tag", "order", "undo", "track", "badge":
            self.assertIn(name, descriptors(acme.Store))

    def test_an_attribute_named_like_a_factory_takes_its_place(self):
        clash = odd.Clash()
        self.assertEqual(set(descriptors(odd.Clash)), set(["entry", "newEntry"]))
        self.assertEqual(clash.newEntry, 0)
        clash.newEntry = 7
        self.assertEqual(clash.newEntry, 7)

    def test_its_repr_names_the_attribute_and_the_type_that_declares_it(self):
        self.assertEqual(repr(acme.Item.__dict__["size"]),
                         "<attribute 'size' of 'Acme::Item' objects>")
        self.assertEqual(repr(acme.Thing.__dict__["note"]),
                         "<attribute 'note' of 'Acme::Thing' objects>")
        self.assertEqual(repr(acme.Item.__dict__["addPart"]),
                         "<attribute 'addPart' of 'Acme::Item' objects>")
        self.assertEqual(repr(acme.Color.__dict__["red"]),
                         "<attribute 'red' of 'Acme::Color' objects>")

    def test_keys_are_interned(self):
        for cls in acme.Item, acme.Store, odd.Clash:
            for name in descriptors(cls):
                self.assertIs(name, intern(name))

    def test_a_capital_is_made_of_the_first_letter_alone(self):
        in_child("""
            import _Kel, kel_schema, acme
            part = acme.Item.kelType.attr("part")
            for kind, key in ((0, "part"), (1, "newPart"), (2, "addPart")):
                names = {}
                assert kel_schema.addDescriptor(names, part, kind)
                assert names.keys() == [key], names
                assert names.keys()[0] is intern(key)
            """).expect()

    def test_a_second_one_takes_the_place_of_the_first(self):
        names = {}
        part = acme.Item.kelType.attr("part")
        kel_schema.addDescriptor(names, part, 1)
        first = names["newPart"]
        kel_schema.addDescriptor(names, part, 1)
        self.assertIsNot(names["newPart"], first)
        self.assertEqual(len(names), 1)

    def test_kinds_that_do_not_fit_the_attribute_end_the_process(self):
        for name, kind, text in (
                ("size", 1, "attr.isCollection() || ( kind == "
                            "PyGenericIfAttrDescriptor::Kind::Attribute )"),
                ("add", 2, "attr.isCollection() || ( kind == "
                           "PyGenericIfAttrDescriptor::Kind::Attribute )"),
                ("part", 3, "kind == PyGenericIfAttrDescriptor::Kind::Attribute")):
            outcome = in_child("""
                import sys, _Kel, kel_schema, acme
                attr = acme.Item.kelType.attr(sys.argv[1])
                kel_schema.addDescriptor({}, attr, int(sys.argv[2]))
                """, [name, str(kind)]).expect(-6)
            self.assertIn("assertion failed: %s (" % text, outcome.err)


class AttributeNames(TestCase):

    def test_all_attributes_are_listed_those_of_the_bases_first(self):
        names = acme.Item.attributes
        self.assertIs(type(names), tuple)
        self.assertEqual(names, tuple(attr.name for attr in acme.Item.kelType.attributeQ))
        self.assertEqual(names, ("name", "fullName", "note", "id", "size", "color", "position",
                                 "parent", "weight", "lookup", "resize", "add", "part", "unit",
                                 "describe"))
        for name in names:
            self.assertIs(name, intern(name))

    def test_generated_names_are_not(self):
        for name in "newItem", "addFavorite":
            self.assertNotIn(name, acme.Store.attributes)

    def test_an_instance_lists_the_same(self):
        self.assertEqual(acme.Item("one", 1).attributes, acme.Item.attributes)
        self.assertEqual(acme.Size(1).attributes, ("value",))
        self.assertIs(acme.Size(1).kelType, acme.Size.kelType)

    def test_a_type_without_attributes_has_an_empty_tuple(self):
        self.assertEqual(odd.Empty.attributes, ())
        self.assertEqual(py_type("U32").attributes, ())

    def test_the_tuple_is_new_at_each_read(self):
        self.assertIsNot(acme.Item.attributes, acme.Item.attributes)


class Lives(TestCase):

    def test_a_class_lives_on_without_a_holder(self):
        address = id(py_type("Odd::Nest"))
        import gc
        gc.collect()
        self.assertEqual(id(py_type("Odd::Nest")), address)

    def test_instances_take_no_reference_on_their_class(self):
        before = sys.getrefcount(acme.Size)
        sizes = [acme.Size(n) for n in range(100)]
        self.assertEqual(sys.getrefcount(acme.Size), before)
        del sizes
        self.assertEqual(sys.getrefcount(acme.Size), before)
