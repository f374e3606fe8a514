"""Which lock is held where: asked of a probe in the runtime and of Python code on the way."""

import threading
import unittest

import _Kel
import acme
import kel_objects
import odd
from kel_testing import TestCase, in_child
from kel_testing.proxy import Proxy

# Runs BODY, which must not wait, while another thread holds the activity lock.
WHILE_ANOTHER_HOLDS_THE_LOCK = """
    import threading
    import _Kel, acme, odd, kel_objects

    held, done = threading.Event(), threading.Event()

    def hold():
        _Kel.acquireActivityLock()
        held.set()
        done.wait()
        _Kel.releaseActivityLock()

    node, const, own = odd.Node(1), _Kel.constPtr(odd.Node(2)), odd.Own()
    item, store, size, coll = acme.Item("a", 1), acme.Store("s"), acme.Size(1), odd.Coll()
    raw = kel_objects.emptyView(_Kel.typeNode("Odd::Raw"))
    future = _Kel.entityFuture("/a", None)
    acme.Color, odd.Scalars  # a class is looked up in the runtime when it is first asked for

    def refused(function, *args, **keywords):
        try:
            function(*args, **keywords)
        except Exception:
            return True

    thread = threading.Thread(target=hold)
    thread.start()
    held.wait()
    try:
%s
    finally:
        done.set()
        thread.join()
"""


def thread_id():
    _Kel.acquireActivityLock()
    try:
        return _Kel.activityLockOwner()
    finally:
        _Kel.releaseActivityLock()


class Looks(object):
    """An object whose repr notes who holds the activity lock."""

    def __init__(self):
        self.owners = []

    def __repr__(self):
        self.owners.append(_Kel.activityLockOwner())
        return "0"


class InTheRuntime(TestCase):

    def test_a_function_runs_with_the_activity_lock_and_without_the_GIL(self):
        probe = odd.Probe()
        self.assertIs(probe.gilHeld(), False)
        self.assertIs(probe.activityLockHeld(), True)
        self.assertEqual(probe.thread(), thread_id())

    def test_an_attribute_is_read_without_the_GIL(self):
        self.assertIs(odd.Probe().gilOnRead, False)
        self.assertIs(odd.Probe().getRawAttribute("gilOnRead"), False)

    def test_an_attribute_is_written_without_the_GIL(self):
        probe = odd.Probe()
        probe.gilOnWrite = 1
        self.assertEqual(probe.gilAtWrite, 0)

    def test_both_locks_are_as_before_after_a_call(self):
        odd.Probe().gilHeld()
        self.assertEqual(_Kel.activityLockOwner(), 0)

    def test_a_thread_that_owns_the_lock_passes_and_keeps_it(self):
        probe, me = odd.Probe(), thread_id()
        self.assertTrue(_Kel.acquireActivityLock())
        try:
            self.assertIs(probe.activityLockHeld(), True)
            self.assertIs(probe.gilHeld(), False)
            probe.gilOnWrite = 1
            node = odd.Node(1)
            repr(node), hash(node), acme.Size(1) == acme.Size(1), _Kel.constPtr(node)
            self.assertTrue(acme.Thing("a") < acme.Thing("b"))
            del node
            self.assertRaises(TypeError, setattr, probe, "gilOnWrite", "x")
            self.assertEqual(_Kel.activityLockOwner(), me)
        finally:
            _Kel.releaseActivityLock()
        self.assertEqual(_Kel.activityLockOwner(), 0)


class InPython(TestCase):

    def test_a_value_is_converted_under_the_activity_lock(self):
        values, looks, me = odd.Values(), Looks(), thread_id()
        values.pyText = looks
        odd.Args().pyText(looks)
        odd.PyText(source="1").source = "2"
        self.assertEqual(looks.owners, [me, me])

    def test_the_repr_in_a_refusal_is_made_under_the_activity_lock(self):
        looks, me = Looks(), thread_id()
        self.assertRaises(TypeError, setattr, odd.Scalars(), "u8", looks)
        self.assertRaises(TypeError, odd.Args().one, looks)
        self.assertRaises(TypeError, odd.Node, looks)
        self.assertEqual(looks.owners, [me, me, me])

    def test_a_stored_text_is_evaluated_under_the_activity_lock(self):
        class Text(object):
            def __repr__(self):
                return "_Kel.activityLockOwner()"
        values = odd.Values()
        values.pyText = Text()
        self.assertEqual(values.pyText, thread_id())

    def test_a_proxy_is_asked_without_the_activity_lock(self):
        proxy = Proxy(odd.Node(1), look=_Kel.activityLockOwner)
        args, keeper, coll = odd.Args(), odd.Keeper(), odd.Coll()
        args.node(proxy)
        args.many(proxy, 1, 2, 3, 4, 5, 6, 7, 8)
        keeper.node = proxy
        odd.Link(proxy, "red")
        coll.addNode(proxy)
        coll.byNode[proxy] = 1
        del coll.byNode[proxy]
        self.assertEqual(proxy.seen, [0] * 7)

    def test_the_instance_hook_runs_without_the_activity_lock(self):
        owners = []
        _Kel.newInstanceHookIs(lambda cls: owners.append(_Kel.activityLockOwner()))
        try:
            acme.Size(1)
            odd.Node(1)
        finally:
            _Kel.newInstanceHookIs(None)
        self.assertEqual(owners, [0, 0])

    def test_other_threads_run_while_one_waits_for_the_activity_lock(self):
        in_child("""
            import threading, time
            import _Kel, odd

            node = odd.Node(1)
            waiting, ran = threading.Event(), threading.Event()

            def wait():
                waiting.set()
                node.value

            _Kel.acquireActivityLock()
            waiter = threading.Thread(target=wait)
            waiter.start()
            waiting.wait()
            other = threading.Thread(target=ran.set)
            other.start()
            ran.wait()
            other.join()
            assert waiter.is_alive()
            _Kel.releaseActivityLock()
            waiter.join()
        """, deadline=30).expect()

    def test_the_activity_lock_goes_behind_the_return_of_the_GIL(self):
        in_child("""
            import sys, threading, time
            import _Kel, acme

            sys.setcheckinterval(10 ** 9)  # the GIL changes hands in the module alone
            size, const, item = acme.Size(1), _Kel.const(acme.Point()), acme.Item("a", 1)
            store = acme.Store("s")
            ended = []

            def unset():
                store.badge = None

            def wait_for_the_other():
                end = time.time() + 10
                while not _Kel.activityLockOwner():
                    assert time.time() < end

            def repeat(operation):
                while not ended:
                    operation()

            for operation in lambda: bool(size), lambda: hash(const), lambda: item.size, unset:
                thread = threading.Thread(target=repeat, args=(operation,))
                thread.start()
                for _ in range(5):
                    time.sleep(0.001)
                    wait_for_the_other()
                    end = time.time() + 0.005
                    while time.time() < end:
                        pass
                    # Its operation has long been done, and it waits for the GIL.
                    assert _Kel.activityLockOwner(), operation
                ended.append(True)
                thread.join()
                del ended[:]
        """, deadline=60).expect()

    def test_the_last_wrapper_lets_its_object_go_under_the_activity_lock_without_the_GIL(self):
        in_child("""
            import threading, time
            import _Kel, odd

            nodes = [odd.Node(1)]
            begins, gone = threading.Event(), threading.Event()

            def drop():
                begins.set()
                del nodes[:]
                gone.set()

            _Kel.acquireActivityLock()
            thread = threading.Thread(target=drop)
            thread.start()
            begins.wait()
            while nodes:
                time.sleep(0.001)
            # The list is empty, the wrapper is on its way: the lock is ours, so is the node.
            for _ in range(20):
                assert odd.Node.live == 1
                assert not gone.is_set()
                time.sleep(0.001)
            _Kel.releaseActivityLock()
            thread.join()
            assert odd.Node.live == 0
        """, deadline=30).expect()


class WithoutTheActivityLock(TestCase):

    def check(self, *lines):
        body = "\n".join("        " + line for line in lines)
        in_child(WHILE_ANOTHER_HOLDS_THE_LOCK % body, deadline=30).expect()

    def test_truth_and_identity_of_objects_ask_nothing_of_the_runtime(self):
        self.check(
            "assert node and own and item",
            "assert node == node and node != const and not own == node",
            "assert (node < const) != (const < node)",
            "assert (item < node) != (node < item)",
            "assert node.__eq__(size) is NotImplemented",
            "assert _Kel.addressOf(node) and not _Kel.isConst(node)",
            "assert refused(hash, size)")

    def test_constants_collections_and_functions_are_read_without_it(self):
        self.check(
            "assert acme.Color.red == 'red' and raw.constant == 'constant'",
            "assert store.item is not None and store.newItem is not None",
            "assert coll.addNode is not None and coll.registry is not None",
            "assert item.lookup is not None and acme.Item.describe.parent is None",
            "assert item.lookup.parent is item and str(item.lookup)")

    def test_refusals_of_descriptors_come_without_it(self):
        self.check(
            "assert refused(getattr, acme.Item, 'size')",
            "assert refused(acme.Item.__dict__['size'].__get__, 5)",
            "assert refused(delattr, item, 'size') and refused(setattr, item, 'part', 1)",
            "assert refused(setattr, item, 'lookup', 1) and refused(setattr, raw, 'constant', 1)",
            "assert refused(item.getRawAttribute, 'part') and refused(item.getRawAttribute, 'x')",
            "assert refused(_Kel.const, node) and refused(_Kel.constPtr, size)",
            "assert refused(odd.Scalars, u8=1) and refused(acme.Color)")

    def test_the_schema_is_read_without_it(self):
        self.check(
            "assert item.kelType.fullTypeName == 'Acme::Item' and 'size' in item.attributes",
            "assert item.attrProperty('size', 'writable')",
            "assert _Kel.pyType(item.kelType) is acme.Item")

    def test_futures_are_made_and_marked_as_failed_without_it(self):
        self.check(
            "assert repr(future) and _Kel.entityFuture('/b', item.kelType).kelType",
            "future.convertToFailedMount()",
            "assert _Kel.isFailedMount(future)")


class Waits(TestCase):

    def test_what_touches_the_runtime_waits_for_the_lock(self):
        # Each runs on a thread of its own and is still there while we own the lock.
        node, item, size = odd.Node(1), acme.Item("a", 1), acme.Size(1)
        other = acme.Item("b", 2)
        future = _Kel.entityFuture("/", None)
        entity = kel_objects.createEntity("/", "Acme::Thing", "locks-waits")
        touches = [
            lambda: node.value, lambda: setattr(node, "value", 1), lambda: node.peek(),
            lambda: repr(node), lambda: str(node), lambda: hash(node),
            lambda: node.kelSmartPointerReferences(), lambda: _Kel.const(size),
            lambda: _Kel.constPtr(node), lambda: item < other,
            lambda: odd.Node(2), lambda: size == size, lambda: size + size, lambda: bool(size),
            lambda: future.convertToEntity(), lambda: node.valueToGnmiString(),
            lambda: _Kel.convertEntityToFailedMount(entity)]
        results, begun = [], threading.Semaphore(0)

        def run(touch):
            begun.release()
            touch()
            results.append(touch)

        _Kel.acquireActivityLock()
        try:
            threads = [threading.Thread(target=run, args=(touch,)) for touch in touches]
            for thread in threads:
                thread.start()
            for _ in threads:
                begun.acquire()
            for thread in threads:
                thread.join(0.005)
            self.assertEqual(results, [])
        finally:
            _Kel.releaseActivityLock()
        for thread in threads:
            thread.join()
        self.assertEqual(len(results), len(touches))
        del touches, threads, touch
        self.assertTrue(kel_objects.deleteEntity("/", "locks-waits"))


if __name__ == "__main__":
    unittest.main()
