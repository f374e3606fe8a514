"""The demo runs from any folder and shows what it promises."""

import os
import unittest

from kel_testing import TestCase, in_child

HERE = os.path.dirname(os.path.abspath(__file__))
DEMO = os.path.join(HERE, os.pardir, os.pardir, os.pardir, "examples", "acme", "demo.py")


class Demo(TestCase):

    def run_demo(self, first=""):
        """What it writes to standard output, run behind `first`."""
        outcome = in_child("""
import os, runpy, signal, sys
%s
runpy.run_path(sys.argv[1], run_name="__main__")
""" % first, [os.path.abspath(DEMO)]).expect(0)
        self.assertEqual(outcome.err, "")
        return outcome.out

    def test_it_runs_to_its_end_from_any_folder(self):
        out = self.run_demo("os.chdir('/')")
        self.assertIn("an item: entity('bolt') with id 7\n", out)
        self.assertIn('NoImplementationException("attribute Acme::Item.id is not writable")',
                      out)
        self.assertIn("after: entity('/demo/shelf/drill') of color red\n", out)
        self.assertIn("parent by proxy: entity('/demo/shelf/saw')\n", out)
        self.assertIn("lookup : Acme::Item::Ptr(name : Acme::Name, size : Acme::Size)\n",
                      out)

    def test_it_reacts_and_ends_in_order_at_Ctrl_C(self):
        out = self.run_demo()
        self.assertIn("""
Reactions
---------
told of price of nut: 5
told of price of bolt: 2
restocked: 149
closing time
told of price of nut: 1
restocked: 50
interrupted, and the loop has ended in order
""", out)

    def test_it_questions_an_agent_and_sees_its_handler_react(self):
        out = self.run_demo()
        self.assertTrue(out.endswith("""
Agents
------
it says: open for business
a bolt costs 5 there, a nut None
its handler saw: price of nut is 2 now
it ended with status 0
"""), out)

    def test_a_shell_that_has_turned_Ctrl_C_off_does_not_keep_it_from_its_end(self):
        self.run_demo("signal.signal(signal.SIGINT, signal.SIG_IGN)")
