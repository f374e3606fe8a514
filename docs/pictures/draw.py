#!/usr/bin/env python
"""Draws the pictures of this folder: draw.py [--check] NAME.txt... makes each NAME.svg.

With --check nothing is written; the exit status tells whether the pictures are what they should be.
A text describes cases, each a row of steps in time and, below, a row a lock: `====` where it is
held, `~~~~` where it is waited for. Or it describes layers, each a row of boxes whose titles end with
a colon, and what one layer wants of the next. Runs under Python 2.7 and 3, with the standard library alone.
"""

from __future__ import print_function, unicode_literals

import io
import sys
from xml.sax.saxutils import escape

WIDTH, MARGIN, NAMES = 1000, 20, 110  # of the picture, around it, for the names of the locks
BAR, GAP, LINE = 22, 6, 15  # height of a bar, between bars, of a line of text
CHAR = 6.3  # width of a character of the steps, on average
INK, PALE = "#1f2933", "#cbd2d9"
# Of locks or layers, in order of their appearance.
COLORS = ("#9cc5f0", "#f6d186", "#b5dcb0", "#e4c9ea", "#d8dee6")


class Case(object):
    """A row of steps; `locks` are pairs of a name and what holds at each step."""

    def __init__(self, title):
        self.title = title
        self.steps = []
        self.locks = []


class Layer(object):
    """A row of boxes, which are pairs of a title and a text; `below` is what it wants of the next."""

    def __init__(self, name, boxes):
        self.name = name
        self.boxes = [box(cell) for cell in boxes]
        self.below = None


def box(cell):
    title, colon, text = cell.partition(":")
    if not colon:
        raise ValueError("the box %r has no title" % str(cell))
    return title.strip(), text.strip()


def state(cell):
    """What a cell says: held, waited for, or neither."""
    for mark, meaning in ("=", "held"), ("~", "waits"):
        if cell and not cell.strip(mark):
            return meaning
    if cell:
        raise ValueError("%r is neither ==== nor ~~~~" % str(cell))
    return None


def read(text):
    """The title and the cases of a text."""
    title, cases = "", []
    for number, line in enumerate(text.splitlines(), 1):
        name, bar, rest = line.partition("|")
        name, cells = name.strip(), [cell.strip() for cell in rest.split("|")]
        if not line.strip() or line.startswith("#"):
            continue
        try:
            if not bar:
                raise ValueError("there is no |")
            if name == "title":
                title = cells[0]
            elif name == "case":
                cases.append(Case(cells[0]))
            elif name == "layer":
                cases.append(Layer(cells[0], cells[1:]))
            elif not cases:
                raise ValueError("a case must come first")
            elif name == "below":
                cases[-1].below = cells[0]
            elif name == "step":
                cases[-1].steps = cells
            elif len(cells) != len(cases[-1].steps):
                raise ValueError("%d cells for %d steps" % (len(cells), len(cases[-1].steps)))
            else:
                cases[-1].locks.append((name, [state(cell) for cell in cells]))
        except ValueError as error:
            raise ValueError("line %d: %s" % (number, error))
    return title, cases


def wrapped(text, width):
    """The lines of a text that is to fit that many pixels."""
    lines = [""]
    for word in text.split():
        if lines[-1] and len(lines[-1] + " " + word) * CHAR > width:
            lines.append("")
        lines[-1] = (lines[-1] + " " + word).strip()
    return lines


def columns(steps):
    """The left edges of the steps, and the right one of the last: wide for long texts."""
    room = float(WIDTH - 2 * MARGIN - NAMES)
    weights = [max(10, min(26, len(step))) for step in steps]
    edges = [MARGIN + NAMES]
    for weight in weights:
        edges.append(edges[-1] + room * weight / sum(weights))
    return edges


def runs(states):
    """(first, end, state) of the longest rows of one state that is not None."""
    start = 0
    for i in range(1, len(states) + 1):
        if i == len(states) or states[i] != states[start]:
            if states[start]:
                yield start, i, states[start]
            start = i


class Picture(object):
    def __init__(self):
        self.parts = []
        self.colors = {}
        self.y = MARGIN

    def text(self, x, y, text, size=12, anchor="start", weight="normal"):
        self.parts.append(
            '<text x="%.1f" y="%.1f" font-size="%d" text-anchor="%s" font-weight="%s">%s</text>'
            % (x, y, size, anchor, weight, escape(text)))

    def rule(self, x, y, end):
        self.parts.append('<line x1="%.1f" y1="%.1f" x2="%.1f" y2="%.1f" stroke="%s"/>'
                          % (x, y, x, end, PALE))

    def bar(self, left, right, y, color, meaning):
        held = meaning == "held"
        self.parts.append(
            '<rect x="%.1f" y="%.1f" width="%.1f" height="%d" rx="3" fill="%s" stroke="%s"%s/>'
            % (left + 2, y, right - left - 4, BAR, color if held else "#ffffff", INK,
               "" if held else ' stroke-dasharray="4 3"'))
        self.text((left + right) / 2, y + BAR - 7, meaning, 11, "middle")

    def color(self, lock):
        return self.colors.setdefault(lock, COLORS[len(self.colors) % len(COLORS)])

    def case(self, case):
        edges = columns(case.steps)
        texts = [wrapped(step, edges[i + 1] - edges[i] - 8) for i, step in enumerate(case.steps)]
        self.text(MARGIN, self.y + 14, case.title, 15, weight="bold")
        top = self.y + 26
        bars = top + LINE * max(len(lines) for lines in texts) + GAP
        end = bars + len(case.locks) * (BAR + GAP)
        for edge in edges:
            self.rule(edge, top, end)
        for i, lines in enumerate(texts):
            for row, line in enumerate(lines):
                if line:
                    self.text((edges[i] + edges[i + 1]) / 2, top + 12 + LINE * row, line, 12,
                              "middle")
        for row, (lock, states) in enumerate(case.locks):
            y = bars + row * (BAR + GAP)
            self.text(MARGIN + NAMES - 10, y + BAR - 7, lock, 12, "end")
            for first, last, meaning in runs(states):
                self.bar(edges[first], edges[last], y, self.color(lock), meaning)
        self.y = end + 22

    def box(self, left, top, width, height, title, lines):
        self.parts.append(
            '<rect x="%.1f" y="%.1f" width="%.1f" height="%.1f" rx="4" fill="%s" stroke="%s"/>'
            % (left, top, width, height, "#ffffff", INK))
        self.text(left + width / 2, top + 17, title, 12, "middle", "bold")
        for row, line in enumerate(lines):
            self.text(left + width / 2, top + 33 + LINE * row, line, 11, "middle")

    def layer(self, layer):
        room = float(WIDTH - 2 * MARGIN - NAMES - GAP) / len(layer.boxes)
        texts = [wrapped(text, room - 2 * GAP - 4) for _, text in layer.boxes]
        height = 26 + LINE * max(len(lines) for lines in texts) + 6
        self.parts.append(
            '<rect x="%d" y="%.1f" width="%d" height="%.1f" rx="6" fill="%s"/>'
            % (MARGIN, self.y, WIDTH - 2 * MARGIN, height + 2 * GAP, self.color(layer.name.split()[0])))
        for row, line in enumerate(wrapped(layer.name, (NAMES - 2 * GAP) * 0.8)):
            self.text(MARGIN + 8, self.y + 24 + LINE * row, line, 12, weight="bold")
        for number, (title, _) in enumerate(layer.boxes):
            self.box(MARGIN + NAMES + room * number, self.y + GAP, room - GAP, height, title, texts[number])
        self.y += height + 2 * GAP
        if layer.below is not None:
            self.arrow(layer.below)

    def arrow(self, text):
        x, end = WIDTH / 2, self.y + 26
        self.rule(x, self.y, end)
        self.parts.append('<path d="M %.1f %.1f l -5 -8 l 10 0 z" fill="%s"/>' % (x, end, INK))
        self.text(x + 14, self.y + 17, text, 12)
        self.y = end + 2

    def svg(self):
        return "\n".join(
            ['<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 %d %d" '
             'font-family="system-ui, sans-serif" fill="%s">' % (WIDTH, self.y, INK),
             '<rect width="100%" height="100%" fill="#ffffff"/>'] + self.parts + ["</svg>", ""])


def draw(text):
    """The picture of a text, as SVG."""
    title, cases = read(text)
    picture = Picture()
    picture.text(MARGIN, picture.y + 14, title, 18, weight="bold")
    if all(isinstance(case, Case) for case in cases):
        picture.text(WIDTH - MARGIN, picture.y + 14, "time goes to the right", 12, "end")
    picture.y += 40
    for case in cases:
        (picture.case if isinstance(case, Case) else picture.layer)(case)
    picture.y += 0 if isinstance(cases[-1], Case) else MARGIN
    return picture.svg()


def contents(path):
    try:
        with io.open(path, encoding="utf-8") as source:
            return source.read()
    except IOError:
        return None


def main(arguments):
    check = "--check" in arguments
    status = 0
    for path in arguments:
        if path == "--check":
            continue
        target = path.rpartition(".")[0] + ".svg"
        drawn = draw(contents(path))
        if contents(target) == drawn:
            continue
        if check:
            print("%s is not what %s says; run docs/pictures/draw.py" % (target, path))
            status = 1
        else:
            with io.open(target, "w", encoding="utf-8") as out:
                out.write(drawn)
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
