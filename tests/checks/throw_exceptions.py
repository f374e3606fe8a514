"""Tries cells (operation, thrown, class, text), given as JSON; prints those that come out wrong."""

import json
import os
import sys

import _Kel
import kel_throws

Object = _Kel.pyType(_Kel.typeNode("Throws::Object"))
Value = _Kel.pyType(_Kel.typeNode("Throws::Value"))

it, value, other = Object(1), _Kel.const(Value(1)), Value(1)

# By the name of the operation: function, type and attribute.
OPERATIONS = {
    "read of an attribute": (lambda: it.value, "Object", "value"),
    "write of an attribute": (lambda: setattr(it, "value", 1), "Object", "value"),
    "call of a function": (lambda: it.call(), "Object", "call"),
    "iteration": (lambda: list(it.map), "Object", "map"),
    "len": (lambda: len(it.map), "Object", "map"),
    "repr of a value": (lambda: repr(value), "Value", "number"),
    "str of a value": (lambda: str(value), "Value", ""),
    "construction": (lambda: Object(1), "Object", ""),
    "hash": (lambda: hash(value), "Value", ""),
    "==": (lambda: value == other, "Value", ""),
    "<": (lambda: value < other, "Value", ""),
    "+": (lambda: value + other, "Value", ""),
    "truth": (lambda: bool(value), "Value", ""),
    "in": (lambda: "key" in it.map, "Object", "map"),
    "[]": (lambda: it.map["key"], "Object", "map"),
}

# What an operation that is told in words comes to.
IN_WORDS = {
    "no exception, every key counts as there": ("", "True"),
    "what the read of the member comes to": (
        "IndexError", 'T.a: Kel::RangeException("T.a has no such member")'),
}


def outcome(function):
    try:
        return "", str(function())
    except Exception as error:
        return type(error).__name__, str(error)


def expected(raised, text, type_name, attribute):
    raised, text = IN_WORDS.get(text, (raised, text))
    full = "Throws::" + type_name
    text = text.replace("T.a", "%s.%s" % (full, attribute))
    for before, after in ("T: ", full + ": "), ("T does", full + " does"), ("'T'", "'%s'" % full):
        text = text.replace(before, after)
    return raised, text


def main(wanted):
    for operation, thrown, raised, text in wanted:
        function, type_name, attribute = OPERATIONS[operation]
        it.kind = thrown
        found = outcome(function)
        it.kind = ""
        if os.environ.get("KEL_CHECK_PLANT") and thrown == "Kel::RangeException":
            found = "LookupError", found[1]
        if found != expected(raised, text, type_name, attribute):
            print "WRONG %s with %s: %r, not %r" % (
                operation, thrown, found, expected(raised, text, type_name, attribute))
    print "TRIED %d" % len(wanted)


if __name__ == "__main__":
    main(json.loads(sys.argv[1]))
