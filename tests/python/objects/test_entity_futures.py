"""Entity futures and failed mounts: objects that become wrappers, and back, in place."""

import sys
import threading
import unittest

import _Kel
import acme
import kel_objects
import odd
from kel_testing import TestCase, in_child, zoo

THING = _Kel.typeNode("Acme::Thing")
ITEM = _Kel.typeNode("Acme::Item")


class WithEntities(TestCase):
    """The directory "/futures" with a thing "a" and an item "b"."""

    def setUp(self):
        kel_objects.createEntity("/", "Kel::Dir", "futures")
        kel_objects.createEntity("/futures", "Acme::Thing", "a")
        kel_objects.createEntity("/futures", "Acme::Item", "b")

    def tearDown(self):
        for name in ("a", "b"):
            kel_objects.deleteEntity("/futures", name)
        kel_objects.deleteEntity("/", "futures")
        super(WithEntities, self).tearDown()


class Futures(TestCase):

    def test_a_future_tells_path_and_type(self):
        path = "/a" + "b"
        future = _Kel.entityFuture(path, ITEM)
        self.assertIs(future.fullName, path)
        self.assertIs(future.kelType, ITEM)
        self.assertIsNone(_Kel.entityFuture("/a", None).kelType)

    def test_its_repr_tells_path_and_type(self):
        future = _Kel.entityFuture("/a", None)
        typed = _Kel.entityFuture("/a", ITEM)
        self.assertEqual(repr(future), "<_Kel.EntityFuture '/a' of unknown type>")
        self.assertEqual(repr(typed), "<_Kel.EntityFuture '/a' of type 'Acme::Item'>")
        future.convertToFailedMount()
        typed.convertToFailedMount()
        self.assertEqual(repr(future), "<_Kel.FailedMount '/a' of unknown type>")
        self.assertEqual(repr(typed), "<_Kel.FailedMount '/a' of type 'Acme::Item'>")

    def test_it_holds_one_reference_on_its_path(self):
        path = "/a" * 20
        before = sys.getrefcount(path)
        future = _Kel.entityFuture(path, None)
        self.assertEqual(sys.getrefcount(path), before + 1)
        future.convertToFailedMount()
        self.assertEqual(sys.getrefcount(path), before + 1)
        del future
        self.assertEqual(sys.getrefcount(path), before)

    def test_its_arguments_are_a_str_and_a_type_or_None(self):
        for given in (ITEM.attr("size"), 5, "Acme::Item", acme.Item):
            self.assertRefused(TypeError, "expected a _Kel.KelType or None",
                               _Kel.entityFuture, "/a", given)
        self.assertRefused(TypeError, "entityFuture() argument 1 must be str, not unicode",
                           _Kel.entityFuture, u"/a", None)
        self.assertRefused(TypeError, "entityFuture() takes exactly 2 arguments (1 given)",
                           _Kel.entityFuture, "/a")

    def test_the_kinds_are_told_apart(self):
        future = _Kel.entityFuture("/a", None)
        self.assertTrue(_Kel.isEntityFuture(future))
        self.assertFalse(_Kel.isFailedMount(future))
        self.assertIsNone(future.convertToFailedMount())
        self.assertFalse(_Kel.isEntityFuture(future))
        self.assertTrue(_Kel.isFailedMount(future))

    def test_a_failed_mount_can_only_become_an_entity(self):
        future = _Kel.entityFuture("/a", None)
        future.convertToFailedMount()
        self.assertFalse(hasattr(future, "convertToFailedMount"))
        self.assertTrue(hasattr(future, "convertToEntity"))

    def test_documentation_and_shape_of_both_types(self):
        future, failed = _Kel.entityFuture("/a", None), _Kel.entityFuture("/a", None)
        failed.convertToFailedMount()
        future, failed = type(future), type(failed)
        self.assertEqual(future.__doc__,
                         "Object that may be converted to an entity at a future time.")
        self.assertEqual(failed.__doc__, "Object that failed to be converted to an entity.")
        self.assertEqual(future.fullName.__doc__, "fullName of this EntityFuture instance.")
        self.assertEqual(failed.fullName.__doc__, "fullName of this FailedMount instance.")
        self.assertEqual(future.convertToEntity.__doc__, "Convert this EntityFuture to an Entity.")
        self.assertEqual(failed.convertToEntity.__doc__, "Convert this FailedMount to an Entity.")
        self.assertEqual(future.convertToFailedMount.__doc__,
                         "Convert this EntityFuture to a FailedMount.")
        for cls in (future, failed):
            self.assertEqual(cls.kelType.__doc__, "Kel::KelType object.")
            self.assertRaises(TypeError, cls)
            self.assertRaises(TypeError, type, "Derived", (cls,), {})
        self.assertRaises(AttributeError, setattr, _Kel.entityFuture("/a", None), "fullName", "/b")

    def test_a_future_is_no_wrapper(self):
        future = _Kel.entityFuture("/a", ITEM)
        self.assertFalse(_Kel.isValue(future))
        self.assertRefused(TypeError, "expected a kelc-Python object", _Kel.isConst, future)
        self.assertRefused(TypeError, "Acme::Item.parent: " + zoo.refused("Acme::Item", future),
                           setattr, acme.Item("a", 1), "parent", future)


class ToEntity(WithEntities):

    def test_every_holder_sees_the_entity(self):
        future = _Kel.entityFuture("/futures/b", None)
        holders = [future, {"key": future}, (future,)]
        identity = id(future)
        self.assertIsNone(future.convertToEntity())
        for held in (holders[0], holders[1]["key"], holders[2][0]):
            self.assertEqual(id(held), identity)
            self.assertIsInstance(held, acme.Item)
            self.assertIs(type(held), acme.Item)
            self.assertEqual(held.fullName, "/futures/b")
            self.assertFalse(_Kel.isEntityFuture(held))
            self.assertFalse(_Kel.isConst(held))
            held.note = "written"
        self.assertEqual(kel_objects.entity("/futures/b").note, "written")
        self.assertEqual(future, kel_objects.entity("/futures/b"))

    def test_a_failed_mount_becomes_the_entity_too(self):
        future = _Kel.entityFuture("/futures/a", THING)
        future.convertToFailedMount()
        future.convertToEntity()
        self.assertIs(type(future), acme.Thing)
        self.assertEqual(future.name, "a")

    def test_a_missing_entity_leaves_it_as_it_is(self):
        for typed in (None, ITEM):
            future = _Kel.entityFuture("/futures/nothing", typed)
            before = repr(future)
            error = self.assertRefused(Exception, "entity '/futures/nothing' not found",
                                       future.convertToEntity)
            self.assertIs(type(error), Exception)
            self.assertEqual(repr(future), before)
            future.convertToFailedMount()
            self.assertRefused(Exception, "entity '/futures/nothing' not found",
                               future.convertToEntity)
            self.assertTrue(_Kel.isFailedMount(future))

    def test_it_may_be_tried_again(self):
        future = _Kel.entityFuture("/futures/c", THING)
        self.assertRaises(Exception, future.convertToEntity)
        sys.exc_clear()
        kel_objects.createEntity("/futures", "Acme::Thing", "c")
        future.convertToEntity()
        self.assertEqual(future.fullName, "/futures/c")
        del future
        kel_objects.deleteEntity("/futures", "c")

    def test_only_exactly_the_expected_type_will_do(self):
        for expected in (THING, _Kel.typeNode("Kel::Entity"), _Kel.typeNode("Odd::Board"),
                         _Kel.typeNode("U8")):
            future = _Kel.entityFuture("/futures/b", expected)
            error = self.assertRefused(
                Exception, "entity '/futures/b' is not of expected type", future.convertToEntity)
            self.assertIs(type(error), Exception)
            self.assertTrue(_Kel.isEntityFuture(future))
            self.assertEqual(future.fullName, "/futures/b")
        future = _Kel.entityFuture("/futures/b", ITEM)
        future.convertToEntity()
        self.assertIs(type(future), acme.Item)

    def test_the_entity_is_kept_and_the_path_released(self):
        path = "/futures" + "/a"
        before = sys.getrefcount(path)
        future = _Kel.entityFuture(path, None)
        future.convertToEntity()
        self.assertEqual(sys.getrefcount(path), before)
        self.assertEqual(future.kelSmartPointerReferences(), 2)
        del future
        self.assertEqual(kel_objects.entity("/futures/a").kelSmartPointerReferences(), 2)

    def test_the_methods_of_a_future_refuse_what_it_has_become(self):
        future = _Kel.entityFuture("/futures/a", None)
        convert, fail = future.convertToEntity, future.convertToFailedMount
        convert()
        self.assertRaises(TypeError, convert)
        self.assertRaises(TypeError, fail)
        self.assertIs(type(future), acme.Thing)

    def test_methods_read_before_a_future_failed_work_behind_it(self):
        future = _Kel.entityFuture("/futures/a", None)
        convert = future.convertToEntity
        future.convertToFailedMount()
        convert()
        self.assertIs(type(future), acme.Thing)


class ToFailedMount(WithEntities):

    def test_only_an_entity_can_fail(self):
        for given in (None, 5, "x", odd.Node(1), acme.Size(1), acme.Item,
                      _Kel.entityFuture("/a", None)):
            self.assertRefused(TypeError, "expected a Kel::Entity",
                               _Kel.convertEntityToFailedMount, given)

    def test_a_wrapper_becomes_a_failed_mount_for_all_its_holders(self):
        item = kel_objects.entity("/futures/b")
        other, holder = kel_objects.entity("/futures/b"), [item]
        self.assertIsNone(_Kel.convertEntityToFailedMount(item))
        self.assertTrue(_Kel.isFailedMount(holder[0]))
        self.assertEqual(item.fullName, "/futures/b")
        self.assertIs(item.kelType, ITEM)
        self.assertEqual(repr(item), "<_Kel.FailedMount '/futures/b' of type 'Acme::Item'>")
        # Another wrapper of the same entity stays one.
        self.assertEqual(other.fullName, "/futures/b")
        self.assertIs(type(other), acme.Item)

    def test_a_second_time_it_is_no_entity(self):
        item = kel_objects.entity("/futures/b")
        _Kel.convertEntityToFailedMount(item)
        self.assertRefused(TypeError, "expected a Kel::Entity",
                           _Kel.convertEntityToFailedMount, item)

    def test_it_comes_back_as_the_same_dynamic_type(self):
        item = kel_objects.entity("/futures/b")
        _Kel.convertEntityToFailedMount(item)
        item.convertToEntity()
        self.assertIs(type(item), acme.Item)
        self.assertEqual(item, kel_objects.entity("/futures/b"))
        for _ in range(3):
            _Kel.convertEntityToFailedMount(item)
            item.convertToEntity()
        self.assertEqual(item.name, "b")

    def test_it_does_not_come_back_as_an_entity_of_another_type(self):
        item = kel_objects.entity("/futures/b")
        _Kel.convertEntityToFailedMount(item)
        kel_objects.deleteEntity("/futures", "b")
        kel_objects.createEntity("/futures", "Acme::Thing", "b")
        self.assertRefused(Exception, "entity '/futures/b' is not of expected type",
                           item.convertToEntity)
        self.assertEqual(item.fullName, "/futures/b")

    def test_a_const_wrapper_fails_too_and_comes_back_non_const(self):
        item = _Kel.constPtr(kel_objects.entity("/futures/b"))
        _Kel.convertEntityToFailedMount(item)
        item.convertToEntity()
        self.assertFalse(_Kel.isConst(item))

    def test_the_last_reference_on_the_entity_goes_with_it(self):
        board = odd.Board("alone")
        _Kel.convertEntityToFailedMount(board)  # counted by the base of this test
        self.assertEqual(board.fullName, "alone")

    def test_a_deleted_entity_fails_with_the_name_that_it_had(self):
        item = kel_objects.entity("/futures/b")
        kel_objects.deleteEntity("/futures", "b")
        _Kel.convertEntityToFailedMount(item)
        self.assertEqual(item.fullName, "/futures/b")

    def test_what_was_read_of_the_wrapper_refuses_what_it_has_become(self):
        item = kel_objects.entity("/futures/b")
        function, part, raw = item.add, item.part, item.getRawAttribute
        references, copy = item.kelSmartPointerReferences, item.__copy__
        _Kel.convertEntityToFailedMount(item)
        for call in (lambda: function(1, 2), lambda: len(part), lambda: part["a"],
                     lambda: raw("size"), references, copy,
                     lambda: acme.Item.__dict__["size"].__get__(item),
                     lambda: setattr(acme.Item("x", 1), "parent", item)):
            self.assertRaises(TypeError, call)
        sys.exc_clear()


class Threads(TestCase):

    def test_two_threads_that_fail_one_entity_make_one_failed_mount(self):
        self.race("_Kel.convertEntityToFailedMount(thing)", "_Kel.isFailedMount(thing)")

    def test_a_read_that_waits_while_its_object_fails_is_refused(self):
        self.race("thing.note", "True")

    def test_a_call_that_waits_while_its_object_fails_is_refused(self):
        self.race("thing.add(1, 2)", "True")

    def test_a_comparison_that_waits_while_its_objects_fail_is_refused(self):
        self.race("thing < thing", "True")

    def test_a_text_that_waits_while_its_object_fails_is_refused(self):
        self.race("str(thing)", "True")

    def race(self, touch, holds):
        """Threads wait for the lock within `touch`; then the object fails, under the lock."""
        in_child("""
            import threading
            import _Kel, acme, kel_objects

            kel_objects.createEntity("/", "Acme::Item", "a")
            for _ in range(20):
                thing = kel_objects.entity("/a")
                begun, errors = threading.Semaphore(0), []

                def run():
                    begun.release()
                    try:
                        %s
                    except (TypeError, AttributeError) as error:
                        errors.append(error)

                _Kel.acquireActivityLock()
                threads = [threading.Thread(target=run) for _ in range(3)]
                for thread in threads:
                    thread.start()
                for thread in threads:
                    begun.acquire()
                for thread in threads:
                    thread.join(0.002)
                _Kel.convertEntityToFailedMount(thing)
                _Kel.releaseActivityLock()
                for thread in threads:
                    thread.join()
                assert %s
                thing.convertToEntity()
                assert thing.fullName == "/a"
        """ % (touch, holds), deadline=60).expect()

    def test_futures_convert_on_many_threads_at_once(self):
        kel_objects.createEntity("/", "Acme::Item", "futures-many")
        futures = [_Kel.entityFuture("/futures-many", None) for _ in range(200)]

        def convert():
            for future in futures:
                try:
                    future.convertToEntity()
                except (TypeError, AttributeError):
                    pass

        threads = [threading.Thread(target=convert) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual([future.fullName for future in futures], ["/futures-many"] * 200)
        del futures[:]
        kel_objects.deleteEntity("/", "futures-many")


if __name__ == "__main__":
    unittest.main()
