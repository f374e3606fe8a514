"""Checks who includes whom: check_includes.py [ROOT]. Prints each wrong include; status 1 if any.

kel/ knows nothing of Python; nothing in kelpy/ knows of tools, examples or tests; kelpy/client uses
only core and notify's object handle; among the headers of kelpy/ there is no circle.
"""

import os
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]')
PYTHON_HEADERS = {"Python.h", "frameobject.h", "structmember.h", "pythread.h"}
CLIENT_MAY = re.compile(r"^kelpy/(client/|core/|notify/PyObjHandle\.h$)")


def sources(root, folder):
    """Paths below the folder of every C++ file, relative to root, sorted."""
    found = []
    for place, folders, names in os.walk(os.path.join(root, folder)):
        for name in names:
            if name.endswith((".h", ".cpp")):
                found.append(os.path.relpath(os.path.join(place, name), root))
    return sorted(found)


def includes(root, path):
    """Pairs of line number and included file; a file of the tree is given relative to root."""
    found = []
    with open(os.path.join(root, path)) as lines:
        for number, line in enumerate(lines, 1):
            match = INCLUDE.match(line)
            if match:
                found.append((number, resolve(root, path, match.group(1))))
    return found


def resolve(root, path, name):
    for folder in (os.path.dirname(path), "", "kel/include", "examples", "tests"):
        candidate = os.path.normpath(os.path.join(folder, name))
        if os.path.isfile(os.path.join(root, candidate)):
            return candidate
    return name


def why_wrong(path, target):
    """The rule that this include breaks, or None."""
    if path.startswith("kel/"):
        if target in PYTHON_HEADERS or target.startswith(("kelpy/", "python2.7/")):
            return "kel/ knows nothing of Python"
        if target.startswith(("acme/", "odd/", "examples/", "tests/", "tools/")):
            return "kel/ knows nothing of what stands on it"
    if path.startswith("kelpy/"):
        if target.startswith(("tools/", "examples/", "tests/", "acme/", "odd/")):
            return "kelpy/ knows nothing of tools, examples or tests"
    if path.startswith("kelpy/client/"):
        if target.startswith("kelpy/") and not CLIENT_MAY.match(target):
            return "kelpy/client uses only core and notify's object handle"
    return None


def circle(graph):
    """One circle in a map from node to nodes, as a list whose ends are equal, or None."""
    done = set()

    def visit(node, trail):
        if node in trail:
            return trail[trail.index(node) :] + [node]
        if node in done:
            return None
        for following in graph.get(node, ()):
            found = visit(following, trail + [node])
            if found:
                return found
        done.add(node)
        return None

    for node in sorted(graph):
        found = visit(node, [])
        if found:
            return found
    return None


def faults(root):
    found = []
    graph = {}
    for path in sources(root, "kel") + sources(root, "kelpy"):
        targets = includes(root, path)
        for number, target in targets:
            reason = why_wrong(path, target)
            if reason:
                found.append("%s:%d: includes %s: %s" % (path, number, target, reason))
        if path.startswith("kelpy/") and path.endswith(".h"):
            graph[path] = [target for _, target in targets]
    around = circle(graph)
    if around:
        found.append("the headers of kelpy/ go in a circle: " + " -> ".join(around))
    return found


def main(root):
    found = faults(root)
    for fault in found:
        print(fault)
    return 1 if found else 0


if __name__ == "__main__":
    here = os.path.dirname(os.path.abspath(__file__))
    sys.exit(main(sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "..", "..")))
