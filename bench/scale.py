"""How costs grow: with the members of a collection, the number of types, the depth of inheritance.

Beside each curve stands one of plain Python or of the floor, which shows what the machine's caches
make of it.
"""

import random
import time

import _Kel
import acme
import Kel
import kel_deep
import kel_floor
import kel_many_types
import subjects
from timing import figure, turns

SIZES = (10, 100, 1000, 10000, 100000, 1000000)
TYPES = (10, 100, 1000, 10000)
DEPTHS = tuple(range(1, 13))
TOUCHED = 5000  # look-ups, insertions and erasures of a round
REGISTERED_BEFORE = 1000000  # the numbers of the types made here begin there


def store_of(size):
    price = acme.Store("scale").price
    for i in xrange(size):
        price[str(i)] = i
    return price


def floor_of(size):
    owner = subjects.floors()[1].Owner()
    owner.fill(size)
    return owner.price


def dict_of(size):
    return dict((str(i), i) for i in xrange(size))


MAKERS = (("kel", store_of), ("same turns", floor_of), ("dict", dict_of))


def look_up(collection, keys):
    start = time.time()
    for key in keys:
        collection[key]
    return time.time() - start


def insert(collection, keys):
    start = time.time()
    for key in keys:
        collection[key] = 1
    return time.time() - start


def erase(collection, keys):
    start = time.time()
    for key in keys:
        del collection[key]
    return time.time() - start


def empty_loop(keys):
    start = time.time()
    for key in keys:
        pass
    return time.time() - start


def walk(collection, size):
    """Seconds for TOUCHED keys, of walks along the whole collection."""
    walks = max(1, TOUCHED // size)
    start = time.time()
    for _ in xrange(walks):
        for key in collection:
            pass
    return (time.time() - start) * TOUCHED / (walks * size)


def members_of(size, rounds):
    """By operation, by collection: the figure in ns of a member."""
    numbers = random.Random(size)
    known = [str(numbers.randrange(size)) for _ in xrange(TOUCHED)]
    # Spread over the whole order of the keys.
    fresh = [str(numbers.randrange(size)) + "-" + str(i) for i in xrange(TOUCHED)]
    samples = dict((operation, dict((name, []) for name, _ in MAKERS))
                   for operation in ("look-up", "insert", "erase", "walk"))
    collections = [(name, make(size)) for name, make in MAKERS]
    for _ in range(rounds):
        loop = empty_loop(known)
        for name, collection in collections:
            samples["look-up"][name].append(look_up(collection, known) - loop)
            samples["walk"][name].append(walk(collection, size))
            samples["insert"][name].append(insert(collection, fresh) - loop)
            samples["erase"][name].append(erase(collection, fresh) - loop)
    return dict((operation, dict((name, figure(seconds / TOUCHED * 1e9 for seconds in each))
                                 for name, each in by_name.items()))
                for operation, by_name in samples.items())


def curves(found, points):
    """A list of {"title", "unit", "curves"} from {point: {title: {name: figure}}}."""
    titles = sorted(found[points[0]])
    return [{"title": title, "unit": "ns", "curves": dict(
        (name, dict((str(point), found[point][title][name]) for point in points))
        for name in found[points[0]][title])} for title in titles]


def members(rounds):
    return curves(dict((size, members_of(size, rounds)) for size in SIZES), SIZES)


def spread(names, rounds, function):
    """A figure in ns of the function, for names that are spread over all."""
    samples = []
    for _ in range(rounds):
        start = time.time()
        for name in names:
            function(name)
        samples.append((time.time() - start) / len(names) * 1e9)
    return figure(samples)


def first_uses(make, arguments):
    """A figure in ns of a batch's calls, each of which is the first of its kind."""
    batch = max(1, len(arguments) // 10)
    samples = []
    for first in range(0, len(arguments), batch):
        start = time.time()
        for argument in arguments[first:first + batch]:
            make(argument)
        samples.append((time.time() - start) / len(arguments[first:first + batch]) * 1e9)
    return figure(samples)


def types_of(first, count, rounds):
    """Figures beside so many types more."""
    kel_many_types.register(first, count)
    numbers = random.Random(count)
    full_names = ["Many::T%d" % (first + i) for i in range(count)]
    types = [_Kel.typeNode(name) for name in full_names]
    made = {"kel": first_uses(_Kel.pyType, types),
            "floor": first_uses(lambda _: kel_floor.newClass(), full_names)}
    schema = Kel.Schema("many", "Many")
    some = [numbers.choice(full_names) for _ in range(TOUCHED)]
    known = dict((name, _Kel.pyType(kel_type)) for name, kel_type in zip(full_names, types))
    short = [name[len("Many::"):] for name in some]
    for name in short:
        getattr(schema, name)
    classes = [known[name] for name in some]
    badge, thing = acme.Badge("text", 1), kel_floor.Thing("text", 1)
    return {
        "first use of a class": made,
        "type by its name": {"kel": spread(some, rounds, _Kel.typeNode),
                             "dict": spread(some, rounds, known.__getitem__)},
        "class from its module": {"kel": spread(short, rounds, lambda name: getattr(schema, name)),
                                  "dict": spread(some, rounds, lambda name: known[name])},
        "static attribute, class after class": {"kel": spread(classes, rounds, lambda cls: cls.a0),
                                                "plain class": spread(classes, rounds, lambda cls: cls.mro)},
        "U32 read of one object": turns(
            [("kel", "o.level", {"o": badge}), ("floor", "o.level", {"o": thing})], rounds, 1000),
    }


def types(rounds):
    found, first = {}, REGISTERED_BEFORE
    for count in TYPES:
        found[count] = types_of(first, count, rounds)
        first += count
    return curves(found, TYPES)


def plain_deep(depth):
    cls = type("Deep1", (object,), {"level": property(lambda self: 1)})
    for i in range(2, depth + 1):
        cls = type("Deep%d" % i, (cls,), {})
    return cls()


def depths(rounds, loops):
    """A read of the attribute of the base that is so deep."""
    found = {}
    for depth in DEPTHS:
        floor = kel_floor.Thing if depth == 1 else getattr(kel_floor, "Deep%d" % depth)
        mine = _Kel.pyType(_Kel.typeNode("Bench::Deep<%d>" % depth))
        found[depth] = {"U32 read": turns(
            [("kel", "o.level", {"o": mine()}), ("floor", "o.level", {"o": floor()}),
             ("plain class", "o.level", {"o": plain_deep(depth)})], rounds, loops)}
    return curves(found, DEPTHS)
