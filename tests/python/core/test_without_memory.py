"""Failures while there is no memory at all: they arrive, in as many words as there is room for."""

import unittest

from kel_testing import in_child

SCRIPT = """
import kel_failing  # ahead of the module
import sys, odd, acme

acts = {
    "type": lambda: odd.Refuser(10), "attribute": lambda: odd.Faults().bad,
    "errno": lambda: odd.Faults().failErrno(2, "path"),
    "foreign": lambda: odd.Faults().fail("int", "text")}
act, name = acts[sys.argv[1]], sys.argv[2]
for number in range(200):
    kel_failing.arm(number, True)
    try:
        act()
        found = "nothing"
    except Exception as error:
        found = type(error).__name__
    asked, failed = kel_failing.disarm()
    sys.exc_clear()
    assert found in (name, "MemoryError", "SystemError"), (number, found)
    if not failed:
        assert found == name, found
        print "done"
        break
"""


DIRECTORY = """
import kel_failing  # ahead of the module
import sys, acme, kel_hand

def once(number, for_ever, act):
    kel_failing.arm(number, for_ever)
    try:
        act()
    except (MemoryError, SystemError):  # of the runtime's memory, of the C++ library's
        pass
    _, failed = kel_failing.disarm()
    sys.exc_clear()
    return failed

def adding(number):
    shelf, item = acme.Shelf("shelf"), acme.Item("a", 1)
    failed = once(number, False, lambda: shelf.slot.addMember(item))
    shelf.slot.addMember(item)
    assert item.fullName == "shelf/a", item.fullName
    return failed

def ending(number):
    shelf, item = [acme.Shelf("shelf" * 100)], acme.Item("a", 1)
    shelf[0].slot.addMember(item)
    failed = once(number, True, shelf.pop)
    assert item.fullName in ("shelf" * 100 + "/a", "a"), item.fullName
    acme.Shelf("other").slot.addMember(item)
    return failed

for act in adding, ending:
    act(10 ** 6)  # what is made once for all
    number, before = 0, kel_hand.live()
    while act(number):
        assert kel_hand.live() == before, (act, number)
        number += 1
    assert number, act
print "done"
"""


TIMER = """
import kel_failing  # ahead of the module
import sys, _Kel

Timer = _Kel.pyType(_Kel.typeNode("Kel::PyClockNotifiee"))
fired, failures = [], 0
timers = [Timer(_Kel.singleton("Kel::Clock"), _Kel.handle(lambda: fired.append(1)))
          for _ in range(200)]
for timer in timers:
    for number in range(100):
        kel_failing.arm(number, False)
        try:
            timer.timeMinProxy = 1.0
        except (MemoryError, SystemError):
            failures += 1
        _, failed = kel_failing.disarm()
        sys.exc_clear()
        assert timer.timeMinProxy in (0.0, 1.0), timer.timeMinProxy
        armed = timer.timeMinProxy == 1.0
        _Kel.singleton("Kel::ActivityManager").runUntilIdle()
        assert len(fired) == armed, (fired, armed)
        del fired[:]
        if not failed:
            break
assert failures
print "done"
"""


class Timers(unittest.TestCase):

    def test_one_whose_time_there_is_no_memory_for_waits_for_none(self):
        self.assertEqual(in_child(TIMER).expect().out, "done\n")


class Directory(unittest.TestCase):

    def test_an_entity_that_could_not_be_added_is_not_lost_nor_is_one_whose_directory_ends(self):
        self.assertEqual(in_child(DIRECTORY).expect().out, "done\n")


class WithoutMemory(unittest.TestCase):

    def told(self, act, name):
        self.assertEqual(in_child(SCRIPT, [act, name]).expect().out, "done\n")

    def test_a_failure_for_a_type_arrives(self):
        self.told("type", "IndexError")

    def test_a_failure_for_an_attribute_arrives(self):
        self.told("attribute", "SystemError")

    def test_a_failed_system_call_arrives(self):
        self.told("errno", "OSError")

    def test_an_exception_of_a_type_that_nobody_declared_arrives(self):
        self.told("foreign", "Exception")


if __name__ == "__main__":
    unittest.main()
