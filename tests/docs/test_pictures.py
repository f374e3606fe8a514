"""The pictures of the pages are what their texts say."""

import glob
import imp
import os
import re
import shutil
import tempfile
import unittest
from xml.dom import minidom

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, os.pardir)
DOCS = os.path.join(ROOT, "docs")
PICTURES = os.path.join(DOCS, "pictures")
draw = imp.load_source("draw", os.path.join(PICTURES, "draw.py"))

SMALL = u"""
title | Title
case  | a < b
step  | one | two | three
lock  |     | ~~~ | =====
"""


def texts():
    return sorted(glob.glob(os.path.join(PICTURES, "*.txt")))


class Committed(unittest.TestCase):

    def test_each_picture_is_what_its_text_says(self):
        self.assertTrue(texts())
        self.assertEqual(draw.main(["--check"] + texts()), 0)

    def test_each_picture_has_a_text_and_a_page(self):
        pages = "".join(open(page).read() for page in glob.glob(os.path.join(DOCS, "*.md")))
        names = [os.path.splitext(text)[0] + ".svg" for text in texts()]
        charts = glob.glob(os.path.join(PICTURES, "performance-*.svg"))  # drawn from figures
        self.assertEqual(names, sorted(set(glob.glob(os.path.join(PICTURES, "*.svg"))) - set(charts)))
        for name in names:
            self.assertIn("](pictures/%s)" % os.path.basename(name), pages)

    def test_nothing_stands_outside_of_its_picture(self):
        for text in texts():
            root = minidom.parseString(draw.draw(draw.contents(text)).encode("utf-8")).documentElement
            _, _, width, height = map(float, root.getAttribute("viewBox").split())
            bars = [bar for bar in root.getElementsByTagName("rect") if bar.hasAttribute("x")]
            self.assertTrue(bars)
            for bar in bars:
                x, y, wide, high = [float(bar.getAttribute(name))
                                    for name in ("x", "y", "width", "height")]
                self.assertTrue(0 < wide and 0 <= x and x + wide <= width and y + high <= height)


class Layers(unittest.TestCase):
    """The picture of the layers is checked against the folders."""

    def setUp(self):
        _, self.layers = draw.read(draw.contents(os.path.join(PICTURES, "layers.txt")))

    def boxes(self, folder):
        return [title for layer in self.layers if layer.name.split()[0] == folder for title, _ in layer.boxes]

    def test_each_folder_of_the_binding_is_a_box_once_and_each_box_a_folder(self):
        kelpy = os.path.join(ROOT, "kelpy")
        folders = [name for name in os.listdir(kelpy) if glob.glob(os.path.join(kelpy, name, "*.cpp"))]
        self.assertEqual(sorted(self.boxes("kelpy")), sorted(folders))

    def test_each_folder_that_is_named_is_there(self):
        names = [layer.name.split()[0] for layer in self.layers if layer.name.split()[0].startswith("kel")]
        titles = [title for layer in self.layers for title, _ in layer.boxes]
        names += [title for title in titles if re.match(r"[a-z]+/[a-z]+$", title)]
        names += ["python", "process"]
        self.assertLessEqual(set(("python", "process")), set(titles))
        for name in names:
            self.assertTrue(os.path.isdir(os.path.join(ROOT, name)), name)

    def test_the_tools_that_are_programs_are_boxes(self):
        tools = os.path.join(ROOT, "tools")
        programs = ["tools/" + name for name in os.listdir(tools)
                    if os.path.exists(os.path.join(tools, name, "main.cpp"))]
        self.assertTrue(programs)
        self.assertLessEqual(set(programs), set(self.boxes("faces")))

    def test_a_box_without_a_title_is_refused_by_its_line(self):
        with self.assertRaises(ValueError) as raised:
            draw.read("layer | kelpy | core")
        self.assertEqual(str(raised.exception), "line 1: the box 'core' has no title")

    def test_layers_and_what_they_want_are_in_the_picture(self):
        drawn = draw.draw(u"title | T\nlayer | one | a: b | c: d\nbelow | asks\nlayer | two | e: f\n")
        document = minidom.parseString(drawn.encode("utf-8"))
        words = [text.firstChild.data for text in document.getElementsByTagName("text")]
        self.assertEqual(sorted(words), sorted(["T", "one", "a", "b", "c", "d", "asks", "two", "e", "f"]))


class Drawing(unittest.TestCase):

    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        self.text = os.path.join(self.folder, "it.txt")
        self.picture = os.path.join(self.folder, "it.svg")

    def write(self, text):
        with open(self.text, "w") as out:
            out.write(text)

    def test_a_change_of_the_text_is_found_and_left_to_who_draws(self):
        self.write(SMALL)
        self.assertEqual(draw.main([self.text]), 0)
        self.assertEqual(draw.main(["--check", self.text]), 0)
        before = open(self.picture).read()
        self.write(SMALL.replace("~~~", ""))
        self.assertEqual(draw.main(["--check", self.text]), 1)
        self.assertEqual(open(self.picture).read(), before)
        self.assertEqual(draw.main([self.text]), 0)
        self.assertNotEqual(open(self.picture).read(), before)

    def test_a_missing_picture_is_found(self):
        self.write(SMALL)
        self.assertEqual(draw.main(["--check", self.text]), 1)

    def test_titles_steps_and_states_are_in_the_picture(self):
        document = minidom.parseString(draw.draw(SMALL).encode("utf-8"))
        words = [text.firstChild.data for text in document.getElementsByTagName("text")]
        for word in "Title", "a < b", "one", "two", "three", "lock", "waits", "held":
            self.assertEqual(words.count(word), 1, words)

    def test_neighbours_of_one_state_are_one_bar(self):
        self.assertEqual(list(draw.runs([None, "held", "held", "waits", None, "held"])),
                         [(1, 3, "held"), (3, 4, "waits"), (5, 6, "held")])

    def test_a_text_that_says_nothing_is_refused_by_its_line(self):
        for line, message in [("lock | === | ~~~", "line 5: 2 cells for 3 steps"),
                              ("lock | x | |", "line 5: 'x' is neither ==== nor ~~~~"),
                              ("lock | =~ | |", "line 5: '=~' is neither ==== nor ~~~~"),
                              ("lock", "line 5: there is no |")]:
            text = SMALL.rstrip().rpartition("\n")[0] + "\n" + line
            with self.assertRaises(ValueError) as raised:
                draw.read(text)
            self.assertEqual(str(raised.exception), message)
        with self.assertRaises(ValueError) as raised:
            draw.read("step | one")
        self.assertEqual(str(raised.exception), "line 1: a case must come first")
