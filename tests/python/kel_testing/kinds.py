"""A collection of every kind, with keys and members that fit, for suites over all kinds."""

import sys

import _Kel
import acme
import odd

INSTANTIATING, INTERNAL, EXTERNAL = "instantiating", "internal key", "external key"
SET, QUEUE, STACK, VECTOR = "set", "queue", "stack", "vector"


class Kind(object):
    """One collection attribute.

    `key(i)` and `member(i)` give fitting Python objects for i of 0 to 2; a new collection of
    `filled()` holds the first two. `can_grow` is false for places that always exist.
    """

    order = None
    can_grow = True

    def __init__(self, attribute, column, owner, key, member, **others):
        self.attribute = attribute
        self.column = column
        self.owner = owner
        self.key = key
        self.member = member
        self.__dict__.update(others)

    def __repr__(self):
        return self.attribute

    @property
    def name(self):
        return self.attribute.split(".")[1]

    def empty(self):
        """A new collection, without members unless they always exist."""
        owner = self.owner()
        collection = getattr(owner, self.name)
        if isinstance(owner, type):
            collection.clear()
        return collection

    def filled(self):
        collection = self.empty()
        for i in range(2):
            self.put(collection, i)
        return collection

    def done(self, collection):
        """Empties a collection that outlives the test."""
        if isinstance(self.owner(), type):
            collection.clear()

    def put(self, collection, i):
        if self.column is INSTANTIATING:
            collection.newMember(*self.member(i))
        elif self.column is INTERNAL:
            collection.addMember(self.member(i))
        elif self.order is QUEUE:
            collection.enq(self.member(i))
        elif self.order in (STACK, VECTOR):
            collection.push(self.member(i))
        else:
            collection[self.key(i)] = self.member(i)


class DirectoryKind(Kind):
    """A directory itself, which acts as its default collection."""

    def __repr__(self):
        return "the directory of " + self.attribute

    def empty(self):
        return self.owner()


def text_key(i):
    return "k%d" % i


def number(i):
    return i


def ten(i):
    return 10 + i


def stock(i):
    return acme.StockItem(text_key(i), i)


def item(i):
    return acme.Item(acme.Name(text_key(i)), i)


def nodes():
    """A function that gives the same node each time."""
    made = {}

    def node(i):
        return made.setdefault(i, odd.Node(i))
    return node


def shelf():
    return acme.Shelf("shelf")


def directory():
    return _Kel.pyType(_Kel.typeNode("Kel::Dir"))("directory")


def kinds():
    """New ones, as those keyed by nodes hold the nodes."""
    store = lambda: acme.Store("store")
    coll = odd.Coll
    stock_args = lambda i: (text_key(i), i)
    return [
        Kind("store.item", INSTANTIATING, store, text_key, stock_args),
        Kind("store.favorite", INTERNAL, store, text_key, stock),
        Kind("store.price", EXTERNAL, store, text_key, ten),
        Kind("store.alias", EXTERNAL, store, text_key, lambda i: "of" + text_key(i)),
        Kind("store.tag", EXTERNAL, store, text_key, lambda i: True, order=SET),
        Kind("store.order", EXTERNAL, store, number, text_key, order=QUEUE),
        Kind("store.undo", EXTERNAL, store, number, ten, order=STACK),
        Kind("store.track", EXTERNAL, store, number, ten, order=VECTOR),
        Kind("coll.slot", EXTERNAL, coll, number, ten, can_grow=False),
        Kind("coll.packed", EXTERNAL, coll, number, ten),
        Kind("coll.pod", EXTERNAL, coll, number, ten, can_grow=False),
        Kind("coll.blind", EXTERNAL, coll, text_key, ten),
        Kind("coll.node", INTERNAL, coll, number, odd.Node),
        Kind("coll.part", INTERNAL, coll, text_key, item, order=SET),
        Kind("coll.byNode", EXTERNAL, coll, nodes(), ten),
        Kind("coll.size", EXTERNAL, coll, number, ten),
        Kind("coll.maybe", EXTERNAL, coll, text_key, lambda i: i or None),
        Kind("coll.text", EXTERNAL, coll, lambda i: (i, text_key(i)), ten),
        Kind("coll.track", EXTERNAL, coll, number, ten, order=VECTOR),
        Kind("coll.line", EXTERNAL, coll, number, ten, order=QUEUE),
        Kind("coll.pile", EXTERNAL, coll, number, ten, order=STACK),
        Kind("coll.registry", EXTERNAL, lambda: odd.Coll, text_key, ten),
        Kind("coll.shared", INTERNAL, lambda: odd.Coll, number, odd.Node),
        Kind("coll.fleet", INSTANTIATING, lambda: odd.Coll, text_key, stock_args),
        Kind("tags.entry", EXTERNAL, odd.Tags, text_key, ten),
        Kind("tags.list", EXTERNAL, odd.Tags, number, ten, order=VECTOR),
        Kind("tags.common", EXTERNAL, lambda: odd.Tags, text_key, ten),
        Kind("board.mark", EXTERNAL, lambda: odd.Board("board"), text_key, ten),
        Kind("board.register", EXTERNAL, lambda: odd.Board, text_key, ten),
        Kind("shelf.slot", INTERNAL, shelf, text_key, item),
        Kind("directory.entityPtr", INTERNAL, directory, text_key, item),
    ]


def directories():
    """Directories, which act as their default collection."""
    return [DirectoryKind("shelf.slot", INTERNAL, shelf, text_key, item),
            DirectoryKind("directory.entityPtr", INTERNAL, directory, text_key, item)]


def on_each(kinds, body):
    """Calls body(kind, collection) with a filled collection of each kind, and names the kind in
    what fails."""
    for kind in kinds:
        collection = kind.filled()
        try:
            body(kind, collection)
        except Exception as error:
            raise AssertionError, "%s: %s: %s" % (
                kind, type(error).__name__, error), sys.exc_info()[2]
        finally:
            kind.done(collection)
