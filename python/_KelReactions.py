"""Functions that the activity loop calls: at a change of an object, or at a time.

A subscription lives until it is cancelled, whether or not its token is kept; a timer also ends once
it has called its function. A token is a context manager, which cancels at its end.
"""

import itertools

import _Kel
from _KelLock import activityLock

_live = {}  # token: what keeps its runtime object; a dictionary keeps no order
_numbers = itertools.count()


def subscriptions():
    """A list of the tokens of all subscriptions there are, oldest first."""
    return sorted(_live.keys(), key=lambda token: token._number)


class _Token(object):

    def __init__(self):
        self._number = next(_numbers)

    @property
    def active(self):
        """Whether the function may still be called."""
        return self in _live

    def cancel(self):
        """Ends the subscription; one that has ended stays so. What is queued is not delivered."""
        self._end(_live.pop(self, None))

    def _end(self, notifiee):
        pass

    def __enter__(self):
        return self

    def __exit__(self, *error):
        self.cancel()


class Reaction(_Token):
    """The token of a function that is told of the changes of an object; react() makes one."""

    def __init__(self, obj, handler, attributes):
        """The runtime makes nothing of a change here: the activity loop calls the handler."""
        super(Reaction, self).__init__()
        self.object = obj
        self.handler = handler
        self.attributes = attributes
        with activityLock():  # nothing is delivered before the filter stands
            notifiee = _Kel.newNotifiee(obj, _Kel.handle(handler))
            for name in attributes:
                notifiee.filterAttr[name] = True
            notifiee.filtered = bool(attributes)
            _live[self] = notifiee

    def __repr__(self):
        return "<%s of %s of %r, %s>" % (
            type(self).__name__, ", ".join(self.attributes) or "all attributes", self.object,
            "active" if self.active else "cancelled")


class Timer(_Token):
    """The token of a function that is called at a time; at() makes one."""

    def __init__(self, time, handler):
        super(Timer, self).__init__()
        self.time = time
        self.handler = handler
        cls = _Kel.pyType(_Kel.typeNode("Kel::PyClockNotifiee"))
        notifiee = cls(_Kel.singleton("Kel::Clock"), _Kel.handle(self._reached))
        _live[self] = notifiee
        try:
            # A time of 0 would stand for none.
            notifiee.timeMinProxy = 1e-9 if time <= 0 else time
        except:
            self.cancel()
            raise

    def _reached(self):
        if _live.pop(self, None) is not None:
            self.handler()

    def _end(self, notifiee):
        if notifiee is not None:
            notifiee.timeMinProxy = 0

    def __repr__(self):
        return "<%s at %r, %s>" % (
            type(self).__name__, self.time, "active" if self.active else "over")


def react(obj, handler, *attributes):
    """Has the activity loop call handler(attr, key) after each change of the object.

    attr is the _Kel.KelAttr that changed, key the member's key for a keyed collection, the element
    for a set, otherwise None. With names of attributes, changes of those alone. The object may be a
    mount. Returns a Reaction. An exception in the handler ends the process.

    Raises AttributeError for a name that the object's type does not have, TypeError for what is no
    runtime object or cannot be called.
    """
    if not callable(handler):
        raise TypeError("'%s' object is not callable" % type(handler).__name__)
    obj = real(obj)
    kel_type = getattr(obj, "kelType", None)
    for name in attributes:
        if kel_type is not None and kel_type.attr(name) is None:
            raise AttributeError("%s has no attribute %s" % (kel_type.fullTypeName, name))
    return Reaction(obj, handler, attributes)


def real(obj):
    """What a mount stands for; any other object itself."""
    return obj.__kel_object__() if hasattr(type(obj), "__kel_object__") else obj


def at(time, handler):
    """Has the activity loop call handler() once the clock has reached that time, see now().

    A time that has passed is due at once. Returns a Timer. An exception in the handler ends the
    process. Raises TypeError for what cannot be called, and what writing the time raises.
    """
    if not callable(handler):
        raise TypeError("'%s' object is not callable" % type(handler).__name__)
    return Timer(time, handler)
