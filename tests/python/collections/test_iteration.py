"""Iterators over collections, and changes under them."""

import threading
import unittest

import _Kel
import acme
import kel_hand
import odd
from kel_testing import TestCase
from kel_testing.kinds import directories, kinds, on_each


class Iteration(TestCase):

    def test_an_empty_collection_ends_at_once_and_again(self):
        for kind in kinds() + directories():
            if kind.can_grow:
                collection = kind.empty()
                for iterator in (iter(collection), collection.itervalues(), collection.iteritems()):
                    for _ in range(3):
                        self.assertRaises(StopIteration, next, iterator)
                self.assertEqual(collection.items(), [])

    def test_a_vector_is_walked_by_position(self):
        track = acme.Store("store").track
        for number in (7, 8, 9):
            track.push(number)
        self.assertEqual((list(track), track.values()), ([0, 1, 2], [7, 8, 9]))
        self.assertEqual(track.items(), [(0, 7), (1, 8), (2, 9)])

    def test_the_items_make_a_dict(self):
        def body(kind, collection):
            expected = dict((key, collection[key]) for key in collection)
            self.assertEqual(dict(collection.items()), expected)
        on_each(kinds() + directories(), body)
        # A value's collection shows the same dict as its repr.
        entry = odd.Tags().entry
        entry.update({"a": 1}, b=2)
        self.assertEqual(repr(entry), repr(dict(entry.items())))

    def test_the_key_just_delivered_can_be_deleted(self):
        def body(kind, collection):
            if kind.order is None and kind.can_grow:
                kind.put(collection, 2)
                walked = []
                for key in collection:
                    walked.append(key)
                    del collection[key]
                self.assertEqual((len(walked), len(set(map(repr, walked)))), (3, 3))
                self.assertEqual(len(collection), 0)
        on_each(kinds() + directories(), body)

    def test_a_member_deleted_ahead_is_not_delivered(self):
        price = acme.Store("store").price
        price.update(dict.fromkeys("abcdefgh", 1))
        iterator = iter(price)
        walked = [next(iterator), next(iterator)]
        # The iterator stands on the third already; what is deleted stands behind it.
        ahead = [key for key in price.keys() if key not in walked][1:]
        for key in ahead:
            del price[key]
        walked += list(iterator)
        self.assertEqual(len(walked), 3)
        self.assertEqual(set(walked) & set(ahead), set())

    def test_the_place_where_the_iterator_stands_may_go(self):
        price = acme.Store("store").price
        price.update(dict.fromkeys("abcd", 1))
        iterator = iter(price)
        first = next(iterator)
        price.clear()
        self.assertRaises(StopIteration, next, iterator)
        price[first] = 1
        self.assertRaises(StopIteration, next, iterator)

    def test_adding_never_harms_a_walk(self):
        price = acme.Store("store").price
        price.update(dict.fromkeys("abcd", 1))
        walked = set()
        for number, key in enumerate(price):
            walked.add(key)
            price["new%d" % number] = 1
            if number > 500:
                break
        self.assertTrue(walked.issuperset("abcd"))

    def test_an_iterator_outlives_its_collection_and_the_wrapper_of_the_parent(self):
        store = acme.Store("store")
        store.price["a"] = 1
        store.item.newMember("b", 2)
        keys, items, goods = iter(store.price), store.price.iteritems(), store.item.itervalues()
        del store
        self.assertEqual((list(keys), list(items)), (["a"], [("a", 1)]))
        self.assertEqual([item.count for item in goods], [2])
        del keys, items, goods, item

    def test_only_the_steps_keep_the_lock(self):
        store = acme.Store("store")
        store.price.update(dict.fromkeys("abcd", 1))
        for _ in store.price:
            self.assertEqual(_Kel.activityLockOwner(), 0)

    def test_a_failure_to_begin_names_the_attribute(self):
        text = 'Odd::Coll.brittle: Kel::InternalException("iterate")'
        brittle = odd.Coll().brittle
        for walk in (iter, brittle.keys, brittle.values, brittle.items, brittle.iterkeys,
                     brittle.itervalues, brittle.iteritems, brittle.members):
            if walk is iter:
                self.assertRefused(SystemError, text, walk, brittle)
            else:
                self.assertRefused(SystemError, text, walk)

    def test_an_element_that_does_not_convert_is_passed_over(self):
        class Unreadable(object):
            def __repr__(self):
                return "1 +"
        text = odd.Coll().text
        text[Unreadable()] = 1
        text["good"] = 2
        for walk, expected in [(text.iterkeys, ["good"]), (text.iteritems, [("good", 2)])]:
            iterator, found, errors = walk(), [], 0
            for _ in range(3):
                try:
                    found.append(next(iterator))
                except StopIteration:
                    pass
                except SyntaxError:
                    errors += 1
            self.assertEqual((found, errors), (expected, 1))
        self.assertEqual(sorted(text.values()), [1, 2])

    def test_two_threads_share_an_iterator_and_each_element_comes_once(self):
        price = acme.Store("store").price
        expected = set("key%d" % i for i in range(2000))
        price.update(dict.fromkeys(expected, 1))
        iterator = iter(price)
        found = []
        threads = [threading.Thread(target=lambda: found.append(list(iterator)))
                   for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        together = sum(found, [])
        self.assertEqual((len(together), set(together)), (2000, expected))

    def test_the_runtime_is_asked_for_one_iterator_and_no_more(self):
        coll = odd.Coll()
        for i in range(3):
            coll.track.push(i)
        coll.log()
        coll.track.items()
        self.assertEqual(coll.log(), "iterate")

    def test_a_walk_holds_no_copy_of_the_members(self):
        store = acme.Store("store")
        for i in range(1000):
            store.track.push(i)
        iterator = iter(store.track)
        before = kel_hand.live()
        for _ in range(500):
            next(iterator)
        self.assertEqual(kel_hand.live(), before)


if __name__ == "__main__":
    unittest.main()
