"""Functions that the activity loop calls at a change or at a time, with their tokens."""

import gc
import time
import weakref

import Kel
import acme
import odd
import _Kel
from kel_testing import TestCase, in_child


class ReactionCase(TestCase):

    def setUp(self):
        self.item = acme.Item("watched", 1)
        self.seen = []

    def tearDown(self):
        del self.item
        self.assertEqual(Kel.subscriptions(), [])
        super(ReactionCase, self).tearDown()

    def note(self, attr, key):
        self.seen.append((attr.name, key))

    def told(self):
        """What the handler is told of all that is pending."""
        Kel.run(untilIdle=True)
        taken, self.seen = self.seen, []
        return taken


class Changes(ReactionCase):

    def test_every_change_is_told(self):
        with Kel.react(self.item, self.note):
            self.item.color = "blue"
            self.item.weight = 2.5
            self.assertEqual(self.told(), [("color", None), ("weight", None)])

    def test_with_names_those_attributes_alone_are_told(self):
        with Kel.react(self.item, self.note, "note", "weight"):
            self.item.color = "blue"
            self.item.note = "x"
            self.item.weight = 2.5
            self.assertEqual(self.told(), [("note", None), ("weight", None)])

    def test_the_key_of_a_member_is_told(self):
        store = acme.Store("s")
        with Kel.react(store, self.note, "price"):
            store.price["fig"] = 3
            self.assertEqual(self.told(), [("price", "fig")])

    def test_a_subscription_lives_without_its_token(self):
        Kel.react(self.item, self.note)
        gc.collect()
        self.item.note = "x"
        self.assertEqual(self.told(), [("note", None)])
        for token in Kel.subscriptions():
            token.cancel()

    def test_nothing_is_told_once_it_is_cancelled(self):
        token = Kel.react(self.item, self.note)
        self.item.note = "queued"
        token.cancel()
        self.item.note = "later"
        self.assertEqual((self.told(), token.active), ([], False))

    def test_it_may_be_cancelled_twice(self):
        token = Kel.react(self.item, self.note)
        token.cancel()
        token.cancel()

    def test_a_handler_may_cancel_itself(self):
        def once(attr, key):
            token.cancel()
            self.note(attr, key)

        token = Kel.react(self.item, once)
        self.item.note = "1"
        self.item.note = "2"
        self.assertEqual(self.told(), [("note", None)])

    def test_its_end_lets_go_of_object_and_handler(self):
        class Handler(object):
            def __call__(self, attr, key):
                pass

        handler = Handler()
        alive = weakref.ref(handler)
        token = Kel.react(self.item, handler)
        token.cancel()
        del handler, token
        self.assertIsNone(alive())

    def test_a_mount_stands_for_its_entity(self):
        entity = Kel.root().newEntity("Acme::Item", "mounted")
        try:
            with Kel.react(Kel.Mount("/mounted"), self.note):
                entity.note = "x"
                self.assertEqual(self.told(), [("note", None)])
        finally:
            Kel.root().clear()

    def test_an_unknown_attribute_is_refused(self):
        self.assertRefused(
            AttributeError, "Acme::Item has no attribute nope", Kel.react, self.item, self.note, "nope")

    def test_what_is_no_object_is_refused(self):
        self.assertRefused(
            TypeError, "newNotifiee() argument 1 must be Kel::PtrInterface, not int",
            Kel.react, 5, self.note)

    def test_what_cannot_be_called_is_refused(self):
        self.assertRefused(TypeError, "'int' object is not callable", Kel.react, self.item, 5)

    def test_its_repr_tells_what_it_watches(self):
        token = Kel.react(self.item, self.note, "note")
        self.assertEqual(repr(token), "<Reaction of note of entity('watched'), active>")
        token.cancel()
        self.assertIn("cancelled", repr(token))


class Times(ReactionCase):

    def called(self):
        self.seen.append("called")

    def wait_until(self, moment):
        while Kel.now() < moment:
            time.sleep(0.001)

    def test_a_time_that_has_passed_is_due_at_once(self):
        for moment in (Kel.now() - 1, 0, -5):
            Kel.at(moment, self.called)
            self.assertEqual(self.told(), ["called"])

    def test_a_time_to_come_is_waited_for(self):
        moment = Kel.now() + 0.02
        token = Kel.at(moment, self.called)
        self.assertTrue(token.active)
        self.wait_until(moment)
        self.assertEqual((self.told(), token.active), (["called"], False))

    def test_timers_are_called_in_order_of_time(self):
        now = Kel.now()
        for offset in (3, 1, 2):
            Kel.at(now + offset * 0.001, lambda offset=offset: self.seen.append(offset))
        self.wait_until(now + 0.003)
        self.assertEqual(self.told(), [1, 2, 3])

    def test_a_cancelled_timer_is_not_called(self):
        token = Kel.at(Kel.now(), self.called)
        token.cancel()
        self.assertEqual(self.told(), [])

    def test_a_with_statement_cancels_it(self):
        with Kel.at(Kel.now() + 3600, self.called) as token:
            self.assertEqual(Kel.subscriptions(), [token])

    def test_its_function_may_set_the_next_one(self):
        def tick():
            self.called()
            if len(self.seen) < 3:
                Kel.at(Kel.now(), tick)

        Kel.at(Kel.now(), tick)
        Kel.run(untilIdle=True)
        Kel.run(untilIdle=True)
        Kel.run(untilIdle=True)
        self.assertEqual(self.told(), ["called"] * 3)

    def test_what_is_no_time_is_refused_and_leaves_nothing(self):
        self.assertRefused(
            TypeError, 'Kel::PyClockNotifiee.timeMinProxy: Kel::TypeException('
            '"expected Kel::Seconds, got str: \'soon\'")', Kel.at, "soon", self.called)
        with self.assertRaises(IndexError):
            Kel.at(float("nan"), self.called)

    def test_what_cannot_be_called_is_refused(self):
        self.assertRefused(TypeError, "'str' object is not callable", Kel.at, 1.0, "x")


class Subscriptions(ReactionCase):

    def test_they_are_listed_oldest_first_until_they_end(self):
        tokens = [Kel.react(self.item, self.note), Kel.at(Kel.now() + 3600, len),
                  Kel.react(self.item, self.note, "color")]
        self.assertEqual(Kel.subscriptions(), tokens)
        tokens[0].cancel()
        self.assertEqual(Kel.subscriptions(), tokens[1:])
        for token in tokens:
            token.cancel()


class Loop(TestCase):

    def test_run_runs_until_it_is_stopped(self):
        done = in_child("""
import Kel, _Kel
manager = _Kel.singleton('Kel::ActivityManager')
Kel.at(Kel.now() + 0.01, lambda: (seen.append(Kel.now()), manager.stop()))
seen = []
Kel.run()
print len(seen), manager.isRunning
""")
        self.assertEqual((done.status, done.out), (0, "1 False\n"))
