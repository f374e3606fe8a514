"""Threads of every sort upon the same objects: of Python, of the runtime, and two of neither.

Eight threads of Python, two that Python never saw and the runtime's loop read, write, call,
iterate, make and drop objects, handles, notifiees and timers, and fork. Nobody may get stuck, and
each change reaches each notifiee once, in order for one object.

The tests make a short run each, of KEL_STRESS_STEPS steps if that is set. For a long one:

   ./dev python tests/stress/stress.py --steps 50000 --forks 200
"""

import argparse
import gc
import sys
import time

import _Kel
import kel_hand
import kel_stress
import plants
from forks import run_programs
from worker import Worker
from world import Recorder, World, manager, root


def one_loop(workers):
    """Ends the loops that the workers have begun, one that is only about to begin as well, and begins
    another one: a loop that ends leaves behind what is pending."""
    for loop in [loop for worker in workers for loop in worker.loops]:
        while loop.is_alive():
            manager.stop()
            loop.join(0.01)
    while manager.isRunning:
        manager.stop()
        time.sleep(0.001)
    manager.start()


def drain(workers):
    """Waits until all that is pending is delivered, the last timers too."""
    participant = Recorder.draining = kel_stress.participant("the rest of the changes")
    one_loop(workers)
    manager.runUntilIdle()
    while any(worker.armed_timers() for worker in workers):
        manager.runUntilIdle()
    Recorder.draining = None
    kel_stress.done(participant)


def start(world, options):
    workers = [Worker(world, number, options) for number in range(options.python_threads)]
    kel_stress.startNative(world.strict, world.loose, world.store, world.item, world.args,
                           options.native_threads, options.steps,
                           options.forks if options.native_forks is None else options.native_forks)
    for worker in workers:
        worker.start()
    return workers


def loose_writers(world, workers, native_threads):
    """How many keyed and plain changes each writer has made of the object without a ledger."""
    writers = dict((worker.name, (worker.loose_keyed, worker.loose_plain)) for worker in workers)
    noted = kel_stress.noted(world.loose, 0, kel_stress.notedCount(world.loose))
    for number in range(native_threads):
        name = "n%d" % number
        keys = [key for _, key in noted if key.startswith(name + ":")]
        writers[name] = len(keys), 0
    return writers


def nothing(world):
    pass


def work(options):
    """All that the threads do; what went wrong, in words."""
    world = World()
    manager.start()
    plants.EARLY.get(options.plant, nothing)(world)
    workers = start(world, options)
    while not all(worker.made for worker in workers):
        time.sleep(0.001)
    plants.LATE.get(options.plant, nothing)(world)
    failures = run_programs(options)
    for worker in workers:
        worker.join()
    failures += kel_stress.joinNative()
    forked = sum(worker.forked for worker in workers), kel_stress.nativeForks()
    print "forks: %d of Python, %d of native threads" % forked
    drain(workers)
    manager.stop()
    gc.collect()  # cycles that a collection found while they were reachable have grown old
    failures += world.faults(loose_writers(world, workers, options.native_threads))
    for worker in workers:
        failures += worker.faults()
    world.end()
    return failures


def leaks(before):
    """The runtime objects that the work has left behind, or has ended too many of."""
    kel_stress.forgetNoted()
    gc.collect()
    return ["%s: %d alive before, %d after" % (name, before.get(name, 0), count)
            for name, count in sorted(kel_hand.live().items()) if count != before.get(name, 0)]


def run(options):
    """What went wrong, in words."""
    sys.setcheckinterval(1)
    is_order_watched = kel_stress.watchLockOrder()
    if options.safe_pointers:
        _Kel.enableThreadSafePointers()
    if options.prepared_forks:
        _Kel.pythonForkHandlersRegistered()
    kel_stress.watch(options.quiet)
    before = kel_hand.live()
    failures = work(options)
    del root["stress"]
    manager.runUntilIdle()
    failures += leaks(before)
    kel_stress.unwatch()
    if kel_stress.lockOrderViolations():
        failures.append("the order of the locks was not kept")
    print "the order of the locks was %swatched" % ("" if is_order_watched else "not ")
    if is_order_watched:
        print "longest waits: GIL %.3f s, activity lock %.3f s, machine %.3f s; %d holds" % (
            kel_stress.lockFigures())
    return failures


def main():
    parser = argparse.ArgumentParser(description="The stress test.")
    parser.add_argument("--steps", type=int, default=1000, help="of each thread")
    parser.add_argument("--forks", type=int, default=10, help="of each thread, about")
    parser.add_argument("--native-forks", type=int, help="of each native thread, if that differs")
    parser.add_argument("--python-threads", type=int, default=8)
    parser.add_argument("--native-threads", type=int, default=2)
    parser.add_argument("--programs", type=int, default=0,
                        help="children of subprocess and multiprocessing each, of the main thread")
    parser.add_argument("--quiet", type=int, default=60,
                        help="seconds without a step of a thread that count as a deadlock")
    parser.add_argument("--child-seconds", type=int, default=30,
                        help="that a forked child may take")
    parser.add_argument("--safe-pointers", action="store_true",
                        help="begin with enableThreadSafePointers()")
    parser.add_argument("--prepared-forks", action="store_true",
                        help="fork as Python-level handlers do, through atforkPrepare()")
    parser.add_argument("--plant", choices=sorted(plants.EARLY) + sorted(plants.LATE),
                        help="a fault to find")
    failures = run(parser.parse_args())
    for failure in failures:
        print failure
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
