"""Measures _Kel beside a hand-written extension with the same two locks, and beside what a user would
take instead. Figures are the least of several rounds, if nothing else is said."""

import argparse
import json
import os
import platform
import sys

import advice
import callgrind
import idle
import memory
import operations
import page
import reactions
import round_trips
import scale
import shares
import subjects
from subjects import NAMES, TITLES

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, "tools"))
from progress import Progress  # noqa: E402

# So small that figures mean nothing: whether all of it works.
QUICK = {
    operations: {"CLASSES": 40, "KEYS": 20},
    memory: {"ROUNDS": 1, "WRAPPERS": 500, "CLASSES": 20},
    idle: {"THREADS": (1, 3), "PASSES": 1},
    scale: {"SIZES": (10, 20), "TYPES": (10, 20), "DEPTHS": (1, 2), "TOUCHED": 50},
    reactions: {"BEATS": 110, "PAUSE": 1, "BATCH": 200, "NOTIFIEES": (1, 2), "TIMERS": (1, 2), "ARMINGS": 20},
    round_trips: {"TRIPS": 16},
}

def processor():
    with open("/proc/cpuinfo") as lines:
        for line in lines:
            if line.startswith("model name"):
                return line.partition(":")[2].strip()
    return platform.machine()


def machine(options):
    versions = dict(subjects.versions(), Python=platform.python_version())
    return {"processor": processor(), "processors": os.sysconf("SC_NPROCESSORS_ONLN"),
            "system": "%s %s" % (platform.system(), platform.release().partition("-")[0]),
            "versions": versions, "rounds": options.rounds, "loops": options.loops}


def row(title, unit, figures):
    return {"title": title, "unit": unit, "figures": figures}


def rows(options):
    """All that is compared with the floor."""
    found = [row(title, "ns", figures) for title, figures in operations.measure(options.rounds, options.loops)]
    first_uses = operations.first_uses()
    names = [name for name in NAMES if name not in subjects.missing()]
    taken = memory.measure(names)
    first_uses.update((name, {"least": ns}) for name, ns in taken["first use"].items())

    def scaled(figures, factor):
        return dict((name, dict((key, value * factor) for key, value in figure.items()))
                    for name, figure in figures.items())

    def bare(figures, factor):
        return dict((name, {"least": value * factor}) for name, value in figures.items())

    return found + [
        row("class of 20 attributes, first use", "us", scaled(first_uses, 1e-3)),
        row("memory of such a class", "KiB", bare(taken["class"], 1 / 1024.0)),
        row("memory of a wrapper beside its object", "bytes", bare(taken["wrapper"], 1))]


def measure(options):
    rounds, loops = options.rounds, options.loops
    parts = [
        ("rows", lambda: rows(options)), ("parts", lambda: operations.parts(rounds, loops)),
        ("idle threads", lambda: idle.measure(rounds, loops)), ("members", lambda: scale.members(options.some)),
        ("types", lambda: scale.types(options.some)), ("depths", lambda: scale.depths(rounds, loops)),
        ("advice", lambda: advice.measure(rounds, loops)), ("reactions", lambda: reactions.measure(options.few)),
        ("instructions", shares.measure), ("round trips", lambda: round_trips.figures(options.few))]
    figures = {"machine": machine(options), "missing": subjects.missing()}
    # Nothing else runs in this process while it measures, so nobody counts the seconds.
    with Progress("bench", len(parts), ticking=False) as progress:
        for name, figures_of in parts:
            progress.next(name)
            figures[name] = figures_of()
    return figures


def report_rows(figures):
    print "%s, %d processors, Python %s, %s; behind each figure its ratio to the floor" % (
        figures["machine"]["processor"], figures["machine"]["processors"],
        figures["machine"]["versions"]["Python"], figures["machine"]["versions"]["compiler"])
    for name, why in sorted(figures["missing"].items()):
        print "%s is left out: %s" % (name, why)
    names = [name for name in NAMES if name not in figures["missing"]]
    print "%-46s" % "" + "".join("%16s" % TITLES[name] for name in names)
    for each in figures["rows"]:
        print "%-46s" % ("%s, %s" % (each["title"], each["unit"])) + "".join(
            "%16s" % page.cell(each["figures"], name, "-") for name in names)


def report_parts(parts):
    print "\n%-46s%16s" % ("a U32 read of the hand-written extension", "ns")
    for title, figure in parts:
        print "%-46s%16.1f" % (title, figure["least"])


def report_curves(entries, along):
    points = sorted(entries[0]["curves"]["kel"], key=int)
    print "\n%-60s" % along + "".join("%10s" % point for point in points)
    for entry in entries:
        for name in sorted(entry["curves"], key=lambda name: (name != "kel", name)):
            print "%-60s" % ("%s, %s, %s" % (entry["title"], entry["unit"], TITLES.get(name, name))) + "".join(
                "%10.0f" % entry["curves"][name][point]["least"] for point in points)


def report_shares(entries):
    print "\n%-60s" % "instructions" + "".join("%14s" % part for part in callgrind.PARTS) + "%14s" % "all"
    for entry in entries:
        for name in shares.SUBJECTS:
            found = entry["figures"][name]
            print "%-60s" % ("%s, %s" % (entry["title"], TITLES[name])) + "".join(
                "%14d" % number for number in [found[part] for part in callgrind.PARTS] + [sum(found.values())])


def report_advice(entries):
    print "\n%-60s%10s%10s" % ("ns, in one way and a quicker one", "", "")
    for entry in entries:
        print "%-60s" % entry["title"] + "".join(
            "%10.0f" % entry["figures"][name][entry["shown"]] for name in ("before", "after"))


def report(figures):
    report_rows(figures)
    report_parts(figures["parts"])
    report_shares(figures["instructions"])
    report_curves(figures["idle threads"], "other threads alive")
    report_curves(figures["members"], "members of a collection")
    report_curves(figures["types"], "types")
    report_curves(figures["depths"], "depth of inheritance")
    report_advice(figures["advice"])
    print
    reactions.report(figures["reactions"])
    print
    round_trips.report(figures["round trips"])


def parsed():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    # Short rounds, and many, so that there are some which nothing has interrupted.
    parser.add_argument("--rounds", type=int, default=75)
    parser.add_argument("--loops", type=int, default=1000, help="at most so many turns of a loop of twenty operations in a round")
    parser.add_argument("--json", help="write the figures to this file as well")
    parser.add_argument("--docs", action="store_true",
                        help="write docs/performance.json, its charts and the tables of docs/performance.md")
    parser.add_argument("--quick", action="store_true", help="whether all works; the figures mean nothing")
    options = parser.parse_args()
    options.some, options.few = min(15, options.rounds), min(5, options.rounds)
    if options.quick:
        options.rounds, options.loops, options.some, options.few = 2, 5, 1, 1
        for module, values in QUICK.items():
            module.__dict__.update(values)
    return options


def write(figures, path):
    with open(path, "w") as out:
        json.dump(figures, out, indent=1, sort_keys=True, separators=(",", ": "))
        out.write("\n")


def main():
    options = parsed()
    # With texts for keys and no more digits than are worth something, as the file has them.
    figures = json.loads(json.dumps(measure(options)), parse_float=lambda text: float("%.4g" % float(text)))
    report(figures)
    if options.json:
        write(figures, options.json)
    if options.docs:
        write(figures, os.path.join(page.DOCS, "performance.json"))
        return page.main([])
    return 0


if __name__ == "__main__":
    sys.exit(main())
