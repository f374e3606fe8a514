"""A stand-in for an entity that may not be there yet."""

import _Kel


class Mount(object):
    """Stands for the entity of that full name, from when it appears on.

    Once the entity is there, a mount has its attributes and can be given wherever the entity can.
    Before, it raises LookupError where it is used, its hash included. It finds the entity when it
    is used, and keeps it then. With a type, an entity of another type is refused.
    """

    __slots__ = ("_future",)

    def __init__(self, path, kelType=None):
        """The type is a _Kel.KelType. Nothing is looked up yet."""
        object.__setattr__(self, "_future", _Kel.entityFuture(path, kelType))

    def __kel_object__(self):
        """The entity; raises LookupError if there is none yet, or one of another type."""
        future = object.__getattribute__(self, "_future")
        if _Kel.isEntityFuture(future):
            try:
                future.convertToEntity()
            except Exception as error:
                # Another thread may have found it in the meantime.
                if _Kel.isEntityFuture(future):
                    raise LookupError(str(error))
        return future

    def __getattr__(self, name):
        if name.startswith("__"):
            raise AttributeError(name)  # what Python asks of any object
        return getattr(self.__kel_object__(), name)

    def __setattr__(self, name, value):
        setattr(self.__kel_object__(), name, value)

    def __delattr__(self, name):
        delattr(self.__kel_object__(), name)

    def __repr__(self):
        return "Mount(%r)" % object.__getattribute__(self, "_future").fullName

    def __eq__(self, other):
        if self is other:
            return True
        try:
            mine = self.__kel_object__()
            return mine == (other.__kel_object__() if isinstance(other, Mount) else other)
        except LookupError:
            return False  # nothing is equal to what is not there

    def __ne__(self, other):
        return not self == other

    def __hash__(self):
        return hash(self.__kel_object__())

    def __dir__(self):
        return dir(self.__kel_object__())
