"""Crashes: crashes.py WAY PLACE HANDLED, among busy threads.

Writes the frames that the report has to show, innermost first, to standard output before. With
"handled" an exception is being handled whose text takes much memory; with "planted" the report
has to show a frame that there is not.
"""

import sys
import threading
import time

import _Kel
import acme
import kel_crash

way, place, handled = sys.argv[1:]
shown = []


class Large(Exception):

    def __str__(self):
        return "".join(["large"] * 10 ** 6)


def tell(is_python=True):
    frame = sys._getframe(1)
    while frame is not None and is_python:
        shown.append('  File "%s", line %d, in %s\n' % (
            frame.f_code.co_filename, frame.f_lineno, frame.f_code.co_name))
        frame = frame.f_back
    if handled == "planted":
        shown.append('  File "nowhere", line 1, in nothing\n')
    sys.stdout.write("".join(shown) + "now\n")
    sys.stdout.flush()


def innermost():
    if place == "native":
        tell(False), kel_crash.crashOnNativeThread(way)
    elif place == "without":
        tell(), kel_crash.crashWithoutGil(way)
    else:
        tell(), kel_crash.crash(way)


def outer():
    if handled == "handled":
        try:
            raise Large()
        except Large:
            innermost()
    innermost()


def computing():
    while True:
        [str(number) for number in range(100)]


def daemon(function):
    thread = threading.Thread(target=function)
    thread.daemon = True
    thread.start()
    return thread


def main():
    for _ in range(2):
        daemon(computing)
    if place == "thread":
        daemon(outer).join()
    elif place == "handler":
        item = acme.Item("item", 1)
        watcher = _Kel.newNotifiee(item, _Kel.handle(lambda attr, key: outer()))
        _Kel.singleton("Kel::ActivityManager").start()
        item.size = 5
        time.sleep(60)
        del watcher
    else:
        outer()


main()
