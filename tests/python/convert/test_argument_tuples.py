"""Tuples of arguments for constructors, functions and instantiating attributes."""

import unittest

import _Kel
import acme
import kel_convert
import odd
from kel_testing import TestCase, refusal, zoo

ITEM = _Kel.typeNode("Acme::Item")
ARGS = _Kel.typeNode("Odd::Args")


class Constructors(TestCase):

    def assertArgs(self, given, kel_type, *expected):
        made = kel_convert.constructorArgs(given, kel_type)
        self.assertEqual([None if one is None else (one[0], one[3]) for one in made],
                         list(expected))

    def assertTypeError(self, text, given, kel_type):
        self.assertRefused(TypeError, 'Kel::TypeException("%s")' % text,
                           kel_convert.constructorArgs, given, kel_type)

    def test_each_element_becomes_the_type_of_its_parameter(self):
        made = kel_convert.constructorArgs(("a", 5), ITEM)
        self.assertEqual([one[0] for one in made], ["Acme::Name", "U32"])
        self.assertEqual(made[0][3].value, "a")
        self.assertEqual(made[1][3], 5)

    def test_an_empty_tuple_for_no_parameters_is_an_empty_vector(self):
        self.assertArgs((), _Kel.typeNode("Odd::Scalars"))
        self.assertArgs((), _Kel.typeNode("Acme::Point"))

    def test_a_wrong_number_tells_the_parameters_by_name(self):
        self.assertTypeError("expected 2 constructor parameters ('name', 'id'), got 1",
                             ("a",), ITEM)
        self.assertTypeError("expected 2 constructor parameters ('name', 'id'), got 0", (), ITEM)
        self.assertTypeError("expected 2 constructor parameters ('name', 'id'), got 3",
                             ("a", 1, 2), ITEM)

    def test_one_parameter_reads_in_the_singular(self):
        size = _Kel.typeNode("Acme::Size")
        self.assertTypeError("expected 1 constructor parameter ('value'), got 0", (), size)
        self.assertTypeError("expected 1 constructor parameter ('value'), got 2", (1, 2), size)

    def test_no_parameter_shows_no_parenthesis(self):
        self.assertTypeError("expected 0 constructor parameters, got 1", (1,),
                             _Kel.typeNode("Odd::Scalars"))

    def test_a_failed_element_tells_its_index_from_0_and_its_name(self):
        self.assertTypeError(
            "Error processing constructor parameter 0 ('name'): expected Acme::Name, got int: 5",
            (5, 5), ITEM)
        self.assertTypeError(
            "Error processing constructor parameter 1 ('id'): expected U32, got str: 'x'",
            ("a", "x"), ITEM)

    def test_only_a_tuple_is_a_tuple(self):
        for given in (["a", 5], zoo.TupleChild(("a", 5)), "ab", None, {}, 5, zoo.NoRepr()):
            self.assertTypeError("expected tuple, got %s" % zoo.tp_name(given), given, ITEM)

    def test_the_type_is_told_before_the_number(self):
        self.assertTypeError("expected tuple, got list", [], ITEM)


class Attributes(TestCase):

    def args(self, given, name):
        return kel_convert.attributeArgs(given, ARGS.attr(name))

    def assertTypeError(self, text, given, name):
        self.assertRefused(TypeError, 'Kel::TypeException("%s")' % text, self.args, given, name)

    def test_no_one_eight_and_nine_parameters(self):
        self.assertEqual(self.args((), "none"), [])
        self.assertEqual([one[3] for one in self.args((7,), "one")], [7])
        self.assertEqual([one[3] for one in self.args(tuple(range(9)), "nine")], range(9))

    def test_nine_arguments_arrive_in_their_order(self):
        args = odd.Args()
        self.assertEqual(args.nine(1, 20, 300, 4000, 50000, 600000, 7000000, 80000000, 900000000),
                         987654321)
        node = odd.Node(1)
        self.assertEqual(args.many(node, 1, 2, 3, 4, 5, 6, 7, 8), node)

    def test_the_texts_of_a_function_do_not_speak_of_a_constructor(self):
        self.assertTypeError("expected 1 parameter ('a'), got 0", (), "one")
        self.assertTypeError("expected 0 parameters, got 1", (1,), "none")
        names = ", ".join("'%s'" % letter for letter in "abcdefghi")
        for count in (0, 8, 10):
            self.assertTypeError("expected 9 parameters (%s), got %d" % (names, count),
                                 (1,) * count, "nine")

    def test_a_failed_element_of_a_function_tells_its_index_and_name(self):
        self.assertTypeError("Error processing parameter 0 ('a'): expected U32, got str: 'x'",
                             ("x",), "one")
        for index, name in ((0, "a"), (7, "h"), (8, "i")):
            given = tuple(None if i == index else 1 for i in range(9))
            self.assertTypeError(
                "Error processing parameter %d ('%s'): expected S32, got NoneType: None" % (
                    index, name), given, "nine")

    def test_the_first_failed_element_is_told(self):
        self.assertTypeError(
            "Error processing parameter 2 ('c'): expected S32, got str: 'x'",
            (1, 2, "x", "y", 5, 6, 7, 8, 9), "nine")

    def test_an_optional_parameter_takes_None_and_others_do_not(self):
        self.assertEqual(self.args((None,), "opt"), [None])
        self.assertFalse(odd.Args().opt(None))
        self.assertTrue(odd.Args().opt(0))
        self.assertTypeError("Error processing parameter 0 ('a'): expected U32, got NoneType: None",
                             (None,), "one")

    def test_a_pointer_parameter_takes_None_without_being_optional(self):
        self.assertEqual(self.args((None,), "node"), [None])
        self.assertIsNone(odd.Args().node(None))

    def test_a_parameter_of_an_unknown_type_fails_untranslated(self):
        error = refusal(self.args, (1,), "unknown")
        self.assertIs(type(error), TypeError)
        self.assertRegexpMatches(str(error), r"\AKel::NoTypeNodeException\(\".*\"\)\Z")
        self.assertNotIn("Error processing", str(error))

    def test_a_repr_that_raises_passes_as_it_is(self):
        self.assertRefused(ValueError, "no repr", self.args, (zoo.NoRepr(),), "pyText")

    def test_an_enum_constant_has_no_parameters(self):
        red = _Kel.typeNode("Acme::Color").attr("red")
        self.assertEqual(kel_convert.attributeArgs((), red), [])
        self.assertRefused(TypeError, 'Kel::TypeException("expected 0 parameters, got 1")',
                           kel_convert.attributeArgs, (1,), red)

    def test_instantiating_attributes_take_their_arguments(self):
        badge = _Kel.typeNode("Acme::Store").attr("badge")
        self.assertEqual([one[3] for one in kel_convert.attributeArgs(("a", 1), badge)], ["a", 1])
        self.assertRefused(
            TypeError, 'Kel::TypeException("expected 2 parameters (\'text\', \'level\'), got 1")',
            kel_convert.attributeArgs, ("a",), badge)

    def test_a_failure_releases_the_elements_that_were_converted(self):
        node = odd.Node(1)
        live = odd.Node.live
        before = node.kelSmartPointerReferences()
        for _ in range(5):
            self.assertTypeError(
                "Error processing parameter 8 ('i'): expected S32, got str: 'x'",
                (node, 1, 2, 3, 4, 5, 6, 7, "x"), "many")
        self.assertEqual(node.kelSmartPointerReferences(), before)
        self.assertEqual(odd.Node.live, live)

    def test_a_wrapper_of_nothing_fits_a_constructor(self):
        link = odd.Link(None, "blue")
        self.assertIsNone(link.node)
        self.assertEqual(link.color, "blue")
        self.assertEqual(acme.Item("a", 1).id, 1)


if __name__ == "__main__":
    unittest.main()
