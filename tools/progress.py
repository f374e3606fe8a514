"""One line on standard error that tells how far long work is, where that is a terminal.

    with Progress("check", len(names)) as progress:
        for name in names:
            progress.next(name, 60)     # check 2 of 20: memory, 12 of about 60 s
            ...
            progress.clear()            # before anything else is printed

The line is rewritten in place and is gone at the end. Elsewhere than on a terminal nothing is written.
"""

import fcntl
import os
import struct
import sys
import termios
import threading
import time

COLUMNS = 79  # of a terminal that does not say


class Progress(object):

    def __init__(self, what, total, ticking=True, stream=None):
        """With `ticking`, a thread of its own counts the seconds; without, next() and step() alone write."""
        self._stream = stream or sys.stderr
        self._what, self._total, self._number = what, total, 0
        self._name, self._detail, self._seconds, self._started = "", "", 0, 0
        self._shown = False
        self._lock = threading.Lock()
        self._ended = threading.Event()
        self.active = self._stream.isatty()
        self._ticker = threading.Thread(target=self._tick) if self.active and ticking else None
        if self._ticker:
            self._ticker.daemon = True
            self._ticker.start()

    def next(self, name, seconds=0):
        """Goes on to the next of the total, which takes about so many seconds, if that is known."""
        self._number += 1
        self._name, self._detail, self._seconds, self._started = name, "", seconds, time.time()
        self._write()

    def step(self, number, total):
        """Tells how far the present one is."""
        self._detail = " (%d of %d)" % (number, total)
        self._write()

    def along(self, items, total=None):
        """The items, each of which is a step."""
        total = len(items) if total is None else total
        for number, item in enumerate(items, 1):
            self.step(number, total)
            yield item

    def clear(self):
        """Takes the line away until there is something new to tell."""
        with self._lock:
            if self._shown:
                self._put("\r\033[K")
            self._shown = False

    def end(self):
        self._ended.set()
        if self._ticker:
            self._ticker.join()
        self.clear()
        self.active = False

    def __enter__(self):
        return self

    def __exit__(self, *error):
        self.end()

    def text(self):
        about = " of about %d" % self._seconds if self._seconds else ""
        return "%s %d of %d: %s%s, %d%s s" % (
            self._what, self._number, self._total, self._name, self._detail,
            time.time() - self._started, about)

    def _tick(self):
        while not self._ended.wait(1):
            with self._lock:
                if self._shown:
                    self._put_line()

    def _write(self):
        if self.active:
            with self._lock:
                self._shown = True
                self._put_line()

    def _put_line(self):
        self._put("\r%s\033[K" % self.text()[:columns(self._stream) - 1])

    def _put(self, text):
        try:
            self._stream.write(text)
            self._stream.flush()
        except (EnvironmentError, ValueError):
            self.active = False  # the terminal is gone; the work goes on


class Silent(object):
    """What stands in where nobody has asked for progress."""

    def next(self, name, seconds=0):
        pass

    def step(self, number, total):
        pass

    def along(self, items, total=None):
        return iter(items)

    def clear(self):
        pass


def columns(stream):
    try:
        answer = fcntl.ioctl(stream.fileno(), termios.TIOCGWINSZ, b"\0" * 8)
        return struct.unpack("HHHH", answer)[1] or COLUMNS
    except (EnvironmentError, ValueError, AttributeError, struct.error):
        return int(os.environ.get("COLUMNS", COLUMNS))
