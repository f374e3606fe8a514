"""Types, values and objects by name, and what is alive."""

import threading

import Kel
import acme
import odd
import _Kel
from kel_testing import TestCase, in_child


class Types(TestCase):

    def test_a_type_is_found_by_its_full_name(self):
        self.assertIs(Kel.Type("Acme::Item"), _Kel.typeNode("Acme::Item"))

    def test_the_repr_of_a_type_evaluates_to_it(self):
        kel_type = Kel.Type("Acme::Item")
        self.assertIs(eval(repr(kel_type), {"type": Kel.Type}), kel_type)

    def test_the_types_of_a_namespace_are_listed_by_name(self):
        names = [kel_type.fullTypeName for kel_type in Kel.types("Acme")]
        self.assertEqual(names, sorted(names))
        self.assertIn("Acme::Item", names)
        self.assertEqual([name for name in names if not name.startswith("Acme::")], [])
        every = [kel_type.fullTypeName for kel_type in Kel.types()]
        self.assertTrue(set(names + ["U32", "Kel::Entity", "Odd::Node"]) <= set(every))

    def test_dir_of_a_schema_has_all_its_types_and_makes_no_class(self):
        done = in_child("""
import acme
print " ".join(name for name in dir(acme) if not name.startswith("_"))
print "Item" in vars(acme)
""")
        self.assertEqual(
            (done.out, done.err),
            ("Badge Color Item Name Point Shelf Size StockItem Store Thing\nFalse\n", ""))

    def test_an_unknown_type_is_refused(self):
        self.assertRefused(
            TypeError, "Kel::NoTypeNodeException(\"no type 'Acme::Nothing'\")", Kel.Type, "Acme::Nothing")


class Instances(TestCase):

    def test_an_object_is_made_from_the_arguments_of_its_constructor(self):
        item = Kel.newInstance("Acme::Item", "made", 7)
        self.assertEqual((type(item), item.name, item.id), (acme.Item, "made", 7))

    def test_the_hook_hears_of_it(self):
        seen = []
        _Kel.newInstanceHookIs(seen.append)
        try:
            Kel.newInstance("Acme::Badge", "b", 1)
            Kel.Value("Acme::Point", x=1)
        finally:
            _Kel.newInstanceHookIs(None)
        self.assertEqual(seen, [acme.Badge, acme.Point])


class Values(TestCase):

    def evaluated(self, text):
        return repr(eval(text, {"Value": Kel.Value}))

    def test_the_repr_of_a_value_evaluates_to_an_equal_value(self):
        point = acme.Point(x=3, y=-4)
        again = eval(repr(point), {"Value": Kel.Value})
        self.assertEqual((type(again), again), (acme.Point, point))

    def test_values_of_every_shape_come_back_from_their_repr(self):
        for text in (
                "Value('Acme::Name', ** {'value': 'n'})",
                "Value('Acme::Size', ** {'value': 4294967295})",
                "Value('Odd::Segment', ** {'start': Value('Acme::Point', ** {'x': 3, 'y': 0}), "
                "'end': Value('Acme::Point', ** {'x': 0, 'y': 9}), 'label': 'l'})",
                "Value('Odd::Shape', ** {'square': Value('Acme::Point', ** {'x': 1, 'y': 2})})",
                "Value('Odd::Payload', ** {'data': b'a\\x00b', 'n': 18446744073709551615, 'text': ''})",
                "Value('Odd::Nest', ** {'holder': Value('Odd::Holder', ** {'node': None})})",
                "Value('Odd::ColorSet', ** {'red': True, 'blue': False})",
                "Value('Odd::Empty', ** {})"):
            self.assertEqual(self.evaluated(text), text)

    def test_an_attribute_that_cannot_be_written_may_be_named_with_its_value(self):
        text = "Value('Odd::Sealed', ** {'n': 0, 'm': 5})"
        self.assertEqual(self.evaluated(text), text)

    def test_an_attribute_that_cannot_be_written_gets_no_other_value(self):
        self.assertRefused(
            NotImplementedError,
            'Odd::Sealed.n: mutator: Kel::NoImplementationException("attribute Odd::Sealed.n is not writable")',
            Kel.Value, "Odd::Sealed", n=4)

    def test_an_unknown_attribute_is_refused(self):
        self.assertRefused(
            AttributeError, "'Acme::Point' object has no attribute 'z'", Kel.Value, "Acme::Point", z=1)

    def test_an_object_is_no_value(self):
        self.assertRefused(TypeError, "Acme::Item is not a value type", Kel.Value, "Acme::Item")


class Entities(TestCase):

    def tearDown(self):
        Kel.root().clear()
        super(Entities, self).tearDown()

    def test_the_root_is_the_directory_at_the_top(self):
        self.assertEqual((Kel.root(), Kel.root().fullName), (_Kel.singleton("Kel::Dir"), "/"))

    def test_an_entity_is_found_by_its_full_name(self):
        made = Kel.root().mkdir("a/b").newEntity("Acme::Item", "c")
        found = Kel.entity("/a/b/c")
        self.assertEqual((type(found), found), (acme.Item, made))

    def test_the_repr_of_an_entity_evaluates_to_it(self):
        made = Kel.root().newEntity("Acme::Item", "c")
        self.assertEqual(eval(repr(made), {"entity": Kel.entity}), made)

    def test_a_missing_entity_is_a_LookupError(self):
        self.assertRefused(LookupError, "entity '/none' not found", Kel.entity, "/none")


class ActivityLock(TestCase):

    def test_it_is_held_within_the_statement_alone(self):
        with Kel.activityLock():
            self.assertNotEqual(_Kel.activityLockOwner(), 0)
        self.assertEqual(_Kel.activityLockOwner(), 0)

    def test_it_may_be_nested(self):
        with Kel.activityLock():
            with Kel.activityLock():
                pass
            self.assertNotEqual(_Kel.activityLockOwner(), 0)
        self.assertEqual(_Kel.activityLockOwner(), 0)

    def test_an_exception_gives_it_back(self):
        with self.assertRaises(KeyError):
            with Kel.activityLock():
                raise KeyError("x")
        self.assertEqual(_Kel.activityLockOwner(), 0)

    def test_other_threads_are_kept_out(self):
        item = acme.Item("shared", 1)
        done = threading.Event()

        def write():
            item.note = "late"
            done.set()

        with Kel.activityLock():
            writer = threading.Thread(target=write)
            writer.start()
            self.assertFalse(done.wait(0.05))
            self.assertEqual(item.note, "")
        writer.join(30)
        self.assertEqual(item.note, "late")


class Allocations(TestCase):

    def test_each_object_counts_once(self):
        acme.Badge("warm", 1)
        before = Kel.allocations()["Acme::Badge"]
        badges = [acme.Badge("b", i) for i in range(3)]
        during = Kel.allocations()["Acme::Badge"]
        del badges
        after = Kel.allocations()["Acme::Badge"]
        self.assertEqual((during.objects - before.objects, after), (3, before))

    def test_bytes_are_those_of_the_objects(self):
        badge = acme.Badge("b", 1)
        found = Kel.allocations()["Acme::Badge"]
        self.assertEqual(found.bytes % found.objects, 0)
        self.assertGreater(found.bytes // found.objects, 16)
        del badge


class Time(TestCase):

    def test_now_is_the_time_of_the_clock(self):
        before = _Kel.singleton("Kel::Clock").now
        now = Kel.now()
        self.assertIs(type(now), float)
        self.assertTrue(before <= now <= _Kel.singleton("Kel::Clock").now)

