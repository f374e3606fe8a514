"""Runs all code of a Markdown page and compares what it prints with what the page shows:
run_page.py PAGE [PROGRAMS [COMPILED...]]. Status 1 if something differs, or a block is not run.

Sessions share their names, in order. Scripts run alone, in a folder of their own. Commands of consoles share
one shell, in a folder with the files that the page shows; PROGRAMS is the folder of the commands of the
project. A line that begins with "$ " is a command, what follows up to the next is its output, in which
"..." stands for anything. C++ is compiled by the build: COMPILED are the names of the pages for which it is.
"""

import doctest
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile

import pages

FLAGS = doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE  # columns are as wide as their numbers
WAITING = re.compile(r"(?m)^\[PyServer .* not responding, still trying.*\n")  # on a busy machine
MARK = "-- end of the output of a command --"


def of_kind(text, kind):
    return [block for block in pages.blocks(text) if block.kind == kind]


def sessions_fail(page, text):
    kept = set(block.line for block in of_kind(text, pages.SESSION))
    # Only sessions are left, at their lines; a fence ends the output of the example before it.
    lines, inside = text.split("\n"), False
    for number, line in enumerate(lines, 1):
        if line.startswith("```"):
            inside = number in kept if not inside else False
            lines[number - 1] = ""
        elif not inside:
            lines[number - 1] = ""
    test = doctest.DocTestParser().get_doctest("\n".join(lines), {"__name__": "__main__"},
                                               os.path.basename(page), page, 0)
    runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS)
    runner.run(test)
    return runner.failures, runner.tries


def scripts_fail(text, folder):
    failures, scripts = 0, of_kind(text, pages.SCRIPT)
    for block in scripts:
        child = subprocess.Popen([sys.executable, "-c", block.code], cwd=folder, env=environment(folder),
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        printed = child.communicate()[0]
        if child.returncode != 0:
            failures += 1
            print "line %d: status %s\n%s" % (block.line, child.returncode, printed)
    return failures, len(scripts)


def environment(folder, programs=None):
    result = dict(os.environ, KELC_AGENTS_DIR=os.path.join(folder, "agents"), HOME=folder)
    # `python2.7` is the one that runs this.
    result["PATH"] = os.pathsep.join(
        filter(None, [programs, os.path.dirname(sys.executable), result["PATH"]]))
    return result


def commands(text):
    """Pairs of a command and the output that the page shows."""
    found = []
    for block in of_kind(text, pages.CONSOLE):
        for part in re.split(r"(?m)^\$ ", block.code)[1:]:
            command, _, output = part.partition("\n")
            found.append((command, output))
    return found


def outputs(wanted, folder, programs):
    """What each command prints, to both streams."""
    script, behind = "", ""
    for command, _ in wanted:
        script += "%s\necho '%s'\n" % (pages.typed(command, behind), MARK)
        behind = command
    shell = subprocess.Popen(["bash", "-s"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, cwd=folder, env=environment(folder, programs))
    return WAITING.sub("", shell.communicate(script)[0]).split(MARK + "\n")


def consoles_fail(text, folder, programs):
    failures = 0
    wanted = commands(text)
    for block in of_kind(text, pages.FILE):
        with open(os.path.join(folder, block.name), "w") as out:
            out.write(block.code)
    for (command, shown), got in map(None, wanted, outputs(wanted, folder, programs)[:len(wanted)]):
        if not doctest.OutputChecker().check_output(shown, got or "", FLAGS):
            failures += 1
            print "$ %s\nshould print\n%sand printed\n%s" % (command, shown, got)
    return failures, len(wanted)


def run(page, programs, compiled):
    """What failed and what was run, as two numbers."""
    with open(page) as source:
        text = source.read()
    wrong = pages.faults(text)
    if of_kind(text, pages.CPP) and os.path.basename(page) not in compiled:
        wrong.append("there is C++ that the build does not compile")
    for fault in wrong:
        print "%s: %s" % (os.path.basename(page), fault)
    folder = tempfile.mkdtemp()
    try:
        os.mkdir(os.path.join(folder, "agents"))
        results = [sessions_fail(page, text), scripts_fail(text, folder)]
        if commands(text):
            results.append(consoles_fail(text, folder, programs))
    finally:
        shutil.rmtree(folder)
    return len(wrong) + sum(result[0] for result in results), sum(result[1] for result in results)


def main(page, programs="", *compiled):
    # A page may show Ctrl-C, which whoever started this may have turned off.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    failures, tries = run(page, programs, compiled)
    with open(page) as source:
        exempt = len(of_kind(source.read(), pages.EXEMPT))
    print "%s: %d of %d examples failed, %d blocks not run" % (
        os.path.basename(page), failures, tries, exempt)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
