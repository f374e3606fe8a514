"""kel-schema: what libraries of types declare."""

import json
import os
import re
import xml.dom.minidom

from programs import SCHEMA, ProgramCase

BADGE = """\
Acme::Badge : Kel::Type(text, level)   (pointer)
   text : Kel::String   read only
   level : U32
"""


class SchemaCase(ProgramCase):

    def schema(self, *args):
        return self.command(SCHEMA, *args)

    def told(self, *args):
        """What it prints, where it succeeds without a word on standard error."""
        outcome = self.schema(*args).expect()
        self.assertEqual(outcome.err, "")
        return outcome.out


class Text(SchemaCase):

    def test_a_type_is_its_signature_and_a_line_for_each_attribute(self):
        self.assertEqual(self.told("acme", "--type", "Acme::Badge"), BADGE)

    def test_the_constants_of_an_enum_have_their_numbers(self):
        self.assertEqual(self.told("acme", "--type", "Acme::Color"),
                         "Acme::Color : Kel::Enum   (enum)\n   red = 0\n   blue = 1\n")

    def test_all_types_of_the_library_are_told_by_name_and_no_others(self):
        names = re.findall(r"^(\S+) : ", self.told("acme"), re.M)
        self.assertEqual(names, sorted(names))
        self.assertIn("Acme::Store", names)
        self.assertEqual([name for name in names if not name.startswith("Acme::")], [])

    def test_several_libraries_are_told_together(self):
        names = set(re.findall(r"^(\S+) : ", self.told("acme", "odd"), re.M))
        self.assertTrue({"Acme::Item", "Odd::Node"} <= names)

    def test_the_runtime_is_told_if_asked_for(self):
        self.assertIn("Kel::Dir : Kel::Type(name) : Kel::Entity   (directory)\n", self.told("--runtime"))

    def test_a_parameter_of_an_unregistered_type_is_told_as_unknown(self):
        self.assertIn("   unknown : void(<unknown>)\n", self.told("odd"))

    def test_a_library_may_be_given_by_its_path(self):
        modules = os.path.join(os.path.dirname(os.path.dirname(SCHEMA)), "python")
        self.assertEqual(
            self.told(os.path.join(modules, "libacme.so"), "--type", "Acme::Badge"), BADGE)


class Json(SchemaCase):

    def test_a_type_is_an_object_with_its_attributes(self):
        (item,) = json.loads(self.told("--json", "acme", "--type", "Acme::Item"))
        self.assertEqual((item["kind"], item["base"]), ("entity", "Acme::Thing"))
        self.assertEqual(item["constructor"], [{"name": "name", "type": "Acme::Name"},
                                               {"name": "id", "type": "U32"}])
        attributes = dict((attribute["name"], attribute) for attribute in item["attributes"])
        self.assertEqual(
            (attributes["id"]["type"], attributes["id"]["writable"], attributes["id"]["traits"]),
            ("U32", False, ["immutable"]))
        self.assertEqual((attributes["part"]["kind"], attributes["part"]["index"]),
                         ("collection", "Kel::String"))
        self.assertEqual((attributes["describe"]["kind"], attributes["describe"]["static"]),
                         ("function", True))
        self.assertNotIn("note", attributes)  # that is the base's

    def test_every_kind_of_type_has_its_name(self):
        kinds = dict((each["name"], each["kind"])
                     for each in json.loads(self.told("--json", "--runtime", "acme", "odd")))
        self.assertEqual(
            [kinds[name] for name in (
                "U32", "Acme::Color", "Odd::ColorSet", "Odd::Shape", "Acme::Size", "Odd::Gate",
                "Acme::Shelf", "Acme::Item", "Odd::Node")],
            ["built-in", "enum", "bit set", "union", "value", "constrainer", "directory", "entity",
             "pointer"])


class Html(SchemaCase):

    def page(self, *libraries):
        path = os.path.join(self.folder, "page.html")
        self.assertEqual(self.told("--html", "-o", path, *libraries), "")
        with open(path) as page:
            return page.read()

    def body(self, page):
        """The part with the types, which is well-formed XML too."""
        return xml.dom.minidom.parseString(re.search(r"<main>.*</main>", page, re.S).group())

    def test_each_type_has_a_section_of_its_name(self):
        body = self.body(self.page("acme", "odd"))
        names = [section.getAttribute("id") for section in body.getElementsByTagName("section")]
        self.assertTrue({"Acme::Item", "Odd::Shape"} <= set(names))

    def test_names_of_its_types_lead_to_their_sections(self):
        body = self.body(self.page("acme"))
        ids = set(section.getAttribute("id") for section in body.getElementsByTagName("section"))
        links = [link.getAttribute("href") for link in body.getElementsByTagName("a")]
        self.assertTrue({"#Acme::Thing", "#Acme::Item", "#Acme::StockItem", "#Acme::Color"} <= set(links))
        self.assertEqual([link for link in links if link[1:] not in ids], [])

    def test_the_page_needs_nothing_beside_it(self):
        page = self.page("acme")
        self.assertEqual(re.findall(r"(?:src|url)\s*[=(]|https?://|<link", page), [])


class Refusals(SchemaCase):

    def test_what_cannot_be_done_is_a_line_and_status_1(self):
        for args, line in (
                (("nothing",), "libnothing.so: cannot open shared object file: No such file or directory"),
                (("acme", "--type", "Acme::No"), "Kel::NoTypeNodeException(\"no type 'Acme::No'\")"),
                (("acme", "-o", "/nowhere/x"), "[Errno 2] No such file or directory: '/nowhere/x'")):
            outcome = self.schema(*args).expect(1)
            self.assertEqual((outcome.out, outcome.err), ("", "kel-schema: %s\n" % line))

    def test_a_wrong_command_line_is_status_2(self):
        for args in ((), ("--json", "--html", "acme"), ("--nope",)):
            self.schema(*args).expect(2)
