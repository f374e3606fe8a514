"""Whatever is changed in a reply or a request, the reader ends in a value or a documented error.

Every change of two bits of a reply of 48 bytes and of requests of as many, every truncation of both
in pieces of every size, and in the long form guided mutations too. The reader of replies runs under
the address sanitizer in the long form.
"""

import multiprocessing.pool
import os
import re
import shutil
import struct
import tempfile

from frame import ROOT, Build, Result, dev, run_process

NAME = "reply-frames"
PASS = "0 reports, each input ends in a value or a documented error"
SECONDS = {"short": 5, "long": 1800}

# Of the changes of two bits; the server's reader is written in Python.
STEPS = {"short": {"reply": 1, "requests": 40}, "long": {"reply": 1, "requests": 1}}
# Guided mutations of each: by how many processes, each how many, of how many bytes at most. What
# is told apart of requests lies within two and a half of the largest that the limit allows.
MUTATED = {"reply": (1, 10 ** 6, 8192), "requests": (2, 5 * 10 ** 5, 2600)}
MUTATE_SECONDS = 7200  # at most
FINDINGS = os.path.join(ROOT, "build", "frames-")
# One bit from the length of the reply stands for a result of just the buffer's size.
OPTIONS = {"reply": struct.pack("<hBB", 106, 0, 0), "requests": struct.pack("BB", 0, 0)}
FRAMES = {
    "reply": struct.pack(">I2s", 44, "OK") + "a result of forty-two bytes, to the letter",
    "requests": "KR" + "".join("?%d" % kind + struct.pack(">I", len(text)) + text for kind, text in (
        (1, "a request of 17 b"), (2, "another of 17 too")))}
# One bit from a length beyond the limit, which the planted reader takes.
PLANTED_FRAMES = dict(FRAMES, requests="KR?1" + struct.pack(">I", 1000) + "x" * 40)
assert [len(FRAMES[name]) for name in sorted(FRAMES)] == [48, 48]


def _changes(name, form, planted):
    build = Build("asan" if form == "long" and not planted else "release")
    if form == "long" or build.folder is None:
        build.ready("fuzz_" + name)
    program = os.path.join(os.path.dirname(build.folder), "bin", "fuzz_" + name)
    environment = build.environment()
    if planted:
        environment["KEL_FUZZ_PLANT"] = "1"
    with tempfile.NamedTemporaryFile() as frame:
        frame.write(OPTIONS[name] + (PLANTED_FRAMES if planted else FRAMES)[name])
        frame.flush()
        step = str(1 if planted else STEPS[form][name])
        return run_process([program, "--changes", str(len(OPTIONS[name])), step, frame.name],
                           900, environment)


def _mutate(name):
    """Mutations that the lines and branches reached guide, by one process."""
    _, times, length = MUTATED[name]
    program = os.path.join(ROOT, "build", "fuzz", "bin", "fuzz_" + name)
    corpus = os.path.join(ROOT, "tests", "fuzz", "corpus", name)
    found = tempfile.mkdtemp()
    try:
        return run_process(
            [program, found, corpus, "-runs=%d" % times, "-max_len=%d" % length, "-timeout=20",
             "-rss_limit_mb=2048", "-malloc_limit_mb=64", "-artifact_prefix=" + FINDINGS,
             "-print_final_stats=1"], MUTATE_SECONDS, dict(os.environ))
    finally:
        shutil.rmtree(found)


def run(form):
    figures, details, passed = [], [], True
    names = sorted(FRAMES)
    for name in names:
        ended = _changes(name, form, False)
        passed &= ended.status == 0 and not ended.late
        figures.append("%s: %s" % (name, ended.out.strip() or "ended with %d" % ended.status))
        details += ended.text()
    if form == "long":
        dev("build", "fuzz", "--target", "fuzzers")
        made = dict.fromkeys(names, 0)
        jobs = [name for name in names for _ in range(MUTATED[name][0])]
        # Side by side. A wait without an end would let no Ctrl-C through.
        mutated = multiprocessing.pool.ThreadPool(len(jobs)).map_async(_mutate, jobs)
        for name, ended in zip(jobs, mutated.get(2 * MUTATE_SECONDS)):
            units = re.search(r"number_of_executed_units: *(\d+)", ended.err)
            passed &= ended.status == 0 and not ended.late and units is not None
            made[name] += int(units.group(1)) if units else 0
            details += ended.text()
        figures = ["%s, %d guided mutations" % (figure, made[name])
                   for name, figure in zip(names, figures)]
    return Result(passed, "; ".join(figures) + (", 0 reports" if passed else ""), details)


def planted(form):
    caught = []
    for name in sorted(FRAMES):
        ended = _changes(name, form, True)
        if ended.status != 0 and "fault: " in ended.err:
            caught.append(name)
    return Result(len(caught) == len(FRAMES), "faults planted in %s were seen" % ", ".join(caught))
