"""The agent file: contents, locks, stale ones, live ones, and its end."""

import errno
import fcntl
import os
import signal
import stat
import subprocess
import textwrap
import threading
import time
import unittest

import PyServer
import _PyServerFiles
from kel_testing import in_child
from serving import DEADLINE, ServerCase


def tries_lock(path):
    """Whether the file at path is locked by nobody."""
    with open(path) as found:
        try:
            fcntl.flock(found, fcntl.LOCK_EX | fcntl.LOCK_NB)
            return True
        except IOError as error:
            if error.errno != errno.EWOULDBLOCK:
                raise
            return False


def untouched(path):
    """What nobody who only reads the file changes."""
    found = os.stat(path)
    return (found.st_ino, found.st_mode, found.st_nlink, found.st_uid, found.st_size,
            found.st_mtime, found.st_ctime)


class Contents(ServerCase):

    def contents(self, server):
        with open(server.agentFile) as found:
            return found.read()

    def test_it_holds_pid_port_and_socket_name_a_line_each(self):
        server = self.serve(port=0)
        self.assertEqual(self.contents(server), "%d\n%d\n%s\n" % (
            os.getpid(), server.port, server.socketName))

    def test_without_TCP_the_port_is_0(self):
        server = self.serve()
        self.assertEqual(self.contents(server).split("\n")[1], "0")

    def test_its_name_is_that_of_the_agent(self):
        self.assertEqual(self.serve().agentFile, self.path("acme.shop"))
        self.assertEqual(self.serve("acme", "shop", "2").agentFile, self.path("acme.shop.2"))

    def test_the_subsystem_id_is_that_of_the_environment_unless_one_is_given(self):
        os.environ["SUBSYSTEMID"] = "7"
        self.assertEqual(self.serve().agentFile, self.path("acme.shop.7"))
        self.assertEqual(self.serve("acme", "shop", "").agentFile, self.path("acme.shop"))
        self.assertEqual(self.serve("acme", "shop", "8").agentFile, self.path("acme.shop.8"))

    def test_agents_of_several_subsystems_live_side_by_side(self):
        servers = [self.serve("acme", "shop", subsystem) for subsystem in ("", "1", "2")]
        for server in servers:
            self.assertEqual(self.client(server).eval("1"), ("OK", "1"))
        servers[0].stop()
        self.assertEqual(self.client(servers[1]).eval("1"), ("OK", "1"))
        for server in servers[1:]:
            server.stop()
        self.assertEqual(os.listdir(self.folder), [])

    def test_the_directory_is_made_if_it_is_missing(self):
        os.environ["KELC_AGENTS_DIR"] = self.path("agents")
        self.assertEqual(self.serve().agentFile, self.path("agents/acme.shop"))

    def test_an_empty_name_of_the_directory_is_told(self):
        os.environ["KELC_AGENTS_DIR"] = ""
        with self.assertRaises(PyServer.Error) as raised:
            self.serve()
        self.assertIn("KELC_AGENTS_DIR is empty", str(raised.exception))

    def test_by_default_it_is_in_the_directory_of_the_system(self):
        del os.environ["KELC_AGENTS_DIR"]
        self.assertEqual(_PyServerFiles.agentDirectory(), "/var/run/agents")

    def test_a_relative_directory_is_good_for_agents_that_move_about(self):
        here = os.getcwd()
        self.addCleanup(os.chdir, here)
        os.chdir(self.folder)
        os.environ["KELC_AGENTS_DIR"] = "."
        server = self.serve()
        self.assertTrue(os.path.isabs(self.contents(server).split("\n")[2]))
        os.chdir("/")
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))
        server.stop()
        self.assertEqual(os.listdir(self.folder), [])


class Length(ServerCase):

    def test_a_socket_name_of_107_bytes_is_taken_whole(self):
        name = self.path("s" * (107 - len(self.folder) - 1))
        server = self.serve("acme", "shop", socketName=name, port=0)
        self.assertEqual((len(name), server.socketName), (107, name))
        self.assertLessEqual(os.stat(server.agentFile).st_size, 128)
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))

    def test_one_of_108_bytes_is_refused(self):
        name = self.path("s" * (108 - len(self.folder) - 1))
        with self.assertRaises(ValueError) as raised:
            PyServer.PyServer("acme", "shop", socketName=name)
        self.assertEqual(
            str(raised.exception), "the socket name %s has 108 bytes, more than 107" % name)

    def test_a_file_beyond_128_bytes_is_refused(self):
        claimed = _PyServerFiles.AgentFile(self.path("acme.shop"))
        claimed.claim()
        try:
            name = "/" + "s" * (128 - len("%d\n65535\n/\n" % os.getpid()))
            claimed.write(65535, name)
            self.assertEqual(os.stat(claimed.path).st_size, 128)
            with self.assertRaises(PyServer.Error) as raised:
                claimed.write(65535, name + "s")
            self.assertIn("would have 129 bytes, more than 128", str(raised.exception))
        finally:
            claimed.remove()

    def test_in_a_long_directory_the_socket_is_in_a_folder_of_the_user_elsewhere(self):
        first, second = self.path("a" * 100), self.path("b" * 100)
        names = []
        for directory in (first, second):
            os.environ["KELC_AGENTS_DIR"] = directory
            server = self.serve()
            names.append(server.socketName)
            self.assertEqual(os.path.dirname(server.socketName), "/tmp/kel-%d" % os.geteuid())
            self.assertEqual(self.client(server).eval("1"), ("OK", "1"))
            self.assertLessEqual(os.stat(server.agentFile).st_size, 128)
        self.assertNotEqual(*names)
        for server in self._servers:
            server.stop()
        self.assertFalse([name for name in names if os.path.exists(name)])


class Locks(ServerCase):

    def test_a_running_server_holds_its_file_and_not_the_directory(self):
        server = self.serve()
        self.assertFalse(tries_lock(server.agentFile))
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))
        self.assertFalse(tries_lock(server.agentFile))
        with _PyServerFiles.DirectoryLock(self.folder, 0):
            pass

    def test_a_live_agent_is_left_alone_by_one_of_its_name(self):
        server = self.serve()
        before = untouched(server.agentFile)
        with self.assertRaises(PyServer.Error) as raised:
            self.serve()
        self.assertEqual(
            str(raised.exception),
            "the agent acme.shop is running already, as process %d" % os.getpid())
        outcome = in_child("""
            import PyServer
            try:
                PyServer.PyServer("acme", "shop").start()
            except PyServer.Error as error:
                print error
            """).expect()
        self.assertEqual(outcome.out, str(raised.exception) + "\n")
        self.assertEqual(untouched(server.agentFile), before)
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))

    def test_a_stale_file_is_taken_over_with_its_socket(self):
        in_child("""
            import os, signal
            import PyServer
            PyServer.PyServer("acme", "shop").start()
            os.kill(os.getpid(), signal.SIGKILL)
            """).expect(-signal.SIGKILL)
        self.assertTrue(tries_lock(self.path("acme.shop")))
        server = self.serve()
        self.assertEqual(self.client(server).eval("1"), ("OK", "1"))
        with open(server.agentFile) as found:
            self.assertEqual(found.readline(), "%d\n" % os.getpid())
        server.stop()
        self.assertEqual(os.listdir(self.folder), [])

    def test_a_stale_file_is_replaced_and_not_written_into(self):
        path = self.path("acme.shop")
        with open(path, "w") as stale:
            stale.write("7\n" * 100)
            os.fchmod(stale.fileno(), 0o666)
            server = self.serve()
            self.assertEqual(os.fstat(stale.fileno()).st_nlink, 0)
        self.assertEqual(os.stat(path).st_mode & 0o777, 0o600)
        self.assertEqual(os.stat(path).st_size, len(
            "%d\n0\n%s\n" % (os.getpid(), server.socketName)))

    def test_what_is_no_file_is_left_alone(self):
        path = self.path("acme.shop")
        for make, end in ((os.mkdir, os.rmdir), (os.mkfifo, os.unlink),
                          (lambda path: os.symlink("/etc/passwd", path), os.unlink)):
            make(path)
            before = os.lstat(path)
            with self.assertRaises(PyServer.Error):
                self.serve()
            self.assertEqual(os.lstat(path).st_ino, before.st_ino)
            end(path)

    def test_the_file_is_complete_and_locked_before_a_reader_may_look(self):
        seen = []
        stop = threading.Event()

        def look():
            # As a client does: under the directory's lock.
            while not stop.is_set():
                with _PyServerFiles.DirectoryLock(self.folder, DEADLINE):
                    try:
                        with open(self.path("acme.shop")) as found:
                            seen.append((found.read().count("\n"), tries_lock(found.name)))
                    except IOError:
                        pass

        reader = threading.Thread(target=look)
        reader.start()
        server = PyServer.PyServer("acme", "shop")
        for _ in range(5000):
            server.start()
            server.stop()
            if len(seen) >= 100:
                break
        stop.set()
        reader.join()
        self.assertEqual(set(seen), set([(3, False)]))

    def test_a_directory_that_others_keep_locked_is_told(self):
        self.addCleanup(setattr, PyServer, "_LOCK_SECONDS", PyServer._LOCK_SECONDS)
        PyServer._LOCK_SECONDS = 0.05
        with _PyServerFiles.DirectoryLock(self.folder, 0):
            with self.assertRaises(PyServer.Error) as raised:
                self.serve()
        self.assertEqual(
            str(raised.exception),
            "%s is locked by another process for 0.05 seconds already" % self.folder)
        self.assertEqual(os.listdir(self.folder), [])

    def test_a_directory_that_others_keep_locked_does_not_keep_the_files(self):
        self.addCleanup(setattr, PyServer, "_LOCK_SECONDS", PyServer._LOCK_SECONDS)
        server = self.serve()
        PyServer._LOCK_SECONDS = 0.05
        with _PyServerFiles.DirectoryLock(self.folder, 0):
            server.stop()
        self.assertEqual([name for name in os.listdir(self.folder) if name[0] != "."], [])
        self.assertEqual(os.listdir(self.path(".sockets-%d" % os.geteuid())), [])

    def test_an_interrupted_stop_may_be_done_again(self):
        server = self.serve()

        def interrupt(*_):
            raise KeyboardInterrupt()

        # It comes in a pause of the wait for the directory.
        self.addCleanup(signal.signal, signal.SIGALRM, signal.signal(signal.SIGALRM, interrupt))
        sleep, time.sleep = time.sleep, lambda seconds: os.kill(os.getpid(), signal.SIGALRM)
        try:
            with _PyServerFiles.DirectoryLock(self.folder, 0):
                self.assertRaises(KeyboardInterrupt, server.stop)
                self.assertTrue(os.path.exists(self.path("acme.shop")))
        finally:
            time.sleep = sleep
        server.stop()
        self.assertEqual(os.listdir(self.folder), [])

    def test_stop_leaves_the_files_of_a_successor_alone(self):
        first = self.serve(socketName=self.path("s"))
        os.unlink(self.path("s"))
        second = self.serve(socketName=self.path("s"))
        first.stop()
        self.assertEqual(self.client(second).eval("1"), ("OK", "1"))

    def test_stop_does_well_when_all_is_gone_already(self):
        os.environ["KELC_AGENTS_DIR"] = self.path("agents")
        server = self.serve()
        subprocess.check_call(["rm", "-r", self.path("agents")])
        server.stop()


class End(ServerCase):
    """How an agent ends decides whether its files go."""

    def check_end(self, last, status=0):
        outcome = in_child("""
            import os, signal, sys
            import PyServer
            server = PyServer.PyServer("acme", "shop", port=0)
            server.start()
            assert os.path.exists(server.agentFile) and os.path.exists(server.socketName)
            """ + textwrap.dedent(last).replace("\n", "\n" + " " * 12)).expect(status)
        self.assertEqual(os.listdir(self.folder), [])
        return outcome

    def test_the_end_of_the_script(self):
        self.assertEqual(self.check_end("").err, "")

    def test_sys_exit(self):
        self.assertEqual(self.check_end("sys.exit(3)", 3).err, "")

    def test_an_exception(self):
        self.assertIn("ZeroDivisionError", self.check_end("1 / 0", 1).err)

    def test_SIGTERM_with_a_handler_that_exits(self):
        self.check_end("""
            signal.signal(signal.SIGTERM, lambda *_: sys.exit(5))
            os.kill(os.getpid(), signal.SIGTERM)
            signal.pause()""", 5)

    def test_SIGINT(self):
        self.assertIn("KeyboardInterrupt", self.check_end("""
            os.kill(os.getpid(), signal.SIGINT)
            signal.pause()""", 1).err)

    def test_an_exit_with_clients_connected(self):
        self.assertEqual(self.check_end("""
            sys.path.insert(0, %r)
            from serving import Client
            clients = [Client(server.socketName), Client(server.port)]
            assert [client.eval("1") for client in clients] == [("OK", "1")] * 2
            sys.exit(0)""" % os.path.dirname(os.path.abspath(__file__))).err, "")

    def test_an_exit_of_a_child_does_not_end_the_agent(self):
        self.check_end("""
            import time
            child = os.fork()
            if not child:
                sys.exit(4)
            assert os.waitpid(child, 0)[1] == 4 << 8
            assert os.path.exists(server.agentFile) and os.path.exists(server.socketName)""")


class Modes(ServerCase):

    def mode(self, path):
        return "%04o" % stat.S_IMODE(os.lstat(path).st_mode)

    def test_files_folder_and_socket_are_for_the_owner_alone(self):
        for mask in (0o000, 0o022, 0o077):
            previous = os.umask(mask)
            try:
                server = self.serve()
            finally:
                os.umask(previous)
            self.assertEqual(self.mode(server.agentFile), "0600")
            self.assertEqual(self.mode(server.socketName), "0600")
            self.assertEqual(self.mode(os.path.dirname(server.socketName)), "0700")
            server.stop()

    def test_a_socket_never_has_another_mode(self):
        modes = []
        lstat = os.lstat

        def look(path):
            if os.path.basename(path) == "s":
                modes.extend([stat.S_IMODE(lstat(path).st_mode)] if os.path.exists(path) else [])
            return lstat(path)

        previous = os.umask(0)
        _PyServerFiles.os.lstat = look
        try:
            self.serve(socketName=self.path("s"))
        finally:
            os.lstat = lstat
            os.umask(previous)
        self.assertEqual(set(modes), set([0o600]))

    def test_a_folder_that_others_may_enter_is_refused(self):
        folder = self.path(".sockets-%d" % os.geteuid())
        os.mkdir(folder)
        for mode in (0o755, 0o710, 0o701, 0o777):
            os.chmod(folder, mode)
            with self.assertRaises(PyServer.Error) as raised:
                self.serve()
            self.assertEqual(
                str(raised.exception),
                "%s is not safe for a socket: its mode is %04o, not 0700" % (folder, mode))
            self.assertEqual(os.listdir(self.folder), [os.path.basename(folder)])

    def test_a_link_instead_of_the_folder_is_refused(self):
        os.mkdir(self.path("mine"), 0o700)
        os.symlink(self.path("mine"), self.path(".sockets-%d" % os.geteuid()))
        with self.assertRaises(PyServer.Error):
            self.serve()
        self.assertEqual(os.listdir(self.path("mine")), [])

    @unittest.skipIf(os.geteuid() != 0, "needs root")
    def test_a_folder_of_another_user_is_refused(self):
        folder = self.path(".sockets-0")
        os.mkdir(folder, 0o700)
        os.chown(folder, 65534, 65534)
        with self.assertRaises(PyServer.Error) as raised:
            self.serve()
        self.assertIn("it belongs to user 65534", str(raised.exception))
        with self.assertRaises(PyServer.Error) as raised:
            self.serve(socketName=folder + "/s")
        self.assertIn("it belongs to user 65534", str(raised.exception))

    def test_a_chosen_folder_that_others_may_write_to_is_refused_unless_sticky(self):
        folder = self.path("common")
        os.mkdir(folder)
        for mode in (0o777, 0o770, 0o757):
            os.chmod(folder, mode)
            with self.assertRaises(PyServer.Error) as raised:
                self.serve(socketName=folder + "/s")
            self.assertIn("lets others replace it", str(raised.exception))
        for mode in (0o1777, 0o755):
            os.chmod(folder, mode)
            server = self.serve(socketName=folder + "/s")
            self.assertEqual(self.mode(server.socketName), "0600")
            server.stop()


if __name__ == "__main__":
    unittest.main()
