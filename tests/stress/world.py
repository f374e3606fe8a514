"""The objects that all threads share, who watches them, and what has to be seen of them."""

import _Kel
import kel_stress
import acme
import odd

manager = _Kel.singleton("Kel::ActivityManager")
root = _Kel.singleton("Kel::Dir")


class Locked(object):
    """Holds the activity lock for a block, whoever had it before."""

    def __enter__(self):
        self.taken = _Kel.acquireActivityLock()
        kel_stress.dawdle()

    def __exit__(self, *error):
        if self.taken:
            _Kel.releaseActivityLock()


class Recorder(object):
    """A handler that keeps what it is told, and the notifiee that calls it, which holds it until
    `drop`."""

    draining = None  # the participant for which each call is a step

    def __init__(self, notifier, *names):
        self.seen = []
        self.told_in_lock = False
        self.names = names
        self.notifier = notifier
        self.last = None
        with Locked():
            self.first = kel_stress.notedCount(notifier)
            self.notifiee = _Kel.newNotifiee(notifier, _Kel.handle(self.tell))
            for name in names:
                self.notifiee.filterAttr[name] = True
            self.notifiee.filtered = bool(names)

    def tell(self, attr, key):
        self.seen.append((attr.name, key))
        if self.draining is not None:
            kel_stress.step(self.draining)
        self.told_in_lock |= kel_stress.ownsLock()
        kel_stress.dawdle()

    def drop(self):
        with Locked():
            self.notifiee = None
            self.last = kel_stress.notedCount(self.notifier)

    def faults(self):
        """What is wrong, given what was noted while this was there. What was noted last need not
        have come to one that was dropped."""
        is_there = self.last is None
        last = kel_stress.notedCount(self.notifier) if is_there else self.last
        wanted = [change for change in kel_stress.noted(self.notifier, self.first, last)
                  if not self.names or change[0] in self.names]
        what = type(self.notifier).__name__
        found = differences(what, wanted, self.seen, is_there)
        return found + ([what + ": told with the activity lock"] if self.told_in_lock else [])


def differences(what, wanted, seen, to_the_end=True):
    """Where `seen` is not what was wanted; without `to_the_end` it may break off early."""
    for number, pair in enumerate(zip(wanted, seen)):
        if pair[0] != pair[1]:
            return ["%s: change %d is %r, seen was %r" % ((what, number) + pair)]
    if len(seen) > len(wanted) or to_the_end and len(seen) < len(wanted):
        return ["%s: of %d changes %d were seen" % (what, len(wanted), len(seen))]
    return []


def check_whole(world):
    """That nobody is in the middle of a change."""
    with Locked():
        assert world.strict.quiet == world.loose.quiet


class World(object):
    """The objects that all threads share.

    Each change of `strict`, `store`, `item` and `shelf` is noted in the same hold of the lock.
    Those of `loose` are made without holding it: the keys, (writer, number), tell their order.
    `quiet` is the same in both of these whenever the lock is free.
    """

    def __init__(self):
        self.strict = odd.Notes()
        self.loose = odd.Notes()
        self.store = acme.Store("store")
        self.item = acme.Item("item", 1)
        self.args = odd.Args()
        self.args.keep(odd.Node(1))
        self.parents = [acme.Item("one", 1), acme.Item("other", 2)]
        self.shelf = root.newEntity("Acme::Shelf", "stress")
        self.classes = {}
        self.planted = None
        self.children_stick = False
        noted = [self.strict, self.store, self.item, self.shelf]
        self.recorders = [Recorder(each) for each in noted * 2]
        self.recorders.append(Recorder(self.strict, "map"))
        self.recorders.append(Recorder(self.store, "tag", "order"))
        self.loose_recorders = [Recorder(self.loose), Recorder(self.loose)]
        for each in noted:
            kel_stress.record(each)

    def faults(self, writers):
        found = [fault for each in self.recorders for fault in each.faults()]
        for each in self.loose_recorders:
            found += self.loose_faults(each.seen, writers)
        return found + kel_stress.recordFaults()

    def end(self):
        """Drops the notifiees, which hold their handlers and so are held by them."""
        self.planted = None
        for each in self.recorders + self.loose_recorders:
            each.drop()

    def loose_faults(self, seen, writers):
        """`writers` gives by name the numbers of keyed and of plain changes each has made."""
        found = []
        for name, (keyed, plain) in writers.items():
            keys = ["%s:%d" % (name, number) for number in range(keyed)]
            found += differences("loose.map of " + name, keys, [
                key for attr, key in seen if attr == "map" and key.startswith(name + ":")])
            found += differences("loose.byText of " + name, range(plain), [
                key[1] for attr, key in seen if attr == "byText" and key[0] == name])
        plain = sum(plain for _, plain in writers.values())
        found += differences("loose.a", [None] * plain, [
            key for attr, key in seen if attr == "a"])
        return found
