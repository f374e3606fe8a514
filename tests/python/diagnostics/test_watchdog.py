"""The watchdog of the activity lock. Each report has a process of its own."""

import re
import unittest

import Kel
from kel_testing import in_child

TOOLS = """
import ctypes, os, select, sys, threading, time
import Kel, _Kel, acme, kel_hand

def told():
    with open("/proc/self/fd/2") as err:
        return err.read()

def wait_for(text):
    while text not in told():
        time.sleep(0.01)

def thread(function):
    made = threading.Thread(target=function)
    made.start()
    return made

"""

HELD = r"^\[watchdog: thread \d+ \(.+\) has held the activity lock for [0-9.]+ s, process \d+\]\n"
WAITS = r"^\[watchdog: thread \d+ \(.+\) waits for the activity lock\]\n"
FREE = (r"^\[watchdog: thread \d+ has given up the activity lock, "
        r"which it held for [0-9.]+ s\]\n")


class Watchdog(unittest.TestCase):

    def told(self, source):
        """What a script tells, in which a line of the script stands in the place of its number."""
        lines = (TOOLS + source).split("\n")
        return re.sub('File "<string>", line ([0-9]+)',
                      lambda found: lines[int(found.group(1)) - 1].strip(),
                      in_child(TOOLS + source).expect().err)

    def assertTold(self, err, *parts):
        """The parts are there, once each and in this order, among other lines."""
        at = 0
        for part in parts:
            found = list(re.finditer(part, err, re.M))
            self.assertEqual(len(found), 1, (part, err))
            self.assertGreaterEqual(found[0].start(), at, (part, err))
            at = found[0].end()

    def test_it_tells_the_stacks_of_the_holder_and_of_who_waits_and_the_end(self):
        err = self.told("""
is_told = False

def hold():
    with Kel.activityLock():
        item.size = 1
        while not kel_hand.isLockContended():
            time.sleep(0.001)
        Kel.watchdog(0.3)
        while not is_told:
            pass

def wait():
    item.size = 2

item = acme.Item("nail", 1)
holder = thread(hold)
while not _Kel.activityLockOwner():
    pass
waiter = thread(wait)
wait_for("waits for the activity lock")
is_told = True
holder.join()
waiter.join()
wait_for("has given up")
""")
        self.assertTold(err, HELD,
                        r"^  (while not is_told:|pass), in hold\n", WAITS,
                        r"^  item.size = 2, in wait\n", FREE)
        self.assertEqual(err.count("Python stack (most recent call FIRST):\n"), 2)
        self.assertEqual(err.count("Native stack (most recent call FIRST):\n"), 2)

    def test_a_holder_that_sleeps_is_not_woken_and_shows_where(self):
        err = self.told("""
r, w = os.pipe()
ready = []

def hold():
    with Kel.activityLock():
        ready.append(select.select([r], [], [], 600))

Kel.watchdog(0.3)
holder = thread(hold)
wait_for("libc")  # of the last line
os.write(w, "x")
holder.join()
wait_for("has given up")
assert ready == [([r], [], [])], ready
""")
        self.assertTold(err, HELD, r"^  ready.append\(select.*, in hold\n",
                        r"^It waits in system call \d+, which a signal would end:\n.*libc", FREE)

    def test_a_holder_that_keeps_the_GIL_as_well_is_told(self):
        err = self.told("""
Kel.watchdog(0.3)
with Kel.activityLock():
    while ", in <module>" not in told():
        ctypes.PyDLL(None).sleep(1)  # nobody else runs any Python meanwhile
wait_for("has given up")
""")
        self.assertTold(err, HELD, r"^  ctypes.PyDLL.*, in <module>\n", FREE)

    def test_one_that_computes_with_the_GIL_is_told_with_its_native_stack(self):
        err = self.told("""
def compute():
    end = time.time() + 0.5
    while time.time() < end: pass

sys.setcheckinterval(10**9)
Kel.watchdog(0.3)
with Kel.activityLock():
    while "PyEval_EvalCodeEx" not in told():
        compute()
wait_for("has given up")
""")
        self.assertTold(err, HELD, r"^  while time.time.*, in compute\n",
                        r"^Native stack .*\n", r"\(PyEval_EvalCodeEx\+.*\n(?!.*EvalCodeEx)", FREE)

    def test_a_thread_that_lets_others_have_the_lock_is_not_told(self):
        err = self.told("""
Kel.watchdog(1)
end = time.time() + 2
while time.time() < end:
    with Kel.activityLock():
        time.sleep(0.02)
    time.sleep(0.002)
""")
        self.assertEqual(err, "")

    def test_a_name_or_a_file_of_control_characters_stays_on_its_line(self):
        err = self.told("""
Kel.watchdog(0.3)
source = "def hold():\\n    with Kel.activityLock():\\n        wait_for('has held')\\n"
exec compile(source, "a\\nb\\x1b[31m", "exec")
hold()
wait_for("has given up")
""")
        self.assertIn('  File "a?b?[31m", line 3, in hold\n', err)

    def test_what_is_no_time_to_wait_is_refused(self):
        for seconds in -1, 1e10, float("nan"):
            with self.assertRaises(IndexError):
                Kel.watchdog(seconds)
        with self.assertRaises(TypeError):
            Kel.watchdog("soon")
