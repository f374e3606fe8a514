"""What is poked: the module's functions, and an object of every kind that the module hands out."""

import _Kel
import acme
import kel_objects
import odd

# Calls that end or block the process by their contract, by (target, operation).
ENDING = {
    ("_Kel", "releaseActivityLock"): "ends the process of a thread that does not own the lock",
    ("_Kel", "atforkPrepare"): "leaves the activity lock held for a fork that must follow",
    ("Odd::Coll().part", "add"): "a set with an internal index takes no key",
    ("Odd::Coll().intake", "enq"): "an instantiating queue takes no element that is there already",
    ("Odd::Coll().intake", "newMember"): "nor a member, without an index to find it by",
    ("KelAttr invasiveConst", "enumValue"): "a constant in a type that is no enum",
    ("KelAttr constant", "enumValue"): "likewise",
}

# Left with an error pending by its contract: an update that fails in part goes on to its end.
PENDING = ".update("

ARGUMENTS = {
    "Acme::Size": (1,), "Acme::Name": ("a",), "Acme::Thing": ("a",), "Acme::Item": ("a", 1),
    "Acme::StockItem": ("a", 1), "Acme::Badge": ("a", 1), "Acme::Store": ("a",),
    "Acme::Shelf": ("a",), "Odd::Node": (1,), "Odd::SpecialNode": (1,), "Odd::Vehicle": ("car",),
    "Odd::Refuser": (1,), "Odd::Link": (None, "red"), "Odd::Board": ("a",)}


def _filled(instance):
    """Gives the collections of an instance something to lose."""
    if isinstance(instance, acme.Store):
        instance.restock("a", 1)
        instance.price["a"] = 1
        instance.order.enq("a")
        instance.undo.push(1)
        instance.badge = ("a", 1)
    elif isinstance(instance, odd.Coll):
        instance.addNode(odd.Node(1))
        instance.track.push_back(1) if hasattr(instance.track, "push_back") else None
    return instance


def _maker(name):
    cls = _Kel.pyType(_Kel.typeNode(name))
    return lambda: _filled(cls(*ARGUMENTS.get(name, ())))


def _instances():
    """(label, maker) of an instance of each type of which there can be one."""
    for name in kel_objects.typeNames():
        if not name.startswith(("Acme::", "Odd::")):
            continue
        make = _maker(name)
        try:
            instance = make()
        except (NotImplementedError, TypeError):
            continue
        yield name + "()", make
        as_const = _Kel.const if _Kel.isValue(instance) else _Kel.constPtr
        yield "const " + name + "()", lambda make=make, as_const=as_const: as_const(make())


def _parts():
    """(label, maker) of what the attributes of the instances read as."""
    for label, make in _instances():
        instance = make()
        for name in sorted(set(dir(instance)) - set(dir(object))):
            try:
                part = getattr(instance, name)
            except Exception:
                continue
            if type(part).__module__ == "_Kel":
                yield (label + "." + name,
                       lambda make=make, name=name: getattr(make(), name))
            if _Kel.isCollection(part):
                yield (label + "." + name + " iterator",
                       lambda make=make, name=name: _iterator(getattr(make(), name)))


def _iterator(collection):
    try:
        return iter(collection)
    except Exception:
        return iter(())


def _backtrace():
    try:
        odd.Faults().failTraced("traced")
    except IndexError as error:
        return error.backtrace


def _shelf():
    shelf = acme.Shelf("shelf")
    return shelf


def _failed_mount():
    future = _Kel.entityFuture("/none", None)
    future.convertToFailedMount()
    return future


def _others():
    handmade = type(acme.Item)("Handmade", (object,), {})
    yield "_Kel", lambda: _Kel
    yield "_Kel.Type", lambda: type(acme.Item)
    yield "handmade class", lambda: handmade
    yield "handmade instance", handmade
    yield "KelType", lambda: _Kel.typeNode("Acme::Item")
    yield "enum KelType", lambda: _Kel.typeNode("Acme::Color")
    for name in _Kel.typeNode("Odd::Raw").attributeQ + _Kel.typeNode("Acme::Color").attributeQ:
        yield "KelAttr " + name.name, lambda name=name: name
    yield "KelAttr size", lambda: _Kel.typeNode("Acme::Item").attr("size")
    yield "Backtrace", _backtrace
    yield "EntityFuture", lambda: _Kel.entityFuture("/none", None)
    yield "typed EntityFuture", lambda: _Kel.entityFuture("/", _Kel.typeNode("Acme::Item"))
    yield "FailedMount", _failed_mount
    yield "root directory", lambda: kel_objects.entity("/")


def _classes():
    for name in kel_objects.typeNames():
        cls = _Kel.pyType(_Kel.typeNode(name))
        yield "class " + name, lambda cls=cls: cls
        if name.startswith(("Acme::", "Odd::")):
            for key, descriptor in sorted(vars(cls).items()):
                if type(descriptor).__module__ == "_Kel":
                    yield ("descriptor %s.%s" % (name, key),
                           lambda descriptor=descriptor: descriptor)


def targets():
    found = []
    for source in (_others, _instances, _parts, _classes):
        found.extend(source())
    return found
