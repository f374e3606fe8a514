"""The Debian packages of a build: what they hold, and what they say of themselves.

KEL_BUILD names the build. They are made once for all tests, in a folder of their own.
"""

import glob
import hashlib
import os
import re
import shutil
import subprocess
import tempfile
import unittest
from distutils.spawn import find_executable

BUILD = os.environ["KEL_BUILD"]
NAMES = ["kel-tools", "libkel-dev", "libkel1", "python2.7-kel"]
MODULES = "usr/lib/python2.7/dist-packages/"
# What only the packages have.
OF_DEBIAN = ("usr/share/doc/", "usr/share/lintian/")


def run(*command, **options):
    """What it prints; it has to end well."""
    child = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    text = child.communicate()[0]
    if child.returncode != 0:
        raise AssertionError("%s ended with status %d:\n%s" % (command[0], child.returncode, text))
    return text


def files_below(folder):
    paths = [os.path.join(place, name) for place, folders, names in os.walk(folder)
             for name in names + folders]
    return sorted(os.path.relpath(path, folder) for path in paths
                  if os.path.islink(path) or not os.path.isdir(path))


class Package(object):
    """One that has been unpacked into a folder, with what it says of itself in DEBIAN."""

    def __init__(self, path):
        self.path = path
        self.folder = path + ".d"
        run("dpkg-deb", "-R", path, self.folder)
        self.files = [name for name in files_below(self.folder) if not name.startswith("DEBIAN/")]

    def field(self, name):
        return run("dpkg-deb", "-f", self.path, name).strip()

    def relations(self, field):
        """The packages of a field, with their versions."""
        return dict(re.match(r"(\S+)(?: \((.*)\))?$", one).groups()
                    for one in self.field(field).split(", ") if one)

    def read(self, name):
        with open(os.path.join(self.folder, name)) as source:
            return source.read()

    def has(self, name):
        return os.path.lexists(os.path.join(self.folder, name))


class Packages(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        config = os.path.join(BUILD, "CPackConfig.cmake")
        if not os.path.exists(config):
            raise unittest.SkipTest("this machine is not Debian, or its Python is not")
        for program in "dpkg-shlibdeps", "file", "readelf":
            if not find_executable(program):
                raise unittest.SkipTest("there is no " + program)
        cls.folder = tempfile.mkdtemp(prefix="kel-packages-")
        try:
            environment = dict(os.environ, TMPDIR=cls.folder)
            environment.pop("LD_PRELOAD", None)
            cls.log = run("cpack", "--config", config, "-B", cls.folder, env=environment)
            cls.packages = dict((package.field("Package"), package) for package in
                                map(Package, sorted(glob.glob(cls.folder + "/*.deb"))))
        except:
            shutil.rmtree(cls.folder)
            raise

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def test_there_are_four_of_one_version(self):
        self.assertEqual(sorted(self.packages), NAMES, self.log)
        self.assertEqual(len(set(one.field("Version") for one in self.packages.values())), 1)

    def test_each_says_what_it_is(self):
        for name, section in (("libkel1", "libs"), ("libkel-dev", "libdevel"),
                              ("python2.7-kel", "python"), ("kel-tools", "utils")):
            package = self.packages[name]
            self.assertEqual(package.field("Section"), section)
            self.assertEqual(package.field("Priority"), "optional")
            self.assertIn("@", package.field("Maintainer"))
            self.assertGreater(len(package.field("Description").splitlines()), 3)
            self.assertEqual([line for line in package.field("Description").splitlines()
                              if len(line) > 80], [])

    def test_they_depend_on_each_other_in_the_same_version(self):
        same = "= " + self.packages["libkel1"].field("Version")
        for name, others in (("libkel-dev", ["libkel1"]), ("python2.7-kel", ["libkel1"]),
                             ("kel-tools", ["libkel1", "python2.7-kel"])):
            wanted = self.packages[name].relations("Depends")
            self.assertEqual([wanted.get(other) for other in others], [same] * len(others), name)
        self.assertEqual(self.packages["libkel-dev"].relations("Recommends")["python2.7-kel"], same)

    def test_they_depend_on_what_their_programs_and_libraries_load(self):
        for name in "libkel1", "python2.7-kel", "kel-tools":
            wanted = self.packages[name].relations("Depends")
            self.assertIn("libc6", wanted)
            self.assertIn("libstdc++6", wanted)
        self.assertEqual(self.packages["python2.7-kel"].relations("Depends")["python2.7"],
                         ">= 2.7.18")
        self.assertIn("libpython2.7", self.packages["kel-tools"].relations("Depends"))
        self.assertIn("libedit2", self.packages["kel-tools"].relations("Depends"))
        self.assertIn("libboost-dev", self.packages["libkel-dev"].relations("Depends"))

    def test_what_was_built_in_is_named_with_the_version_that_is_installed(self):
        for name, sources in (("libkel1", ["boost", "gcc"]),
                              ("python2.7-kel", ["boost", "gcc", "python"]),
                              ("kel-tools", ["boost", "cli", "gcc", "python"])):
            used = self.packages[name].relations("Built-Using")
            # Of each release of Debian other versions are part of the names.
            self.assertEqual(sorted(re.sub(r"[\d.-]*$", "", one) for one in used), sources)
            for source, version in used.items():
                self.assertRegexpMatches(version, r"^= \S+$", source)
        installed = run("dpkg-query", "-W", "-f", "${source:Version}", "libcli11-dev")
        self.assertEqual(self.packages["kel-tools"].relations("Built-Using")["cli11"],
                         "= " + installed)

    def test_each_file_that_is_installed_is_in_one_of_them(self):
        run("cmake", "--install", BUILD, "--prefix", "/usr",
            env=dict(os.environ, DESTDIR=os.path.join(self.folder, "all")))
        packed = [name for package in self.packages.values() for name in package.files]
        self.assertEqual(sorted(name for name in packed if not name.startswith(OF_DEBIAN)),
                         files_below(os.path.join(self.folder, "all")))

    def test_each_holds_what_it_is_for(self):
        for name, files in (
                ("libkel1", ["usr/lib/libkel.so.1"]),
                ("libkel-dev", ["usr/lib/libkel.so", "usr/include/kel/schema/Declare.h",
                                "usr/include/kelpy/PyClient.h", "usr/lib/pkgconfig/kel.pc",
                                "usr/lib/cmake/KelPy/KelPyConfig.cmake",
                                "usr/share/doc/libkel-dev/examples/outside/Makefile"]),
                ("python2.7-kel", ["usr/lib/libKelPy.so", MODULES + "_Kel.so", MODULES + "Kel.py",
                                   MODULES + "PyServer.py"]),
                ("kel-tools", ["usr/bin/kel-agent", "usr/bin/kel-eval", "usr/bin/kel-schema"])):
            for path in files:
                self.assertTrue(self.packages[name].has(path), path)
        printers = [os.path.dirname(name) for name in self.packages["libkel-dev"].files
                    if name.endswith("-gdb.py")]
        self.assertEqual(printers, ["usr/share/gdb/auto-load/usr/lib"])

    def test_each_program_has_its_manual(self):
        tools = self.packages["kel-tools"]
        programs = [os.path.basename(name) for name in tools.files if name.startswith("usr/bin/")]
        self.assertGreaterEqual(len(programs), 3)
        for program in programs:
            self.assertTrue(tools.has("usr/share/man/man1/%s.1.gz" % program), program)

    def test_each_has_its_copyright_and_its_changes(self):
        for name, package in self.packages.items():
            place = "usr/share/doc/%s/" % name
            self.assertIn("Copyright:", package.read(place + "copyright"))
            changes = run("gzip", "-dc", os.path.join(package.folder, place, "changelog.Debian.gz"))
            self.assertTrue(changes.startswith("kel (%s) " % package.field("Version")))

    def test_what_is_packed_can_be_verified(self):
        for name, package in self.packages.items():
            sums = dict(reversed(line.split("  ")) for line in
                        package.read("DEBIAN/md5sums").splitlines())
            plain = [one for one in package.files
                     if not os.path.islink(os.path.join(package.folder, one))]
            self.assertEqual(sorted(sums), plain, name)
            for one in plain:
                self.assertEqual(hashlib.md5(package.read(one)).hexdigest(), sums[one], one)

    def test_nothing_in_them_names_the_folder_of_the_build(self):
        for package in self.packages.values():
            for name in package.files:
                path = os.path.join(package.folder, name)
                if os.path.islink(path):
                    continue
                self.assertNotIn(BUILD, package.read(name), name)
                if name.startswith(("usr/bin/kel-agent", "usr/bin/kel-eval", "usr/lib/lib")):
                    self.assertNotRegexpMatches(run("readelf", "-d", path), "RUNPATH|RPATH")

    def test_the_linker_learns_of_libraries_by_a_trigger(self):
        for name in "libkel1", "python2.7-kel":
            self.assertEqual(self.packages[name].read("DEBIAN/triggers"),
                             "activate-noawait ldconfig\n")
        for package in self.packages.values():
            for script in "preinst", "postinst", "prerm", "postrm":
                if package.has("DEBIAN/" + script):
                    self.assertNotIn("ldconfig", package.read("DEBIAN/" + script))
                    run("sh", "-n", os.path.join(package.folder, "DEBIAN", script))

    def test_lintian_finds_no_fault(self):
        if not find_executable("lintian"):
            self.skipTest("there is no lintian")
        found = run("lintian", "--allow-root", *[one.path for one in self.packages.values()])
        self.assertEqual([line for line in found.splitlines() if re.match("[EW]: ", line)], [])


if __name__ == "__main__":
    unittest.main()
