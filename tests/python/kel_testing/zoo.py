"""Python objects of every kind that somebody may pass where a runtime value is wanted."""

import sys

import _Kel
import acme
import odd


class IntChild(int):
    pass


class LongChild(long):
    pass


class FloatChild(float):
    pass


class StrChild(str):
    pass


class UnicodeChild(unicode):
    pass


class BytearrayChild(bytearray):
    pass


class TupleChild(tuple):
    pass


class ListChild(list):
    pass


class OldStyle:
    pass


class Plain(object):
    pass


class Converts(object):
    """Offers itself as everything, through methods that no conversion asks."""

    def __int__(self):
        return 1

    __long__ = __index__ = __int__

    def __float__(self):
        return 1.0

    def __nonzero__(self):
        return True

    def __str__(self):
        return "red"

    def __unicode__(self):
        return u"red"

    def __repr__(self):
        return "red"


class NoRepr(object):
    def __repr__(self):
        raise ValueError("no repr")


INTEGERS = [
    0, 1, 2, 5, 7, -1, 42, 127, 128, -128, -129, 255, 256, 300, 32767, 32768, -32768, -32769,
    65535, 65536, 2147483647, 2147483648, -2147483648, -2147483649, 4294967295, 4294967296,
    sys.maxint, -sys.maxint - 1]

LONGS = [long(number) for number in INTEGERS] + [
    2 ** 63, 2 ** 64 - 1, 2 ** 64, 2 ** 70, -2 ** 63 - 1, -2 ** 64, 2 ** 2000, -2 ** 2000]

FLOATS = [0.0, -0.0, 1.0, 1.5, -1.5, 0.1, 1e300, -1e300, 1e-300, float("inf"), float("-inf"),
          float("nan")]

TEXTS = ["", "a", "ab", "1", "red", "blue", "blue\0", "red\0x", "\0", "\xff", "low", "zero",
         "first", u"", u"a", u"ab", u"red", u"\u20ac", u"\0", u"\ud800", StrChild(""),
         StrChild("a"), StrChild("red"), StrChild("low"), StrChild("zero"), UnicodeChild(u"red"),
         bytearray(b""), bytearray(b"a"), bytearray(b"\0ab"), BytearrayChild(b"a")]

OTHERS = [None, True, False, IntChild(1), LongChild(1), FloatChild(1.0), 1j, (), (1,), (1, 2),
          TupleChild((1,)), [], [1], {}, {1: 2}, set(), frozenset([1]), xrange(3), slice(1),
          buffer("a"), memoryview(b"a"), object(), Plain(), OldStyle(), Converts(), NoRepr(),
          int, type, acme.Size, acme.Color, OldStyle, sys, len, Plain.__init__, iter([]), Ellipsis,
          NotImplemented, ValueError("x"), _Kel.typeNode("Acme::Size"),
          _Kel.typeNode("Acme::Size").attr("value"), _Kel.entityFuture("/none", None)]

PLAIN_OBJECTS = INTEGERS + LONGS + FLOATS + TEXTS + OTHERS


def wrappers():
    """A new wrapper of every sort, by a name."""
    values = odd.Values()
    return {
        "size": acme.Size(1), "const size": _Kel.const(acme.Size(1)), "name": acme.Name("a"),
        "point": acme.Point(x=1), "point3": odd.Point3(x=1, z=2),
        "segment": odd.Segment(acme.Point(), acme.Point()),
        "boxed": values.getRawAttribute("boxed"),
        "more boxed": odd.MoreBoxed(), "shape": odd.Shape(), "empty": odd.Empty(),
        "py text": values.getRawAttribute("pyText"), "item": acme.Item("a", 1),
        "thing": acme.Thing("b"), "stock item": acme.StockItem("a", 1), "node": odd.Node(1),
        "const node": _Kel.constPtr(odd.Node(2)), "special": odd.SpecialNode(3), "own": odd.Own(),
        "car": odd.Vehicle("car"), "function": odd.Args().none}


def tp_name(object):
    """The name of the object's type as C code sees it."""
    cls = type(object)
    is_heap_type = cls.__flags__ & (1 << 9)
    if is_heap_type or cls.__module__ == "__builtin__":
        return cls.__name__
    return "%s.%s" % (cls.__module__, cls.__name__)


def repr_text(object):
    """What a refusal shows of the object."""
    try:
        return repr(object)
    except Exception:
        return "[error getting repr]"


def refused(expected, object):
    """The text of a failed conversion."""
    return 'Kel::TypeException("expected %s, got %s: %s")' % (
        expected, tp_name(object), repr_text(object))
