"""kel-eval --list: which agents it shows, and that it harms none."""

import fcntl
import os

from programs import EVAL, ProgramCase


class List(ProgramCase):

    def rows(self):
        outcome = self.eval("--list").expect()
        self.assertEqual(outcome.err, "")
        rows = [line.split() for line in outcome.out.split("\n")]
        self.assertEqual(rows[0], ["AGENT", "PID", "PORT", "SOCKET"])
        self.assertEqual(rows[-1], [])
        return rows[1:-1]

    def put(self, name, text):
        """A file that is held by this process, as that of a live agent, until it is closed."""
        held = open(os.path.join(self.agents, name), "w")
        self.addCleanup(held.close)
        held.write(text)
        held.flush()
        fcntl.flock(held, fcntl.LOCK_EX)
        return held

    def test_it_shows_live_agents_in_the_order_of_their_names(self):
        second = self.serving(name="shop2", options=["--port", "0"])
        first = self.serving(name="shop1")
        rows = self.rows()
        self.assertEqual([row[:2] for row in rows],
                         [["acme.shop1", str(first.pid)], ["acme.shop2", str(second.pid)]])
        self.assertEqual([row[2] == "0" for row in rows], [True, False])
        self.assertEqual([row[3] for row in rows],
                         [self.socket_of("shop1"), self.socket_of("shop2")])

    def test_a_stale_file_is_neither_shown_nor_removed(self):
        agent = self.serving()
        agent.kill()
        self.assertEqual(self.rows(), [])
        self.assertTrue(os.path.exists(self.agent_file()))

    def test_a_folder_that_is_not_there_holds_no_agent(self):
        self.env["KELC_AGENTS_DIR"] = self.path("nothing")
        self.assertEqual(self.rows(), [])

    def test_what_is_no_folder_is_told(self):
        self.env["KELC_AGENTS_DIR"] = self.write("file", "")
        self.assertSays(self.eval("--list"), 3, "Not a directory")

    def test_strange_files_do_no_harm(self):
        os.mkdir(os.path.join(self.agents, "a.folder"))
        os.mkfifo(os.path.join(self.agents, "a.pipe"))
        self.put("a.real", "1\n0\n/there\n")
        os.symlink("a.real", os.path.join(self.agents, "a.link"))
        self.put("nodot", "2\n0\n/there\n")
        self.put(".hidden", "2\n0\n/there\n")
        self.put("group.", "2\n0\n/there\n")
        self.put("b.empty", "")
        self.put("b.half", "3\n12")
        self.put("b.long", "4\n5\n" + "x" * 200 + "\n")
        self.put("b.wild", "5\n6\n/\x1b[31m\n")
        self.assertEqual(self.rows(), [
            ["a.real", "1", "0", "/there"], ["b.empty"], ["b.half", "3"], ["b.long", "4", "5"],
            ["b.wild", "5", "6", "/?[31m"]])

    def test_it_takes_turns_with_others_that_look(self):
        folder = os.open(self.agents, os.O_RDONLY)
        fcntl.flock(folder, fcntl.LOCK_EX)
        listing = self.program([EVAL, "--list"])
        self.put("a.late", "1\n0\n/there\n")
        os.close(folder)
        self.assertIn("a.late", listing.wait().expect().out)

    def test_a_folder_that_stays_locked_is_told(self):
        folder = os.open(self.agents, os.O_RDONLY)
        self.addCleanup(os.close, folder)
        fcntl.flock(folder, fcntl.LOCK_EX)
        self.assertSays(self.eval("--list"), 3, "stays locked")
