"""Every link of the pages leads somewhere, and the site has every page."""

import glob
import os
import re
import shutil
import subprocess
import tempfile
import unittest

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, os.pardir))
_FENCE = re.compile(r"(?ms)^```.*?^```$")
_CODE = re.compile(r"`[^`\n]*`")
_LINK = re.compile(r"\]\(([^)\s]+)\)")


def pages(root):
    return sorted(path for pattern in ("/*.md", "/docs/*.md", "/docs/*/*.md")
                  for path in glob.glob(root + pattern))


def prose(path):
    with open(path) as source:
        return _FENCE.sub("", source.read())


def anchors(path):
    """What the headings of a page are called in links: as GitHub and mkdocs both have it."""
    found = []
    for heading in re.findall(r"(?m)^#{1,6} (.*)$", prose(path)):
        anchor = re.sub(r"[^\w\s-]", "", heading).strip().lower()
        found.append(re.sub(r"[\s]", "-", anchor))
    return found


def broken(root):
    """The links that lead nowhere, as texts."""
    wrong = []
    for page in pages(root):
        for link in _LINK.findall(_CODE.sub("", prose(page))):
            target, _, anchor = link.partition("#")
            if re.match(r"\w+:", target):
                continue
            path = os.path.normpath(os.path.join(os.path.dirname(page), target)) if target else page
            if not os.path.exists(path) or (anchor and anchor not in anchors(path)):
                wrong.append("%s: %s" % (os.path.relpath(page, root), link))
    return wrong


class Links(unittest.TestCase):

    def test_each_link_of_a_page_leads_to_a_page_and_a_heading_that_are_there(self):
        self.assertGreater(len(pages(ROOT)), 15)
        self.assertEqual(broken(ROOT), [])

    def test_a_page_of_docs_links_to_nothing_outside_of_the_site(self):
        for page in pages(ROOT + "/docs/.."):
            if "docs" in os.path.relpath(page, ROOT).split(os.sep):
                for link in _LINK.findall(_CODE.sub("", prose(page))):
                    depth = os.path.relpath(os.path.dirname(page), ROOT + "/docs").count(os.sep) + \
                        (os.path.normpath(os.path.dirname(page)) != ROOT + "/docs")
                    self.assertLessEqual(link.count("../"), depth, "%s: %s" % (page, link))

    def test_a_broken_link_and_a_broken_anchor_are_found(self):
        root = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, root)
        with open(os.path.join(root, "a.md"), "w") as out:
            out.write("# A Title, it is\n[x](b.md) [y](#a-title-it-is) [z](a.md#nothing) `[c](no)`\n"
                      "```\n[d](no)\n```\n")
        self.assertEqual(broken(root), ["a.md: b.md", "a.md: a.md#nothing"])


def codes(page):
    """What stands between single backticks."""
    return [code.strip("`") for code in _CODE.findall(prose(page))]


class Names(unittest.TestCase):

    def test_each_verb_of_dev_that_a_page_names_is_one(self):
        with open(os.path.join(ROOT, "dev")) as source:
            verbs = set(re.findall(r"(?m)^verb_(\w+)\(\)", source.read())) | set(["help"])
        named = set(verb for page in pages(ROOT) for code in codes(page)
                    for verb in re.findall(r"^\./dev (\w+)", code))
        self.assertGreater(len(named), 8)
        self.assertEqual(named - verbs, set())

    def test_each_path_that_a_page_names_leads_somewhere(self):
        """From the root, or from where headers are found; what a build makes is left out."""
        wrong = []
        for page in pages(ROOT):
            for path in codes(page):
                if re.match(r"(?!build/)[\w.-]+(/[\w.*-]+)+/?$", path):
                    places = [os.path.join(ROOT, folder, path.rstrip("/") + suffix)
                              for folder in ("", "kel/include", "kelpy") for suffix in ("", ".h", ".cpp")]
                    if not any(glob.glob(place) for place in places):
                        wrong.append("%s: %s" % (os.path.relpath(page, ROOT), path))
        self.assertEqual(wrong, [])


def has_mkdocs():
    return any(os.access(os.path.join(folder, "mkdocs"), os.X_OK)
               for folder in os.environ["PATH"].split(os.pathsep))


class Site(unittest.TestCase):

    def build(self, root):
        """What a strict build of the site says, and its status."""
        # It is a program of Python 3, which has nothing to do with what this one imports or loads.
        environment = dict((name, value) for name, value in os.environ.items()
                           if not name.startswith("PYTHON") and name != "LD_PRELOAD")
        self.out = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.out)
        child = subprocess.Popen(["mkdocs", "build", "--strict", "-d", self.out], cwd=root,
                                 env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        return child.communicate()[0], child.returncode

    def copy(self):
        root = os.path.join(tempfile.mkdtemp(), "root")
        self.addCleanup(shutil.rmtree, os.path.dirname(root))
        os.mkdir(root)
        for name in "mkdocs.yml", "README.md", "CHANGELOG.md", "CONTRIBUTING.md":
            shutil.copy(os.path.join(ROOT, name), root)
        for name in "docs", "tools/site":
            shutil.copytree(os.path.join(ROOT, name), os.path.join(root, name))
        return root

    @unittest.skipUnless(has_mkdocs(), "mkdocs is missing; ./dev site installs it")
    def test_the_site_builds_without_a_warning_and_has_every_page_and_picture(self):
        printed, status = self.build(ROOT)
        self.assertEqual(status, 0, printed)
        self.assertNotIn("WARNING", printed)
        for page in pages(ROOT):
            name = os.path.relpath(page, ROOT).replace("docs/", "").replace("README", "index")
            self.assertTrue(os.path.exists(os.path.join(self.out, name.replace(".md", ".html"))), name)
        self.assertTrue(os.path.exists(os.path.join(self.out, "pictures", "locks.svg")))
        with open(os.path.join(self.out, "index.html")) as index:
            text = index.read()
        self.assertIn('href="guide.html"', text)
        self.assertNotIn("://cdn", text)

    @unittest.skipUnless(has_mkdocs(), "mkdocs is missing; ./dev site installs it")
    def test_a_broken_link_fails_the_build(self):
        root = self.copy()
        with open(os.path.join(root, "docs", "guide.md"), "a") as page:
            page.write("\n[nowhere](nowhere.md)\n")
        printed, status = self.build(root)
        self.assertNotEqual(status, 0)
        self.assertIn("nowhere.md", printed)

    @unittest.skipUnless(has_mkdocs(), "mkdocs is missing; ./dev site installs it")
    def test_a_page_without_a_place_in_the_contents_is_put_there(self):
        root = self.copy()
        with open(os.path.join(root, "docs", "lost.md"), "w") as page:
            page.write("# Lost and found\n")
        printed, status = self.build(root)
        self.assertEqual(status, 0, printed)
        with open(os.path.join(self.out, "index.html")) as index:
            self.assertIn('href="lost.html"', index.read())


if __name__ == "__main__":
    unittest.main()
