"""What reactions cost: from a change in C++ to the Python function that is told, and timers.

Latencies are those of single changes; other figures are the least of several rounds.
"""

import random
import sys

import _Kel
import acme
import kel_floor
from kel_reactions import changes, joinBeats, nativeDelivery, now, startBeats

BEATS, PAUSE = 2000, 300  # changes for a latency, and the microseconds between them
BATCH = 100000
NOTIFIEES = (1, 10, 100, 1000, 10000)
TIMERS = (10, 100, 1000, 10000, 100000)
ARMINGS = 20000
COLUMNS = {"notifiees": ("make", "tell", "drop", "drop, floor"),
           "timers": ("arm", "arm and fire", "write, floor")}
NAME = "bench"
FAR = 1e9

manager = _Kel.singleton("Kel::ActivityManager")
clock = _Kel.singleton("Kel::Clock")
ClockNotifiee = _Kel.pyType(_Kel.typeNode("Kel::PyClockNotifiee"))


def nothing(*args):
    pass


def least(rounds, once):
    """The least of each figure over the rounds."""
    return tuple(min(column) for column in zip(*[once() for _ in range(rounds)]))


def per(start, count):
    return (now() - start) / float(count)


def latencies(wait):
    """Sorted ns from a change on a native thread to its handler on the loop's; wait() runs meanwhile."""
    item = _Kel.singleton("Kel::Dir")[NAME]
    seen = []
    kept = _Kel.newNotifiee(item, _Kel.handle(lambda attr, key: seen.append(now())))
    manager.start()
    startBeats(NAME, BEATS, PAUSE)
    wait(seen)
    stamps = joinBeats()
    manager.runUntilIdle()  # until the loop is idle
    manager.stop()
    while manager.isRunning:
        pass
    del kept
    assert len(seen) == BEATS
    # The first ones make what stays: the thread's state, pages.
    return sorted(told - changed for told, changed in zip(seen, stamps)[100:])


def compute(seen):
    while len(seen) < BEATS:
        pass


def bare_call(count):
    attr = acme.Item.kelType.attr("size")
    start = now()
    for _ in xrange(count):
        nothing(attr, None)
    return per(start, count)


def batch():
    """ns for each: queueing a change, telling Python of it, telling C++, a call of the function alone."""
    kept = _Kel.newNotifiee(_Kel.singleton("Kel::Dir")[NAME], _Kel.handle(nothing))
    start = now()
    changes(NAME, BATCH)
    queueing = per(start, BATCH)
    start = now()
    manager.runUntilIdle()
    telling = per(start, BATCH)
    del kept
    return queueing, telling, nativeDelivery(NAME, BATCH) / float(BATCH), bare_call(BATCH)


def one_by_one():
    """ns for a change, a run of the loop and the call of the handler, all on one thread."""
    kept = _Kel.newNotifiee(_Kel.singleton("Kel::Dir")[NAME], _Kel.handle(nothing))
    count = BATCH // 10
    start = now()
    for _ in xrange(count):
        changes(NAME, 1)
        manager.runUntilIdle()
    took = per(start, count)
    del kept
    return took,


def dropped(kept):
    """ns for each to drop, in no order."""
    count = len(kept)
    random.Random(7).shuffle(kept)
    start = now()
    while kept:
        kept.pop()
    return per(start, count)


def notifiees(count):
    """ns for each of so many notifiees of one object: to make, to tell of one change, to drop.

    Beside them, to drop so many objects of the floor: what the machine's caches make of it.
    """
    item, handle = _Kel.singleton("Kel::Dir")[NAME], _Kel.handle(nothing)
    repeats = max(1, 1000 // count)
    start = now()
    kept = [_Kel.newNotifiee(item, handle) for _ in xrange(count)]
    making = per(start, count)
    changes(NAME, repeats)
    start = now()
    manager.runUntilIdle()
    telling = per(start, count * repeats)
    return making, telling, dropped(kept), dropped([kel_floor.Thing("text", 1) for _ in xrange(count)])


def timers(count):
    """ns beside so many that wait: to arm one anew at any time, and to arm one that is due and fire it.

    Beside them, to write to one of so many objects of the floor.
    """
    handle, numbers = _Kel.handle(nothing), random.Random(7)
    kept = [ClockNotifiee(clock, handle) for _ in xrange(count)]
    for each in kept:
        each.timeMinProxy = FAR + numbers.random()
    anew = [(numbers.choice(kept), FAR + numbers.random()) for _ in xrange(ARMINGS)]
    start = now()
    for each, time in anew:
        each.timeMinProxy = time
    arming = per(start, ARMINGS)
    things = [kel_floor.Thing("text", 1) for _ in xrange(count)]
    some = [numbers.choice(things) for _ in xrange(ARMINGS)]
    start = now()
    for each in some:
        each.level = 1
    writing = per(start, ARMINGS)
    one = ClockNotifiee(clock, handle)
    start = now()
    for _ in xrange(ARMINGS):
        one.timeMinProxy = 1.0
        manager.runUntilIdle()
    return arming, per(start, ARMINGS), writing


def due_timers():
    """ns for each of many timers that are due."""
    handle, numbers = _Kel.handle(nothing), random.Random(7)
    kept = [ClockNotifiee(clock, handle) for _ in xrange(BATCH)]
    for each in kept:
        each.timeMinProxy = 1 + numbers.random()
    start = now()
    manager.runUntilIdle()
    return per(start, BATCH),


def measure(rounds):
    """All figures, in ns."""
    root = _Kel.singleton("Kel::Dir")
    root.newEntity("Acme::Item", NAME)
    idle, busy = latencies(nothing), latencies(compute)
    queueing, telling, native, bare = least(rounds, batch)
    figures = {
        "latency": dict((name, {"median": ns[len(ns) // 2], "99 %": ns[len(ns) * 99 // 100]})
                        for name, ns in (("idle", idle), ("busy", busy))),
        "notification": {
            "queue": queueing, "deliver": telling, "deliver to C++": native, "bare call": bare,
            "one by one": least(rounds, one_by_one)[0]},
        "notifiees": dict(
            (count, dict(zip(COLUMNS["notifiees"], least(rounds, lambda: notifiees(count)))))
            for count in NOTIFIEES),
        "timers": dict(
            (count, dict(zip(COLUMNS["timers"], least(rounds, lambda: timers(count)))))
            for count in TIMERS),
        "due timer": least(rounds, due_timers)[0],
    }
    del root[NAME]
    return figures


def report(figures, out=sys.stdout):
    def line(title, ns, more=""):
        out.write("%-60s %10.0f%s\n" % (title, ns, more))

    def a_second(ns):
        return " %14d a second" % (1e9 / ns)

    told = figures["notification"]
    out.write("%-60s %10s\n" % ("reactions", "ns"))
    for state in "idle", "busy":
        ns = figures["latency"][state]
        line("change on a native thread to handler on the loop's, Python " + state,
             ns["median"], "   99 %% below %d" % ns["99 %"])
    line("change, run of the loop and handler, on one thread", told["one by one"])
    line("change in C++, queued", told["queue"])
    line("its delivery to a Python function", told["deliver"], a_second(told["deliver"]))
    line("its delivery to a reactor in C++", told["deliver to C++"], a_second(told["deliver to C++"]))
    line("a call of the Python function alone", told["bare call"])
    line("timer that is due, of 100000", figures["due timer"], a_second(figures["due timer"]))
    out.write("\n")
    for title, row in ("notifiees of one object", "notifiees"), ("timers that wait", "timers"):
        columns = COLUMNS[row]
        out.write("%-28s%s\n" % (title, "".join("%20s" % ("ns to " + name) for name in columns)))
        for count in sorted(figures[row], key=int):
            out.write("%28s%s\n" % (count, "".join("%20.0f" % figures[row][count][name] for name in columns)))
