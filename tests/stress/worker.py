"""A thread of Python and the steps that it makes."""

import gc
import random
import threading
import time
import traceback
import weakref

import _Kel
import kel_hand
import kel_stress
import acme
import odd
from forks import fork
from world import Locked, Recorder, check_whole, manager

clock = _Kel.singleton("Kel::Clock")
facility = _Kel.singleton("Kel::TraceFacility")
ClockNotifiee = _Kel.pyType(_Kel.typeNode("Kel::PyClockNotifiee"))

TYPES = ["Odd::Scalars", "Odd::Values", "Odd::Coll", "Odd::Board", "Odd::Args", "Odd::Segment",
         "Odd::SpecialNode", "Odd::Point3", "Odd::MoreBoxed", "Odd::Car", "Acme::Badge",
         "Odd::ColorSet", "Odd::Link", "Odd::Nest", "Odd::Gate", "Odd::SubGate", "Odd::Keeper"]


class Timer(object):
    """Arms itself from its handler, so many times, and does something else there too."""

    def __init__(self, times, react):
        self.times = times
        self.react = react
        self.armed = 0
        self.fired = 0
        self.early = 0
        self.notifiee = ClockNotifiee(clock, _Kel.handle(self.tell))
        self.arm()

    def arm(self):
        self.armed += 1
        self.wanted = clock.now + random.choice([-1, 0, 0.0005])
        self.notifiee.timeMinProxy = self.wanted

    def tell(self):
        self.early += clock.now < self.wanted
        self.react()
        if self.armed < self.times:
            self.arm()
        self.fired += 1  # now, for until then it counts as armed

    def is_armed(self):
        return self.fired < self.armed

    def faults(self):
        if self.fired == self.armed == self.times and not self.early:
            return []
        return ["a timer was armed %d times of %d and fired %d times, %d of them early" % (
            self.armed, self.times, self.fired, self.early)]


class Worker(threading.Thread):
    """One of Python's threads."""

    def __init__(self, world, index, options):
        super(Worker, self).__init__(name="p%d" % index)
        self.daemon = True
        self.world = world
        self.index = index
        self.options = options
        self.fork_share = options.forks / float(options.steps)
        self.random = random.Random(index)
        self.participant = kel_stress.participant(self.name)
        self.failures = []
        self.made = 0
        self.number = 0
        self.forked = 0
        self.loose_keyed = 0
        self.loose_plain = 0
        self.recorders = []
        self.dropped = []
        self.timers = []
        self.loops = []
        self.functions = []

    def run(self):
        menu = [getattr(self, name) for name in sorted(dir(self)) if name.startswith("step_")]
        try:
            while self.made < self.options.steps:
                kel_stress.dawdle()
                self.random.choice(menu)()
                self.made += 1
                if self.random.random() < self.fork_share:
                    fork(self)
                kel_stress.step(self.participant)
            for recorder in self.recorders:
                recorder.drop()
        except:
            self.failures.append("%s: %s" % (self.name, traceback.format_exc()))
        kel_stress.done(self.participant)

    def key(self):
        self.number += 1
        return "%s:%d" % (self.name, self.number)

    def armed_timers(self):
        return [timer for timer in self.timers if timer.is_armed()]

    def faults(self):
        """What went wrong, in words. Drops what is left."""
        found = self.failures
        for loop in self.loops:
            loop.join()
        for recorder in self.dropped + self.recorders:
            found += recorder.faults()
        for timer in self.timers:
            found += timer.faults()
            timer.notifiee = None
        alive = [function for function in self.functions if function() is not None]
        if alive:
            found.append("%s: %d functions outlive their handles" % (self.name, len(alive)))
        return found

    # Writes that are noted.

    def step_write_notes(self):
        notes, key = self.world.strict, self.key()
        with Locked():
            notes.map[key] = 1
            kel_stress.note(notes, "map", key)
            notes.a += 1
            kel_stress.note(notes, "a", None)
        with Locked():
            del notes.map[key]
            kel_stress.note(notes, "map", key)
            notes.quiet += 1
            time.sleep(0.0002)
            self.world.loose.quiet += 1

    def step_write_store(self):
        store, key = self.world.store, self.key()
        with Locked():
            store.price[key] = 5
            kel_stress.note(store, "price", key)
            store.price[key] = 5  # no change
            store.tag.add(key)
            kel_stress.note(store, "tag", key)
            store.restock(key, 3)
            kel_stress.note(store, "item", key)
        with Locked():
            store.order.enq(key)
            kel_stress.note(store, "order", None)
            store.addFavorite(store.item[key])
            kel_stress.note(store, "favorite", key)
            del store.favorite[key]
            kel_stress.note(store, "favorite", key)
        with Locked():
            store.order.deq()
            kel_stress.note(store, "order", None)
            del store.item[key]
            kel_stress.note(store, "item", key)

    def step_write_item(self):
        item = self.world.item
        with Locked():
            item.size += 1
            kel_stress.note(item, "size", None)
            one, other = self.world.parents
            item.parent = other if item.parent == one else one
            kel_stress.note(item, "parent", None)
            item.note = self.key()
            kel_stress.note(item, "note", None)

    def step_entities(self):
        shelf = self.world.shelf
        name = self.key().replace(":", "-")
        with Locked():
            shelf.newEntity("Acme::Item", name)
            kel_stress.note(shelf, "entityPtr", name)
        future = _Kel.entityFuture("/stress/" + name, None)
        future.convertToEntity()
        future.size = 5
        _Kel.convertEntityToFailedMount(future)
        future.convertToEntity()
        assert future.size == 5
        with Locked():
            del shelf[name]
            kel_stress.note(shelf, "entityPtr", name)
        future.size = 6
        assert future.size == 6

    # Writes without a hold of the lock.

    def step_write_loosely(self):
        self.world.loose.map["%s:%d" % (self.name, self.loose_keyed)] = 1
        self.loose_keyed += 1

    def step_write_plain(self):
        # No two writers write the same number, so each write is a change.
        loose, number = self.world.loose, self.loose_plain
        loose.a = number * 100 + self.index + 1
        loose.byText[(self.name, number)] = 1
        self.loose_plain += 1

    # Reads, calls, iteration.

    def step_read(self):
        item = self.world.item
        assert item.name == "item" and item.id == 1
        assert item.size >= 0 and item.weight == 0 and item.color == "red"
        parent = item.parent
        assert parent is None or parent.name in ("one", "other")
        check_whole(self.world)
        assert str(item.position) and hash(parent) is not None and repr(item)
        assert _Kel.singleton("Kel::Clock").now > 0

    def step_share(self):
        # The counts of these two go up and down in all threads.
        item, args = self.world.item, self.world.args
        for _ in xrange(60):
            item.parent
            args.kept()

    def step_call(self):
        item, store = self.world.item, self.world.store
        assert item.add(2, 3) == 5
        assert acme.Item.describe("blue") == "a blue item"
        assert item.lookup(self.key(), acme.Size(1)) is None
        node = odd.Node(self.number)
        assert odd.Args().node(node) == node
        assert odd.Args().size(7) == 7
        assert store.fullName == "store"

    def step_iterate(self):
        for key, member in self.world.strict.map.iteritems():
            assert ":" in key and member
        for number, key in enumerate(self.world.store.tag):
            if number > 50:
                break
        self.world.store.item.values()
        len(self.world.loose.map)
        assert all(entity.name for entity in self.world.shelf.values())

    def step_values(self):
        size = acme.Size(self.number)
        assert size + size == 2 * self.number and size < acme.Size(self.number + 1)
        assert hash(_Kel.const(size)) == hash(_Kel.const(_Kel.nonConst(size)))
        point = acme.Point(x=1, y=2)
        self.world.parents[0].position = point
        assert self.world.parents[0].position == point

    def step_refusals(self):
        for text, call in [("refused", lambda: odd.Refuser(10)),
                           ("gone", lambda: odd.Faults().fail("Kel::RangeException", "gone")),
                           ("not writable", lambda: setattr(self.world.item, "id", 2))]:
            try:
                call()
            except Exception as error:
                assert text in str(error), error
            else:
                raise AssertionError("%s: nothing was raised" % text)

    def step_classes(self):
        # All threads ask for classes that nobody has asked for before.
        for name in self.random.sample(TYPES, 3):
            cls = _Kel.pyType(_Kel.typeNode(name))
            assert self.world.classes.setdefault(name, cls) is cls, name

    def step_lock(self):
        assert _Kel.acquireActivityLock() is True
        assert _Kel.acquireActivityLock() is False
        assert _Kel.activityLockOwner() == kel_hand.thread()
        assert _Kel.timedAcquireActivityLock(0) is False
        self.step_read()
        _Kel.releaseActivityLock()
        assert _Kel.activityLockOwner() != kel_hand.thread()
        if _Kel.timedAcquireActivityLock(1):
            _Kel.releaseActivityLock()

    def step_trace(self):
        _Kel.trace_h(facility, __file__, 1, "step_trace", "a line", 9)
        assert _Kel.escapedTraceString("a\n") == "a\\n"

    # Handles, notifiees, timers, the loop.

    def step_handles(self):
        function = lambda: None
        self.functions.append(weakref.ref(function))
        handle = _Kel.handle(function)
        if self.random.random() < 0.5:
            kel_stress.give(handle)
        cycle = [handle]
        cycle.append(cycle)
        if self.random.random() < 0.05:
            del function, handle, cycle
            gc.collect()

    def step_notifiees(self):
        if len(self.recorders) < 3:
            notifier = self.random.choice([self.world.strict, self.world.store, self.world.item])
            names = self.random.choice([(), ("map", "tag"), ("a", "order", "size")])
            self.recorders.append(Recorder(notifier, *names))
        else:
            recorder = self.recorders.pop(0)
            recorder.drop()
            self.dropped.append(recorder)

    def step_timers(self):
        forks = self.random.random() < 2 * self.fork_share
        react = (lambda: fork(self, in_reactor=True)) if forks else (lambda: None)
        self.timers.append(Timer(self.random.choice([1, 3]), react))
        # One that is dropped on its way.
        dropped = ClockNotifiee(clock, _Kel.handle(lambda: None))
        dropped.timeMinProxy = clock.now

    def step_loop(self):
        # It ends behind the reactor that is running, and goes on upon another thread.
        if self.random.random() < 0.2:
            manager.stop()
            time.sleep(0.0002)
            if self.random.random() < 0.5:
                self.run_loop(manager.start)
            else:
                self.loops.append(threading.Thread(target=self.run_loop, args=(manager.run,)))
                self.loops[-1].start()

    def run_loop(self, run):
        try:
            run()
        except SystemError as error:
            if "runs already" not in str(error):
                self.failures.append("%s: %s" % (self.name, error))
