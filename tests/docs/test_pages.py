"""What run_page.py takes for code, and that it notices what a page gets wrong."""

import contextlib
import os
import shutil
import StringIO
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import extract_snippet  # noqa: E402, beside this file
import pages  # noqa: E402
import run_page  # noqa: E402


def kinds(text):
    return [block.kind for block in pages.blocks(text)]


def fence(language, code):
    return "```%s\n%s\n```\n" % (language, code)


@contextlib.contextmanager
def quiet():
    sys.stdout = StringIO.StringIO()
    try:
        yield sys.stdout
    finally:
        sys.stdout = sys.__stdout__


class Blocks(unittest.TestCase):

    def test_the_language_and_what_stands_before_tell_the_kind(self):
        self.assertEqual(kinds(fence("python", ">>> 1\n1") + "\n`it.py`:\n\n" + fence("python", "x = 1") +
                               fence("python", "x = 1") + fence("console", "$ true") + fence("cpp", "f();") +
                               fence("text", "a picture")),
                         [pages.SESSION, pages.FILE, pages.SCRIPT, pages.CONSOLE, pages.CPP, pages.TEXT])

    def test_a_mark_exempts_the_block_behind_it_and_no_other(self):
        command = fence("console", "$ x")
        self.assertEqual(kinds("<!-- not run: it takes an hour -->\n" + command + command),
                         [pages.EXEMPT, pages.CONSOLE])

    def test_a_mark_without_a_reason_exempts_nothing(self):
        self.assertEqual(kinds("<!-- not run: -->\n" + fence("console", "$ x")), [pages.CONSOLE])

    def test_code_that_nothing_runs_is_a_fault(self):
        self.assertEqual(pages.faults("\n" + fence("sh", "rm x")),
                         ["line 2: nothing runs a block of 'sh'; say why not"])
        self.assertEqual(pages.faults("Type\n\n    ./dev demo\n"), ["line 3: an indented block; fence it"])
        self.assertEqual(pages.faults("`it.py`:\n\n" + fence("python", "x = 1")),
                         ["a file is shown that no command uses"])
        self.assertEqual(pages.faults("Text\n\n```python\nx = 1\n"), ["line 3: a fence that is not closed"])

    def test_a_list_may_go_on_indented(self):
        self.assertEqual(pages.faults("- an item\n\n    and its second paragraph\n"), [])

    def test_fragments_of_cpp_become_functions_behind_what_they_include(self):
        text = extract_snippet.extracted(fence("cpp", "#include <a.h>\n\nf();") + fence("cpp", "g();"), "cpp")
        self.assertRegexpMatches(text, r"(?s)^#include <a.h>\n.*fragment0\(\) \{\s+f\(\);\s+\}.*"
                                       r"fragment1\(\) \{\s+g\(\);")


class Running(unittest.TestCase):

    def status(self, text, *more):
        folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, folder)
        page = os.path.join(folder, "page.md")
        with open(page, "w") as out:
            out.write(text)
        with quiet() as printed:
            status = run_page.main(page, *more)
        return status, printed.getvalue()

    def test_a_session_that_prints_something_else_fails(self):
        self.assertEqual(self.status(fence("python", ">>> 1 + 1\n2"))[0], 0)
        self.assertEqual(self.status(fence("python", ">>> 1 + 1\n3"))[0], 1)

    def test_sessions_share_their_names(self):
        text = fence("python", ">>> x = 1") + "text\n" + fence("python", ">>> x\n1")
        self.assertEqual(self.status(text)[0], 0)

    def test_what_stands_outside_of_sessions_is_not_run(self):
        self.assertEqual(self.status(fence("text", ">>> 1\n2") + fence("python", ">>> 1\n1"))[0], 0)

    def test_a_script_that_fails_is_found(self):
        self.assertEqual(self.status(fence("python", "x = 1"))[0], 0)
        self.assertEqual(self.status(fence("python", "x = y"))[0], 1)

    def test_a_command_that_prints_something_else_fails(self):
        self.assertEqual(self.status(fence("console", "$ echo 1\n1\n$ echo 2\n..."))[0], 0)
        self.assertEqual(self.status(fence("console", "$ echo 1\n2"))[0], 1)

    def test_commands_find_the_files_that_the_page_shows(self):
        text = "`it.py`:\n\n" + fence("python", "x = 1") + fence("console", "$ cat it.py\nx = 1")
        self.assertEqual(self.status(text)[0], 0)

    def test_that_a_client_has_to_wait_for_its_agent_is_no_difference(self):
        waits = "[PyServer a.b not responding, still trying -- is it running?]"
        self.assertEqual(self.status(fence("console", "$ echo '%s'; echo 1\n1" % waits))[0], 0)

    def test_cpp_that_the_build_does_not_compile_is_found(self):
        self.assertEqual(self.status(fence("cpp", "f();"), "", "page.md")[0], 0)
        self.assertEqual(self.status(fence("cpp", "f();"))[0], 1)


if __name__ == "__main__":
    unittest.main()
