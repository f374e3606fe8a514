"""Every operation on every kind of collection: the text of each refusal, the effect of the rest."""

import unittest

import acme
import kel_collections
import odd
from kel_testing import TestCase, in_child
from kel_testing.kinds import (
    EXTERNAL, INSTANTIATING, INTERNAL, QUEUE, SET, STACK, VECTOR, kinds, on_each)
from kel_testing.pending import pending_of

SETITEM_NEW = "'__setitem__' not allowed for instantiating collection; use newMember instead"
SETITEM_ADD = "'__setitem__' not allowed for collection with internal key; use addMember instead"

# What the column of a collection refuses.
BY_COLUMN = {
    "setitem": {INSTANTIATING: SETITEM_NEW, INTERNAL: SETITEM_ADD},
    "setdefault": {
        INSTANTIATING: "setdefault not allowed for instantiating collection",
        INTERNAL: "setdefault not allowed for collection with internal key"},
    "newMember": dict.fromkeys(
        (INTERNAL, EXTERNAL),
        "newMember not allowed for non-instantiating collection; use addMember or __setitem__ "
        "instead"),
    "addMember": {
        INSTANTIATING:
            "addMember not allowed for instantiating collection; use newMember instead",
        EXTERNAL:
            "addMember not allowed for collection with external key; use __setitem__ instead"},
    "delitem": {},
    "clear": {},
}

# What needs an order, and the refusal of all others.
BY_ORDER = {
    "add": ((SET,), "add only allowed only for set collections"),
    "remove": ((SET,), "remove only allowed only for set collections"),
    "enq": ((QUEUE,), "'enq' only allowed on a queue collection"),
    "deq": ((QUEUE,), "'deq' only allowed on a queue collection"),
    "push": ((STACK, VECTOR), "'push' only allowed on a stack or a vector collection"),
    "pop": ((STACK, VECTOR), "'pop' only allowed on a stack or a vector collection"),
    "front": ((QUEUE, VECTOR), "'front' only allowed on a queue or a vector collection"),
    "back": ((QUEUE, VECTOR), "'back' only allowed on a queue or a vector collection"),
    "top": ((STACK,), "'top' only allowed on a stack collection"),
    "bottom": ((STACK,), "'bottom' only allowed on a stack collection"),
}


def refusal_of(operation, kind):
    """The text of the TypeError, None if the kind allows the operation."""
    if operation in BY_COLUMN:
        return BY_COLUMN[operation].get(kind.column)
    orders, text = BY_ORDER[operation]
    return None if kind.order in orders else text


class EveryCell(TestCase):
    """One test an operation, over all kinds. `allowed(kind, collection)` checks the effect."""

    def check(self, operation, call, allowed, skipped=()):
        seen = set()

        def body(kind, collection):
            text = refusal_of(operation, kind)
            if kind.attribute in skipped:
                return
            seen.add(text)
            if text is None:
                allowed(kind, collection)
            else:
                before = collection.items()
                self.assertRefused(TypeError, text, call, kind, collection)
                self.assertEqual(collection.items(), before)
        on_each(kinds(), body)
        expected = BY_COLUMN[operation].values() if operation in BY_COLUMN else [
            BY_ORDER[operation][1]]
        self.assertEqual(seen, set(expected + [None]), "a text of the table was not seen")

    def test_item_assignment(self):
        def call(kind, collection):
            collection[kind.key(0)] = kind.member(1)

        def allowed(kind, collection):
            for i in range(2):
                collection[kind.key(i)] = kind.member(i)
                self.assertEqual(collection[kind.key(i)], kind.member(i))
        self.check("setitem", call, allowed)

    def test_setdefault(self):
        def call(kind, collection):
            collection.setdefault(kind.key(0), kind.member(1))

        def allowed(kind, collection):
            key, member = collection.items()[0]
            self.assertEqual(collection.setdefault(key, kind.member(2)), member)
            self.assertEqual(collection[key], member)
        self.check("setdefault", call, allowed)

    def test_newMember(self):
        def call(kind, collection):
            collection.newMember(kind.key(2), 2)

        def allowed(kind, collection):
            member = collection.newMember(kind.key(2), 2)
            self.assertEqual(collection[kind.key(2)], member)
            self.assertEqual(len(collection), 3)
        self.check("newMember", call, allowed)

    def test_addMember(self):
        def call(kind, collection):
            collection.addMember(kind.member(2))

        def allowed(kind, collection):
            member = kind.member(2)
            self.assertIsNone(collection.addMember(member))
            self.assertEqual(collection[kind.key(2)], member)
            self.assertEqual(len(collection), 3)
        self.check("addMember", call, allowed)

    def test_item_deletion(self):
        def allowed(kind, collection):
            del collection[collection.keys()[0]]
            if kind.can_grow:
                self.assertEqual(len(collection), 1)
        self.check("delitem", None, allowed)

    def test_clear(self):
        def allowed(kind, collection):
            self.assertIsNone(collection.clear())
            self.assertEqual(len(collection), 0 if kind.can_grow else 4)
        self.check("clear", None, allowed)

    def test_update_as_item_assignment_of_each_pair(self):
        def body(kind, collection):
            pairs = {kind.key(0): kind.member(1)}
            text = refusal_of("setitem", kind)
            if text is None:
                self.assertIsNone(collection.update(pairs))
                self.assertEqual(collection[kind.key(0)], kind.member(1))
            else:
                before = collection.items()
                self.assertEqual(pending_of(collection.update, pairs), (TypeError, text))
                self.assertEqual(collection.items(), before)
        on_each(kinds(), body)

    def test_add(self):
        def allowed(kind, collection):
            self.assertIsNone(collection.add(kind.key(2)))
            self.assertIs(collection[kind.key(2)], True)
        # One with an internal key is no place for `add`: see below.
        self.check("add", lambda kind, collection: collection.add(kind.key(2)), allowed,
                   skipped=["coll.part"])

    def test_remove(self):
        def allowed(kind, collection):
            self.assertIsNone(collection.remove(kind.key(0)))
            self.assertEqual(collection.keys(), [kind.key(1)])
            self.assertIsNone(collection.remove("absent"))
        self.check("remove", lambda kind, collection: collection.remove(kind.key(0)), allowed)

    def test_enq(self):
        def allowed(kind, collection):
            self.assertIsNone(collection.enq(kind.member(2)))
            self.assertEqual(collection.values(), map(kind.member, range(3)))
        self.check("enq", lambda kind, collection: collection.enq(kind.member(2)), allowed)

    def test_push(self):
        def allowed(kind, collection):
            self.assertIsNone(collection.push(kind.member(2)))
            backwards = -1 if kind.order is STACK else 1
            self.assertEqual(collection.values(), map(kind.member, range(3))[::backwards])
        self.check("push", lambda kind, collection: collection.push(kind.member(2)), allowed)

    def check_taking(self, method, taken):
        def allowed(kind, collection):
            self.assertEqual(getattr(collection, method)(), kind.member(taken))
            self.assertEqual(collection.values(), [kind.member(1 - taken)])
        self.check(method, lambda kind, collection: getattr(collection, method)(), allowed)

    def test_deq(self):
        self.check_taking("deq", 0)

    def test_pop(self):
        self.check_taking("pop", 1)

    def check_reading(self, method, read):
        def allowed(kind, collection):
            self.assertEqual(getattr(collection, method)(), kind.member(read))
            self.assertEqual(len(collection), 2)
        self.check(method, lambda kind, collection: getattr(collection, method)(), allowed)

    def test_front(self):
        self.check_reading("front", 0)

    def test_back(self):
        self.check_reading("back", 1)

    def test_top(self):
        self.check_reading("top", 1)

    def test_bottom(self):
        self.check_reading("bottom", 0)


class OrderOfTheChecks(TestCase):

    def test_set_operations_parse_their_argument_before_the_kind(self):
        store = acme.Store("store")
        for method in (store.price.add, store.price.remove, store.tag.add):
            self.assertRefused(
                TypeError, "%s() takes exactly 1 argument (0 given)" % method.__name__, method)

    def test_addMember_parses_its_argument_before_the_kind(self):
        for collection in (acme.Store("store").item, acme.Store("store").price):
            self.assertRefused(TypeError, "addMember() takes exactly 1 argument (0 given)",
                               collection.addMember)

    def test_enq_and_push_look_at_the_kind_before_their_argument(self):
        tag = acme.Store("store").tag
        self.assertRefused(TypeError, BY_ORDER["push"][1], tag.push)
        self.assertRefused(TypeError, BY_ORDER["enq"][1], tag.enq, 1, 2, 3)
        store = acme.Store("store")
        self.assertRefused(
            TypeError, "enq() takes exactly 1 argument (0 given)", store.order.enq)
        self.assertRefused(
            TypeError, "push() takes exactly 1 argument (2 given)", store.track.push, 1, 2)

    def test_setdefault_looks_at_the_kind_before_its_arguments(self):
        store = acme.Store("store")
        self.assertRefused(
            TypeError, BY_COLUMN["setdefault"][INSTANTIATING], store.item.setdefault)
        self.assertRefused(
            TypeError, BY_COLUMN["setdefault"][INTERNAL], store.favorite.setdefault)
        self.assertRefused(TypeError, "setdefault() takes at least 1 argument (0 given)",
                           store.price.setdefault)

    def test_the_kind_comes_before_the_emptiness(self):
        store = acme.Store("store")
        self.assertRefused(TypeError, BY_ORDER["front"][1], store.undo.front)
        self.assertRefused(TypeError, BY_ORDER["top"][1], store.track.top)

    def test_an_instantiating_collection_can_be_deleted_from(self):
        store = acme.Store("store")
        store.item.newMember("a", 1)
        del store.item["a"]
        self.assertEqual(len(store.item), 0)


class FaultsOfTheProgram(unittest.TestCase):
    """States in which no operation makes sense end the process."""

    def assertAborts(self, text, source):
        outcome = in_child("import odd\ncoll = odd.Coll()\n" + source).expect(-6)
        self.assertIn("assertion failed: " + text + " (", outcome.err)

    def test_enq_on_an_instantiating_queue_ends_the_process(self):
        self.assertAborts("!self->attr.instantiating()", "coll.intake.enq(1)")

    def test_the_assertion_of_enq_comes_before_its_arguments(self):
        self.assertAborts("!self->attr.instantiating()", "coll.intake.enq()")

    def test_newMember_of_an_instantiating_queue_ends_the_process(self):
        self.assertAborts("hasInternalIndex", "coll.intake.newMember('a', 1)")

    def test_add_on_a_set_with_an_internal_key_ends_the_process(self):
        self.assertAborts("!resolvedIndex", "coll.part.add('a')")

    def test_adding_to_an_instantiating_collection_ends_the_process_on_any_road(self):
        self.assertAborts(
            "!attr.instantiating()",
            "import kel_collections; kel_collections.add(coll, coll.intake.kelAttr, 1)")
        coll = odd.Coll()
        kel_collections.add(coll, coll.line.kelAttr, 1)
        self.assertEqual(coll.line.values(), [1])

    def test_these_refusals_alone_end_no_process(self):
        coll = odd.Coll()
        coll.intake.clear()
        self.assertRaises(TypeError, coll.intake.push, 1)
        self.assertRaises(IndexError, coll.intake.front)


if __name__ == "__main__":
    unittest.main()
