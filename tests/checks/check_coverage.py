"""The tests reach both outcomes of the conditions of the runtime and of the binding.

Counted in a build of its own over all tests, and over the checks that let memory and calls of the
system fail. A condition has two branches: it came out true, it came out false. Those that the
compiler settles are not counted, nor those of assertions. Each that nothing reaches is listed with
the reason in uncovered.txt.
"""

import bisect
import json
import os

import frame

NAME = "coverage"
PASS = "at least 95 % of the branches, each other one listed with a reason"
SECONDS = {"short": 0, "long": 900}
LONG_ONLY = True

LIST = os.path.join(frame.HERE, "uncovered.txt")
REPORT = os.path.join(frame.ROOT, "build", "coverage", "report.json")
COUNTED = ("kel/src/", "kel/include/", "kelpy/")
LEAST = 95.0


class Listed(object):
    """The list: under a line "# reason" stand lines "file: text of the line". With "? " in front
    it is a line whose branches are all taken in some runs and not in others."""

    def __init__(self, lines):
        self.always, self.sometimes, self.faults = set(), set(), []
        reason = ""
        for line in lines:
            line = line.strip()
            if line.startswith("#"):
                reason = line[1:].strip()
            elif line:
                self._add(line, reason)

    def _add(self, line, reason):
        chance = line.startswith("? ")
        name, colon, text = line[2 * chance:].partition(": ")
        if not (reason and colon):
            self.faults.append("a line of the list is without a reason or a file: " + line)
        (self.sometimes if chance else self.always).add((name, text))


def _list():
    with open(LIST) as lines:
        return Listed(lines)


class Branches(object):
    """Of a report: how many, how many of them are reached, and the lines of the others."""

    def __init__(self, path):
        self.total = self.reached = 0
        self.missed, self.whole = {}, set()
        with open(path) as report:
            for each in json.load(report)["data"][0]["files"]:
                name = os.path.relpath(os.path.realpath(each["filename"]), frame.ROOT)
                if name.startswith(COUNTED):
                    self._read(name, each)

    def _read(self, name, report):
        with open(os.path.join(frame.ROOT, name)) as source:
            texts = source.read().splitlines()
        lines = {}
        for place, counts in sorted(_outcomes(report).items()):
            text = texts[place[0] - 1].strip()
            if "KEL_ASSERT" not in text and "if constexpr(" not in text:
                lines.setdefault((place[0], text), []).extend(counts)
        for (number, text), counts in lines.items():
            reached = sum(count > 0 for count in counts)
            self.total += len(counts)
            self.reached += reached
            if reached < len(counts):
                self.missed.setdefault((name, text), []).append(number)
            else:
                self.whole.add((name, text))

    def percent(self):
        return 100.0 * self.reached / self.total if self.total else 0.0


def _outcomes(report):
    """How often a condition came out true and false, by its place, summed over the instances of a
    template. Without those that came to neither though they were reached: the compiler knew."""
    outcomes = {}
    for branch in report["branches"]:
        counts = outcomes.setdefault(tuple(branch[:4]), [0, 0])
        counts[0] += branch[4]
        counts[1] += branch[5]
    segments = report["segments"]
    places = [tuple(segment[:2]) for segment in segments]

    def is_settled(place, counts):
        segment = segments[bisect.bisect_right(places, place[:2]) - 1]
        return sum(counts) == 0 and segment[2] > 0

    return dict((place, counts) for place, counts in outcomes.items()
                if not is_settled(place, counts))


def faults(branches, listed):
    """What the list and the report do not agree about, a line each."""
    known = listed.always | listed.sometimes
    wrong = list(listed.faults)
    for key in sorted(set(branches.missed) - known):
        for number in branches.missed[key]:
            wrong.append("not reached and not listed: %s:%d: %s" % (key[0], number, key[1]))
    for key in sorted(listed.always - set(branches.missed)):
        how = "reached" if key in branches.whole else "not in the source"
        wrong.append("listed but %s: %s: %s" % ((how,) + key))
    return wrong


def judge(branches, listed):
    wrong = faults(branches, listed)
    figure = "%.1f %% of %d branches, %d lines listed" % (
        branches.percent(), branches.total, len(listed.always | listed.sometimes))
    if wrong:
        figure += ", %d faults in the list" % len(wrong)
    return frame.Result(branches.percent() >= LEAST and not wrong, figure, wrong)


def run(form):
    frame.dev("coverage")
    return judge(Branches(REPORT), _list())


def planted(form):
    """A line that the tests reach is listed as one that they do not; some tests are enough."""
    frame.dev("coverage", "-R", r"^kel\.(String|Bytes)")
    branches = Branches(REPORT)
    reached = sorted(key for key in branches.whole if key[0] == "kel/src/String.cpp")
    listed = Listed(["# planted"] + ["%s: %s" % reached[0]]) if reached else Listed([])
    told = [line for line in faults(branches, listed) if line.startswith("listed but reached")]
    return frame.Result(len(told) == 1, "%d of 1 line told" % len(told), told)
