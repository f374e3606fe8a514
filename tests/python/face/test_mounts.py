"""Mounts: stand-ins for entities that may not be there yet."""

import Kel
import acme
import _Kel
from kel_testing import TestCase


class Mounts(TestCase):

    def setUp(self):
        self.mount = Kel.Mount("/later")

    def tearDown(self):
        del self.mount
        Kel.root().clear()
        super(Mounts, self).tearDown()

    def appear(self):
        return Kel.root().newEntity("Acme::Item", "later")

    def test_before_its_entity_is_there_it_raises_where_it_is_used(self):
        item = acme.Item("item", 1)
        for use in (lambda: self.mount.name, lambda: setattr(self.mount, "note", "x"),
                    lambda: hash(self.mount), lambda: setattr(item, "parent", self.mount),
                    lambda: item.lookup(self.mount, 1)):
            self.assertRefused(LookupError, "entity '/later' not found", use)

    def test_once_the_entity_is_there_it_has_its_attributes(self):
        entity = self.appear()
        self.mount.note = "written"
        self.assertEqual((self.mount.name, entity.note), ("later", "written"))
        self.assertEqual(dir(self.mount), dir(entity))

    def test_it_can_be_given_wherever_the_entity_can(self):
        entity = self.appear()
        item = acme.Item("item", 1)
        item.parent = self.mount
        self.assertEqual(item.parent, entity)
        item.parent = None

    def test_it_equals_its_entity_and_hashes_like_it(self):
        self.assertFalse(self.mount == None)
        entity = self.appear()
        self.assertTrue(self.mount == entity and entity == self.mount)
        self.assertFalse(self.mount != entity)
        self.assertEqual(hash(self.mount), hash(entity))
        self.assertEqual(self.mount, Kel.Mount("/later"))

    def test_it_keeps_the_entity_that_it_found(self):
        entity = self.appear()
        self.assertEqual(self.mount.name, "later")
        del Kel.root()["later"]
        self.assertEqual(self.mount, entity)

    def test_its_repr_tells_its_path_before_and_after(self):
        self.assertEqual(repr(self.mount), "Mount('/later')")
        self.appear()
        self.mount.name
        self.assertEqual(repr(self.mount), "Mount('/later')")

    def test_an_entity_of_another_type_is_refused(self):
        self.mount = Kel.Mount("/later", Kel.Type("Acme::Store"))
        self.appear()
        self.assertRefused(
            LookupError, "entity '/later' is not of expected type", lambda: self.mount.name)

    def test_an_attribute_that_its_entity_does_not_have_is_an_AttributeError(self):
        self.appear()
        with self.assertRaises(AttributeError):
            self.mount.nothing

    def test_Python_finds_no_hidden_method_on_it(self):
        self.assertFalse(hasattr(self.mount, "__len__"))
