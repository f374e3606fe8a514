"""Tells whether the interpreter that runs this can carry the module.

Prints its path, its include folder and its shared library, a line each; or, with status 1, one line
that says what it lacks.
"""

import os
import sys


def lack(what):
    sys.stdout.write(what + "\n")
    sys.exit(1)


if sys.version_info[:2] != (2, 7):
    lack("is Python %d.%d, not 2.7" % sys.version_info[:2])
if sys.maxunicode <= 0xFFFF:
    lack("has two-byte unicode (UCS-2), not UCS-4")

import sysconfig

var = sysconfig.get_config_var
include = var("INCLUDEPY")
# One that was unpacked elsewhere than it was made for has all in its own place.
moved = os.path.join(sys.prefix, "include", os.path.basename(include))
if os.path.exists(os.path.join(moved, "Python.h")):
    include = moved
if not os.path.exists(os.path.join(include, "Python.h")):
    lack("has no headers: %s/Python.h is missing" % include)

own = os.path.join(sys.prefix, "lib")
folders = [os.path.join(own, var("MULTIARCH") or ""), own,
           os.path.join(var("LIBDIR"), var("MULTIARCH") or ""), var("LIBDIR")]
# A debug build has a name of its own, beside which the usual one may lie.
names = ["libpython2.7.so"] if not hasattr(sys, "gettotalrefcount") else []
names.append(var("INSTSONAME") or "libpython2.7.so.1.0")
libraries = [os.path.join(folder, name) for folder in folders for name in names]
found = [library for library in libraries if os.path.exists(library)]
if not found:
    lack("has no shared libpython2.7.so in %s" % folders[-1])

sys.stdout.write("%s\n%s\n%s\n" % (sys.executable, include, found[0]))
