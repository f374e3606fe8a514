"""Making and emptying directories, and the singletons of the process."""

import unittest

import _Kel
import acme
import kel_hand
import odd
from kel_testing import TestCase

Dir = _Kel.pyType(_Kel.typeNode("Kel::Dir"))
ROOT = _Kel.singleton("Kel::Dir")


class DirectoryTest(TestCase):
    """Each test has an empty directory below the root."""

    def setUp(self):
        self.dir = ROOT.mkdir("test")

    def tearDown(self):
        _Kel.newEntityHookIs(None)
        del self.dir
        del ROOT["test"]
        super(DirectoryTest, self).tearDown()

    def mounted(self, mode="write", exempt=False):
        directory = self.dir.newEntity("Kel::Dir", "mounted")
        directory.mountMode = mode
        directory.isMounted = True
        directory.mountExempt = exempt
        return directory


class NewEntity(DirectoryTest):

    def test_it_makes_an_entity_of_that_type_and_name_in_the_directory(self):
        item = self.dir.newEntity("Acme::Item", "a")
        self.assertIs(type(item), acme.Item)
        self.assertEqual((item.name, item.fullName, item.id), ("a", "/test/a", 0))
        self.assertEqual(self.dir["a"], item)
        self.assertFalse(_Kel.isConst(item))
        shelf = self.dir.newEntity("Acme::Shelf", "shelf")
        self.assertEqual(shelf.newEntity("Acme::Store", "b").fullName, "/test/shelf/b")

    def test_what_the_runtime_refuses_comes_without_a_stage(self):
        self.dir.newEntity("Acme::Item", "a")
        for cls, text, args in [
                (TypeError, "Kel::NoTypeNodeException(\"no type 'Acme::Nothing'\")",
                 ("Acme::Nothing", "b")),
                (TypeError, 'Kel::TypeException("Acme::Size is no type of entity that can be made '
                 'by name")', ("Acme::Size", "b")),
                (NameError, "Kel::IllegalNameException(\"'b/c' is no name of an entity\")",
                 ("Acme::Item", "b/c")),
                (NameError, "Kel::IllegalNameException(\"'' is no name of an entity\")",
                 ("Acme::Item", "")),
                (NameError, "Kel::NameInUseException(\"the name 'a' is in use in /test\")",
                 ("Acme::Item", "a"))]:
            self.assertRefused(cls, text, self.dir.newEntity, *args)
        self.assertEqual(self.dir.keys(), ["a"])

    def test_it_takes_two_strings(self):
        self.assertRefused(TypeError, "newEntity() takes exactly 2 arguments (1 given)",
                           self.dir.newEntity, "Acme::Item")
        self.assertRaises(TypeError, self.dir.newEntity, "Acme::Item", 1)
        self.assertRaises(TypeError, self.dir.newEntity, "Acme::Item", "a\0b")

    def test_the_hook_sees_directory_type_and_name_ahead_of_any_lock(self):
        seen = []
        _Kel.newEntityHookIs(
            lambda *args: seen.append(args + (_Kel.activityLockOwner(), "a" in self.dir)))
        self.dir.newEntity("Acme::Item", "a")
        self.assertEqual(seen, [(self.dir, "Acme::Item", "a", 0, False)])
        self.assertIs(seen[0][0], self.dir)

    def test_a_hook_that_raises_keeps_the_runtime_out_of_it(self):
        def veto(directory, type_name, name):
            raise ValueError("veto")
        _Kel.newEntityHookIs(veto)
        self.assertRefused(ValueError, "veto", self.dir.newEntity, "Acme::Item", "a")
        # Not even the type is looked up.
        self.assertRefused(ValueError, "veto", self.dir.newEntity, "Acme::Nothing", "a")
        self.assertEqual(len(self.dir), 0)

    def test_a_hook_may_take_itself_away(self):
        _Kel.newEntityHookIs(lambda *args: _Kel.newEntityHookIs(None))
        self.dir.newEntity("Acme::Item", "a")
        self.assertIn("a", self.dir)

    def test_a_write_mounted_directory_gives_None_although_it_made_the_entity(self):
        mounted = self.mounted()
        self.assertIsNone(mounted.newEntity("Acme::Item", "a"))
        self.assertEqual(mounted["a"].fullName, "/test/mounted/a")

    def test_all_three_conditions_make_a_directory_write_mounted(self):
        for number, (mode, is_mounted, exempt) in enumerate([
                ("read", True, False), ("write", False, False), ("write", True, True)]):
            directory = self.dir.newEntity("Kel::Dir", "d%d" % number)
            directory.mountMode = mode
            directory.isMounted = is_mounted
            directory.mountExempt = exempt
            self.assertIs(type(directory.newEntity("Acme::Item", "a")), acme.Item)
            self.assertEqual(directory.mkdir("b").name, "b")

    def test_a_failure_in_a_write_mounted_directory_is_told(self):
        self.assertRaises(NameError, self.mounted().newEntity, "Acme::Item", "a/b")


class Mkdir(DirectoryTest):

    def bad_name(self, path):
        return "mkdir: bad name: '%s' is empty or has superfluous '/'" % path

    def test_it_makes_what_is_missing_and_gives_the_last_directory(self):
        last = self.dir.mkdir("a/b")
        self.assertIs(type(last), Dir)
        self.assertEqual(last.fullName, "/test/a/b")
        self.assertEqual(self.dir.mkdir("a/b"), last)
        self.assertEqual(self.dir.mkdir("a").fullName, "/test/a")
        self.assertEqual((self.dir.keys(), self.dir["a"].keys()), (["a"], ["b"]))

    def test_it_walks_through_directories_of_any_type(self):
        shelf = self.dir.newEntity("Acme::Shelf", "shelf")
        self.assertEqual(self.dir.mkdir("shelf"), shelf)
        inner = self.dir.mkdir("shelf/inner")
        self.assertEqual((inner.fullName, type(inner)), ("/test/shelf/inner", Dir))

    def test_superfluous_slashes_are_refused(self):
        for path in ("", "/", "/a"):
            self.assertRefused(ValueError, self.bad_name(path), self.dir.mkdir, path)
        self.assertEqual(len(self.dir), 0)

    def test_what_was_made_before_a_failure_stays(self):
        self.assertRefused(ValueError, self.bad_name("a/"), self.dir.mkdir, "a/")
        self.assertEqual(self.dir.keys(), ["a"])
        self.assertRefused(ValueError, self.bad_name("b//c"), self.dir.mkdir, "b//c")
        self.assertEqual(sorted(self.dir), ["a", "b"])
        self.assertEqual(len(self.dir["b"]), 0)

    def test_a_plain_entity_stops_the_walk(self):
        self.dir.newEntity("Acme::Item", "x")
        self.dir.mkdir("d").newEntity("Acme::Item", "y")
        text = "mkdir: cannot create '%s', because ancestor %s is not a Kel::Dir"
        for path, ancestor in [("x", "/test/x"), ("x/y", "/test/x"), ("d/y", "/test/d/y"),
                               ("d/y/z", "/test/d/y")]:
            self.assertRefused(Exception, text % (path, ancestor), self.dir.mkdir, path)

    def test_a_creation_in_a_write_mounted_directory_gives_that_directory(self):
        mounted = self.mounted()
        self.assertEqual(mounted.mkdir("a"), mounted)
        self.assertIn("a", mounted)
        self.assertEqual(self.dir.mkdir("mounted/b"), mounted)
        self.assertIn("b", mounted)

    def test_nothing_goes_below_a_creation_in_a_write_mounted_directory(self):
        mounted = self.mounted()
        self.assertRefused(ValueError, "mkdir: cannot create 'b' in w mounted dir 'a/b'",
                           mounted.mkdir, "a/b")
        self.assertEqual((mounted.keys(), len(mounted["a"])), (["a"], 0))
        # An empty name is told first.
        self.assertRefused(ValueError, self.bad_name("c//d"), mounted.mkdir, "c//d")

    def test_what_stands_below_a_write_mounted_directory_is_walked_through(self):
        mounted = self.mounted()
        mounted.mkdir("a")
        self.assertEqual(mounted.mkdir("a"), mounted["a"])
        self.assertEqual(mounted.mkdir("a/b").fullName, "/test/mounted/a/b")
        self.assertEqual(self.dir.mkdir("mounted/a/b/c").fullName, "/test/mounted/a/b/c")

    def test_a_read_mounted_or_exempt_directory_is_as_any_other(self):
        mounted = self.mounted(exempt=True)
        self.assertEqual(mounted.mkdir("a/b").fullName, "/test/mounted/a/b")

    def test_a_path_is_a_str(self):
        self.assertRefused(TypeError, "mkdir() argument 1 must be str, not unicode",
                           self.dir.mkdir, u"a")
        self.assertRaises(TypeError, self.dir.mkdir, 1)
        self.assertRaises(TypeError, self.dir.mkdir)

    def test_the_path_splits_itself_under_both_locks(self):
        owners = []

        class Path(str):
            def split(self, separator):
                owners.append((separator, _Kel.activityLockOwner()))
                return iter(["a", "b"])
        self.assertEqual(self.dir.mkdir(Path("whatever")).fullName, "/test/a/b")
        self.assertEqual(owners, [("/", kel_hand.thread())])

    def test_a_path_that_splits_into_no_strs_is_a_TypeError(self):
        class Path(str):
            parts = None

            def split(self, separator):
                if isinstance(self.parts, Exception):
                    raise self.parts
                return self.parts
        path = Path("path")
        for parts in ([u"a"], [1], [None], 5, None):
            path.parts = parts
            self.assertRaises(TypeError, self.dir.mkdir, path)
        path.parts = ValueError("no parts")
        self.assertRefused(ValueError, "no parts", self.dir.mkdir, path)
        self.assertEqual(len(self.dir), 0)
        path.parts = (part for part in ["a", 1])
        self.assertRaises(TypeError, self.dir.mkdir, path)
        self.assertEqual(self.dir.keys(), ["a"])

    def test_an_iterable_of_parts_that_raises_ends_the_walk(self):
        def parts():
            yield "a"
            raise ValueError("no more parts")

        class Path(str):
            def split(self, separator):
                return parts()
        self.assertRefused(ValueError, "no more parts", self.dir.mkdir, Path("path"))
        self.assertEqual(self.dir.keys(), ["a"])

    def test_a_path_that_splits_into_nothing_gives_the_directory_itself(self):
        class Path(str):
            def split(self, separator):
                return []
        self.assertEqual(self.dir.mkdir(Path("path")), self.dir)

    def test_a_refusal_of_the_runtime_comes_without_a_stage(self):
        class Path(str):
            def split(self, separator):
                return ["a/b"]
        self.assertRefused(NameError, "Kel::IllegalNameException(\"'a/b' is no name of an "
                           "entity\")", self.dir.mkdir, Path("path"))

    def test_the_hook_of_new_entities_is_not_asked(self):
        def veto(*args):
            raise ValueError("veto")
        _Kel.newEntityHookIs(veto)
        self.assertEqual(self.dir.mkdir("a").name, "a")


class Clear(DirectoryTest):

    def test_it_deletes_all_entities_of_any_depth(self):
        self.dir.mkdir("a/b")
        item = self.dir.newEntity("Acme::Item", "c")
        self.assertIsNone(self.dir.clear())
        self.assertEqual((len(self.dir), self.dir.keys()), (0, []))
        self.assertEqual(item.fullName, "/test/c")
        self.assertIsNone(self.dir.clear())

    def test_a_derived_directory_clears_alike(self):
        shelf = self.dir.newEntity("Acme::Shelf", "shelf")
        shelf.newEntity("Acme::Item", "a")
        self.assertIsNone(shelf.clear())
        self.assertEqual((len(shelf), len(shelf.entityPtr)), (0, 0))


class Singletons(TestCase):

    def test_those_of_every_process_are_found_by_type(self):
        for name in ("Kel::Dir", "Kel::Clock", "Kel::TraceFacility", "Kel::ActivityManager",
                     "Kel::ActivityManagerConfig"):
            found = _Kel.singleton(name)
            self.assertEqual(found, _Kel.singleton(name))
            self.assertTrue(found.kelType.fullTypeName.startswith(name))
            self.assertFalse(_Kel.isConst(found))
        self.assertEqual(ROOT.fullName, "/")

    def test_a_type_without_one_is_a_TypeError(self):
        for name in ("Acme::Item", "Acme::Nothing", ""):
            self.assertRefused(TypeError, 'Kel::TypeException("type %s not found")' % name,
                               _Kel.singleton, name)

    def test_it_takes_one_string(self):
        self.assertRefused(TypeError, "singleton() takes exactly 1 argument (0 given)",
                           _Kel.singleton)
        self.assertRaises(TypeError, _Kel.singleton, 1)
        self.assertEqual(_Kel.singleton.__doc__, "Look up a singleton by type name.")


if __name__ == "__main__":
    unittest.main()
