"""kel-agent and its script: how it runs, what it finds, and how the process ends with it."""

import os

from kel_testing import wait_until
from programs import ProgramCase


class Script(ProgramCase):

    def test_it_runs_as_main_with_its_arguments_and_its_folder_on_the_path(self):
        self.write("helper.py", "answer = 42\n")
        outcome = self.run_agent("""
            import sys, helper
            print (__name__, __file__, sys.argv, sys.path[0], helper.answer) == (
                "__main__", sys.argv[0], [sys.argv[0], "--port", "-x", "--", "a b", "{}", ""],
                %r, 42)
            sys.exit()
            """ % self.folder, "--port", "-x", "--", "a b", "{}", "").expect()
        self.assertEqual(outcome.out, "True\n")

    def test_it_finds_the_modules_of_the_runtime_without_further_ado(self):
        outcome = self.run_agent("""
            import sys
            import _Kel, Kel, PyServer, acme
            print acme.Item("apple", 7).id
            sys.exit()
            """).expect()
        self.assertEqual(outcome.out, "7\n")

    def test_folders_of_PYTHONPATH_come_before_the_modules_and_the_variable_stays_as_it_was(self):
        os.mkdir(self.path("first"))
        self.write("first/Kel.py", "name = 'mine'\n")
        self.env["PYTHONPATH"] = self.path("first")
        outcome = self.run_agent("""
            import os, sys, Kel
            print Kel.name, os.environ["PYTHONPATH"] == %r
            sys.exit()
            """ % self.path("first")).expect()
        self.assertEqual(outcome.out, "mine True\n")

    def test_files_beside_it_do_not_stand_in_for_what_the_server_is_made_of(self):
        self.write("socket.py", "raise Exception('the wrong one')\n")
        self.run_agent("import sys; sys.exit()").expect()

    def test_the_agent_can_be_questioned_while_the_script_runs(self):
        agent = self.agent("""
            import time
            ready = False
            print "begins"
            while not ready:
                time.sleep(0.01)
            print "ready"
            import sys
            sys.exit()
            """)
        wait_until(lambda: agent.out == "begins\n")
        self.eval("acme.shop", "-x", "ready = True").expect()
        self.assertEqual(agent.wait().expect().out, "begins\nready\n")

    def test_without_one_the_agent_just_serves(self):
        self.serving()
        self.assertEqual(self.value("__import__('sys').argv, __name__"), "([''], '__main__')")
        self.assertEqual(self.value("'' in __import__('sys').path"), "False")

    def test_one_that_raises_ends_the_agent_with_its_traceback(self):
        outcome = self.run_agent("""
            import PyServer, sys
            sys.stdout.write(open(%r).read().split("\\n")[2])
            {}["key"]
            """ % self.agent_file()).expect(1)
        self.assertIn('script.py", line 4, in <module>\n', outcome.err)
        self.assertTrue(outcome.err.endswith("KeyError: 'key'\n"), outcome.err)
        self.assertIn("acme.shop", outcome.out)
        self.assertGone(outcome.out)

    def test_one_that_does_not_compile_ends_it_too(self):
        outcome = self.run_agent("1 +\n").expect(1)
        self.assertTrue(outcome.err.endswith("SyntaxError: invalid syntax\n"), outcome.err)

    def test_a_KeyboardInterrupt_of_its_own_is_an_exception_like_others(self):
        outcome = self.run_agent("raise KeyboardInterrupt('mine')").expect(1)
        self.assertTrue(outcome.err.endswith("KeyboardInterrupt: mine\n"), outcome.err)

    def test_sys_exit_gives_the_status(self):
        for call, status in (("exit()", 0), ("exit(None)", 0), ("exit(0)", 0), ("exit(3)", 3),
                             ("exit(259)", 3), ("exit(True)", 1)):
            outcome = self.run_agent("import sys; sys." + call).expect(status)
            self.assertEqual((outcome.out, outcome.err), ("", ""))
            self.assertGone("")

    def test_sys_exit_with_a_text_prints_it(self):
        outcome = self.run_agent("import sys; sys.exit('no stock')").expect(1)
        self.assertEqual((outcome.out, outcome.err), ("", "no stock\n"))

    def test_the_end_flushes_output_and_runs_the_functions_of_atexit(self):
        del self.env["PYTHONUNBUFFERED"]
        outcome = self.run_agent("""
            import atexit, sys
            def last():
                print "last"
            atexit.register(last)
            print "first"
            sys.exit(4)
            """).expect(4)
        self.assertEqual(outcome.out, "first\nlast\n")

    def test_what_it_has_printed_is_out_before_the_loop_and_its_last_line_is_ended(self):
        del self.env["PYTHONUNBUFFERED"]
        agent = self.serving("print 'open',")
        self.assertEqual(agent.out, "open\n")

    def test_a_process_that_it_forks_ends_with_it_and_leaves_the_agent_alone(self):
        self.serving("""
            import os
            child = os.fork()
            status = os.waitpid(child, 0)[1] if child else None
            """)
        self.assertEqual(self.value("status"), "0")

    def test_its_interpreter_is_the_one_that_the_project_was_built_with(self):
        outcome = self.run_agent("""
            import subprocess, sys
            sys.exit(subprocess.call([sys.executable, "-c", "import sys; sys.exit(5)"]))
            """)
        outcome.expect(5)
