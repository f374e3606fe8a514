"""How an agent starts: its command line, where it is found, and who has the name."""

import os
import signal

import Kel
from kel_testing import wait_until
from programs import AGENT, DEADLINE, ProgramCase

NAMES = ["--group", "acme", "--name", "shop"]


class CommandLine(ProgramCase):

    def test_a_wrong_one_is_told_in_a_line_with_status_2(self):
        missing = self.path("missing.py")
        for arguments, text in (
                ([], "--group is required"),
                (["--group", "acme"], "--name is required"),
                (["--group", "a.b", "--name", "shop"], 'the group of an agent must not hold "."'),
                (["--group", "acme", "--name", "a/b"], 'the name of an agent must not hold "/"'),
                (["--group", "", "--name", "shop"], "the group of an agent must not be empty"),
                (["--group", "acme", "--name", "a\nb"],
                 "the name of an agent must not hold control characters"),
                (["--group", "acme", "--name", "x" * 300], "cannot start"),
                (NAMES + ["--subsystem", "a/b"], 'the subsystem of an agent must not hold "/"'),
                (NAMES + ["--bogus"], "--bogus"),
                (NAMES + ["--port", "65536"], "--port"),
                (NAMES + ["--port", "-1"], "--port"),
                (NAMES + ["--socket", "x" * 200], "the socket name"),
                (NAMES + [missing], "cannot open script %s: No such file or directory" % missing),
                (NAMES + [self.folder], "cannot open script %s: Is a directory" % self.folder)):
            self.assertSays(self.command(AGENT, *arguments), 2, text)
            self.assertEqual(os.listdir(self.agents), [])

    def test_help_and_version_are_no_failures(self):
        self.assertIn("--schema", self.command(AGENT, "--help").expect().out)
        self.assertRegexpMatches(self.command(AGENT, "--version").expect().out, r"^[\d.]+\n$")

    def test_what_cannot_be_had_is_told_in_a_line_with_status_1(self):
        self.write("libtext.so", "no library\n")
        os.mkdir(self.path("open"))
        os.chmod(self.path("open"), 0o777)
        for arguments, text in (
                (["--schema", "libnothing.so"], "cannot load schema libnothing.so: "),
                (["--schema", "nothing"], "cannot load schema nothing: libnothing.so: "),
                (["--schema", self.path("libtext.so")], "libtext.so: "),
                (["--socket", self.path("open", "socket")],
                 "cannot start acme.shop: %s is not safe" % self.path("open"))):
            self.assertSays(self.command(AGENT, *(NAMES + arguments)), 1, text)
            self.assertEqual([name for name in os.listdir(self.agents) if name[0] != "."], [])


class Options(ProgramCase):

    def test_a_schema_is_named_shortly_or_as_a_file_or_by_its_path(self):
        self.write("script.py", """
            import sys, _Kel
            print _Kel.typeNode("Acme::Item"), _Kel.typeNode("Odd::Node")
            sys.exit()
            """)
        odd = os.path.join(os.path.dirname(os.path.abspath(Kel.__file__)), "libodd.so")
        for schemas in ("acme", "odd"), ("libacme.so", "libodd.so"), ("acme", odd):
            arguments = NAMES + ["--schema", schemas[0], "--schema", schemas[1], "script.py"]
            outcome = self.command(AGENT, *arguments).expect()
            self.assertEqual(outcome.out, "type('Acme::Item') type('Odd::Node')\n")

    def test_a_subsystem_is_a_part_of_the_name(self):
        for options, variable in (["--subsystem", "east"], "west"), ([], "east"):
            self.env["SUBSYSTEMID"] = variable
            agent = self.agent(options=options)
            outcome = self.eval("acme.shop.east", "6 * 7").expect()
            self.assertEqual(outcome.out, "42\n")
            agent.send(signal.SIGTERM)
            agent.wait().expect()

    def test_the_socket_and_the_port_are_where_they_are_wanted(self):
        place = self.path("place")
        self.serving(options=["--socket", place, "--port", "0"])
        self.assertEqual(self.socket_of(), place)
        with open(self.agent_file()) as lines:
            port = lines.read().split("\n")[1]
        self.assertNotEqual(port, "0")
        for option in ("--socket", place), ("--port", port):
            outcome = self.eval(option[0], option[1], "__import__('sys').argv").expect()
            self.assertEqual(outcome.out, "['']\n")

    def test_the_title_is_the_name_of_the_agent(self):
        agent = self.serving(options=["--title"])
        with open("/proc/%d/cmdline" % agent.pid) as title:
            self.assertEqual(title.read().rstrip("\0 "), "kel-agent acme.shop")


class Name(ProgramCase):

    def test_a_second_agent_of_a_live_one_is_refused_and_the_first_lives_on(self):
        self.serving("x = 'the first'")
        self.assertSays(self.run_agent("x = 'the second'"), 1, "cannot start acme.shop: ")
        self.assertEqual(self.value("x"), "the first")

    def test_that_of_a_killed_agent_is_taken_over(self):
        agent = self.serving("x = 'the first'")
        agent.kill()
        self.assertTrue(os.path.exists(self.agent_file()))
        # No client looks meanwhile: it would remove the stale file.
        self.agent("x = 'the second'", name="shop")
        wait_until(lambda: self.stands_for_another(agent.pid), DEADLINE)
        # Its script runs behind that.
        wait_until(lambda: self.eval("acme.shop", "x").out == "the second\n", DEADLINE)

    def stands_for_another(self, pid):
        try:
            with open(self.agent_file()) as lines:
                number = lines.readline()
        except IOError:
            return False  # the stale one is gone, and the new one not there yet
        return number.endswith("\n") and number != "%d\n" % pid
