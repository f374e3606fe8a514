"""Types docs/first-hour.md into a shell and compares what it prints with what the page shows.

    first_hour.py BUILD               here, with that build, without what only a bare machine needs
    first_hour.py --chroot            in a bare Debian, from the clone on, with the time of it
    first_hour.py --chroot --write    the same, and brings the page up to date

Files that the page shows are written where the shell is at the time. Status 1 if something differs.
"""

import difflib
import multiprocessing
import os
import re
import shutil
import subprocess
import sys
import tempfile

import pages

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
PAGE = os.path.join(ROOT, "docs", "first-hour.md")

FENCE = re.compile(r"(?ms)(?:^`([\w.]+)`:\n\n)?^<!-- not run: ([^\n]*) -->\n^```(\S+)\n(.*?)^```$")
BARE = "a bare machine alone has to do it"
TIMES = re.compile(r"(?s)(<!-- times -->\n).*?(<!-- end of times -->)")
HEADING = re.compile(r"(?m)^## (.*)$")

MARK = "-- end of the output of a command, at "
NOISE = re.compile(r"(?m)^(dev: (?!installed).*|\[PyServer .* not responding, still trying.*)\n")
MOST_LINES, KEPT = 24, 10

# What stands for ./dev where all is built: its arguments are the build and the source.
STAND_IN = """#!/bin/bash
set -e
verb=$1; shift
export PYTHONPATH=%(build)s/python
case $verb in
   demo) exec %(python)s %(root)s/examples/acme/demo.py ;;
   python) exec %(python)s "$@" ;;
   install)
      cmake --install %(build)s --prefix "$1" > /dev/null
      echo "dev: installed; PYTHONPATH=$1/lib/python2.7/site-packages finds _Kel and Kel" ;;
esac
"""


class Step(object):
    """A command or, with a name, a file; under which heading, and where the page has its output."""

    def __init__(self, heading, text, name=None, bare=False, shown="", span=None):
        self.heading, self.text, self.name, self.bare = heading, text, name, bare
        self.shown, self.span = shown, span


def steps(page):
    headings = [(found.start(), found.group(1)) for found in HEADING.finditer(page)]
    found = []
    for fence in FENCE.finditer(page):
        name, why, language, code = fence.groups()
        heading = [text for start, text in headings if start < fence.start()][-1]
        if language != "console":
            found.append(Step(heading, code, name))
            continue
        for part in re.finditer(r"(?ms)^\$ ([^\n]*)\n(.*?)(?=^\$ |\Z)", code):
            start, end = (fence.start(4) + offset for offset in part.span(2))
            found.append(Step(heading, part.group(1), None, why == BARE, part.group(2),
                              (start, end)))
    return found


def script(typed):
    """The text for bash. The time goes behind the mark."""
    lines, before = [], ""
    for step in typed:
        if step.name:
            lines.append("cat > %s << 'END OF IT'\n%sEND OF IT\n" % (step.name, step.text))
        else:
            text = pages.typed(step.text, before)
            lines.append("%s\necho \"%s$( date +%%s.%%N )\"\n" % (text, MARK))
            before = step.text
    return "echo \"%s$( date +%%s.%%N )\"\n" % MARK + "".join(lines)


def read(printed, home):
    """(output, seconds) of each command."""
    parts = re.split(re.escape(MARK) + r"([\d.]+)\n", printed)
    moments = map(float, parts[1::2])
    outputs = [tidy(text, home) for text in parts[2::2]]
    return zip(outputs, [after - before for before, after in zip(moments, moments[1:])])


def tidy(text, home):
    """Without what differs from one machine to the next, and not too long for a page."""
    lines = NOISE.sub("", text.replace(home, "~")).splitlines()
    lines = [line.rstrip() for line in lines]
    if len(lines) > MOST_LINES:
        lines[KEPT:-KEPT] = ["..."]
    return "".join(line + "\n" for line in lines)


def in_bash(text, folder, environment):
    shell = subprocess.Popen(["bash", "-s"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, cwd=folder, env=environment)
    return shell.communicate(text)[0]


def here(build, typed):
    """(output, seconds) of each command, by the build at hand."""
    home = tempfile.mkdtemp(prefix="kel-first-hour-")
    try:
        os.mkdir(os.path.join(home, "kel"))
        dev = os.path.join(home, "kel", "dev")
        with open(dev, "w") as stand_in:
            stand_in.write(STAND_IN % {"build": build, "root": ROOT, "python": sys.executable})
        os.chmod(dev, 0o755)
        environment = dict(os.environ, HOME=home, PYTHONDONTWRITEBYTECODE="1")
        environment["PATH"] = os.path.dirname(sys.executable) + os.pathsep + environment["PATH"]
        printed = in_bash(script(typed), os.path.join(home, "kel"), environment)
    finally:
        shutil.rmtree(home)
    return read(printed, home)


def in_chroot(typed):
    """The same in a bare Debian, by a clone of what is committed."""
    sys.path.insert(0, os.path.join(ROOT, "tests", "checks"))
    import chroot
    with chroot.Chroot("first-hour") as place:
        subprocess.check_call(["git", "clone", "-q", "--bare", ROOT, place.path("srv/kel.git")])
        with open(place.path("srv/typed"), "w") as typed_there:
            typed_there.write(script(typed))
        ended = place.run("cd; exec bash /srv/typed 2>&1", 3600)
    return read(ended.out, "/root")


def compare(typed, got):
    """What differs, as lines."""
    wrong = []
    commands = [step for step in typed if not step.name]
    for step, (printed, _) in zip(commands, got):
        if printed != step.shown:
            wrong.append("$ " + step.text)
            wrong += list(difflib.unified_diff(step.shown.splitlines(), printed.splitlines(),
                                               "the page", "what is printed", lineterm=""))
    if len(got) != len(commands):
        wrong.append("%d of %d commands came to their end" % (len(got), len(commands)))
    return wrong


def times(typed, got):
    """(heading, seconds) in the page's order."""
    sums = []
    for step, (_, seconds) in zip([step for step in typed if not step.name], got):
        if not sums or sums[-1][0] != step.heading:
            sums.append((step.heading, 0))
        sums[-1] = (step.heading, sums[-1][1] + seconds)
    return sums


def clock(seconds):
    seconds = int(round(seconds))
    return "%d min %02d s" % divmod(seconds, 60) if seconds >= 60 else "%d s" % seconds


def machine(load):
    """What the times were taken on, where so many processes wanted to run."""
    processors = multiprocessing.cpu_count()
    text = "a machine with %d processors" % processors
    if load > processors * 1.5:
        text += ", which had %d times as much to do as that beside it" % round(load / processors)
    return text


def written(page, typed, got, load):
    """The page with these outputs and times."""
    commands = [step for step in typed if not step.name]
    for step, (printed, _) in reversed(zip(commands, got)):
        page = page[:step.span[0]] + printed + page[step.span[1]:]
    rows = times(typed, got)
    rows.append(("all of it", sum(seconds for _, seconds in rows)))
    table = "".join("| %s | %s |\n" % (name, clock(seconds)) for name, seconds in rows)
    table = "It took, on %s:\n\n| | |\n|---|---|\n" % machine(load) + table
    return TIMES.sub(lambda found: found.group(1) + table + found.group(2), page)


def main(arguments):
    with open(PAGE) as source:
        page = source.read()
    typed = steps(page)
    if "--chroot" in arguments:
        got = in_chroot(typed)
    else:
        typed = [step for step in typed if not step.bare]
        got = here(os.path.abspath(arguments[0]), typed)
    wrong = compare(typed, got)
    for heading, seconds in times(typed, got):
        print "%s: %s" % (heading, clock(seconds))
    if "--write" in arguments:
        with open(PAGE, "w") as target:
            target.write(written(page, typed, got, os.getloadavg()[0]))
        return 0
    print "\n".join(wrong)
    return 1 if wrong or not typed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
