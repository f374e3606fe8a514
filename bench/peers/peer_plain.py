"""The same as plain Python classes: no locks, no C++, and no check of what is written."""


class Thing(object):
    def __init__(self, text="a text of some length", level=1):
        self.text = text
        self.level = level
        self.color = "blue"
        self.next = None

    def add(self, a, b):
        return a + b

    def __repr__(self):
        return "Thing(%s)" % self.text


class Deep2(Thing):
    pass


class Deep3(Deep2):
    pass


class Deep4(Deep3):
    pass


class Point(object):
    def __init__(self, x, y):
        self.x = x
        self.y = y

    def __add__(self, other):
        return Point(self.x + other.x, self.y + other.y)


class Owner(object):
    def __init__(self):
        self.price = {}

    def fill(self, size):
        self.price.update((str(i), i) for i in range(size))
