"""No two locks are ever taken in two orders, whatever the Python tests do.

A preloaded library notes which lock is wanted while which is held: the GIL, the activity lock, the
import lock, Python's lock on thread-local data, every mutex and every guard of a static object of
a library.
"""

import glob
import multiprocessing.pool
import os
import shutil
import tempfile

from frame import HERE, PYTHON_TESTS, ROOT, Build, Result

NAME = "lock-graph"
PASS = "0 cycles but the documented one, 0 waits for the activity lock with the GIL held"
SECONDS = {"short": 30, "long": 75}

FOLDERS = {"short": ("core", "notify", "server"), "long": ("*",)}
TEST_SECONDS = 300

# A fork holds the activity lock as it takes the import lock back, and the body of a module that
# uses the runtime takes them the other way about. docs/locks.md tells the rule that avoids it.
DOCUMENTED = ("activity lock", "import lock", "fork")
VIOLATION = "the activity lock is wanted with the GIL held"


class Graph(object):
    """What the processes of a run have noted: an edge for each two locks, from the one held to
    the one wanted, with the stack of the first time."""

    def __init__(self, folder):
        self.edges = {}
        self.violations = 0
        self.processes = 0
        for name in os.listdir(folder):
            self.processes += 1
            with open(os.path.join(folder, name)) as log:
                self._read(log)

    def _read(self, log):
        stack = []
        for line in log:
            if line.startswith("edge\t"):
                stack = []
                self.edges.setdefault(tuple(line.rstrip("\n").split("\t")[1:]), stack)
            elif line.startswith(VIOLATION):
                self.violations += 1
                stack = []
            elif line.strip():
                stack.append(line.rstrip("\n"))

    def cycles(self):
        """Edges that close a cycle of those that are not documented."""
        wanted = {}
        for held, lock, when in self.edges:
            if (held, lock, when) != DOCUMENTED:
                wanted.setdefault(held, set()).add(lock)
        return sorted((held, lock) for held in wanted for lock in wanted[held]
                      if _reaches(wanted, lock, held))

    def details(self):
        lines = []
        for edge, stack in sorted(self.edges.items()):
            lines.append("%s, then %s%s" % (edge[0], edge[1], edge[2] and " in a fork"))
            if edge[:2] in self.cycles() or edge[:2] == ("GIL", "activity lock"):
                lines += ["   " + line for line in stack]
        return lines


def _reaches(wanted, start, end, seen=()):
    return start == end or any(
        _reaches(wanted, each, end, seen + (start,))
        for each in wanted.get(start, ()) if each not in seen)


def _watched(build, folder, arguments, seconds):
    path = [os.path.join(HERE, "lock_watch"), build.environment()["PYTHONPATH"]]
    return build.run(arguments, seconds, PYTHONPATH=os.pathsep.join(path), KEL_LOCK_GRAPH=folder,
                     LD_PRELOAD=os.path.join(build.folder, "liblock_order.so"))


def _modules(form):
    return [path for folder in FOLDERS[form]
            for path in sorted(glob.glob(os.path.join(PYTHON_TESTS, folder, "test_*.py")))]


def run(form):
    build = Build("release").ready()
    folder = tempfile.mkdtemp()
    runner = os.path.join(ROOT, "cmake", "run_python_test.py")
    try:
        pool = multiprocessing.pool.ThreadPool(multiprocessing.cpu_count())
        modules = _modules(form)
        ends = pool.map(lambda path: _watched(build, folder, [runner, path], TEST_SECONDS), modules)
        graph = Graph(folder)
    finally:
        shutil.rmtree(folder)
    failed = [path for path, ended in zip(modules, ends) if ended.status or ended.late]
    cycles = graph.cycles()
    figure = ("%d cycles among %d orders of two locks, %d waits for the activity lock with the "
              "GIL held, in %d processes of %d test modules" % (
                  len(cycles), len(graph.edges), graph.violations, graph.processes, len(modules)))
    passed = not (cycles or graph.violations or failed) and ("import lock", "GIL", "") in graph.edges
    details = ["%s failed" % path for path in failed] + graph.details()
    for ended in ends:
        details += ended.text() if ended.status or ended.late else []
    return Result(passed, figure, details)


PLANTED = """
import _Kel, kel_stress
kel_stress.lockWithGil()
"""


def planted(form):
    build = Build("release").ready()
    folder = tempfile.mkdtemp()
    try:
        ended = _watched(build, folder, ["-c", PLANTED], 60)
        # The other order is everywhere: it is that of the two locks.
        _watched(build, folder, ["-c", "import kel_hand; kel_hand.callUnderActivityLock(len.__repr__)"],
                 60)
        graph = Graph(folder)
    finally:
        shutil.rmtree(folder)
    caught = graph.violations == 1 and ("GIL", "activity lock") in graph.cycles()
    return Result(caught, "%d wait with the GIL held, %d orders in a cycle" % (
        graph.violations, len(graph.cycles())), ended.text() + graph.details())
