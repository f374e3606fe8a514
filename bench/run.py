"""Times the operations of _Kel beside a hand-written extension with the same two locks.

Every figure is nanoseconds for one operation: the least of several rounds, less the empty loop. The
subjects take turns within one process, so that ratios hold where absolute figures drift.
"""

import argparse
import json
import os
import platform
import time

import _Kel
import acme
import kel_floor
import kel_many_types
import operations
import reactions
import round_trips
import scale

UNROLLED = 20


def timed(statement, names, loops):
    """A function that gives the seconds of loops * UNROLLED runs of the statement."""
    source = "def run(loops, clock):\n    start = clock()\n    for _ in loops:\n%s    return clock() - start\n" % (
        ("        %s\n" % statement) * UNROLLED)
    names = dict(names)
    exec source in names
    # Names in local variables cost the same for each subject.
    return lambda: names["run"](xrange(loops), time.time)


def best(subjects, rounds, loops, each):
    """Least ns an operation for each (name, statement, names), empty loop taken off."""
    runs = [(name, timed(statement, names, loops)) for name, statement, names in subjects]
    empty = timed("pass", {}, loops)
    least = dict((name, float("inf")) for name, _ in runs)
    spread = dict((name, 0.0) for name, _ in runs)
    least_empty = float("inf")
    for _ in range(rounds):
        least_empty = min(least_empty, empty())
        for name, run in runs:
            seconds = run()
            least[name] = min(least[name], seconds)
            spread[name] = max(spread[name], seconds)
    scale = 1e9 / (loops * UNROLLED * each)
    return dict((name, ((least[name] - least_empty) * scale, (spread[name] - least_empty) * scale))
                for name, _ in runs)


def class_row(classes, batch=20):
    """A class is made once, so the subjects take turns batch by batch; the median batch counts."""
    kel_many_types.register(0, classes)
    types = [_Kel.typeNode("Many::T%d" % i) for i in range(classes)]
    _Kel.pyType(_Kel.typeNode("Kel::PtrInterface"))
    mine, theirs = [], []
    for first in range(0, classes, batch):
        start = time.time()
        for kel_type in types[first:first + batch]:
            _Kel.pyType(kel_type)
        middle = time.time()
        for _ in range(batch):
            kel_floor.newClass()
        theirs.append((time.time() - middle) / batch * 1e9)
        mine.append((middle - start) / batch * 1e9)
    mine.sort()
    theirs.sort()
    half = len(mine) // 2
    floor = (theirs[half], theirs[-1])
    return "class of 20 attributes, first use", {
        "kel": (mine[half], mine[-1]), "floor": floor, "same turns": floor}


def ratio(row, name):
    return row["kel"][0] / row[name][0]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=15)
    parser.add_argument("--loops", type=int, default=20000, help="statements a round, in twenties")
    parser.add_argument("--json", help="write the figures to this file as well")
    options = parser.parse_args()
    rows = [(title, best(subjects, options.rounds, options.loops // slower or 1, each))
            for title, slower, each, subjects in operations.rows()]
    rows.append(operations.threads_row(options.rounds, options.loops // 4))
    rows.append(class_row(600))
    print "%s, Python %s, %d processors, least of %d rounds (of 600 classes: median)" % (
        platform.machine(), platform.python_version(), os.sysconf("SC_NPROCESSORS_ONLN"), options.rounds)
    print "%-38s %10s %10s %10s %9s %11s" % ("ns", "_Kel", "floor", "same turns", "to floor", "same turns")
    for title, row in rows:
        print "%-38s %10.1f %10.1f %10.1f %9.2f %11.2f" % (
            title, row["kel"][0], row["floor"][0], row["same turns"][0], ratio(row, "floor"),
            ratio(row, "same turns"))
    print
    scale.report()
    print
    reaction_figures = reactions.measure(5)
    reactions.report(reaction_figures)
    print
    round_trip_figures = round_trips.report()
    if options.json:
        figures = dict((title, dict((name, {"least": least, "most": most})
                                    for name, (least, most) in row.items())) for title, row in rows)
        figures["reactions"] = reaction_figures
        figures["round trips"] = round_trip_figures
        with open(options.json, "w") as out:
            json.dump(figures, out, indent=1, sort_keys=True)
            out.write("\n")


if __name__ == "__main__":
    main()
