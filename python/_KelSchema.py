"""What libraries of types declare, as data, as text, as JSON and as a page of HTML.

The data is plain: describe() gives a list of types, each a dictionary of str, bool, None, lists and
dictionaries, as _type() and _attribute() make them.
"""

import json

import Kel
import _Kel

TRAITS = (  # of an attribute, in the order in which they are told
    ("isOptionalValue", "optional"), ("isImmutable", "immutable"), ("doesNotify", "notifies"),
    ("instantiating", "makes its members"), ("isLogging", "logged"))


def describe(types):
    """The description of each of the _Kel.KelType, in their order."""
    return [_type(kel_type) for kel_type in types]


def declared_by(libraries):
    """The types that come with loading these libraries, sorted by full name.

    Raises OSError for a library that cannot be loaded.
    """
    before = set(Kel.types())
    for library in libraries:
        Kel.load(library)
    return [kel_type for kel_type in Kel.types() if kel_type not in before]


def _type(kel_type):
    cls = _Kel.pyType(kel_type)
    base = kel_type.underlyingType if kel_type.isEnumType else kel_type.baseType
    return {
        "name": kel_type.fullTypeName,
        "kind": _kind(kel_type),
        "signature": cls.__doc__,
        "base": base.fullTypeName if base else None,
        "constructor": _arguments(kel_type.constructorArgNameQ, kel_type.constructorArgTypeQ),
        "attributes": [_attribute(cls, attr) for attr in kel_type.attributeQ
                       if attr.scope is kel_type],
    }


def _kind(kel_type):
    for kind, is_it in (
            ("built-in", kel_type.isBuiltinType), ("enum", kel_type.isEnumType),
            ("bit set", kel_type.isBitSetType), ("union", kel_type.isUnionType),
            ("value", kel_type.isValue), ("constrainer", kel_type.isConstrainer),
            ("directory", kel_type.isDerived(Kel.Type("Kel::Dir"))), ("entity", kel_type.isEntity)):
        if is_it:
            return kind
    return "pointer"


def _arguments(names, types):
    return [{"name": name, "type": type_name} for name, type_name in zip(names, types)]


def _attribute(cls, attr):
    kind = ("constant" if attr.isEnumConst else "collection" if attr.isCollection else
            "function" if attr.isFunction else "attribute")
    return {
        "name": attr.name,
        "kind": kind,
        "signature": _signature(cls, attr),
        "type": attr.memberType.fullTypeName if attr.memberType else None,
        "index": attr.indexType.fullTypeName if attr.isCollection and attr.indexType else None,
        "arguments": _arguments(attr.instantiatingArgNameQ, attr.instantiatingArgTypeQ),
        "static": attr.isStatic,
        "readable": attr.readable,
        "writable": attr.writable,
        "traits": [text for flag, text in TRAITS if kind != "constant" and getattr(attr, flag)],
    }


def _signature(cls, attr):
    """The line that help() shows; of a constant its number, of a function with a parameter of a type
    that is not registered no parameters."""
    if attr.isEnumConst and attr.scope.isEnumType:
        return "%s = %d" % (attr.name, attr.enumValue)
    try:
        return vars(cls)[attr.name].__doc__
    except TypeError:
        return "%s : %s(<unknown>)" % (attr.name, attr.memberType.fullTypeName)


def _access(attribute):
    if attribute["kind"] in ("constant", "function"):
        return []
    if not attribute["writable"]:
        return ["read only"]
    return [] if attribute["readable"] else ["write only"]


def remarks(attribute):
    """What is told of an attribute beside its signature, a list of words."""
    return _access(attribute) + attribute["traits"]


def text(types):
    """One block a type: its kind and signature, and a line an attribute."""
    return "\n".join(_block(described) for described in types)


def _block(described):
    lines = ["%s   (%s)\n" % (described["signature"], described["kind"])]
    width = max([len(attribute["signature"]) for attribute in described["attributes"]] or [0])
    for attribute in described["attributes"]:
        said = ", ".join(remarks(attribute))
        line = "   %-*s   %s" % (min(width, 60), attribute["signature"], said)
        lines.append(line.rstrip() + "\n")
    return "".join(lines)


def as_json(types):
    """A JSON array of the types."""
    return json.dumps(types, indent=1, sort_keys=True, separators=(",", ": ")) + "\n"
