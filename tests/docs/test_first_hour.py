"""How docs/first-hour.md is read and written."""

import multiprocessing
import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import first_hour

PAGE = """# Title

<!-- times -->
old
<!-- end of times -->

## One

<!-- not run: a bare machine alone has to do it -->
```console
$ get it
```

## Two

`a.txt`:

<!-- not run: first_hour.py does -->
```text
a line
```

<!-- not run: first_hour.py does -->
```console
$ cat a.txt
a line
$ true
```
"""


class Reading(unittest.TestCase):

    def test_commands_and_files_come_in_order_under_their_headings(self):
        self.assertEqual([(step.heading, step.text, step.name, step.bare, step.shown)
                          for step in first_hour.steps(PAGE)],
                         [("One", "get it", None, True, ""),
                          ("Two", "a line\n", "a.txt", False, ""),
                          ("Two", "cat a.txt", None, False, "a line\n"),
                          ("Two", "true", None, False, "")])

    def test_each_block_of_the_page_is_a_step(self):
        with open(first_hour.PAGE) as source:
            page = source.read()
        self.assertEqual(len(first_hour.FENCE.findall(page)) * 2, page.count("\n```"))


class Running(unittest.TestCase):

    def got(self, page):
        typed = [step for step in first_hour.steps(page) if not step.bare]
        return typed, first_hour.here("/nowhere", typed)

    def test_what_is_shown_is_compared_with_what_is_printed(self):
        self.assertEqual(first_hour.compare(*self.got(PAGE)), [])
        wrong = first_hour.compare(*self.got(PAGE.replace("t\na line\n$", "t\nb line\n$")))
        self.assertEqual(wrong[0], "$ cat a.txt")
        self.assertEqual(wrong[-2:], ["-b line", "+a line"])

    def test_a_shell_that_ends_too_early_is_told(self):
        wrong = first_hour.compare(*self.got(PAGE.replace("$ cat a.txt\na line", "$ exit 3")))
        self.assertEqual(wrong, ["0 of 2 commands came to their end"])

    def test_a_page_is_written_with_outputs_and_times(self):
        typed = first_hour.steps(PAGE)
        page = first_hour.written(PAGE, typed, [("got\n", 59.7), ("", 1), ("more\n", 2.2)], 0.5)
        self.assertIn("$ get it\ngot\n```", page)
        self.assertIn("$ cat a.txt\n$ true\nmore\n```", page)
        self.assertIn("| One | 1 min 00 s |\n| Two | 3 s |\n| all of it | 1 min 03 s |\n", page)
        self.assertRegexpMatches(page, r"It took, on a machine with \d+ processors:\n")
        self.assertNotIn("old", page)

    def test_a_busy_machine_is_told(self):
        self.assertIn("10 times as much", first_hour.machine(multiprocessing.cpu_count() * 10))

    def test_what_machines_differ_in_and_long_outputs_are_left_out(self):
        printed = "dev: installing g++\n/home/me/x \ndev: installed; y\n"
        self.assertEqual(first_hour.tidy(printed, "/home/me"), "~/x\ndev: installed; y\n")
        lines = first_hour.tidy("line\n" * 50, "/home/me").splitlines()
        self.assertEqual((len(lines), lines[10]), (21, "..."))


if __name__ == "__main__":
    unittest.main()
