"""The manuals of the programs: they tell of each option, and they are well formed."""

import os
import re
import subprocess
import unittest

from programs import AGENT, BROWSE, EVAL, SCHEMA, ProgramCase

MANUALS = os.path.normpath(
    os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../../tools/man"))


class Manuals(ProgramCase):

    def pages(self):
        for program in AGENT, BROWSE, EVAL, SCHEMA:
            path = os.path.join(MANUALS, os.path.basename(program) + ".1")
            with open(path) as page:
                yield program, path, page.read().replace("\\-", "-")

    def test_they_tell_of_each_option(self):
        for program, _, text in self.pages():
            options = re.findall(r"^  .*?(--[a-z-]+)", self.command(program, "--help").out, re.M)
            self.assertGreater(len(options), 4)
            self.assertEqual([option for option in options if option not in text], [])

    def test_they_are_well_formed(self):
        # What these tests preload for programs of this project is not for others.
        self.env.pop("LD_PRELOAD", None)
        for _, path, _ in self.pages():
            try:
                formatter = subprocess.Popen(["groff", "-man", "-ww", "-z", path],
                                             env=self.env, stderr=subprocess.PIPE)
            except OSError:
                raise unittest.SkipTest("there is no groff")
            self.assertEqual(formatter.communicate()[1], "")
