"""Objects that nobody should pass, each made anew by a function of no arguments."""

import sys

import _Kel
import acme
import odd


class NoRepr(object):
    def __repr__(self):
        raise ValueError("no repr")

    __str__ = __unicode__ = __repr__


class NoEquality(object):
    def __eq__(self, other):
        raise ValueError("no equality")

    __ne__ = __lt__ = __gt__ = __le__ = __ge__ = __cmp__ = __eq__

    def __hash__(self):
        raise ValueError("no hash")


class NoClass(object):
    @property
    def __class__(self):
        raise ValueError("no class")


class NoAttributes(object):
    def __getattribute__(self, name):
        raise ValueError("no attributes")


class LyingClass(object):
    """Says that it is an Acme::Item."""

    @property
    def __class__(self):
        return acme.Item


class SelfProxy(object):
    def __kel_object__(self):
        return self


class NodeProxy(object):
    def __kel_object__(self):
        return odd.Node(1)


class RaisingProxy(object):
    def __kel_object__(self):
        raise ValueError("no object")


class Greedy(object):
    """Answers to every name with itself, and to every call."""

    def __getattr__(self, name):
        if name.startswith("__"):
            raise AttributeError(name)
        return self

    def __call__(self, *arguments):
        return self

    def __len__(self):
        return -1

    def __iter__(self):
        return self

    def next(self):
        raise StopIteration


class OldStyle:
    def __getattr__(self, name):
        raise AttributeError(name)


class IntChild(int):
    pass


class StrChild(str):
    pass


class FloatChild(float):
    pass


class TupleChild(tuple):
    pass


class DictChild(dict):
    pass


def _of_itself():
    itself = []
    itself.append(itself)
    return itself


def _generator():
    yield 1
    raise ValueError("half way")


def _function(*arguments, **keywords):
    raise ValueError("called")


def _failed_mount():
    future = _Kel.entityFuture("/none", None)
    future.convertToFailedMount()
    return future


OBJECTS = [
    ("None", lambda: None), ("True", lambda: True), ("0", lambda: 0), ("-1", lambda: -1),
    ("2**31", lambda: 2 ** 31), ("2**63", lambda: 2 ** 63), ("2**2000", lambda: 2 ** 2000),
    ("-2**70", lambda: -2 ** 70), ("NaN", lambda: float("nan")), ("inf", lambda: float("inf")),
    ("''", lambda: ""), ("'value'", lambda: "value"), ("'a\\0b'", lambda: "a\0b"),
    ("a long str", lambda: "x" * 100000), ("'%s%n'", lambda: "%s%n%s"),
    ("u''", lambda: u""), ("u'\\u20ac\\0'", lambda: u"\u20ac\0"), ("u'\\ud800'", lambda: u"\ud800"),
    ("IntChild", lambda: IntChild(1)), ("StrChild", lambda: StrChild("value")),
    ("FloatChild", lambda: FloatChild(1.5)), ("TupleChild", lambda: TupleChild((1, 2))),
    ("DictChild", lambda: DictChild(a=1)), ("()", lambda: ()), ("(None,)", lambda: (None,)),
    ("('a', 1)", lambda: ("a", 1)), ("a list of itself", _of_itself),
    ("{}", dict), ("{None: None}", lambda: {None: None}), ("bytearray", lambda: bytearray(b"\0")),
    ("generator", _generator), ("function", lambda: _function), ("slice", lambda: slice(0, -1)),
    ("NoRepr", NoRepr), ("NoEquality", NoEquality), ("NoClass", NoClass),
    ("NoAttributes", NoAttributes), ("LyingClass", LyingClass), ("SelfProxy", SelfProxy),
    ("NodeProxy", NodeProxy), ("RaisingProxy", RaisingProxy), ("(NodeProxy,)",
                                                               lambda: (NodeProxy(),)),
    ("Greedy", Greedy), ("OldStyle()", OldStyle), ("OldStyle", lambda: OldStyle),
    ("int", lambda: int), ("object", lambda: object), ("a module", lambda: sys),
    ("_Kel.Type", lambda: type(acme.Item)), ("acme.Item", lambda: acme.Item),
    ("acme.Color", lambda: acme.Color), ("handmade", lambda: _handmade()()),
    ("handmade class", lambda: _handmade()), ("Size", lambda: acme.Size(1)),
    ("const Point", lambda: _Kel.const(acme.Point())), ("PyText", lambda: odd.PyText(source="(")),
    ("Item", lambda: acme.Item("a", 1)), ("const Node", lambda: _Kel.constPtr(odd.Node(1))),
    ("SpecialNode", lambda: odd.SpecialNode(1)), ("Own", odd.Own),
    ("a collection", lambda: acme.Store("s").price), ("a function attribute",
                                                      lambda: odd.Args().one),
    ("a descriptor", lambda: acme.Item.__dict__["size"]),
    ("KelType", lambda: _Kel.typeNode("Acme::Item")),
    ("KelAttr", lambda: _Kel.typeNode("Acme::Item").attr("size")),
    ("EntityFuture", lambda: _Kel.entityFuture("/", None)), ("FailedMount", _failed_mount),
]


def _handmade():
    """A class that Python made by calling the metaclass: it stands for no runtime type."""
    return type(acme.Item)("Handmade", (object,), {})
