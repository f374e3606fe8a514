"""Notifiees: Python functions that are told of changes of runtime objects."""

import gc
import sys
import unittest
import weakref

import _Kel
import acme
import kel_hand
import odd
from kel_testing import TestCase, in_child
from reactors import Seen, manager, notifiee

NOTIFIEE = _Kel.typeNode("Kel::PyGenericIfNotifieeBase")


class Function(object):
    """A callable that can be referred to weakly."""

    def __call__(self, attr, key):
        pass


class NotesCase(TestCase):
    """With an object that notifies and a handler that notes what it is told."""

    def setUp(self):
        self.notes = odd.Notes()
        self.seen = Seen()

    def tearDown(self):
        self.notes = None
        super(NotesCase, self).tearDown()


class Delivery(NotesCase):

    def seen_after_run(self):
        manager.runUntilIdle()
        return self.seen.take()

    def test_each_change_reaches_the_handler_once_and_in_order(self):
        kept = notifiee(self.notes, self.seen)
        self.notes.a = 1
        self.notes.b = 2
        self.notes.a = 3
        self.assertEqual(self.seen, [])
        self.assertEqual(self.seen_after_run(), [("a", None), ("b", None), ("a", None)])
        self.assertEqual(self.seen_after_run(), [])
        self.assertEqual(kept.filtered, False)

    def test_what_changes_nothing_or_does_not_notify_is_not_told(self):
        kept = notifiee(self.notes, self.seen)
        self.notes.a = 0
        self.notes.quiet = 5
        self.assertEqual(self.seen_after_run(), [])
        del kept

    def test_the_first_argument_is_the_attribute_itself(self):
        attributes = []
        kept = notifiee(self.notes, lambda attr, key: attributes.append(attr))
        self.notes.a = 1
        manager.runUntilIdle()
        self.assertEqual(len(attributes), 1)
        self.assertIs(attributes[0], odd.Notes.kelType.attr("a"))
        del kept

    def test_an_inherited_attribute_is_that_of_the_type_that_declares_it(self):
        attributes = []
        item = acme.Item("one", 1)
        kept = notifiee(item, lambda attr, key: attributes.append(attr))
        item.note = "x"
        item.size = 3
        manager.runUntilIdle()
        self.assertEqual([attr.name for attr in attributes], ["note", "size"])
        self.assertIs(attributes[0], acme.Thing.kelType.attr("note"))
        del kept

    def test_the_second_argument_is_the_key_of_a_keyed_collection(self):
        kept = notifiee(self.notes, self.seen)
        self.notes.map["x"] = 1
        self.notes.map["x"] = 2
        del self.notes.map["x"]
        self.assertEqual(self.seen_after_run(), [("map", "x")] * 3)
        del kept

    def test_keys_of_every_sort_of_collection(self):
        store = acme.Store("store")
        kept = notifiee(store, self.seen)
        store.item.newMember("nut", 1)
        store.favorite.addMember(acme.StockItem("bolt", 2))
        store.price["nut"] = 3
        store.tag["new"] = True
        store.order.enq("nut")
        store.restock("screw", 2)
        self.assertEqual(self.seen_after_run(), [
            ("item", "nut"), ("favorite", "bolt"), ("price", "nut"), ("tag", "new"),
            ("order", None), ("item", "screw")])
        del kept

    def test_a_key_of_source_text_is_evaluated(self):
        kept = notifiee(self.notes, self.seen)
        self.notes.byText[(1, "k")] = 1
        self.assertEqual(self.seen_after_run(), [("byText", (1, "k"))])
        del kept

    def test_the_members_of_a_directory(self):
        directory = acme.Shelf("shelf")
        kept = notifiee(directory, self.seen)
        directory.newEntity("Acme::Item", "one")
        directory.clear()
        told = self.seen_after_run()
        self.assertIn(("entityPtr", "one"), told)
        del kept

    def test_a_change_from_the_runtime_is_told_too(self):
        kept = notifiee(self.notes, self.seen)
        self.notes.setLater(7)
        self.assertEqual(self.notes.a, 0)
        self.assertEqual(self.seen_after_run(), [("a", None)])
        self.assertEqual(self.notes.a, 7)
        del kept

    def test_notifiees_of_one_object_are_told_in_the_order_of_their_making(self):
        order = []
        kept = [notifiee(self.notes, lambda attr, key, i=i: order.append(i)) for i in range(5)]
        self.notes.a = 1
        manager.runUntilIdle()
        self.assertEqual(order, [0, 1, 2, 3, 4])
        del kept

    def test_each_object_tells_its_own_notifiees(self):
        other = odd.Notes()
        others = Seen()
        kept = notifiee(self.notes, self.seen), notifiee(other, others)
        self.notes.a = 1
        other.b = 1
        self.assertEqual(self.seen_after_run(), [("a", None)])
        self.assertEqual(others, [("b", None)])
        del kept

    def test_one_handle_serves_many_notifiees(self):
        handle = _Kel.handle(self.seen)
        kept = [_Kel.newNotifiee(self.notes, handle) for _ in range(3)]
        self.notes.a = 1
        self.assertEqual(self.seen_after_run(), [("a", None)] * 3)
        del kept

    def test_a_change_queued_before_the_notifiee_was_made_is_not_told(self):
        first = notifiee(self.notes, lambda attr, key: None)
        self.notes.a = 1
        second = notifiee(self.notes, self.seen)
        self.assertEqual(self.seen_after_run(), [])
        self.notes.a = 2
        self.assertEqual(self.seen_after_run(), [("a", None)])
        del first, second

    def test_a_notifiee_that_is_gone_is_not_told(self):
        kept = notifiee(self.notes, self.seen)
        self.notes.a = 1
        del kept
        self.assertEqual(self.seen_after_run(), [])

    def test_the_handler_gets_references_of_its_own(self):
        kept = notifiee(self.notes, self.seen)
        before = sys.getrefcount(self.seen), sys.getrefcount(odd.Notes.kelType.attr("map"))
        for i in range(10):
            self.notes.map["x"] = i
        manager.runUntilIdle()
        del self.seen[:]
        self.assertEqual(
            (sys.getrefcount(self.seen), sys.getrefcount(odd.Notes.kelType.attr("map"))), before)
        del kept

    def test_the_key_is_held_by_the_arguments_alone(self):
        counts = []
        kept = notifiee(self.notes, lambda attr, key: counts.append(sys.getrefcount(key)))
        self.notes.map["a key"] = 1
        manager.runUntilIdle()
        # The tuple of the arguments, the parameter, and what is asked.
        self.assertEqual(counts, [3])
        del kept

    def test_any_result_of_the_handler_is_dropped(self):
        result = Function()
        before = sys.getrefcount(result)
        kept = notifiee(self.notes, lambda attr, key: result)
        self.notes.a = 1
        manager.runUntilIdle()
        self.assertEqual(sys.getrefcount(result), before)
        del kept


class Filter(NotesCase):

    def setUp(self):
        super(Filter, self).setUp()
        self.notifiee = notifiee(self.notes, self.seen)

    def tearDown(self):
        self.notifiee = None
        super(Filter, self).tearDown()

    def names_told(self):
        self.notes.a += 1
        self.notes.b += 1
        manager.runUntilIdle()
        return [name for name, _ in self.seen.take()]

    def test_without_filtered_the_entries_do_not_matter(self):
        self.assertIs(self.notifiee.filtered, False)
        self.assertEqual(self.names_told(), ["a", "b"])
        self.notifiee.filterAttr["a"] = False
        self.notifiee.filterAttr["nothing"] = True
        self.assertEqual(self.names_told(), ["a", "b"])

    def test_with_filtered_only_entries_that_are_true_pass(self):
        self.notifiee.filtered = True
        self.assertEqual(self.names_told(), [])
        self.notifiee.filterAttr["a"] = True
        self.assertEqual(self.names_told(), ["a"])
        self.notifiee.filterAttr["b"] = True
        self.assertEqual(self.names_told(), ["a", "b"])

    def test_an_entry_that_is_false_blocks_like_an_absent_one(self):
        self.notifiee.filtered = True
        self.notifiee.filterAttr["a"] = False
        self.notifiee.filterAttr["b"] = True
        self.assertEqual(self.names_told(), ["b"])
        self.notifiee.filterAttr["a"] = True
        self.notifiee.filterAttr["b"] = False
        self.assertEqual(self.names_told(), ["a"])
        del self.notifiee.filterAttr["a"]
        self.assertEqual(self.names_told(), [])

    def test_it_is_read_at_the_delivery(self):
        self.notes.a = 7
        self.notifiee.filtered = True
        manager.runUntilIdle()
        self.assertEqual(self.seen.take(), [])
        self.notes.a = 8
        self.notifiee.filterAttr["a"] = True
        manager.runUntilIdle()
        self.assertEqual(self.seen.take(), [("a", None)])

    def test_the_entries_act_as_a_mapping(self):
        entries = self.notifiee.filterAttr
        self.assertEqual(len(entries), 0)
        entries["a"] = False
        entries["b"] = True
        self.assertEqual(dict(entries.items()), {"a": False, "b": True})
        self.assertEqual((len(entries), "a" in entries, "c" in entries), (2, True, False))
        self.assertIs(entries["a"], False)
        with self.assertRaises(KeyError):
            entries["c"]
        self.assertIs(entries.get("c", 5), 5)
        entries["a"] = True
        self.assertEqual(dict(entries.items()), {"a": True, "b": True})
        entries.clear()
        self.assertEqual(list(entries.keys()), [])

    def test_they_take_texts_and_bools_only(self):
        with self.assertRaises(TypeError):
            self.notifiee.filterAttr["a"] = 1
        with self.assertRaises(TypeError):
            self.notifiee.filterAttr[1] = True
        with self.assertRaises(TypeError):
            self.notifiee.filtered = 1
        self.assertEqual((self.notifiee.filtered, len(self.notifiee.filterAttr)), (False, 0))


class LocksOfTheHandler(NotesCase):

    def run_handler(self, function):
        """What the function gives when the handler calls it."""
        results = []
        kept = notifiee(self.notes, lambda attr, key: results.append(function()))
        self.notes.a += 1
        manager.runUntilIdle()
        del kept
        self.assertEqual(len(results), 1)
        return results[0]

    def test_the_activity_lock_is_free_while_it_runs(self):
        def acquire():
            owner = _Kel.activityLockOwner()
            taken = _Kel.acquireActivityLock()
            mine = _Kel.activityLockOwner() == kel_hand.thread()
            _Kel.releaseActivityLock()
            return owner, taken, mine
        self.assertEqual(self.run_handler(acquire), (0, True, True))
        self.assertEqual(_Kel.activityLockOwner(), 0)

    def test_a_timed_acquire_gets_the_lock_as_well(self):
        def acquire():
            taken = _Kel.timedAcquireActivityLock(0)
            _Kel.releaseActivityLock()
            return taken
        self.assertIs(self.run_handler(acquire), True)

    def test_a_lock_that_it_keeps_is_no_harm(self):
        self.assertIs(self.run_handler(_Kel.acquireActivityLock), True)
        self.assertEqual(_Kel.activityLockOwner(), 0)

    def test_an_owner_of_the_lock_may_run_the_loop_and_owns_it_afterwards(self):
        _Kel.acquireActivityLock()
        try:
            self.assertEqual(self.run_handler(_Kel.activityLockOwner), 0)
            self.assertEqual(_Kel.activityLockOwner(), kel_hand.thread())
        finally:
            _Kel.releaseActivityLock()

    def test_it_has_the_GIL_and_calls_the_runtime_without(self):
        probe = odd.Probe()
        look = lambda: (probe.gilHeld(), probe.activityLockHeld(), probe.thread())
        self.assertEqual(self.run_handler(look), (False, True, kel_hand.thread()))


class WhatHandlersDo(NotesCase):

    def test_changes_of_its_own_are_told_afterwards(self):
        seen = []

        def count_down(attr, key):
            seen.append(self.notes.a)
            if self.notes.a:
                self.notes.a -= 1

        kept = notifiee(self.notes, count_down)
        self.notes.a = 5
        manager.runUntilIdle()
        self.assertEqual(seen, [5, 4, 3, 2, 1, 0])
        del kept

    def test_a_notifiee_that_it_makes_sees_later_changes_only(self):
        made, seen = [], Seen()

        def make(attr, key):
            if not made:
                made.append(notifiee(self.notes, seen))

        kept = notifiee(self.notes, make)
        self.notes.a = 1
        self.notes.b = 1
        manager.runUntilIdle()
        self.assertEqual(seen.take(), [])
        self.notes.a = 2
        manager.runUntilIdle()
        self.assertEqual(seen.take(), [("a", None)])
        del kept, make

    def test_a_change_that_it_makes_after_a_notifiee_reaches_that(self):
        made, seen = [], Seen()

        def make(attr, key):
            if not made:
                made.append(notifiee(self.notes, seen))
                self.notes.b = 9

        kept = notifiee(self.notes, make)
        self.notes.a = 1
        manager.runUntilIdle()
        self.assertEqual(seen.take(), [("b", None)])
        del kept, make

    def test_a_notifiee_that_it_drops_is_not_told_any_more(self):
        order, kept = [], []

        def first(attr, key):
            order.append("first")
            del kept[1:]

        kept.append(notifiee(self.notes, first))
        kept.append(notifiee(self.notes, lambda attr, key: order.append("second")))
        kept.append(notifiee(self.notes, lambda attr, key: order.append("third")))
        self.notes.a = 1
        self.notes.b = 1
        manager.runUntilIdle()
        self.assertEqual(order, ["first", "first"])
        del kept[:], first

    def test_it_may_drop_the_notifiee_that_calls_it(self):
        kept, seen = {}, []

        class Leaving(object):
            def __call__(self, attr, key):
                kept.clear()
                gc.collect()
                seen.append(sys.getrefcount(self))

        # Nothing but the caller holds the function for the length of its call.
        Leaving()(None, None)
        held, = seen
        del seen[:]
        function = Leaving()
        alive = weakref.ref(function)
        others = [notifiee(self.notes, lambda attr, key: seen.append("before"))]
        kept["it"] = notifiee(self.notes, function)
        others.append(notifiee(self.notes, lambda attr, key: seen.append("behind")))
        del function
        self.notes.a = 1
        self.notes.b = 1
        manager.runUntilIdle()
        self.assertEqual(seen, ["before", held, "behind", "before", "behind"])
        self.assertIsNone(alive())
        del others

    def test_it_may_drop_the_object_that_tells_it(self):
        kept = {"notes": self.notes}
        seen = Seen()

        def leave(attr, key):
            seen(attr, key)
            kept.clear()

        kept["it"] = notifiee(self.notes, leave)
        self.notes.a = 1
        self.notes.b = 1
        self.notes = None
        manager.runUntilIdle()
        self.assertEqual(seen, [("a", None)])

    def test_it_may_delete_members_and_entities(self):
        directory = acme.Shelf("shelf")
        seen = Seen()

        def clear(attr, key):
            seen(attr, key)
            directory.clear()

        items = [directory.newEntity("Acme::Item", "i%d" % i) for i in range(3)]
        kept = [notifiee(item, clear) for item in items]
        for item in items:
            item.note = "x"
        manager.runUntilIdle()
        self.assertEqual(len(directory), 0)
        self.assertEqual(seen[0], ("note", None))
        del kept, clear

    def test_it_may_change_the_filter_of_its_notifiee(self):
        kept, seen = [], Seen()

        def close(attr, key):
            seen(attr, key)
            kept[0].filtered = True

        kept.append(notifiee(self.notes, close))
        self.notes.a = 1
        self.notes.b = 1
        manager.runUntilIdle()
        self.assertEqual(seen, [("a", None)])
        del kept[:], close

    def test_it_may_not_run_the_loop_that_runs_it(self):
        errors = []

        def run(attr, key):
            for start in manager.run, manager.runUntilIdle, manager.start:
                try:
                    start()
                except SystemError as error:
                    errors.append(error)

        kept = notifiee(self.notes, run)
        self.notes.a = 1
        manager.runUntilIdle()
        self.assertEqual(len(errors), 3)
        del kept


class Making(TestCase):

    def test_a_notifiee_is_a_non_const_object_of_the_base_type(self):
        made = notifiee(odd.Notes(), Function())
        self.assertIs(type(made), _Kel.pyType(NOTIFIEE))
        self.assertIs(_Kel.isConst(made), False)
        self.assertEqual(made.kelSmartPointerReferences(), 1)

    def test_it_keeps_its_notifier_and_its_function_and_nothing_keeps_it(self):
        live = kel_hand.live
        notes, function = odd.Notes(), Function()
        alive = weakref.ref(function)
        made = notifiee(notes, function)
        del notes, function
        self.assertIsNotNone(alive())
        self.assertEqual(live()["Odd::Notes"], self._live_before.get("Odd::Notes", 0) + 1)
        del made
        self.assertIsNone(alive())
        self.assertEqual(live()["Odd::Notes"], self._live_before.get("Odd::Notes", 0))

    def test_its_handler_reads_as_the_handle(self):
        handle = _Kel.handle(Function())
        made = _Kel.newNotifiee(odd.Notes(), handle)
        self.assertEqual(made.handler, handle)
        self.assertIsNone(_Kel.newNotifiee(odd.Notes(), None).handler)
        with self.assertRaises(NotImplementedError):
            made.handler = handle

    def test_a_const_view_of_an_object_will_do(self):
        notes, seen = odd.Notes(), Seen()
        kept = notifiee(_Kel.constPtr(notes), seen)
        notes.a = 1
        manager.runUntilIdle()
        self.assertEqual(seen, [("a", None)])
        del kept

    def test_what_is_no_runtime_object_is_refused_by_the_parser(self):
        handle = _Kel.handle(Function())
        for wrong, name in [(5, "int"), (None, "None"), (odd.Notes, "_Kel.Type"),
                            (acme.Size(1), "Acme::Size"), (odd.Own(), "Odd::Own"),
                            (acme.Store("s").price, "_Kel.Collection")]:
            self.assertRefused(
                TypeError, "newNotifiee() argument 1 must be Kel::PtrInterface, not %s" % name,
                _Kel.newNotifiee, wrong, handle)
        self.assertRefused(
            TypeError, "newNotifiee() argument 1 must be Kel::PtrInterface, not int",
            _Kel.newNotifiee, 5, None)

    def test_what_is_no_handle_and_not_None_is_refused(self):
        for wrong in 5, Function(), odd.Notes(), "x":
            self.assertRefused(TypeError, "expected a Kel::PyObjHandle or None",
                               _Kel.newNotifiee, odd.Notes(), wrong)

    def test_a_failure_names_the_class_of_the_object(self):
        in_child("""
            import threading
            import _Kel, acme, kel_hand
            from kel_testing import wait_until
            from kel_testing.case import refusal

            item, refusals = acme.Item("one", 1), []
            _Kel.acquireActivityLock()
            thread = threading.Thread(
                target=lambda: refusals.append(refusal(_Kel.newNotifiee, item, None)))
            thread.start()
            wait_until(kel_hand.isLockContended)
            _Kel.convertEntityToFailedMount(item)
            _Kel.releaseActivityLock()
            thread.join()
            error, = refusals
            assert type(error) is TypeError, error
            assert str(error) == (
                'Acme::Item: Kel::TypeException("expected a kelc-Python object")'), error
            """).expect()

    def test_it_takes_two_arguments(self):
        self.assertRefused(TypeError, "newNotifiee() takes exactly 2 arguments (0 given)",
                           _Kel.newNotifiee)
        self.assertRefused(TypeError, "newNotifiee() takes exactly 2 arguments (3 given)",
                           _Kel.newNotifiee, odd.Notes(), None, None)
        self.assertEqual(_Kel.newNotifiee.__doc__, "Create a new notifiee.")

    def test_the_class_cannot_be_called_as_no_unit_declares_its_argument(self):
        self.assertRefused(
            TypeError, "Kel::PyGenericIfNotifieeBase: Kel::NoTypeNodeException"
            "(\"no type 'Kel::GenericIf'\")", _Kel.pyType(NOTIFIEE), odd.Notes(), None)


class Schema(TestCase):

    def test_the_type_is_declared_as_the_runtime_knows_it(self):
        self.assertEqual(NOTIFIEE.fullTypeName, "Kel::PyGenericIfNotifieeBase")
        self.assertEqual(NOTIFIEE.baseType.fullTypeName, "Kel::PtrInterface")
        self.assertEqual(
            (NOTIFIEE.isPolymorphic, NOTIFIEE.containsOptionalsOrCollections,
             NOTIFIEE.isConstrainer, NOTIFIEE.isAbstractType), (True, True, False, False))
        self.assertEqual(NOTIFIEE.constructorArgNameQ, ("gifNotifier", "handler"))
        self.assertEqual(NOTIFIEE.constructorArgTypeQ, ("Kel::GenericIf", "Kel::PyObjHandle"))

    def test_its_attributes_have_their_numbers_and_kinds(self):
        self.assertEqual([(attr.name, attr.attributeId) for attr in NOTIFIEE.attributeQ],
                         [("handler", 130), ("filtered", 131), ("filterAttr", 132)])
        handler, filtered, entries = NOTIFIEE.attributeQ
        self.assertEqual(handler.memberType.fullTypeName, "Kel::PyObjHandle")
        self.assertEqual((handler.isPtr, handler.readable, handler.writable, handler.isImmutable),
                         (True, True, False, True))
        self.assertEqual(filtered.memberType.fullTypeName, "bool")
        self.assertEqual((filtered.readable, filtered.writable, filtered.hasDataMember),
                         (True, True, True))
        self.assertEqual((entries.memberType.fullTypeName, entries.indexType.fullTypeName),
                         ("bool", "Kel::String"))
        self.assertEqual((entries.isCollection, entries.readable, entries.writable),
                         (True, True, True))
