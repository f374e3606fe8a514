"""Threads of every sort work on the same objects, and nobody waits for long or loses a change."""

from frame import Result
from stress_runs import Run

NAME = "lock-stress"
PASS = "done, counts right; in the long form over 10^6 operations, no wait of 1 s"
SECONDS = {"short": 5, "long": 700}

THREADS = 10  # eight of Python, two native
OPERATIONS = {"short": 10 ** 4, "long": 10 ** 6}
LONGEST_WAIT = 1.0  # seconds


def run(form):
    steps = OPERATIONS[form] / THREADS
    # Forks stop all threads on purpose; they have a check of their own.
    result = Run(["--steps", steps, "--forks", 0], seconds=steps / 50 + 120)
    figure = ("%d operations, %d holds of the activity lock, longest wait %.3f s for it, %.3f s "
              "for the GIL, %.3f s for a processor" % (
                  OPERATIONS[form], result.locks, result.lock_wait, result.gil_wait,
                  result.machine_wait))
    # A machine that does more beside a short run may keep any thread waiting.
    longest = max(result.gil_wait, result.lock_wait) - result.machine_wait
    prompt = form == "short" or longest < LONGEST_WAIT
    return Result(result.passed and prompt, figure, result.details())


def planted(form):
    result = Run(["--steps", 200, "--forks", 0, "--plant", "lose_one"], seconds=60)
    caught = result.ended.status == 1 and "seen was" in result.ended.out
    return Result(caught, "the lost change was %stold" % ("" if caught else "not "),
                  result.details())
