"""What every collection does alike, whatever its kind, and every directory with it."""

import unittest

from kel_testing import TestCase
from kel_testing.kinds import VECTOR, directories, kinds, on_each


class EveryKind(TestCase):

    def check(self, body):
        on_each(kinds() + directories(), body)

    def test_the_length_is_the_number_of_keys(self):
        def body(kind, collection):
            self.assertEqual(len(collection), len(collection.keys()))
            self.assertEqual(len(collection), 2 if kind.can_grow else 4)
        self.check(body)

    def test_all_ways_to_list_keys_and_members_agree(self):
        def body(kind, collection):
            keys, values = collection.keys(), collection.values()
            self.assertEqual(list(collection), keys)
            self.assertEqual(list(collection.iterkeys()), keys)
            self.assertEqual(collection.members(), keys)
            self.assertEqual(list(collection.itervalues()), values)
            self.assertEqual(collection.items(), zip(keys, values))
            self.assertEqual(list(collection.iteritems()), zip(keys, values))
            for result in (keys, values, collection.items(), collection.members()):
                self.assertIs(type(result), list)
            for pair in collection.items():
                self.assertIs(type(pair), tuple)
        self.check(body)

    def test_each_key_finds_its_member(self):
        def body(kind, collection):
            for key, member in collection.items():
                self.assertEqual(collection[key], member)
                self.assertEqual(collection.get(key), member)
                self.assertEqual(collection.get(key, "other"), member)
                self.assertIs(collection.has_key(key), True)
                collection.getRawEntry(key)
        self.check(body)

    def test_in_looks_for_a_value_in_a_vector_and_for_a_key_elsewhere(self):
        def body(kind, collection):
            for key, member in collection.items():
                self.assertIn(member if kind.order is VECTOR else key, collection)
            if kind.order is VECTOR:
                self.assertNotIn(0, collection)
        self.check(body)

    def test_the_version_is_a_long_and_moves_on_with_a_change(self):
        def body(kind, collection):
            before = collection.version()
            self.assertIs(type(before), long)
            self.assertEqual(collection.version(), before)
            del collection[collection.keys()[0]]
            self.assertNotEqual(collection.version(), before)
        self.check(body)

    def test_a_member_can_be_deleted(self):
        def body(kind, collection):
            key = collection.keys()[0]
            members = len(collection)
            del collection[key]
            if kind.can_grow:
                self.assertEqual(len(collection), members - 1)
            else:
                self.assertEqual((len(collection), collection[key]), (members, 0))
        self.check(body)

    def test_clear_leaves_no_member(self):
        def body(kind, collection):
            self.assertIsNone(collection.clear())
            if kind.can_grow:
                self.assertEqual((len(collection), collection.items()), (0, []))
            else:
                self.assertEqual(collection.values(), [0, 0, 0, 0])
        self.check(body)

    def test_the_end_of_an_iterator_is_for_good(self):
        def body(kind, collection):
            for iterator in (iter(collection), collection.itervalues(), collection.iteritems()):
                self.assertIs(iter(iterator), iterator)
                list(iterator)
                self.assertRaises(StopIteration, next, iterator)
                self.assertRaises(StopIteration, next, iterator)
        self.check(body)

    def test_the_attribute_is_told(self):
        def body(kind, collection):
            self.assertEqual(repr(type(collection.kelAttr)), "<type '_Kel.KelAttr'>")
            self.assertEqual(collection.kelAttr.name, kind.name)
        self.check(body)


if __name__ == "__main__":
    unittest.main()
