# cython: language_level=2
# distutils: language=c++
"""The peer of Cython. The mutex is taken without the GIL and goes behind the conversion."""

from libcpp cimport bool
from libcpp.string cimport string

cdef extern from "Python.h":
    void PyEval_InitThreads()

cdef extern from "Peer.h" namespace "Bench" nogil:
    void lockTurn()
    void unlockTurn()

    ctypedef enum Color:
        pass

    cdef cppclass Model:
        Model(string, unsigned)
        unsigned level()
        void levelIs(unsigned)
        string& text()
        void textIs(string)
        Color color()
        int add(int, int)
        size_t hash()
        string describe()
        Model* next()

    cdef cppclass CPoint "Bench::Point":
        CPoint(int, int)
        CPoint* plus(CPoint&)

    cdef cppclass Position "Bench::Prices::Position":
        pass

    cdef cppclass Prices:
        void fill(int)
        const unsigned* find(string&)
        Position begin()
        const string* step(Position&)

PyEval_InitThreads()
cdef tuple names = ("red", "blue")


cdef class Thing:
    cdef Model* model
    cdef bool owns

    def __init__(self, bytes text=b"a text of some length", unsigned level=1):
        cdef string own = text
        with nogil:
            lockTurn()
            self.model = new Model(own, level)
        self.owns = True
        unlockTurn()

    def __dealloc__(self):
        if self.owns:
            del self.model

    @property
    def level(self):
        cdef unsigned level
        with nogil:
            lockTurn()
            level = self.model.level()
        result = level
        unlockTurn()
        return result

    @level.setter
    def level(self, unsigned level):
        with nogil:
            lockTurn()
            self.model.levelIs(level)
            unlockTurn()

    @property
    def text(self):
        cdef const string* text
        with nogil:
            lockTurn()
            text = &self.model.text()
        result = <bytes> text[0]
        unlockTurn()
        return result

    @text.setter
    def text(self, bytes text):
        cdef string own = text
        with nogil:
            lockTurn()
            self.model.textIs(own)
            unlockTurn()

    @property
    def color(self):
        cdef int color
        with nogil:
            lockTurn()
            color = <int> self.model.color()
        result = names[color]
        unlockTurn()
        return result

    @property
    def next(self):
        cdef Model* next
        with nogil:
            lockTurn()
            next = self.model.next()
        cdef Thing result = Thing.__new__(Thing)
        result.model = next
        unlockTurn()
        return result

    def add(self, int a, int b):
        cdef int total
        with nogil:
            lockTurn()
            total = self.model.add(a, b)
        result = total
        unlockTurn()
        return result

    def __hash__(self):
        cdef size_t value
        with nogil:
            lockTurn()
            value = self.model.hash()
            unlockTurn()
        return value

    def __richcmp__(self, other, int op):
        if type(self) is not type(other) or op not in (2, 3):
            return NotImplemented
        return ((<Thing> self).model is (<Thing> other).model) == (op == 2)

    def __repr__(self):
        cdef string text
        with nogil:
            lockTurn()
            text = self.model.describe()
        result = <bytes> text
        unlockTurn()
        return result


cdef class Deep2(Thing):
    pass


cdef class Deep3(Deep2):
    pass


cdef class Deep4(Deep3):
    pass


cdef class Point:
    cdef CPoint* point

    def __init__(self, int x, int y):
        with nogil:
            lockTurn()
            self.point = new CPoint(x, y)
            unlockTurn()

    def __dealloc__(self):
        del self.point

    def __add__(self, other):
        if not isinstance(self, Point) or not isinstance(other, Point):
            return NotImplemented
        cdef CPoint* left = (<Point> self).point
        cdef CPoint* right = (<Point> other).point
        cdef CPoint* total
        with nogil:
            lockTurn()
            total = left.plus(right[0])
        cdef Point result = Point.__new__(Point)
        result.point = total
        unlockTurn()
        return result


cdef class Owner:
    cdef Prices prices

    def fill(self, int size):
        self.prices.fill(size)

    @property
    def price(self):
        cdef Collection result = Collection.__new__(Collection)
        result.owner = self
        return result


cdef class Collection:
    cdef Owner owner

    def __getitem__(self, bytes key):
        cdef string own = key
        cdef const unsigned* found
        with nogil:
            lockTurn()
            found = self.owner.prices.find(own)
        result = found[0] if found else None
        unlockTurn()
        if result is None:
            raise KeyError(key)
        return result

    def __iter__(self):
        cdef Walk result = Walk.__new__(Walk)
        result.owner = self.owner
        with nogil:
            lockTurn()
            result.at = self.owner.prices.begin()
            unlockTurn()
        return result


cdef class Walk:
    cdef Owner owner
    cdef Position at

    def __iter__(self):
        return self

    def __next__(self):
        cdef const string* key
        with nogil:
            lockTurn()
            key = self.owner.prices.step(self.at)
        result = <bytes> key[0] if key else None
        unlockTurn()
        if result is None:
            raise StopIteration
        return result
