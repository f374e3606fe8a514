"""The Debian packages install where nothing is but Debian, work there, and leave nothing behind.

They are installed in a chroot of a bare Debian, with what they need from the archive: Python 2.7
is from Debian 11. All is tried as a user would: Python, agents, manuals, a project in C++ by make
and by CMake, the example acme. It takes root.
"""

import glob
import os
import shutil

import chroot
import frame

NAME = "packages"
PASS = "every step"
SECONDS = {"short": 0, "long": 450}
LONG_ONLY = True

NAMES = "libkel1 libkel-dev python2.7-kel kel-tools"

# The archive that Python 2.7 is from is given as $mirror.
SOURCES = """
echo "deb $mirror bullseye main" > /etc/apt/sources.list.d/bullseye.list
printf 'Package: *\\nPin: release n=bullseye\\nPin-Priority: 100\\n' \\
   > /etc/apt/preferences.d/bullseye
echo force-unsafe-io > /etc/dpkg/dpkg.cfg.d/unsafe
apt-get -qq update
"""

INSTALL = """
apt-get -qq install -y --no-install-recommends \\
   /packages/libkel1_*.deb /packages/python2.7-kel_*.deb /packages/kel-tools_*.deb
"""

PYTHON = """
cd /
test "$( python2.7 -c '
import _Kel, Kel, PyServer
print Kel.entity("/").fullName, _Kel.__file__' )" = "/ /usr/lib/python2.7/dist-packages/_Kel.so"
test -e /usr/lib/python2.7/dist-packages/Kel.pyc
"""

AGENT = """
export KELC_AGENTS_DIR=/tmp/agents
echo 'import Kel; shop = Kel.root().mkdir("shop")' > /tmp/shop.py
kel-agent --group acme --name shop /tmp/shop.py &
test "$( kel-eval acme.shop shop.fullName )" = /shop
kel-eval acme.shop --backtrace | grep -q 'activity lock'
kel-eval acme.shop -x 'import sys'
test "$( kel-eval acme.shop 'sys.path.count( "/usr/lib/python2.7/dist-packages" )' )" = 1
kill %1
wait %1
kel-schema --runtime --type Kel::Clock | grep -q '^Kel::Clock'
"""

MANUALS = """
apt-get -qq install -y --no-install-recommends man-db
for program in /usr/bin/kel-*; do
   man -P cat "$( basename "$program" )" | grep -q SYNOPSIS
   "$program" --help > /dev/null
done
"""

VERIFY = """
test -z "$( dpkg -V %s 2>&1 | tee /dev/stderr )"
""" % NAMES

DEVELOP = """
apt-get -qq install -y --no-install-recommends /packages/libkel-dev_*.deb g++ make pkg-config
cp -r /usr/share/doc/libkel-dev/examples ~
cd ~/examples/outside
cat > ~/clock.cpp << 'END'
#include <kel/Dir.h>
int main() { return Kel::Dir::root()->fullName() == Kel::String( "/" ) ? 0 : 1; }
END
g++ -std=c++20 ~/clock.cpp $( pkg-config --cflags --libs kel ) -o ~/clock
~/clock
"""

BY_MAKE = """
apt-get -qq install -y --no-install-recommends python2.7-dev
cd ~/examples/outside
make check
kel-schema build/libhome.so | grep -q '^Home::Heater'
make clean
"""

BY_CMAKE = """
apt-get -qq install -y --no-install-recommends cmake ninja-build
cd ~/examples/outside
cmake -G Ninja -S . -B build
cmake --build build
ctest --test-dir build --output-on-failure --no-tests=error
export KELC_AGENTS_DIR=/tmp/agents PYTHONPATH=build
kel-agent --group home --name heating agent.py &
test "$( build/ask )" = "the kitchen wants 18.0 degrees"
kill %1
wait %1
"""

# In a program that has the runtime's types, gdb finds by itself what shows them.
GDB = """
apt-get -qq install -y --no-install-recommends gdb
cat > ~/text.cpp << 'END'
#include <kel/String.h>
int main() {
   Kel::String text( "a red item" );
   return text.length() == 10 ? 0 : 1;
}
END
g++ -std=c++20 -g -O0 ~/text.cpp $( pkg-config --cflags --libs kel ) -o ~/text
gdb -nx -batch -ex 'break 4' -ex run -ex 'print text' ~/text | grep -F '$1 = "a red item"'
"""

ACME = """
cd ~/examples/acme
g++ -std=c++20 -O1 -fPIC -shared -I .. *.cpp $( pkg-config --cflags --libs kel ) -o libacme.so
LD_LIBRARY_PATH=. python2.7 demo.py
"""

# What is of no package any more, or bears our name.
REMOVE = """
set +x
dpkg -L %s | grep -v '^/\\.$' > /tmp/files
apt-get -qq purge -y %s
find /etc /opt /usr /var -xdev \\( -path /var/log -o -path /var/cache \\) -prune -o \\
   \\( -name '[kK]el*' -o -name '_Kel*' -o -name 'lib[kK]el*' -o -name '*PyServer*' \\) -print \\
   >> /tmp/files
sort -u /tmp/files | while read -r file; do
   if { [ -e "$file" ] || [ -L "$file" ]; } && ! dpkg -S "$file" > /dev/null 2>&1; then
      echo "left: $file"
   fi
done > /tmp/left
cat /tmp/left >&2
test ! -s /tmp/left
""" % (NAMES, NAMES)

STEPS = [("sources", SOURCES), ("install", INSTALL), ("Python", PYTHON), ("agent", AGENT),
         ("manuals", MANUALS), ("develop", DEVELOP), ("make", BY_MAKE), ("CMake", BY_CMAKE),
         ("acme", ACME), ("gdb", GDB), ("verify", VERIFY), ("remove", REMOVE)]

# A file that is not as it was packed, and one that the removal does not know of.
SPOIL = """
echo >> /usr/lib/python2.7/dist-packages/_KelLock.py
touch /usr/lib/python2.7/dist-packages/_KelLeft.py
"""


def _perform(steps):
    """(name, how it Ended) of each step that fails."""
    frame.dev("package")
    mirror = chroot.setup("debian_mirror")
    failed = []
    with chroot.Chroot("packages") as place:
        os.mkdir(place.path("packages"))
        for path in glob.glob(os.path.join(frame.ROOT, "build", "packages", "*.deb")):
            shutil.copy(path, place.path("packages"))
        for name, script in frame.progress.along(steps):
            ended = place.run("set -ex -o pipefail\nmirror='%s'\n%s" % (mirror, script), 1200)
            if ended.status != 0:
                failed.append((name, ended))
    return failed


def run(form):
    if chroot.whyNot():
        return frame.Result(True, "skipped: " + chroot.whyNot())
    failed = _perform(STEPS)
    details = [line for name, ended in failed for line in [name + ":"] + ended.text()]
    figure = "%d of %d steps: %s" % (len(STEPS) - len(failed), len(STEPS), ", ".join(
        name for name, _ in STEPS if name not in [one for one, _ in failed]))
    return frame.Result(not failed, figure, details)


def planted(form):
    """A changed file, and one that is left behind."""
    if chroot.whyNot():
        return frame.Result(True, "skipped: " + chroot.whyNot())
    failed = _perform(STEPS[:2] + [("spoil", SPOIL)] + STEPS[-2:])
    names = [name for name, _ in failed]
    return frame.Result(names == ["verify", "remove"], "failed: " + ", ".join(names),
                        [line for _, ended in failed for line in ended.text()])
