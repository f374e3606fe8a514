"""The prompt of kel-eval on a terminal."""

import os
import pty
import re
import select
import signal
import stat
import termios

from _PyServerWire import now
from kel_testing import wait_until
from programs import DEADLINE, EVAL, ProgramCase

ESCAPES = re.compile(r"\x1b\[[\d;?]*[A-Za-z]|\r")
UP = "\x1b[A"
CTRL_C = "\x03"
CTRL_D = "\x04"
BELL = "\x07"


class Terminal(object):
    """A program on a terminal of its own."""

    def __init__(self, command, env):
        self.pid, self._master = pty.fork()
        if not self.pid:
            try:
                os.execvpe(command[0], command, env)
            finally:
                os._exit(127)
        self._unread = ""
        self._status = None

    def type(self, text):
        """Types at the prompt, once that is there: what comes before is shown twice."""
        wait_until(self._editing, DEADLINE)
        self.send(text)

    def send(self, text):
        os.write(self._master, text)

    def _editing(self):
        return not termios.tcgetattr(self._master)[3] & termios.ICANON

    def expect(self, text):
        """What is shown up to and with the text, without escape sequences."""
        end = now() + DEADLINE
        while text not in self._unread:
            if not select.select([self._master], [], [], max(0, end - now()))[0]:
                raise AssertionError("%r did not come, but %r" % (text, self._unread))
            try:
                piece = os.read(self._master, 4096)
            except OSError:  # the other end is closed
                raise AssertionError("%r did not come before the end: %r" % (text, self._unread))
            self._unread = ESCAPES.sub("", self._unread + piece)
        shown, self._unread = self._unread.split(text, 1)
        return shown + text

    def line(self, text, prompt=">>> "):
        """What is shown behind a line, up to the next prompt."""
        self.type(text + "\n")
        self.expect("\n")
        return self.expect(prompt)[:-len(prompt)]

    def status(self):
        """How it ended, as of Popen."""
        if self._status is None:
            self._status = []
            wait_until(self._ended, DEADLINE)
        return self._status[0]

    def _ended(self):
        pid, status = os.waitpid(self.pid, os.WNOHANG)
        if pid:
            self._status = [os.WEXITSTATUS(status) if os.WIFEXITED(status)
                            else -os.WTERMSIG(status)]
        return pid

    def close(self):
        if self._status is None:
            os.kill(self.pid, signal.SIGKILL)
            self.status()
        os.close(self._master)


class Prompt(ProgramCase):

    def setUp(self):
        super(Prompt, self).setUp()
        self.env["TERM"] = "xterm"
        self.env["LC_ALL"] = "C"  # in which a machine without a locale is
        self.service = self.serving("""
            import time, acme
            item = acme.Item("apple", 7)
            quality_of_apples = 5
            log = []
            """)

    def prompt(self):
        terminal = Terminal([EVAL, "acme.shop"], self.env)
        self.addCleanup(terminal.close)
        terminal.expect(">>> ")
        return terminal

    def test_it_shows_what_expressions_give_and_runs_statements(self):
        prompt = self.prompt()
        for line, shown in (
                ("1 + 1", "2\n"), ("'text'", "'text'\n"), ("None", ""), ("", ""), ("# 1", ""),
                ("n = 6", ""), ("n; n", ""), ("n", "6\n"), ("import os", ""), ("(n,)", "(6,)\n"),
                ("log.append(n)", ""), ("u'\xc3\xa9'", "u'\\xe9'\n"), ("'\\\\'", "'\\\\'\n"),
                ("n;", "6\n"), ("'\"%s\"' % 'x'", "'\"x\"'\n")):
            self.assertEqual((line, prompt.line(line)), (line, shown))
        self.assertEqual(self.value("n, log"), "(6, [6])")

    def test_a_block_goes_on_until_an_empty_line(self):
        prompt = self.prompt()
        prompt.line("def double(n):", "... ")
        prompt.line("    if n:", "... ")
        prompt.line("        return 2 * n", "... ")
        self.assertEqual(prompt.line(""), "")
        self.assertEqual(prompt.line("double(4)"), "8\n")
        prompt.line("[1,", "... ")
        self.assertEqual(prompt.line("2]"), "[1, 2]\n")
        prompt.line("@staticmethod", "... ")
        prompt.line("def f(): pass", "... ")
        self.assertEqual(prompt.line(""), "")

    def test_an_exception_is_shown_as_Python_does_and_it_goes_on(self):
        prompt = self.prompt()
        prompt.line("def fail():", "... ")
        prompt.line("    return {}['key']", "... ")
        prompt.line("")
        self.assertEqual(prompt.line("fail()"), (
            'Traceback (most recent call last):\n  File "<prompt>", line 1, in <module>\n'
            '  File "<prompt>", line 2, in fail\nKeyError: \'key\'\n'))
        self.assertEqual(prompt.line("1 +"), (
            '  File "<prompt>", line 1\n    1 +\n      ^\nSyntaxError: invalid syntax\n'))
        self.assertIn("SystemExit", prompt.line("import sys; sys.exit(1)"))
        self.assertEqual(prompt.line("2"), "2\n")

    def test_the_tab_key_completes_names_of_the_agent(self):
        prompt = self.prompt()
        for start, rest, shown in (
                ("qual", "", "5\n"), ("item.posit", "", "Value('Acme::Point', "),
                ("[item.wei", ", 1]", "[0.0, 1]\n"), ("isinsta", "(1, int)", "True\n"),
                ("lamb", ": 1", "<function <lambda>")):
            prompt.type(start + "\t")
            self.assertIn(shown, prompt.line(rest))

    def test_names_that_differ_are_shown(self):
        self.eval("acme.shop", "-x", "pears_small = pears_large = 8").expect()
        prompt = self.prompt()
        prompt.type("pear\t")
        prompt.expect("pears_")
        prompt.type("\t")
        prompt.expect("pears_large  pears_small")
        prompt.expect(">>> pears_")
        self.assertIn("8\n", prompt.line("large"))

    def test_a_word_that_cannot_be_completed_stays(self):
        prompt = self.prompt()
        for start, shown in (("nothing.at", BELL), ("nothing_of_that", BELL), ("1 + (", BELL),
                             ("'", BELL), ("item.note.", ">>> item.note.")):
            prompt.type(start + "\t")
            prompt.expect(shown)
            prompt.send(CTRL_C)
            prompt.expect(">>> ")
        self.assertEqual(prompt.line("1"), "1\n")

    def test_the_tab_key_indents_at_the_start_of_a_line(self):
        prompt = self.prompt()
        prompt.line("if True:", "... ")
        prompt.type("\t")
        prompt.line("log.append('in')", "... ")
        prompt.line("")
        self.assertEqual(self.value("log"), "['in']")

    def test_lines_come_back_in_this_prompt_and_the_next(self):
        prompt = self.prompt()
        prompt.line("log.append('a b')")
        prompt.line(UP)
        prompt.type(CTRL_D)
        self.assertEqual(prompt.status(), 0)
        self.prompt().line(UP)
        self.assertEqual(self.value("log"), "['a b', 'a b', 'a b']")

    def test_the_history_is_for_the_user_alone(self):
        path = self.write(".kel_eval_history", "")
        for prepare in (lambda: os.unlink(path)), (lambda: os.chmod(path, 0o644)):
            prepare()
            self.prompt().line("1")
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)

    def test_without_a_home_there_is_a_prompt_without_a_history(self):
        del self.env["HOME"]
        self.assertEqual(self.prompt().line("1"), "1\n")

    def test_ctrl_C_leaves_the_line_or_the_block(self):
        prompt = self.prompt()
        prompt.type("log.append(1)")
        prompt.expect("(1)")
        prompt.send(CTRL_C)
        prompt.expect(">>> ")
        prompt.line("if True:", "... ")
        prompt.type("    log.append(2)")
        prompt.expect("(2)")
        prompt.send(CTRL_C)
        prompt.expect(">>> ")
        self.assertEqual(prompt.line("3"), "3\n")
        self.assertEqual(self.value("log"), "[]")

    def test_ctrl_C_ends_it_while_a_text_runs(self):
        prompt = self.prompt()
        prompt.type("log.append(1); time.sleep(600)\n")
        wait_until(lambda: self.value("log") == "[1]")
        prompt.send(CTRL_C)
        self.assertEqual(prompt.status(), -signal.SIGINT)

    def test_ctrl_D_ends_it(self):
        prompt = self.prompt()
        prompt.type(CTRL_D)
        self.assertEqual(prompt.status(), 0)

    def test_the_end_of_the_agent_ends_it_with_status_3(self):
        prompt = self.prompt()
        self.service.kill()
        prompt.type("1\n")
        prompt.expect("lost the connection to acme.shop")
        self.assertEqual(prompt.status(), 3)
