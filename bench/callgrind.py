"""Runs a script under callgrind and tells what it counted, by the part of the process that the
instructions belong to."""

import glob
import os
import shutil
import subprocess
import sys
import tempfile

PARTS = ("interpreter", "C library", "binding", "runtime", "extension")
STARTS = (("libKelPy.so", "binding"), ("libkel.so", "runtime"), ("libacme.so", "runtime"), ("kel_", "extension"),
          ("python", "interpreter"), ("libpython", "interpreter"))
DUMP = "desc: Trigger: Client Request: "


def costs_in(path):
    """(name, {(library, function): instructions}) of one file of callgrind's."""
    name, libraries, functions, at, costs, skip = None, {}, {}, [None, None], {}, False

    def known(names, text):
        number, _, told = text.strip().partition(" ")
        return names.setdefault(number, told)

    for line in open(path):
        if line.startswith(DUMP):
            name = line[len(DUMP):].strip()
        elif line.startswith("ob="):
            at[0] = known(libraries, line[3:])
        elif line.startswith("cob="):
            known(libraries, line[4:])
        elif line.startswith("fn="):
            at[1] = known(functions, line[3:])
        elif line.startswith("cfn="):
            known(functions, line[4:])
        elif line.startswith("calls="):
            skip = True  # what the callee costs stands there too
        elif line[:1].isdigit() or line[:1] in "+-*":
            if not skip:
                costs[tuple(at)] = costs.get(tuple(at), 0) + int(line.split()[1])
            skip = False
    return name, costs


def part_of(library):
    """The part of the process that a file of code belongs to."""
    for start, part in STARTS:
        if os.path.basename(library).startswith(start):
            return part
    return "C library"


def by_part(costs):
    """Instructions by part."""
    parts = dict.fromkeys(PARTS, 0)
    for (library, _), cost in costs.items():
        parts[part_of(library)] += cost
    return parts


def counts(script):
    """{(library, function): instructions}, by the name of each dump that the script makes when run with --count."""
    folder = tempfile.mkdtemp()
    try:
        with open(os.path.join(folder, "log"), "w") as log:
            subprocess.check_call(
                ["valgrind", "--tool=callgrind", "--instr-atstart=no",
                 "--callgrind-out-file=" + os.path.join(folder, "counts"), sys.executable,
                 os.path.abspath(script), "--count"], stderr=log)
        found = dict(costs_in(path) for path in glob.glob(os.path.join(folder, "counts.*")))
    finally:
        shutil.rmtree(folder)
    found.pop(None, None)
    return found
