"""What kel-browse asks of an agent, in which this runs: the directory tree, entities, collections.

Everything is read as it stands at that moment, and no function is called but by call(). Questions
and answers are JSON. An answer that cannot be given is {"error": text}.
"""

import ast
import itertools
import json
import os

import Kel
import _Kel
import _KelSchema
import _KelSchemaPage

PAGE = 100  # members of a directory or a collection that are told at once
TEXT_LIMIT = 400  # characters of a value
_QUESTION_LIMIT = 100  # directories and collections of one view

_attributes = {}  # of a type, by its name: descriptions, those of its bases first


def view(question):
    """What a page shows: an entity, the directories that are open, the collections that are.

    {"entity": path, "directories": {path: start}, "collections": {attribute: start}}
    """
    asked = json.loads(question)
    path = _bytes(asked["entity"])
    answer = _answered(_entity, path)
    collections = asked.get("collections", {}).items()[:_QUESTION_LIMIT]
    directories = asked.get("directories", {}).items()[:_QUESTION_LIMIT]
    return json.dumps({
        "process": os.getpid(),
        "page": PAGE,
        "entity": answer,
        "collections": dict((name, _answered(_members, path, _bytes(name), start))
                            for name, start in collections),
        "directories": dict((name, _answered(_directory, _bytes(name), start))
                            for name, start in directories)})


def call(question):
    """Calls a function of an entity: {"entity": path, "function": name, "arguments": [text, ...]}."""
    asked = json.loads(question)
    return json.dumps(_answered(_call, _bytes(asked["entity"]), _bytes(asked["function"]),
                                [_bytes(text) for text in asked["arguments"]]))


def types(title):
    """A page of HTML on all types that the agent knows."""
    return _KelSchemaPage.page(title, _KelSchema.describe(Kel.types()))


def _answered(function, *args):
    try:
        return function(*args)
    except Exception as error:  # anything that the agent's own code raises
        return {"error": _failure(error)}


def _failure(error):
    try:
        message = str(error)
    except Exception:
        message = ""
    name = type(error).__name__
    return _cut("%s: %s" % (name, _text(message)) if message else name)


def _entity(path):
    entity = Kel.entity(path)
    kel_type = entity.kelType
    described = _described(kel_type)
    return {
        "path": path,
        "type": kel_type.fullTypeName,
        "signature": type(entity).__doc__,
        "attributes": [_attribute(entity, each) for each in described
                       if each["kind"] not in ("function", "constant")],
        "functions": [_function(each) for each in described if each["kind"] == "function"],
    }


def _described(kel_type):
    name = kel_type.fullTypeName
    if name not in _attributes:
        bases = _described(kel_type.baseType) if kel_type.baseType else []
        (own,) = _KelSchema.describe([kel_type])
        hidden = set(each["name"] for each in own["attributes"])
        _attributes[name] = [each for each in bases if each["name"] not in hidden] + own["attributes"]
    return _attributes[name]


def _attribute(entity, described):
    if described["readable"] or described["kind"] == "collection":
        value = _read(entity, described["name"])
    else:
        value = {"kind": "none", "text": "cannot be read"}
    return {"name": described["name"], "signature": described["signature"], "value": value,
            "remarks": ", ".join(_KelSchema.remarks(described))}


def _read(entity, name):
    try:
        return _shown(getattr(entity, name))
    except Exception as error:
        return {"kind": "error", "text": _failure(error)}


def _shown(value):
    """A value as a kind and a text, with a path where it leads to an entity."""
    if value is None:
        return {"kind": "none", "text": "None"}
    if _Kel.isCollection(value):
        count = len(value)
        return {"kind": "collection", "text": "1 member" if count == 1 else "%d members" % count}
    kel_type = getattr(value, "kelType", None)
    if isinstance(kel_type, type(Kel.Type("U32"))):
        return _shown_object(value, kel_type)
    return {"kind": "value", "text": _cut(_plain(value))}


def _shown_object(value, kel_type):
    if kel_type.isEntity:
        path = _text(value.fullName)
        shown = {"kind": "entity", "text": "%s  (%s)" % (path, kel_type.fullTypeName)}
        if path.startswith("/"):
            shown["path"] = path
        return shown
    if _Kel.isValue(value):
        return {"kind": "value", "text": _cut(_text(repr(value)))}
    return {"kind": "object", "text": _cut(_summary(value, kel_type))}


def _summary(value, kel_type):
    """One level of what an object that is no entity holds: pointers may lead round in a circle."""
    parts = []
    for each in _described(kel_type):
        if each["kind"] == "attribute" and each["readable"] and not each["static"]:
            parts.append("%s=%s" % (each["name"], _member_text(value, each["name"])))
    return "%s(%s)" % (kel_type.fullTypeName, ", ".join(parts))


def _member_text(value, name):
    try:
        member = getattr(value, name)
    except Exception as error:
        return "<%s>" % type(error).__name__
    kel_type = getattr(member, "kelType", None)
    if kel_type is None or _Kel.isValue(member):
        return _plain(member)
    return _text(member.fullName) if kel_type.isEntity else kel_type.fullTypeName


def _plain(value):
    if isinstance(value, str):
        try:
            return json.dumps(value.decode("utf-8"), ensure_ascii=False)
        except UnicodeDecodeError:
            pass  # bytes
    return _text(repr(value))


def _text(value):
    return value if isinstance(value, unicode) else str(value).decode("utf-8", "replace")


def _bytes(text):
    return text.encode("utf-8") if isinstance(text, unicode) else text


def _cut(text):
    if len(text) <= TEXT_LIMIT:
        return text
    return u"%s\u2026 (%d characters more)" % (text[:TEXT_LIMIT], len(text) - TEXT_LIMIT)


def _directory(path, start):
    directory = Kel.entity(path)
    members = itertools.islice(directory.iteritems(), _start(start), _start(start) + PAGE)
    return {"start": _start(start), "count": len(directory),
            "entries": [_answered(_entry, name, entity) for name, entity in members]}


def _entry(name, entity):
    kel_type = entity.kelType
    return {"name": _text(name), "path": _text(entity.fullName), "type": kel_type.fullTypeName,
            "isDirectory": kel_type.isDerived(Kel.Type("Kel::Dir"))}


def _members(path, name, start):
    collection = getattr(Kel.entity(path), name)
    if not _Kel.isCollection(collection):
        raise TypeError("%s is no collection" % name)
    return {"start": _start(start), "count": len(collection),
            "members": [[_shown(key), _shown(member)] for key, member in _pairs(collection, start)]}


def _pairs(collection, start):
    """Keys and members; those of a set, a queue or a stack are numbered instead."""
    attr = collection.kelAttr
    first, last = _start(start), _start(start) + PAGE
    if attr.isSet:
        return enumerate(itertools.islice(collection, first, last), first)
    if attr.isQueueCollection or attr.isStackCollection:
        return enumerate(itertools.islice(collection.itervalues(), first, last), first)
    return itertools.islice(collection.iteritems(), first, last)


def _start(start):
    return max(0, int(start))


def _function(described):
    arguments = []
    for each in described["arguments"]:
        kind = _argument_kind(each["type"])
        arguments.append({"name": each["name"], "type": each["type"], "kind": kind,
                          "choices": _constants(each["type"]) if kind == "enum" else []})
    return {"name": described["name"], "signature": described["signature"],
            "arguments": arguments,
            "callable": all(each["kind"] for each in arguments)}


def _argument_kind(type_name):
    """How an argument of that type can be given as a text; None if it cannot."""
    try:
        kel_type = Kel.Type(type_name)
    except TypeError:
        return None
    if kel_type.isEnumType:
        return "enum"
    if type_name in ("Kel::String", "Kel::Bytes", "char"):
        return "text"
    if kel_type.isBuiltinType:
        return "literal"
    if kel_type.isEntity:
        return "path"
    return "either" if kel_type.isValue else None


def _constants(type_name):
    return [attr.name for attr in Kel.Type(type_name).attributeQ if attr.isEnumConst]


def _argument(type_name, text):
    kind = _argument_kind(type_name)
    if kind == "path":
        return Kel.entity(text) if text else None
    if kind in ("text", "enum"):
        return text
    try:
        return ast.literal_eval(text.strip())
    except (SyntaxError, ValueError):
        if kind == "either":
            return text
        raise ValueError("%s is no %s" % (text or "nothing", type_name))


def _call(path, name, texts):
    entity = Kel.entity(path)
    (function,) = [each for each in _described(entity.kelType)
                   if each["kind"] == "function" and each["name"] == name]
    types_of = [each["type"] for each in function["arguments"]]
    if len(types_of) != len(texts):
        raise TypeError("%s takes %d arguments, not %d" % (name, len(types_of), len(texts)))
    args = [_argument(type_name, text) for type_name, text in zip(types_of, texts)]
    return {"result": _shown(getattr(entity, name)(*args))}
