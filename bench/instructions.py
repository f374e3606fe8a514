"""Counts the instructions of common operations under callgrind, against the committed figures.

Only those inside of our own libraries count, so that the figures are the same for every build of the
interpreter. An operation that has grown by more than 3 % fails; --accept writes the figures anew,
and the change of instructions.json tells what a commit costs or gains.
"""

import argparse
import json
import os
import sys

import callgrind

COMMITTED = os.path.join(os.path.dirname(os.path.abspath(__file__)), "instructions.json")
TIMES = 400
GROWTH = 1.03


def operations():
    """(name, statement, names) of each operation."""
    import _Kel
    import acme
    item, badge, store = acme.Item("item", 1), acme.Badge("text", 1), acme.Store("store")
    item.parent, item.color = item, "blue"
    for i in range(100):
        store.price[str(i)] = i
    seen = []
    watched = acme.StockItem("sku", 1)
    notifiee = _Kel.newNotifiee(watched, _Kel.handle(lambda attr, key: seen.append(attr)))
    space = {"item": item, "badge": badge, "store": store, "price": store.price, "acme": acme,
             "big": acme.Size(7), "small": acme.Size(2), "watched": watched, "notifiee": notifiee,
             "run": _Kel.singleton("Kel::ActivityManager").runUntilIdle}
    return [(name, statement, space) for name, statement in (
        ("U32 read", "badge.level"),
        ("U32 write", "badge.level = 5"),
        ("str read", "badge.text"),
        ("str write", "item.note = 'some text'"),
        ("enum read", "item.color"),
        ("pointer read and drop", "item.parent"),
        ("method of two ints", "item.add(1, 2)"),
        ("construct and destroy", "acme.Badge('text', 1)"),
        ("look-up, collection held", "price['50']"),
        ("ten keys of a walk", "next(walk); " * 9 + "next(walk)"),
        ("value sum", "big + small"),
        ("comparison of wrappers", "item == badge"),
        ("notification", "watched.count += 1; run()"),
    )]


def count():
    """Runs under callgrind: a count of each operation."""
    import kel_callgrind
    for name, statement, space in operations():
        space = dict(space)
        before = "walk = iter([])"
        if "walk" in statement:
            before = "import itertools; walk = itertools.chain.from_iterable(iter(price) for _ in xrange(10**6))"
        exec before in space
        exec "def run_(times):\n    for _ in xrange(times):\n        %s\n" % statement in space
        space["run_"](100)
        kel_callgrind.begin()
        space["run_"](TIMES)
        kel_callgrind.end(name)


def ours(costs):
    """The instructions inside of our libraries."""
    parts = callgrind.by_part(costs)
    return parts["binding"] + parts["runtime"]


def show(costs):
    """Prints what an operation costs in each function, the interpreter's and the system's included."""
    print "%8s  %s" % ("each", "function")
    for (library, function), cost in sorted(costs.items(), key=lambda item: -item[1]):
        if cost >= TIMES:
            print "%8d  %s (%s)" % (cost // TIMES, function, os.path.basename(library))
    print "%8d  in all, %d of them ours" % (sum(costs.values()) // TIMES, ours(costs) // TIMES)


def compare(now, then):
    """The names of operations that have grown too much; prints all."""
    grown = []
    print "%-28s %10s %10s" % ("instructions", "committed", "now")
    for name in sorted(set(now) | set(then)):
        known, found = then.get(name), now.get(name)
        bad = known is None or found is None or found > known * GROWTH
        grown += [name] * bad
        print "%-28s %10s %10s%s" % (name, known, found, "   more than 3 %" * bad)
    return grown


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--accept", action="store_true", help="write the figures of now")
    parser.add_argument("--profile", metavar="NAME", help="what that operation costs in each function")
    parser.add_argument("--count", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.count:
        return count()
    costs = callgrind.counts(__file__)
    if options.profile:
        if options.profile not in costs:
            parser.error("the operations are: " + ", ".join(sorted(costs)))
        return show(costs[options.profile])
    now = dict((name, ours(of) // TIMES) for name, of in costs.items())
    if options.accept:
        with open(COMMITTED, "w") as out:
            json.dump(now, out, indent=1, sort_keys=True, separators=(",", ": "))
            out.write("\n")
        return 0
    with open(COMMITTED) as committed:
        return 1 if compare(now, json.load(committed)) else 0


if __name__ == "__main__":
    sys.exit(main())
