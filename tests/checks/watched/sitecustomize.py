"""Python imports this by itself: a process with this folder on its path has the module watched."""

import imp
import sys


class Finder(object):
    """Lets kel_checked come ahead of _Kel."""

    def find_module(self, name, path=None):
        return self if name == "_Kel" else None

    def load_module(self, name):
        sys.meta_path.remove(self)
        import kel_checked
        return imp.load_module(name, *imp.find_module(name))


sys.meta_path.append(Finder())
