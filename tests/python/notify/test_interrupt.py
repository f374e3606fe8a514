"""Ctrl-C: the activity loop ends in order, wherever it runs, and Python has its KeyboardInterrupt."""

import signal
import unittest

import loop_script

SCRIPT = """
def interrupt():
    os.kill(os.getpid(), signal.SIGINT)

def on_thread(function):
    # On a thread of Python that the end of the process does not wait for.
    thread = threading.Thread(target=function)
    thread.daemon = True
    thread.start()
    return thread

def interrupt_once(condition):
    on_thread(lambda: (wait_until(condition), interrupt()))

def await_interrupt():
    # Python may see a signal some steps of the main thread late.
    while True:
        time.sleep(0.001)

def has_ended():
    return not manager.isRunning
"""

# A handler of the program's own, set before the module chains to it.
OWN_HANDLER = """
import signal
interrupts = []
signal.signal(signal.SIGINT, lambda number, frame: interrupts.append(number))
"""


def run_script(source, status=0, first=""):
    return loop_script.run_script(SCRIPT + source, status, first)


class Case(unittest.TestCase):

    def prints(self, out, source, **options):
        """The script ends with 0 and writes just that."""
        outcome = run_script(source, **options)
        self.assertEqual((outcome.out, outcome.err), (out, ""))

    def aborts_with_interrupt(self, source):
        """A handler of the script raises KeyboardInterrupt, and no handler may raise."""
        outcome = run_script(source, -signal.SIGABRT)
        self.assertTrue(outcome.err.startswith(
            "Python notifiee handler function raised an exception\n"), outcome)
        self.assertIn("\nKeyboardInterrupt\n", outcome.err)


class OnTheMainThread(Case):

    def test_a_run_ends_and_a_KeyboardInterrupt_comes_up_behind_it(self):
        self.prints("interrupted False True\n", """
interrupt_once(lambda: manager.isRunning)
try:
    manager.run()
    await_interrupt()
except KeyboardInterrupt:
    print "interrupted", manager.isRunning, config.stopOnQuiesce
""")

    def test_that_is_not_caught_ends_the_process_with_status_1(self):
        outcome = run_script("""
interrupt_once(lambda: manager.isRunning)
manager.run()
assert not manager.isRunning
await_interrupt()
""", 1)
        self.assertEqual(outcome.out, "")
        self.assertTrue(outcome.err.startswith("Traceback (most recent call last):\n"), outcome)
        self.assertTrue(outcome.err.endswith("\nKeyboardInterrupt\n"), outcome)

    def test_what_is_pending_is_delivered_before_the_run_ends(self):
        self.prints(str([("a", None)] * 3 + [("b", None)]) + " 1\n", """
def handler(attr, key):
    if len(seen) == 1:
        interrupt()
        assert config.stopOnQuiesce
        notes.b = 5

kept.append(notifiee(notes, handler))
notes.a = 1
notes.a = 2
notes.a = 3
manager.run()
print seen, len(interrupts)
""", first=OWN_HANDLER)

    def test_a_timer_that_is_due_fires_and_a_later_one_does_not(self):
        self.prints("['due'] 1\n", """
fired = []
kept.append(timer(lambda: fired.append("due"), clock.now))
kept.append(timer(lambda: fired.append("later"), clock.now + 1e6))
interrupt()
manager.run()
print fired, len(interrupts)
""", first=OWN_HANDLER)

    def test_several_before_the_run_has_ended_are_one_KeyboardInterrupt(self):
        # While the thread holds the activity lock the loop cannot end.
        self.prints("interrupted\nlived on\n", """
def twice():
    wait_until(lambda: manager.isRunning)
    _Kel.acquireActivityLock()
    interrupt()
    interrupt()
    _Kel.releaseActivityLock()

thread = on_thread(twice)
try:
    manager.run()
    await_interrupt()
except KeyboardInterrupt:
    print "interrupted"
thread.join()
print "lived on"
""")

    def test_one_more_afterwards_is_one_more_KeyboardInterrupt(self):
        self.prints("once\ntwice\n", """
interrupt_once(lambda: manager.isRunning)
try:
    manager.run()
    await_interrupt()
except KeyboardInterrupt:
    print "once"
try:
    interrupt()
    await_interrupt()
except KeyboardInterrupt:
    print "twice"
assert config.stopOnQuiesce
""")

    def test_the_wish_to_stop_lasts_until_it_is_taken_back(self):
        self.prints("[('a', None)] [('a', None), ('a', None)]\n", """
try:
    interrupt()
    await_interrupt()
except KeyboardInterrupt:
    pass
# It was no loop's: the next one ends once nothing is pending.
notes.a = 1
manager.run()
first = list(seen)
config.stopOnQuiesce = False
kept.append(timer(manager.stop, clock.now + 0.01))
notes.a = 2
manager.run()
print first, seen
""")

    def test_during_a_handler_it_comes_up_in_there_and_ends_the_process(self):
        self.aborts_with_interrupt("""
def handler(attr, key):
    interrupt()
    await_interrupt()

kept.append(notifiee(notes, handler))
notes.a = 1
manager.run()
""")

    def test_before_a_handler_it_comes_up_in_there_too(self):
        # The change is made while the loop cannot go on, behind the signal.
        self.aborts_with_interrupt("""
def change():
    wait_until(lambda: manager.isRunning)
    _Kel.acquireActivityLock()
    interrupt()
    notes.a = 1
    _Kel.releaseActivityLock()

kept.append(notifiee(notes, lambda attr, key: await_interrupt()))
on_thread(change)
manager.run()
""")

    def test_a_handler_set_behind_the_import_takes_the_place_of_the_chain(self):
        self.prints("[2] False\n", """
interrupts = []
signal.signal(signal.SIGINT, lambda number, frame: interrupts.append(number))
interrupt()
print interrupts, config.stopOnQuiesce
""")


class OnTheRuntimesThread(Case):

    def test_the_loop_ends_and_the_main_thread_is_interrupted(self):
        self.prints("interrupted True\n", """
manager.start()
notes.a = 1
wait_until(lambda: seen)
try:
    interrupt_once(lambda: True)
    await_interrupt()
except KeyboardInterrupt:
    wait_until(has_ended)
    print "interrupted", config.stopOnQuiesce
""")

    def test_that_is_not_caught_ends_the_process_with_status_1(self):
        for busy in "", """
def tick():
    kept[-1].timeMinProxy = clock.now
    notes.a += 1

kept.append(timer(tick, clock.now))
""":
            outcome = run_script(busy + """
manager.start()
interrupt_once(lambda: manager.isRunning)
await_interrupt()
""", 1)
            self.assertEqual(outcome.out, "")
            self.assertTrue(outcome.err.startswith("Traceback (most recent call last):\n"), outcome)
            self.assertTrue(outcome.err.endswith("\nKeyboardInterrupt\n"), outcome)

    def test_during_a_handler_that_goes_on_and_the_rest_is_delivered(self):
        self.prints("interrupted [('a', None)] []\n"
                    "[('a', None), ('b', None), ('a', None)] ['a', 'b', 'a']\n", """
go_on, behind = threading.Event(), []

def handler(attr, key):
    while not go_on.is_set():
        time.sleep(0.001)
    behind.append(attr.name)

kept.append(notifiee(notes, handler))
manager.start()
notes.a = 1
notes.b = 1
notes.a = 2
wait_until(lambda: seen)
try:
    interrupt()
    await_interrupt()
except KeyboardInterrupt:
    print "interrupted", seen, behind
assert manager.isRunning
go_on.set()
wait_until(has_ended)
print seen, behind
""")

    def test_a_second_while_the_loop_comes_to_its_end_interrupts_Python_alone(self):
        self.prints("once\ntwice\n[('a', None), ('b', None)]\n", """
go_on = threading.Event()

def handler(attr, key):
    while not go_on.is_set():
        time.sleep(0.001)

kept.append(notifiee(notes, handler))
manager.start()
notes.a = 1
notes.b = 1
wait_until(lambda: seen)
for count in "once", "twice":
    try:
        interrupt()
        await_interrupt()
    except KeyboardInterrupt:
        print count
go_on.set()
wait_until(has_ended)
print seen
""")

    def test_a_signal_that_comes_to_that_thread_does_the_same(self):
        self.prints("interrupted True\n", """
import ctypes
libc, loop = ctypes.CDLL(None), []
libc.pthread_self.restype = ctypes.c_ulong
libc.pthread_kill.argtypes = ctypes.c_ulong, ctypes.c_int

def handler(attr, key):
    loop.append(libc.pthread_self())

kept.append(notifiee(notes, handler))
manager.start()
notes.a = 1
wait_until(lambda: loop)
assert loop[0] != libc.pthread_self()
try:
    assert libc.pthread_kill(loop[0], signal.SIGINT) == 0
    await_interrupt()
except KeyboardInterrupt:
    wait_until(has_ended)
    print "interrupted", config.stopOnQuiesce
""")

    def test_it_may_be_started_again(self):
        self.prints("[('a', None), ('b', None)]\n", """
manager.start()
notes.a = 1
wait_until(lambda: seen)
try:
    interrupt()
    await_interrupt()
except KeyboardInterrupt:
    wait_until(has_ended)
config.stopOnQuiesce = False
manager.start()
assert manager.isRunning
notes.b = 1
wait_until(lambda: len(seen) == 2)
assert manager.isRunning
manager.stop()
wait_until(has_ended)
print seen
""")


class OnAThreadOfPython(Case):

    def test_the_loop_ends_and_the_main_thread_is_interrupted(self):
        self.prints("interrupted\n[('a', None)]\n", """
thread = threading.Thread(target=manager.run)
thread.start()
notes.a = 1
wait_until(lambda: seen)
try:
    interrupt()
    await_interrupt()
except KeyboardInterrupt:
    print "interrupted"
thread.join()
assert not manager.isRunning
print seen
""")

    def test_its_handlers_are_not_interrupted(self):
        self.prints("interrupted\n['a', 'b']\n", """
told = []

def handler(attr, key):
    if not told:
        begins.wait()
        interrupt()
        for _ in xrange(100000):
            pass
    told.append(attr.name)

kept.append(notifiee(notes, handler))
notes.a = 1
notes.b = 1
begins = threading.Event()
thread = threading.Thread(target=manager.run)
thread.start()
try:
    begins.set()
    await_interrupt()
except KeyboardInterrupt:
    print "interrupted"
thread.join()
print told
""")
