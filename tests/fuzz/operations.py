"""How an object is poked: (label, number of arguments, function of the object and of them)."""

import copy
import operator
import pickle
import types

UNARY = [
    repr, str, unicode, hash, len, bool, int, long, float, complex, hex, oct, abs, operator.neg,
    operator.pos, operator.inv, operator.index, copy.copy, copy.deepcopy, dir, vars, id, callable,
    operator.isMappingType, operator.isSequenceType, iter, next, reversed, pickle.dumps, sorted,
    buffer, memoryview, bytearray, tuple, dict]

BINARY = [
    operator.add, operator.sub, operator.mul, operator.div, operator.truediv, operator.floordiv,
    operator.mod, operator.and_, operator.or_, operator.xor, operator.lshift, operator.rshift,
    operator.pow, divmod, operator.iadd, operator.isub, operator.imul, operator.idiv, operator.iand,
    operator.ior, operator.ixor, operator.lt, operator.le, operator.eq, operator.ne, operator.gt,
    operator.ge, cmp, coerce, operator.getitem, operator.delitem, operator.contains, getattr,
    hasattr, delattr, isinstance, issubclass, format, operator.concat, operator.repeat,
    operator.countOf, operator.indexOf]

# Names whose call asks nothing of this project and does harm to the fuzzer itself.
LEFT_ALONE = ("__class__", "__reduce__", "__reduce_ex__", "__dict__", "__subclasses__",
              "__builtins__", "__doc__", "__file__", "__name__", "__package__")


def _swapped(function):
    return lambda it, other: function(other, it)


def _call_with(function, count):
    return lambda it, *arguments: function(it)(*arguments[:count])


def general():
    for function in UNARY:
        yield function.__name__, 0, function
    for function in BINARY:
        yield function.__name__, 1, function
        yield "swapped " + function.__name__, 1, _swapped(function)
    yield "setitem", 2, operator.setitem
    yield "setattr", 2, setattr
    yield "pow of three", 2, pow
    yield "setslice", 2, lambda it, one, two: operator.setslice(it, 0, 1, one)
    yield "call", 0, lambda it: it()
    yield "call of one", 1, lambda it, one: it(one)
    yield "call of two", 2, lambda it, one, two: it(one, two)
    yield "call of three", 3, lambda it, one, two, three: it(one, two, three)
    yield "call of nine", 3, lambda it, one, two, three: it(*(one, two, three) * 3)
    yield "call of a keyword", 2, lambda it, one, two: it(one, value=two)
    yield "call of any keywords", 2, lambda it, one, two: it(**{one: two})
    yield "get", 2, lambda it, one, two: it.__get__(one, two)
    yield "set", 2, lambda it, one, two: it.__set__(one, two)
    yield "delete", 1, lambda it, one: it.__delete__(one)
    yield "unbound", 2, lambda it, one, two: _unbound(it, one, two)


def _unbound(it, one, two):
    """Every function of the class, called with a foreign object in place of its own."""
    for cls in type(it).__mro__:
        for value in vars(cls).values():
            if cls is not object and callable(value):
                for arguments in ((one,), (one, two)):
                    try:
                        value(*arguments)
                    except Exception:
                        pass


def of_names(it, names):
    """Every name that the object answers to: read, written, deleted, called."""
    for name in names:
        if name in LEFT_ALONE:
            continue
        read = operator.attrgetter(name)
        yield "." + name, 0, read
        if not isinstance(it, types.ModuleType):  # the fuzzer itself needs its functions
            yield "." + name + " =", 1, lambda it, one, name=name: setattr(it, name, one)
            yield "del ." + name, 0, lambda it, name=name: delattr(it, name)
        for count in range(4):
            yield ".%s(%d)" % (name, count), count, _call_with(read, count)
        yield ".%s(**)" % name, 2, lambda it, one, two, read=read: read(it)(**{one: two})


def operations(label, it, ending):
    """`ending` tells which (label, name) must not be called."""
    found = list(general())
    names = [name for name in dir(it) if (label.replace("const ", ""), name) not in ending]
    found.extend(of_names(it, names))
    return found
