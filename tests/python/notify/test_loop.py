"""The activity loop as Python runs it: on its own threads and on the runtime's."""

import unittest

import odd
from kel_testing import TestCase
from loop_script import run_script
from reactors import Seen, clock, config, manager, notifiee, timer


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
        for handlers, change in [
                ("notifiee(notes, count)", "notes.a = i"),
                ("timer(count)", "kept[-1].timeMinProxy = clock.now")]:
            run_script("""
local, found = threading.local(), []

def count(*args):
    local.calls = getattr(local, "calls", 0) + 1
    found.append(local.calls)

kept[:] = [%s]
manager.start()
for i in range(1, 6):
    %s
    wait_until(lambda: len(found) == i)
assert found == [1, 2, 3, 4, 5], found
manager.stop()
wait_until(lambda: not manager.isRunning)
""" % (handlers, change))

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

    def test_who_runs_it_until_idle_from_elsewhere_finds_due_timers_fired(self):
        run_script("""
fired = []
kept.append(timer(lambda: fired.append(len(fired))))
manager.start()
for i in range(1, 201):
    kept[-1].timeMinProxy = clock.now
    manager.runUntilIdle()
    assert len(fired) == i, (i, fired)
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

    def test_a_handler_may_end_before_the_interpreter_does(self):
        outcome = run_script("""
import atexit
entered, ending = threading.Event(), threading.Event()

def last(*args):
    entered.set()
    ending.wait()
    time.sleep(0.01)
    print "handler"

kept.append(notifiee(notes, last))
manager.start()
notes.a = 1
entered.wait()
atexit.register(ending.set)
print "main"
""")
        self.assertEqual((outcome.out, outcome.err), ("main\nhandler\n", ""))

    def test_a_handler_that_never_ends_is_left_behind(self):
        for handlers, change in [("notifiee(notes, last)", "notes.a = 1"),
                                 ("timer(last)", "kept[-1].timeMinProxy = clock.now")]:
            outcome = run_script("""
entered = threading.Event()

def last(*args):
    entered.set()
    threading.Event().wait()

kept.append(%s)
manager.start()
%s
entered.wait()
print "main"
""" % (handlers, change))
            self.assertEqual((outcome.out, outcome.err), ("main\n", ""))

    def test_the_thread_that_ends_the_interpreter_may_still_use_it(self):
        outcome = run_script("""
class Told(object):
    def __del__(self):
        print "dropped"

kept.extend([_Kel.handle(Told()), timer(lambda: sys.stdout.write("fired\\n"), clock.now)])
""", first="""
import atexit

# Registered before the module is there, so it runs behind what the module does at the end.
def late():
    manager.runUntilIdle()
    del kept[:]

atexit.register(late)
""")
        self.assertEqual((outcome.out, outcome.err), ("fired\ndropped\n", ""))

    def test_functions_at_the_exit_that_were_registered_first_still_see_handlers_of_the_loop(self):
        outcome = run_script("""
kept.append(notifiee(notes, lambda *args: seen.append(args)))
manager.start()
print "main"
""", first="""
import atexit

def flush():
    notes.a = 1
    wait_until(lambda: seen)
    print "seen"

atexit.register(flush)
""")
        self.assertEqual((outcome.out, outcome.err), ("main\nseen\n", ""))

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
