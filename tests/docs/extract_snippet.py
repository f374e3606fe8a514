"""Writes a fenced block of a Markdown page to a file: extract_snippet.py PAGE LANGUAGE OUT.

The block is the first of its language; the file is left alone if nothing changed.
"""

import os
import re
import sys


def main(page, language, out):
    with open(page) as source:
        found = re.search("^```%s\n(.*?)^```$" % language, source.read(), re.M | re.S)
    if not found:
        sys.exit("%s has no block of %s" % (page, language))
    if os.path.exists(out):
        with open(out) as present:
            if present.read() == found.group(1):
                return
    with open(out, "w") as target:
        target.write(found.group(1))


if __name__ == "__main__":
    main(*sys.argv[1:])
