"""The reference names all that there is, and nothing that there is not."""

import glob
import inspect
import os
import re
import shutil
import sys
import tempfile
import types
import unittest

import Kel
import PyServer
import _Kel
import acme
from kel_testing import in_child

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import messages  # noqa: E402, beside this file

REFERENCE = os.path.join(messages.ROOT, "docs", "reference")


def sections(page, level):
    """Pairs of a heading of that level and what stands below it."""
    with open(os.path.join(REFERENCE, page)) as source:
        parts = re.split(r"(?m)^%s (.*)\n" % ("#" * level), source.read())
    # What follows a section of a higher level is not its own.
    return [(heading, re.split(r"(?m)^#{1,%d} " % level, text)[0])
            for heading, text in zip(parts[1::2], parts[2::2])]


def section(page, level, wanted):
    return dict(sections(page, level))[wanted]


def members(text):
    """The names in the first columns of the tables, without what stands in parentheses."""
    found = []
    for row in re.findall(r"(?m)^\| (`.*?) \|", text):
        found += [name.partition("(")[0] for name in re.findall(r"`([^`]+)`", row)]
    return found


def public(cls):
    """What the dictionary of a type of the module has, but for a plain documentation string."""
    return set(name for name, value in vars(cls).items()
               if name != "__doc__" or not isinstance(value, (str, type(None))))


def parameters(function):
    """What stands in the parentheses behind the name of a function."""
    names, more, keywords, defaults = inspect.getargspec(function)
    names = [name for name in names if name not in ("self", "cls")]
    required = len(names) - len(defaults or ())
    shown = names[:required] + ["%s=%s" % (name, repr(value).replace("'", '"'))
                                for name, value in zip(names[required:], defaults or ())]
    stars = [star + name for star, name in (("*", more), ("**", keywords)) if name]
    return ", ".join(shown + stars)


class Comparing(unittest.TestCase):

    def assert_same(self, documented, there):
        documented = list(documented)
        self.assertEqual(sorted(set(documented)), sorted(there))
        self.assertEqual(len(documented), len(set(documented)), "one is there twice")


class Module(Comparing):

    def test_each_name_of_the_module_has_its_entry_and_each_entry_its_name(self):
        entries = [heading.partition("(")[0] for heading, _ in sections("module.md", 3)]
        self.assert_same(entries, [name for name in dir(_Kel) if not name.startswith("__")])

    def test_a_function_takes_as_many_arguments_as_its_entry_says(self):
        for heading, text in sections("module.md", 3):
            name, bar, rest = heading.partition("(")
            if bar:
                count = len([part for part in rest.rstrip(")").split(",") if part])
                for wrong in set((count - 1, count + 1)) - set((-1,)):
                    with self.assertRaises(TypeError) as raised:
                        getattr(_Kel, name)(*[None] * wrong)
                    self.assertRegexpMatches(str(raised.exception), r"takes|given", heading)

    def test_each_function_tells_its_locks(self):
        for heading, text in sections("module.md", 3):
            if "(" in heading and not heading.endswith("HookIs(function)"):
                self.assertIn("Locks: ", text, heading)

    def test_each_function_takes_the_locks_that_its_entry_tells(self):
        told = {}
        for heading, text in sections("module.md", 3):
            word = re.search(r"Locks: (none|activity|both|as `\w+`)", " ".join(text.split()))
            told[heading.partition("(")[0]] = word.group(1) if word else "none"  # of hooks it is said once
        told.update(trace_ht=told["trace_h"], members="none")
        script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "lock_words.py")
        done = in_child("execfile(%r)" % script, [name for name in told if told[name] == "none"])
        found = dict(line.split() for line in done.expect().out.splitlines())
        self.assertEqual(dict((name, told[name].replace("both", "activity")) for name in found), found)
        self.assertEqual(set(told) - set(found), set(["gnmiJsonString", "releaseActivityLock", "Backtrace"]))

    def test_each_type_has_its_section_with_all_that_it_has(self):
        sources = "".join(open(path).read() for path in glob.glob(messages.ROOT + "/kelpy/*/*.cpp"))
        names = re.findall(r'\.tp_name = "(_Kel\.\w+)"', sources)
        self.assert_same([heading for heading, _ in sections("types.md", 2)], names)
        for cls in self.types():
            name = cls.__module__ + "." + cls.__name__
            self.assert_same(members(section("types.md", 2, name)), public(cls))

    def types(self):
        item, store = acme.Item("reference", 1), acme.Store("reference")
        future, failed = _Kel.entityFuture("/x", None), _Kel.entityFuture("/x", None)
        failed.convertToFailedMount()
        found = [type(each) for each in (
            acme.Item.kelType, acme.Item.kelType.attr("size"), acme.Item, vars(acme.Item)["size"],
            store.price, iter(store.price), item.add, store.newItem, store.addFavorite, future, failed)]
        found.append(_Kel.Backtrace)
        self.assertEqual(len(set(found)), 12)
        return found

    def test_what_every_class_has_is_told(self):
        roots = public(_Kel.pyType(Kel.Type("Kel::PtrInterface")))
        roots |= public(acme.Size) - set(acme.Size.attributes)
        everywhere = members(section("objects.md", 2, "Every class"))
        self.assert_same(everywhere + members(section("objects.md", 2, "Values")), roots - set(["__doc__"]))
        self.assertLessEqual(public(_Kel.pyType(Kel.Type("Kel::PtrInterface"))), set(everywhere))

    def test_what_directories_have_is_told(self):
        cls = type(Kel.root())
        directory = public(cls)
        own = set(name for name in directory if type(vars(cls)[name]) is type(vars(acme.Item)["size"]))
        self.assert_same(members(section("objects.md", 2, "Objects with a default collection")) +
                         members(section("objects.md", 2, "Directories")), directory - own)

    def test_each_type_of_the_runtime_has_its_section_with_its_attributes(self):
        types = [each for each in Kel.types("Kel") if not each.isBuiltinType]
        self.assert_same([heading for heading, _ in sections("runtime-types.md", 2)],
                         [each.fullTypeName for each in types])
        for each in types:
            own = [attr.name for attr in each.attributeQ if attr.scope is each]
            self.assert_same(members(section("runtime-types.md", 2, each.fullTypeName)), own)


class Faces(Comparing):

    def check_module(self, page, module, more=()):
        headings = [heading for heading, _ in sections(page, 3)]
        self.assert_same([heading.partition("(")[0] for heading in headings],
                         list(module.__all__) + list(more))
        for heading in headings:
            name, bar, _ = heading.partition("(")
            thing = getattr(module, name)
            if inspect.isclass(thing):
                thing = vars(thing).get("__init__")
            if bar and inspect.isfunction(thing):
                self.assertEqual(heading, "%s(%s)" % (name, parameters(thing)))

    def check_class(self, page, heading, instance, base=object):
        """`instance` has what the section says, and nothing else that is public."""
        documented = members(section(page, 3, heading))
        for name in documented:
            getattr(instance, name)
        self.assert_same([name for name in documented if not name.startswith("_")],
                         [name for name in dir(instance)
                          if not name.startswith("_") and not hasattr(base, name)])

    def test_each_name_of_Kel_has_its_entry_with_its_parameters(self):
        self.check_module("kel.md", Kel)

    def test_each_class_of_Kel_has_what_its_entry_says(self):
        item = acme.Item("reference", 1)
        with Kel.react(item, str) as reaction, Kel.at(Kel.now() + 3600, str) as timer:
            self.check_class("kel.md", "Reaction(obj, handler, attributes)", reaction)
            self.check_class("kel.md", "Timer(time, handler)", timer)
        self.check_class("kel.md", "Allocation(objects, bytes)", Kel.Allocation(1, 2), tuple)
        self.check_class("kel.md", "Schema(name, namespace, doc=None)", Kel.Schema, types.ModuleType)
        self.assertTrue(callable(Kel.Mount.__kel_object__))

    def test_each_name_of_PyServer_has_its_entry_with_its_parameters(self):
        self.check_module("server.md", PyServer, more=["_LocalServer"])

    def test_each_class_of_PyServer_has_what_its_entry_says(self):
        heading = [heading for heading, _ in sections("server.md", 3) if heading.startswith("PyServer(")][0]
        self.check_class("server.md", heading, PyServer.PyServer(port=0))
        self.check_class("server.md", "_LocalServer()", PyServer._LocalServer())


class Cpp(Comparing):

    def rows(self, heading):
        text = section("cpp.md", 2, heading)
        return dict(re.findall(r"(?m)^\| `([\w/]+\.h)` \| (.*) \|$", text))

    def test_each_exported_name_of_the_binding_stands_beside_its_header(self):
        rows = self.rows("The binding")
        exported = {}
        for path in glob.glob(messages.ROOT + "/kelpy/*/*.h"):
            with open(path) as source:
                names = re.findall(r"(?m)^(?!#).*KELPY_API\b[^;{(=]*?(\w+)"
                                   r"(?=\s*(?:[;(={]|:(?!:)|__attribute__))", source.read())
            if names:
                exported[os.path.relpath(path, messages.ROOT + "/kelpy")] = set(names)
        self.assertGreater(len(exported), 20)
        for header, names in exported.items():
            self.assertIn(header, rows)
            self.assertLessEqual(names, set(re.findall(r"`(\w+)`", rows[header])), header)

    def test_each_name_beside_a_header_stands_in_it(self):
        for header, text in self.rows("The binding").items():
            with open(os.path.join(messages.ROOT, "kelpy", header)) as source:
                declared = source.read()
            for name in re.findall(r"`(\w+)`", text):
                self.assertRegexpMatches(declared, r"\b%s\b" % name, header)

    def test_each_header_of_the_runtime_is_told(self):
        headers = [os.path.basename(path) for path in glob.glob(messages.ROOT + "/kel/include/kel/*.h")]
        self.assert_same(self.rows("The runtime"), headers)

    def test_each_member_of_the_client_is_told(self):
        with open(messages.ROOT + "/kelpy/PyClient.h") as short:
            self.assertIn("<kelpy/client/PyClient.h>", short.read())
        with open(messages.ROOT + "/kelpy/client/PyClient.h") as source:
            body = source.read().split("class KELPY_API PyClient", 1)[1]
        body = re.sub(r"//.*", "", body)
        there = set(re.findall(r"(?<!~)\b(\w+)\(", body)) | set(re.findall(r"\b(\w+_)(?: = [^;]*)?;", body))
        self.assertEqual(set(members(section("cpp.md", 2, "The client"))), there)

    def test_each_class_of_exceptions_has_its_row(self):
        with open(messages.ROOT + "/kel/include/kel/Exception.h") as source:
            classes = re.findall(r"class KEL_API (\w+)", source.read())
        told = members(section("exceptions.md", 2, "Failures of the runtime"))
        self.assert_same(told, ["Kel::" + name for name in classes])


class Messages(unittest.TestCase):

    def setUp(self):
        self.rows = messages.listed(os.path.join(REFERENCE, "messages.md"))

    def test_each_text_that_the_source_raises_is_listed(self):
        source = messages.of_source()
        self.assertGreater(len(source), 150)
        self.assertEqual([], ["%s: %s" % (path, text.encode("utf-8")) for text, path in sorted(source.items())
                              if not messages.stands_in(text, self.rows)])

    def test_the_class_beside_a_text_is_the_one_that_the_source_raises(self):
        rows = messages.rows(os.path.join(REFERENCE, "messages.md"))
        python = dict(re.findall(r"(?m)^\| `(Kel::\w+)` \| .* \| `(\w+)`", section(
            "exceptions.md", 2, "Failures of the runtime")))
        classes = messages.classes()
        self.assertGreater(len(classes), 60)
        wrong = []
        for text, thrown in classes:
            told = "".join(rest for row, rest in rows if text in row)
            # Some tables tell what becomes of it in Python.
            if not any(re.search(r"\b%s\b" % name, told) for name in (thrown, python.get(thrown, thrown))):
                wrong.append("%s: %s" % (thrown, text.encode("utf-8")))
        self.assertEqual(wrong, [])

    def test_each_listed_text_stands_in_the_source(self):
        literals = messages.every_literal()
        self.assertEqual([], [row.encode("utf-8") for row in self.rows for piece in messages.pieces(row)
                              if piece.strip() not in literals])

    def test_no_text_is_listed_twice_in_one_table(self):
        for _, text in sections("messages.md", 2):
            rows = re.findall(r"(?m)^\| (`.*?`) \|", text)
            self.assertEqual(len(rows), len(set(rows)))


class Reading(unittest.TestCase):
    """What messages.py finds in a source."""

    def texts(self, name, text):
        folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, folder)
        path = os.path.join(folder, name)
        with open(path, "w") as out:
            out.write(text)
        return (messages.of_python if name.endswith(".py") else messages.of_cpp)(path)

    def test_a_text_in_pieces_and_with_conversions_is_one_text_with_gaps(self):
        text = 'PyErr_Format( PyExc_TypeError, "no %s is "\n   "a %-5.2f", a, b );'
        self.assertEqual(self.texts("a.cpp", text), set([u"no \u2026 is a \u2026"]))

    def test_a_text_that_reaches_the_raise_by_a_variable_is_found(self):
        self.assertEqual(self.texts("a.cpp", 'char const* why = "this cannot be";'), set([u"this cannot be"]))

    def test_a_single_word_is_found_where_it_is_thrown(self):
        self.assertEqual(self.texts("a.cpp", 'throw Kel::RangeException( "refused" );'), set([u"refused"]))

    def test_documentation_comments_and_trace_lines_are_no_messages(self):
        self.assertEqual(self.texts("a.cpp", '// throw Kel::Exception( "not a one" )\n'
                                             '{ "keys", keys, METH_NOARGS, "Return a list of keys." },\n'
                                             'KEL_TRACE( handle, trace1 ) << "and a line of trace";'), set())

    def test_what_python_raises_is_found(self):
        self.assertEqual(self.texts("a.py", 'raise ValueError("%r is no port" % (port,))\n'
                                            'raise Rubbish("not for %s" % users)\n'),
                         set([u"\u2026 is no port"]))


if __name__ == "__main__":
    unittest.main()
