"""Faults on purpose, each of which the stress test must find."""

import _Kel
import kel_stress
from world import Locked, manager


def lose_one(world):
    victim = world.recorders[0].notifiee
    kel_stress.setActive(victim, 0)
    with Locked():
        world.strict.a += 1
        kel_stress.note(world.strict, "a", None)
    manager.runUntilIdle()
    kel_stress.setActive(victim, 1)


def see_twice(world):
    world.planted = _Kel.newNotifiee(world.strict, _Kel.handle(world.recorders[0].tell))
    with Locked():
        world.strict.a += 1
        kel_stress.note(world.strict, "a", None)


def keep_lock(world):
    kel_stress.keepLockForEver()


def invert_locks(world):
    def invert(attr, key):
        kel_stress.invertLocks()

    world.planted = _Kel.newNotifiee(world.strict, _Kel.handle(invert))


def lock_with_gil(world):
    kel_stress.lockWithGil()


def copy_without_lock(world):
    kel_stress.copyWithoutLock(world.item)


def stick_in_child(world):
    world.children_stick = True


# By name: those that come before the threads start, and those that come among them.
EARLY = dict((plant.__name__, plant) for plant in (
    lose_one, see_twice, lock_with_gil, stick_in_child))
LATE = dict((plant.__name__, plant) for plant in (keep_lock, invert_locks, copy_without_lock))
