"""The activity loop as Python runs it: on its own threads, on the runtime's, and up to Ctrl-C."""

import os
import signal
import unittest

import _Kel
import odd
from kel_testing import TestCase, in_child
from reactors import Seen, clock, config, manager, notifiee, timer

SCRIPT = """
import os, signal, sys, threading, time
import _Kel, acme, kel_hand, odd
from kel_testing import wait_until
from reactors import *

notes, seen = odd.Notes(), Seen()
kept = [notifiee(notes, seen)]

# A timer far away: the loop waits and has something to wait for.
kept.append(timer(lambda: None, clock.now + 1e6))

def interrupt_once(condition):
    # Sends SIGINT to the process as a terminal does, from a thread that waits for its moment.
    def work():
        wait_until(condition)
        os.kill(os.getpid(), signal.SIGINT)

    thread = threading.Thread(target=work)
    thread.daemon = True
    thread.start()
"""


def run_script(source, status=0, first=""):
    path = os.pathsep.join(
        [os.path.dirname(os.path.abspath(__file__)), os.environ["PYTHONPATH"]])
    return in_child(first + SCRIPT + source, env={"PYTHONPATH": path}).expect(status)


class RunUntilIdle(TestCase):

    def test_it_delivers_what_is_pending_and_due_and_returns(self):
        notes, order = odd.Notes(), []
        kept = [notifiee(notes, lambda attr, key: order.append(attr.name)),
                timer(lambda: order.append("due"), clock.now),
                timer(lambda: order.append("far"), clock.now + 1e6)]
        notes.a = 1
        self.assertIsNone(manager.runUntilIdle())
        self.assertEqual(order, ["a", "due"])
        self.assertIs(manager.isRunning, False)
        del kept

    def test_a_stop_from_a_handler_leaves_the_rest_for_the_next_run(self):
        notes, seen = odd.Notes(), Seen()

        def stop(attr, key):
            seen(attr, key)
            manager.stop()

        kept = notifiee(notes, stop)
        notes.a = 1
        notes.b = 1
        manager.runUntilIdle()
        self.assertEqual(seen.take(), [("a", None)])
        manager.runUntilIdle()
        self.assertEqual(seen.take(), [("b", None)])
        del kept

    def test_a_stop_of_no_loop_does_nothing(self):
        notes, seen = odd.Notes(), Seen()
        kept = notifiee(notes, seen)
        manager.stop()
        notes.a = 1
        manager.runUntilIdle()
        self.assertEqual(seen, [("a", None)])
        del kept

    def test_a_quiescing_loop_delivers_what_is_pending_and_ends(self):
        notes, seen = odd.Notes(), Seen()
        kept = [notifiee(notes, seen), timer(lambda: None, clock.now + 1e6)]
        notes.a = 1
        config.stopOnQuiesce = True
        try:
            manager.run()
        finally:
            config.stopOnQuiesce = False
        self.assertEqual(seen, [("a", None)])
        self.assertIs(manager.isRunning, False)
        del kept


class OnThreads(unittest.TestCase):

    def test_a_loop_on_the_runtimes_thread_delivers_and_stops(self):
        run_script("""
threads = []
kept.append(notifiee(notes, lambda attr, key: threads.append(kel_hand.thread())))
manager.start()
assert manager.isRunning
for i in range(1, 101):
    notes.a = i
wait_until(lambda: len(seen) == 100 and len(threads) == 100)
assert seen == [("a", None)] * 100
assert len(set(threads)) == 1 and threads[0] != kel_hand.thread()
manager.stop()
wait_until(lambda: not manager.isRunning)
notes.a = 0
time.sleep(0.01)
assert len(seen) == 100
# And once more, on a new thread.
manager.start()
wait_until(lambda: len(seen) == 101)
manager.stop()
wait_until(lambda: not manager.isRunning)
""")

    def test_thread_local_data_lasts_from_handler_to_handler(self):
        run_script("""
local, found = threading.local(), []

def count(attr, key):
    local.calls = getattr(local, "calls", 0) + 1
    found.append(local.calls)

kept.append(notifiee(notes, count))
manager.start()
for i in range(1, 6):
    notes.a = i
wait_until(lambda: len(found) == 5)
assert found == [1, 2, 3, 4, 5], found
manager.stop()
wait_until(lambda: not manager.isRunning)
""")

    def test_a_key_of_source_text_needs_no_Python_frame(self):
        run_script("""
manager.start()
notes.byText[(1, "k", None, True)] = 5
wait_until(lambda: seen)
assert seen == [("byText", (1, "k", None, True))], seen
manager.stop()
wait_until(lambda: not manager.isRunning)
""")

    def test_it_fires_timers_while_it_waits_for_changes(self):
        run_script("""
fired = []
kept.append(timer(lambda: fired.append(clock.now), clock.now + 0.02))
wanted = kept[-1].timeMinProxy
manager.start()
wait_until(lambda: fired)
assert fired[0] >= wanted
# One that is armed while the loop waits for a later time.
kept[-1].timeMinProxy = wanted = clock.now + 0.02
wait_until(lambda: len(fired) == 2)
assert fired[1] >= wanted
manager.stop()
wait_until(lambda: not manager.isRunning)
""")

    def test_a_timer_that_arms_itself_ticks(self):
        run_script("""
ticks = []

def tick():
    ticks.append(clock.now)
    kept[-1].timeMinProxy = clock.now + 0.001

kept.append(timer(tick, clock.now))
manager.start()
wait_until(lambda: len(ticks) >= 20)
manager.stop()
wait_until(lambda: not manager.isRunning)
assert ticks == sorted(ticks)
""")

    def test_only_one_loop_runs_at_a_time(self):
        run_script("""
manager.start()
for start in manager.run, manager.start:
    try:
        start()
    except SystemError as error:
        assert "runs already" in str(error), error
    else:
        raise AssertionError("a second loop runs")
notes.a = 1
manager.runUntilIdle()  # waits for the other one to be idle
assert seen == [("a", None)]
manager.stop()
wait_until(lambda: not manager.isRunning)
""")

    def test_a_run_on_a_thread_of_Python_ends_with_stop_from_another(self):
        run_script("""
thread = threading.Thread(target=manager.run)
thread.start()
notes.a = 1
wait_until(lambda: seen)
assert manager.isRunning
manager.stop()
thread.join()
assert not manager.isRunning
""")

    def test_Python_threads_go_on_while_handlers_run(self):
        run_script("""
item = acme.Item("one", 1)
taken = []

def work(attr, key):
    if _Kel.acquireActivityLock():
        taken.append(attr.name)
        _Kel.releaseActivityLock()
    item.size = len(taken)

kept.append(notifiee(notes, work))
manager.start()
for i in range(1, 201):
    notes.a = i
    assert item.size <= 200
    if _Kel.acquireActivityLock():
        _Kel.releaseActivityLock()
wait_until(lambda: len(taken) == 200 and len(seen) == 200)
manager.stop()
wait_until(lambda: not manager.isRunning)
assert item.size == 200
""")

    def test_a_process_may_end_while_the_loop_runs_handlers(self):
        # On a thread that may be anywhere: in a handler, or on its way to one.
        for _ in range(10):
            outcome = run_script("""
def tick():
    kept[-1].timeMinProxy = clock.now
    notes.a += 1

kept.append(timer(tick, clock.now))
manager.start()
wait_until(lambda: len(seen) > 5)
print "ends"
""")
            self.assertEqual((outcome.out, outcome.err), ("ends\n", ""))


class Interrupt(unittest.TestCase):

    def test_of_a_run_on_the_main_thread_is_a_KeyboardInterrupt_behind_it(self):
        outcome = run_script("""
interrupt_once(lambda: manager.isRunning)
try:
    manager.run()
except KeyboardInterrupt:
    print "interrupted", manager.isRunning, config.stopOnQuiesce
""")
        self.assertEqual((outcome.out, outcome.err), ("interrupted False True\n", ""))

    def test_what_is_pending_is_delivered_before_the_run_ends(self):
        outcome = run_script("""
def interrupt(attr, key):
    if len(seen) == 1:
        os.kill(os.getpid(), signal.SIGINT)
        assert config.stopOnQuiesce
        notes.b = 5

kept.append(notifiee(notes, interrupt))
notes.a = 1
notes.a = 2
notes.a = 3
manager.run()
print seen
""", first="import signal; signal.signal(signal.SIGINT, lambda number, frame: None)")
        self.assertEqual(outcome.out, str([("a", None)] * 3 + [("b", None)]) + "\n")

    def test_of_a_loop_on_the_runtimes_thread_stops_that_and_interrupts_Python(self):
        outcome = run_script("""
manager.start()
notes.a = 1
wait_until(lambda: seen)
try:
    interrupt_once(lambda: True)
    time.sleep(60)
except KeyboardInterrupt:
    wait_until(lambda: not manager.isRunning)
    print "interrupted", config.stopOnQuiesce
""")
        self.assertEqual((outcome.out, outcome.err), ("interrupted True\n", ""))

    def test_that_is_not_caught_ends_the_process_as_Python_does(self):
        outcome = run_script("""
interrupt_once(lambda: manager.isRunning)
manager.run()
print "not here"
""", 1)
        self.assertEqual(outcome.out, "")
        self.assertTrue(outcome.err.endswith("KeyboardInterrupt\n"), outcome)

    def test_of_a_handler_in_Python_on_the_main_thread_ends_the_process(self):
        # The exception comes up in the handler, and no handler may raise.
        outcome = run_script("""
def handler(attr, key):
    os.kill(os.getpid(), signal.SIGINT)
    time.sleep(60)

kept.append(notifiee(notes, handler))
notes.a = 1
manager.run()
""", -signal.SIGABRT)
        self.assertTrue(outcome.err.startswith(
            "Python notifiee handler function raised an exception\n"), outcome)
        self.assertIn("\nKeyboardInterrupt\n", outcome.err)

    def test_a_new_run_is_possible_once_the_flag_is_taken_back(self):
        run_script("""
interrupt_once(lambda: manager.isRunning)
try:
    manager.run()
except KeyboardInterrupt:
    pass
config.stopOnQuiesce = False
notes.a = 1
kept.append(timer(manager.stop, clock.now + 0.01))
manager.run()
assert seen == [("a", None)], seen
""")
