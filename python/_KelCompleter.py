"""Completion of names at Python's prompt that looks at no attribute and makes no class."""

import inspect
import rlcompleter

from Kel import Schema, Type, _typeNames


class Completer(rlcompleter.Completer):
    """As rlcompleter's, which reads each attribute that it finds to see whether it can be called.

    What stands before the last dot is evaluated, as there: for item.parent.na, that is item.parent.
    """

    def complete(self, text, state):
        if not text.strip():
            return None if state else "\t"  # at the start of a line it indents
        return rlcompleter.Completer.complete(self, text, state)

    def attr_matches(self, text):
        expression, _, start = text.rpartition(".")
        try:
            thing = eval(expression, self.namespace)
            describe = _describer(thing)
            if describe is None:
                return rlcompleter.Completer.attr_matches(self, text)
            return sorted("%s.%s" % (expression, describe(name)) for name in set(_names(thing))
                          if name.startswith(start))
        except Exception:  # as of a mount whose entity is not there yet
            return []


def _describer(thing):
    """A function that tells how a name of it is shown; None for what Python knows best."""
    if isinstance(thing, Schema):
        return lambda name: name + "(" * _isMade(thing, name)
    if _isClass(thing):
        return lambda name: name + "(" * _isCalled(thing, name)
    if _isClass(type(thing)) or type(thing).__module__ == "_Kel":
        return lambda name: name + "(" * _isCalled(type(thing), name)
    return None


def _names(thing):
    names = dir(thing)
    return names + dir(type(thing)) if _isClass(thing) else names


def _isClass(thing):
    """Whether it is the class of a runtime type. Its metaclass is known by name: to ask for it
    takes a class."""
    return (type(thing).__module__, type(thing).__name__) == ("_Kel", "Type")


def _isMade(schema, name):
    full = "%s::%s" % (schema._namespace, name)
    return full in _typeNames() and not Type(full).isEnumType


def _isCalled(cls, name):
    """Whether what an object has under that name is a function or a method; the class tells."""
    for each in cls.__mro__ + type(cls).__mro__:
        if name in vars(each):
            found = vars(each)[name]
            attr = getattr(cls, "kelType", None) and cls.kelType.attr(name)
            if attr is not None:
                return attr.isFunction
            if type(found).__name__ == "Attribute":
                return True  # newFoo or addFoo
            return callable(found) or inspect.isroutine(found)
    return False
