"""What programs gain that use _Kel with care: each entry is a way to do something and a quicker one."""

import time

import _Kel
from kel_reactions import startBusy, stopBusy
from timing import figure, turns

MEMBERS = 100

SET_UP = '''
import _Kel, acme
store = acme.Store('corner shop')
store.price.update((str(i), i) for i in xrange(100))
price = store.price
prices = dict(price)
item = acme.Item('apple', 7)
item.parent = acme.Item('crate', 8)
item.parent.parent = acme.Item('pallet', 9)
'''

# (title, one way, a quicker way, operations of a statement)
ENTRIES = (
    ("hold the collection",
     "store.price['50']",
     "price['50']", 1),
    ("walk along the values, not the keys",
     "for key in price: price[key]",
     "for value in price.itervalues(): pass", MEMBERS),
    ("walk along the pairs, not the keys",
     "for key in price: key, price[key]",
     "for key, value in price.iteritems(): pass", MEMBERS),
    ("look up once",
     "if '50' in price: price['50']",
     "price.get('50')", 1),
    ("ask the collection for its length",
     "len(price.keys())",
     "len(price)", 1),
    ("do not walk a chain of pointers again and again",
     "item.parent.parent.id; item.parent.parent.weight; item.parent.parent.name",
     "pallet = item.parent.parent; pallet.id; pallet.weight; pallet.name", 3),
    ("read a value once, then its parts",
     "item.position.x; item.position.y",
     "position = item.position; position.x; position.y", 2),
    ("keep what does not change in a variable",
     "for _ in xrange(10): item.id",
     "number = item.id\nfor _ in xrange(10): number", 10),
    ("fill a collection in one call",
     "for key, value in prices.iteritems(): price[key] = value",
     "price.update(prices)", MEMBERS),
)


READS = (
    "for _ in xrange(100): item.id",
    "_Kel.acquireActivityLock()\nfor _ in xrange(100): item.id\n_Kel.releaseActivityLock()")


def names():
    made = {}
    exec SET_UP in made
    return made


class Busy(object):
    """A thread of C++ that changes an object all the time, until the end of the block."""

    def __enter__(self):
        _Kel.singleton("Kel::Dir").newEntity("Acme::Item", "busy")
        startBusy("busy")

    def __exit__(self, *_):
        stopBusy()
        del _Kel.singleton("Kel::Dir")["busy"]


def held(rounds, times):
    """ns of a read of 100 in a row, beside a busy thread of C++: without and with the lock held over them."""
    space, samples = names(), {"before": [], "after": []}
    for name, source in zip(("before", "after"), READS):
        exec "def %s():\n    %s\n" % (name, source.replace("\n", "\n    ")) in space
    with Busy():
        for _ in range(rounds):
            for name in samples:
                start = time.time()
                for _ in xrange(times):
                    space[name]()
                samples[name].append((time.time() - start) / times / 100 * 1e9)
    return dict((name, figure(ns)) for name, ns in samples.items())


def entry(title, before, after, figures, shown="least"):
    return {"title": title, "before": before, "after": after, "figures": figures, "shown": shown}


def measure(rounds, loops):
    """{"title", "before", "after", "figures", "shown"}: the figures in ns of one operation in either way.

    Where another thread is busy, the least would be that of a round in which it did not run.
    """
    found = []
    for title, before, after, each in ENTRIES:
        found.append(entry(title, before, after, turns(
            [("before", before, names()), ("after", after, names())], rounds, loops, each)))
    alone = turns([("before", READS[0], names()), ("after", READS[1], names())], rounds, loops, 100)
    found.append(entry("hold the activity lock over many reads", READS[0], READS[1], alone))
    found.append(entry("the same while a thread of C++ is busy", READS[0], READS[1],
                       held(rounds, max(1, loops // 20)), "median"))
    return found
