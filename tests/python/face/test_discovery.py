"""What dir(), the Tab key and help() tell of classes that are made when they are first asked for.

The classes there are, and the attributes that were read, are looked at in processes of their own.
"""

import os
import pydoc
import re
import unittest

import Kel
import _Kel
import acme
from kel_testing import TestCase, in_child

TOOLS = """
import pydoc
import Kel, acme, _Kel

def classes():
    found, left = set(), [object]
    while left:
        for each in type.__subclasses__(left.pop()):
            if type(each).__name__ == "Type" and each not in found:
                found.add(each)
                left.append(each)
    return set(each.__name__ for each in found if each.__name__.startswith("Acme::"))

def completions(word, **names):
    complete, state = Kel.completer(dict(names, acme=acme)), iter(xrange(1000))
    return list(iter(lambda: complete(word, next(state)), None))

def reads():
    return _Kel.attributeAccessorCount()
"""


def completions(word, **names):
    complete, state = Kel.completer(names), iter(xrange(1000))
    return list(iter(lambda: complete(word, next(state)), None))


def rendered(thing):
    return pydoc.plain(pydoc.render_doc(thing))


class Fresh(TestCase):
    """Nothing is made and nothing is read that was not asked for."""

    def check(self, source):
        done = in_child(TOOLS + source).expect()
        self.assertEqual((done.out, done.err), ("done\n", ""))

    def test_dir_of_a_schema_and_completion_in_it_make_no_class(self):
        self.check("""
assert not classes()
assert "Item" in dir(acme)
assert completions("acme.It") == ["acme.Item("], completions("acme.It")
assert len(completions("acme.")) > 10
assert not classes(), classes()
print "done"
""")

    def test_a_class_comes_with_its_bases_alone(self):
        self.check("""
acme.Item
assert classes() == set(["Acme::Item", "Acme::Thing"]), classes()
dir(acme.Item), completions("acme.Item.")
assert classes() == set(["Acme::Item", "Acme::Thing"]), classes()
print "done"
""")

    def test_dir_and_completion_of_an_object_read_nothing_and_make_no_class(self):
        self.check("""
item = acme.Item("a", 1)
before, there = reads(), classes()
assert "position" in dir(item) and "addPart" in dir(item)
assert completions("item.pos", item=item) == ["item.position"]
assert "item.resize(" in completions("item.", item=item)
assert reads() == before and classes() == there, (reads() - before, classes())
print "done"
""")

    def test_help_of_a_class_or_an_object_reads_nothing_and_makes_no_other_class(self):
        self.check("""
item = acme.Item("a", 1)
before = reads()
for thing in acme.Item, item:
    assert "position : Acme::Point" in pydoc.plain(pydoc.render_doc(thing))
assert reads() == before
assert classes() == set(["Acme::Item", "Acme::Thing"]), classes()
print "done"
""")

    def test_completion_reads_what_stands_before_the_last_dot_and_no_more(self):
        self.check("""
item = acme.Item("a", 1)
item.parent = acme.Item("b", 2)
before = reads()
assert completions("item.parent.na", item=item) == ["item.parent.name"]
assert reads() == before + 1
print "done"
""")

    def test_Kel_comes_without_readline(self):
        done = in_child("import sys, Kel\nprint 'readline' in sys.modules").expect()
        self.assertEqual(done.out, "False\n")


class Complete(TestCase):

    def test_dir_of_an_object_has_every_attribute_and_every_method(self):
        item = acme.Item("discovery", 1)
        names = dir(item)
        self.assertLessEqual(set(acme.Item.attributes), set(names))
        self.assertLessEqual(set(("addPart", "getRawAttribute", "kelType", "attributes")), set(names))
        self.assertEqual([name for name in names if not hasattr(type(item), name)
                          and type(vars(_owner(acme.Item, name)).get(name)).__name__ != "Attribute"], [])

    def test_dir_of_a_collection_and_of_a_directory_have_their_methods(self):
        store = acme.Store("discovery")
        self.assertLessEqual(set(("keys", "push", "update", "fullName")), set(dir(store.price)))
        self.assertLessEqual(set(("mkdir", "newEntity", "keys", "isMounted")), set(dir(Kel.root())))

    def test_functions_methods_and_factories_are_completed_with_a_parenthesis_and_attributes_without(self):
        item, store = acme.Item("discovery", 1), acme.Store("discovery")
        for text, wanted in (("it.siz", ["it.size"]), ("it.resi", ["it.resize("]), ("it.part", ["it.part"]),
                             ("it.addP", ["it.addPart("]), ("it.getRaw", ["it.getRawAttribute("]),
                             ("it.kelT", ["it.kelType"])):
            self.assertEqual(completions(text, it=item), wanted)
        self.assertEqual(completions("store.newI", store=store), ["store.newItem("])
        self.assertEqual(completions("price.iterk", price=store.price), ["price.iterkeys("])
        self.assertEqual(completions("item.desc", item=acme.Item), ["item.describe("])
        self.assertEqual(completions("acme.Colo", acme=acme), ["acme.Color"])

    def test_a_mount_is_completed_once_its_entity_is_there(self):
        mount = Kel.Mount("/discovered")
        self.assertEqual(completions("mount.weig", mount=mount), [])
        Kel.root().newEntity("Acme::Item", "discovered")
        try:
            self.assertEqual(completions("mount.weig", mount=mount), ["mount.weight"])
        finally:
            del Kel.root()["discovered"]

    def test_the_prompt_of_the_project_has_it_and_leaves_no_name_behind(self):
        done = in_child("""
before = set(globals())
execfile(%r)
assert set(globals()) - before == set(["before"]), globals()
import readline, acme
print readline.get_completer()("acme.Bad", 0)
""" % os.path.join(os.path.dirname(os.path.abspath(__file__)), *[os.pardir] * 3 + ["tools", "prompt.py"]))
        self.assertEqual(done.expect().out, "acme.Badge(\n")

    def test_other_names_are_completed_as_Python_does(self):
        self.assertEqual(completions("text.startsw", text="a"), ["text.startswith("])
        self.assertEqual(completions("isinsta"), ["isinstance("])
        self.assertEqual(completions("nothing.at"), [])
        self.assertEqual(completions(""), ["\t"])


def _owner(cls, name):
    return next((each for each in cls.__mro__ if name in vars(each)), cls)


class Help(TestCase):

    def test_help_of_a_class_shows_its_signature_its_bases_and_every_attribute(self):
        text = rendered(acme.Item)
        self.assertIn("class Acme::Item(Acme::Thing)\n"
                      " |  Acme::Item : Kel::Type(name, id) : Acme::Thing\n", text)
        for name in acme.Item.attributes:
            self.assertRegexpMatches(text, r"(?m)^ \|  %s\n \|      %s : " % (name, name))
        self.assertIn("Data descriptors inherited from Acme::Thing:\n |  \n |  note\n", text)
        self.assertIn(" |  addPart\n |      Add a member to the 'part' collection.\n", text)
        self.assertRegexpMatches(text, r"getRawAttribute\(\.\.\.\)\n \|      Return the attribute")

    def test_help_of_an_object_is_that_of_its_class(self):
        body = rendered(acme.Item).split("\n", 1)[1]
        self.assertEqual(rendered(acme.Item("discovery", 1)).split("\n", 1)[1], body)

    def test_help_of_an_enum_shows_its_constants(self):
        self.assertRegexpMatches(rendered(acme.Color), r"red\n \|      'red' = \d+")

    def test_help_of_a_schema_shows_each_of_its_types(self):
        text = rendered(acme)
        for kel_type in Kel.types("Acme"):
            name = re.escape(kel_type.fullTypeName)
            self.assertRegexpMatches(text, r"(?m)^    (?:\w+ = )?class %s\(" % name)

    def test_help_of_the_module_shows_each_function_with_its_text(self):
        text = rendered(_Kel)
        for name in dir(_Kel):
            if not name.startswith("__"):
                self.assertIn(" %s" % name, text)
                self.assertTrue(getattr(_Kel, name).__doc__)

    def test_help_of_Kel_and_of_all_it_has_is_there(self):
        text = rendered(Kel)
        for name in Kel.__all__:
            self.assertRegexpMatches(text, r"\b%s\b" % name)
            self.assertTrue(getattr(Kel, name).__doc__, name)

    def test_all_types_of_a_schema_can_be_imported_at_once(self):
        names = {}
        exec "from acme import *" in names
        self.assertIs(names["Item"], acme.Item)
        self.assertIn("Store", names)


class Mistyped(TestCase):

    def test_a_name_that_an_object_does_not_have_is_what_Python_says(self):
        item = acme.Item("discovery", 1)
        text = "'Acme::Item' object has no attribute 'siez'"
        self.assertRefused(AttributeError, text, getattr, item, "siez")
        self.assertRefused(AttributeError, text, setattr, item, "siez", 1)
        self.assertRefused(AttributeError, "type object 'Acme::Item' has no attribute 'siez'",
                           getattr, acme.Item, "siez")
        self.assertRefused(AttributeError, "'_Kel.Collection' object has no attribute 'kesy'",
                           getattr, item.part, "kesy")
        self.assertRefused(AttributeError, "there is no type Acme::Itme", getattr, acme, "Itme")


if __name__ == "__main__":
    unittest.main()
