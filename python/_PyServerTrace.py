"""Trace lines of the server, with the tag PyServer, on the handle "default".

A trace may wait for the activity lock, which an agent may hold for long. So a thread of its own
writes the lines, and those that come too fast for it are dropped.
"""

import os
import Queue
import sys
import threading

try:
    import _Kel
except ImportError:
    _Kel = None  # without the runtime there is no trace

_WAITING_LINES = 1000


class Trace(object):

    def __init__(self):
        self._lines = Queue.Queue(_WAITING_LINES)
        self._lock = threading.Lock()
        self._thread = None

    def __call__(self, level, text):
        """Writes a line in the name of the caller, soon; never waits and never raises."""
        if _Kel is None or _Kel.traceLineSuppressed(None, level):
            return
        caller = sys._getframe(1)
        code = caller.f_code
        line = (os.path.basename(code.co_filename), caller.f_lineno, code.co_name, text, level)
        try:
            self._lines.put_nowait(line)
            self._startOnce()
        except (Queue.Full, threading.ThreadError):
            pass

    def stop(self, timeout):
        """Waits for the lines that are still to be written."""
        with self._lock:
            thread = self._thread
            self._thread = None
        if thread is None:
            return
        try:
            self._lines.put_nowait(None)
        except Queue.Full:
            return
        thread.join(timeout)

    def _startOnce(self):
        with self._lock:
            if self._thread is None:
                thread = threading.Thread(target=self._run, name="PyServer trace")
                thread.daemon = True
                thread.start()
                self._thread = thread

    def _run(self):
        while True:
            line = self._lines.get()
            if line is None:
                return
            _Kel.trace_ht(None, "PyServer", *line)
