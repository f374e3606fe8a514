"""The report that docs/crash-report.md explains: crash_page.py --write puts a new one there.

It comes of a real crash of the program that the page shows.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, os.pardir))
PAGE = os.path.join(ROOT, "docs", "crash-report.md")
_PROGRAM = re.compile(r"(?ms)`crash\.py`:\n\n```python\n(.*?)^```$")
_REPORT = re.compile(r"(?ms)^(It says:\n\n```text\n)(.*?)(^```$)")


def report():
    """What the page's program says as it crashes, and how it ends."""
    folder = tempfile.mkdtemp()
    try:
        with open(PAGE) as page, open(os.path.join(folder, "crash.py"), "w") as out:
            out.write(_PROGRAM.search(page.read()).group(1))
        child = subprocess.Popen([sys.executable, "crash.py"], cwd=folder, stderr=subprocess.PIPE)
        return child.communicate()[1], child.returncode
    finally:
        shutil.rmtree(folder)


def shown():
    """The report that the page shows."""
    with open(PAGE) as page:
        return _REPORT.search(page.read()).group(2)


def shape(text):
    """The report without what differs from one build, one process and one machine to the next."""
    text = re.sub(r"(?m)^\S+\(\S*\)\[0x[0-9a-f]+\]$\n(?:\S+\(\S*\)\[0x[0-9a-f]+\]\n)+", "<stack>\n", text)
    text = re.sub(r'File "/\S+?([^/"]+)", line \d+', r'File "\1"', text)
    return re.sub(r"\b(process|thread) \d+", r"\1 N", text)


def main():
    text = report()[0]
    if sys.argv[1:] != ["--write"]:
        sys.stdout.write(text)
        return
    # The folder of a build and the names of interpreters are nobody's business.
    text = re.sub(r"(?m)^\S*/(_?\w+\.so[.\d]*)\(", r"\1(", text)
    with open(PAGE) as page:
        before = page.read()
    with open(PAGE, "w") as page:
        page.write(_REPORT.sub(lambda found: found.group(1) + text + found.group(3), before))


if __name__ == "__main__":
    main()
