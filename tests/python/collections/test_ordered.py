"""Queues, stacks and vectors."""

import unittest

import _Kel
import acme
import odd
from kel_testing import TestCase
from kel_testing.kinds import QUEUE, STACK, VECTOR, kinds

EMPTY = "Cannot access the %s element of an empty collection"


class Ordered(TestCase):

    def ordered(self, *orders):
        return [kind for kind in kinds() if kind.order in orders]

    def test_a_queue_gives_in_order_of_arrival(self):
        for kind in self.ordered(QUEUE):
            queue = kind.empty()
            for i in range(3):
                self.assertIsNone(queue.enq(kind.member(i)))
            self.assertEqual((queue.front(), queue.back()), (kind.member(0), kind.member(2)))
            self.assertEqual([queue.deq() for _ in range(3)], map(kind.member, range(3)))

    def test_a_stack_gives_the_last_first(self):
        for kind in self.ordered(STACK):
            stack = kind.empty()
            for i in range(3):
                self.assertIsNone(stack.push(kind.member(i)))
            self.assertEqual((stack.top(), stack.bottom()), (kind.member(2), kind.member(0)))
            self.assertEqual([stack.pop() for _ in range(3)], map(kind.member, (2, 1, 0)))

    def test_a_vector_grows_and_shrinks_at_its_back(self):
        for kind in self.ordered(VECTOR):
            vector = kind.empty()
            for i in range(3):
                self.assertIsNone(vector.push(kind.member(i)))
            self.assertEqual((vector.front(), vector.back()), (kind.member(0), kind.member(2)))
            self.assertEqual(list(vector), [0, 1, 2])
            self.assertEqual([vector.pop() for _ in range(3)], map(kind.member, (2, 1, 0)))

    def test_either_end_of_an_empty_collection_is_an_IndexError(self):
        for orders, methods in [((QUEUE, VECTOR), ("front", "back")),
                                ((STACK,), ("top", "bottom"))]:
            for kind in self.ordered(*orders):
                for method in methods:
                    self.assertRefused(
                        IndexError, EMPTY % method, getattr(kind.empty(), method))

    def test_either_end_of_a_failed_mount_is_refused(self):
        store = acme.Store("store")
        order, undo = store.order, store.undo
        order.enq("a")
        _Kel.convertEntityToFailedMount(store)
        for read in (order.front, order.back, undo.top, undo.bottom):
            self.assertRaises(TypeError, read)

    def test_taking_from_an_empty_collection_is_the_runtimes_affair(self):
        text = '%s: Kel::RangeException("the collection is empty")'
        store, coll = acme.Store("store"), odd.Coll()
        self.assertRefused(IndexError, text % "Acme::Store.order", store.order.deq)
        self.assertRefused(IndexError, text % "Acme::Store.undo", store.undo.pop)
        self.assertRefused(IndexError, text % "Acme::Store.track", store.track.pop)
        coll.log()
        self.assertRaises(IndexError, coll.track.pop)
        self.assertEqual(coll.log(), "remove")

    def test_the_runtime_sees_one_operation_for_each_and_a_count_before_a_look(self):
        coll = odd.Coll()
        for call, words in [(lambda: coll.line.enq(1), "add"), (coll.line.front, "members front"),
                            (coll.line.back, "members back"), (coll.line.deq, "remove"),
                            (lambda: coll.pile.push(1), "add"), (coll.pile.top, "members front"),
                            (coll.pile.bottom, "members back"), (coll.pile.pop, "remove"),
                            (lambda: coll.track.push(1), "add"), (coll.track.pop, "remove")]:
            coll.log()
            call()
            self.assertEqual(coll.log(), words)

    def test_a_member_that_does_not_fit_is_told_without_a_stage(self):
        store = acme.Store("store")
        for name, method in [("order", store.order.enq), ("track", store.track.push)]:
            self.assertRaisesRegexp(
                TypeError, r'^Acme::Store.%s: Kel::TypeException\("expected ' % name, method, [])
        self.assertEqual((len(store.order), len(store.track)), (0, 0))

    def test_a_refusal_of_the_runtime_is_told_with_its_stage(self):
        store = acme.Store("store")
        store.order.enq("a")
        const = _Kel.constPtr(store)
        text = 'Acme::Store.order: %sKel::ConstException("cannot change Acme::Store.order of a ' \
               'const object")'
        self.assertRefused(AttributeError, text % "mutator: ", const.order.enq, "b")
        self.assertRefused(AttributeError, text % "", const.order.deq)
        self.assertEqual((const.order.front(), len(const.order)), ("a", 1))

    def test_values_come_out_as_their_default_attribute(self):
        undo = acme.Store("store").undo
        undo.push(acme.Size(3))
        undo.push(4)
        self.assertEqual((undo.top(), undo.bottom(), undo.values()), (4, 3, [4, 3]))
        self.assertIs(type(undo.pop()), int)


if __name__ == "__main__":
    unittest.main()
