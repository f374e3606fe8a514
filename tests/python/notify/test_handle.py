"""Handles: runtime objects that own a Python object."""

import sys
import unittest
import weakref

import _Kel
import acme
import kel_hand
import odd
from kel_testing import TestCase, in_child, unless_thread_sanitizer

HANDLE = _Kel.typeNode("Kel::PyObjHandle")


class Object(object):
    pass


class Ownership(TestCase):

    def test_a_handle_holds_one_reference_for_as_long_as_it_lives(self):
        held = Object()
        before = sys.getrefcount(held)
        handle = _Kel.handle(held)
        self.assertEqual(sys.getrefcount(held), before + 1)
        other = _Kel.handle(held)
        self.assertEqual(sys.getrefcount(held), before + 2)
        del handle
        self.assertEqual(sys.getrefcount(held), before + 1)
        del other
        self.assertEqual(sys.getrefcount(held), before)

    def test_the_object_goes_with_the_last_reference_of_the_runtime(self):
        held = Object()
        gone = weakref.ref(held)
        notifiee = _Kel.newNotifiee(odd.Notes(), _Kel.handle(held))
        del held
        self.assertIsNotNone(gone())
        handle = notifiee.handler
        del notifiee
        self.assertIsNotNone(gone())
        del handle
        self.assertIsNone(gone())

    def test_None_is_held_like_any_other_object(self):
        before = sys.getrefcount(None)
        handles = [_Kel.handle(None) for _ in range(1000)]
        self.assertGreater(sys.getrefcount(None), before + 900)
        self.assertEqual(handles[0].passedRef, False)
        del handles
        self.assertLess(sys.getrefcount(None), before + 900)

    def test_handleInit_holds_the_object_once_more(self):
        held = Object()
        before = sys.getrefcount(held)
        handle = _Kel.handle(held)
        self.assertIsNone(handle.handleInit())
        self.assertEqual(sys.getrefcount(held), before + 2)
        # Evened out: it drops one and the end of the handle the other.
        self.assertIsNone(handle.handleDelete())
        self.assertEqual(sys.getrefcount(held), before + 1)
        del handle
        self.assertEqual(sys.getrefcount(held), before)

    def test_the_end_of_the_object_may_come_back_to_the_runtime(self):
        seen = []

        class Returning(object):
            def __del__(self):
                item = acme.Item("one", 1)
                item.size = 3
                seen.append((item.size, _Kel.handle(item).passedRef))

        handle = _Kel.handle(Returning())
        self.assertEqual(seen, [])
        del handle
        self.assertEqual(seen, [(3, False)])

    def test_an_end_that_raises_is_reported_as_Python_does(self):
        outcome = in_child("""
            import _Kel

            class Raising(object):
                def __del__(self):
                    raise ValueError("at the end")

            handle = _Kel.handle(Raising())
            del handle
            print "lives on"
            """).expect()
        self.assertEqual(outcome.out, "lives on\n")
        self.assertIn("ValueError('at the end',)", outcome.err)
        self.assertIn("ignored", outcome.err)


class Making(TestCase):

    def test_a_handle_is_a_non_const_object_of_its_own_type(self):
        handle = _Kel.handle(5)
        self.assertIs(type(handle), _Kel.pyType(HANDLE))
        self.assertIs(_Kel.isConst(handle), False)
        self.assertIsInstance(handle, _Kel.pyType(_Kel.typeNode("Kel::PtrInterface")))
        self.assertNotEqual(handle, _Kel.handle(5))

    def test_it_takes_one_argument(self):
        self.assertRefused(
            TypeError, "handle() takes exactly one argument (0 given)", _Kel.handle)
        self.assertRefused(
            TypeError, "handle() takes exactly one argument (2 given)", _Kel.handle, 1, 2)
        self.assertRefused(
            TypeError, "handle() takes no keyword arguments", _Kel.handle, object=1)

    def test_it_says_what_it_does(self):
        self.assertEqual(_Kel.handle.__doc__, "Create a PyObject handle.")

    def test_its_class_cannot_be_called_as_no_unit_declares_its_argument(self):
        cls = _Kel.pyType(HANDLE)
        self.assertRefused(
            TypeError, "Kel::PyObjHandle: Kel::TypeException(\"expected 2 constructor parameters "
            "('pyObject', 'passedRef'), got 0\")", cls)
        held = Object()
        before = sys.getrefcount(held)
        self.assertRefused(
            TypeError, "Kel::PyObjHandle: Kel::NoTypeNodeException(\"no type 'PyObject'\")",
            cls, held, False)
        sys.exc_clear()
        self.assertEqual(sys.getrefcount(held), before)

    def test_an_owner_of_the_activity_lock_passes_and_keeps_it(self):
        _Kel.acquireActivityLock()
        try:
            handle = _Kel.handle(5)
            self.assertEqual(_Kel.activityLockOwner(), kel_hand.thread())
            del handle
            self.assertEqual(_Kel.activityLockOwner(), kel_hand.thread())
        finally:
            _Kel.releaseActivityLock()


class Schema(TestCase):

    def test_the_type_is_declared_as_the_runtime_knows_it(self):
        self.assertEqual(HANDLE.fullTypeName, "Kel::PyObjHandle")
        self.assertEqual(HANDLE.baseType.fullTypeName, "Kel::PtrInterface")
        self.assertIs(HANDLE.isPolymorphic, True)
        self.assertIs(HANDLE.isValue, False)
        self.assertIs(HANDLE.isConstrainer, False)
        self.assertIs(HANDLE.hasOwnPtrInterface, False)
        self.assertIs(HANDLE.containsOptionalsOrCollections, False)
        self.assertEqual(HANDLE.constructorArgNameQ, ("pyObject", "passedRef"))
        self.assertEqual(HANDLE.constructorArgTypeQ, ("PyObject", "bool"))

    def test_its_attributes_have_their_numbers_and_kinds(self):
        self.assertEqual([(attr.name, attr.attributeId) for attr in HANDLE.attributeQ],
                         [("passedRef", 131), ("handleDelete", 132), ("handleInit", 133)])
        passed = HANDLE.attr("passedRef")
        self.assertEqual(passed.memberType.fullTypeName, "bool")
        self.assertEqual(
            (passed.readable, passed.writable, passed.isImmutable, passed.hasDataMember,
             passed.isFunction, passed.isStatic), (True, False, True, True, False, False))
        for name in "handleDelete", "handleInit":
            self.assertIs(HANDLE.attr(name).isFunction, True)

    def test_passedRef_cannot_be_written(self):
        handle = _Kel.handle(5)
        with self.assertRaises(NotImplementedError):
            handle.passedRef = True
        self.assertIs(handle.passedRef, False)


class Locks(unittest.TestCase):

    def test_it_waits_for_the_activity_lock_without_the_GIL(self):
        in_child("""
            import threading
            import _Kel, kel_hand
            from kel_testing import wait_until

            _Kel.acquireActivityLock()
            made = []
            thread = threading.Thread(target=lambda: made.append(_Kel.handle(5)))
            thread.start()
            wait_until(kel_hand.isLockContended)
            assert not made
            _Kel.releaseActivityLock()
            thread.join()
            assert len(made) == 1
            """).expect()

    @unless_thread_sanitizer
    def test_a_lock_that_cannot_be_taken_is_a_Python_exception(self):
        in_child("""
            import sys
            import _Kel, kel_hand
            held = object()
            before = sys.getrefcount(held)
            kel_hand.breakLock()
            try:
                _Kel.handle(held)
            except OSError as error:
                assert error.filename == "cannot lock", error
            else:
                raise AssertionError("nothing was raised")
            kel_hand.mendLock()
            assert sys.getrefcount(held) == before
            """).expect()

    def test_objects_are_dropped_by_whoever_lets_go_of_the_handle_last(self):
        in_child("""
            import weakref
            import _Kel, kel_hand

            class Object(object):
                pass

            held = Object()
            gone = weakref.ref(held)
            handles = [_Kel.handle(held)]
            del held
            assert gone() is not None
            # On a thread that the interpreter sees for the first time, under the activity lock.
            kel_hand.callUnderActivityLock(handles.pop)
            assert gone() is None
            """).expect()
