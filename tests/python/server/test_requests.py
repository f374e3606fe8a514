# coding: utf-8
"""Greeting, requests and replies, byte by byte."""

import __main__
import struct
import unittest

from serving import ServerCase


class Greeting(ServerCase):

    def test_any_byte_and_an_R_is_answered_with_four_bytes(self):
        server = self.serve()
        for byte in "\0R?\n\xff":
            client = self.client(server, greet=False)
            client.socket.sendall(byte + "R")
            self.assertEqual(client.take(4), "Kel1")
            self.assertEqual(client.eval("1"), ("OK", "1"))

    def test_a_second_byte_other_than_an_R_is_closed_without_an_answer(self):
        server = self.serve()
        for greeting in ("RX", "?1", "\0\0", "\0r", "R\xff"):
            client = self.client(server, greet=False)
            client.socket.sendall(greeting)
            self.assertTrue(client.isClosed(), repr(greeting))

    def test_the_greeting_may_come_along_with_requests(self):
        client = self.client(self.serve(), greet=False)
        client.socket.sendall("\0R?1\0\0\0\x011?1\0\0\0\x012")
        self.assertEqual(client.take(4), "Kel1")
        self.assertEqual([client.reply(), client.reply()], [("OK", "1"), ("OK", "2")])


class Requests(ServerCase):

    def setUp(self):
        super(Requests, self).setUp()
        self.served = self.client(self.serve())
        self.addCleanup(vars(__main__).pop, "told", None)

    def test_the_frames_are_those_of_the_protocol_to_the_byte(self):
        for request, reply in (
                ("3F 31 00 00 00 03 31 2B 31", "00 00 00 03 4F 4B 32"),
                ("3F 32 00 00 00 08 74 6F 6C 64 20 3D 20 31", "00 00 00 02 4F 4B")):
            reply = bytearray.fromhex(unicode(reply))
            self.served.socket.sendall(bytearray.fromhex(unicode(request)))
            self.assertEqual(self.served.take(len(reply)), str(reply))
        self.assertEqual(__main__.told, 1)

    def test_an_expression_is_evaluated_in_main(self):
        __main__.told = [1, "two"]
        self.assertEqual(self.served.eval("told"), ("OK", "[1, 'two']"))
        self.assertEqual(self.served.eval("__name__"), ("OK", "__main__"))

    def test_blanks_before_an_expression_and_a_newline_behind_it_do_no_harm(self):
        self.assertEqual(self.served.eval(" \t1 + 1 \n"), ("OK", "2"))

    def test_statements_run_in_main_and_answer_nothing(self):
        text = "told = []\nfor i in range(3):\n    told.append(i)\ndef f():\n    return told"
        self.assertEqual(self.served.execute(text), ("OK", ""))
        self.assertEqual(self.served.eval("f()"), ("OK", "[0, 1, 2]"))

    def test_lines_may_end_as_those_of_other_systems(self):
        text = "told = 1\r\nif told:\r\n    told = 7\r\n"
        self.assertEqual(self.served.execute(text), ("OK", ""))
        self.assertEqual(__main__.told, 7)

    def test_a_str_comes_back_as_it_is(self):
        data = "".join(map(chr, range(256)))
        __main__.told = data
        self.assertEqual(self.served.eval("told"), ("OK", data))

    def test_unicode_comes_back_as_utf8(self):
        self.assertEqual(self.served.eval(r"u'\u20ac \U0001d11e'"), ("OK", "€ 𝄞"))

    def test_text_is_utf8(self):
        self.assertEqual(self.served.eval("len(u'€')"), ("OK", "1"))
        self.assertEqual(self.served.eval("u'€'"), ("OK", "€"))
        self.assertEqual(self.served.eval("'€'"), ("OK", "€"))
        self.assertEqual(self.served.eval("\xef\xbb\xbfu'€'"), ("OK", "€"))

    def test_text_that_is_not_utf8_is_taken_byte_by_byte(self):
        self.assertEqual(self.served.eval("'\xff'"), ("OK", "\xff"))

    def test_text_may_declare_that_it_is_utf8(self):
        self.assertEqual(self.served.execute("# coding: utf-8\ntold = u'€'"), ("OK", ""))
        self.assertEqual(__main__.told, u"€")

    def test_an_object_whose_text_is_unicode_comes_back_as_utf8(self):
        class Told(object):
            def __str__(self):
                return u"€"
        __main__.told = Told()
        self.assertEqual(self.served.eval("told"), ("OK", "€"))

    def test_nothing_of_the_server_is_in_force_for_the_text(self):
        self.assertEqual(self.served.eval("1 / 2"), ("OK", "0"))
        self.assertEqual(self.served.eval("'_answer' in dir()"), ("OK", "False"))

    def test_a_long_result_comes_whole(self):
        self.assertEqual(self.served.eval("'ab' * 5000000"), ("OK", "ab" * 5000000))

    def test_a_result_beyond_the_limit_is_a_failure_that_says_so(self):
        status, text = self.served.eval("'a' * (64 * 1024 * 1024 + 1)")
        self.assertEqual(status, "ER")
        self.assertEqual(text, "a result of 67108865 bytes is too long, the limit is 67108864")
        self.assertEqual(self.served.eval("1"), ("OK", "1"))

    def test_the_longest_request_is_served_and_a_longer_one_refused(self):
        limit = 1024 * 1024
        blanks = " " * (limit - 1)
        self.assertEqual(self.served.eval("7" + blanks), ("OK", "7"))
        self.served.socket.sendall("?1" + struct.pack(">I", limit + 1))
        self.assertEqual(self.served.reply(), (
            "ER", "a request of 1048577 bytes is too long, the limit is 1048576"))
        self.assertTrue(self.served.isClosed())

    def test_requests_sent_ahead_are_answered_in_turn(self):
        self.served.socket.sendall("".join("?1\0\0\0\x04%04d" % (1000 + i) for i in range(500)))
        replies = [self.served.reply() for _ in range(500)]
        self.assertEqual(replies, [("OK", str(1000 + i)) for i in range(500)])

    def test_the_same_is_served_over_tcp(self):
        server = self.serve("acme", "till", port=0)
        client = self.client(server.port)
        self.assertEqual(client.eval("6 * 7"), ("OK", "42"))
        self.assertEqual(client.execute("told = 8"), ("OK", ""))
        self.assertEqual(client.eval("told"), ("OK", "8"))


class Failures(ServerCase):

    def setUp(self):
        super(Failures, self).setUp()
        self.served = self.client(self.serve())
        self.addCleanup(vars(__main__).pop, "told", None)

    def failure(self, text, execute=False):
        status, payload = (self.served.execute if execute else self.served.eval)(text)
        self.assertEqual(status, "ER", payload)
        self.assertEqual(self.served.eval("1"), ("OK", "1"))  # the connection goes on
        return payload

    def test_a_failure_tells_traceback_type_and_message(self):
        self.assertEqual(self.failure("1 / 0"), (
            'Traceback (most recent call last):\n'
            '  File "<agent>", line 1, in <module>\n'
            '    1 / 0\n'
            'ZeroDivisionError: integer division or modulo by zero'))

    def test_a_failure_within_statements_tells_their_line(self):
        text = "def told(n):\n    return 1 / n\n\ntold(1)\ntold(0)\n"
        self.assertEqual(self.failure(text, execute=True), (
            'Traceback (most recent call last):\n'
            '  File "<agent>", line 5, in <module>\n'
            '    told(0)\n'
            '  File "<agent>", line 2, in told\n'
            'ZeroDivisionError: integer division or modulo by zero'))

    def test_a_failure_in_a_module_tells_its_source(self):
        text = self.failure("__import__('json').loads('{')")
        self.assertIn('    obj, end = self.scan_once(s, idx)\n', text)
        self.assertTrue(text.endswith("\nValueError: Expecting object: line 1 column 1 (char 0)"))

    def test_wrong_syntax_is_shown_in_its_place(self):
        self.assertEqual(self.failure("told +", execute=True), (
            '  File "<agent>", line 1\n'
            '    told +\n'
            '         ^\n'
            'SyntaxError: invalid syntax'))
        self.assertTrue(self.failure("told = 1").endswith("SyntaxError: invalid syntax"))
        self.assertTrue(self.failure("").endswith("SyntaxError: unexpected EOF while parsing"))

    def test_a_NUL_in_the_text_is_a_failure(self):
        self.assertEqual(
            self.failure("'\0'"), "TypeError: compile() expected string without null bytes")

    def test_what_would_end_the_agent_is_a_failure_only(self):
        for text, last in (
                ("raise SystemExit(3)", "SystemExit: 3"), ("import sys; sys.exit()", "SystemExit"),
                ("raise KeyboardInterrupt('now')", "KeyboardInterrupt: now"),
                ("import thread; thread.exit()", "SystemExit"),
                ("raise GeneratorExit", "GeneratorExit")):
            self.assertTrue(self.failure(text, execute=True).endswith("\n" + last), text)

    def test_an_exception_may_be_of_an_old_class(self):
        self.failure("class Told: pass", execute=False)
        self.served.execute("class told:\n    def __str__(self): return 'old'")
        self.assertTrue(self.failure("raise told()", execute=True).endswith("\ntold: old"))

    def test_a_message_of_unicode_comes_as_utf8(self):
        self.assertTrue(
            self.failure("raise ValueError(u'€')", execute=True).endswith("\nValueError: €"))

    def test_a_message_that_cannot_be_had_is_told_as_such(self):
        self.served.execute(
            "class told(Exception):\n    def __str__(self): raise SystemExit(1)")
        self.assertTrue(self.failure("raise told()", execute=True).endswith(
            "\ntold: <without a text: its __str__ fails>"))

    def test_a_result_without_a_text_is_a_failure(self):
        self.served.execute("class told(object):\n    def __str__(self): raise KeyError('x')")
        text = self.failure("told()")
        self.assertTrue(text.startswith("Traceback"))
        self.assertTrue(text.endswith("\nKeyError: 'x'"))
        self.served.execute("class told(object):\n    def __str__(self): return 5")
        self.assertIn("TypeError: __str__ returned non-string", self.failure("told()"))

    def test_of_a_deep_traceback_the_innermost_frames_are_told(self):
        self.served.execute("def told(n):\n    return told(n - 1) if n else 1 / 0")
        text = self.failure("told(500)")
        self.assertTrue(text.startswith("Traceback (most recent call last):\n  ...\n  File "))
        self.assertTrue(text.endswith("\nZeroDivisionError: integer division or modulo by zero"))
        self.assertEqual(text.count("  File "), 12)
        self.assertIn("recursion depth exceeded", self.failure("told(10 ** 6)"))

    def test_frames_with_long_names_are_told_as_far_as_there_is_room(self):
        name = "n" * 130
        self.served.execute("def %s(n):\n    return %s(n - 1) if n else 1 / 0" % (name, name))
        text = self.failure(name + "(500)")
        self.assertGreater(len(text), 1600)
        self.assertLessEqual(len(text), 2000)
        self.assertTrue(text.endswith("\nZeroDivisionError: integer division or modulo by zero"))
        self.addCleanup(vars(__main__).pop, name)

    def test_the_source_of_another_text_is_not_made_up(self):
        self.served.execute("class told(object):\n    __str__ = lambda self: 1 / 0")
        self.assertEqual(self.failure("0 or\\\n  told()"), (
            'Traceback (most recent call last):\n'
            '  File "<agent>", line 2, in <lambda>\n'
            'ZeroDivisionError: integer division or modulo by zero'))

    def test_a_long_message_is_cut_and_the_rest_counted(self):
        text = self.failure("raise ValueError('a' * 3000000)", execute=True)
        self.assertLessEqual(len(text), 2000)
        self.assertRegexpMatches(text, r"\nValueError: a{900,}\.\.\. \(\d+ bytes more\)$")

    def test_a_long_line_is_cut_also_where_its_syntax_is_wrong(self):
        self.assertLessEqual(len(self.failure("1 / 0 " + " + 1" * 10000)), 2000)
        self.assertLessEqual(len(self.failure("1 1" + " + 1" * 10000)), 2000)

    def test_nothing_keeps_a_failed_text_or_a_result_alive(self):
        self.served.execute(
            "import weakref\n"
            "class Told(object):\n"
            "    pass\n"
            "def told():\n"
            "    thing = Told()\n"
            "    told.seen = weakref.ref(thing)\n"
            "    return 1 / 0")
        self.failure("told()")
        self.assertEqual(self.served.eval("told.seen()"), ("OK", "None"))


if __name__ == "__main__":
    unittest.main()
