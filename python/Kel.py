"""The comfortable face of the runtime: types and objects by name, reactions, timers, locks."""

import collections
import ctypes
import os
import sys
from types import ModuleType

import _Kel
from _KelLock import activityLock
from _KelMount import Mount
from _KelReactions import Reaction, Timer, at, react, subscriptions

__all__ = ["Allocation", "Mount", "Reaction", "Schema", "Timer", "Type", "Value", "activityLock",
           "allocations", "at", "completer", "entity", "load", "newInstance", "now", "react", "root", "run",
           "subscriptions", "types", "watchdog"]

_loaded = {}


class Allocation(collections.namedtuple("Allocation", "objects bytes")):
    """How many objects of one C++ type are alive, and the bytes of their own size."""

    __slots__ = ()



def load(name):
    """Loads lib<name>.so, which registers its types with the runtime as it loads.

    The library is looked for beside this module and then where the system's loader looks; a name
    with a slash is the path of the library itself. Loading one twice does nothing. Raises OSError if
    there is none of that name.
    """
    if name not in _loaded:
        path = name
        if os.sep not in name:
            file_name = "lib%s.so" % name
            beside = os.path.join(os.path.dirname(os.path.abspath(__file__)), file_name)
            path = beside if os.path.exists(beside) else file_name
        _loaded[name] = ctypes.CDLL(path, mode=ctypes.RTLD_GLOBAL)


class Schema(ModuleType):
    """A module whose attributes are the classes of one namespace of runtime types.

    A class is made when it is first asked for: acme.Item is the class of the type Acme::Item.
    """

    def __init__(self, name, namespace, doc=None):
        super(Schema, self).__init__(name, doc)
        self._namespace = namespace

    def __dir__(self):
        return sorted(set(self.__dict__).union(self.__all__))

    @property
    def __all__(self):
        """The names of the types, so that help() and `from acme import *` have them."""
        within = self._namespace + "::"
        names = [name[len(within):] for name in _typeNames() if name.startswith(within)]
        return sorted(name for name in names if "::" not in name)

    def __getattr__(self, name):
        if name.startswith("_"):
            raise AttributeError(name)
        try:
            kel_type = _Kel.typeNode("%s::%s" % (self._namespace, name))
        except TypeError:
            raise AttributeError("there is no type %s::%s" % (self._namespace, name))
        cls = _Kel.pyType(kel_type)
        setattr(self, name, cls)
        return cls

    @classmethod
    def install(cls, module_name, namespace):
        """Puts a schema in the place of the module of that name, which calls this in its body."""
        module = sys.modules[module_name]
        schema = cls(module_name, namespace, module.__doc__)
        schema.__file__ = module.__file__
        # The module that is replaced must live on: its end would empty its functions' globals.
        schema._module = module
        sys.modules[module_name] = schema
        return schema


def Type(name):
    """The _Kel.KelType of that full name. Raises TypeError if there is none."""
    return _Kel.typeNode(name)


def types(namespace=""):
    """The _Kel.KelType of each registered type, or of each in that namespace, sorted by full name.

    No class is made of any.
    """
    within = namespace + "::" if namespace else ""
    return [_Kel.typeNode(name) for name in _typeNames() if name.startswith(within)]


def _typeNames():
    return _Kel.singleton("Kel::TypeRegistry").typeNames.splitlines()


def newInstance(typeName, *args):
    """A new object or value of the type of that full name, made from the constructor's arguments."""
    return _Kel.pyType(_Kel.typeNode(typeName))(*args)


def Value(typeName, **attributes):
    """A new value of the type of that full name, with these attributes; the repr of a value calls it.

    Attributes that the constructor asks for go to the constructor, if they are all there, the others
    are written. One that cannot be written must have its value already.
    """
    cls = _Kel.pyType(_Kel.typeNode(typeName))
    kel_type = cls.kelType
    if not kel_type.isValue:
        raise TypeError("%s is not a value type" % kel_type.fullTypeName)
    names = kel_type.constructorArgNameQ
    args = ()
    if names and all(name in attributes for name in names):
        args = [attributes.pop(name) for name in names]
    fixed = dict((name, attributes.pop(name)) for name in list(attributes)
                 if _isFixed(kel_type.attr(name)))
    value = cls(*args, **attributes)
    for name in fixed:
        if getattr(value, name) != fixed[name]:
            setattr(value, name, fixed[name])  # says why that cannot be
    return value


def _isFixed(attr):
    return attr is not None and not attr.writable


def root():
    """The root directory."""
    return _Kel.singleton("Kel::Dir")


def entity(path):
    """The entity of that full name. Raises LookupError if there is none."""
    found = _Kel.entityFuture(path, None)
    try:
        found.convertToEntity()
    except Exception as error:
        raise LookupError(str(error))
    return found


def now():
    """The time of the runtime's clock in seconds, as a float; timers count in it."""
    return _Kel.singleton("Kel::Clock").now


def run(untilIdle=False):
    """Runs the activity loop on this thread: until it is stopped, or until nothing is pending or due.

    Ctrl-C stops it in order; KeyboardInterrupt follows. Raises SystemError if a loop runs already.
    """
    manager = _Kel.singleton("Kel::ActivityManager")
    if untilIdle:
        manager.runUntilIdle()
    else:
        manager.run()


def watchdog(seconds):
    """Tells on standard error who holds the activity lock for longer than that, and when that ends.

    Told is the thread, with its stack in Python and in C++, and the threads that wait for the lock
    with theirs, by a thread of the runtime's that needs neither the lock nor the GIL. 0 turns it
    off. A forked child is not watched.
    """
    _Kel.singleton("Kel::Watchdog").seconds = seconds


def allocations():
    """A dictionary from the name of a C++ type of runtime objects to its Allocation.

    Types of which no object was ever made are left out.
    """
    with activityLock():
        tracker = _Kel.singleton("Kel::AllocationTracker")
        tracker.update()
        return dict((name, Allocation(one.objects, one.bytes)) for name, one in tracker.type.iteritems())


def completer(namespace=None):
    """A function for readline.set_completer, so that the Tab key completes names at Python's prompt.

    Unlike the one of rlcompleter it reads no attribute of an object and makes no class. The names are
    those of the dictionary, or of __main__.
    """
    from _KelCompleter import Completer  # readline comes with it, which only a prompt wants
    return Completer(namespace).complete
