"""The check of includes finds each fault that is planted for it, and nothing in a sound tree."""

import os
import shutil
import tempfile
import unittest

import check_includes

SOUND = {
    "kel/include/kel/Ptr.h": "#include <utility>\n",
    "kel/src/Ptr.cpp": '#include "kel/Ptr.h"\n',
    "kelpy/core/PyPtr.h": '#include <Python.h>\n#include "kel/Ptr.h"\n',
    "kelpy/notify/PyObjHandle.h": "#include <kelpy/core/PyPtr.h>\n",
    "kelpy/client/PyClient.h": '#include "kelpy/notify/PyObjHandle.h"\n',
    "kelpy/classes/Classes.h": '#include "kelpy/core/PyPtr.h"\n',
}


class IncludesTest(unittest.TestCase):
    def setUp(self):
        self.root = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.root)
        for path, text in SOUND.items():
            self.write(path, text)

    def write(self, path, text):
        full = os.path.join(self.root, path)
        if not os.path.isdir(os.path.dirname(full)):
            os.makedirs(os.path.dirname(full))
        with open(full, "w") as out:
            out.write(text)

    def the_only_fault(self):
        found = check_includes.faults(self.root)
        self.assertEqual(1, len(found), found)
        return found[0]

    def test_a_sound_tree_has_no_fault(self):
        self.assertEqual([], check_includes.faults(self.root))

    def test_the_runtime_must_not_include_the_binding(self):
        self.write("kel/src/Bad.cpp", '#include "kelpy/core/PyPtr.h"\n')
        self.assertEqual(
            "kel/src/Bad.cpp:1: includes kelpy/core/PyPtr.h: kel/ knows nothing of Python",
            self.the_only_fault(),
        )

    def test_the_runtime_must_not_include_Python(self):
        self.write("kel/include/kel/Bad.h", "\n#  include <Python.h>\n")
        self.assertIn("kel/include/kel/Bad.h:2: includes Python.h", self.the_only_fault())

    def test_the_runtime_must_not_include_a_schema(self):
        self.write("examples/acme/Acme.h", "")
        self.write("kel/tests/bad.cpp", '#include "acme/Acme.h"\n')
        self.assertIn("includes examples/acme/Acme.h", self.the_only_fault())

    def test_the_binding_must_not_include_examples_tests_or_tools(self):
        for target in "examples/acme/Acme.h", "tests/odd/Odd.h", "tools/agent.h":
            self.write(target, "")
            self.write("kelpy/core/Bad.cpp", '#include "../../%s"\n' % target)
            self.assertIn("kelpy/ knows nothing of tools", self.the_only_fault())

    def test_the_client_must_not_include_classes(self):
        self.write("kelpy/client/Bad.cpp", '#include "../classes/Classes.h"\n')
        self.assertIn("kelpy/client uses only core", self.the_only_fault())

    def test_two_headers_must_not_include_each_other(self):
        self.write("kelpy/core/A.h", '#include "B.h"\n')
        self.write("kelpy/core/B.h", '#include "C.h"\n')
        self.write("kelpy/core/C.h", '#include "kelpy/core/A.h"\n')
        self.assertEqual(
            "the headers of kelpy/ go in a circle: "
            "kelpy/core/A.h -> kelpy/core/B.h -> kelpy/core/C.h -> kelpy/core/A.h",
            self.the_only_fault(),
        )


if __name__ == "__main__":
    unittest.main()
