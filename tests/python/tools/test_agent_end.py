"""How an agent ends: in order by a signal, at once by a second one, or from inside."""

import os
import signal
import time

from kel_testing import wait_until
from programs import EVAL, REACTORS, ProgramCase, start_group

BOTH = signal.SIGINT, signal.SIGTERM


def _ignoring():
    start_group()
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    signal.signal(signal.SIGTERM, signal.SIG_IGN)


def _waits(agent):
    """Whether its main thread stays in one system call. Python sees a signal that comes just ahead
    of a call only behind it."""
    def call():
        with open("/proc/%d/syscall" % agent.pid) as told:
            return told.read()
    before = call()
    time.sleep(0.05)
    return before == call() != "running\n"


class InOrder(ProgramCase):

    def assertEndsInOrder(self, agent, number, status=0):
        socket_name = self.socket_of()
        agent.send(number)
        outcome = agent.wait().expect(status)
        self.assertEqual(outcome.err, "")
        self.assertGone(socket_name)
        return outcome

    def test_both_signals_end_the_loop(self):
        for number in BOTH:
            self.assertEndsInOrder(self.serving("x = 1"), number)

    def test_they_interrupt_a_script_that_runs(self):
        self.interrupt_a_script(start_group)

    def test_so_they_do_in_a_background_job_that_was_started_with_them_ignored(self):
        for number in BOTH:
            self.assertEndsInOrder(self.serving("x = 1", prepare=_ignoring), number)
        self.interrupt_a_script(_ignoring)

    def interrupt_a_script(self, prepare):
        for number, name in zip(BOTH, ("KeyboardInterrupt", "SystemExit")):
            agent = self.agent("""
                import select
                try:
                    print "begins"
                    select.select([], [], [], 600)
                except BaseException as error:
                    print type(error).__name__
                    raise
                """, prepare=prepare)
            wait_until(lambda: agent.out == "begins\n")
            wait_until(lambda: _waits(agent))
            outcome = self.assertEndsInOrder(agent, number)
            self.assertEqual(outcome.out, "begins\n%s\n" % name)

    def test_what_is_pending_is_delivered_first(self):
        agent = self.serving(REACTORS + """
import acme
item = acme.Item("apple", 7)
def changed(attr, key):
    print "changed", attr.name
watcher = _Kel.newNotifiee(item, _Kel.handle(changed))
def due():
    os.kill(os.getpid(), signal.SIGTERM)
    item.size = 5
    print "due"
t = timer(due)
""")
        socket_name = self.socket_of()
        self.eval("acme.shop", "-x", "t.timeMinProxy = clock.now").expect()
        self.assertEqual(agent.wait().expect().out, "due\nchanged size\n")
        self.assertGone(socket_name)

    def test_a_periodic_timer_does_not_keep_it(self):
        for number in BOTH:
            agent = self.serving(REACTORS + """
def due():
    t.timeMinProxy = clock.now + 0.02
t = timer(due, clock.now)
""")
            self.assertEndsInOrder(agent, number)

    def test_what_is_pending_without_an_end_is_cut_off(self):
        for number in BOTH:
            agent = self.serving(REACTORS + """
def due():
    t.timeMinProxy = clock.now
t = timer(due, clock.now)
""")
            self.assertEndsInOrder(agent, number)

    def test_a_reactor_at_work_is_not_interrupted(self):
        agent = self.serving(REACTORS + """
r, w = os.pipe()
config = _Kel.singleton("Kel::ActivityManagerConfig")
def due():
    print "begins"
    print os.read(r, 3), config.stopOnQuiesce
t = timer(due)
""")
        self.eval("acme.shop", "-x", "t.timeMinProxy = clock.now").expect()
        wait_until(lambda: agent.out == "begins\n")
        agent.send(signal.SIGINT)
        self.eval("acme.shop", "-x", "os.write(w, 'end')").expect()
        outcome = agent.wait().expect()
        self.assertEqual((outcome.out, outcome.err), ("begins\nend True\n", ""))

    def test_the_loop_may_run_on_a_thread_of_the_runtimes_own(self):
        for number in BOTH:
            agent = self.serving(REACTORS + "manager.start()\n")
            self.assertEndsInOrder(agent, number)

    def test_stop_ends_it_from_inside(self):
        for start in "", "manager.start()":
            agent = self.serving(REACTORS + start)
            socket_name = self.socket_of()
            self.eval("acme.shop", "-x", "manager.stop()").expect()
            self.assertEqual(agent.wait().expect().err, "")
            self.assertGone(socket_name)

    def test_stopOnQuiesce_ends_it_once_nothing_is_pending(self):
        self.run_agent(REACTORS + """
config = _Kel.singleton("Kel::ActivityManagerConfig")
config.stopOnQuiesce = True
def due():
    print "due"
t = timer(due, clock.now)
""").expect()

    def test_interrupting_the_main_thread_from_another_ends_it(self):
        agent = self.serving(REACTORS + """
def due():
    t.timeMinProxy = clock.now + 0.02
t = timer(due, clock.now)
""")
        self.eval("acme.shop", "-x", "import thread; thread.interrupt_main()").expect()
        self.assertEqual(agent.wait().expect().err, "")

    def test_a_text_that_is_being_evaluated_does_not_keep_it(self):
        agent = self.serving("import time")
        waiting = self.program(
            [EVAL, "acme.shop", "-x", "print 'here'; time.sleep(600)"])
        wait_until(lambda: agent.out == "here\n")
        self.assertEndsInOrder(agent, signal.SIGTERM)
        waiting.wait().expect(3)


class AtOnce(ProgramCase):

    def test_a_second_signal_ends_a_reactor_that_does_not_return(self):
        for number in BOTH:
            agent = self.serving(REACTORS + """
def due():
    print "begins"
    while True:
        time.sleep(1)
t = timer(due)
""")
            self.eval("acme.shop", "-x", "t.timeMinProxy = clock.now").expect()
            wait_until(lambda: agent.out == "begins\n")
            self.end_at_once(agent, number)

    def test_a_second_signal_ends_a_script_that_does_not_heed_the_first(self):
        for number in BOTH:
            # This version of Python cannot be interrupted while it waits for a lock.
            agent = self.agent(REACTORS + """
import threading
lock = threading.Lock()
lock.acquire()
print "begins"
lock.acquire()
""")
            wait_until(lambda: agent.out == "begins\n")
            wait_until(lambda: _waits(agent))
            self.end_at_once(agent, number)

    def end_at_once(self, agent, number):
        socket_name = self.socket_of()

        def ended():
            # One that comes within a second of the first is the same wish.
            if agent.lives:
                agent.send(number)
            return not agent.lives

        wait_until(ended)
        self.assertEqual(agent.wait().expect(128 + number).err, "")
        self.assertGone(socket_name)


class SignalsOfTheScript(ProgramCase):

    def test_handlers_run_while_the_loop_runs(self):
        for start in "", "manager.start()":
            agent = self.serving(REACTORS + """
got = []
signal.signal(signal.SIGUSR1, lambda number, frame: got.append(number))
""" + start)
            agent.send(signal.SIGUSR1)
            wait_until(lambda: self.value("got") == "[%d]" % signal.SIGUSR1)
            agent.send(signal.SIGTERM)
            agent.wait().expect()

    def test_an_end_signal_with_a_handler_of_the_scripts_is_its_own_affair(self):
        for number in BOTH:
            for start in "", "manager.start()":
                agent = self.serving(REACTORS + """
def handle(number, frame):
    print "handled"
    if count:
        sys.exit(count)
count = 0
signal.signal(%d, handle)
""" % number + start)
                socket_name = self.socket_of()
                agent.send(number)
                wait_until(lambda: agent.out == "handled\n")
                self.assertEqual(self.value("count"), "0")
                self.eval("acme.shop", "-x", "count = 7").expect()
                agent.send(number)
                agent.wait().expect(7)
                self.assertGone(socket_name)

    def test_a_handler_that_raises_ends_the_agent_with_its_traceback(self):
        agent = self.serving(REACTORS + """
def handle(number, frame):
    {}["key"]
signal.signal(signal.SIGUSR1, handle)
""")
        socket_name = self.socket_of()
        agent.send(signal.SIGUSR1)
        self.assertIn("KeyError: 'key'\n", agent.wait().expect(1).err)
        self.assertGone(socket_name)

    def test_a_child_of_the_script_dies_by_SIGTERM_and_does_not_end_the_agent(self):
        self.serving(REACTORS + """
child = os.fork()
if not child:
    while True:
        time.sleep(600)
""")
        os.kill(int(self.value("child")), signal.SIGTERM)
        self.assertEqual(self.value("os.waitpid(child, 0)[1]"), str(signal.SIGTERM))
        self.assertEqual(self.value("manager.isRunning"), "True")

    def test_a_child_of_the_script_gets_a_KeyboardInterrupt_and_the_agent_does_not(self):
        self.serving(REACTORS + """
ready, tell = os.pipe()
child = os.fork()
if not child:
    try:
        os.write(tell, "x")
        while True:
            time.sleep(600)
    except KeyboardInterrupt:
        os._exit(5)
os.read(ready, 1)
""")
        os.kill(int(self.value("child")), signal.SIGINT)
        self.assertEqual(self.value("os.waitpid(child, 0)[1] >> 8"), "5")
        self.assertEqual(self.value("manager.isRunning"), "True")
