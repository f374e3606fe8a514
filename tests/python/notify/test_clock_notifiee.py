"""Clock notifiees: Python functions as timers."""

import gc
import sys
import unittest
import weakref

import _Kel
import acme
import kel_hand
import odd
from kel_testing import TestCase, in_child, wait_until
from reactors import ClockNotifiee, clock, manager, notifiee, timer

FAR = 1e9


class Function(object):
    def __init__(self):
        self.calls = 0

    def __call__(self):
        self.calls += 1


class Making(TestCase):

    def test_the_handler_is_not_called_at_the_construction(self):
        function = Function()
        made = timer(function)
        manager.runUntilIdle()
        self.assertEqual(function.calls, 0)
        self.assertEqual(made.timeMinProxy, 0.0)

    def test_its_attributes_are_what_it_was_made_of(self):
        handle = _Kel.handle(Function())
        made = ClockNotifiee(clock, handle)
        self.assertEqual(made.clock, clock)
        self.assertIs(_Kel.isConst(made.clock), True)
        self.assertEqual(made.handler, handle)
        self.assertIs(_Kel.isConst(made), False)
        for name in "clock", "handler":
            with self.assertRaises(NotImplementedError):
                setattr(made, name, None)

    def test_it_takes_no_keywords(self):
        self.assertRefused(TypeError, "keyword arguments are not supported",
                           ClockNotifiee, clock, None, timeMinProxy=1.0)

    def test_arguments_of_other_types_are_refused(self):
        handle = _Kel.handle(Function())
        for arguments in [(5, handle), (odd.Notes(), handle), (handle, clock), (clock, clock),
                          (clock, Function())]:
            with self.assertRaises(TypeError):
                ClockNotifiee(*arguments)

    def test_without_a_clock_it_never_fires(self):
        function = Function()
        made = ClockNotifiee(None, _Kel.handle(function))
        self.assertIsNone(made.clock)
        made.timeMinProxy = clock.now
        manager.runUntilIdle()
        self.assertEqual(function.calls, 0)
        made.handleTime()
        self.assertEqual(function.calls, 1)

    def test_it_holds_its_function_and_nothing_holds_it(self):
        function = Function()
        alive = weakref.ref(function)
        made = timer(function, clock.now + FAR)
        del function
        self.assertIsNotNone(alive())
        self.assertEqual(made.kelSmartPointerReferences(), 1)
        del made
        self.assertIsNone(alive())


class Firing(TestCase):

    def test_it_fires_once_when_its_time_is_reached(self):
        function = Function()
        made = timer(function, clock.now + FAR)
        manager.runUntilIdle()
        self.assertEqual(function.calls, 0)
        made.timeMinProxy = clock.now + 0.01
        manager.runUntilIdle()

        def fired():
            manager.runUntilIdle()
            return function.calls
        wait_until(fired)
        manager.runUntilIdle()
        self.assertEqual(function.calls, 1)
        self.assertEqual(made.timeMinProxy, 0.0)

    def test_it_does_not_fire_before_its_time(self):
        times = []
        wanted = clock.now + 0.02
        made = timer(lambda: times.append(clock.now), wanted)

        def fired():
            manager.runUntilIdle()
            return times
        wait_until(fired)
        self.assertGreaterEqual(times[0], wanted)
        del made

    def test_a_time_in_the_past_is_due_at_once(self):
        function = Function()
        for time in 1e-6, -5.0, clock.now - 1:
            made = timer(function, time)
            manager.runUntilIdle()
            del made
        self.assertEqual(function.calls, 3)

    def test_no_time_wanted_means_no_call(self):
        function = Function()
        made = timer(function, clock.now)
        made.timeMinProxy = 0
        manager.runUntilIdle()
        self.assertEqual(function.calls, 0)

    def test_a_new_time_replaces_the_old(self):
        function = Function()
        made = timer(function, clock.now)
        made.timeMinProxy = clock.now + FAR
        manager.runUntilIdle()
        self.assertEqual(function.calls, 0)
        made.timeMinProxy = clock.now
        made.timeMinProxy = clock.now
        manager.runUntilIdle()
        self.assertEqual(function.calls, 1)

    def test_timers_fire_in_order_of_time(self):
        now, order, kept = clock.now, [], []
        for back in 3, 1, 4, 1.5, 9, 2, 6:
            kept.append(timer(lambda back=back: order.append(back), now - back))
        manager.runUntilIdle()
        self.assertEqual(order, [9, 6, 4, 3, 2, 1.5, 1])
        del kept

    def test_many_timers_fire_once_each_in_order_of_time(self):
        import random
        now, order, kept = clock.now, [], []
        backs = [1 + i / 1000.0 for i in range(20000)]
        random.Random(7).shuffle(backs)
        for back in backs:
            kept.append(timer(lambda back=back: order.append(back), now - back))
        manager.runUntilIdle()
        self.assertEqual(order, sorted(backs, reverse=True))
        del kept

    def test_one_that_is_gone_does_not_fire(self):
        function = Function()
        made = timer(function, clock.now)
        del made
        manager.runUntilIdle()
        self.assertEqual(function.calls, 0)

    def test_changes_that_are_queued_are_told_before_it_fires(self):
        order, notes = [], odd.Notes()
        kept = [timer(lambda: order.append("time"), clock.now),
                notifiee(notes, lambda attr, key: order.append("change"))]
        notes.a = 1
        manager.runUntilIdle()
        self.assertEqual(order, ["change", "time"])
        del kept


class HandleTime(TestCase):

    def test_called_from_Python_it_runs_the_function_at_once(self):
        function = Function()
        made = timer(function)
        self.assertIsNone(made.handleTime())
        self.assertEqual(function.calls, 1)

    def test_it_leaves_the_wanted_time_alone(self):
        function = Function()
        wanted = clock.now + FAR
        made = timer(function, wanted)
        made.handleTime()
        self.assertEqual((function.calls, made.timeMinProxy), (1, wanted))

    def test_it_takes_no_arguments(self):
        with self.assertRaises(TypeError):
            timer(Function()).handleTime(1)

    def test_an_owner_of_the_activity_lock_has_it_back_afterwards(self):
        owners = []
        made = timer(lambda: owners.append(_Kel.activityLockOwner()))
        _Kel.acquireActivityLock()
        try:
            made.handleTime()
            self.assertEqual(_Kel.activityLockOwner(), kel_hand.thread())
        finally:
            _Kel.releaseActivityLock()
        self.assertEqual(owners, [0])


class WhatHandlersDo(TestCase):

    def fire(self, function):
        made = timer(function, clock.now)
        manager.runUntilIdle()
        return made

    def test_the_activity_lock_is_free_while_it_runs(self):
        seen = []

        def acquire():
            seen.append(_Kel.activityLockOwner())
            seen.append(_Kel.acquireActivityLock())
            _Kel.releaseActivityLock()

        self.fire(acquire)
        self.assertEqual(seen, [0, True])
        self.assertEqual(_Kel.activityLockOwner(), 0)

    def test_it_has_the_GIL_and_calls_the_runtime_without(self):
        probe, seen = odd.Probe(), []
        self.fire(lambda: seen.append((probe.gilHeld(), probe.activityLockHeld())))
        self.assertEqual(seen, [(False, True)])

    def test_the_wanted_time_is_none_while_it_runs(self):
        made, seen = [], []
        made.append(timer(lambda: seen.append(made[0].timeMinProxy), clock.now))
        manager.runUntilIdle()
        self.assertEqual(seen, [0.0])
        del made[:]

    def test_it_may_arm_its_own_timer_again(self):
        made, times = [], []

        def again():
            times.append(len(times))
            if len(times) < 5:
                made[0].timeMinProxy = clock.now

        made.append(timer(again, clock.now))

        def fired():
            manager.runUntilIdle()
            return len(times) >= 5
        wait_until(fired)
        manager.runUntilIdle()
        self.assertEqual(times, [0, 1, 2, 3, 4])
        del made[:]

    def test_it_may_drop_the_notifiee_that_calls_it(self):
        kept, seen = {}, []

        class Leaving(object):
            def __call__(self):
                kept.clear()
                gc.collect()
                seen.append(alive() is not None)

        function = Leaving()
        alive = weakref.ref(function)
        kept["it"] = timer(function, clock.now)
        del function
        manager.runUntilIdle()
        self.assertEqual(seen, [True])
        self.assertIsNone(alive())

    def test_the_end_of_its_function_may_run_the_loop(self):
        in_child("""
            import _Kel
            clock, manager = _Kel.singleton("Kel::Clock"), _Kel.singleton("Kel::ActivityManager")
            done = []

            class Ending(object):
                def __call__(self):
                    done.append("called")

                def __del__(self):
                    manager.runUntilIdle()
                    done.append("ended")

            made = _Kel.pyType(_Kel.typeNode("Kel::PyClockNotifiee"))(clock, _Kel.handle(Ending()))
            made.timeMinProxy = clock.now
            del made
            manager.runUntilIdle()
            assert done == ["ended"], done
            """).expect()

    def test_any_result_is_dropped(self):
        result = Function()
        before = sys.getrefcount(result)
        made = self.fire(lambda: result)
        self.assertEqual(sys.getrefcount(result), before)
        del made

    def test_the_handle_is_held_for_the_length_of_the_call(self):
        references, handles = [], []
        look = lambda: references.append(handles[0].kelSmartPointerReferences())
        handles.append(_Kel.handle(look))
        made = ClockNotifiee(clock, handles[0])
        look()
        made.handleTime()
        look()
        self.assertEqual(references, [2, 3, 2])
        # No collector sees through a handle.
        del handles[:]

    def test_it_may_make_and_drop_other_timers(self):
        now, order, kept = clock.now, [], {}

        def first():
            order.append("first")
            del kept["dropped"]
            kept["made"] = timer(lambda: order.append("made"), now - 1)

        kept["first"] = timer(first, now - 3)
        kept["dropped"] = timer(lambda: order.append("dropped"), now - 2)
        manager.runUntilIdle()
        self.assertEqual(order, ["first", "made"])
        kept.clear()

    def test_its_changes_are_told(self):
        notes, seen = odd.Notes(), []
        kept = notifiee(notes, lambda attr, key: seen.append(notes.a))
        self.fire(lambda: setattr(notes, "a", 5))
        self.assertEqual(seen, [5])
        del kept


class Schema(TestCase):

    def test_the_type_is_declared_as_the_runtime_knows_it(self):
        kel_type = ClockNotifiee.kelType
        self.assertEqual(kel_type.fullTypeName, "Kel::PyClockNotifiee")
        self.assertEqual(kel_type.baseType.fullTypeName, "Kel::PtrInterface::NotifieeConst")
        self.assertEqual((kel_type.isConstrainer, kel_type.isPolymorphic, kel_type.isValue,
                          kel_type.containsOptionalsOrCollections), (True, True, False, False))
        self.assertEqual(kel_type.constructorArgNameQ, ("clock", "handler"))
        self.assertEqual(kel_type.constructorArgTypeQ, ("Kel::Clock", "Kel::PyObjHandle"))

    def test_its_attributes_have_their_numbers_and_kinds(self):
        attributes = dict((attr.name, attr) for attr in ClockNotifiee.kelType.attributeQ)
        self.assertEqual(
            sorted((attr.attributeId, name) for name, attr in attributes.items()),
            [(130, "clock"), (131, "handler"), (132, "handleTime"), (133, "timeMinProxy")])
        for name, type_name in [("clock", "Kel::Clock"), ("handler", "Kel::PyObjHandle")]:
            attr = attributes[name]
            self.assertEqual(attr.memberType.fullTypeName, type_name)
            self.assertEqual((attr.isPtr, attr.readable, attr.writable, attr.isImmutable),
                             (True, True, False, True))
        self.assertEqual((attributes["clock"].isConstPtr, attributes["handler"].isNonconstPtr),
                         (True, True))
        time = attributes["timeMinProxy"]
        self.assertEqual((time.memberType.fullTypeName, time.readable, time.writable),
                         ("Kel::Seconds", True, True))
        self.assertIs(attributes["handleTime"].isFunction, True)

    def test_the_clock_tells_of_reached_time_by_its_number(self):
        self.assertEqual(type(clock).kelType.attr("now").attributeId, 258)
