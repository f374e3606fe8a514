"""The comfortable face of the runtime: libraries of types, and their classes by name."""

import ctypes
import os
import sys
import types

import _Kel

__all__ = ["load", "Schema"]

_loaded = {}


def load(name):
    """Loads lib<name>.so, which registers its types with the runtime as it loads.

    The library is looked for beside this module and then where the system's loader looks.
    Loading one twice does nothing. Raises OSError if there is none of that name.
    """
    if name not in _loaded:
        file_name = "lib%s.so" % name
        beside = os.path.join(os.path.dirname(os.path.abspath(__file__)), file_name)
        path = beside if os.path.exists(beside) else file_name
        _loaded[name] = ctypes.CDLL(path, mode=ctypes.RTLD_GLOBAL)


class Schema(types.ModuleType):
    """A module whose attributes are the classes of one namespace of runtime types.

    A class is made when it is first asked for: acme.Item is the class of the type Acme::Item.
    """

    def __init__(self, name, namespace, doc=None):
        super(Schema, self).__init__(name, doc)
        self._namespace = namespace

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
