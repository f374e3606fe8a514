"""Operations repeated 100,000 times leave neither references nor runtime objects behind."""

import gc
import os
import sys
import unittest

import _Kel
import acme
import kel_hand
import odd
from kel_testing import TestCase

# A sanitizer makes each operation many times as slow and looks at other faults.
REPETITIONS = 2000 if "LD_PRELOAD" in os.environ else 100000


def quietly(*errors):
    """A call that raises one of the errors each time."""
    def call(function, *args, **keywords):
        try:
            function(*args, **keywords)
        except errors:
            return
        raise AssertionError("nothing was raised")
    return call


refused = quietly(Exception)


def pending(function, *args):
    try:
        function(*args)
        iter([]).next()
    except TypeError:
        pass


class Flat(TestCase):

    def assertFlat(self, operation, *watched):
        watched += (None, True, "a", 1, type(None), KeyError, TypeError)
        for _ in xrange(3):
            operation()
        gc.collect()
        before = [sys.getrefcount(object) for object in watched], kel_hand.live()
        tracked = len(gc.get_objects())
        for _ in xrange(REPETITIONS):
            operation()
        gc.collect()
        after = [sys.getrefcount(object) for object in watched], kel_hand.live()
        # Counts of None and the like move by a few with what the interpreter does meanwhile.
        for name, old, new in zip(watched, before[0], after[0]):
            self.assertLess(abs(new - old), 100, "%r: %d to %d" % (name, old, new))
        self.assertEqual(after[1], before[1])
        self.assertLess(abs(len(gc.get_objects()) - tracked), 100)

    def setUp(self):
        self.store = acme.Store("store")
        self.coll = odd.Coll()

    def tearDown(self):
        del self.store, self.coll
        super(Flat, self).tearDown()

    def test_reads_of_a_member(self):
        price = self.store.price
        price["a"] = 1

        def operation():
            price["a"]
            price.get("a")
            price.getRawEntry("a")
            price.has_key("a")
            "a" in price
            len(price)
            price.version()
        self.assertFlat(operation, price, self.store, type(price))

    def test_reads_of_a_missing_key(self):
        text, key = self.coll.text, (1, "two")

        def operation():
            refused(text.__getitem__, key)
            text.get(key, self)
        self.assertFlat(operation, text, key, self)

    def test_refused_keys_and_members(self):
        price, bad = self.store.price, [1]

        def operation():
            refused(price.__getitem__, bad)
            refused(price.__setitem__, "a", bad)
            refused(self.store.order.enq, bad)
            refused(self.store.addFavorite, bad)
        self.assertFlat(operation, price, bad, self.store)

    def test_writes_and_deletes(self):
        coll, node = self.coll, odd.Node(1)
        text, by_node = coll.text, coll.byNode

        def operation():
            text["a"] = 1
            by_node[node] = 1
            coll.addNode(node)
            del coll.node[1]
            del text["a"]
            del by_node[node]
        self.assertFlat(operation, coll, text, by_node, node)
        coll.log()

    def test_setdefault_and_clear(self):
        size, default = odd.Coll().size, acme.Size(3)

        def operation():
            size.setdefault(1, default)
            size.setdefault(1, default)
            size.clear()
        self.assertFlat(operation, size, default)

    def test_updates(self):
        price, pairs, source = self.store.price, [("a", 1), ("b", 2)], {"a": 1}

        def operation():
            price.update(pairs, c=3)
            price.update(source)
            refused(price.update, [(1, 2, 3)])
        self.assertFlat(operation, price, pairs, pairs[0], source)

    def test_updates_with_a_pending_error(self):
        price, bad = self.store.price, (1, "no key")
        self.assertFlat(lambda: pending(price.update, [bad, ("a", 1)]), price, bad)

    def test_members_that_are_made(self):
        store = self.store

        def operation():
            store.newItem("a", 1)
            store.item.clear()
        self.assertFlat(operation, store, acme.StockItem)

    def test_ordered_operations(self):
        store = self.store

        def operation():
            store.order.enq("a")
            store.order.front()
            store.order.deq()
            store.undo.push(1)
            store.undo.top()
            store.undo.pop()
            refused(store.undo.pop)
            refused(store.undo.top)
        self.assertFlat(operation, store)

    def test_iteration(self):
        store = self.store
        store.price.update(a=1, b=2)

        def operation():
            for _ in store.price:
                pass
            store.price.items()
            store.price.iteritems().next()
        self.assertFlat(operation, store)

    def test_texts_and_comparison(self):
        store, tags = self.store, odd.Tags()
        tags.entry["a"] = 1
        entry = tags.entry

        def operation():
            repr(store.price)
            repr(entry)
            str(store.price)
            repr(store.newItem)
            str(store.addFavorite)
            store.price == store.price
            entry == entry
            store.price.fullName
        self.assertFlat(operation, store, entry, tags)

    def test_directories(self):
        root = _Kel.singleton("Kel::Dir")
        directory = root.mkdir("flat")

        def operation():
            directory.newEntity("Acme::Item", "a")
            directory.mkdir("b/c")
            refused(directory.mkdir, "b//c")
            directory["a"]
            directory.keys()
            directory.clear()
            _Kel.singleton("Kel::Dir")
        self.assertFlat(operation, root, directory)
        del root["flat"]

    def test_docs(self):
        descriptor = vars(acme.Item)["lookup"]

        def operation():
            acme.Item.__doc__
            descriptor.__doc__
        self.assertFlat(operation, acme.Item, descriptor)


if __name__ == "__main__":
    unittest.main()
