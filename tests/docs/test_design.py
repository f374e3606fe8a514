"""The page on the design speaks of files, folders and names that are there."""

import glob
import os
import re
import unittest

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, os.pardir))


def spans():
    with open(os.path.join(ROOT, "docs", "design.md")) as page:
        return re.findall(r"`([^`\n]+)`", page.read())


def is_there(path):
    """Whether a path, or one without its suffix, is in the tree or below the binding."""
    places = [os.path.join(ROOT, folder, path) for folder in ("", "kelpy", "python")]
    return any(glob.glob(place + suffix) for place in places for suffix in ("", ".h", ".cpp"))


class Design(unittest.TestCase):

    def test_each_path_leads_to_a_file_or_a_folder(self):
        paths = [span for span in spans() if "/" in span or re.search(r"\.(h|cpp|py)$", span)]
        self.assertGreater(len(paths), 20)
        missing = [path for path in paths if not is_there(path.rstrip("/"))
                   and not glob.glob(os.path.join(ROOT, "kelpy", "*", path))]
        self.assertEqual(missing, [])

    def test_each_name_of_the_source_stands_in_it(self):
        text = ""
        for pattern in ("kel/include/kel/*.h", "kelpy/*/*.h", "kelpy/*/*.cpp"):
            for path in glob.glob(os.path.join(ROOT, pattern)):
                with open(path) as source:
                    text += source.read()
        names = [span.split("::")[-1] for span in spans()
                 if re.match(r"[A-Z]\w+(?:::\w+)?$|underLocks$", span)]
        self.assertGreater(len(names), 8)
        for name in names:
            self.assertTrue(re.search(r"\b%s\b" % name, text) or is_there(name)
                            or glob.glob(os.path.join(ROOT, "kelpy", "*", name + ".cpp")), name)

    def test_each_folder_of_the_binding_is_spoken_of(self):
        said = " ".join(spans())
        for path in glob.glob(os.path.join(ROOT, "kelpy", "*", "")):
            name = os.path.basename(os.path.dirname(path))
            if name not in ("client", "diagnostics", "reflection"):  # which the picture has
                self.assertRegexpMatches(said, r"\b%s\b" % name)


if __name__ == "__main__":
    unittest.main()
