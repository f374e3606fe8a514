"""The operations of _Kel beside a hand-written extension: one with a single turn of the two locks for
each operation, and one that makes as many turns as _Kel does.

A row is (title, how much longer a statement takes than a read, operations a statement, subjects), a
subject (name, statement, names).
"""

import threading
import time

import _Kel
import acme
import kel_deep
import kel_floor
import kel_floor_collection

TEXT = "a text of some length"
SUBJECTS = ("kel", "floor", "same turns")


def subjects(statement, *spaces):
    """The three subjects; a statement for all, or one each."""
    statements = statement if isinstance(statement, tuple) else (statement,) * 3
    return list(zip(SUBJECTS, statements, spaces))


def attribute_rows():
    badge = acme.Badge(TEXT, 1)
    thing = acme.Thing("thing")
    thing.note = TEXT
    item = acme.Item("item", 1)
    item.parent, item.color = item, "blue"
    deep = _Kel.pyType(_Kel.typeNode("Bench::Deep<4>"))()
    floor, same = kel_floor.Thing(), kel_floor.SameTurns()

    def row(title, statement, mine, theirs=(floor, same)):
        return title, 1, 1, subjects(statement, *[{"o": o} for o in (mine,) + theirs])

    return [
        row("U32 read", "o.level", badge),
        row("str read", "o.text", badge),
        row("U32 write", "o.level = 5", badge),
        row("str write", ("o.note = %r" % TEXT,) + ("o.text = %r" % TEXT,) * 2, thing),
        row("enum read", "o.color", item),
        row("pointer read and drop of its wrapper", ("o.parent", "o.next", "o.next"), item),
        row("method of two ints", "o.add(1, 2)", item),
        row("U32 read, class 4 deep", "o.level", deep, (kel_floor.Deep(), kel_floor.Deep())),
    ]


def construct_row():
    return "construct and destroy, 2 arguments", 4, 1, subjects(
        "C(%r, 1)" % TEXT, {"C": acme.Badge}, {"C": kel_floor.Thing}, {"C": kel_floor.SameTurns})


def filled(size):
    """A store and two floors with the keys '0' to 'size - 1'."""
    store, floor, same = acme.Store("bench"), kel_floor_collection.Owner(), kel_floor_collection.SameTurns()
    for i in xrange(size):
        store.price[str(i)] = i
    floor.fill(size)
    same.fill(size)
    return store, floor, same


def collection_rows():
    owners = filled(100)
    return [
        ("obj.coll[key], str to U32", 1, 1,
         subjects("o.price['50']", *[{"o": o} for o in owners])),
        ("coll[key], collection held", 1, 1,
         subjects("c['50']", *[{"c": o.price} for o in owners])),
    ]


def iterate_row():
    """One statement is a walk along 10^4 keys."""
    owners = filled(10000)
    return "iterate, per key, 10^4", 10000, 10000, subjects(
        "for k in c: pass", *[{"c": o.price} for o in owners])


def threads_row(rounds, loops):
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

    makers = zip(SUBJECTS, (lambda: acme.Badge(TEXT, 1), kel_floor.Thing, kel_floor.SameTurns))
    runs = dict((name, []) for name in SUBJECTS)
    for _ in range(rounds):
        for name, make in makers:
            runs[name].append(wall(make))
    return "U32 read, two Python threads", dict((name, (min(ns), max(ns))) for name, ns in runs.items())


def rows():
    return attribute_rows() + [construct_row()] + collection_rows() + [iterate_row()]
