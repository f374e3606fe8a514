"""How long work tells how far it is: tools/progress.py, and the tools that use it."""

import os
import pty
import re
import select
import subprocess
import sys
import tempfile
import unittest

import _Kel

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), *[os.pardir] * 3))
CLEARED = "\r\033[K"

WORK = """
import sys, time
sys.path.insert(0, %r)
from progress import Progress
with Progress("work", 3, ticking=%%s) as progress:
    %%s
""" % os.path.join(ROOT, "tools")


def at_terminal(command, **environment):
    """What a command writes to standard error, which is a terminal, and to standard output, which is none."""
    master, slave = pty.openpty()
    with tempfile.TemporaryFile() as out:
        child = subprocess.Popen(command, stdout=out, stderr=slave, stdin=open(os.devnull),
                                 env=dict(os.environ, **environment), close_fds=True)
        os.close(slave)
        written = ""
        while True:
            if not select.select([master], [], [], 60)[0]:
                child.kill()
                raise AssertionError("nothing came for a minute behind %r" % written)
            try:
                piece = os.read(master, 4096)
            except OSError:  # the other end is closed
                piece = ""
            if not piece:
                break
            written += piece
        os.close(master)
        status = child.wait()
        out.seek(0)
        return status, out.read(), written


def at_work(body, ticking=False):
    return [sys.executable, "-c", WORK % (ticking, body)]


def lines(written):
    """What stood in the line, one after the other."""
    return [line.replace("\033[K", "") for line in written.split("\r") if line != "\033[K"]


class AtTerminal(unittest.TestCase):

    def test_one_line_is_rewritten_and_gone_at_the_end(self):
        status, _, written = at_terminal(at_work(
            "progress.next('a'); progress.next('b'); progress.step(2, 5)"))
        self.assertEqual(status, 0)
        self.assertNotIn("\n", written)
        self.assertEqual([re.sub(r"\d+ s$", "N s", line) for line in lines(written) if line],
                         ["work 1 of 3: a, N s", "work 2 of 3: b, N s", "work 2 of 3: b (2 of 5), N s"])
        self.assertTrue(written.endswith(CLEARED), repr(written))

    def test_it_is_cleared_before_something_else_is_printed(self):
        _, _, written = at_terminal(at_work(
            "progress.next('a'); progress.clear(); sys.stderr.write('said\\n')"))
        self.assertRegexpMatches(written, r"work 1 of 3: a, \d+ s\x1b\[K\r\x1b\[Ksaid\r\n$")

    def test_no_thread_is_left_at_the_end(self):
        body = "progress.next('a')\nimport threading\nprint threading.active_count()"
        status, out, written = at_terminal(at_work(body, ticking=True))
        self.assertEqual((status, out), (0, "1\n"))
        self.assertTrue(written.endswith(CLEARED), repr(written))

    def test_seconds_do_not_bring_back_what_was_cleared(self):
        body = "progress.next('a')\n    progress.clear()\n    time.sleep(1.5)"
        _, _, written = at_terminal(at_work(body, ticking=True))
        self.assertEqual(len([line for line in lines(written) if line.startswith("work")]), 1)

    def test_it_is_gone_where_the_work_fails(self):
        status, _, written = at_terminal(at_work("progress.next('a'); sys.exit(3)"))
        self.assertEqual(status, 3)
        self.assertTrue(written.endswith(CLEARED), repr(written))

    def test_seconds_are_counted_while_the_work_says_nothing(self):
        body = ("put, puts = progress._put, []\n"
                "    progress._put = lambda text: (puts.append(text), put(text))\n"
                "    progress.next('a')\n"
                "    while len(puts) < 2: time.sleep(0.01)")
        _, _, written = at_terminal(at_work(body, ticking=True))
        self.assertGreater(len([line for line in lines(written) if line.startswith("work 1 of 3: a, ")]), 1)

    def test_the_seconds_that_it_takes_are_told_where_they_are_known(self):
        _, _, written = at_terminal(at_work("progress.next('a', 60); progress.next('b')"))
        self.assertRegexpMatches(written, r"work 1 of 3: a, \d+ of about 60 s\x1b\[K\rwork 2 of 3: b, \d+ s\x1b")

    def test_a_line_is_no_wider_than_the_terminal(self):
        _, _, written = at_terminal(at_work("progress.next('x' * 500)"), COLUMNS="40")
        self.assertLess(max(map(len, lines(written))), 500)

    def test_the_items_of_a_walk_are_steps(self):
        _, out, written = at_terminal(at_work("progress.next('a'); print list(progress.along('pq'))"))
        self.assertEqual(out, "['p', 'q']\n")
        self.assertIn("a (1 of 2)", written)
        self.assertIn("a (2 of 2)", written)

    def test_a_terminal_that_goes_does_not_end_the_work(self):
        body = ("import os, pty\n    master, slave = pty.openpty()\n    os.dup2(slave, 2); os.close(slave)\n"
                "    os.close(master)\n    progress.next('a'); progress.next('b')\n    print 'done'")
        status, out, _ = at_terminal(at_work(body))
        self.assertEqual((status, out), (0, "done\n"))


class Elsewhere(unittest.TestCase):

    def test_nothing_is_written_to_what_is_no_terminal(self):
        work = at_work("progress.next('a'); progress.step(1, 2); progress.clear()", ticking=True)
        child = subprocess.Popen(work, stderr=subprocess.PIPE)
        self.assertEqual(child.communicate()[1], "")
        self.assertEqual(child.returncode, 0)


class Tools(unittest.TestCase):

    def check(self, **more):
        environment = dict(os.environ, KEL_CHECK_RELEASE=os.path.dirname(os.path.abspath(_Kel.__file__)))
        run = os.path.join(ROOT, "tests", "checks", "run.py")
        return [sys.executable, "-B", run, "--short", "exceptions"], environment

    @unittest.skipIf("LD_PRELOAD" in os.environ, "the checks have builds of their own")
    def test_checks_tell_how_far_they_are_and_leave_their_result(self):
        command, environment = self.check()
        status, out, written = at_terminal(command, **environment)
        self.assertEqual(status, 0)
        self.assertRegexpMatches(out, r"^exceptions: \d+")
        self.assertIn("check 1 of 1: exceptions", written)
        self.assertRegexpMatches(written, r"\r\x1b\[K   exceptions: \d+ s\r\n$")

    @unittest.skipIf("LD_PRELOAD" in os.environ, "the checks have builds of their own")
    def test_checks_tell_nothing_of_it_elsewhere(self):
        command, environment = self.check()
        child = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment)
        self.assertRegexpMatches(child.communicate()[1], r"^   exceptions: \d+ s\n$")

    def test_a_build_tells_how_far_it_is(self):
        with tempfile.NamedTemporaryFile() as log:
            log.write("[1/20] Building a\n[7/20] Building b\n")
            log.flush()
            source = "root=%s; source %s/tools/setup.sh; " % (ROOT, ROOT)
            status, _, written = at_terminal(["bash", "-c", source + "show_build_step %s 0" % log.name])
            self.assertEqual(status, 0)
            self.assertRegexpMatches(written, r"^\rdev: building, step 7 of 20, \d+ s\x1b\[K$")

            script = source + "watch_build %s; unwatch_build" % log.name
            status, _, written = at_terminal(["bash", "-c", script])
            self.assertEqual(status, 0)
            self.assertTrue(written.endswith(CLEARED), repr(written))
            child = subprocess.Popen(["bash", "-c", script], stderr=subprocess.PIPE)
            self.assertEqual((child.communicate()[1], child.returncode), ("", 0))


if __name__ == "__main__":
    unittest.main()
