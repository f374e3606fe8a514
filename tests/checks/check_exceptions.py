"""Each exception of C++ becomes, in each operation, what docs/reliability.md says.

The two tables there are read, and each combination of their rows is tried.
"""

import json
import os

import frame

NAME = "exceptions"
PASS = "100 % of the cells as documented"
SECONDS = {"short": 2, "long": 2}

DOCUMENT = os.path.join(frame.ROOT, "docs", "reliability.md")


def table_rows(text, title):
    """The cells of the table whose headline begins with the title."""
    lines = text.splitlines()
    start = [number for number, line in enumerate(lines) if line.startswith("| %s |" % title)][0]
    rows = []
    for line in lines[start + 2:]:
        if not line.startswith("|"):
            break
        rows.append([cell.strip() for cell in line.strip("|\n").split("|")])
    return rows


def cells():
    """(operation, thrown, class of Python or "", text) as documented."""
    with open(DOCUMENT) as document:
        text = document.read()
    for operation, front, exception in table_rows(text, "operation"):
        operation, front = operation.replace("`", ""), front.strip("`")
        for thrown, raised, told in table_rows(text, "thrown"):
            thrown, raised = thrown.strip("`"), raised.strip("`")
            if "`%s`" % thrown in exception:
                raised, text_ = _excepted(exception)
            else:
                text_ = _text(front, thrown, told)
            yield operation, thrown, raised, text_


def _excepted(text):
    """Of "but for X: `Class` "text"": class and text; else what the words say."""
    said = text.split(": ", 1)[1]
    if said.startswith("`"):
        return said.split("`")[1], said.split('"')[1]
    return "", said


def _text(front, thrown, told):
    if told == "its class and text":
        return '%s%s("text")' % (front, thrown)
    if told.startswith("`errno`"):
        return "[Errno 5] Input/output error: 'text'"
    if told == "its `what()`":
        return front + {"std::runtime_error": "text"}.get(thrown, thrown)
    return front + told.strip("`")


def run(form, **environment):
    build = frame.Build("release").ready()
    wanted = list(cells())
    script = os.path.join(frame.HERE, "throw_exceptions.py")
    ended = build.run([script, json.dumps(wanted)], 120, **environment)
    lines = ended.out.splitlines()
    wrong = [line for line in lines if line.startswith("WRONG ")]
    tried = [line for line in lines if line.startswith("TRIED ")]
    if ended.status != 0 or len(tried) != 1:
        return frame.Result(False, "it did not end", ended.text())
    count = int(tried[0].split()[1])
    figure = "%d of %d cells as documented" % (count - len(wrong), len(wanted))
    return frame.Result(not wrong and count == len(wanted), figure, wrong)


def planted(form):
    """One class is told wrongly."""
    result = run(form, KEL_CHECK_PLANT="1")
    caught = result.details and "Kel::RangeException" in result.details[0]
    return frame.Result(bool(caught) and not result.passed, result.figure, result.details)
