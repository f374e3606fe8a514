"""What a collection says of itself, and when two of them are equal."""

import operator
import threading
import unittest

import _Kel
import acme
import odd
from kel_testing import TestCase
from kel_testing.kinds import kinds, on_each

Collection = type(odd.Coll.registry)
ORDERS = (operator.lt, operator.le, operator.gt, operator.ge)

METHODS = [
    ("keys", "Return a list of keys."),
    ("values", "Return a list of values."),
    ("items", "Return a list of items."),
    ("iterkeys", "Return an iterator over keys."),
    ("itervalues", "Return an iterator over values."),
    ("iteritems", "Return an iterator over items."),
    ("version", "Return the collection version."),
    ("enq", "Enqueue an item (queue collections only)."),
    ("deq", "Dequeue an item (queue collections only)."),
    ("push", "Push an item (stack or vector collections only)."),
    ("pop", "Pop an item (stack or vector collections only)."),
    ("front", "Return front element (queue or vector collections only)."),
    ("back", "Return back element (queue or vector collections only)."),
    ("top", "Return top element (stack collections only)."),
    ("bottom", "Return bottom element (stack collections only)."),
    ("members", "Return a list of members."),
    ("has_key", "Check collection membership."),
    ("get", "Get an element."),
    ("setdefault", "Get an element, setting if not present."),
    ("clear", "Remove all elements from the collection."),
    ("newMember", "Add a member (instantiating collections only)."),
    ("addMember", "Add a member (non-instantiating collections only)."),
    ("add", "Add a member (set collections only)."),
    ("remove", "Remove a member (set collections only)."),
    ("getRawEntry", "Get an element, avoiding defaultAttribute conversion."),
    ("update", "Update a collection with another collection or kwargs."),
]


def address(obj):
    return "0x%016x" % _Kel.addressOf(obj)


class TheType(TestCase):

    def test_the_types_of_collections_are_documented_and_no_base_types(self):
        item = acme.Item(acme.Name("a"), 1)
        store = acme.Store("store")
        types = [
            (Collection, "_Kel.Collection", "kelc-Python collection attribute."),
            (type(store.newItem), "_Kel.NewMemberFunction",
             "Wrapper around the 'newMember' function of a kelc-Python collection attribute."),
            (type(item.addPart), "_Kel.AddMemberFunction",
             "Wrapper around the 'addMember' function of a kelc-Python collection attribute."),
            (type(iter(store.item)), "_Kel.Iterator",
             "Iterator over a kelc-Python collection attribute.")]
        for cls, name, doc in types:
            self.assertEqual((repr(cls), cls.__doc__), ("<type '%s'>" % name, doc))
            self.assertEqual(cls.__flags__ & ~(1 << 12 | 1 << 13), 0x201eb & ~(1 << 12 | 1 << 13))
            self.assertRefused(TypeError, "cannot create '%s' instances" % name, cls)
            self.assertRaises(TypeError, type, "Derived", (cls,), {})

    def test_it_has_just_its_methods(self):
        names = [name for name, member in vars(Collection).items()
                 if type(member) is type(vars(Collection)["keys"])]
        self.assertEqual(sorted(names), sorted(name for name, doc in METHODS))
        for name, doc in METHODS:
            self.assertEqual(getattr(Collection, name).__doc__, doc)

    def test_its_attributes_are_documented_where_they_need_it(self):
        self.assertEqual(vars(Collection)["kelAttr"].__doc__, "Kel::KelAttr object.")
        self.assertIsNone(vars(Collection)["parent"].__doc__)
        self.assertIsNone(vars(Collection)["fullName"].__doc__)

    def test_collections_are_unhashable(self):
        self.assertRefused(
            TypeError, "unhashable type: '_Kel.Collection'", hash, acme.Store("store").price)

    def test_each_read_makes_a_new_view_of_the_same_members(self):
        store = acme.Store("store")
        first, second = store.price, store.price
        self.assertIsNot(first, second)
        first["a"] = 1
        self.assertEqual(second["a"], 1)

    def test_it_keeps_its_parent(self):
        store = acme.Store("store")
        self.assertIs(store.price.parent, store)
        self.assertIsNone(odd.Coll.registry.parent)
        self.assertIsNone(odd.Coll().registry.parent)
        price = acme.Store("store").price
        price["a"] = 1
        self.assertEqual(price["a"], 1)


class Texts(TestCase):

    def test_the_repr_names_the_place_of_an_entitys_collection(self):
        shelf = acme.Shelf("shelf")
        self.assertEqual(repr(shelf.slot), "entityCollection('shelf.slot')")
        root = _Kel.singleton("Kel::Dir")
        store = root.newEntity("Acme::Store", "reprStore")
        self.assertEqual(repr(store.price), "entityCollection('/reprStore.price')")
        self.assertEqual(repr(root.entityPtr), "entityCollection('/.entityPtr')")
        self.assertEqual(repr(odd.Board.register), "entityCollection('None.register')")
        del root["reprStore"]

    def test_the_repr_shows_the_address_of_any_other_object(self):
        coll = odd.Coll()
        self.assertEqual(repr(coll.track), "genericCollection(%s,'track')" % address(coll))
        self.assertEqual(repr(odd.Coll.registry), "genericCollection(None,'registry')")

    def test_the_repr_of_a_values_collection_is_that_of_its_contents(self):
        tags = odd.Tags()
        tags.entry["a"] = 1
        tags.list.push(7)
        self.assertEqual((repr(tags.entry), repr(tags.list)), ("{'a': 1}", "[7]"))
        odd.Tags.common["b"] = 2
        self.assertEqual(repr(odd.Tags.common), "{'b': 2}")
        odd.Tags.common.clear()

    def test_the_str_names_owner_and_attribute(self):
        store, coll = acme.Store("store"), odd.Coll()
        self.assertEqual(str(store.price), "<Kel._Collection 'price' of entity('store')>")
        self.assertEqual(
            str(coll.track), "<Kel._Collection 'track' of generic(%s)>" % address(coll))
        self.assertEqual(str(odd.Coll.registry), "<Kel._Collection 'registry' of Odd::Coll>")
        self.assertEqual(str(coll.registry), "<Kel._Collection 'registry' of Odd::Coll>")
        self.assertEqual(str(odd.Tags().entry), "<Kel._Collection 'entry' of Odd::Tags>")
        self.assertEqual(str(odd.Board.register), "<Kel._Collection 'register' of Odd::Board>")

    def test_the_full_name_is_that_of_the_entity_and_the_attribute(self):
        root = _Kel.singleton("Kel::Dir")
        store = root.newEntity("Acme::Store", "nameStore")
        self.assertEqual(store.price.fullName, "/nameStore.price")
        self.assertEqual(root.entityPtr.fullName, "/.entityPtr")
        del root["nameStore"]

    def test_what_is_no_entity_has_no_full_name(self):
        def full_name(collection):
            return collection.fullName
        self.assertRefused(AttributeError, "static attribute Odd::Board.register has no fullName",
                           full_name, odd.Board.register)
        self.assertRefused(AttributeError, "static attribute Odd::Tags.common has no fullName",
                           full_name, odd.Tags.common)
        self.assertRefused(AttributeError, "'Odd::Coll' object has no attribute 'fullName'",
                           full_name, odd.Coll().track)
        self.assertRefused(AttributeError, "'Odd::Tags' object has no attribute 'fullName'",
                           full_name, odd.Tags().entry)

    def test_texts_of_a_parent_that_became_a_failed_mount_are_refused(self):
        store = acme.Store("store")
        price = store.price
        _Kel.convertEntityToFailedMount(store)
        for read in (repr, len, list, lambda c: c.fullName, lambda c: c["a"],
                     lambda c: c == price):
            self.assertRaises(TypeError, read, price)
        self.assertEqual(
            str(price), "<Kel._Collection 'price' of <_Kel.FailedMount 'store' of type "
            "'Acme::Store'>>")


class Equality(TestCase):

    def test_a_values_collections_compare_by_their_contents(self):
        a, b = odd.Tags(), odd.Tags()
        self.assertTrue(a.entry == b.entry)
        a.entry["x"] = 1
        self.assertFalse(a.entry == b.entry)
        self.assertTrue(a.entry != b.entry)
        b.entry["x"] = 1
        self.assertTrue(a.entry == b.entry)
        b.entry["x"] = 2
        for order in ORDERS + (operator.eq, operator.ne):
            self.assertEqual(order(a.entry, b.entry), order({"x": 1}, {"x": 2}))
            self.assertEqual(order(b.entry, a.entry), order({"x": 2}, {"x": 1}))

    def test_a_values_different_attributes_are_different(self):
        tags = odd.Tags()
        self.assertFalse(tags.entry == tags.list)
        self.assertTrue(tags.entry != tags.list)
        self.assertTrue(odd.Tags.common == tags.common)

    def test_an_objects_collections_are_equal_for_the_same_object_and_attribute_only(self):
        store, other = acme.Store("store"), acme.Store("store")
        self.assertTrue(store.price == store.price)
        self.assertFalse(store.price != store.price)
        self.assertTrue(store.price == _Kel.constPtr(store).price)
        self.assertFalse(store.price == other.price)
        self.assertTrue(store.price != other.price)
        self.assertFalse(store.price == store.tag)
        self.assertTrue(store.item != store.favorite)

    def test_a_static_collection_is_equal_to_itself(self):
        self.assertTrue(odd.Coll.registry == odd.Coll().registry)
        self.assertFalse(odd.Coll.registry == odd.Coll.shared)
        self.assertFalse(odd.Coll.registry == odd.Board.register)
        self.assertFalse(odd.Coll.registry == odd.Coll().track)

    def test_an_inherited_collection_is_one_and_the_same(self):
        shelf = acme.Shelf("shelf")
        self.assertTrue(shelf.entityPtr == shelf.entityPtr)
        self.assertFalse(shelf.entityPtr == shelf.slot)

    def test_an_object_is_looked_at_under_the_activity_lock(self):
        price = acme.Store("store").price
        results, done = [], threading.Event()

        def compare():
            results.append(price == price)
            done.set()
        thread = threading.Thread(target=compare)
        _Kel.acquireActivityLock()
        try:
            thread.start()
            done.wait(0.2)
            self.assertEqual(results, [], "the comparison took no lock")
        finally:
            _Kel.releaseActivityLock()
            thread.join()
        self.assertEqual(results, [True])

    def test_an_objects_collections_have_no_order(self):
        store = acme.Store("store")
        for order in ORDERS:
            self.assertRefused(TypeError, "Acme::Store does not support relational operators",
                               order, store.price, store.tag)
            self.assertRefused(TypeError, "Odd::Coll does not support relational operators",
                               order, odd.Coll.registry, odd.Coll.registry)

    def test_nothing_else_is_equal_to_a_collection(self):
        def body(kind, collection):
            for other in ({}, [], None, 5, dict.fromkeys(range(2))):
                self.assertFalse(collection == other)
                self.assertTrue(collection != other)
        on_each(kinds(), body)
        self.assertFalse(odd.Tags().entry == {})


class MemberFunctions(TestCase):

    def test_they_add_and_make_members(self):
        store = acme.Store("store")
        made = store.newItem("a", 2)
        self.assertEqual((store.item["a"], made.count), (made, 2))
        goods = acme.StockItem("b", 1)
        self.assertIsNone(store.addFavorite(goods))
        self.assertEqual(store.favorite["b"], goods)

    def test_they_work_for_static_collections(self):
        made = odd.Coll.newFleet("a", 2)
        self.assertEqual(odd.Coll.fleet["a"], made)
        odd.Coll.fleet.clear()
        node = odd.Node(5)
        odd.Coll().addShared(node)
        self.assertEqual(odd.Coll.shared[5], node)
        odd.Coll.shared.clear()

    def test_keywords_are_refused_first(self):
        store = acme.Store("store")
        for function in (store.newItem, store.addFavorite):
            self.assertRefused(
                TypeError, "keyword arguments are not supported", function, x=1)
            self.assertRefused(
                TypeError, "keyword arguments are not supported", function, 1, 2, 3, x=1)
        store.newItem("a", 1, **{})
        self.assertEqual(len(store.item), 1)

    def test_a_wrong_number_of_arguments_names_the_function_as_it_is_spelled(self):
        store = acme.Store("store")
        self.assertRefused(TypeError, "addFavorite() takes exactly 1 argument (0 given)",
                           store.addFavorite)
        self.assertRefused(TypeError, "addFavorite() takes exactly 1 argument (2 given)",
                           store.addFavorite, 1, 2)
        self.assertRefused(
            TypeError, "Acme::Store.item: Kel::TypeException(\"expected 2 parameters "
            "('sku', 'count'), got 1\")", store.newItem, "a")

    def test_failures_name_their_stage(self):
        store = acme.Store("store")
        self.assertRefused(
            TypeError,
            'Acme::Store.favorite: Kel::TypeException("expected Acme::StockItem, got int: 1")',
            store.addFavorite, 1)
        self.assertRefused(
            IndexError, 'Acme::Store.favorite: mutator: Kel::RangeException("a null pointer is '
            'no member of a collection")', store.addFavorite, None)
        store.newItem("a", 1)
        self.assertRefused(
            NameError, 'Acme::Store.item: mutator: Kel::NameInUseException("the key of the new '
            'member is in use")', store.newItem, "a", 1)

    def test_the_repr_holds_that_of_the_parent_and_the_name(self):
        store, coll = acme.Store("store"), odd.Coll()
        self.assertEqual(repr(store.newItem), "method(entity('store'),'newItem')")
        self.assertEqual(repr(store.addFavorite), "method(entity('store'),'addFavorite')")
        self.assertEqual(repr(coll.addNode), "method(%r,'addNode')" % coll)
        self.assertEqual(repr(odd.Coll.newFleet), "method(None,'newFleet')")
        self.assertEqual(repr(odd.Coll.addShared), "method(None,'addShared')")

    def test_the_str_shows_the_address_of_the_view(self):
        store = acme.Store("store")
        self.assertRegexpMatches(
            str(store.newItem),
            r"^<_Kel\.NewMemberFunction 'newItem' of type 'Acme::Store' at 0x[0-9a-f]+>$")
        self.assertRegexpMatches(
            str(store.addFavorite),
            r"^<_Kel\.AddMemberFunction 'addFavorite' of type 'Acme::Store' at 0x[0-9a-f]+>$")
        self.assertEqual(str(store.newItem).split()[-1], str(store.addFavorite).split()[-1])
        self.assertNotEqual(
            str(store.newItem).split()[-1], str(_Kel.constPtr(store).newItem).split()[-1])
        self.assertEqual(str(odd.Coll.newFleet),
                         "<_Kel.NewMemberFunction 'newFleet' of type 'Odd::Coll'>")
        self.assertEqual(str(odd.Coll.addShared),
                         "<_Kel.AddMemberFunction 'addShared' of type 'Odd::Coll'>")


if __name__ == "__main__":
    unittest.main()
