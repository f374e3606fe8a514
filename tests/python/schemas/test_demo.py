"""The demo runs from any folder and shows what it promises."""

import os
import unittest

from kel_testing import TestCase, in_child

HERE = os.path.dirname(os.path.abspath(__file__))
DEMO = os.path.join(HERE, os.pardir, os.pardir, os.pardir, "examples", "acme", "demo.py")


class Demo(TestCase):

    def test_the_demo_runs_to_its_end_from_any_folder(self):
        outcome = in_child("""
            import os, runpy, sys
            os.chdir("/")
            runpy.run_path(sys.argv[1], run_name="__main__")
            """, [os.path.abspath(DEMO)]).expect(0)
        self.assertEqual(outcome.err, "")
        self.assertIn("an item: entity('bolt') with id 7\n", outcome.out)
        self.assertIn('NoImplementationException("attribute Acme::Item.id is not writable")',
                      outcome.out)
        self.assertIn("after: entity('/demo/shelf/drill') of color red\n", outcome.out)
        self.assertIn("parent by proxy: entity('/demo/shelf/saw')\n", outcome.out)
        self.assertIn("lookup : Acme::Item::Ptr(name : Acme::Name, size : Acme::Size)\n",
                      outcome.out)


if __name__ == "__main__":
    unittest.main()
