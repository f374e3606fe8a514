"""A random program over all types, which knows what each operation takes.

    random_operations.py COUNT SEED NOTE [--plant]

The same seed and count give the same operations. Nine of ten arguments fit. The file NOTE tells the
number and the text of the last one, should the process end. Wrong is an exception of a class that
no document names, an error left pending, and the activity lock left held.
"""

import os
import random
import re
import sys

import _Kel
import acme
import kel_objects
import odd

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "fuzz"))

from fuzz_module import NOTE_SIZE, Note
from odd_objects import OBJECTS

POOL = 200
# What a program may meet. The odd objects raise ValueError, SyntaxError comes of a text that is
# read as a value.
DOCUMENTED = (TypeError, NameError, AttributeError, NotImplementedError, RuntimeError, IndexError,
              KeyError, OSError, MemoryError, StopIteration, ValueError, OverflowError, SyntaxError)

# The texts of exceptions of the two classes that anything may have.
TOLD = re.compile(r"Kel::|^entity '.*' not found$|unknown C\+\+ exception|std::")

manager = _Kel.singleton("Kel::ActivityManager")
root = _Kel.singleton("Kel::Dir")

INTEGERS = {"U8": (0, 255), "S8": (-128, 127), "U16": (0, 65535), "S16": (-2 ** 15, 2 ** 15 - 1),
            "U32": (0, 2 ** 32 - 1), "S32": (-2 ** 31, 2 ** 31 - 1), "U64": (0, 2 ** 64 - 1),
            "S64": (-2 ** 63, 2 ** 63 - 1)}

# Calls that end the process by their contract.
ENDING = {("part", "add"), ("intake", "enq"), ("intake", "newMember")}


class Planted(Exception):
    pass


class Program(object):

    def __init__(self, seed, planted):
        self.choose = random.Random(seed)
        self.planted = planted
        self.names = [name for name in kel_objects.typeNames()
                      if name.startswith(("Acme::", "Odd::"))]
        self.pool = []  # objects of every sort
        self.iterators = []
        self.watchers = []
        self.calls = 0  # of the handler
        self.refused = 0

    # ---- values -----------------------------------------------------------------------------

    def odd(self):
        return self.choose.choice(OBJECTS)[1]()

    def value(self, kel_type, depth=0):
        """Something of the type, nine times of ten."""
        choose = self.choose
        if choose.random() < 0.1:
            return self.odd()
        name = kel_type.fullTypeName if kel_type is not None else ""
        if name in INTEGERS:
            low, high = INTEGERS[name]
            return choose.choice((low, high, 0, 1, 2, choose.randint(low, high)))
        if name in ("float", "double", "Kel::Seconds"):
            return choose.choice((0.0, 1.5, -1.0, 1e300))
        if name == "bool":
            return choose.random() < 0.5
        if name == "char":
            return choose.choice("abc")
        if name in ("Kel::String", "Kel::Bytes", "Acme::Name"):
            return choose.choice(("a", "b", "car", "special", "red", "", "a\0b", "x" * 300))
        if kel_type is not None and kel_type.isEnumType:
            return choose.choice([attr.name for attr in kel_type.attributeQ] or ["none"])
        return self.instance(kel_type, depth)

    def instance(self, kel_type, depth):
        cls = _Kel.pyType(kel_type)
        fitting = [each for each in self.pool if isinstance(each, cls)]
        if fitting and (depth > 2 or self.choose.random() < 0.7):
            return self.choose.choice(fitting)
        if depth > 3:
            return None
        return cls(*[self.value(each, depth + 1) for each in kel_type.constructorArgTypeQ])

    # ---- operations -------------------------------------------------------------------------

    def pick(self):
        return self.choose.choice(self.pool) if self.pool else acme.Item("a", 1)

    def make(self):
        self.keep(self.instance(_Kel.typeNode(self.choose.choice(self.names)), 0))

    def keep(self, made):
        # A handle has functions that take and drop references by hand.
        if getattr(type(made), "__name__", "").startswith("Kel::Py"):
            return
        if type(made).__module__ in ("_Kel", "__builtin__") and hasattr(made, "next"):
            self.iterators.append(made)
            del self.iterators[:-20]
        elif isinstance(type(made), type(acme.Item)) or _Kel.isCollection(made):
            if len(self.pool) >= POOL:
                self.pool[self.choose.randrange(POOL)] = made
            else:
                self.pool.append(made)

    def attribute(self, it):
        return self.choose.choice(type(it).kelType.attributeQ)

    def read(self):
        it = self.pick()
        self.keep(getattr(it, self.attribute(it).name))

    def write(self):
        it = self.pick()
        attr = self.attribute(it)
        setattr(it, attr.name, self.value(attr.memberType))

    def call(self):
        it = self.pick()
        functions = [attr for attr in type(it).kelType.attributeQ if attr.isFunction]
        attr = self.choose.choice(functions)
        if attr.name == "unlock":
            return
        arguments = [self.value(each) for each in attr.instantiatingArgTypeQ]
        self.keep(getattr(it, attr.name)(*arguments))

    def compare(self):
        one, other = self.pick(), self.choose.choice((self.pick, self.odd))()
        self.choose.choice((lambda: one == other, lambda: one < other, lambda: one != other,
                            lambda: one + other, lambda: one & other, lambda: ~one,
                            lambda: cmp(one, other)))()

    def look(self):
        function = self.choose.choice((repr, str, hash, bool, len, dir, _Kel.const, _Kel.nonConst,
                                       _Kel.constPtr, _Kel.nonConstPtr, _Kel.isConst, _Kel.hashOf))
        self.keep(function(self.pick()))

    def collect(self):
        it = self.choose.choice([each for each in self.pool if _Kel.isCollection(each)])
        attr = it.kelAttr
        name = self.choose.choice(COLLECTION_CALLS)
        # A key that cannot be told to a handler ends the process.
        if (attr.name, name) in ENDING or attr.name == "byText":
            return
        key, member = self.value(attr.indexType), self.value(attr.memberType)
        arguments = {"key": (key,), "member": (member,), "both": (key, member), "none": (),
                     "made": tuple(self.value(each) for each in attr.instantiatingArgTypeQ),
                     "pairs": ({key: member},)}[COLLECTION_ARGUMENTS[name]]
        made = getattr(it, name)(*arguments)
        iter(()).next() if name == "update" else self.keep(made)

    def step(self):
        self.choose.choice(self.iterators).next()

    def drop(self):
        self.pool.pop(self.choose.randrange(len(self.pool)))

    def entity(self):
        name = "e%d" % self.choose.randrange(8)
        if self.choose.random() < 0.5:
            self.keep(root.newEntity(self.choose.choice(self.names), name))
        else:
            del root[name]

    def future(self):
        made = _Kel.entityFuture("/e%d" % self.choose.randrange(8), None)
        self.choose.choice((made.convertToEntity, made.convertToFailedMount))()
        self.keep(made)

    def watch(self):
        notifier = self.pick()
        self.watchers.append(_Kel.newNotifiee(notifier, _Kel.handle(self.told)))
        del self.watchers[:-10]

    def told(self, *arguments):
        self.calls += 1

    def loop(self):
        manager.runUntilIdle()

    def fault(self):
        if self.planted:
            raise Planted("planted")

    # ---- the program ------------------------------------------------------------------------

    def run(self, count, note):
        """Prints what is wrong."""
        names = [name for name, weight in WEIGHTS for _ in range(weight)]
        wrong = 0
        for number in xrange(count):
            name = self.choose.choice(names)
            note.set(number, name)
            try:
                getattr(self, name)()
                iter(()).next()
            except StopIteration:
                pass
            except DOCUMENTED:
                self.refused += 1
            except Exception as error:
                if type(error) not in (Exception, SystemError) or not TOLD.search(str(error)):
                    print "FAULT operation %d, %s: %s: %s" % (
                        number, name, type(error).__name__, error)
                    wrong += 1
            if number % 1000 == 0 and _Kel.activityLockOwner() != 0:
                print "FAULT operation %d, %s: the activity lock is held" % (number, name)
                wrong += 1
            if wrong > 20:
                break
        note.set(count, "end")
        print "OPERATIONS %d, %d refused, %d notifications" % (count, self.refused, self.calls)


WEIGHTS = [("make", 4), ("read", 8), ("write", 8), ("call", 4), ("compare", 4), ("look", 6),
           ("collect", 12), ("step", 4), ("drop", 3), ("entity", 2), ("future", 1), ("watch", 1),
           ("loop", 1), ("fault", 1)]

COLLECTION_ARGUMENTS = {
    "__getitem__": "key", "__setitem__": "both", "__delitem__": "key", "__contains__": "key",
    "get": "key", "has_key": "key", "getRawEntry": "key", "setdefault": "both", "add": "key",
    "remove": "key", "addMember": "member", "newMember": "made", "enq": "member", "push": "member",
    "deq": "none", "pop": "none", "front": "none", "back": "none", "top": "none", "bottom": "none",
    "clear": "none", "keys": "none", "values": "none", "items": "none", "iterkeys": "none",
    "itervalues": "none", "iteritems": "none", "__iter__": "none", "__len__": "none",
    "version": "none", "update": "pairs", "__repr__": "none", "__str__": "none"}
COLLECTION_CALLS = sorted(COLLECTION_ARGUMENTS)


def main(count, seed, path, planted):
    note = Note(path)
    Program(seed, planted).run(count, note)


if __name__ == "__main__":
    main(int(sys.argv[1]), int(sys.argv[2]), sys.argv[3], "--plant" in sys.argv)
