"""kel-agent --watchdog: an agent tells who holds the activity lock for long."""

from kel_testing import wait_until
from programs import DEADLINE, ProgramCase

HOLD = """
def hold():
    with Kel.activityLock():
        while not done: pass
"""


class AgentWatchdog(ProgramCase):

    def test_it_tells_of_a_text_that_keeps_the_lock_from_the_loop(self):
        agent = self.serving("import Kel, threading\ndone = []\n" + HOLD,
                             options=["--watchdog", "0.3"])
        self.assertEqual(self.value("Kel._Kel.singleton('Kel::Watchdog').seconds"), "0.3")
        self.eval("acme.shop", "-x", "threading.Thread(target=hold).start()").expect()
        wait_until(lambda: "has held the activity lock for 0." in agent.err, DEADLINE)
        self.eval("acme.shop", "-x", "done.append(1)").expect()
        wait_until(lambda: "has given up the activity lock" in agent.err, DEADLINE)
        self.assertIn(", in hold\n", agent.err)

    def test_it_is_off_if_not_asked_for(self):
        self.serving("import _Kel")
        self.assertEqual(self.value("_Kel.singleton('Kel::Watchdog').seconds"), "0.0")

    def test_what_is_no_time_is_a_wrong_command_line(self):
        for seconds in "-1", "soon", "1e10":
            outcome = self.run_agent(options=["--watchdog", seconds])
            self.assertSays(outcome, 2, "--watchdog")
