"""Tells of each function of the module which locks it takes: lock_words.py NAME... prints lines NAME WORD.

While another thread has the activity lock, a function that takes no lock returns; any other returns
behind the moment in which that thread gives the lock up. Which of the two guards it uses, "activity"
or "both", cannot be seen from outside. The NAMEs are of those that are said to take no lock: for these
it waits as long as a busy machine may need.
"""

import os
import sys
import threading
import time

import _Kel
import acme

HELD = 0.03  # seconds
PATIENCE = 30.0

item, point = acme.Item("locks", 1), acme.Point()
entity = _Kel.singleton("Kel::Dir").newEntity("Acme::Item", "locks")
handle, future = _Kel.handle(item), _Kel.entityFuture("/locks", None)

store = acme.Store("locks")
views = [store.price, item.add]


def members():
    """Reads all that the reference says takes no lock, of types, attributes, classes, views and futures."""
    attr = acme.Item.kelType.attr("size")
    for thing, names in [
            (acme.Item.kelType, dir(acme.Item.kelType)), (attr, set(dir(attr)) - set(["enumValue"])),
            (acme.Item, ("attributes", "kelType", "__doc__")), (item, ("attributes", "kelType")),
            (future, ("fullName", "kelType"))] + [(view, ("kelAttr", "parent")) for view in views]:
        for name in names:
            getattr(thing, name)
    item.attrProperty("size", "writable"), acme.Item.kelType.isDerived(attr.scope)
    future.convertToFailedMount()


CALLS = [
    (members,),
    ("typeNode", "Acme::Item"), ("pyType", acme.Item.kelType), ("singleton", "Kel::Clock"), ("const", point),
    ("nonConst", point), ("constPtr", item), ("nonConstPtr", item), ("isConst", item), ("isValue", item),
    ("isCollection", item), ("isFunction", item), ("isEntityFuture", item), ("isFailedMount", item),
    ("addressOf", item), ("hashOf", point), ("attributeAccessorCount",), ("entityFuture", "/x", None),
    ("handle", None), ("newNotifiee", item, handle), ("activityLockOwner",), ("newEntityHookIs", None),
    ("newInstanceHookIs", None), ("getitemHookIs", None), ("trace_h", None, "f", 1, "g", "text", 9),
    ("trace_ht", None, "tag", "f", 1, "g", "text", 9), ("traceLineSuppressed", None, 1),
    ("traceTagSuppressed", None, "tag"), ("escapedTraceString", "a"), ("setproctitle", "a", "b"),
    ("proctitle",), ("kelNowToLinuxMonoTime", 1.0), ("demangle", "i"), ("timedAcquireActivityLock", 60),
    ("acquireActivityLock",),
    ("convertEntityToFailedMount", entity), ("pythonForkHandlersRegistered",), ("enableThreadSafePointers",),
    ("atforkPrepare",),  # the last: the lock stays with its thread
]


def name(call):
    return call[0].__name__ if callable(call[0]) else call[0]


def word(call):
    order, started = [], threading.Event()

    def run():
        started.set()
        result = (call[0] if callable(call[0]) else getattr(_Kel, call[0]))(*call[1:])
        order.append("returned")
        if name(call).lower().endswith("acquireactivitylock") and result:
            _Kel.releaseActivityLock()

    _Kel.acquireActivityLock()
    thread = threading.Thread(target=run)
    thread.start()
    started.wait()
    end = time.time() + (PATIENCE if name(call) in sys.argv[1:] else HELD)
    while not order and time.time() < end:
        time.sleep(0.002)
    order.append("released")
    _Kel.releaseActivityLock()
    if call[0] != "atforkPrepare":
        thread.join()
    return "none" if order[0] == "returned" else "activity"


if __name__ == "__main__":
    for each in CALLS:
        print name(each), word(each)
    os._exit(0)
