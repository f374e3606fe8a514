"""Every public operation, each with what lets it succeed and what makes it fail.

A row is (operation, label, function). The operation is "type.name" as introspection finds it, with
`operations_there_are`; a function makes what it needs, and leaves nothing behind.
"""



import operator

import _Kel
import acme
import kel_hand
import kel_objects
import odd
from kel_testing.kinds import directories, kinds

manager = _Kel.singleton("Kel::ActivityManager")
clock = _Kel.singleton("Kel::Clock")
root = _Kel.singleton("Kel::Dir")
node = _Kel.typeNode
Timer = _Kel.pyType(node("Kel::PyClockNotifiee"))
Dir = _Kel.pyType(node("Kel::Dir"))


class Refusing(object):
    """A Python object that no conversion takes, and that has no text."""

    def __repr__(self):
        raise ValueError("no text")

    __hash__ = None


class Proxy(object):
    def __init__(self, target):
        self.target = target

    def __kel_object__(self):
        if self.target is None:
            raise ValueError("stands for nothing")
        return self.target


REFUSING = Refusing()
WRONG = (REFUSING, Proxy(None))


def _backtrace():
    try:
        odd.Faults().failTraced("traced")
    except IndexError as error:
        return error.backtrace


def _future(name="/none", type_name=None):
    return _Kel.entityFuture(name, type_name and node(type_name))


def _failed():
    future = _future()
    future.convertToFailedMount()
    return future


# Singular objects to poke, made once: those of which nothing changes.
SIZE = acme.Size(6)
POINT = acme.Point(x=1, y=2)
ITEM = acme.Item("a", 1)
NODE = odd.Node(1)
ARGS = odd.Args()
BACKTRACE = _backtrace()
NOTES = odd.Notes()
def _static_types():
    store = acme.Store("s")
    found = [node("Acme::Item"), node("Acme::Item").attr("size"), vars(acme.Item)["size"],
             acme.Item, store.price, ARGS.one, iter(store.price), _future(), _failed(), BACKTRACE]
    return dict((type(each).__name__, type(each)) for each in found)


STATIC_TYPES = _static_types()

# What the roots of the classes of runtime types bring along, by the name that a row has for it.
ROOTS = {"value": acme.Size, "pointer": odd.Node.__mro__[1], "directory": Dir, "enum": acme.Color}

# Names that tell of the class and do nothing.
PLAIN_NAMES = {"__doc__", "__module__", "__name__", "__package__", "__file__", "Backtrace"}


def operations_there_are():
    """"type.name" for all that the module gives to call, read, write or compare."""
    found = set("_Kel." + name for name in vars(_Kel))
    for name, cls in STATIC_TYPES.items():
        found |= set("%s.%s" % (name, each) for each in vars(cls))
    for name, cls in ROOTS.items():
        found |= set("%s.%s" % (name, each) for each, value in vars(cls).items()
                     if type(value) is not STATIC_TYPES["Attribute"])
    return set(each for each in found if each.split(".")[1] not in PLAIN_NAMES)


# Operations that cannot be done a thousand times in one process, and where they are tested.
ENDING = {
    "_Kel.atforkPrepare": "takes the activity lock for a fork that must follow: core/test_fork.py",
    "_Kel.pythonForkHandlersRegistered": "changes each fork from then on: core/test_fork.py"}

# Those that no row can make fail.
UNFAILING = {
    "Iterator.next",  # but at its end
    "Iterator.__iter__", "value.__nonzero__", "pointer.__nonzero__", "pointer.__hash__",
    "value.__eq__", "value.__ne__", "pointer.__eq__", "pointer.__ne__", "pointer.__repr__",
    "pointer.__str__", "directory.__iter__", "Attribute.__repr__", "Function.__repr__",
    "Function.__str__", "Backtrace.__repr__", "EntityFuture.__repr__", "FailedMount.__repr__",
    "KelType.__repr__", "KelAttr.__repr__", "pointer.__lt__", "pointer.__gt__", "pointer.__le__",
    "pointer.__ge__", "Collection.__eq__", "Collection.__ne__", "Collection.__repr__",
    "Collection.__str__", "Collection.__len__", "directory.__len__"}


# Those that refuse everything.
REFUSED = {
    "Attribute.__delete__", "directory.__setitem__", "directory.newMember", "directory.setdefault",
    "pointer.__copy__", "pointer.__deepcopy__", "value.kelSmartPointerReferences"}


def _entity(function):
    """Calls it with an entity of the root."""
    try:
        return function(root.newEntity("Acme::Item", "row"))
    finally:
        del root["row"]


def _convert():
    _entity(_Kel.convertEntityToFailedMount)


def _converted_back(item):
    future = _future("/row")
    future.convertToFailedMount()
    future.convertToEntity()


def _notified(change):
    """A handler is called by the loop."""
    notes, seen = odd.Notes(), []
    kept = _Kel.newNotifiee(notes, _Kel.handle(lambda attr, key: seen.append((attr.name, key))))
    change(notes)
    manager.runUntilIdle()
    assert seen, "no handler was called"
    del kept


def _fired():
    seen = []
    kept = Timer(clock, _Kel.handle(lambda: seen.append(1)))
    kept.timeMinProxy = 1.0
    manager.runUntilIdle()
    assert seen, "no timer fired"
    del kept


def _hooked(register, function):
    def hook(*arguments):
        pass

    def refuse(*arguments):
        raise ValueError("hooked")

    register(hook)
    function()
    register(refuse)
    try:
        function()
    except ValueError:
        pass
    finally:
        register(None)


def _locked(function):
    _Kel.acquireActivityLock()
    try:
        return function()
    finally:
        _Kel.releaseActivityLock()


# Arguments of the functions and methods: those that they take, those that they refuse. A function
# in their place is called for itself.
CALLS = {
    "_Kel.trace_h": ([(None, "f", 1, "g", "m", 9)], [(1, "f", 1, "g", "m", 9), (None, 1)]),
    "_Kel.trace_ht": ([(None, "t", "f", 1, "g", "m", 9)], [(1, "t", "f", 1, "g", "m", 9)]),
    "_Kel.setproctitle": ([("python", "")], [(1, 2), ("a\0", "b")]),
    "_Kel.escapedTraceString": ([("a\n\\\0",), (u"a",)], [(1,)]),
    "_Kel.proctitle": ([()], []),
    "_Kel.kelNowToLinuxMonoTime": ([(1.5,), (0,)], [("x",)]),
    "_Kel.traceLineSuppressed": ([(None, 9)], [(1, 9), (None, "x")]),
    "_Kel.traceTagSuppressed": ([(None, "t")], [(1, "t"), (None, 1)]),
    "_Kel.acquireActivityLock": ([lambda: _locked(_Kel.acquireActivityLock)], []),
    "_Kel.releaseActivityLock": ([lambda: _locked(int)], []),
    "_Kel.activityLockOwner": ([(), lambda: _locked(_Kel.activityLockOwner)], []),
    "_Kel.timedAcquireActivityLock": (
        [lambda: _locked(lambda: _Kel.timedAcquireActivityLock(0))], [("x",)]),
    "_Kel.enableThreadSafePointers": ([()], []),
    "_Kel.singleton": ([("Kel::Dir",), ("Kel::Clock",)], [("Acme::None",), ("Acme::Size",), (1,)]),
    "_Kel.handle": ([(None,), (REFUSING,), ("text",)], []),
    "_Kel.newNotifiee": (
        [lambda: _Kel.newNotifiee(odd.Notes(), _Kel.handle(None)),
         lambda: _notified(lambda notes: setattr(notes, "a", notes.a + 1)),
         lambda: _notified(lambda notes: operator.setitem(notes.map, "k", 1)),
         lambda: _notified(lambda notes: notes.setLater(3)), _fired],
        [(NOTES, None), (1, 2), (NOTES, REFUSING), (ITEM, SIZE), (SIZE, _Kel.handle(None))]),
    "_Kel.typeNode": ([("Acme::Item",)], [("Acme::None",), (1,)]),
    "_Kel.pyType": ([(node("Acme::Item"),), (acme.Item,)], [(1,), (REFUSING,)]),
    "_Kel.nonConst": ([(SIZE,), (_Kel.const(SIZE),)], [(1,), (NODE,), (REFUSING,)]),
    "_Kel.const": ([(SIZE,), (POINT,)], [(1,), (NODE,), (REFUSING,)]),
    "_Kel.nonConstPtr": ([(NODE,)], [(1,), (SIZE,), (REFUSING,)]),
    "_Kel.constPtr": ([(NODE,)], [(1,), (SIZE,), (REFUSING,)]),
    "_Kel.isConst": ([(NODE,), (SIZE,)], [(1,), (REFUSING,)]),
    "_Kel.entityFuture": ([("/none", None), ("/none", node("Acme::Item"))],
                          [(1, None), ("/none", 1), ("/none", REFUSING)]),
    "_Kel.isValue": ([(SIZE,), (REFUSING,)], []),
    "_Kel.isCollection": ([(SIZE,), (REFUSING,)], []),
    "_Kel.isFunction": ([(ARGS.one,), (REFUSING,)], []),
    "_Kel.isEntityFuture": ([(_future(),), (REFUSING,)], []),
    "_Kel.isFailedMount": ([(_failed(),), (REFUSING,)], []),
    "_Kel.addressOf": ([(NODE,)], [(SIZE,), (1,)]),
    "_Kel.hashOf": ([(NODE,), (SIZE,)], [(1,)]),
    "_Kel.attributeAccessorCount": ([()], []),
    "_Kel.newEntityHookIs": (
        [(None,), lambda: _hooked(_Kel.newEntityHookIs, lambda: _entity(repr))], []),
    "_Kel.newInstanceHookIs": (
        [(None,), lambda: _hooked(_Kel.newInstanceHookIs, lambda: odd.Node(1))], []),
    "_Kel.getitemHookIs": (
        [(None,), lambda: _hooked(_Kel.getitemHookIs, lambda: odd.Coll().slot[0])], []),
    "_Kel.convertEntityToFailedMount": ([_convert], [(1,), (SIZE,), (_failed(),)]),
    "_Kel.demangle": ([("i",), ("_ZN3Kel6Ptr",)], [(1,)]),
    "_Kel.gnmiJsonString": ([lambda: _Kel.gnmiJsonString(odd.Values(), "json")],
                            [(1, "x"), (NODE, "none"), (NODE, 1), (NODE, "value")]),
    "KelType.attr": ([("size",)], [("none",), (1,)]),
    "KelType.isDerived": ([(node("Acme::Thing"),)], [(1,), (REFUSING,)]),
    "value._getmethod": ([("value",)], [("none",), (1,)]),
    "value.attrProperty": ([("value", "writable")],
                           [("none", "writable"), ("value", "none"), (1, 1)]),
    "value.getRawAttribute": ([("value",)], [("none",), (1,)]),
    "value.kelSmartPointerReferences": ([], [()]),
    "value.valueToGnmiString": ([lambda: odd.Payload(text="t").valueToGnmiString()], []),
    "value.valueToGnmiBytes": ([lambda: odd.Payload(data=b"d").valueToGnmiBytes()], []),
    "value.__copy__": ([()], []),
    "value.__deepcopy__": ([({},)], [()]),
    "pointer._getmethod": ([("value",)], [("none",), (1,)]),
    "pointer.attrProperty": ([("value", "writable")],
                           [("none", "writable"), ("value", "none"), (1, 1)]),
    "pointer.getRawAttribute": ([("value",), ("next",)], [("none",), (1,)]),
    "pointer.kelSmartPointerReferences": ([()], []),
    "pointer.valueToGnmiString": ([], [()]),
    "pointer.valueToGnmiBytes": ([], [()]),
    "pointer.__copy__": ([()], []),
    "pointer.__deepcopy__": ([({},)], [()]),
    "directory.newEntity": (
        [lambda: _entity(repr)],
        [("Acme::None", "a"), ("Acme::Size", "a"), ("Acme::Item", ""), (1, 2)]),
    "directory.mkdir": ([lambda: Dir("d").mkdir("sub") and None], [("a/b",), (1,)]),
    "EntityFuture.convertToEntity": (
        [lambda: _entity(lambda item: _future("/row").convertToEntity()),
         lambda: _entity(lambda item: _future("/row", "Acme::Item").convertToEntity())],
        [(), lambda: _entity(lambda item: _future("/row", "Acme::Store").convertToEntity())]),
    "EntityFuture.convertToFailedMount": ([lambda: _future().convertToFailedMount()], []),
    "FailedMount.convertToEntity": ([lambda: _entity(_converted_back)], [()]),
    "Backtrace.frames": ([()], []),
    "Iterator.next": ([lambda: iter(odd.Coll().slot).next()],
                      [lambda: iter(acme.Store("s").price).next()]),
}

# One object of each type, of which nothing changes.
POKED = {
    "KelType": node("Acme::Item"), "KelAttr": node("Acme::Store").attr("item"),
    "Attribute": vars(acme.Item)["size"], "Type": acme.Item, "Function": ARGS.one,
    "Collection": acme.Store("s").price, "EntityFuture": _future(), "FailedMount": _failed(),
    "Backtrace": BACKTRACE, "value": acme.Size(6), "pointer": odd.Node(2), "directory": Dir("d"),
    "Iterator": iter(acme.Store("s").price), "_Kel": _Kel, "enum": None}

BINARY = dict((name, getattr(operator, name)) for name in (
    "__add__ __sub__ __mul__ __div__ __truediv__ __floordiv__ __mod__ __and__ __or__ __xor__ "
    "__lt__ __le__ __eq__ __ne__ __gt__ __ge__").split())

# Slots: functions that succeed, functions that fail.
SLOTS = {
    "KelType.__repr__": ([lambda: repr(node("Acme::Item"))], []),
    "KelAttr.__repr__": ([lambda: repr(POKED["KelAttr"])], []),
    "Attribute.__repr__": ([lambda: repr(POKED["Attribute"])], []),
    "Attribute.__get__": ([lambda: ITEM.size, lambda: acme.Item.size, lambda: acme.Item.unit],
                          [lambda: POKED["Attribute"].__get__(NODE, None),
                           lambda: odd.Faults().bad, lambda: acme.Item.none]),
    "Attribute.__set__": ([lambda: setattr(ITEM, "size", 3)],
                          [lambda: setattr(ITEM, "size", REFUSING),
                           lambda: setattr(ITEM, "id", 3),
                           lambda: setattr(odd.Faults(), "bad", 1),
                           lambda: POKED["Attribute"].__set__(NODE, 1)]),
    "Attribute.__delete__": ([lambda: delattr(odd.Scalars(), "maybe")],
                             [lambda: delattr(ITEM, "size"),
                              lambda: POKED["Attribute"].__delete__(NODE)]),
    "Function.__call__": (
        [lambda: ARGS.none(), lambda: ARGS.one(1), lambda: ARGS.nine(*range(9)),
         lambda: ARGS.opt(None), lambda: ARGS.size(3), lambda: ARGS.node(NODE),
         lambda: ARGS.node(Proxy(NODE)), lambda: ARGS.pyText("t"),
         lambda: ARGS.many(NODE, *range(8)), lambda: acme.Item.describe("red"),
         lambda: odd.Node.make("special", 1), lambda: odd.Node.make("none", 1)],
        [lambda: ARGS.one(), lambda: ARGS.one(1, 2), lambda: ARGS.one(-1), lambda: ARGS.one("x"),
         lambda: ARGS.one(2 ** 70), lambda: ARGS.one(REFUSING), lambda: ARGS.one(a=1),
         lambda: ARGS.node(1), lambda: ARGS.node(Proxy(None)), lambda: ARGS.node(REFUSING),
         lambda: ARGS.size(NODE), lambda: ARGS.many(NODE, *"abcdefgh"),
         lambda: ARGS.unknown(1), lambda: acme.Item.describe("green"),
         lambda: _Kel.constPtr(NODE).bump()]),
    "Function.__repr__": ([lambda: repr(ARGS.one)], []),
    "Function.__str__": ([lambda: str(ARGS.one)], []),
    "NewMemberFunction.__call__": (
        [lambda: acme.Store("s").item.newMember("a", 1)],
        [lambda: acme.Store("s").item.newMember("a"),
         lambda: acme.Store("s").item.newMember(1, 2)]),
    "Iterator.__iter__": ([lambda: iter(iter(odd.Coll().slot))], []),
    "Backtrace.__repr__": ([lambda: repr(BACKTRACE)], []),
    "EntityFuture.__repr__": ([lambda: repr(POKED["EntityFuture"])], []),
    "FailedMount.__repr__": ([lambda: repr(POKED["FailedMount"])], []),
    "value.__new__": ([lambda: acme.Size(1), lambda: acme.Point(), lambda: acme.Point(x=1, y=2),
                       lambda: odd.Segment(POINT, POINT)],
                      [lambda: acme.Size(), lambda: acme.Size("x"), lambda: acme.Size(REFUSING),
                       lambda: acme.Point(none=1), lambda: acme.Point(x="x"),
                       lambda: odd.Segment(POINT, 1), lambda: acme.Size(1, 2)]),
    "pointer.__new__": ([lambda: odd.Node(1), lambda: odd.Vehicle("car"), lambda: odd.Own(),
                         lambda: odd.Link(NODE, "red"), lambda: odd.Link(None, "red"),
                         lambda: acme.Item("a", 1)],
                        [lambda: odd.Node(), lambda: odd.Node("x"), lambda: odd.Refuser(10),
                         lambda: odd.Link(1, "red"), lambda: odd.Link(Proxy(None), "red"),
                         lambda: odd.Node(1, none=2), lambda: odd.Node(REFUSING)]),
    "enum.__new__": ([lambda: str(odd.Scalars().color)],
                     [lambda: acme.Color(1), lambda: acme.Color()]),
    "value.__hash__": ([lambda: hash(_Kel.const(SIZE))], [lambda: hash(SIZE)]),
    "pointer.__hash__": ([lambda: hash(NODE)], []),
    "value.__repr__": ([lambda: repr(SIZE), lambda: repr(POINT), lambda: repr(odd.Both()),
                        lambda: repr(odd.MaybeBoxed())], [lambda: repr(odd.Thrower())]),
    "value.__str__": ([lambda: str(SIZE), lambda: str(POINT)], [lambda: str(odd.Thrower())]),
    "pointer.__repr__": ([lambda: repr(NODE), lambda: repr(ITEM)], []),
    "pointer.__str__": ([lambda: str(NODE), lambda: str(ITEM)], []),
    "value.__nonzero__": ([lambda: bool(SIZE)], [lambda: bool(odd.Segment(POINT, POINT))]),
    "pointer.__nonzero__": ([lambda: bool(NODE)], []),
    "value.__invert__": ([lambda: ~SIZE], [lambda: ~POINT]),
    "directory.__iter__": ([lambda: list(Dir("d"))], []),
}


def _binary(label, one, same, others, refused):
    for name, function in BINARY.items():
        key = "%s.%s" % (label, name)
        if key not in operations():
            continue
        good = [lambda each=each, f=function: f(one, each) for each in same]
        bad = [lambda each=each, f=function: f(one, each) for each in others]
        bad += [lambda each=each, f=function: f(refused, each) for each in (refused, one)]
        SLOTS[key] = (good, bad)
        right = "%s.__r%s" % (label, name[2:])
        if right in operations():
            swapped = getattr(one, right.split(".")[1])
            SLOTS[right] = ([lambda f=swapped, each=each: f(each) for each in same],
                            [lambda f=function, each=each: f(each, one) for each in [7] + others])


_operations = []


def operations():
    if not _operations:
        _operations.append(operations_there_are())
    return _operations[0]


def _property_rows(key):
    label, name = key.split(".")
    it = POKED[label]
    yield key, "read", lambda: getattr(it, name)
    yield key, "write, which fails", lambda: setattr(it, name, None)
    if key == "KelAttr.enumValue":
        red = node("Acme::Color").attr("red")
        yield key, "read of a constant", lambda: red.enumValue


def _call_rows(key, good, bad):
    label, name = key.split(".")
    it = POKED[label]
    for arguments in good + bad:
        if callable(arguments):
            yield key, "call", arguments
        else:
            yield key, "call", lambda a=arguments: getattr(it, name)(*a)
    yield key, "call of nine", lambda: getattr(it, name)(*range(9))


def _by_hand():
    _binary("value", SIZE, [acme.Size(3), 3], [REFUSING, "x", NODE], odd.Segment(POINT, POINT))
    _binary("pointer", NODE, [odd.Node(3), None], [REFUSING, 3, SIZE], ITEM)
    for key in sorted(operations()):
        if key in CALLS:
            for row in _call_rows(key, *CALLS[key]):
                yield row
        elif key in SLOTS:
            for function in SLOTS[key][0] + SLOTS[key][1]:
                yield key, "slot", function
        elif _is_property(key):
            for row in _property_rows(key):
                yield row


def _is_property(key):
    label, name = key.split(".")
    cls = STATIC_TYPES.get(label, ROOTS.get(label))
    return cls is not None and type(vars(cls).get(name)).__name__ in (
        "getset_descriptor", "member_descriptor")


# ---- collections of every kind ------------------------------------------------------------------

# name: the functions of (kind, collection). Each kind refuses some of them. An update that fails in
# part leaves its error pending, which the next call into the interpreter raises.
ON_COLLECTIONS = {
    "__len__": [lambda k, c: len(c)],
    "__iter__": [lambda k, c: list(c), lambda k, c: iter(c), lambda k, c: iter(odd.Coll().brittle)],
    "__contains__": [lambda k, c: k.key(0) in c, lambda k, c: "none" in c,
                     lambda k, c: REFUSING in c],
    "__getitem__": [lambda k, c: c[k.key(0)], lambda k, c: c[k.key(2)], lambda k, c: c[REFUSING]],
    "__setitem__": [lambda k, c: operator.setitem(c, k.key(0), k.member(0)),
                    lambda k, c: operator.setitem(c, k.key(2), k.member(2)),
                    lambda k, c: operator.setitem(c, k.key(0), REFUSING),
                    lambda k, c: operator.setitem(c, REFUSING, k.member(0))],
    "__delitem__": [lambda k, c: operator.delitem(c, k.key(0)),
                    lambda k, c: operator.delitem(c, k.key(2)),
                    lambda k, c: operator.delitem(c, REFUSING)],
    "__repr__": [lambda k, c: repr(c)], "__str__": [lambda k, c: str(c)],
    "__eq__": [lambda k, c: c == c, lambda k, c: c == REFUSING, lambda k, c: c == {}],
    "__ne__": [lambda k, c: c != c, lambda k, c: c != REFUSING],
    "__lt__": [lambda k, c: c < c], "__le__": [lambda k, c: c <= c],
    "__gt__": [lambda k, c: c > c], "__ge__": [lambda k, c: c >= c],
    "add": [lambda k, c: c.add(k.key(2)), lambda k, c: c.add(REFUSING)],
    "remove": [lambda k, c: c.remove(k.key(0)), lambda k, c: c.remove(REFUSING)],
    "enq": [lambda k, c: c.enq(k.member(2)), lambda k, c: c.enq(REFUSING)],
    "push": [lambda k, c: c.push(k.member(2)), lambda k, c: c.push(REFUSING)],
    "deq": [lambda k, c: c.deq(), lambda k, c: (c.clear(), c.deq())],
    "pop": [lambda k, c: c.pop(), lambda k, c: (c.clear(), c.pop())],
    "newMember": [lambda k, c: c.newMember(*k.member(2)), lambda k, c: c.newMember("k2", 2),
                  lambda k, c: c.newMember(REFUSING)],
    "addMember": [lambda k, c: c.addMember(k.member(2)), lambda k, c: c.addMember(REFUSING)],
    "get": [lambda k, c: c.get(k.key(0)), lambda k, c: c.get(k.key(2), 5),
            lambda k, c: c.get(REFUSING)],
    "setdefault": [lambda k, c: c.setdefault(k.key(0), k.member(0)),
                   lambda k, c: c.setdefault(k.key(2), k.member(2)),
                   lambda k, c: c.setdefault(REFUSING)],
    "has_key": [lambda k, c: c.has_key(k.key(0)), lambda k, c: c.has_key(REFUSING)],
    "getRawEntry": [lambda k, c: c.getRawEntry(k.key(0)), lambda k, c: c.getRawEntry(k.key(2)),
                    lambda k, c: c.getRawEntry(REFUSING)],
    "update": [lambda k, c: (c.update({k.key(2): k.member(2)}), iter(()).next()),
               lambda k, c: (c.update({}), iter(()).next()),
               lambda k, c: (c.update(k2=1), iter(()).next()),
               lambda k, c: c.update(REFUSING),
               lambda k, c: (c.update([(k.key(0), k.member(0))]), iter(()).next())],
    "parent": [lambda k, c: c.parent, lambda k, c: setattr(c, "parent", 1)],
    "kelAttr": [lambda k, c: c.kelAttr, lambda k, c: setattr(c, "kelAttr", 1)],
    "fullName": [lambda k, c: c.fullName, lambda k, c: setattr(c, "fullName", 1)],
}
for _name in ("keys values items iterkeys itervalues iteritems version front back top bottom "
              "members clear").split():
    ON_COLLECTIONS[_name] = [operator.methodcaller(_name), operator.methodcaller(_name, 1)]
    ON_COLLECTIONS[_name] = [lambda k, c, f=f: _exhausted(f(c)) for f in ON_COLLECTIONS[_name]]


def _exhausted(result):
    return list(result) if hasattr(result, "next") else result


def _on_collection(kind, function):
    collection = kind.filled()
    try:
        return function(kind, collection)
    finally:
        kind.done(collection)


# A set with an internal index takes no key; it ends the process.
ENDING_KINDS = {("coll.part", "add")}


def _of_collections():
    for label, chosen in ("Collection", kinds()), ("directory", directories()):
        for kind in chosen:
            for name, functions in sorted(ON_COLLECTIONS.items()):
                key = "%s.%s" % (label, name)
                if key in operations() and (repr(kind), name) not in ENDING_KINDS:
                    for number, function in enumerate(functions):
                        yield key, "%r %d" % (kind, number), (
                            lambda kind=kind, function=function: _on_collection(kind, function))


# ---- attributes of every type -------------------------------------------------------------------

MADE = [("Odd::Scalars", odd.Scalars), ("Odd::Values", odd.Values),
        ("Odd::Node", lambda: odd.Node(1)),
        ("Acme::Item", lambda: acme.Item("a", 1)), ("Acme::Store", lambda: acme.Store("s")),
        ("Odd::Keeper", odd.Keeper), ("Odd::Shape", odd.Shape), ("Odd::ColorSet", odd.ColorSet),
        ("Odd::Boxed", odd.Boxed), ("Odd::Payload", odd.Payload), ("Odd::Holder", odd.Holder),
        ("Odd::Notes", odd.Notes), ("Odd::Probe", odd.Probe),
        ("Acme::Shelf", lambda: acme.Shelf("s"))]

TAKEN = [0, 255, 2 ** 70, -1, 1.5, "a", u"\u20ac", None, True, ("a", 1), bytearray(b"ab"), "red",
         SIZE, POINT, NODE, Proxy(NODE)] + list(WRONG)


def _of_attributes():
    for label, make in MADE:
        for attr in node(label).attributeQ:
            name = attr.name
            if attr.isCollection or attr.isFunction or attr.isStatic:
                continue
            it = make()
            yield "Attribute.__get__", "%s.%s" % (label, name), (
                lambda it=it, name=name: getattr(it, name))
            yield "Attribute.__delete__", "%s.%s" % (label, name), (
                lambda make=make, name=name: delattr(make(), name))
            for number, value in enumerate(TAKEN):
                yield "Attribute.__set__", "%s.%s %d" % (label, name, number), (
                    lambda make=make, name=name, value=value: setattr(make(), name, value))


# ---- what stands beside the module --------------------------------------------------------------

def _of_server():
    import PyServer
    import _PyServerText
    import _PyServerWire
    stream = lambda data: iter([data]).next
    local = PyServer._LocalServer()
    failing = lambda text: lambda: _failure(_PyServerText, text)
    return [
        ("Kel.load", "twice", lambda: __import__("Kel").load("acme")),
        ("Kel.load", "none", lambda: __import__("Kel").load("none")),
        ("Kel.Schema", "none", lambda: acme.none),
        ("PyServer.evalText", "expression", lambda: _PyServerText.evalText("1+1")),
        ("PyServer.evalText", "unicode", lambda: _PyServerText.evalText("u'\\u20ac'")),
        ("PyServer.evalText", "failing", lambda: _PyServerText.evalText("1/0")),
        ("PyServer.execText", "statement", lambda: _PyServerText.execText("x = 1")),
        ("PyServer.execText", "failing", lambda: _PyServerText.execText("(")),
        ("PyServer.failureText", "of an error", failing("1/0")),
        ("PyServer.failureText", "of a syntax error", failing("(")),
        ("PyServer.local", "eval", lambda: local.doEval("1")),
        ("PyServer.local", "exec", lambda: local.doExec("pass")),
        ("PyServer.local", "failing", lambda: local.doEval("1/0")),
        ("PyServer.replyHead", "of a text", lambda: _PyServerWire.replyHead("+1", "text")),
        ("PyServer", "bad arguments", lambda: PyServer.PyServer("a/b", "c")),
        ("PyServer", "never started", lambda: PyServer.PyServer("a", "c").stop()),
    ]


def _failure(text_module, text):
    import sys
    try:
        text_module.evalText(text)
    except Exception:
        return text_module.failureText(text, *sys.exc_info())


# ---- exceptions of every class -------------------------------------------------------------------

FAULTS = ["Kel::%sException" % name for name in (
    "NoTypeNode Type IllegalName NameInUse Const NondeletableAttr NoImplementation Rpc Range Errno "
    "Memory Internal OpNotSupported").split()] + ["std::runtime_error", "std::bad_alloc", "int"]


def _of_faults():
    faults = odd.Faults()
    for kind in FAULTS:
        yield "Function.__call__", "throws " + kind, lambda kind=kind: faults.fail(kind, "text")
    yield "Function.__call__", "throws a traced one", lambda: faults.failTraced("text")


def rows():
    for source in (_by_hand, _of_collections, _of_attributes, _of_server, _of_faults):
        for row in source():
            yield row
