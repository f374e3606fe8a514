"""Directories, which act as their default collection."""

import unittest

import _Kel
import acme
import odd
from kel_testing import TestCase
from kel_testing.kinds import directories

Dir = _Kel.pyType(_Kel.typeNode("Kel::Dir"))

METHODS = [
    ("keys", "Return a list of keys."),
    ("values", "Return a list of values."),
    ("items", "Return a list of items."),
    ("iterkeys", "Return an iterator over keys."),
    ("itervalues", "Return an iterator over values."),
    ("iteritems", "Return an iterator over items."),
    ("version", "Return the collection version."),
    ("members", "Return a list of members."),
    ("has_key", "Check collection membership."),
    ("get", "Get an element."),
    ("setdefault", "Get an element, setting if not present."),
    ("clear", "Delete all entities in this Kel::Dir."),
    ("newMember", "Add a member (instantiating collections only)."),
    ("addMember", "Add a member (non-instantiating collections only)."),
    ("getRawEntry", "Get an element, avoiding defaultAttribute conversion."),
    ("newEntity", "Instantiate a new entity in this Kel::Dir."),
    ("mkdir", "Create a new subdirectory of this Kel::Dir."),
]


def item(name):
    return acme.Item(acme.Name(name), 1)


class Directories(TestCase):

    def each(self):
        for kind in directories():
            directory = kind.filled()
            yield directory, getattr(directory, kind.name)

    def test_the_methods_are_those_of_the_table(self):
        names = [name for name, member in vars(Dir).items()
                 if type(member) is type(vars(dict)["keys"])]
        self.assertEqual(sorted(names), sorted(name for name, doc in METHODS))
        for name, doc in METHODS:
            self.assertEqual(getattr(Dir, name).__doc__, doc)

    def test_a_directory_has_no_methods_of_sets_and_ordered_collections(self):
        for directory, collection in self.each():
            for name in ("add", "remove", "update", "enq", "deq", "push", "pop", "front", "back",
                         "top", "bottom"):
                self.assertTrue(hasattr(collection, name))
                self.assertFalse(hasattr(directory, name), name)

    def test_it_shows_what_its_collection_shows(self):
        for directory, collection in self.each():
            self.assertEqual((len(directory), len(collection)), (2, 2))
            self.assertEqual(directory.keys(), collection.keys())
            self.assertEqual(directory.members(), directory.keys())
            self.assertEqual(directory.values(), collection.values())
            self.assertEqual(directory.items(), collection.items())
            self.assertEqual(list(directory), collection.keys())
            self.assertEqual(directory.version(), collection.version())
            for key in collection:
                self.assertEqual(directory[key], collection[key])
                self.assertEqual(directory.get(key), collection[key])
                self.assertEqual(directory.getRawEntry(key), collection[key])

    def test_in_and_has_key_agree(self):
        for directory, collection in self.each():
            for key in ("k0", "k1", "k2", ""):
                self.assertEqual(key in directory, collection.has_key(key))
                self.assertIs(directory.has_key(key), key in collection)

    def test_in_asks_for_a_key_only(self):
        for directory, collection in self.each():
            self.assertRefused(
                TypeError, "%s: index: Kel::TypeException(\"expected Kel::String, got "
                "Acme::Item: %r\")" % (
                    type(directory).__name__ + "." + collection.kelAttr.name, directory["k0"]),
                directory.__contains__, directory["k0"])

    def test_the_attribute_is_the_default_collection_of_the_class(self):
        self.assertEqual(Dir("d").kelAttr.name, "entityPtr")
        shelf = acme.Shelf("s")
        self.assertIs(shelf.kelAttr, shelf.slot.kelAttr)
        self.assertEqual(Dir.kelAttr.__doc__, "Kel::KelAttr object.")

    def test_what_the_collection_refuses_is_refused(self):
        for directory, collection in self.each():
            self.assertRefused(
                TypeError, "newMember not allowed for non-instantiating collection; use "
                "addMember or __setitem__ instead", directory.newMember, "a")
            self.assertRefused(
                TypeError, "'__setitem__' not allowed for collection with internal key; use "
                "addMember instead", directory.__setitem__, "a", item("a"))
            self.assertRefused(
                TypeError, "setdefault not allowed for collection with internal key",
                directory.setdefault)
            self.assertRefused(TypeError, "addMember() takes exactly 1 argument (0 given)",
                               directory.addMember)

    def test_members_come_and_go(self):
        for directory, collection in self.each():
            member = item("new")
            self.assertIsNone(directory.addMember(member))
            self.assertEqual(directory["new"], member)
            del directory["new"]
            self.assertNotIn("new", collection)
            del directory["new"]

    def test_clear_deletes_all_entities(self):
        for directory, collection in self.each():
            self.assertIsNone(directory.clear())
            self.assertEqual((len(directory), len(collection)), (0, 0))

    def test_a_missing_entity_is_a_KeyError(self):
        for directory, collection in self.each():
            with self.assertRaises(KeyError) as caught:
                directory["absent"]
            self.assertEqual(caught.exception.args, ("absent",))
            self.assertIsNone(directory.get("absent"))
            self.assertEqual(directory.get("absent", 5), 5)

    def test_a_directory_is_true_and_hashable_also_when_empty(self):
        directory = Dir("d")
        self.assertTrue(directory)
        hash(directory)

    def test_methods_of_a_directory_that_became_a_failed_mount_are_refused(self):
        directory = Dir("d")
        methods = [(getattr(directory, name), args) for name, args in [
            ("keys", ()), ("iteritems", ()), ("version", ()), ("has_key", ("a",)), ("get", ("a",)),
            ("getRawEntry", ("a",)), ("setdefault", ("a",)), ("clear", ()), ("newMember", ()),
            ("addMember", (1,)), ("newEntity", ("Acme::Item", "a")), ("mkdir", ("a",))]]
        _Kel.convertEntityToFailedMount(directory)
        for method, args in methods:
            with self.assertRaises(TypeError) as caught:
                method(*args)
            self.assertIn("expected a kelc-Python object", str(caught.exception))

    def test_other_objects_are_no_collections(self):
        for other in (odd.Coll(), acme.Store("s"), acme.Size(1)):
            self.assertRaises(TypeError, len, other)
            self.assertRaises(TypeError, iter, other)
            self.assertFalse(hasattr(other, "keys"))


if __name__ == "__main__":
    unittest.main()
