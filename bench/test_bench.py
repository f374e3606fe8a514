"""The benchmarks run, and the page holds the figures that stand beside it."""

import json
import os
import re
import shutil
import tempfile
import unittest
from xml.dom import minidom

from kel_testing.child import in_child

import charts
import page

HERE = os.path.dirname(os.path.abspath(__file__))
PEERS = set(["Cython", "SWIG", "pybind11", "ctypes", "plain class"])
CURVES = ("idle threads", "members", "types", "depths")
RUN = "import runpy, sys; sys.path[:0] = sys.argv[1:3]; sys.argv[1:3] = []; runpy.run_path(%r, run_name='__main__')"


def with_numbers(figures, number):
    """The same figures, but each of that number."""
    if isinstance(figures, dict):
        return dict((key, with_numbers(value, number)) for key, value in figures.items())
    if isinstance(figures, list):
        return [with_numbers(value, number) for value in figures]
    return number if isinstance(figures, float) else figures


class Bench(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp()
        path = os.path.join(cls.folder, "figures.json")
        modules = os.environ["KEL_BENCH_MODULES"]
        python_path = os.pathsep.join([HERE, modules, os.environ["PYTHONPATH"]])
        cls.outcome = in_child(RUN % os.path.join(HERE, "run.py"), [HERE, modules, "--quick", "--json", path],
                               {"PYTHONPATH": python_path}, deadline=100).expect(0)
        with open(path) as source:
            cls.figures = json.load(source)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def test_each_row_has_a_figure_of_the_binding_and_of_both_floors(self):
        self.assertGreater(len(self.figures["rows"]), 20)
        for row in self.figures["rows"]:
            for name in "kel", "floor", "same turns":
                self.assertIsInstance(row["figures"][name]["least"], float, row["title"])

    def test_what_is_timed_has_its_spread(self):
        for row in self.figures["rows"]:
            if row["unit"] == "ns":
                for figure in row["figures"].values():
                    self.assertTrue(
                        figure["least"] <= figure["low"] <= figure["median"] <= figure["high"], row["title"])

    def test_each_curve_of_the_binding_has_another_beside_it(self):
        for part in CURVES:
            self.assertTrue(self.figures[part])
            for entry in self.figures[part]:
                points = set(entry["curves"]["kel"])
                self.assertGreater(len(points), 1)
                self.assertGreater(len(entry["curves"]), 1)
                for curve in entry["curves"].values():
                    self.assertEqual(set(curve), points)

    def test_each_piece_of_advice_is_measured_in_both_ways(self):
        for entry in self.figures["advice"]:
            self.assertEqual(set(entry["figures"]), set(["before", "after"]))
            self.assertIn(entry["shown"], entry["figures"]["before"])

    def test_instructions_are_those_of_the_part_that_makes_them(self):
        for entry in self.figures["instructions"]:
            mine, floor = entry["figures"]["kel"], entry["figures"]["floor"]
            self.assertGreater(mine["binding"], 0, entry)
            self.assertEqual((mine["extension"], floor["binding"], floor["runtime"]), (0, 0, 0), entry)
            self.assertGreater(floor["extension"], 0, entry)

    def test_a_peer_is_measured_or_left_out_for_a_reason(self):
        left_out = self.figures["missing"]
        measured = set(self.figures["rows"][0]["figures"]) - set(["kel", "floor", "same turns"])
        self.assertEqual(measured | set(left_out), PEERS)
        self.assertFalse(measured & set(left_out))
        for name, why in left_out.items():
            self.assertIn("%s is left out: %s\n" % (name, why), self.outcome.out)

    def test_the_machine_is_told_without_its_name(self):
        machine = self.figures["machine"]
        self.assertTrue(machine["processor"] and machine["processors"] and machine["versions"]["Python"])
        self.assertNotIn(os.uname()[1], json.dumps(machine).split('"'))

    def test_the_page_and_its_charts_can_be_made_of_figures_that_noise_has_made_nothing(self):
        for nothing in 0.0, -3.0:
            figures = with_numbers(self.figures, nothing)
            page.filled(page.contents(os.path.join(page.DOCS, "performance.md")), figures)
            for draw in page.CHARTS.values():
                self.assertNothingOutside(minidom.parseString(draw(figures).encode("utf-8")).documentElement)

    def test_the_page_and_its_charts_can_be_made_of_any_figures(self):
        made = page.filled(page.contents(os.path.join(page.DOCS, "performance.md")), self.figures)
        for row in self.figures["rows"]:
            self.assertIn("| %s, %s | " % (row["title"], row["unit"]), made)
        for draw in page.CHARTS.values():
            self.assertNothingOutside(minidom.parseString(draw(self.figures).encode("utf-8")).documentElement)

    def assertNothingOutside(self, root):
        _, _, width, height = map(float, root.getAttribute("viewBox").split())
        points = [tuple(float(mark.getAttribute(name)) for name in ("cx", "cy"))
                  for mark in root.getElementsByTagName("circle")]
        for shape in root.getElementsByTagName("polygon") + root.getElementsByTagName("polyline"):
            points += [tuple(map(float, point.split(","))) for point in shape.getAttribute("points").split()]
        self.assertGreater(len(points), 10)
        for x, y in points:
            self.assertTrue(0 <= x <= width and 0 <= y <= height, (x, y))


class Page(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        os.mkdir(os.path.join(self.folder, "pictures"))
        for name in ["performance.json", "performance.md"] + [
                os.path.join("pictures", name) for name in page.CHARTS]:
            shutil.copy(os.path.join(page.DOCS, name), os.path.join(self.folder, name))

    def read(self, name):
        return page.contents(os.path.join(self.folder, name))

    def change(self, name, old, new):
        text = self.read(name)
        self.assertIn(old, text)
        with open(os.path.join(self.folder, name), "w") as out:
            out.write(text.replace(old, new).encode("utf-8"))

    def test_tables_and_charts_are_what_the_figures_beside_them_say(self):
        self.assertEqual(page.main(["--check"]), 0)

    def test_a_table_changed_by_hand_is_found_and_made_anew(self):
        self.change("performance.md", "| U32 read, ns | ", "| U32 read, ns | 1")
        self.assertEqual(page.main(["--check", self.folder]), 1)
        self.assertEqual(page.main([self.folder]), 0)
        self.assertEqual(self.read("performance.md"), page.contents(os.path.join(page.DOCS, "performance.md")))

    def test_a_missing_chart_is_found(self):
        os.unlink(os.path.join(self.folder, "pictures", "performance-depth.svg"))
        self.assertEqual(page.main(["--check", self.folder]), 1)

    def test_the_page_has_each_table_and_shows_each_chart(self):
        text = self.read("performance.md")
        self.assertEqual(set(re.findall(r"<!-- (\w+) -->", text)) - set(["end"]), set(page.TABLES))
        self.assertEqual(set(re.findall(r"\]\(pictures/([\w.-]+)\)", text)), set(page.CHARTS))


class Axes(unittest.TestCase):
    def test_an_axis_reaches_around_its_values_in_whole_powers_of_ten(self):
        axis = charts.Axis([12, 900], 100, 300)
        self.assertEqual((axis.place(10), axis.place(100), axis.place(1000)), (100, 200, 300))
        self.assertEqual(list(axis.ticks()), [10, 100, 1000])
        self.assertEqual(list(charts.Axis([2, 9], 0, 1).ticks()), [1, 2, 5, 10])

    def test_numbers_are_short(self):
        self.assertEqual([charts.number(n) for n in (0.5, 10, 1000, 2500, 1e6)], ["0.5", "10", "1k", "2.5k", "1M"])
        self.assertEqual([page.short(n) for n in (0.256, 3.14159, 99.4, 99.6, 12345)],
                         ["0.26", "3.1", "99.4", "100", "12300"])
