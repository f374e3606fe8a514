"""The schemas that the other tests stand on: what they declare, and what their classes do."""

import unittest

import _Kel
import acme
import odd
from kel_testing import TestCase
from tables import ACME, ODD, RUNTIME

WORDS = [("writable", "rw"), ("isImmutable", "immutable"), ("doesNotify", "n"),
         ("isOptionalValue", "opt"), ("isIndependentDomainAttr", "dom"),
         ("instantiating", "instantiating"), ("hasPackedRep", "packed"), ("isPodArray", "pod")]

# Its document cannot be made, since the type of its argument has no name in the runtime.
WITHOUT_DOCUMENT = "Odd::Args.unknown"


def described(table):
    """Pairs of a type's full name and the lines about it."""
    types = []
    for line in table.strip().splitlines():
        if not line.startswith(" "):
            types.append((line.split(" ")[0], []))
        types[-1][1].append(line)
    return types


def own_attributes(kel_type):
    return [attr for attr in kel_type.attributeQ if attr.scope == kel_type]


def line_about(cls, attr):
    if attr.isEnumConst:
        return "    %s = %d" % (attr.name, attr.enumValue)
    words = [word for flag, word in WORDS if getattr(attr, flag)]
    return "    " + " ".join([cls.__dict__[attr.name].__doc__] + words)


class Declarations(TestCase):

    def check(self, table):
        for name, lines in described(table):
            kel_type = _Kel.typeNode(name)
            cls = _Kel.pyType(kel_type)
            found = [cls.__doc__] + [line_about(cls, attr) for attr in own_attributes(kel_type)
                                     if "%s.%s" % (name, attr.name) != WITHOUT_DOCUMENT]
            self.assertEqual(found, lines)

    def test_the_runtime_declares_what_its_table_says(self):
        self.check(RUNTIME)
        self.assertIs(_Kel.typeNode("Kel::MountMode").underlyingType, _Kel.typeNode("U8"))

    def test_the_built_in_types_have_their_names(self):
        for name in ("U8 S8 U16 S16 U32 S32 U64 S64 bool char float double Kel::String Kel::Bytes "
                     "Kel::Seconds").split():
            self.assertTrue(_Kel.typeNode(name).isBuiltinType, name)

    def test_the_example_declares_what_its_table_says(self):
        self.check(ACME)

    def test_the_unusual_shapes_are_what_their_table_says(self):
        self.check(ODD)

    def test_enums_have_constants_at_the_ends_of_every_width(self):
        for name, constants in [
                ("ES8", {"low": -2 ** 7, "none": 0, "high": 2 ** 7 - 1}),
                ("EU16", {"zero": 0, "top": 2 ** 16 - 1}),
                ("ES16", {"low": -2 ** 15, "high": 2 ** 15 - 1}),
                ("EU32", {"zero": 0, "top": 2 ** 32 - 1}),
                ("ES32", {"low": -2 ** 31, "high": 2 ** 31 - 1}),
                ("EU64", {"zero": 0, "mid": 2 ** 63 - 1, "top": 2 ** 64 - 1}),
                ("ES64", {"low": -2 ** 63, "high": 2 ** 63 - 1}),
                ("Twin", {"first": 1, "second": 1, "other": 2})]:
            found = own_attributes(_Kel.typeNode("Odd::" + name))
            self.assertEqual(dict((attr.name, attr.enumValue) for attr in found), constants)
            self.assertTrue(all(attr.isStatic for attr in found))

    def test_kinds_of_types_are_flagged(self):
        node = _Kel.typeNode
        self.assertTrue(node("Odd::Shape").isUnionType)
        self.assertTrue(node("Odd::ColorSet").isBitSetType)
        self.assertTrue(node("Odd::Gate").isConstrainer and node("Odd::SubGate").isConstrainer)
        self.assertTrue(node("Odd::Own").hasOwnPtrInterface)
        self.assertTrue(node("Odd::Payload").toGnmiString and node("Odd::Payload").toGnmiBytes)
        self.assertTrue(node("Odd::Values").attr("json").toGnmiJsonString)
        self.assertEqual(node("Acme::Size").valAttr.name, "value")
        self.assertEqual(node("Odd::OneDomain").valAttr.name, "value")
        self.assertIsNone(node("Acme::Name").valAttr)
        self.assertEqual(node("Acme::Shelf").defaultCollection.name, "slot")

    def test_an_argument_of_an_unknown_type_is_named_all_the_same(self):
        attr = _Kel.typeNode("Odd::Args").attr("unknown")
        self.assertEqual(list(attr.instantiatingArgNameQ), ["x"])
        self.assertRaises(TypeError, lambda: odd.Args.__dict__["unknown"].__doc__)

    def test_a_schema_module_has_the_classes_of_its_namespace_only(self):
        self.assertIs(acme.Item, _Kel.pyType(_Kel.typeNode("Acme::Item")))
        self.assertRaises(AttributeError, lambda: acme.Node)
        self.assertRaises(AttributeError, lambda: acme._Item)


class AcmeClasses(TestCase):

    def test_lookup_finds_a_part_by_name_and_size(self):
        item, part = acme.Item("whole", 1), acme.Item("part", 2)
        part.size = 4
        item.part.addMember(part)
        self.assertEqual(item.lookup("part", 4), part)
        self.assertIsNone(item.lookup("part", 5))
        self.assertIsNone(item.lookup("other", 4))

    def test_functions_of_an_item(self):
        item = acme.Item("a", 1)
        item.resize(9)
        self.assertEqual(item.size, 9)
        self.assertEqual(item.add(-3, 5), 2)
        self.assertEqual(acme.Item.describe("red"), "a red item")
        self.assertEqual(acme.Item.describe("blue"), "a blue item")

    def test_the_unit_is_shared_by_all_items(self):
        item = acme.Item("a", 1)
        self.assertEqual(acme.Item.unit, "mm")
        item.unit = "cm"
        try:
            self.assertEqual(acme.Item.unit, "cm")
        finally:
            item.unit = "mm"

    def test_restock_adds_to_an_item_or_makes_it(self):
        store = acme.Store("s")
        self.assertEqual(store.restock("bolt", 2).count, 2)
        self.assertEqual(store.restock("bolt", 3).count, 5)
        self.assertEqual(store.item.keys(), ["bolt"])

    def test_sizes_have_every_operator_and_refuse_to_divide_by_zero(self):
        six, four = acme.Size(6), acme.Size(4)
        self.assertEqual([six + four, six - four, six * four, six / four, six % four, six & four,
                          six | four, six ^ four, ~six],
                         [10, 2, 24, 1, 2, 4, 6, 2, 2 ** 32 - 7])
        self.assertTrue(four < six and six == acme.Size(6) and not acme.Size(0))
        self.assertRaises(IndexError, lambda: six / acme.Size(0))
        self.assertRaises(IndexError, lambda: six % acme.Size(0))
        self.assertEqual(hash(_Kel.const(acme.Size(7))), 7)

    def test_names_and_points_have_some_operators_only(self):
        one, two = acme.Name("one"), acme.Name("two")
        self.assertTrue(one < two and one == acme.Name("one"))
        self.assertRaises(TypeError, lambda: one + two)
        point = acme.Point()
        self.assertTrue(point == point + point == point - point)
        self.assertRaises(TypeError, lambda: point * point)
        self.assertRaises(TypeError, lambda: ~point)
        self.assertRaises(TypeError, lambda: bool(point))


class OddClasses(TestCase):

    def test_scalars_start_as_the_schema_says(self):
        scalars = odd.Scalars()
        for name in ("u8 s8 u16 s16 u32 s32 u64 s64 flag ratio weight text data delay maybe "
                     "maybeSize").split():
            self.assertFalse(getattr(scalars, name), name)
        self.assertEqual((scalars.letter, scalars.fixed), ("a", 42))
        self.assertEqual((scalars.es8, scalars.eu64, scalars.twin), ("low", "zero", "first"))

    def test_numbers_that_are_no_constants_can_be_made(self):
        scalars = odd.Scalars()
        self.assertEqual(scalars.rawColor(1), "blue")
        self.assertEqual(scalars.rawColor(7), "Acme::Color(7)")
        self.assertEqual(scalars.rawES64(-2 ** 63), "low")

    def test_a_raw_pointer_is_null_once_its_node_has_gone(self):
        node, target = odd.Node(1), odd.Node(2)
        node.rawNext = target
        self.assertEqual(node.rawNext, target)
        del target
        self.assertIsNone(node.rawNext)

    def test_nodes_are_counted_and_made_by_kind(self):
        before = odd.Node.live
        node = odd.Node(1)
        self.assertEqual(odd.Node.live, before + 1)
        del node
        self.assertEqual(odd.Node.live, before)
        self.assertIsInstance(odd.Node.make("special", 1), odd.SpecialNode)
        self.assertIs(type(odd.Node.make("any", 1)), odd.Node)
        self.assertIsNone(odd.Node.make("none", 1))

    def test_a_vehicle_may_turn_out_a_car(self):
        self.assertIs(type(odd.Vehicle("car")), odd.Car)
        self.assertIs(type(odd.Vehicle("cart")), odd.Vehicle)

    def test_an_object_with_its_own_pointers_is_kept_and_let_go(self):
        keeper, own = odd.Keeper(), odd.Own()
        self.assertIsNone(keeper.own)
        own.n = 3
        keeper.own = own
        del own
        self.assertEqual(keeper.own.n, 3)
        keeper.own = None
        self.assertIsNone(keeper.own)

    def test_a_collection_object_logs_the_operations_on_its_collections(self):
        coll = odd.Coll()
        coll.log()
        coll.line.enq(1)
        self.assertEqual(coll.line.deq(), 1)
        self.assertEqual(coll.log(), "add remove")
        self.assertEqual(coll.log(), "")

    def test_arrays_have_their_first_members(self):
        coll = odd.Coll()
        self.assertEqual([len(coll.slot), len(coll.packed), len(coll.pod)], [4, 0, 4])

    def test_every_exception_of_the_runtime_can_be_thrown(self):
        faults = odd.Faults()
        for kind in ("", "NoTypeNode", "Type", "IllegalName", "NameInUse", "Const",
                     "NondeletableAttr", "NoImplementation", "Rpc", "RpcConnection", "Range",
                     "Memory", "Internal", "OpNotSupported"):
            name = "Kel::%sException" % kind
            with self.assertRaises(Exception) as caught:
                faults.fail(name, "x")
            self.assertTrue(str(caught.exception).endswith('%s("x")' % name))
        for call in (lambda: faults.fail("Kel::ErrnoException", "x"),
                     lambda: faults.failErrno(5, "x")):
            with self.assertRaises(OSError) as caught:
                call()
            self.assertEqual((caught.exception.errno, caught.exception.filename), (5, "x"))
        self.assertRaises(SystemError, faults.fail, "std::runtime_error", "x")
        self.assertRaises(SystemError, faults.fail, "std::bad_alloc", "x")
        self.assertRefused(Exception, "Odd::Faults.fail: unknown C++ exception of type 'int'",
                           faults.fail, "int", "x")

    def test_only_a_traced_failure_has_a_backtrace(self):
        faults = odd.Faults()
        with self.assertRaises(IndexError) as traced:
            faults.failTraced("x")
        with self.assertRaises(IndexError) as plain:
            faults.fail("Kel::RangeException", "x")
        self.assertTrue(hasattr(traced.exception, "backtrace"))
        self.assertFalse(hasattr(plain.exception, "backtrace"))

    def test_a_value_is_set_later_by_the_activity_loop(self):
        notes = odd.Notes()
        notes.setLater(7)
        self.assertEqual(notes.a, 0)
        _Kel.singleton("Kel::ActivityManager").runUntilIdle()
        self.assertEqual(notes.a, 7)

    def test_the_probe_sees_the_locks_of_a_call(self):
        probe = odd.Probe()
        self.assertTrue(probe.activityLockHeld())
        self.assertFalse(probe.gilHeld())
        self.assertFalse(probe.gilOnRead)
        probe.gilOnWrite = 5
        self.assertEqual(probe.gilAtWrite, 0)
        self.assertGreater(probe.thread(), 0)

    def test_gnmi_forms_keep_what_the_schema_says(self):
        values, payload = odd.Values(), odd.Payload()
        self.assertEqual(_Kel.gnmiJsonString(values, "json"), '{"x":0,"y":0}')
        payload.raw = "a\0b"
        self.assertEqual(_Kel.gnmiJsonString(payload, "raw"), "a\0b")


if __name__ == "__main__":
    unittest.main()
