"""A random program over all types, most of whose arguments fit, under the address sanitizer.

See random_operations.py. A fault names its seed, which gives the same program again.
"""

import os
import re
import tempfile
import threading

import frame

NAME = "random-operations"
PASS = "0 crashes, only documented classes of exceptions"
SECONDS = {"short": 2, "long": 60}
PROGRAMS = {"short": (2, 10000), "long": (20, 50000)}

SCRIPT = os.path.join(frame.HERE, "random_operations.py")


def _program(build, seed, count, *arguments):
    """(how it ended, the faults in words, operations, those refused)"""
    with tempfile.NamedTemporaryFile() as note:
        note.write("\0" * 4096)
        note.flush()
        command = [SCRIPT, str(count), str(seed), note.name] + list(arguments)
        ended = build.run(command, 3600)
        with open(note.name) as file:
            last = file.read(64)[16:].split("\0")[0]
    again = "again: PYTHONPATH=%s random_operations.py %d %d NOTE" % (build.folder, count, seed)
    faults = re.findall(r"^FAULT .*", ended.out, re.M)
    told = re.search(r"^OPERATIONS (\d+), (\d+) refused, (\d+) notifications$", ended.out, re.M)
    if ended.status != 0 or not told:
        faults += ["it ended in an operation '%s'" % last] + ended.text()
    return faults + [again] * bool(faults), map(int, told.groups()) if told else [0, 0, 0]


def _programs(form):
    build = frame.Build("asan").ready()
    number, count = PROGRAMS[form]
    waiting, results = list(range(1, number + 1)), []

    def work():
        while waiting:
            results.append(_program(build, waiting.pop(), count))

    workers = [threading.Thread(target=work) for _ in range(2)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    return results


def run(form):
    results = _programs(form)
    faults = [line for lines, _ in results for line in lines]
    sums = [sum(numbers[i] for _, numbers in results) for i in range(3)]
    figure = "%d faults in %d operations, of which %d were refused, and %d notifications" % (
        (len([lines for lines, _ in results if lines]),) + tuple(sums))
    number, count = PROGRAMS[form]
    return frame.Result(not faults and sums[0] == number * count, figure, faults)


def planted(form):
    faults, _ = _program(frame.Build("asan").ready(), 1, 2000, "--plant")
    found = [line for line in faults if "Planted: planted" in line]
    return frame.Result(bool(found), found[0] if found else "nothing was seen", faults)
