"""kel-eval against servers that are no good: each text is sent once, and the status tells."""

import fcntl
import os
import socket
import threading

from programs import DEADLINE, ProgramCase, start_group

GREETING = "Kel1"


class Server(object):
    """Answers each greeting, and each request with the given bytes, behind which it closes."""

    def __init__(self, path, reply, greeting=GREETING):
        self.requests = []
        self._reply = reply
        self._greeting = greeting
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.settimeout(DEADLINE)
        self._listener.bind(path)
        self._listener.listen(5)
        thread = threading.Thread(target=self._serve)
        thread.daemon = True
        thread.start()

    def close(self):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()

    def _serve(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except (socket.error, socket.timeout):
                return
            connection.settimeout(DEADLINE)
            connection.recv(2)
            connection.sendall(self._greeting)
            if self._greeting:
                self.requests.append(connection.recv(4096))
                connection.sendall(self._reply)
            connection.close()


class Hostile(ProgramCase):

    def outcome(self, reply, **keywords):
        path = self.path("socket")
        server = Server(path, reply, **keywords)
        try:
            outcome = self.eval("--socket", path, "1")
        finally:
            server.close()
            os.unlink(path)
        self.assertLessEqual(len(server.requests), 1)
        return outcome

    def test_a_whole_answer_counts_though_the_server_closes_behind_it(self):
        self.assertEqual(self.outcome("\0\0\0\5OKabc").expect().out, "abc\n")
        self.assertEqual(self.outcome("\0\0\0\2OK").expect().out, "\n")

    def test_an_answer_cut_off_at_any_point_is_a_lost_connection(self):
        answer = "\0\0\0\5OKabc"
        for length in range(len(answer)):
            self.assertSays(self.outcome(answer[:length]), 3, "lost the connection to socket ")

    def test_a_failure_cut_off_in_its_head_is_no_failure_of_the_text(self):
        for length in range(7):
            self.assertSays(self.outcome("\0\0\0\7ERerror"[:length]), 3, "lost the connection")

    def test_a_server_that_closes_at_the_greeting_is_a_lost_connection(self):
        self.assertSays(self.outcome("", greeting=""), 3, "lost the connection")

    def test_an_agent_file_with_the_programs_own_process_id_is_told(self):
        held = open(self.agent_file(), "w")
        self.addCleanup(held.close)
        fcntl.flock(held, fcntl.LOCK_EX)

        def write_own_id():
            start_group()
            with open(self.agent_file(), "w") as lines:
                lines.write("%d\n0\n/nowhere\n" % os.getpid())

        outcome = self.eval("acme.shop", "1", prepare=write_own_id)
        self.assertSays(outcome, 3, "names this very process")
