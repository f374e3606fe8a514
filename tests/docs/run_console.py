"""Runs the console blocks of a Markdown page in one shell, in a folder of its own, and compares what
they print with what the page shows: run_console.py PAGE PROGRAMS. Status 1 if they differ.

A line that begins with "$ " is a command, what follows up to the next is its output, in which "..."
stands for anything. The first python block is at hand as the file that the page calls it, if it calls one.
"""

import doctest
import os
import re
import shutil
import subprocess
import sys
import tempfile

FLAGS = doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE  # columns are as wide as their numbers
MARK = "-- end of the output of a command --"


def blocks(text, language):
    return re.findall("^```%s\n(.*?)^```$" % language, text, re.M | re.S)


def commands(text):
    """Pairs of a command and the output that the page shows."""
    found = []
    for block in blocks(text, "console"):
        for part in re.split(r"(?m)^\$ ", block)[1:]:
            command, _, output = part.partition("\n")
            found.append((command, output))
    return found


def outputs(wanted, folder, programs):
    """What each command prints, to both streams."""
    environment = dict(os.environ, KELC_AGENTS_DIR=os.path.join(folder, "agents"), HOME=folder)
    environment["PATH"] = programs + os.pathsep + environment["PATH"]
    script = "".join("%s\necho '%s'\n" % (command, MARK) for command, _ in wanted)
    shell = subprocess.Popen(["bash", "-s"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, cwd=folder, env=environment)
    return shell.communicate(script)[0].split(MARK + "\n")


def main(page, programs):
    with open(page) as source:
        text = source.read()
    folder = tempfile.mkdtemp()
    failures = 0
    try:
        os.mkdir(os.path.join(folder, "agents"))
        named = re.search(r"`(\w+\.py)`:\n", text)
        if named:
            with open(os.path.join(folder, named.group(1)), "w") as script:
                script.write(blocks(text, "python")[0])
        wanted = commands(text)
        for (command, shown), got in map(None, wanted, outputs(wanted, folder, programs)[:len(wanted)]):
            if not doctest.OutputChecker().check_output(shown, got or "", FLAGS):
                failures += 1
                print "$ %s\nshould print\n%sand printed\n%s" % (command, shown, got)
    finally:
        shutil.rmtree(folder)
    print "%s: %d of %d commands failed" % (os.path.basename(page), failures, len(wanted))
    return 1 if failures or not wanted else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
