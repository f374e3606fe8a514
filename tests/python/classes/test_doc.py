"""What classes and descriptors say of themselves."""

import pydoc
import threading
import unittest

import _Kel
import acme
import odd
from kel_testing import TestCase


def cls(name):
    return _Kel.pyType(_Kel.typeNode(name))


def doc(class_name, attribute):
    return vars(cls(class_name))[attribute].__doc__


class Classes(TestCase):

    def test_a_class_names_its_constructor_and_its_base(self):
        for name, rest in [
                ("Acme::Item", "Kel::Type(name, id) : Acme::Thing"),
                ("Acme::Thing", "Kel::Type(name) : Kel::Entity"),
                ("Acme::Shelf", "Kel::Type(name) : Kel::Dir"),
                ("Acme::StockItem", "Kel::Type(sku, count)"),
                ("Acme::Size", "Kel::Type(value) : Kel::Nominal"),
                ("Acme::Point", "Kel::Type() : Kel::Nominal"),
                ("Acme::Name", "Kel::Type(value) : Kel::String"),
                ("Odd::Point3", "Kel::Type() : Acme::Point"),
                ("Odd::Segment", "Kel::Type(start, end) : Kel::Nominal"),
                ("Odd::Own", "Kel::Type()"),
                ("Odd::SpecialNode", "Kel::Type(id) : Odd::Node"),
                ("Odd::Coll", "Kel::Type()"),
                ("Kel::PtrInterface", "Kel::Type()"),
                ("U32", "Kel::Type() : Kel::Nominal")]:
            self.assertEqual(cls(name).__doc__, "%s : %s" % (name, rest))

    def test_an_enum_shows_no_constructor(self):
        for name in ("Acme::Color", "Odd::Twin", "Odd::ES64", "Kel::MountMode"):
            self.assertEqual(cls(name).__doc__, name + " : Kel::Enum")

    def test_a_bit_set_shows_no_constructor(self):
        self.assertEqual(odd.ColorSet.__doc__, "Odd::ColorSet : Kel::DenseEnumBoolSet")

    def test_the_first_constrainer_of_a_chain_says_so(self):
        self.assertEqual(odd.Gate.__doc__, "Odd::Gate : Kel::Type() : Kel::Constrainer")
        self.assertEqual(odd.SubGate.__doc__, "Odd::SubGate : Kel::Type() : Odd::Gate")

    def test_the_types_of_classes_and_descriptors_keep_their_own(self):
        self.assertEqual(type(acme.Item).__doc__, "Metaclass for kelc-Python objects.")
        self.assertEqual(type(vars(acme.Item)["size"]).__doc__,
                         "Descriptor for kelc-Python attributes.")

    def test_a_doc_cannot_be_written(self):
        self.assertRaises(AttributeError, setattr, vars(acme.Item)["size"], "__doc__", "x")
        self.assertRaises((AttributeError, TypeError), setattr, acme.Item, "__doc__", "x")

    def test_help_tells_it(self):
        text = pydoc.plain(pydoc.render_doc(acme.Item))
        self.assertIn("Acme::Item : Kel::Type(name, id) : Acme::Thing", text)
        self.assertIn("lookup : Acme::Item::Ptr(name : Acme::Name, size : Acme::Size)", text)


class Descriptors(TestCase):

    def check(self, class_name, *docs):
        for text in docs:
            name = text.split()[0]
            self.assertEqual(doc(class_name, name), text)

    def test_a_plain_attribute_names_its_type(self):
        self.check("Acme::Item", "size : Acme::Size", "id : U32", "unit : static Kel::String",
                   "color : Acme::Color")
        self.check("Odd::Own", "n : U32")

    def test_a_pointer_says_how_it_points(self):
        self.check("Acme::Item", "parent : Acme::Item::Ptr")
        self.check("Odd::Node", "next : Odd::Node::Ptr", "constNext : Odd::Node::PtrConst",
                   "rawNext : Odd::Node::RawPtr")
        self.check("Odd::Keeper", "own : Odd::Own::Ptr")

    def test_an_instantiating_attribute_reads_as_its_type(self):
        self.check("Acme::Store", "badge : Acme::Badge", "item : Acme::StockItem[sku]")
        self.check("Odd::Coll", "fleet : static Acme::StockItem[sku]")

    def test_a_collection_shows_its_kind_and_its_key(self):
        self.check(
            "Acme::Store", "favorite : Acme::StockItem::Ptr[sku]", "price : U32[Kel::String]",
            "alias : Acme::Name[Acme::Name]", "tag : set bool[Kel::String]",
            "order : queue Kel::String[U32]", "undo : stack Acme::Size[U32]",
            "track : vector S32[U32]")
        self.check("Acme::Item", "part : Acme::Item::PtrConst[name]")
        self.check(
            "Odd::Coll", "slot : array U32[U32]", "packed : array U32[U32]", "pod : U8[U32]",
            "part : set Acme::Item::PtrConst[name]", "node : Odd::Node::PtrConst[id]",
            "registry : static U32[Kel::String]", "intake : queue Acme::StockItem[U32]")

    def test_a_key_that_is_a_const_pointer_says_so(self):
        self.check("Odd::Coll", "byNode : U32[Odd::Node::PtrConst]")

    def test_a_function_shows_its_result_and_its_parameters(self):
        self.check(
            "Acme::Item", "lookup : Acme::Item::Ptr(name : Acme::Name, size : Acme::Size)",
            "add : S32(a : S32, b : S32)", "describe : static Kel::String(color : Acme::Color)")
        self.check("Odd::Args", "none : U32()", "one : U32(a : U32)", "opt : bool(a : U32)",
                   "poke : invasive U32()", "kept : Odd::Node::Ptr()")

    def test_a_parameter_that_is_a_pointer_says_no_more_than_that(self):
        self.check("Odd::Args", "node : Odd::Node::Ptr(n : Odd::Node::Ptr)")

    def test_a_type_that_is_not_known_is_told(self):
        self.check("Odd::Raw", "mystery : <unknown>")

    def test_an_enum_constant_shows_its_id_and_not_its_value(self):
        for class_name in ("Acme::Color", "Odd::Twin", "Odd::ES8"):
            for name in cls(class_name).attributes:
                number = _Kel.typeNode(class_name).attr(name).attributeId
                self.assertEqual(doc(class_name, name), "'%s' = %d" % (name, number))
        self.assertNotEqual(doc("Acme::Color", "red"), "'red' = 0")
        for name in ("constant", "invasiveConst"):
            self.assertRegexpMatches(doc("Odd::Raw", name), r"^'%s' = \d+$" % name)

    def test_factories_and_adders_name_their_collection(self):
        self.assertEqual(doc("Acme::Store", "newItem"),
                         "Instantiate a new member in the 'item' collection.")
        self.assertEqual(doc("Acme::Store", "addFavorite"),
                         "Add a member to the 'favorite' collection.")
        self.assertEqual(doc("Odd::Clash", "newEntry"), "newEntry : U32")

    def test_an_unknown_type_of_a_parameter_is_the_exception_of_the_runtime(self):
        self.assertRefused(
            TypeError, "Odd::Args.unknown: Kel::NoTypeNodeException(\"no type "
            "'Odd::Unregistered'\")", lambda: doc("Odd::Args", "unknown"))

    def test_every_descriptor_of_the_schemas_has_a_doc(self):
        for module, names in [
                (acme, "Color Size Name Point Thing Item StockItem Badge Store Shelf"),
                (odd, "Scalars Values Node Coll Faults Probe Notes Board Tags")]:
            for name in names.split():
                for key, member in vars(getattr(module, name)).items():
                    if type(member) is type(vars(acme.Item)["size"]):
                        self.assertRegexpMatches(
                            member.__doc__, r"^(Instantiate|Add) a .*|'?%s'? [:=] .+" % key)

    def test_a_doc_is_read_while_another_thread_holds_the_activity_lock(self):
        held, done = threading.Event(), threading.Event()
        item, lookup = acme.Item, vars(acme.Item)["lookup"]

        def holder():
            _Kel.acquireActivityLock()
            held.set()
            done.wait(20)
            _Kel.releaseActivityLock()
        thread = threading.Thread(target=holder)
        thread.start()
        held.wait()
        texts = item.__doc__, lookup.__doc__
        owner = _Kel.activityLockOwner()
        done.set()
        thread.join()
        self.assertTrue(all(texts))
        self.assertNotEqual(owner, 0, "the doc waited for the lock")


if __name__ == "__main__":
    unittest.main()
