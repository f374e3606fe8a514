"""gdb shows the runtime's values, and the wrappers of a Python program, as what they are."""

import os
import re
import subprocess
import sys
import unittest
from distutils.spawn import find_executable

PRINTERS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../tools/gdb/kel_printers.py")

SCRIPT = """
import acme
item = acme.Item("apple", 7)
hash(item)
"""


def under_gdb(commands, *program):
    """What gdb prints, after it has loaded the printers."""
    lines = ["set confirm off", "set pagination off", "set breakpoint pending on",
             "set debuginfod enabled off", "source " + PRINTERS] + commands
    arguments = [part for line in lines for part in ("-ex", line)]
    child = subprocess.Popen(["gdb", "-nx", "-batch"] + arguments + ["--args"] + list(program),
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    return child.communicate()[0]


def setUpModule():
    if not find_executable("gdb"):
        raise unittest.SkipTest("there is no gdb")


class OfTheRuntime(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.names = ("text", "emptyText", "type", "noType", "attr", "noAttr", "*generic.object_",
                     "generic", "null")
        prints = ["print %s" % name for name in cls.names]
        cls.printed = under_gdb(["break stopHere", "run", "up"] + prints, os.environ["GDB_SAMPLE"])
        values = re.findall(r"^\$\d+ = (.*)$", cls.printed, re.M)
        cls.shown = dict(zip(cls.names, values))

    def test_each_value_is_printed(self):
        self.assertEqual(len(self.shown), len(self.names), self.printed)

    def test_a_text_is_its_characters(self):
        self.assertEqual((self.shown["text"], self.shown["emptyText"]), ('"a red item"', '""'))

    def test_a_type_is_its_name(self):
        self.assertEqual((self.shown["type"], self.shown["noType"]), ("type('Acme::Item')", "no type"))

    def test_an_attribute_is_its_type_and_name(self):
        self.assertEqual((self.shown["attr"], self.shown["noAttr"]),
                         ("type('Acme::Item').attr('color')", "no attribute"))

    def test_a_generic_is_its_type_and_address(self):
        self.assertRegexpMatches(self.shown["*generic.object_"], r"const Acme::Size at 0x[0-9a-f]+$")

    def test_a_pointer_is_its_address_and_count(self):
        self.assertRegexpMatches(
            self.shown["generic"], r"^Kel::Ptr<Kel::GenericIf> to 0x[0-9a-f]+, references 2$")
        self.assertEqual(self.shown["null"], "Kel::Ptr<Acme::Item>, null")


class OfThePythonProgram(unittest.TestCase):

    def test_a_wrapper_is_what_it_wraps(self):
        printed = under_gdb(["break pyGenericIfHash", "run", "print *lhs"], sys.executable, "-c", SCRIPT)
        self.assertRegexpMatches(printed, r"\$1 = a wrapper of Acme::Item at 0x[0-9a-f]+\n")


if __name__ == "__main__":
    unittest.main()
