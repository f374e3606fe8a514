"""What passes where a value type or a pointer type is wanted."""

import sys
import unittest

import _Kel
import acme
import kel_convert
import kel_objects
import odd
from kel_testing import TestCase, zoo

VALUES = ["Acme::Size", "Acme::Name", "Acme::Point"] + [
    "Odd::" + name for name in (
        "Point3", "Segment", "Boxed", "MoreBoxed", "MaybeBoxed", "Thrower", "PyText", "Both",
        "TwoDomain", "OneDomain", "Shape", "ColorSet", "Holder", "Nest", "Sealed", "QuietHolder",
        "Tags", "Payload", "Empty")]
POINTERS = ["Acme::Item", "Acme::Thing", "Acme::StockItem", "Kel::Entity", "Kel::PtrInterface",
            "Odd::Node", "Odd::SpecialNode", "Odd::Vehicle", "Odd::PtrDefault"]
METACLASS = type(acme.Size)


def convert(given, type_name, optional=0):
    return kel_convert.toGeneric(given, _Kel.typeNode(type_name), optional)


def declared_chain(kel_type):
    while kel_type is not None:
        yield kel_type.fullTypeName
        kel_type = kel_type.baseType


class ValueTargets(TestCase):

    def assertShared(self, wrapper, type_name):
        name, is_const, address, _ = convert(wrapper, type_name)
        self.assertEqual(address, kel_objects.genericAddress(wrapper))
        self.assertEqual(name, type(wrapper).kelType.fullTypeName)
        self.assertEqual(is_const, _Kel.isConst(wrapper))

    def test_a_value_type_without_default_attribute_takes_its_wrappers_alone(self):
        for name in ("Acme::Point", "Odd::Segment", "Odd::TwoDomain", "Odd::Shape",
                     "Odd::ColorSet", "Odd::Holder", "Odd::Nest", "Odd::Sealed",
                     "Odd::QuietHolder", "Odd::Tags", "Odd::Payload", "Odd::Empty"):
            kel_type = _Kel.typeNode(name)
            cls = _Kel.pyType(kel_type)
            for given in zoo.PLAIN_OBJECTS + zoo.wrappers().values():
                if isinstance(given, cls):
                    self.assertShared(given, name)
                else:
                    self.assertRefused(TypeError, zoo.refused(name, given),
                                       convert, given, name)
            own = cls() if name != "Odd::Segment" else cls(acme.Point(), acme.Point())
            self.assertShared(own, name)
            self.assertShared(_Kel.const(own), name)

    def test_a_value_type_with_default_attribute_takes_what_the_attribute_takes(self):
        name = "Acme::Size"
        for given in zoo.PLAIN_OBJECTS + zoo.wrappers().values():
            if type(given) in (int, long) and 0 <= given < 2 ** 32:
                made = convert(given, name)
                self.assertEqual(made[:2], (name, False))
                self.assertEqual(made[3].value, given)
            elif isinstance(given, acme.Size):
                self.assertShared(given, name)
            else:
                self.assertRefused(TypeError, zoo.refused(name, given), convert, given, name)

    def test_a_type_derived_from_String_takes_texts(self):
        name = "Acme::Name"
        for given in zoo.PLAIN_OBJECTS + zoo.wrappers().values():
            if isinstance(given, basestring):
                text = given.encode("utf-8") if isinstance(given, unicode) else str(given)
                made = convert(given, name)
                self.assertEqual(made[:2], (name, False))
                self.assertEqual(made[3].value, text)
            elif isinstance(given, acme.Name):
                self.assertShared(given, name)
            else:
                self.assertRefused(TypeError, zoo.refused(name, given), convert, given, name)

    def test_default_attributes_chain_on_the_way_in(self):
        # A number becomes the Size that becomes the Boxed.
        self.assertEqual(convert(6, "Odd::Boxed")[3].inner, 6)
        size = acme.Size(7)
        self.assertEqual(convert(size, "Odd::Boxed")[3].inner, 7)
        self.assertRefused(TypeError, zoo.refused("Odd::Boxed", "x"), convert, "x", "Odd::Boxed")

    def test_a_type_is_built_through_the_constructor_named_like_its_default_attribute(self):
        # Acme::Name.value cannot be written, so only the constructor can have set it.
        self.assertFalse(_Kel.typeNode("Acme::Name").attr("value").writable)
        self.assertEqual(convert("alpha", "Acme::Name")[3].value, "alpha")

    def test_other_types_are_built_from_a_default_instance_and_a_write(self):
        # Odd::OneDomain has no constructor arguments.
        self.assertEqual(_Kel.typeNode("Odd::OneDomain").constructorArgNameQ, ())
        made = convert(8, "Odd::OneDomain")[3]
        self.assertEqual((made.value, made.other), (8, 0))

    def test_a_constructor_of_one_argument_of_another_name_is_not_called(self):
        self.assertEqual(_Kel.typeNode("Odd::Renamed").constructorArgNameQ, ("number",))
        self.assertEqual(odd.Renamed(8).value, 108)
        self.assertEqual(convert(8, "Odd::Renamed")[3].value, 8)

    def test_None_fails_for_a_value_that_is_not_optional(self):
        for name in VALUES:
            if name in ("Odd::PyText", "Odd::MaybeBoxed"):
                continue
            self.assertRefused(TypeError, zoo.refused(name, None), convert, None, name)

    def test_None_passes_to_an_optional_default_attribute(self):
        made = convert(None, "Odd::MaybeBoxed")
        self.assertEqual(made[:2], ("Odd::MaybeBoxed", False))
        self.assertIsNone(made[3].inner)
        values = odd.Values()
        values.maybeBoxed = 4
        self.assertEqual(values.maybeBoxed, 4)
        values.maybeBoxed = None
        self.assertIsNone(values.maybeBoxed)

    def test_None_is_text_for_a_type_with_a_repr_attribute(self):
        values = odd.Values()
        values.pyText = None
        self.assertEqual(values.getRawAttribute("pyText").source, "None")
        self.assertIsNone(values.pyText)
        self.assertIsNone(convert(None, "Odd::PyText", 1))

    def test_a_repr_attribute_takes_every_object_that_has_a_repr(self):
        for given in zoo.PLAIN_OBJECTS:
            if isinstance(given, zoo.NoRepr):
                continue
            self.assertEqual(convert(given, "Odd::PyText")[3].source, repr(given))

    def test_a_repr_that_raises_passes_its_own_exception(self):
        values = odd.Values()
        given = zoo.NoRepr()
        error = self.assertRefused(ValueError, "no repr", setattr, values, "pyText", given)
        self.assertEqual(error.args, ("no repr",))
        self.assertEqual(values.getRawAttribute("pyText").source, "")

    def test_a_wrapper_passed_to_a_repr_attribute_arrives_as_its_text(self):
        wrapper = odd.PyText(source="17")
        made = convert(wrapper, "Odd::PyText")
        self.assertNotEqual(made[2], kel_objects.genericAddress(wrapper))
        self.assertEqual(made[3].source, repr(wrapper))

    def test_of_two_declarations_the_plain_one_counts(self):
        self.assertEqual(convert(3, "Odd::Both")[3].a, 3)
        self.assertRefused(TypeError, zoo.refused("Odd::Both", "x"), convert, "x", "Odd::Both")

    def test_a_wrapper_of_a_derived_value_is_shared_and_not_sliced(self):
        point = odd.Point3(x=1, y=2, z=3)
        name, _, address, again = convert(point, "Acme::Point")
        self.assertEqual(name, "Odd::Point3")
        self.assertEqual(address, kel_objects.genericAddress(point))
        self.assertEqual(again.z, 3)
        again.z = 9
        self.assertEqual(point.z, 9)
        self.assertRefused(TypeError, zoo.refused("Odd::Point3", acme.Point()),
                           convert, acme.Point(), "Odd::Point3")

    def test_a_value_that_is_written_is_copied_by_the_runtime(self):
        item = acme.Item("a", 1)
        point = acme.Point(x=1, y=2)
        item.position = point
        point.x = 5
        self.assertEqual(item.position.x, 1)

    def test_a_tuple_constructs_no_value(self):
        for given in ((1,), (), (1, 2)):
            for name in ("Acme::Size", "Acme::Point", "Odd::Segment"):
                self.assertRefused(TypeError, zoo.refused(name, given), convert, given, name)

    def test_a_bad_declaration_fails_each_conversion(self):
        texts = {
            "BadStatic": "illegal defaultAttribute in type Odd::BadStatic",
            "BadKind": "illegal defaultAttribute in type Odd::BadKind",
            "BadColl": "illegal defaultAttribute in type Odd::BadColl",
            "BadFunc": "illegal defaultAttribute in type Odd::BadFunc",
            "BadName": "defaultAttribute 'nothing' not found in type Odd::BadName",
            "BadRepr": "defaultReprAttribute 'number' in type Odd::BadRepr not of required type "
                       "Kel::String",
        }
        for name, text in texts.items():
            message = 'Kel::TypeException("%s")' % text
            own = _Kel.pyType(_Kel.typeNode("Odd::" + name))()
            for given in (1, own, None, "x"):
                for _ in range(2):
                    self.assertRefused(TypeError, message, convert, given, "Odd::" + name)

    def test_a_failed_conversion_leaves_no_reference_and_no_error_behind(self):
        given = object()
        kel_type = _Kel.typeNode("Odd::Boxed")
        before = sys.getrefcount(given)
        for _ in range(10):
            try:
                kel_convert.toGeneric(given, kel_type, 0)
            except TypeError:
                pass
            sys.exc_clear()
        self.assertEqual(sys.getrefcount(given), before)
        for number in (2 ** 2000, -2 ** 2000):
            for name in ("double", "float", "Kel::Seconds", "U64", "S64", "Acme::Size"):
                self.assertRefused(TypeError, zoo.refused(name, number), convert, number, name)

    def test_a_successful_conversion_leaves_no_reference_behind(self):
        for given, name in ((2 ** 40 + 1, "U64"), ("abc" * 9, "Kel::String"),
                            (u"abc" * 9, "Kel::String"), (zoo.Plain(), "Odd::PyText"),
                            (bytearray(b"ab"), "Kel::Bytes")):
            before = sys.getrefcount(given)
            for _ in range(10):
                convert(given, name)
            self.assertEqual(sys.getrefcount(given), before, name)


class PointerTargets(TestCase):

    def test_None_passes_for_every_pointer_type(self):
        for name in POINTERS:
            for optional in (0, 1):
                self.assertIsNone(convert(None, name, optional))

    def test_None_for_a_type_with_its_own_interface_is_a_generic_of_nothing(self):
        self.assertEqual(convert(None, "Odd::Own", 0)[:2], ("Odd::Own", False))
        self.assertIsNone(convert(None, "Odd::Own", 0)[3])
        self.assertIsNone(convert(None, "Odd::Own", 1))

    def test_a_pointer_type_takes_wrappers_of_itself_and_of_derived_types(self):
        for name in POINTERS + ["Odd::Own"]:
            for given in zoo.PLAIN_OBJECTS + zoo.wrappers().values():
                if given is None:
                    continue
                if type(type(given)) is METACLASS and name in declared_chain(given.kelType):
                    made = convert(given, name)
                    self.assertEqual(made[2], kel_objects.genericAddress(given))
                    self.assertEqual(made[1], _Kel.isConst(given))
                else:
                    self.assertRefused(TypeError, zoo.refused(name, given), convert, given, name)

    def test_a_pointer_type_has_no_default_attribute_on_the_way_in(self):
        self.assertRefused(TypeError, zoo.refused("Odd::PtrDefault", 5),
                           convert, 5, "Odd::PtrDefault")

    def test_a_const_wrapper_is_taken_and_refused_by_the_runtime(self):
        node = _Kel.constPtr(odd.Node(1))
        self.assertTrue(convert(node, "Odd::Node")[1])
        self.assertRefused(
            AttributeError, 'Odd::Args.node: Kel::ConstException("expected a non-const Odd::Node, '
            'got a const one")', odd.Args().node, node)

    def test_a_const_wrapper_passes_where_a_const_pointer_is_wanted(self):
        first, second = odd.Node(1), odd.Node(2)
        first.constNext = _Kel.constPtr(second)
        self.assertEqual(first.constNext, second)
        self.assertTrue(_Kel.isConst(first.constNext))

    def test_an_object_of_a_class_made_by_hand_is_no_wrapper(self):
        cls = type(acme.Size)("Handmade", (object,), {})
        for name in ("Acme::Size", "Odd::Node", "Odd::Empty"):
            given = cls()
            self.assertRefused(TypeError, zoo.refused(name, given), convert, given, name)

    def test_None_is_written_to_pointer_attributes(self):
        keeper = odd.Keeper()
        self.assertIsNone(keeper.own)
        own, node = odd.Own(), odd.Node(1)
        keeper.own, keeper.node = own, node
        self.assertEqual((keeper.own, keeper.node), (own, node))
        keeper.own = keeper.node = None
        self.assertIsNone(keeper.own)
        self.assertIsNone(keeper.node)


if __name__ == "__main__":
    unittest.main()
