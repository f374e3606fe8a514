"""The pages of kel-schema and kel-browse do in a browser what they promise, and ask nobody else.

These are tests as well, which are left out where there is no browser. Here one is required.
"""

import os
import re
import shutil
import tempfile

from frame import ROOT, Build, NotReady, Result, run_process

NAME = "browser"
PASS = "all tests of the pages pass"
SECONDS = {"long": 40}
LONG_ONLY = True

_SKIPPED = 77  # of run.py: there is no browser
# A press on the button that is to ask first makes the call.
_WHOLE = "() => prepareCall( described )"
_BROKEN = "() => call( path, described.name, [ \"5\" ] )"
_NOTICED_BY = "test_none_is_made_without_the_second_press"


def _built():
    """The folder of a build that has all of it."""
    folder = Build("release").ready("importable", "kel-agent", "kel-eval").folder
    return os.path.dirname(folder)


def _run(programs, tests=()):
    script = os.path.join(ROOT, "tests", "browser", "run.py")
    ended = run_process(["/usr/bin/python3", "-B", script] + list(tests), 900,
                        dict(os.environ, KEL_PROGRAMS=programs))
    if ended.status == _SKIPPED:
        raise NotReady(ended.out)
    return ended


def run(form):
    ended = _run(os.path.join(_built(), "bin"))
    count = re.search(r"^Ran (\d+) tests", ended.err, re.M)
    return Result(ended.status == 0, "%s tests of the pages" % (count.group(1) if count else "no"),
                  ended.text())


def planted(form):
    copy = tempfile.mkdtemp(prefix="kel-")
    try:
        _copy_broken(_built(), copy)
        ended = _run(os.path.join(copy, "bin"), ["test_browse_page.Calls"])
    finally:
        shutil.rmtree(copy)
    caught = ended.status == 1 and "FAIL: " + _NOTICED_BY in ended.err
    return Result(caught, "the call that nobody had confirmed was %sseen" % ("" if caught else "not "),
                  ended.text())


def _copy_broken(build, copy):
    """Programs with a page of their own; all else is the build's."""
    for folder in "bin", "python":
        os.mkdir(os.path.join(copy, folder))
        for name in os.listdir(os.path.join(build, folder)):
            os.symlink(os.path.join(build, folder, name), os.path.join(copy, folder, name))
    program = os.path.join(copy, "bin", "kel-browse")
    os.remove(program)
    shutil.copy(os.path.join(build, "bin", "kel-browse"), program)
    page = os.path.join(copy, "python", "_KelBrowsePage.py")
    with open(page) as source:
        text = source.read()
    os.remove(page)
    assert _WHOLE in text
    with open(page, "w") as source:
        source.write(text.replace(_WHOLE, _BROKEN))
