"""Ends in the middle of everything: exits.py WAY SEED. A seed of "planted" ends in an abort.

A loop runs on a thread of the runtime's own, on one of Python or on none; timers arm themselves,
handlers write, and threads change what they are told of, as the process ends in that way.
"""

import atexit
import os
import random
import signal
import sys
import threading
import time

import _Kel
import acme

manager = _Kel.singleton("Kel::ActivityManager")
clock = _Kel.singleton("Kel::Clock")
root = _Kel.singleton("Kel::Dir")
ClockNotifiee = _Kel.pyType(_Kel.typeNode("Kel::PyClockNotifiee"))

ended = threading.Event()


class Late(object):
    """Uses the runtime as it ends, which may be in the last moments of the interpreter."""

    def __init__(self, item):
        self.item = item
        self.call = item.add

    def __del__(self):
        self.call(2, 3)


class Timer(object):
    """Fires for ever, and changes what handlers are told of."""

    def __init__(self):
        self.notifiee = ClockNotifiee(clock, _Kel.handle(self.tell))
        self.tell()

    def tell(self):
        item.size = (item.size + 1) % 1000
        self.notifiee.timeMinProxy = clock.now + 0.0005


def handler(attr, key):
    other.size = item.size


def writing():
    number = 0
    while not ended.is_set():
        number += 1
        item.size = number % 1000


def thread_of(function):
    thread = threading.Thread(target=function)
    thread.daemon = True
    thread.start()
    return thread


item, other = acme.Item("one", 1), acme.Item("other", 2)


def leave_wrappers():
    """Where they go last: in modules, in a cycle, with a __del__, in a handler that is held by the
    notifiee that it holds."""
    sys.wrapper = acme.Store("store")
    os.wrapper = Late(acme.Item("late", 3))
    cycle = [acme.Item("cycle", 4)]
    cycle.append(cycle)
    watcher = _Kel.newNotifiee(other, _Kel.handle(lambda attr, key: watcher))
    globals()["watcher"] = watcher
    __builtins__.wrapper = watcher


def fail():
    raise ValueError("the end")


def on_signal(number, frame):
    sys.exit(9)


def by_signal():
    os.kill(os.getpid(), signal.SIGTERM)
    time.sleep(30)


def by_handled_signal():
    signal.signal(signal.SIGTERM, on_signal)
    by_signal()


def in_handler():
    """The thread of the loop ends the process while the main thread waits."""
    global last
    last = _Kel.newNotifiee(item, _Kel.handle(lambda attr, key: os._exit(11)))
    item.size = 5000
    time.sleep(30)


WAYS = {
    "end": lambda: None,
    "exception": fail,
    "exit": lambda: sys.exit(7),
    "_exit": lambda: os._exit(5),
    "signal": by_signal,
    "handled": by_handled_signal,
    "wrappers": leave_wrappers,
    "handler": in_handler,
}


def main(way, seed):
    if seed == "planted":
        atexit.register(os.abort)
    chance = random.Random(seed)
    watchers = [_Kel.newNotifiee(item, _Kel.handle(handler)) for _ in range(3)]
    timers = [Timer() for _ in range(3)]
    loop = chance.choice(["native", "python"] + ["none"] * (way != "handler"))
    if loop == "native":
        manager.start()
    elif loop == "python":
        thread_of(manager.run)
    writers = [thread_of(writing) for _ in range(chance.choice([0, 1, 2]))]
    sys.keep = watchers, timers
    time.sleep(chance.choice([0, 0.001, 0.01]))
    # A daemon thread that holds the activity lock as the process ends keeps it from ending: the
    # last wrappers wait for that lock. So those that write stop, but where nothing is torn down.
    if way not in ("_exit", "signal", "handler"):
        ended.set()
        for writer in writers:
            writer.join()
    WAYS[way]()


if __name__ == "__main__":
    main(*sys.argv[1:])
