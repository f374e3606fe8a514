"""The activity lock, the GIL and the import lock around a fork.

Each test has a process of its own.
"""

import unittest

from kel_testing import in_child

# What every script below has to hand.
TOOLS = """
import ctypes, imp, os, sys, threading
import _Kel, acme, kel_hand
from kel_testing import wait_until

def look_around():
    # In the child: both locks work, and so do the runtime, threads and imports.
    assert _Kel.activityLockOwner() == 0, _Kel.activityLockOwner()
    assert not imp.lock_held()
    use_everything()

def use_everything():
    assert acme.Item("child", 1).add(2, 3) == 5
    assert _Kel.acquireActivityLock() is True
    assert _Kel.activityLockOwner() == kel_hand.thread()
    _Kel.releaseActivityLock()
    import wave
    done = threading.Event()
    worker = threading.Thread(target=lambda: (acme.Size(1), done.set()))
    worker.start()
    worker.join()
    assert done.is_set()

def in_fork(body, fork=os.fork):
    # Forks; the child runs the body and ends. Gives whether that went well.
    child = fork()
    if child == 0:
        status = 1
        try:
            body()
            status = 0
        except:
            sys.excepthook(*sys.exc_info())
        finally:
            os._exit(status)
    _, status = os.waitpid(child, 0)
    assert status == 0, status

class Holder(object):
    # A thread that holds the activity lock until somebody waits for it, and then runs `last`.
    def __init__(self, last=lambda: None):
        self.held = threading.Event()
        self.last = last
        self.awaited = False
        self.thread = threading.Thread(target=self.run)
        self.thread.start()
        self.held.wait()

    def run(self):
        _Kel.acquireActivityLock()
        self.held.set()
        wait_until(kel_hand.isLockContended)
        self.awaited = True
        self.last()
        _Kel.releaseActivityLock()

    def join(self):
        self.thread.join()
        assert self.awaited

gil_fork = ctypes.PyDLL(None).fork

"""


class Fork(unittest.TestCase):

    def run_script(self, source):
        return in_child(TOOLS + source).expect()

    # Through os.fork, which holds the import lock and the GIL.

    def test_a_free_lock_is_free_on_both_sides(self):
        self.run_script("""
in_fork(look_around)
look_around()
""")

    def test_a_lock_of_the_forking_thread_stays_with_it_on_both_sides(self):
        self.run_script("""
def body():
    assert _Kel.activityLockOwner() == kel_hand.thread() == os.getpid()
    assert _Kel.acquireActivityLock() is False
    _Kel.releaseActivityLock()
    look_around()

_Kel.acquireActivityLock()
in_fork(body)
assert _Kel.activityLockOwner() == kel_hand.thread()
_Kel.releaseActivityLock()
look_around()
""")

    def test_it_waits_without_the_GIL_for_another_holder(self):
        self.run_script("""
holder = Holder()
in_fork(look_around)
holder.join()
look_around()
""")

    def test_it_waits_without_the_import_lock(self):
        self.run_script("""
def importing():
    # Needs the import lock while the main thread is in the middle of its fork.
    import aifc
    imported.append(aifc)

imported = []
holder = Holder(importing)
in_fork(look_around)
holder.join()
assert imported
assert not imp.lock_held()
""")

    def test_one_whose_thread_holds_the_import_lock_keeps_it_while_it_waits(self):
        self.run_script("""
held = []
holder = Holder(lambda: held.append(imp.lock_held()))
imp.acquire_lock()
in_fork(look_around)
imp.release_lock()
holder.join()
assert held == [True], held
assert not imp.lock_held()
""")

    def test_a_fork_in_the_middle_of_an_import_leaves_the_import_lock_with_the_import(self):
        self.run_script("""
import tempfile, shutil
folder = tempfile.mkdtemp()
try:
    with open(os.path.join(folder, "forking.py"), "w") as module:
        module.write('''
import imp, os
child = os.fork()
if child == 0:
    os._exit(0)
assert os.waitpid(child, 0)[1] == 0
held = imp.lock_held()
''')
    sys.path.insert(0, folder)
    import forking
    assert forking.held
    assert not imp.lock_held()
finally:
    shutil.rmtree(folder)
in_fork(look_around)
""")

    def test_forks_follow_each_other_on_both_sides(self):
        self.run_script("""
def body():
    holder = Holder()
    in_fork(look_around)
    holder.join()

for _ in range(3):
    holder = Holder()
    in_fork(body)
    holder.join()
look_around()
""")

    def test_a_thread_of_Python_may_fork(self):
        self.run_script("""
failures = []

def work():
    try:
        for _ in range(3):
            in_fork(look_around)
    except:
        failures.append(sys.exc_info())

_Kel.acquireActivityLock()
thread = threading.Thread(target=work)
thread.start()
wait_until(kel_hand.isLockContended)
_Kel.releaseActivityLock()
thread.join()
assert not failures, failures
look_around()
""")

    def test_subprocesses_start_while_another_thread_holds_the_lock(self):
        self.run_script("""
import subprocess
holder = Holder()
assert subprocess.call([sys.executable, "-c", "pass"]) == 0
holder.join()
look_around()
""")

    def test_threads_under_the_lock_survive_many_forks(self):
        self.run_script("""
stop = threading.Event()
item = acme.Item("one", 1)

def churn():
    while not stop.is_set():
        item.size = 5
        acme.Size(3)

threads = [threading.Thread(target=churn) for _ in range(2)]
[thread.start() for thread in threads]
try:
    for _ in range(20):
        in_fork(look_around)
finally:
    stop.set()
    [thread.join() for thread in threads]
""")

    # Through the C library, without os.fork around it.

    def test_a_native_fork_of_a_holder_of_the_GIL_leaves_the_import_lock_free(self):
        self.run_script("""
def body():
    assert _Kel.activityLockOwner() == 0
    assert not imp.lock_held()
    assert acme.Item("child", 1).add(2, 3) == 5

holder = Holder()
in_fork(body, gil_fork)
holder.join()
assert not imp.lock_held()
imp.acquire_lock()
in_fork(lambda: None, gil_fork)
assert imp.lock_held()
imp.release_lock()
assert not imp.lock_held()
""")

    def test_a_fork_of_a_thread_without_the_GIL_takes_the_activity_lock_alone(self):
        # The runtime's own handlers wait for the lock, and the holder has the GIL meanwhile.
        self.run_script("""
assert kel_hand.forkWithoutGil() == 0
holder = Holder()
assert kel_hand.forkWithoutGil() == 0
holder.join()
look_around()
in_fork(look_around)
""")

    def test_a_thread_that_Python_never_saw_may_fork(self):
        self.run_script("""
assert kel_hand.forkOnNativeThread() == 0
holder = Holder()
assert kel_hand.forkOnNativeThread() == 0
holder.join()
look_around()
""")

    def test_the_forks_of_a_thread_before_and_after_it_came_to_Python_are_told_apart(self):
        # The first leaves no trace: the second takes the locks in their order.
        self.run_script("""
holders = []
assert kel_hand.forkTwiceOnNativeThread(lambda: holders.append(Holder())) == (0, 0)
holders[0].join()
look_around()
""")


class PythonHandlers(unittest.TestCase):

    def run_script(self, source, env=None):
        return in_child(TOOLS + source, env=env).expect()

    def test_a_prepared_fork_holds_the_lock_from_the_preparation_on(self):
        self.run_script("""
assert _Kel.atforkPrepare() is None
assert _Kel.activityLockOwner() == kel_hand.thread()
in_fork(look_around)
look_around()
""")

    def test_a_second_preparation_does_nothing(self):
        self.run_script("""
_Kel.atforkPrepare()
# It would end the process if it went for the lock.
kel_hand.breakLock()
assert _Kel.atforkPrepare() is None
kel_hand.mendLock()
assert _Kel.activityLockOwner() == kel_hand.thread()
in_fork(look_around)
look_around()
# The fork has ended both.
_Kel.atforkPrepare()
assert _Kel.activityLockOwner() == kel_hand.thread()
in_fork(look_around)
look_around()
""")

    def test_a_second_preparation_of_a_thread_that_owns_the_lock_does_nothing(self):
        # The runtime itself has grabbed nothing here, and so would try again.
        self.run_script("""
_Kel.acquireActivityLock()
_Kel.atforkPrepare()
kel_hand.breakLock()
_Kel.atforkPrepare()
kel_hand.mendLock()
in_fork(lambda: None)
_Kel.releaseActivityLock()
look_around()
""")

    def test_a_second_preparation_takes_no_lock_that_was_given_up_since(self):
        # The fork then takes the lock with the GIL held: nobody else may want both meanwhile.
        self.run_script(env={"KEL_LOCK_GRAPH": ""}, source="""
_Kel.atforkPrepare()
_Kel.releaseActivityLock()
_Kel.atforkPrepare()
assert _Kel.activityLockOwner() == 0
in_fork(look_around)
look_around()
""")

    def test_a_preparation_in_the_middle_of_a_fork_does_nothing(self):
        self.run_script("""
calls = []

def prepare():
    # It would end the process if it went for the lock.
    kel_hand.breakLock()
    calls.append(_Kel.atforkPrepare())
    kel_hand.mendLock()

kel_hand.callInForks(prepare)
in_fork(look_around)
in_fork(look_around)
assert calls == [None, None], calls
look_around()
""")

    def test_a_prepared_fork_gives_up_neither_the_GIL_nor_the_import_lock(self):
        self.run_script("""
import time
waits, imported = threading.Event(), []

def importing():
    waits.set()
    imp.acquire_lock()
    imported.append(True)
    imp.release_lock()

def body():
    assert not imported

imp.acquire_lock()
thread = threading.Thread(target=importing)
thread.start()
waits.wait()
time.sleep(0.05)  # it stands for the import lock by now
_Kel.atforkPrepare()
in_fork(body, gil_fork)
assert not imported
imp.release_lock()
thread.join()
assert imported
look_around()
""")

    def test_the_preparation_waits_without_the_GIL(self):
        self.run_script("""
holder = Holder()
_Kel.atforkPrepare()
holder.join()
assert _Kel.activityLockOwner() == kel_hand.thread()
in_fork(look_around)
look_around()
""")

    def test_the_preparation_leaves_the_import_lock_alone(self):
        self.run_script("""
imp.acquire_lock()
_Kel.atforkPrepare()
assert imp.lock_held()
in_fork(lambda: None)
assert imp.lock_held()
imp.release_lock()
assert not imp.lock_held()
""")

    def test_the_preparation_leaves_a_lock_that_the_thread_owns(self):
        self.run_script("""
def body():
    assert _Kel.activityLockOwner() == kel_hand.thread()

_Kel.acquireActivityLock()
_Kel.atforkPrepare()
in_fork(body)
assert _Kel.activityLockOwner() == kel_hand.thread()
_Kel.releaseActivityLock()
look_around()
""")

    def test_each_thread_prepares_for_itself(self):
        self.run_script("""
def prepare():
    _Kel.atforkPrepare()
    owners.append(_Kel.activityLockOwner())
    _Kel.releaseActivityLock()

owners = []
thread = threading.Thread(target=prepare)
thread.start()
thread.join()
assert owners[0] not in (0, kel_hand.thread())
holder = Holder()
in_fork(look_around)
holder.join()
""")

    def test_with_handlers_declared_an_unprepared_fork_leaves_the_lock_to_its_holder(self):
        # It does not wait: the holder sees nobody come, and holds the lock throughout.
        self.run_script("""
assert _Kel.pythonForkHandlersRegistered() is None
held, release = threading.Event(), threading.Event()

def hold():
    _Kel.acquireActivityLock()
    held.set()
    release.wait()
    _Kel.releaseActivityLock()

thread = threading.Thread(target=hold)
thread.start()
held.wait()
owner = _Kel.activityLockOwner()
in_fork(look_around)
assert _Kel.activityLockOwner() == owner
assert not kel_hand.isLockContended()
assert not imp.lock_held()
# The declaration holds for good.
in_fork(look_around)
release.set()
thread.join()
look_around()
""")

    def test_with_handlers_declared_a_prepared_fork_waits_for_the_holder(self):
        self.run_script("""
_Kel.pythonForkHandlersRegistered()
holder = Holder()
_Kel.atforkPrepare()
assert _Kel.activityLockOwner() == kel_hand.thread()
in_fork(look_around)
holder.join()
look_around()
""")

    def test_with_handlers_declared_a_lock_of_the_forking_thread_stays_with_it(self):
        self.run_script("""
def body():
    assert _Kel.activityLockOwner() == kel_hand.thread()

_Kel.pythonForkHandlersRegistered()
_Kel.acquireActivityLock()
in_fork(body)
assert _Kel.activityLockOwner() == kel_hand.thread()
_Kel.releaseActivityLock()
""")

    def test_with_handlers_declared_threads_without_the_GIL_still_take_the_lock(self):
        self.run_script("""
_Kel.pythonForkHandlersRegistered()
holder = Holder()
assert kel_hand.forkOnNativeThread() == 0
holder.join()
look_around()
""")
