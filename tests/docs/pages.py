"""The fenced blocks of a Markdown page, and how each is run.

Every block of code is run by a test. One that cannot be has a line of its own before it, which says why:

    <!-- not run: it needs a terminal -->

Blocks of the language `text` show what something looks like and are no code.
"""

import re

_FENCE = re.compile(r"(?ms)^```(\S*)\n(.*?)^```$")
_EXEMPT = re.compile(r"<!-- not run: \S.*-->\n+\Z")
_NAMED = re.compile(r"`([\w.]+\.py)`:\n+\Z")  # the name of a file, before what stands in it
# Behind a paragraph; behind an item of a list it goes on with that.
_INDENTED = re.compile(r"(?m)^((?![-*] |\d+\. )\S.*\n\n)( {4}\S)")

SESSION, FILE, SCRIPT, CONSOLE, CPP, TEXT, EXEMPT, UNKNOWN = (
    "session", "file", "script", "console", "cpp", "text", "exempt", "unknown")

_PATIENT = """for again in $(seq 100); do
   shown=$(%s 2>&1) && break
   sleep 0.2
done
echo "$shown"
"""


def typed(command, before):
    """What to type for a command of a console behind another one. A reader takes longer to type than
    a process in the background to get ready."""
    return _PATIENT % command if before.endswith("&") else command


class Block(object):

    def __init__(self, text, fence):
        before = text[:fence.start()]
        self.line = before.count("\n") + 1
        self.language = fence.group(1)
        self.code = fence.group(2)
        named = _NAMED.search(before)
        self.name = named.group(1) if named else None
        self.kind = EXEMPT if _EXEMPT.search(before) else self._kind()

    def _kind(self):
        if self.language == "python":
            return SESSION if ">>> " in self.code else FILE if self.name else SCRIPT
        return {"console": CONSOLE, "cpp": CPP, "text": TEXT}.get(self.language, UNKNOWN)


def blocks(text):
    return [Block(text, fence) for fence in _FENCE.finditer(text)]


def faults(text):
    """What keeps a block of the page from being run, a list of texts."""
    found = blocks(text)
    wrong = ["line %d: nothing runs a block of '%s'; say why not" % (block.line, block.language)
             for block in found if block.kind == UNKNOWN]
    if any(block.kind == FILE for block in found) and not any(block.kind == CONSOLE for block in found):
        wrong.append("a file is shown that no command uses")
    outside = _FENCE.sub(lambda fence: "\n" * fence.group().count("\n"), text)
    if re.search(r"(?m)^```", outside):
        wrong.append("line %d: a fence that is not closed" % (
            outside[:re.search(r"(?m)^```", outside).start()].count("\n") + 1))
    for match in _INDENTED.finditer(outside):
        wrong.append("line %d: an indented block; fence it" % (outside[:match.start(2)].count("\n") + 1))
    return wrong
