"""kel-eval against a real agent: what it runs, what it prints, and what its status says."""

import os

from kel_testing import wait_until
from programs import EVAL, REACTORS, ProgramCase


class Texts(ProgramCase):

    def setUp(self):
        super(Texts, self).setUp()
        self.serving("x = 1\nlog = []\n")

    def test_an_expression_prints_its_value(self):
        for text, printed in (
                ("1 + 1", "2\n"), ("None", "None\n"), ("'a b'", "a b\n"), ("''", "\n"),
                ("'a\\n'", "a\n\n"), ("'a\\0b'", "a\0b\n"), ("{}", "{}\n"), ("[x]", "[1]\n"),
                ("u'\xc3\xa9'", "\xc3\xa9\n"), ("'\xff'", "\xff\n"), (" x", "1\n")):
            outcome = self.eval("acme.shop", text).expect()
            self.assertEqual((outcome.out, outcome.err), (printed, ""))

    def test_statements_run_and_print_nothing(self):
        for option in "-x", "--exec":
            outcome = self.eval("acme.shop", option, "x += 2\nlog.append('u')").expect()
            self.assertEqual((outcome.out, outcome.err), ("", ""))
        self.assertEqual(self.value("x, log"), "(5, ['u', 'u'])")

    def test_the_text_comes_from_standard_input(self):
        for words in ["acme.shop"], ["acme.shop", "-"]:
            self.assertEqual(self.eval(*words, text="x +\\\n 5\n").expect().out, "6\n")
            self.eval("-x", *words, text="for n in 1, 2:\n    log.append(n)\n").expect()
        self.assertEqual(self.value("log"), "[1, 2, 1, 2]")

    def test_a_text_that_begins_with_a_dash_goes_behind_two(self):
        self.assertEqual(self.eval("acme.shop", "--", "-x").expect().out, "-1\n")

    def test_an_exception_is_shown_with_status_1(self):
        for arguments in ["1 / 0"], ["-x", "1 / 0"]:
            outcome = self.eval("acme.shop", *arguments).expect(1)
            self.assertEqual(outcome.out, "")
            self.assertTrue(outcome.err.startswith("Traceback"), outcome.err)
            self.assertTrue(outcome.err.endswith(
                "\nZeroDivisionError: integer division or modulo by zero\n"), outcome.err)

    def test_what_ends_a_program_is_an_exception_too(self):
        for text in "import sys; sys.exit(0)", "raise KeyboardInterrupt":
            self.eval("acme.shop", "-x", text).expect(1)
        self.assertEqual(self.value("x"), "1")

    def test_a_long_text_runs_as_one(self):
        text = "+".join(["x"] * 5000)
        self.assertEqual(self.eval("acme.shop", text=text).expect().out, "5000\n")
        lines = "".join("y%d = '\\\\ \xc3\xa9 \\''\n" % i for i in range(1000))
        self.eval("acme.shop", "-x", text=lines).expect()
        self.assertEqual(self.value("y0 == y999 == '\\\\ \xc3\xa9 \\''"), "True")
        self.assertEqual(self.value("[n for n in sorted(globals()) if 'eval' in n]"), "[]")

    def test_a_long_text_that_fails_leaves_nothing_behind(self):
        self.assertIn("ZeroDivisionError", self.eval(
            "acme.shop", "-x", text="z = 0\n" * 1000 + "1 / z\n").expect(1).err)
        self.assertIn("SyntaxError", self.eval("acme.shop", text="1 + " * 2000).expect(1).err)
        self.assertEqual(self.value("[n for n in sorted(globals()) if 'eval' in n]"), "[]")

    def test_a_text_with_a_NUL_byte_is_refused(self):
        self.assertIn("NUL", self.eval("acme.shop", text="1\0").expect(1).err)

    def test_a_result_above_the_limit_is_a_failure_of_its_own(self):
        text = "log.append(1) or 'x' * 2000"
        self.assertEqual(len(self.eval("acme.shop", "--limit", "2000", text).expect().out), 2001)
        for limit in "1999", "1K":
            outcome = self.eval("acme.shop", "--limit", limit, text)
            self.assertSays(outcome, 4, "the result has more than")
        self.assertEqual(self.value("log"), "[1, 1, 1]")

    def test_large_results_come_whole(self):
        outcome = self.eval("acme.shop", "'xy' * (10 << 20)").expect()
        self.assertEqual(outcome.out, "xy" * (10 << 20) + "\n")

    def test_a_result_that_cannot_be_written_is_a_failure(self):
        command = "%s acme.shop 1 > /dev/full" % EVAL
        self.assertSays(self.command("/bin/sh", "-c", command), 4, "cannot write the result")

class Reactions(ProgramCase):

    def test_an_attribute_that_is_changed_from_outside_makes_a_handler_react(self):
        self.serving(REACTORS + """
import acme
item = acme.Item("apple", 7)
def changed(attr, key):
    item.note = "%s is %d" % (attr.name, item.size)
watcher = _Kel.newNotifiee(item, _Kel.handle(changed))
watcher.filtered = True
watcher.filterAttr["size"] = True
""")
        for size in "5", "6":
            self.eval("acme.shop", "-x", "item.size = " + size).expect()
            wait_until(lambda: self.value("item.note") == "size is " + size)


class CommandLine(ProgramCase):

    def test_a_wrong_one_is_told_in_a_line_with_status_2(self):
        for arguments, text in (
                ([], "name an agent"),
                (["shop", "1"], '"shop" names no agent'),
                ([".shop", "1"], "the group of an agent must not be empty"),
                (["acme.", "1"], "the name of an agent must not be empty"),
                (["acme.a/b", "1"], 'the name of an agent must not hold "/"'),
                (["acme.shop", "1", "2"], "2"),
                (["acme.shop", "-y"], "-y"),
                (["acme.shop.a", "--subsystem", "a", "1"], "the subsystem is given twice"),
                (["--port", "1", "--socket", "s", "1"], "exclude each other"),
                (["--port", "0", "1"], "--port"),
                (["--port", "1", "1", "2"], "takes one text"),
                (["--socket", "", "1"], "empty"),
                (["--socket", "x" * 109, "1"], "more than 108 bytes"),
                (["--list", "acme.shop"], "--list stands alone"),
                (["--wait", "--no-wait", "acme.shop", "1"], "excludes"),
                (["--limit", "0", "acme.shop", "1"], "--limit"),
                (["--limit", "3G", "acme.shop", "1"], "--limit"),
                (["--bogus"], "--bogus")):
            self.assertSays(self.eval(*arguments), 2, text)

    def test_help_and_version_are_no_failures(self):
        self.assertIn("acme.shop", self.eval("--help").expect().out)
        self.assertRegexpMatches(self.eval("--version").expect().out, r"^[\d.]+\n$")

PID = "__import__('os').getpid()"  # a text that needs nothing of the agent's script


class Agents(ProgramCase):

    def test_nobody_there_is_status_3(self):
        missing = self.path("missing")
        for arguments, text in (
                (["acme.shop"], "cannot connect to acme.shop: nobody is there"),
                (["--port", "1"], "cannot connect to port 1: nobody is there"),
                (["--socket", missing],
                 "cannot connect to socket %s: No such file or directory" % missing)):
            self.assertSays(self.eval("--no-wait", *(arguments + ["1"])), 3, text)

    def test_one_that_starts_later_is_waited_for(self):
        for option in [], ["--wait"]:
            waiting = self.program([EVAL] + option + ["acme.shop", PID])
            agent = self.agent()
            self.assertEqual(waiting.wait().expect().out, "%d\n" % agent.pid)
            agent.kill()
            os.unlink(self.agent_file())

    def test_the_name_may_hold_the_subsystem(self):
        east = self.agent(options=["--subsystem", "east.1"])
        none = self.agent(options=["--subsystem", ""])
        self.env["SUBSYSTEMID"] = "east.1"
        for arguments, agent in ((["acme.shop.east.1"], east), (["acme.shop"], east),
                                 (["acme.shop", "--subsystem", "east.1"], east),
                                 (["acme.shop", "--subsystem", ""], none)):
            self.assertEqual(self.eval(*(arguments + [PID])).expect().out, "%d\n" % agent.pid)


class Stacks(ProgramCase):

    def test_the_backtrace_shows_each_thread_and_the_owner_of_the_lock(self):
        self.serving("""
            import threading, time
            def wait_here():
                while True:
                    time.sleep(0.01)
            worker = threading.Thread(target=wait_here, name="worker")
            worker.daemon = True
            worker.start()
        """)
        shown = self.eval("acme.shop", "--backtrace").expect()
        self.assertEqual(shown.err, "")
        self.assertTrue(shown.out.startswith("thread MainThread"), shown.out)
        worker = shown.out.partition("thread worker (most recent call last):\n")[2]
        self.assertRegexpMatches(
            worker.partition("\nthread ")[0], r'script\.py", line [45], in wait_here\n')
        self.assertEqual(shown.out.count(", which tells this (most recent call last):\n"), 1)
        self.assertIn("\nthe activity lock is ", shown.out)

    def test_the_backtrace_takes_no_text(self):
        for words in ["acme.shop", "--backtrace", "1"], ["--backtrace", "--list"]:
            outcome = self.eval(*words).expect(2)
            self.assertIn("--backtrace takes no text", outcome.err)
        self.eval("acme.shop", "--backtrace", "-x").expect(2)
