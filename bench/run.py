"""Measures _Kel beside a hand-written extension with the same two locks, and beside what a user would
take instead. Figures are the least of several rounds, if nothing else is said."""

import argparse
import json
import os
import platform

import memory
import operations
import reactions
import round_trips
import scale
import subjects
from subjects import NAMES, TITLES


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
    first_uses = operations.first_uses(options.classes)
    names = [name for name in NAMES if name not in subjects.missing()]
    taken = memory.measure(names, options.wrappers, options.classes)
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


def cell(figures, name):
    """A figure with its ratio to the floor."""
    if name not in figures:
        return "-"
    value, floor = figures[name]["least"], figures["floor"]["least"]
    text = "%.1f" % value if value < 100 else "%.0f" % value
    return text if name == "floor" else "%s (%.2f)" % (text, value / floor)


def report(figures):
    print "%s, %d processors, Python %s, %s; behind each figure its ratio to the floor" % (
        figures["machine"]["processor"], figures["machine"]["processors"],
        figures["machine"]["versions"]["Python"], figures["machine"]["versions"]["compiler"])
    for name, why in sorted(figures["missing"].items()):
        print "%s is left out: %s" % (name, why)
    names = [name for name in NAMES if name not in figures["missing"]]
    print "%-46s" % "" + "".join("%16s" % TITLES[name] for name in names)
    for each in figures["rows"]:
        print "%-46s" % ("%s, %s" % (each["title"], each["unit"])) + "".join(
            "%16s" % cell(each["figures"], name) for name in names)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=15)
    parser.add_argument("--loops", type=int, default=5000, help="turns of a loop of twenty reads, a round")
    parser.add_argument("--json", help="write the figures to this file as well")
    options = parser.parse_args()
    options.classes, options.wrappers = memory.CLASSES, memory.WRAPPERS
    figures = {"machine": machine(options), "missing": subjects.missing(), "rows": rows(options)}
    report(figures)
    print
    scale.report()
    print
    figures["reactions"] = reactions.measure(5)
    reactions.report(figures["reactions"])
    print
    figures["round trips"] = round_trips.report()
    if options.json:
        with open(options.json, "w") as out:
            json.dump(figures, out, indent=1, sort_keys=True, separators=(",", ": "))
            out.write("\n")


if __name__ == "__main__":
    main()
