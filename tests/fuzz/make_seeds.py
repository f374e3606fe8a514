"""Writes the seeds of the guided fuzzers: make_seeds.py [FOLDER]. What else lies there stays."""

import os
import struct
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
LENGTHS = (0, 1, 2, 3, 0x7fffffff, 0x80000000, 0x80000001, 0x80000002, 0xffffffff)


def reply(payload, status="OK", length=None):
    return struct.pack(">I2s", len(payload) + 2 if length is None else length, status) + payload


def replies():
    """Name and contents; the formats are told in fuzz_*.cpp and request_driver.py."""
    def case(stream, size=64, most=0, flags=0):
        return struct.pack("<hBB", size, most, flags) + stream

    yield "nothing", case("")
    yield "result", case(reply("42"))
    yield "empty-result", case(reply(""))
    yield "failure", case(reply("ValueError: no", "ER"))
    yield "empty-failure", case(reply("", "ER"))
    yield "other-status", case(reply("42", "Ok"))
    yield "several", case(reply("1") + reply("no", "ER") + reply("") + reply("22"))
    yield "with-nul", case(reply("a\0b") + reply("\0", "ER"))
    for length in LENGTHS:
        yield "length-%08x" % length, case(reply("payload", length=length))
        yield "length-%08x-failure" % length, case(reply("payload", "ER", length) + reply("x"))
    for end in range(1, 10):
        yield "cut-at-%d" % end, case(reply("12345")[:end])
        yield "reset-at-%d" % end, case(reply("12345")[:end], flags=2)
    for payload in (8, 9, 10, 11, 20, 21, 40):
        yield "payload-%d-of-10" % payload, case(reply(
            ("0123456789" * 4)[:payload]) + reply("next"), 10)
        yield "failure-%d-of-10" % payload, case(
            reply(("0123456789" * 4)[:payload], "ER"), 10, 3, 1)
    for size in (-32768, -1, 0, 1, 2):
        for payload in (0, 1, 2, 5):
            yield "payload-%d-of-%d" % (payload, size), case(reply("x" * payload) + reply(""), size)
    for size in (-32768, -1, 0):
        for length in (0, 1, 0x80000000, 0xffffffff):
            yield "length-%08x-of-%d" % (length, size), case(reply("x", "OK", length), size)
            yield "failure-length-%08x-of-%d" % (length, size), case(reply("", "ER", length), size)
    yield "one-at-a-time", case(reply("0123456789") + reply("no", "ER"), 10, 1, 1)
    for most in (2, 4, 5):
        yield "pieces-of-%d" % most, case(reply("0123456789") + reply("no", "ER"), 20, most, 1)
    yield "overflow-cut", case(reply("0123456789", length=5000), 4)
    yield "overflow-reset", case(reply("0123456789", length=5000), 4, 0, 2)
    yield "overflow-without-room", case(reply("z" * 600) + reply(""), 0)


def agentFiles():
    def case(pid, port, name):
        return "%s\n%s\n%s\n" % (pid, port, name)

    yield "empty", ""
    yield "whole", case(4711, 8080, "/tmp/socket")
    yield "no-name", case(4711, 8080, "")
    yield "own", case("@", 8080, "/tmp/socket")
    yield "own-alone", "@"
    yield "own-low-bits", case("^", 8080, "/tmp/socket")
    yield "two-lines", "4711\n8080\n"
    yield "two-lines-open", "4711\n8080"
    yield "one-line", "4711\n"
    yield "one-line-open", "4711"
    yield "newline", "\n"
    yield "newlines", "\n\n\n\n"
    yield "port-of-eight", case(1, "010", "name")
    yield "port-of-sixteen", case(1, "0x10", "name")
    yield "name-open", "4711\n8080\n/tmp/socket"
    for length in (106, 107, 108, 109):
        yield "name-%d" % length, case(4711, 80, "/" * length)
        yield "name-%d-own" % length, case("@", 80, "/" * length)
    for length in (127, 128, 129, 300):
        yield "file-%d" % length, ("1\n2\n" + "/" * 200 + "\n")[:length]
        yield "numbers-%d" % length, "9" * length
    yield "third-end-at-128", "1" * 20 + "\n2\n" + "/" * 104 + "\n"
    yield "third-end-at-129", "1" * 20 + "\n2\n" + "/" * 105 + "\n"
    yield "no-number", case("pid", "port", "/tmp/socket")
    yield "signs", case("-1", "+80", "name")
    yield "blanks", case(" \t 12", "\v\f 80", " name ")
    yield "wide", case(2 ** 32 + 1, 2 ** 32 + 80, "name")
    yield "widest", case(2 ** 63 - 1, -2 ** 63, "name")
    yield "wider", case(2 ** 64, -2 ** 64, "name")
    yield "port-limits", case(1, 65536, "name")
    yield "port-negative", case(1, -1, "name")
    yield "port-in-third-line", "1\n\n80\n"
    yield "nul", case("1\0", "8\0000", "na\0me")
    yield "carriage-returns", "1\r\n80\r\nname\r\n"
    yield "bytes", case("\xff", "\xfe", "\xc3\xa9\x80")
    yield "fourth-line", case(1, 80, "name") + "more\n"


def request(text, header="?1", length=None):
    return struct.pack(">2sI", header, len(text) if length is None else length) + text


def requests():
    def case(stream, most=0, flags=0):
        return chr(most) + chr(flags) + stream

    hello = "KR"
    yield "nothing", case("")
    yield "greeting", case(hello)
    yield "greeting-cut", case("K")
    yield "greeting-wrong", case("KS")
    yield "eval", case(hello + request("1+1"))
    yield "exec", case(hello + request("x = 1", "?2"))
    yield "empty", case(hello + request("") + request("", "?2"))
    yield "several", case(hello + request("a") + request("b", "?2") + request("c"))
    yield "many", case(hello + "".join(request("t" * n) for n in range(300, 1000, 100)) * 3)
    yield "failures", case(hello + request("F") + request("S") + request("Fno"))
    yield "deep-failures", case(hello + "".join(request("D" * n) for n in (1, 9, 275, 1000)))
    yield "large", case(hello + request("L") + request("M") + request("x"))
    yield "compile", case(hello + request("Cx = 1") + request("Cx =") + request("C\0"))
    yield "compile-utf-8", case(hello + request("Cu'\xc3\xa9'") + request("C'\xff'"))
    yield "rubbish", case(hello + "GET / HTTP/1.0\r\n\r\n")
    yield "rubbish-later", case(hello + request("a") + "?3\0\0\0\0" + request("b"))
    yield "rubbish-and-more", case(hello + request("a") + "?3" + "b" * 5000)
    for length in LENGTHS + (999, 1000, 1001):
        yield "length-%08x" % length, case(hello + request("abc", length=length) + request("d"))
    for length in (999, 1000, 1001):
        yield "text-%d" % length, case(hello + request("t" * length) + request("u"))
    for end in range(1, 9):
        yield "cut-at-%d" % end, case(hello + request("abc")[:end])
        yield "silent-at-%d" % end, case(hello + request("abc")[:end], 0, 8)
    several = hello + request("abc") + request("Fno") + request("L", "?2")
    for name, most, flags in (
            ("one-at-a-time", 1, 0), ("signals", 0, 1), ("waits", 2, 3), ("gone", 0, 4),
            ("silent", 0, 8), ("slow", 1, 16), ("slow-enough", 9, 16), ("all", 200, 27),
            ("leaves", 3, 32), ("leaves-silent", 0, 40)):
        yield name, case(several, most, flags)
    yield "leaves-greeted", case(hello, 0, 32)
    yield "leaves-cut", case(hello + request("abc")[:7], 0, 32)
    yield "rubbish-silent", case(hello + "rubbish" * 10, 3, 10)
    yield "rubbish-gone", case(hello + "rubbish" * 10, 3, 4)


def main(folder):
    for name, seeds in (
            ("reply", replies), ("agent_file", agentFiles), ("requests", requests)):
        place = os.path.join(folder, name)
        if not os.path.isdir(place):
            os.makedirs(place)
        for seed, contents in seeds():
            with open(os.path.join(place, seed), "wb") as out:
                out.write(contents)


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else os.path.join(HERE, "corpus"))
