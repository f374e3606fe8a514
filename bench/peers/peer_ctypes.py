"""The peer of ctypes: Python classes over functions of C, which hold the mutex within the call."""

import ctypes
import imp

_library = ctypes.CDLL(imp.find_module("model_c")[1])


def _function(name, result, *arguments):
    function = getattr(_library, name)
    function.restype, function.argtypes = result, arguments
    return function


_object, _text, _unsigned, _int = ctypes.c_void_p, ctypes.c_char_p, ctypes.c_uint, ctypes.c_int
_thing_new = _function("thingNew", _object, _text, _unsigned)
_thing_delete = _function("thingDelete", None, _object)
_level_get = _function("levelGet", _unsigned, _object)
_level_set = _function("levelSet", None, _object, _unsigned)
_text_get = _function("textGet", _text, _object)
_text_set = _function("textSet", None, _object, _text)
_color_get = _function("colorGet", _unsigned, _object)
_next_get = _function("nextGet", _object, _object)
_add = _function("add", _int, _object, _int, _int)
_hash = _function("hashOf", ctypes.c_size_t, _object)
_describe = _function("describe", _text, _object)
_point_new = _function("pointNew", _object, _int, _int)
_point_delete = _function("pointDelete", None, _object)
_point_plus = _function("pointPlus", _object, _object, _object)
_prices_new = _function("pricesNew", _object)
_prices_fill = _function("pricesFill", None, _object, _int)
_look = _function("look", ctypes.c_long, _object, _text)
_walk_new = _function("walkNew", _object, _object)
_walk_delete = _function("walkDelete", None, _object)
_step = _function("step", _text, _object)

COLORS = ("red", "blue")


class Thing(object):
    __slots__ = "_model", "_owns"

    def __init__(self, text="a text of some length", level=1):
        self._model, self._owns = _thing_new(text, level), True

    def __del__(self):
        if self._owns:
            _thing_delete(self._model)

    @property
    def level(self):
        return _level_get(self._model)

    @level.setter
    def level(self, level):
        _level_set(self._model, level)

    @property
    def text(self):
        return _text_get(self._model)

    @text.setter
    def text(self, text):
        _text_set(self._model, text)

    @property
    def color(self):
        return COLORS[_color_get(self._model)]

    @property
    def next(self):
        thing = Thing.__new__(Thing)
        thing._model, thing._owns = _next_get(self._model), False
        return thing

    def add(self, a, b):
        return _add(self._model, a, b)

    def __eq__(self, other):
        return self._model == other._model

    def __hash__(self):
        return _hash(self._model)

    def __repr__(self):
        return _describe(self._model)


class Deep2(Thing):
    __slots__ = ()


class Deep3(Deep2):
    __slots__ = ()


class Deep4(Deep3):
    __slots__ = ()


class Point(object):
    __slots__ = "_point",

    def __init__(self, x, y):
        self._point = _point_new(x, y)

    def __del__(self):
        _point_delete(self._point)

    def __add__(self, other):
        result = Point.__new__(Point)
        result._point = _point_plus(self._point, other._point)
        return result


class Walk(object):
    __slots__ = "_walk",

    def __init__(self, prices):
        self._walk = _walk_new(prices)

    def __del__(self):
        _walk_delete(self._walk)

    def __iter__(self):
        return self

    def next(self):
        key = _step(self._walk)
        if key is None:
            raise StopIteration
        return key


class Collection(object):
    __slots__ = "_prices",

    def __init__(self, prices):
        self._prices = prices

    def __getitem__(self, key):
        price = _look(self._prices, key)
        if price < 0:
            raise KeyError(key)
        return price

    def __iter__(self):
        return Walk(self._prices)


class Owner(object):
    __slots__ = "_prices",

    def __init__(self):
        self._prices = _prices_new()

    def fill(self, size):
        _prices_fill(self._prices, size)

    @property
    def price(self):
        return Collection(self._prices)
