"""What the tests of reactors share."""

import _Kel

manager = _Kel.singleton("Kel::ActivityManager")
config = _Kel.singleton("Kel::ActivityManagerConfig")
clock = _Kel.singleton("Kel::Clock")
ClockNotifiee = _Kel.pyType(_Kel.typeNode("Kel::PyClockNotifiee"))


def notifiee(notifier, function, *names):
    """A notifiee that calls the function; with names for those attributes alone."""
    made = _Kel.newNotifiee(notifier, _Kel.handle(function))
    if names:
        made.filtered = True
        for name in names:
            made.filterAttr[name] = True
    return made


def timer(function, time=0.0):
    """A clock notifiee that calls the function, at that time of the clock if it is not 0."""
    made = ClockNotifiee(clock, _Kel.handle(function))
    made.timeMinProxy = time
    return made


class Seen(list):
    """A handler that notes (attribute's name, key) of each call."""

    def __call__(self, attr, key):
        self.append((attr.name, key))

    def take(self):
        """What was noted since the last time."""
        taken = self[:]
        del self[:]
        return taken
