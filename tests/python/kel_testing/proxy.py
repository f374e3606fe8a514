"""Mount proxies: Python objects that stand for a runtime object."""


class Proxy(object):
    """Stands for `target`, and remembers how often it was asked and what it saw."""

    def __init__(self, target, look=None):
        self.target = target
        self.look = look
        self.calls = 0
        self.seen = []

    def __kel_object__(self):
        self.calls += 1
        if self.look is not None:
            self.seen.append(self.look())
        return self.target


class RaisingProxy(object):
    def __init__(self, error):
        self.error = error

    def __kel_object__(self):
        raise self.error
