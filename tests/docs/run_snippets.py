"""Runs the examples of Markdown pages as doctests; fails if one does not print what the page says.

The examples of a page share their names, in order.
"""

import doctest
import os
import re
import signal
import sys


def run(page):
    with open(page) as source:
        # A fence ends the output of the example before it.
        text = re.sub(r"(?m)^```.*$", "", source.read())
    test = doctest.DocTestParser().get_doctest(text, {"__name__": "__main__"}, os.path.basename(page), page, 0)
    runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS)
    runner.run(test)
    return runner.failures, runner.tries


def main(pages):
    # A page may show Ctrl-C, which whoever started this may have turned off.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    status = 0
    for page in pages:
        failures, tries = run(page)
        print "%s: %d of %d examples failed" % (os.path.basename(page), failures, tries)
        if failures or not tries:
            status = 1
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
