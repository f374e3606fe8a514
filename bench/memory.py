"""What a class and a wrapper take of memory, and the first use of a class where a tool makes all of
them at the import of its module. Each figure comes from processes of its own.

Memory is the growth of the anonymous memory of the process, of the kernel's own count.
"""

import json
import subprocess
import sys
import time

ROUNDS = 15
WRAPPERS = 100000
CLASSES = 600
# Modules of one and of eleven classes; the first takes what is the same for any number.
IMPORTED = {"Cython": "classes_cython_%d", "SWIG": "_classes_swig_%d", "pybind11": "classes_pybind11_%d"}


def anonymous():
    """Bytes of memory of this process that no file stands behind."""
    with open("/proc/self/smaps_rollup") as lines:
        return sum(int(line.split()[1]) * 1024 for line in lines if line.startswith("Anonymous:"))


def import_classes(name, count):
    """(bytes, seconds) of the import of a module of so many classes. One happens once, so its time is
    that of the processor, which other processes do not lengthen."""
    before = anonymous()
    start = time.clock()
    __import__(IMPORTED[name] % count)
    return anonymous() - before, time.clock() - start


def make_classes(name, count):
    """Bytes of a class."""
    import kel_floor
    import operations
    if name == "kel":
        import _Kel
        import kel_many_types
        kel_many_types.register(0, count)
        types = [_Kel.typeNode("Many::T%d" % i) for i in range(count)]
        _Kel.pyType(_Kel.typeNode("Kel::PtrInterface"))
        makers = [lambda kel_type=kel_type: _Kel.pyType(kel_type) for kel_type in types]
    else:
        makers = [kel_floor.newClass if name == "floor" else operations.plain_class] * count
    kept = [None] * count
    before = anonymous()
    for i, make in enumerate(makers):
        kept[i] = make()
    return (anonymous() - before) / float(count)


def maker_of_wrappers(name, count):
    """A function that wraps an object that is there already, the i-th where there must be many."""
    import operations
    import subjects
    if name == "kel":
        item = operations.item()["o"]
        return lambda i: item.parent
    other = [each for each in subjects.floors() + subjects.peers() if each.name == name][0]
    if name == "pybind11":
        things = other.Things(count)
        return lambda i: things[i]
    thing = other.Thing()
    return lambda i: thing.next


def make_wrappers(name, count):
    """Bytes of a wrapper."""
    make = maker_of_wrappers(name, count)
    kept = [None] * count
    kept[0] = make(0)
    before = anonymous()
    for i in xrange(1, count):
        kept[i] = make(i)
    return (anonymous() - before) / float(count - 1)


def child(function, name, count):
    command = [sys.executable, __file__, function, name, str(count)]
    return json.loads(subprocess.check_output(command))


def median(samples):
    samples = sorted(samples)
    return samples[len(samples) // 2]


def imported_class(name):
    """(bytes, seconds) of one class of a module."""
    one = [child("import_classes", name, 1) for _ in range(ROUNDS)]
    eleven = [child("import_classes", name, 11) for _ in range(ROUNDS)]
    return [(of(pair[i] for pair in eleven) - of(pair[i] for pair in one)) / 10.0
            for i, of in enumerate((median, min))]


def measure(names):
    """By subject: bytes of a class, ns of its first use where it is imported, bytes of a wrapper."""
    found = {"class": {}, "first use": {}, "wrapper": {}}
    for name in names:
        if name in IMPORTED:
            found["class"][name], seconds = imported_class(name)
            found["first use"][name] = seconds * 1e9
        elif name in ("kel", "floor", "plain class"):
            found["class"][name] = child("make_classes", name, CLASSES)
        if name not in ("same turns", "plain class"):
            found["wrapper"][name] = child("make_wrappers", name, WRAPPERS)
    for row in "class", "wrapper":
        found[row]["same turns"] = found[row]["floor"]
    return found


if __name__ == "__main__":
    print json.dumps(globals()[sys.argv[1]](sys.argv[2], int(sys.argv[3])))
