"""Puts the figures of performance.json into the page performance.md and draws its charts.

With --check nothing is written; the exit status tells whether all is what the figures say.
"""

from __future__ import unicode_literals

import io
import json
import os
import re
import sys

import charts
from callgrind import PARTS

DOCS = os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, "docs")
SUBJECTS = ("kel", "floor", "same turns", "Cython", "SWIG", "pybind11", "ctypes", "plain class")
TITLES = {"kel": "`_Kel`"}


def short(value):
    """Three digits, and no more than they are worth."""
    if value >= 10000:
        return "%.0f" % (round(value / 100) * 100)
    return "%.0f" % value if value >= 99.5 else "%.1f" % value if value >= 1 else "%.2f" % value


def cell(figures, name, none="\u2013"):
    """A figure and, in brackets, its ratio to the floor."""
    if name not in figures:
        return none
    value, floor = figures[name]["least"], figures["floor"]["least"]
    if name == "floor" or floor <= 0:
        return short(value)
    return "%s (%.2f)" % (short(value), value / floor)


def table(head, rows):
    """A table whose first column is text."""
    lines = ["| " + " | ".join(head) + " |", "|---|" + "---:|" * (len(head) - 1)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


def there(figures):
    return [name for name in SUBJECTS if name not in figures["missing"]]


def machine(figures):
    found = figures["machine"]
    versions = ", ".join("%s %s" % (name, version) for name, version in sorted(found["versions"].items())
                         if name != "compiler")
    text = "%s, %d processors, %s; %s; compiled by %s. Least of %d rounds." % (
        found["processor"], found["processors"], found["system"], versions, found["versions"]["compiler"],
        found["rounds"])
    left_out = ["%s is left out: %s." % pair for pair in sorted(figures["missing"].items())]
    return " ".join([text] + left_out)


def operations(figures):
    names = there(figures)
    return table(
        [""] + [TITLES.get(name, name) for name in names],
        [["%s, %s" % (row["title"], row["unit"])] + [cell(row["figures"], name) for name in names]
         for row in figures["rows"]])


def spread(figures):
    """How far the rounds of _Kel lie apart: half of them within so many percent of the median."""
    rows = [row["figures"]["kel"] for row in figures["rows"] if "high" in row["figures"]["kel"]]
    parts = sorted((row["high"] - row["low"]) / charts.shown(row["median"]) * 100 for row in rows)
    above = sorted((row["median"] / charts.shown(row["least"]) - 1) * 100 for row in rows)
    return ("Of `_Kel`'s rounds, the middle half lies within %.0f %% of the median in the median row, within %.0f %% "
            "in the worst; the median is %.0f %% above the least in the median row." % (
                parts[len(parts) // 2], parts[-1], above[len(above) // 2]))


def least_of(curve):
    return dict((at, figure["least"]) for at, figure in curve.items())


def drawn(entry):
    return {"title": entry["title"], "unit": entry["unit"],
            "curves": dict((name, least_of(curve)) for name, curve in entry["curves"].items())}


def curve_table(entries, names, along):
    """A row for each curve of the given names."""
    points = sorted(entries[0]["curves"][names[0]], key=int)
    rows = []
    for entry in entries:
        for name in names:
            if name in entry["curves"]:
                rows.append(["%s, %s" % (entry["title"], entry["unit"]), TITLES.get(name, name)] + [
                    short(max(0.0, entry["curves"][name][point]["least"])) for point in points])
    head = ["", along] + [charts.number(int(point)) for point in points]
    return table(head, rows).replace("|---|---:|", "|---|---|", 1)


def reactions(figures):
    found = figures["reactions"]
    told = found["notification"]
    rows = [("change on a native thread to handler on the loop's, Python idle", found["latency"]["idle"]["median"]),
            ("the same, 99 % below", found["latency"]["idle"]["99 %"]),
            ("change on a native thread to handler on the loop's, Python busy", found["latency"]["busy"]["median"]),
            ("the same, 99 % below", found["latency"]["busy"]["99 %"]),
            ("change, run of the loop and handler, on one thread", told["one by one"]),
            ("change in C++, queued", told["queue"]),
            ("its delivery to a function of Python", told["deliver"]),
            ("its delivery to a reactor in C++", told["deliver to C++"]),
            ("a call of such a function alone", told["bare call"]),
            ("a timer that is due", found["due timer"]),
            ("bare round trip over a unix socket", figures["round trips"]["ping us"] * 1000),
            ("command to an agent and its reply, over one", figures["round trips"]["eval us"] * 1000)]
    return table(["", "ns"], [[title, short(ns)] for title, ns in rows])


def advice(figures):
    rows = []
    for entry in figures["advice"]:
        before, after = [entry["figures"][name][entry["shown"]] for name in ("before", "after")]
        code = ["`%s`" % entry[name].replace("\n", "; ") for name in ("before", "after")]
        rows.append([entry["title"]] + code + [short(before), short(after), "%.1f" % (before / charts.shown(after))])
    return table(["", "instead of", "write", "ns", "ns", "times as fast"], rows).replace("|---:|---:|", "|---|---|", 1)


def parts(figures):
    return table(["a U32 read of the hand-written extension", "ns"],
                 [[title, short(figure["least"])] for title, figure in figures["parts"]])


def instructions(figures):
    rows = []
    for entry in figures["instructions"]:
        for name in ("kel", "floor", "same turns"):
            found = entry["figures"][name]
            counts = [found[part] for part in PARTS] + [sum(found.values())]
            rows.append([entry["title"], TITLES.get(name, name)] + ["%d" % count for count in counts])
    return table(["", "instructions"] + list(PARTS) + ["all"], rows).replace("|---|---:|", "|---|---|", 1)


TABLES = {
    "parts": parts, "instructions": instructions, "machine": machine, "operations": operations, "spread": spread,
    "reactions": reactions, "advice": advice,
    "idle": lambda figures: curve_table(figures["idle threads"], ("kel", "floor"), "threads alive"),
    "members": lambda figures: curve_table(figures["members"], ("kel", "same turns", "dict"), "members"),
    "types": lambda figures: curve_table(figures["types"], ("kel", "floor", "dict", "plain class"), "types"),
    "depths": lambda figures: curve_table(figures["depths"], ("kel", "floor", "plain class"), "depth"),
}


def by_count(found, unit="ns"):
    """The entry of a chart from {count: {name: ns}}."""
    names = sorted(set(name for values in found.values() for name in values))
    return {"unit": unit, "curves": dict(
        (name, dict((count, values[name]) for count, values in found.items())) for name in names)}


def reaction_chart(figures):
    found = figures["reactions"]
    entries = [dict(by_count(found["notifiees"]), title="notifiees of one object, each"),
               dict(by_count(found["timers"]), title="timers that wait, each")]
    return charts.panels("Notifiees and timers", entries, "how many there are",
                         ("make", "tell", "drop", "drop, floor", "arm", "arm and fire", "write, floor"), columns=2)


def operation_chart(figures):
    rows = [(row["title"], dict((name, figure["least"]) for name, figure in row["figures"].items()
                                if name != "same turns"))
            for row in figures["rows"] if row["unit"] == "ns"]
    names = [name for name in there(figures) if name != "same turns"]
    return charts.dots("One operation, in nanoseconds", "ns", rows, names)


CHARTS = {
    "performance-operations.svg": operation_chart,
    "performance-threads.svg": lambda figures: charts.panels(
        "With other threads of Python alive", [drawn(entry) for entry in figures["idle threads"]],
        "threads that wait", SUBJECTS, evenly=True),
    "performance-members.svg": lambda figures: charts.panels(
        "Collections that grow", [drawn(entry) for entry in figures["members"]], "members",
        ("kel", "same turns", "dict"), columns=2),
    "performance-types.svg": lambda figures: charts.panels(
        "Many types", [drawn(entry) for entry in figures["types"]], "types",
        ("kel", "floor", "dict", "plain class")),
    "performance-depth.svg": lambda figures: charts.panels(
        "Deep inheritance", [drawn(entry) for entry in figures["depths"]], "depth of the object's class below that of the attribute, which is 1",
        ("kel", "floor", "plain class"), columns=1, evenly=True),
    "performance-reactions.svg": reaction_chart,
}


def filled(page, figures):
    """The page with each of its tables as the figures say it."""
    def fill(match):
        return match.group(1) + "\n" + TABLES[match.group(2)](figures) + "\n" + match.group(3)
    return re.sub(r"(?s)(<!-- (\w+) -->).*?(<!-- end -->)", fill, page)


def contents(path):
    try:
        with io.open(path, encoding="utf-8") as source:
            return source.read()
    except IOError:
        return None


def wanted(folder):
    """What each file of the folder should hold, by path."""
    figures = json.loads(contents(os.path.join(folder, "performance.json")))
    page = os.path.join(folder, "performance.md")
    found = {page: filled(contents(page), figures)}
    for name, draw in CHARTS.items():
        found[os.path.join(folder, "pictures", name)] = draw(figures)
    return found


def main(arguments):
    check = "--check" in arguments
    folder = ([argument for argument in arguments if argument != "--check"] + [DOCS])[0]
    status = 0
    for path, text in sorted(wanted(folder).items()):
        if contents(path) == text:
            continue
        if check:
            print "%s is not what performance.json says; run bench/page.py" % os.path.basename(path)
            status = 1
        else:
            with io.open(path, "w", encoding="utf-8") as out:
                out.write(text)
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
