"""Timers in number: their order, and that none waits for the others."""

import os
import random
import unittest

from kel_testing import TestCase, in_child
from reactors import clock, manager, timer

PAST = 1.0
FAR = 1e9


class Order(TestCase):

    def setUp(self):
        self.fired = []

    def timers(self, count):
        """Timers without a time, each of which notes its number."""
        return [timer(lambda i=i: self.fired.append(i)) for i in range(count)]

    def test_timers_of_one_time_fire_in_the_order_of_their_arming(self):
        made = self.timers(50)
        order = list(range(50))
        random.Random(7).shuffle(order)
        for i in order:
            made[i].timeMinProxy = PAST
        manager.runUntilIdle()
        self.assertEqual(self.fired, order)

    def test_one_that_is_armed_anew_for_the_same_time_goes_to_the_end(self):
        made = self.timers(3)
        for i in 0, 1, 2, 0:
            made[i].timeMinProxy = PAST
        manager.runUntilIdle()
        self.assertEqual(self.fired, [1, 2, 0])

    def test_handlers_arm_and_disarm_others(self):
        made = self.timers(4)

        def first():
            self.fired.append("first")
            made[0].timeMinProxy = 0
            made[1].timeMinProxy = FAR
            made[3].timeMinProxy = PAST

        kept = timer(first, PAST)
        for i in 0, 1, 2:
            made[i].timeMinProxy = PAST
        manager.runUntilIdle()
        self.assertEqual(self.fired, ["first", 2, 3])
        del kept

    def test_one_that_arms_itself_for_the_past_lets_the_others_go_first(self):
        made = []

        def again():
            self.fired.append("again")
            if len(self.fired) < 6:
                made[0].timeMinProxy = PAST

        made.append(timer(again, PAST))
        made += self.timers(2)
        for each in made[1:]:
            each.timeMinProxy = PAST
        manager.runUntilIdle()
        self.assertEqual(self.fired, ["again", 0, 1, "again", "again", "again"])
        del made[:]

    def test_infinite_times_are_first_and_never(self):
        made = self.timers(3)
        for each, time in zip(made, (PAST, float("-inf"), float("inf"))):
            each.timeMinProxy = time
        manager.runUntilIdle()
        self.assertEqual(self.fired, [1, 0])
        self.assertEqual(made[2].timeMinProxy, float("inf"))

    def test_a_time_that_is_no_number_is_refused_and_the_old_one_stands(self):
        made, = self.timers(1)
        made.timeMinProxy = PAST
        self.assertRefused(
            IndexError, "Kel::PyClockNotifiee.timeMinProxy: mutator: Kel::RangeException"
            "(\"the time of a timer must be a number\")",
            setattr, made, "timeMinProxy", float("nan"))
        self.assertEqual(made.timeMinProxy, PAST)
        manager.runUntilIdle()
        self.assertEqual(self.fired, [0])


class Many(unittest.TestCase):

    def run_script(self, source):
        path = os.pathsep.join([os.path.dirname(os.path.abspath(__file__)),
                                os.environ["PYTHONPATH"]])
        in_child("""
import os, random
from kel_testing import wait_until
from reactors import *

# A sanitizer makes each operation many times as slow and looks at other faults.
MANY = 10000 if "LD_PRELOAD" in os.environ else 100000
numbers = list(range(MANY))
random.Random(7).shuffle(numbers)
fired = []

def numbered(i):
    return timer(lambda: fired.append(i))

made = dict((i, numbered(i)) for i in numbers)
""" + source, env={"PYTHONPATH": path}).expect()

    def test_a_hundred_thousand_fire_once_each_in_order_of_time(self):
        self.run_script("""
for i in numbers:
    made[i].timeMinProxy = 1 + i / float(MANY)
manager.runUntilIdle()
assert fired == sorted(numbers)
manager.runUntilIdle()
assert len(fired) == MANY
assert all(each.timeMinProxy == 0 for each in made.values())
""")

    def test_one_among_a_hundred_thousand_that_wait_ticks_at_its_times(self):
        self.run_script("""
for i in numbers:
    made[i].timeMinProxy = clock.now + 1e6 + i
ticks = []

def tick():
    ticks.append(clock.now >= wanted[0])
    if len(ticks) < 1000:
        wanted[0] = it.timeMinProxy = clock.now

it = timer(tick)
wanted = [clock.now]
it.timeMinProxy = wanted[0]
manager.start()
wait_until(lambda: len(ticks) == 1000)
manager.stop()
wait_until(lambda: not manager.isRunning)
assert all(ticks) and not fired
""")

    def test_a_hundred_thousand_may_be_dropped_while_they_wait(self):
        self.run_script("""
for i in numbers:
    made[i].timeMinProxy = clock.now + 1e6 + i
for i in numbers[1:]:
    del made[i]
left, = made.values()
left.timeMinProxy = clock.now
manager.runUntilIdle()
assert fired == numbers[:1], fired
""")
