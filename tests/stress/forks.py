"""Forks of the threads of Python, and what their children find."""

import multiprocessing
import os
import subprocess
import sys
import threading
import traceback

import _Kel
import acme
import kel_hand
import kel_stress
from world import Recorder, check_whole, manager


def fork(worker, in_reactor=False):
    """Forks, perhaps with the activity lock held, and waits for the child."""
    hold = worker.random.random() < 0.5
    if hold:
        _Kel.acquireActivityLock()
    if worker.options.prepared_forks:
        _Kel.atforkPrepare()
    child = os.fork()
    worker.forked += child != 0
    if child == 0:
        be_child(worker, hold, in_reactor)
    if hold:
        _Kel.releaseActivityLock()
    _, status = os.waitpid(child, 0)
    if status != 0:
        worker.failures.append("%s: the status of a child is %d" % (worker.name, status))


def be_child(worker, hold, in_reactor):
    status = 1
    try:
        kel_stress.childDeadline(worker.options.child_seconds)
        owner = _Kel.activityLockOwner()
        assert owner == (kel_hand.thread() if hold else 0), owner
        check_whole(worker.world)
        if hold:
            _Kel.releaseActivityLock()
        look_around(worker, in_reactor)
        status = 0
    except:
        traceback.print_exc()
    finally:
        os._exit(status)


def look_around(worker, in_reactor):
    """This is the one thread: everything works, also what was under way in others."""
    if worker.world.children_stick:
        threading.Event().wait()
    for recorder in worker.recorders:
        recorder.drop()
    recorder = Recorder(worker.world.strict)
    for step in worker.step_read, worker.step_call, worker.step_iterate, worker.step_entities:
        step()
    on_another_thread(worker.step_write_notes)
    # A loop of this thread goes on, one of any other is no more.
    assert manager.isRunning == in_reactor
    # What is pending here is pending in the parent too, and may be much.
    if not in_reactor and worker.random.random() < 0.2:
        manager.runUntilIdle()
        assert not recorder.faults(), recorder.faults()


def on_another_thread(step):
    if kel_stress.sanitizer() == "thread":
        # It takes the threads of the parent for living, and a new one for one of them.
        step()
    else:
        thread = threading.Thread(target=step)
        thread.start()
        thread.join()


def run_programs(options):
    """Starts children as other libraries do, one after another; what went wrong, in words."""
    failures = []
    for number in range(options.programs):
        status = subprocess.call([sys.executable, "-S", "-E", "-c", "pass"], close_fds=True)
        child = multiprocessing.Process(target=use_runtime, args=(options.child_seconds,))
        child.start()
        child.join()
        if status or child.exitcode:
            failures.append("child %d of subprocess ended with %d, of multiprocessing with %d" % (
                number, status, child.exitcode))
    return failures


def use_runtime(seconds):
    kel_stress.childDeadline(seconds)
    assert acme.Item("child", 1).add(2, 3) == 5
