"""Iterates over collections of every kind while they change.

    iterate_mutations.py ROUNDS SEED [--plant]

A round is a random interleaving of iterators, insertions, deletions, clears and the end of the
owner, by this thread and by another. Of a keyed collection each key that an iterator delivers is
there at that moment, and one that was there all the time is delivered, once. An iterator ends,
stays at its end, and fails in no other way.
"""

import Queue
import random
import sys
import threading

import _Kel
from kel_testing.kinds import QUEUE, SET, STACK, VECTOR, directories, kinds

KEYS = 8
LIMIT = 200  # steps after which a walk that nothing adds to must have ended


class Fault(Exception):
    pass


class Other(threading.Thread):
    """Does what it is given, and hands back what that raised."""

    def __init__(self):
        super(Other, self).__init__()
        self.daemon = True
        self._wanted, self._done = Queue.Queue(), Queue.Queue()
        self.start()

    def run(self):
        for function in iter(self._wanted.get, None):
            self._done.put(_error_of(function))
            del function

    def __call__(self, function):
        self._wanted.put(function)
        return self._done.get()

    def end(self):
        self._wanted.put(None)
        self.join()


def _error_of(function):
    try:
        function()
    except Exception as error:
        return error
    return None


class Walk(object):
    """An iterator, with what it may and what it has to deliver. `keyed` models are sets of keys."""

    def __init__(self, collection, mode, present):
        self._next = {"keys": lambda: iter(collection), "items": collection.iteritems,
                      "values": collection.itervalues}[mode]().next
        self._mode = mode
        self.constant = set(present)  # there since the start
        self._delivered, self.ended = [], False

    def removed(self, key):
        self.constant.discard(key)

    def step(self, present):
        """`present` is None where keys are positions."""
        try:
            found = self._next()
        except StopIteration:
            self._end(present)
            return
        if self.ended:
            raise Fault("an iterator went on behind its end")
        if present is None or self._mode == "values":
            return
        key = repr(found[0] if self._mode == "items" else found)
        if key not in present:
            raise Fault("%s was delivered and is not there" % key)
        if key in self.constant and key in self._delivered:
            raise Fault("%s was delivered twice" % key)
        self._delivered.append(key)

    def _end(self, present):
        if present is not None and self._mode != "values" and not self.ended:
            missed = self.constant - set(self._delivered)
            if missed:
                raise Fault("%s were there all the time and not delivered" % sorted(missed))
        self.ended = True


class Round(object):
    """One collection, its model and its walks."""

    def __init__(self, kind, choose, other):
        self.kind, self.choose, self.other = kind, choose, other
        self.collection = kind.empty()
        self.is_keyed = kind.order in (None, SET) and kind.can_grow and kind.name != "packed"
        self.present = set() if self.is_keyed else None
        self.walks = []
        for i in range(choose.randrange(KEYS)):
            self.insert(i)

    def name(self, i):
        return repr(self.kind.key(i))

    def insert(self, i):
        if self.is_keyed:
            if self.name(i) not in self.present:
                self.kind.put(self.collection, i)
                # The key as the collection tells it.
                self.present.add(self.name(i))
        else:
            _error_of(lambda: self.kind.put(self.collection, i))

    def erase(self, i):
        if not self.is_keyed:
            take = {QUEUE: "deq", STACK: "pop", VECTOR: "pop"}.get(self.kind.order)
            _error_of(getattr(self.collection, take) if take else
                      lambda: self.collection.__delitem__(i))
        elif self.name(i) in self.present:
            if self.kind.order is SET and self.kind.column != "internal key":
                self.collection.remove(self.kind.key(i))
            else:
                del self.collection[self.kind.key(i)]
            self.gone(self.name(i))

    def gone(self, name):
        self.present.discard(name)
        for walk in self.walks:
            walk.removed(name)

    def clear(self):
        error = _error_of(self.collection.clear)
        if self.is_keyed:
            if error:
                raise error
            for name in list(self.present):
                self.gone(name)

    def act(self):
        action = self.choose.choice(("walk", "step", "step", "step", "insert", "insert", "erase",
                                     "erase", "clear"))
        i = self.choose.randrange(KEYS)
        if action == "walk":
            mode = self.choose.choice(("keys", "items", "values"))
            self.walks.append(Walk(self.collection, mode, self.present or ()))
        elif action == "step":
            if self.walks:
                self.choose.choice(self.walks).step(self.present)
        elif action == "clear":
            self.clear()
        else:
            getattr(self, action)(i)

    def run(self):
        for _ in range(self.choose.randrange(4, 16)):
            error = self.other(self.act) if self.choose.randrange(8) == 0 else _error_of(self.act)
            if error:
                raise error
        if self.choose.randrange(2) and self.kind.owner is not None:
            self.kind.done(self.collection)
            if isinstance(self.kind.owner(), type):
                for name in list(self.present or ()):
                    self.gone(name)
            self.collection = None  # the walks alone keep the owner
        for walk in self.walks:
            for _ in range(LIMIT):
                walk.step(self.present)
                if walk.ended:
                    break
            else:
                raise Fault("a walk did not end")
            walk.step(self.present)
        if self.collection is not None:
            self.kind.done(self.collection)


def together(kind, steps):
    """Two threads change the collection while a third walks, with no order between them."""
    collection, stop, errors = kind.filled(), [], []

    def change(seed):
        choose = random.Random(seed)
        while not stop:
            i = choose.randrange(3)
            _error_of(lambda: kind.put(collection, i))
            _error_of(lambda: collection.__delitem__(kind.key(i)))
            for name in "deq", "pop":
                _error_of(lambda: getattr(collection, name)())
            if choose.randrange(10) == 0:
                _error_of(collection.clear)

    threads = [threading.Thread(target=change, args=(seed,)) for seed in range(2)]
    for thread in threads:
        thread.start()
    done = 0
    while done < steps:
        walk = collection.iteritems()
        for _ in range(LIMIT):
            done += 1
            try:
                walk.next()
            except StopIteration:
                break
            except Exception as error:
                errors.append(error)
                break
    stop.append(True)
    for thread in threads:
        thread.join()
    kind.done(collection)
    if errors:
        raise Fault("among threads: %r" % errors[0])


def main(rounds, seed, planted):
    every, choose, other = kinds() + directories(), random.Random(seed), Other()
    chosen = [kind for kind in every if kind.name != "brittle"]
    for number in xrange(rounds):
        kind = chosen[number % len(chosen)]
        one = Round(kind, random.Random(choose.random()), other)
        if planted and one.is_keyed:
            one.present.add("planted")  # as if the collection had lost a member
        try:
            one.run()
        except Exception as error:
            print "FAULT round %d of %r, seed %d: %s: %s" % (
                number, kind, seed, type(error).__name__, error)
            if planted:
                return
    sys.setcheckinterval(1)
    for kind in chosen:
        try:
            together(kind, max(20, rounds // 500))
        except Fault as error:
            print "FAULT %r: %s" % (kind, error)
    other.end()
    if _Kel.activityLockOwner() != 0:
        print "FAULT the activity lock is held"
    print "ROUNDS %d of %d kinds" % (rounds, len(chosen))


if __name__ == "__main__":
    main(int(sys.argv[1]), int(sys.argv[2]), "--plant" in sys.argv)
