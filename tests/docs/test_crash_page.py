"""The report of a crash that docs/crash-report.md shows has the shape of one that happens now."""

import os
import signal
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import crash_page  # noqa: E402, beside this file


class CrashPage(unittest.TestCase):

    @unittest.skipIf("LD_PRELOAD" in os.environ, "a sanitizer has its own say on a crash")
    def test_the_report_of_the_page_has_the_shape_of_a_new_one(self):
        text, status = crash_page.report()
        self.assertEqual(status, -signal.SIGSEGV)
        self.assertEqual(crash_page.shape(crash_page.shown()), crash_page.shape(text))
        self.assertIn("<stack>", crash_page.shape(text))

    def test_the_shape_keeps_what_the_page_explains(self):
        shape = crash_page.shape(crash_page.shown())
        for line in ("fatal signal 11 (SIGSEGV) at address 0x0, process N, thread N\n<stack>\n",
                     "Current Python exception (most recent call LAST):\n",
                     "exceptions.KeyError: 'pear'\n",
                     'Python traceback (most recent call FIRST):\n  File "__init__.py", in string_at\n'
                     '  File "crash.py", line 13, in restock\n'):
            self.assertIn(line, shape)


if __name__ == "__main__":
    unittest.main()
