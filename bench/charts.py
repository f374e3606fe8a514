"""Draws figures as SVG, with the standard library alone: dots along a logarithmic axis, and panels of
curves over two of them."""

from __future__ import unicode_literals

import math
from xml.sax.saxutils import escape

WIDTH, MARGIN = 1000, 20
INK, PALE = "#1f2933", "#dde3e8"
ROW, LINE = 22, 16
MARK = 4.5  # half the width of a mark
PANEL_HEIGHT, PANEL_TOP, PANEL_LEFT, PANEL_BOTTOM = 190, 30, 46, 42
# (color, mark) by subject, so that those who see no colors can tell them apart.
LOOK = {
    "kel": ("#c2410c", "circle"), "floor": ("#1f2933", "bar"), "same turns": ("#6b7280", "bar"),
    "Cython": ("#2563eb", "square"), "SWIG": ("#15803d", "diamond"), "pybind11": ("#7c3aed", "up"),
    "ctypes": ("#b45309", "down"), "plain class": ("#0e7490", "cross"), "dict": ("#be185d", "square"),
    "make": ("#2563eb", "square"), "tell": ("#c2410c", "circle"), "drop": ("#15803d", "diamond"),
    "arm": ("#2563eb", "square"), "arm and fire": ("#c2410c", "circle"),
    "drop, floor": ("#1f2933", "bar"), "write, floor": ("#1f2933", "bar"),
    "before": ("#6b7280", "square"), "after": ("#c2410c", "circle"),
}
NAMES = {"kel": "_Kel", "dict": "dict of Python"}
SHAPES = {
    "square": ((-1, -1), (1, -1), (1, 1), (-1, 1)), "diamond": ((0, -1.3), (1.3, 0), (0, 1.3), (-1.3, 0)),
    "up": ((0, -1.2), (1.2, 1), (-1.2, 1)), "down": ((0, 1.2), (1.2, -1), (-1.2, -1)),
    "bar": ((-0.4, -1.6), (0.4, -1.6), (0.4, 1.6), (-0.4, 1.6)),
}


def shown(value):
    """What is no more than the noise of an empty loop still has a place."""
    return max(1.0, value)


class Axis(object):
    """A logarithmic axis from the power of ten below the least value to the one above the greatest."""

    def __init__(self, values, start, end, steps=(1,)):
        self.low = math.floor(math.log10(min(values)) + 1e-9)
        self.high = max(self.low + 1, math.ceil(math.log10(max(values)) - 1e-9))
        # Between two powers of ten alone there is room for more.
        self.start, self.end, self.steps = start, end, steps if self.high - self.low > 1 else (1, 2, 5)

    def place(self, value):
        share = (math.log10(value) - self.low) / (self.high - self.low)
        return self.start + share * (self.end - self.start)

    def ticks(self):
        for power in range(int(self.low), int(self.high) + 1):
            for step in self.steps:
                if step == 1 or power < self.high:
                    yield step * 10.0 ** power


class Points(object):
    """An axis of the given values, as far from each other."""

    def __init__(self, values, start, end):
        self.values = sorted(values)
        self.start, self.end = start, end

    def place(self, value):
        room = self.end - self.start
        return self.start + room * (self.values.index(value) + 0.5) / len(self.values)

    def ticks(self):
        return self.values


def number(value):
    for size, unit in (1e6, "M"), (1e3, "k"):
        if value >= size:
            return "%g%s" % (value / size, unit)
    return "%g" % value


class Picture(object):
    def __init__(self, title):
        self.parts, self.y = [], MARGIN + 18
        self.text(MARGIN, self.y, title, 18, weight="bold")
        self.y += 14

    def text(self, x, y, text, size=12, anchor="start", weight="normal"):
        self.parts.append(
            '<text x="%.1f" y="%.1f" font-size="%d" text-anchor="%s" font-weight="%s">%s</text>'
            % (x, y, size, anchor, weight, escape(text)))

    def line(self, points, color, width=1):
        self.parts.append('<polyline points="%s" fill="none" stroke="%s" stroke-width="%g"/>'
                          % (" ".join("%.1f,%.1f" % point for point in points), color, width))

    def mark(self, x, y, name):
        color, shape = LOOK[name]
        if shape == "circle":
            self.parts.append('<circle cx="%.1f" cy="%.1f" r="%g" fill="%s"/>' % (x, y, MARK, color))
        elif shape == "cross":
            self.line([(x - MARK, y - MARK), (x + MARK, y + MARK)], color, 2)
            self.line([(x - MARK, y + MARK), (x + MARK, y - MARK)], color, 2)
        else:
            points = " ".join("%.1f,%.1f" % (x + MARK * a, y + MARK * b) for a, b in SHAPES[shape])
            self.parts.append('<polygon points="%s" fill="%s"/>' % (points, color))

    def legend(self, names):
        x = MARGIN + 8
        self.y += 10
        for name in names:
            self.mark(x, self.y, name)
            self.text(x + 11, self.y + 4, NAMES.get(name, name))
            x += 34 + 7.5 * len(NAMES.get(name, name))
        self.y += 20

    def svg(self):
        return "\n".join(
            ['<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 %d %d" '
             'font-family="system-ui, sans-serif" fill="%s">' % (WIDTH, self.y + MARGIN, INK),
             '<rect width="100%" height="100%" fill="#ffffff"/>'] + self.parts + ["</svg>", ""])


def dots(title, unit, rows, names):
    """A row of marks for each (title, value by name)."""
    picture = Picture(title)
    picture.legend(names)
    labels = 300
    axis = Axis([shown(value) for _, values in rows for value in values.values()], MARGIN + labels,
                WIDTH - MARGIN - 10, (1, 2, 5))
    top, bottom = picture.y + 18, picture.y + 18 + ROW * len(rows)
    for tick in axis.ticks():
        picture.line([(axis.place(tick), top), (axis.place(tick), bottom)], PALE)
        picture.text(axis.place(tick), picture.y + 12, number(tick), 11, "middle")
    picture.text(MARGIN + labels - 12, picture.y + 12, unit, 11, "end")
    for i, (label, values) in enumerate(rows):
        y = top + ROW * (i + 0.5)
        picture.line([(MARGIN, top + ROW * i), (WIDTH - MARGIN, top + ROW * i)], PALE, 0.5)
        picture.text(MARGIN, y + 4, label)
        for name in reversed(names):
            if name in values:
                picture.mark(axis.place(shown(values[name])), y, name)
    picture.y = bottom
    return picture.svg()


def curve(values):
    """Sorted (number, value) of a map from texts of numbers."""
    return sorted((float(key), value) for key, value in values.items())


class Panel(object):
    """Curves of one entry: {"title", "unit", "curves": {name: {text of a number: value}}}."""

    def __init__(self, picture, entry, along, left, width, evenly):
        self.picture, self.entry, self.along = picture, entry, along
        self.curves = dict((name, curve(values)) for name, values in entry["curves"].items())
        left, right = left + PANEL_LEFT, left + width - 24
        self.top, self.bottom = picture.y + PANEL_TOP, picture.y + PANEL_HEIGHT
        self.left, self.right = left, right
        numbers = set(at for points in self.curves.values() for at, _ in points)
        self.x = (Points if evenly else Axis)(numbers, left, right)
        values = [shown(value) for points in self.curves.values() for _, value in points]
        self.y = Axis(values, self.bottom, self.top)

    def draw(self, names):
        picture = self.picture
        picture.text(self.left - 34, self.top - 12, "%s, %s" % (self.entry["title"], self.entry["unit"]), 12,
                     weight="bold")
        for tick in self.y.ticks():
            y = self.y.place(tick)
            picture.line([(self.left, y), (self.right, y)], PALE)
            picture.text(self.left - 6, y + 4, number(tick), 11, "end")
        for tick in self.x.ticks():
            picture.text(self.x.place(tick), self.bottom + 16, number(tick), 11, "middle")
        picture.text((self.left + self.right) / 2, self.bottom + 32, self.along, 11, "middle")
        for name in reversed([name for name in names if name in self.curves]):
            points = [(self.x.place(at), self.y.place(shown(value))) for at, value in self.curves[name]]
            picture.line(points, LOOK[name][0], 1.5)
            for x, y in points:
                picture.mark(x, y, name)


def panels(title, entries, along, names, columns=3, evenly=False):
    """A panel for each entry; `along` says what the horizontal axis counts."""
    picture = Picture(title)
    picture.legend([name for name in names if any(name in entry["curves"] for entry in entries)])
    width = (WIDTH - 2 * MARGIN) / columns
    for first in range(0, len(entries), columns):
        for i, entry in enumerate(entries[first:first + columns]):
            Panel(picture, entry, along, MARGIN + i * width, width, evenly).draw(names)
        picture.y += PANEL_HEIGHT + PANEL_BOTTOM
    return picture.svg()
