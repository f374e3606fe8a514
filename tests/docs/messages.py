"""The texts that users can meet, as the source has them and as the reference lists them.

Both forms leave out what varies: a conversion of a format ("%s") in the source and a word in angle
brackets ("<type>") in the reference are a gap, and so is what stands between two literals that a `+`
or a `<<` joins.

Not covered: the lines of the trace, texts of Python itself and of the parser of arguments, what the
commands print (their manuals tell), and texts that another program's exception brings along.
"""

import ast
import glob
import os
import re

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, os.pardir))
GAP = u"\N{HORIZONTAL ELLIPSIS}"

_TOKEN = re.compile(r"""//[^\n]*|/\*.*?\*/|(?P<literal>"(?:[^"\\\n]|\\.)*")|'(?:[^'\\\n]|\\.)+'""", re.S)
_LITERALS = re.compile(r'"((?:[^"\\\n]|\\.)*)"(?:\s*"((?:[^"\\\n]|\\.)*)")*')
_CONVERSION = re.compile(r"%[-+ #0]*(?:\d+|\*)?(?:\.\d+)?(?:hh|ll|[hlzjt])?[diouxXscpfger]")
# What raises, or hands a text to what does.
_RAISES = re.compile(
    r"\b(?:PyErr_SetString|PyErr_Format|refuse|readEnd|explainLack|endWithPythonError|failFromPyErr|"
    r"throw\s+(?:Kel::)?\w*(?:Exception|withBacktrace))\s*\(")
_TRACES = re.compile(r"\bKEL_TRACE\s*\(.*?;", re.S)
# Before a documentation string, which help() shows and the pages of the types tell.
_DOC_BEFORE = re.compile(r"(?:METH_\w+,|\.tp_doc =|readOnly\([^()]*,|\b\w+Row\(|functions,)\s*$")
_ALTERNATIVE = re.compile(r"[?:]\s*$")  # before a word that stands in for a gap
_STAGE = re.compile(r"[a-z]+(?: [a-z]+)*: $")
_SENTENCE = re.compile(r"[A-Za-z0-9'>]+,? '?[a-z0-9_A-Z%(]")
_COMMANDS = ("_KelBrowse", "_KelSchema")  # modules of commands
_PRIVATE = ("Closed", "Gone", "Late", "Rubbish")  # of the server; they end in its trace


def _without_comments(text):
    def blank(token):
        return token.group() if token.group("literal") else " " * len(token.group())
    return re.sub(r"(?m)^\s*#.*$", lambda line: " " * len(line.group()), _TOKEN.sub(blank, text))


def _end_of_call(text, start):
    """Where the parentheses close that open at `start`."""
    depth = 0
    for match in re.compile(r'"(?:[^"\\\n]|\\.)*"|[()]').finditer(text, start):
        depth += {"(": 1, ")": -1}.get(match.group(), 0)
        if depth == 0:
            return match.end()
    return len(text)


def _unescaped(literal):
    return "".join(ast.literal_eval(part) for part in re.findall(r'"(?:[^"\\\n]|\\.)*"', literal))


def _is_text(text, literal, raising):
    if not re.search("[A-Za-z]{2}", _CONVERSION.sub("", _unescaped(literal.group()))):
        return False
    if _DOC_BEFORE.search(text[:literal.start()]):
        return False
    words = _unescaped(literal.group())
    if re.match("[a-z]+ ?$", words) and _ALTERNATIVE.search(text[:literal.start()]):
        return False
    return (any(start <= literal.start() < end for start, end in raising)
            or _STAGE.match(words) is not None or _SENTENCE.search(words) is not None)


def of_cpp(path, everything=True):
    """The texts of a file; without `everything` those alone that stand where something is thrown."""
    with open(path) as source:
        text = _without_comments(source.read())
    text = _TRACES.sub(lambda trace: " " * len(trace.group()), text)
    raising = [(match.start(), _end_of_call(text, match.end() - 1)) for match in _RAISES.finditer(text)]
    found = set()
    for literal in _LITERALS.finditer(text):
        inside = any(start <= literal.start() < end for start, end in raising)
        if (everything or inside) and _is_text(text, literal, raising):
            found.add(with_gaps(_unescaped(literal.group())))
    return found


def of_python(path):
    """The texts of what a Python file raises."""
    with open(path) as source:
        tree = ast.parse(source.read())
    found = set()
    for node in ast.walk(tree):
        if not isinstance(node, ast.Raise) or not isinstance(node.type, ast.Call):
            continue
        if isinstance(node.type.func, ast.Name) and node.type.func.id in _PRIVATE:
            continue
        found.update(with_gaps(part.s) for argument in node.type.args for part in ast.walk(argument)
                     if isinstance(part, ast.Str) and re.search("[a-z]{2}", part.s))
    return found


_CLASSED = re.compile(r"PyErr_(?:SetString|Format)\(\s*PyExc_(\w+),\s*(?=\")|"
                      r"throw (?:Kel::)?(\w+Exception)\(\s*(?:Kel::)?(?:_fmt\(\s*)?(?=\")")


def classes():
    """Pairs of a text that stands directly where it is raised and the class there, of the C++ sources."""
    found = []
    for pattern in "kelpy/*/*.cpp", "kel/src/*.cpp", "kel/include/kel/*.h":
        for path in sorted(glob.glob(os.path.join(ROOT, pattern))):
            with open(path) as source:
                text = _without_comments(source.read())
            for match in _CLASSED.finditer(text):
                literal = _LITERALS.match(text, match.end())
                thrown = "Kel::" + match.group(2) if match.group(2) else match.group(1)
                if re.search("[A-Za-z]", _CONVERSION.sub("", literal.group())):
                    found.append((with_gaps(_unescaped(literal.group())), thrown))
    return found


def with_gaps(text):
    if isinstance(text, str):
        text = text.decode("utf-8")
    text = _CONVERSION.sub(GAP, text).replace("%%", "%")
    return re.sub(r"\s+", " ", text.replace("\\n", " ")).strip()


def of_source():
    """A dictionary from each text that the reference has to list to the file that has it."""
    found = {}
    for pattern, texts_of in (("kelpy/*/*.cpp", of_cpp), ("kelpy/*/*.h", of_cpp),
                              ("kel/src/*.cpp", lambda path: of_cpp(path, everything=False)),
                              ("kel/include/kel/*.h", lambda path: of_cpp(path, everything=False)),
                              ("python/*.py", of_python)):
        for path in sorted(glob.glob(os.path.join(ROOT, pattern))):
            if os.path.basename(path).startswith(_COMMANDS):
                continue
            for text in texts_of(path):
                found.setdefault(text, os.path.relpath(path, ROOT))
    return found


def listed(page):
    """The texts in the first column of the page's tables, with gaps."""
    found = []
    with open(page) as source:
        for line in source:
            row = re.match(r"\| `(.+?)` \|", line)
            if row:
                found.append(re.sub(u" +", u" ", re.sub(
                    r"<[a-z][a-z ]*>", GAP, row.group(1).decode("utf-8"))))
    return found


def rows(page):
    """Pairs of a text with gaps and all the rest of its row."""
    with open(page) as source:
        lines = [line for line in source if re.match(r"\| `(.+?)` \|", line)]
    return zip(listed(page), [line.split("` |", 1)[1] for line in lines])


def pieces(text):
    """What stands between the gaps."""
    return [piece for piece in re.split(GAP, text) if piece.strip()]


def stands_in(text, rows):
    """Whether one of the rows has the text, gaps and all."""
    return any(text in row for row in rows)


def every_literal():
    """All that stands in quotes in the source, as one text."""
    parts = []
    for pattern in ("kelpy/*/*", "kel/src/*", "kel/include/kel/*.h", "kel/include/kel/schema/*.h",
                    "python/*.py"):
        for path in sorted(glob.glob(os.path.join(ROOT, pattern))):
            with open(path) as source:
                text = source.read()
            if not path.endswith(".py"):
                text = _without_comments(text)
                parts += [with_gaps(_unescaped(literal.group())) for literal in _LITERALS.finditer(text)]
            else:
                parts += [with_gaps(part.s) for part in ast.walk(ast.parse(text))
                          if isinstance(part, ast.Str)]
    return u"\n".join(parts)
