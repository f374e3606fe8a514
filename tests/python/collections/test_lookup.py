"""Looking into collections: keys, hooks, proxies, and what runs under which lock."""

import unittest

import _Kel
import acme
import kel_hand
import odd
from kel_testing import TestCase
from kel_testing.kinds import VECTOR, directories, kinds, on_each


class Watch(object):
    """A key that every type with a repr attribute takes, and that notes the lock's owner."""

    def __init__(self):
        self.owners = []

    def __repr__(self):
        self.owners.append(_Kel.activityLockOwner())
        return "'watch'"


class Proxy(object):
    def __init__(self, result):
        self.result = result
        self.owners = []

    def __kel_object__(self):
        self.owners.append(_Kel.activityLockOwner())
        if isinstance(self.result, Exception):
            raise self.result
        return self.result


def tested_kinds():
    """All but the arrays and the one collection that cannot tell whether a key is there."""
    others = ("coll.slot", "coll.packed", "coll.pod", "coll.blind")
    return [kind for kind in kinds() + directories() if kind.attribute not in others]


def missing_key(kind):
    """One that a filled collection does not have."""
    return 99 if isinstance(kind.key(0), int) else kind.key(2)


class MissingKeys(TestCase):

    def test_a_missing_key_raises_KeyError_whose_args_hold_the_key_itself(self):
        def body(kind, collection):
            key = missing_key(kind)
            for read in (collection.__getitem__, collection.getRawEntry):
                with self.assertRaises(KeyError) as caught:
                    read(key)
                self.assertEqual(len(caught.exception.args), 1)
                self.assertIs(caught.exception.args[0], key)
            self.assertFalse(collection.has_key(key))
        on_each(tested_kinds(), body)

    def test_a_tuple_is_one_key(self):
        text = odd.Coll().text
        key = (1, "two")
        with self.assertRaises(KeyError) as caught:
            text[key]
        self.assertEqual(caught.exception.args, (key,))
        self.assertIs(caught.exception.args[0], key)
        text[key] = 5
        self.assertEqual(text[1, "two"], 5)

    def test_get_gives_the_default_but_for_a_vector(self):
        def body(kind, collection):
            key = missing_key(kind)
            if kind.order is VECTOR:
                self.assertRaises(KeyError, collection.get, key)
                self.assertRaises(KeyError, collection.get, key, 5)
            else:
                self.assertIsNone(collection.get(key))
                default = object()
                self.assertIs(collection.get(key, default), default)
        on_each(tested_kinds(), body)

    def test_an_array_leaves_a_missing_position_to_the_runtime(self):
        coll = odd.Coll()
        for name in ("slot", "packed", "pod"):
            array = getattr(coll, name)
            text = 'Odd::Coll.%s: Kel::RangeException("Odd::Coll.%s has no such member")' % (
                name, name)
            coll.log()
            for read in (array.__getitem__, array.getRawEntry, array.get):
                self.assertRefused(IndexError, text, read, 4)
            self.assertEqual(coll.log(), "get get get")
            self.assertIs(array.has_key(4), False)

    def test_get_parses_one_or_two_arguments(self):
        for collection in (acme.Store("store").price, acme.Shelf("shelf")):
            self.assertRefused(
                TypeError, "get() takes at least 1 argument (0 given)", collection.get)
            self.assertRefused(TypeError, "get() takes at most 2 arguments (3 given)",
                               collection.get, 1, 2, 3)
            self.assertRefused(
                TypeError, "has_key() takes exactly 1 argument (0 given)", collection.has_key)


class Vectors(TestCase):

    def test_in_asks_for_a_value_and_has_key_for_a_position(self):
        track = acme.Store("store").track
        track.push(7)
        self.assertIn(7, track)
        self.assertIs(track.has_key(7), False)
        self.assertNotIn(0, track)
        self.assertIs(track.has_key(0), True)

    def test_in_raises_what_a_comparison_raises(self):
        class Refuses(object):
            def __eq__(self, other):
                raise ValueError("no")
        track = acme.Store("store").track
        self.assertFalse(Refuses() in track)
        track.push(1)
        self.assertRefused(ValueError, "no", track.__contains__, Refuses())

    def test_in_stops_at_the_first_equal_value(self):
        coll = odd.Coll()
        for i in range(5):
            coll.track.push(i)
        self.assertIn(1, coll.track)
        self.assertNotIn(9, coll.track)


class Stages(TestCase):

    def test_a_key_of_a_wrong_type_is_told_with_its_stage(self):
        price = acme.Store("store").price
        text = 'Acme::Store.price: index: Kel::TypeException("expected Kel::String, got int: 1")'
        for read in (price.__getitem__, price.get, price.getRawEntry, price.has_key,
                     price.__contains__, price.__delitem__):
            self.assertRefused(TypeError, text, read, 1)

    def test_a_failing_membership_test_is_told_with_its_stage(self):
        coll = odd.Coll()
        text = 'Odd::Coll.brittle: %sKel::InternalException("exist")'
        for read in (coll.brittle.__getitem__, coll.brittle.get, coll.brittle.getRawEntry):
            self.assertRefused(SystemError, text % "membership check: ", read, "a")
        for test in (coll.brittle.has_key, coll.brittle.__contains__):
            self.assertRefused(SystemError, text % "", test, "a")

    def test_a_collection_without_a_membership_test_holds_every_key_until_it_is_read(self):
        coll = odd.Coll()
        coll.blind["a"] = 1
        coll.log()
        self.assertEqual(coll.blind["a"], 1)
        self.assertEqual(coll.log(), "exist get")
        self.assertIs(coll.blind.has_key("b"), True)
        self.assertIn("b", coll.blind)
        text = 'Odd::Coll.blind: Kel::RangeException("Odd::Coll.blind has no such member")'
        self.assertRefused(IndexError, text, coll.blind.__getitem__, "b")
        self.assertRefused(IndexError, text, coll.blind.get, "b", 5)

    def test_a_proxy_stands_for_its_object_as_a_key(self):
        by_node = odd.Coll().byNode
        node = odd.Node(1)
        proxy = Proxy(node)
        by_node[proxy] = 5
        self.assertEqual((by_node[proxy], by_node[node]), (5, 5))
        self.assertIn(proxy, by_node)
        with self.assertRaises(KeyError) as caught:
            by_node[Proxy(odd.Node(2))]
        self.assertEqual(caught.exception.args[0].id, 2)
        del by_node[proxy]
        self.assertEqual(len(by_node), 0)
        self.assertEqual(set(proxy.owners), set([0]))

    def test_a_proxy_that_fails_keeps_its_own_error(self):
        by_node = odd.Coll().byNode
        for read in (by_node.__getitem__, by_node.has_key, by_node.__delitem__):
            self.assertRefused(ValueError, "gone", read, Proxy(ValueError("gone")))

    def test_a_proxy_under_the_lock_is_refused_with_the_stage(self):
        by_node = odd.Coll().byNode
        proxy = Proxy(odd.Node(1))
        _Kel.acquireActivityLock()
        try:
            self.assertRefused(
                Exception,
                'Odd::Coll.byNode: resolution: Kel::Exception("Attempting to resolve mount proxy '
                'while holding the activity lock, which can cause a deadlock. See BUG853618.")',
                by_node.has_key, proxy)
        finally:
            _Kel.releaseActivityLock()
        self.assertEqual(proxy.owners, [])


class Conversion(TestCase):

    def test_getRawEntry_shows_a_value_as_it_is_stored(self):
        size = odd.Coll().size
        size[1] = 2
        self.assertEqual((size[1], type(size[1])), (2, int))
        raw = size.getRawEntry(1)
        self.assertIs(type(raw), acme.Size)
        self.assertEqual(raw.value, 2)

    def test_an_absent_optional_member_is_None_and_there(self):
        maybe = odd.Coll().maybe
        maybe["a"] = None
        self.assertIsNone(maybe["a"])
        self.assertIn("a", maybe)
        self.assertIsNone(maybe.get("a", 5))

    def test_keys_are_converted_under_the_activity_lock(self):
        text = odd.Coll().text
        key = Watch()
        self.assertFalse(text.has_key(key))
        self.assertRaises(KeyError, text.__getitem__, key)
        text[key] = 1
        del text[key]
        self.assertEqual(key.owners, [kel_hand.thread()] * 4)
        self.assertEqual(_Kel.activityLockOwner(), 0)


class GetitemHook(TestCase):

    def tearDown(self):
        _Kel.getitemHookIs(None)
        self.seen = []
        super(GetitemHook, self).tearDown()

    def hook(self):
        self.seen = []

        def seeing(collection, key):
            self.seen.append((collection, key, _Kel.activityLockOwner()))
            return "another answer"
        _Kel.getitemHookIs(seeing)

    def test_the_hook_sees_each_subscript_before_any_lock_and_changes_no_answer(self):
        store = acme.Store("store")
        store.price["a"] = 1
        self.hook()
        self.assertEqual(store.price["a"], 1)
        self.assertRaises(KeyError, store.price.__getitem__, "b")
        self.assertEqual(self.seen, [(store.price, "a", 0), (store.price, "b", 0)])

    def test_the_hook_sees_nothing_but_subscripts(self):
        store = acme.Store("store")
        self.hook()
        store.price["a"] = 1
        store.price.get("a")
        store.price.getRawEntry("a")
        store.price.has_key("a")
        store.price.setdefault("a", 1)
        "a" in store.price
        store.price.items()
        del store.price["a"]
        self.assertEqual(self.seen, [])

    def test_a_hook_that_raises_stops_a_subscript_and_no_other_read(self):
        store = acme.Store("store")
        store.price["a"] = 1
        coll = odd.Coll()

        def veto(collection, key):
            raise ValueError("veto")
        _Kel.getitemHookIs(veto)
        self.assertRefused(ValueError, "veto", store.price.__getitem__, "a")
        self.assertEqual(store.price.get("a"), 1)
        self.assertRefused(ValueError, "veto", coll.line.__getitem__, 0)
        self.assertEqual(coll.log(), "")

    def test_a_directory_shows_the_hook_its_collection(self):
        shelf = acme.Shelf("shelf")
        shelf.slot.addMember(acme.Item(acme.Name("a"), 1))
        self.hook()
        shelf["a"]
        self.assertEqual(self.seen, [(shelf.slot, "a", 0)])
        self.assertIs(type(self.seen[0][0]), type(shelf.slot))

    def test_a_static_collection_comes_to_the_hook_from_its_class(self):
        registry = odd.Coll.registry
        registry["a"] = 1
        self.hook()
        self.assertEqual(registry["a"], 1)
        self.assertEqual(self.seen, [(odd.Coll.registry, "a", 0)])
        self.assertIsNone(self.seen[0][0].parent)
        registry.clear()

    def test_a_hook_may_take_itself_away(self):
        store = acme.Store("store")
        store.price["a"] = 1
        _Kel.getitemHookIs(lambda collection, key: _Kel.getitemHookIs(None))
        self.assertEqual(store.price["a"], 1)
        self.assertEqual(store.price["a"], 1)


if __name__ == "__main__":
    unittest.main()
