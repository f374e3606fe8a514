"""The pictures of pages in the documentation can be taken anew."""

import glob
import os
import struct
import sys
import tempfile
import unittest

DOCS = os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, os.pardir, "docs")
PICTURES = os.path.join(DOCS, "pictures")
sys.path.insert(0, PICTURES)

import shoot
from browsing import shared_browser


def size(path):
    with open(path, "rb") as picture:
        head = picture.read(24)
    assert head.startswith(b"\x89PNG\r\n\x1a\n"), path
    return struct.unpack(">II", head[16:])


class Pictures(unittest.TestCase):

    def test_each_is_taken_in_the_size_of_the_one_that_is_shown(self):
        with tempfile.TemporaryDirectory() as folder:
            for name, take in shoot.PICTURES.items():
                path = os.path.join(folder, name)
                take(shared_browser(), path)
                self.assertEqual(size(path), size(os.path.join(PICTURES, name)))

    def test_there_is_no_other(self):
        self.assertEqual(sorted(os.path.basename(path) for path in
                                glob.glob(os.path.join(PICTURES, "*.png"))), sorted(shoot.PICTURES))
