"""The operations that are timed: of _Kel, of the floors, and of the peers that have such a thing."""

import threading
import time

import _Kel
import acme
import kel_deep
import kel_floor
import kel_many_types
import subjects
from subjects import TEXT
from timing import figure, samples, turns

KEYS = 10000
CLASSES = 600


class Row(object):
    """A statement of _Kel, one of everybody else, and where each finds its names.

    It makes `each` operations.
    """

    def __init__(self, title, statement, mine, theirs, kel_statement=None, each=1, without=()):
        self.title, self.statement, self.kel_statement = title, statement, kel_statement or statement
        self.mine, self.theirs = mine, theirs
        self.each, self.without = each, without

    def subjects(self, others):
        return [("kel", self.kel_statement, self.mine())] + [
            (other.name, self.statement, self.theirs(other)) for other in others
            if other.name not in self.without]

    def samples(self, others, rounds, loops):
        return samples(self.subjects(others), rounds, loops, self.each)

    def measure(self, others, rounds, loops):
        return dict((name, figure(ns)) for name, ns in self.samples(others, rounds, loops).items())


def badge():
    return {"o": acme.Badge(TEXT, 1), "p": acme.Badge(TEXT, 1)}


def item():
    made = acme.Item("item", 1)
    made.parent, made.color = acme.Item("parent", 1), "blue"
    return {"o": made}


def note():
    thing = acme.Thing("thing")
    thing.note = TEXT
    return {"o": thing}


def deep():
    return {"o": _Kel.pyType(_Kel.typeNode("Bench::Deep<4>"))()}


def points():
    return {"a": acme.Point(x=1, y=2), "b": acme.Point(x=3, y=4)}


def store(size):
    made = acme.Store("bench")
    made.price.update((str(i), i) for i in xrange(size))
    return {"o": made, "c": made.price}


def thing(other):
    made = other.Thing(TEXT, 1)
    # Reading it would make its wrapper; a plain class has none.
    if getattr(made, "next", made) is None:
        made.next = other.Thing(TEXT, 1)
    return {"o": made, "p": other.Thing(TEXT, 1)}


def owner(size):
    def names(other):
        made = other.Owner()
        made.fill(size)
        return {"o": made, "c": made.price}
    return names


def refused(statement):
    return "try: %s\nexcept Exception: pass" % statement


def attribute_rows():
    return [
        Row("U32 read", "o.level", badge, thing),
        Row("str read", "o.text", badge, thing),
        Row("U32 write", "o.level = 5", badge, thing),
        Row("str write", "o.text = %r" % TEXT, note, thing, "o.note = %r" % TEXT),
        Row("enum read", "o.color", item, thing),
        Row("pointer read and drop of its wrapper", "o.next", item, thing, "o.parent"),
        Row("method of two ints", "o.add(1, 2)", item, thing),
        Row("construct and destroy, 2 arguments", "C(%r, 1)" % TEXT, lambda: {"C": acme.Badge},
            lambda other: {"C": other.Thing}),
        Row("U32 read, class 4 deep", "o.level", deep, lambda other: {"o": other.Deep4()}),
    ]


def collection_rows():
    return [
        Row("obj.coll[key], str to U32", "o.price['50']", lambda: store(100), owner(100)),
        Row("coll[key], collection held", "c['50']", lambda: store(100), owner(100)),
        Row("iterate, per key, 10^4", "for k in c: pass", lambda: store(KEYS), owner(KEYS),
            each=KEYS),
    ]


def other_rows():
    return [
        Row("comparison of wrappers", "o == p", badge, thing),
        Row("hash of a wrapper", "hash(o)", badge, thing),
        Row("repr of a wrapper", "repr(o)", badge, thing),
        Row("sum of two values", "a + b", points,
            lambda other: {"a": other.Point(1, 2), "b": other.Point(3, 4)}),
        Row("refused: a str for a U32", refused("o.level = 'five'"), badge, thing,
            without=("plain class",)),
        Row("refused: -1 for a U32", refused("o.level = -1"), badge, thing,
            without=("plain class", "ctypes")),
        Row("refused: a key that is not there", refused("c['none']"), lambda: store(100), owner(100)),
    ]


def two_threads(others, rounds, loops):
    """ns of wall time for each read while two threads read, each an object of its own."""
    def wall(make):
        objects = [make() for _ in range(2)]

        def read(o):
            for _ in xrange(loops):
                o.level; o.level; o.level; o.level; o.level
                o.level; o.level; o.level; o.level; o.level

        threads = [threading.Thread(target=read, args=(o,)) for o in objects]
        start = time.time()
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        return (time.time() - start) / (2 * 10 * loops) * 1e9

    makers = [("kel", lambda: acme.Badge(TEXT, 1))] + [(other.name, other.Thing) for other in others]
    walls = dict((name, []) for name, _ in makers)
    for _ in range(rounds):
        for name, make in makers:
            walls[name].append(wall(make))
    return dict((name, figure(ns)) for name, ns in walls.items())


def plain_class():
    """A class of 20 attributes, as far as a plain class declares any."""
    return type("Made", (object,), {"__slots__": ["%s%d" % (c, i) for c in "ab" for i in range(10)]})


def first_uses(batch=20):
    """ns of a class of 20 attributes. It is made once, so the subjects take turns batch by batch."""
    kel_many_types.register(0, CLASSES)
    types = [_Kel.typeNode("Many::T%d" % i) for i in range(CLASSES)]
    _Kel.pyType(_Kel.typeNode("Kel::PtrInterface"))
    seconds = {"kel": [], "floor": [], "plain class": []}
    for first in range(0, CLASSES, batch):
        start = time.time()
        for kel_type in types[first:first + batch]:
            _Kel.pyType(kel_type)
        seconds["kel"].append(time.time() - start)
        for name, make in ("floor", kel_floor.newClass), ("plain class", plain_class):
            start = time.time()
            for _ in range(batch):
                make()
            seconds[name].append(time.time() - start)
    found = dict((name, figure(each / batch * 1e9 for each in seconds[name])) for name in seconds)
    found["same turns"] = found["floor"]
    return found


# (title, attribute) of the reads of a U32 that show what the locks cost.
PARTS = (("no lock", "bareLevel"), ("the mutex alone", "mutexLevel"), ("a turn of the GIL alone", "gilLevel"),
         ("both, as the floor", "level"))


def parts(rounds, loops):
    """[title, figure in ns] of a read of the hand-written extension, by the locks that it takes."""
    thing = {"o": kel_floor.Thing(TEXT, 1)}
    found = turns([(title, "o." + name, thing) for title, name in PARTS], rounds, loops)
    return [[title, found[title]] for title, _ in PARTS]


def rows():
    return attribute_rows() + collection_rows() + other_rows()


def measure(rounds, loops):
    """(title, figure in ns by subject) of each operation."""
    others = subjects.floors() + subjects.peers()
    found = [(row.title, row.measure(others, rounds, loops)) for row in rows()]
    found.append(("U32 read, two Python threads", two_threads(others, rounds, 2 * loops)))
    return found
