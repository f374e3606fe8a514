"""How collections behave from ten members to a million: lookup, iteration, emptying."""

import resource
import time

import acme

SIZES = (10, 1000, 100000, 1000000)
LOOKUPS = 20000


def filled(size):
    store = acme.Store("scale")
    price = store.price
    for i in xrange(size):
        price[str(i)] = i
    return price


def lookup_ns(price, size):
    """Least ns of a lookup that hits, keys spread over the whole collection, the bare loop taken off."""
    keys = [str(i * 7919 % size) for i in range(LOOKUPS)]
    least = empty = float("inf")
    for _ in range(5):
        start = time.time()
        for key in keys:
            price[key]
        middle = time.time()
        for key in keys:
            pass
        empty = min(empty, time.time() - middle)
        least = min(least, middle - start)
    return (least - empty) / LOOKUPS * 1e9


def memory_kib():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss


def rows():
    """(members, ns a lookup, ns a member of a walk, KiB that the walk added, ns a member of clear)."""
    for size in SIZES:
        price = filled(size)
        lookup = lookup_ns(price, size)
        before = memory_kib()
        start = time.time()
        for _ in price.iterkeys():
            pass
        walk = (time.time() - start) / size * 1e9
        grown = memory_kib() - before
        start = time.time()
        price.clear()
        yield size, lookup, walk, grown, (time.time() - start) / size * 1e9


def report():
    print "%10s %12s %14s %14s %15s" % ("members", "ns a lookup", "ns a key walked", "KiB of a walk", "ns a key cleared")
    for row in rows():
        print "%10d %12.0f %14.0f %14d %15.0f" % row
