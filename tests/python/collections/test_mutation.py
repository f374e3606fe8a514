"""Changing collections: setdefault, clear, update, stages, and which locks are held."""

import threading
import unittest

import _Kel
import acme
import kel_hand
import odd
from kel_testing import TestCase, in_child
from kel_testing.pending import pending_of

MOUNT_PROXY = ('Kel::Exception("Attempting to resolve mount proxy while holding the activity lock, '
               'which can cause a deadlock. See BUG853618.")')


class Proxy(object):
    def __init__(self, result):
        self.result = result

    def __kel_object__(self):
        if isinstance(self.result, Exception):
            raise self.result
        return self.result


class ItemAssignment(TestCase):

    def test_each_stage_of_a_failure_is_told(self):
        store, coll = acme.Store("store"), odd.Coll()
        gone = Proxy(ValueError("gone"))
        self.assertRefused(ValueError, "gone", coll.byNode.__setitem__, gone, 1)
        self.assertRefused(ValueError, "gone", store.price.__setitem__, "a", gone)
        self.assertRefused(
            TypeError,
            'Acme::Store.price: index: Kel::TypeException("expected Kel::String, got int: 1")',
            store.price.__setitem__, 1, 1)
        self.assertRefused(
            TypeError, "Acme::Store.price: Kel::TypeException(\"expected U32, got str: 'x'\")",
            store.price.__setitem__, "a", "x")
        self.assertRefused(
            IndexError, 'Odd::Coll.track: mutator: Kel::RangeException("the collection has no '
            'member 5")', coll.track.__setitem__, 5, 1)
        self.assertEqual((len(store.price), len(coll.track)), (0, 0))

    def test_stages_before_the_lock_are_told(self):
        store, coll = acme.Store("store"), odd.Coll()
        proxy = Proxy(odd.Node(1))
        _Kel.acquireActivityLock()
        try:
            for stage, function, args in [
                    ("index resolution: ", coll.byNode.__setitem__, (proxy, 1)),
                    ("rhs resolution: ", coll.byNode.__setitem__, (odd.Node(2), proxy)),
                    ("rhs resolution: ", coll.node.addMember, (proxy,)),
                    ("resolution: ", coll.byNode.__delitem__, (proxy,)),
                    ("resolution: ", coll.line.enq, (proxy,)),
                    ("resolution: ", coll.byNode.__getitem__, (proxy,))]:
                self.assertRefused(
                    Exception, "%s.%s: %s%s" % (
                        "Odd::Coll", function.__self__.kelAttr.name, stage, MOUNT_PROXY),
                    function, *args)
        finally:
            _Kel.releaseActivityLock()
        self.assertEqual(len(store.price), 0)

    def test_a_const_object_refuses_a_change(self):
        store = _Kel.constPtr(acme.Store("store"))
        self.assertRaises(AttributeError, store.price.__setitem__, "a", 1)
        self.assertRaises(AttributeError, store.price.__delitem__, "a")
        self.assertRaises(AttributeError, store.order.enq, "a")
        self.assertRaises(AttributeError, store.newItem, "a", 1)
        self.assertEqual(len(store.price), 0)

    def test_deleting_an_absent_key_is_no_error(self):
        store = acme.Store("store")
        del store.price["absent"]
        store.tag.remove("absent")
        del store.item["absent"]


class Setdefault(TestCase):

    def test_a_new_key_gives_back_the_very_default_and_then_what_is_stored(self):
        size = odd.Coll().size
        default = acme.Size(3)
        self.assertIs(size.setdefault(1, default), default)
        self.assertEqual(size.setdefault(1, acme.Size(4)), 3)
        self.assertEqual(size[1], 3)

    def test_without_a_default_it_sets_None_where_the_member_may_be_absent(self):
        coll = odd.Coll()
        self.assertIsNone(coll.maybe.setdefault("a"))
        self.assertIn("a", coll.maybe)
        self.assertRefused(TypeError, 'Odd::Coll.text: Kel::TypeException("expected U32, got '
                           'NoneType: None")', coll.text.setdefault, 1)

    def test_a_failure_other_than_a_missing_key_ends_it(self):
        coll = odd.Coll()
        self.assertRefused(SystemError, 'Odd::Coll.brittle: membership check: '
                           'Kel::InternalException("exist")', coll.brittle.setdefault, "a", 1)
        self.assertRefused(IndexError, 'Odd::Coll.pod: Kel::RangeException("Odd::Coll.pod has no '
                           'such member")', coll.pod.setdefault, 9, 1)
        self.assertEqual(coll.log(), "exist get")

    def test_a_position_that_a_vector_lacks_cannot_be_set(self):
        track = odd.Coll().track
        self.assertRefused(IndexError, 'Odd::Coll.track: mutator: Kel::RangeException("the '
                           'collection has no member 0")', track.setdefault, 0, 5)

    def test_both_steps_run_under_one_hold_of_the_lock(self):
        seen = []

        class Key(object):
            def __repr__(self):
                # Another thread cannot get the lock between the two conversions.
                seen.append(_Kel.activityLockOwner())
                return "'key'"
        coll = odd.Coll()
        taken = []
        stop = threading.Event()

        def taker():
            while not stop.is_set():
                if _Kel.timedAcquireActivityLock(0):
                    taken.append(len(seen) % 2)
                    _Kel.releaseActivityLock()
        thread = threading.Thread(target=taker)
        thread.start()
        try:
            for _ in range(200):
                coll.text.setdefault(Key(), 1)
                coll.text.clear()
        finally:
            stop.set()
            thread.join()
        self.assertEqual(set(seen), set([kel_hand.thread()]))
        self.assertEqual((len(seen), set(taken) - set([0])), (400, set()))

    def test_a_proxy_meets_the_lock_and_is_refused(self):
        by_node = odd.Coll().byNode
        self.assertRefused(Exception, "Odd::Coll.byNode: resolution: " + MOUNT_PROXY,
                           by_node.setdefault, Proxy(odd.Node(1)), 1)
        self.assertRefused(Exception, "Odd::Coll.byNode: rhs resolution: " + MOUNT_PROXY,
                           by_node.setdefault, odd.Node(2), Proxy(odd.Node(1)))


class Clear(TestCase):

    def operations_of_clear(self, name, *members):
        coll = odd.Coll()
        collection = getattr(coll, name)
        for i, member in enumerate(members):
            if collection.kelAttr.isVector or name in ("line", "pile"):
                (collection.enq if name == "line" else collection.push)(member)
            elif name == "node":
                collection.addMember(odd.Node(member))
            else:
                collection[i] = member
        coll.log()
        collection.clear()
        return coll.log(), collection.values()

    def test_an_empty_vector_is_left_alone(self):
        self.assertEqual(self.operations_of_clear("track"), ("members", []))

    def test_a_vector_loses_its_members_one_by_one(self):
        self.assertEqual(self.operations_of_clear("track", 1, 2, 3),
                         ("members remove remove remove", []))

    def test_a_dynamic_array_is_reset_and_nothing_deleted(self):
        self.assertEqual(self.operations_of_clear("slot", 5, 6),
                         ("iterate set set set set", [0, 0, 0, 0]))

    def test_a_packed_array_and_a_plain_one_are_deleted_from(self):
        self.assertEqual(self.operations_of_clear("packed", 5, 6), ("iterate del del", []))
        self.assertEqual(self.operations_of_clear("pod", 5),
                         ("iterate del del del del", [0, 0, 0, 0]))

    def test_any_other_kind_is_deleted_from_by_a_snapshot_of_its_keys(self):
        self.assertEqual(self.operations_of_clear("text", 5, 6), ("iterate del del", []))
        self.assertEqual(self.operations_of_clear("node", 5, 6), ("iterate del del", []))
        self.assertEqual(self.operations_of_clear("line", 5, 6), ("iterate del del", []))
        self.assertEqual(self.operations_of_clear("pile", 5, 6), ("iterate del del", []))

    def test_a_failing_iteration_is_told_with_its_stage(self):
        self.assertRefused(
            SystemError, 'Odd::Coll.brittle: iteration: Kel::InternalException("iterate")',
            odd.Coll().brittle.clear)

    def test_a_refusal_of_the_runtime_has_no_stage(self):
        store = acme.Store("store")
        store.price["a"] = 1
        store.track.push(1)
        const = _Kel.constPtr(store)
        text = ('Acme::Store.%s: Kel::ConstException("cannot change Acme::Store.%s of a const '
                'object")')
        self.assertRefused(AttributeError, text % ("price", "price"), const.price.clear)
        self.assertRefused(AttributeError, text % ("track", "track"), const.track.clear)
        self.assertEqual((len(store.price), len(store.track)), (1, 1))


class Update(TestCase):

    def test_it_takes_a_dict_a_mapping_or_pairs_and_then_keywords(self):
        class Child(dict):
            def items(self):
                raise AssertionError("a dict is walked, whatever its class")

        class Mapping(object):
            def __getitem__(self, key):
                raise AssertionError("only items() is asked")

            def items(self):
                return iter([("c", 3)])
        store, other = acme.Store("store"), acme.Store("other")
        other.price["d"] = 4
        for source, expected in [({"a": 1}, {"a": 1}), (Child(b=2), {"b": 2}),
                                 (Mapping(), {"c": 3}), (other.price, {"d": 4}),
                                 ([("e", 5), ("f", 6)], {"e": 5, "f": 6}),
                                 (iter([("g", 7)]), {"g": 7}), ((), {})]:
            store.price.clear()
            self.assertIsNone(store.price.update(source, z=9))
            self.assertEqual(dict(store.price.items()), dict(expected, z=9))
        self.assertIsNone(store.price.update())

    def test_a_pair_comes_before_the_keyword(self):
        text = odd.Coll().text
        self.assertIsNone(text.update([(1, 2)], x=3))
        self.assertEqual((text[1], text["x"], len(text)), (2, 3, 2))
        price = acme.Store("store").price
        price.update([("x", 1)], x=3)
        self.assertEqual(price["x"], 3)

    def test_an_element_that_is_no_pair_ends_it_with_number_and_length(self):
        price = acme.Store("store").price
        text = "dictionary update sequence element #%d has length %d; 2 is required"
        self.assertRefused(ValueError, text % (0, 3), price.update, [(1, 2, 3)])
        self.assertRefused(ValueError, text % (1, 0), price.update, [("a", 1), ()], b=2)
        self.assertEqual(price.items(), [("a", 1)])
        self.assertRefused(ValueError, text % (0, -1), price.update, [5])

    def test_a_pair_that_is_no_tuple_is_refused(self):
        price = acme.Store("store").price
        for pair in (["a", 1], "ab", {1: 2, 3: 4}):
            self.assertRaises(TypeError, price.update, [pair])
        self.assertEqual(len(price), 0)

    def test_what_gives_no_pairs_is_refused(self):
        price = acme.Store("store").price
        self.assertRefused(TypeError, "'int' object is not iterable", price.update, 5)
        self.assertRefused(
            TypeError, "update expected at most 1 arguments, got 2", price.update, 1, 2)

        class Mapping(dict.__base__):
            def __getitem__(self, key):
                pass

            def items(self):
                raise ValueError("no items")
        self.assertRefused(ValueError, "no items", price.update, Mapping())
        Mapping.items = lambda self: [("a",)]
        self.assertRefused(
            ValueError, "dictionary update sequence element #0 has length 1; 2 is required",
            price.update, Mapping())

    def test_a_mapping_without_items_is_taken_for_its_pairs(self):
        price = acme.Store("store").price

        class Mapping(object):
            def __getitem__(self, key):
                raise AssertionError("nobody asks for the key %r" % (key,))

            def __iter__(self):
                return iter([("a", 1), ("b", 2)])
        price.update(Mapping())
        self.assertEqual(sorted(price.items()), [("a", 1), ("b", 2)])

    def test_a_failed_pair_stops_nothing_and_its_error_stays_pending(self):
        price = acme.Store("store").price
        text = 'Acme::Store.price: index: Kel::TypeException("expected Kel::String, got int: 1")'
        self.assertEqual(pending_of(price.update, [(1, 1), ("good", 2)]), (TypeError, text))
        self.assertEqual(price.items(), [("good", 2)])
        self.assertEqual(pending_of(price.update, {1: 1}, later=3), (TypeError, text))
        self.assertEqual(price["later"], 3)

    def test_good_pairs_of_any_sort_follow_a_failed_one(self):
        coll = odd.Coll()
        bad = ("a", "no number")
        for key, value in [("k", 1), (u"k", 1L), ("k", -1L + 2 ** 32)]:
            self.assertEqual(
                pending_of(coll.blind.update, [bad, (key, value)])[0], TypeError)
            self.assertEqual(coll.blind["k"], value)
        coll.track.push(0)
        self.assertEqual(pending_of(coll.track.update, [("x", 1), (0L, -1L)])[0], TypeError)
        self.assertEqual(coll.track.values(), [-1])

        class Key(object):
            def __repr__(self):
                # The end of a loop is where the interpreter looks for an error.
                return "".join(letter for letter in "'key'")
        key = Key()
        self.assertEqual(pending_of(coll.text.update, [(1, "x"), (key, 1)])[0], TypeError)
        self.assertEqual(coll.text[key], 1)
        node = odd.Node(1)
        self.assertEqual(pending_of(coll.byNode.update, [("x", 1), (node, 1)])[0], TypeError)
        self.assertEqual(coll.byNode[node], 1)
        self.assertEqual(
            pending_of(coll.byNode.update, [("x", 1), (Proxy(node), 2)])[0], TypeError)
        self.assertEqual(coll.byNode[node], 2)

    def test_each_pair_of_a_collection_with_an_internal_key_is_refused(self):
        store = acme.Store("store")
        goods = acme.StockItem("a", 1)
        self.assertEqual(
            pending_of(store.favorite.update, [("a", goods), ("b", goods)], c=goods),
            (TypeError, "'__setitem__' not allowed for collection with internal key; "
             "use addMember instead"))
        self.assertEqual(
            pending_of(store.item.update, a=goods),
            (TypeError, "'__setitem__' not allowed for instantiating collection; "
             "use newMember instead"))
        self.assertEqual((len(store.favorite), len(store.item)), (0, 0))

    def test_an_iterable_that_raises_ends_it_with_that_error(self):
        def pairs(*found):
            for pair in found:
                yield pair
            raise ValueError("the source")
        price = acme.Store("store").price
        self.assertRefused(ValueError, "the source", price.update, pairs(("a", 1)), b=2)
        self.assertEqual(price.items(), [("a", 1)])
        self.assertRefused(ValueError, "the source", price.update, pairs((1, 1)), b=2)
        self.assertEqual(price.items(), [("a", 1)])

    def test_python_code_of_the_source_runs_unharmed_behind_a_failed_pair(self):
        class Source(object):
            def __init__(self):
                self.left = [("b", 2), (1, 1)]

            def __iter__(self):
                return self

            def next(self):
                try:
                    {}["absent"]
                except KeyError:
                    pass
                if not self.left:
                    raise StopIteration
                return self.left.pop()
        price = acme.Store("store").price
        self.assertEqual(pending_of(price.update, Source())[0], TypeError)
        self.assertEqual(price.items(), [("b", 2)])

    def test_a_second_failure_of_the_runtime_ends_the_process(self):
        outcome = in_child("""
            import acme
            acme.Store("store").price.update([(1, 1), (2, 2)])
        """).expect(-6)
        self.assertIn("assertion failed: !PyErr_Occurred() (", outcome.err)

    def test_a_source_may_change_while_it_is_walked(self):
        made = []

        class Key(object):
            def __getattr__(self, name):
                if name == "__kel_object__":
                    source.clear()
                    # Takes the place of the value in memory, if that is gone.
                    made.append(int("54321"))
                raise AttributeError(name)

            def __repr__(self):
                return "'key'"
        source = {}
        source[Key()] = int("12345")
        text = odd.Coll().text
        text.update(source)
        self.assertEqual((len(source), text.values()), (0, [12345]))


if __name__ == "__main__":
    unittest.main()
