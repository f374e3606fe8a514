# -*- coding: utf-8 -*-
"""kel-browse: what its server gives to whom, without a browser."""

import httplib
import json
import os
import re
import signal
import socket
import urlparse

import _KelBrowseServer
from kel_testing import wait_until
from programs import BROWSE, DEADLINE, ProgramCase

SHOP = """
    # -*- coding: utf-8 -*-
    import Kel, _Kel, acme
    root = Kel.root()
    shelf = root.newEntity("Acme::Shelf", "shelf")
    nail = shelf.newEntity("Acme::Item", "nail")
    bolt = shelf.newEntity("Acme::Item", "bolt")
    nail.parent, bolt.parent = bolt, nail
    nail.addPart(bolt)
    nail.note = "<b>'Grö\\xc3\\x9fe' & \\"more\\"</b>"
    store = root.newEntity("Acme::Store", "store")
    store.restock("M4", 12)
    for number in range(250):
        store.price["p%d" % number] = number
    store.tag.add("new")
    store.order.enq("first")
    """


class BrowseCase(ProgramCase):

    script = SHOP

    def setUp(self):
        super(BrowseCase, self).setUp()
        self.shop = self.serving(self.script)
        self.browse = self.program([BROWSE, "acme.shop"])
        wait_until(lambda: self.browse.out.endswith("\n") or not self.browse.lives, DEADLINE)
        address = urlparse.urlsplit(self.browse.out.strip())
        self.host = address.netloc
        self.secret = urlparse.parse_qs(address.query)["token"][0]
        self.cookie = "kel-browse-%d=%s" % (address.port, self.secret)

    def request(self, method, path, body=None, **headers):
        """The status, the headers and the text of the reply. A header of None is left out."""
        headers = dict(dict(Host=self.host, Cookie=self.cookie, Origin="http://" + self.host),
                       **headers)
        connection = httplib.HTTPConnection(self.host, timeout=DEADLINE)
        connection.putrequest(method, path, skip_host=True)
        if body is not None:
            connection.putheader("Content-Length", str(len(body)))
        for name, value in headers.items():
            if value is not None:
                connection.putheader(name, value)
        connection.endheaders(body)
        reply = connection.getresponse()
        return reply.status, reply, reply.read()

    def status(self, method, path, body=None, **headers):
        return self.request(method, path, body, **headers)[0]

    def ask(self, what, **question):
        status, _, text = self.request("POST", "/" + what, json.dumps(question))
        self.assertEqual(status, 200, text)
        return json.loads(text)

    def values(self, entity):
        """By the name of each attribute, the value that the page gets."""
        answer = self.ask("view", entity=entity)["entity"]
        return dict((each["name"], each["value"]) for each in answer["attributes"])

    def call(self, function, *arguments, **keywords):
        return self.ask("call", entity=keywords.get("entity", "/shelf/nail"), function=function,
                        arguments=arguments)


class WhoIsServed(BrowseCase):

    def test_the_address_that_is_printed_gives_the_page_and_a_cookie_for_this_page_alone(self):
        status, reply, page = self.request("GET", "/?token=" + self.secret, Cookie=None)
        self.assertEqual(status, 200)
        self.assertIn("<title>acme.shop</title>", page)
        self.assertEqual(reply.getheader("Set-Cookie"),
                         self.cookie + "; Path=/; HttpOnly; SameSite=Strict")
        self.assertEqual(self.status("GET", "/"), 200)

    def test_without_the_secret_nothing_is_told(self):
        wrong = self.cookie[:-1] + ("0" if self.cookie[-1] != "0" else "1")
        for cookie in None, "", wrong, "kel-browse-1=" + self.secret, "a b=;;\x7f":
            for method, path in ("GET", "/"), ("GET", "/types"), ("POST", "/view"), ("GET", "/no"):
                status, reply, text = self.request(method, path, "{}", Cookie=cookie)
                self.assertEqual(status, 403, (cookie, path))
                self.assertEqual(reply.getheader("Set-Cookie"), None)
                self.assertNotIn("acme", text)
        self.assertEqual(self.status("GET", "/?token=" + wrong[-48:], Cookie=None), 403)
        self.assertEqual(self.status("GET", "/?token=", Cookie=None), 403)

    def test_a_request_by_another_name_of_the_machine_is_refused(self):
        port = self.host.split(":")[1]
        for host in "evil.example:" + port, "127.0.0.1", "", None:
            self.assertEqual(self.status("GET", "/?token=" + self.secret, Host=host), 403, host)
        self.assertEqual(self.status("GET", "/", Host="localhost:" + port), 200)

    def test_a_question_of_another_page_is_refused_though_it_has_the_cookie(self):
        body = json.dumps({"entity": "/shelf/nail", "function": "resize", "arguments": ["7"]})
        for origin in "http://evil.example", "null", "https://" + self.host, None:
            self.assertEqual(self.status("POST", "/call", body, Origin=origin), 403, origin)
        self.assertEqual(self.values("/shelf/nail")["size"]["text"], "0")

    def test_a_call_is_no_affair_of_GET(self):
        for path in "/call", "/view":
            self.assertEqual(self.status("GET", path), 404)

    def test_another_user_is_closed_before_a_byte_is_read(self):
        if os.geteuid() != 0:
            self.skipTest("only root can be another user")
        host, port = self.host.split(":")
        child = os.fork()
        if child == 0:
            status = 1
            try:
                os.setuid(65534)
                peer = socket.create_connection((host, int(port)), DEADLINE)
                peer.settimeout(DEADLINE)
                try:
                    peer.sendall("GET /?token=%s HTTP/1.0\r\nHost: %s\r\n\r\n" % (
                        self.secret, self.host))
                    status = 2 if peer.recv(1) else 0
                except socket.error:
                    status = 0  # closed with our bytes unread
            finally:
                os._exit(status)
        self.assertEqual(os.waitpid(child, 0)[1], 0)

    def test_the_page_may_load_nothing_from_elsewhere_and_stand_in_no_other(self):
        _, reply, page = self.request("GET", "/")
        rules = reply.getheader("Content-Security-Policy")
        self.assertIn("default-src 'none'", rules)
        self.assertIn("frame-ancestors 'none'", rules)
        (nonce,) = set(re.findall(r'<(?:script|style) nonce="([0-9a-f]+)">', page))
        self.assertIn("script-src 'nonce-%s'" % nonce, rules)
        self.assertEqual(reply.getheader("Referrer-Policy"), "no-referrer")
        self.assertEqual(reply.getheader("Cache-Control"), "no-store")


class WhatIsShown(BrowseCase):

    def test_the_tree_an_entity_and_a_collection_as_they_stand(self):
        answer = self.ask("view", entity="/shelf/nail", directories={"/": 0, "/shelf": 0},
                          collections={"part": 0})
        self.assertEqual([(each["path"], each["type"], each["isDirectory"])
                          for each in answer["directories"]["/"]["entries"]],
                         [("/shelf", "Acme::Shelf", True), ("/store", "Acme::Store", False)])
        self.assertEqual([each["name"] for each in answer["directories"]["/shelf"]["entries"]],
                         ["nail", "bolt"])
        self.assertEqual(answer["entity"]["type"], "Acme::Item")
        self.assertEqual(answer["collections"]["part"]["members"][0][1]["path"], "/shelf/bolt")
        self.assertEqual(answer["process"], self.shop.pid)

    def test_a_value_is_the_present_one(self):
        self.assertEqual(self.values("/shelf/nail")["size"]["text"], "0")
        self.eval("acme.shop", "-x", "nail.size = 7").expect()
        self.assertEqual(self.values("/shelf/nail")["size"]["text"], "7")

    def test_texts_pointers_in_a_circle_and_none(self):
        values = self.values("/shelf/nail")
        self.assertEqual(values["note"]["text"], u"\"<b>'Grö\xdfe' & \\\"more\\\"</b>\"")
        self.assertEqual(values["parent"], {"kind": "entity", "path": "/shelf/bolt",
                                            "text": "/shelf/bolt  (Acme::Item)"})
        self.eval("acme.shop", "-x", "nail.parent = None").expect()
        self.assertEqual(self.values("/shelf/nail")["parent"], {"kind": "none", "text": "None"})

    def test_a_large_collection_comes_in_pages(self):
        self.assertEqual(self.values("/store")["price"],
                         {"kind": "collection", "text": "250 members"})
        for start, count in (0, 100), (200, 50), (250, 0), (10 ** 9, 0):
            page = self.ask("view", entity="/store", collections={"price": start})
            page = page["collections"]["price"]
            self.assertEqual((page["start"], page["count"], len(page["members"])),
                             (start, 250, count))

    def test_collections_of_objects_sets_and_queues(self):
        shown = self.ask("view", entity="/store", collections={"item": 0, "tag": 0, "order": 0})
        members = dict((name, [[key["text"], value["text"]] for key, value in each["members"]])
                       for name, each in shown["collections"].items())
        self.assertEqual(members, {
            "item": [['"M4"', 'Acme::StockItem(sku="M4", count=12)']],
            "tag": [["0", '"new"']], "order": [["0", '"first"']]})

    def test_what_is_not_there_is_an_error_and_the_rest_is_told(self):
        answer = self.ask("view", entity="/nothing", directories={"/": 0, "/no": 0, "/store": 0},
                          collections={"part": 0})
        self.assertIn("'/nothing' not found", answer["entity"]["error"])
        self.assertIn("error", answer["collections"]["part"])
        self.assertIn("error", answer["directories"]["/no"])
        self.assertIn("error", answer["directories"]["/store"])
        self.assertEqual(answer["directories"]["/"]["count"], 2)

    def test_a_path_is_a_path_whatever_it_quotes(self):
        for path in "'+nail.resize(9)+'", "\\", "'''", '"+nail.resize(9)+"', u"\u2603\n\x00":
            self.assertIn("error", self.ask("view", entity=path)["entity"])
        self.assertEqual(self.values("/shelf/nail")["size"]["text"], "0")

    def test_the_types_are_a_page_of_their_own(self):
        status, _, page = self.request("GET", "/types")
        self.assertEqual(status, 200)
        self.assertIn('<section id="Acme::Item">', page)

    def test_questions_that_are_none(self):
        for path, body, status in (
                ("/view", "no", 400), ("/view", "", 400), ("/nope", "{}", 404),
                ("/view", '"' + "x" * 70000 + '"', 413), ("/view", None, 413),
                ("/view", "{}", 500), ("/view", "[]", 500), ("/call", '{"entity": 3}', 500)):
            self.assertEqual(self.status("POST", path, body), status, (path, (body or "")[:20]))
        self.assertEqual(self.values("/shelf/nail")["size"]["text"], "0")


class RaisingAttribute(BrowseCase):

    script = SHOP + """
    import _KelBrowse
    def refuse_weight(item, name, *default):
        if name == "weight":
            raise ValueError("br\\xc3\\xb6ken")
        return getattr(item, name, *default)
    _KelBrowse.getattr = refuse_weight
    """

    def test_it_is_shown_as_what_it_raised_and_the_others_as_ever(self):
        values = self.values("/shelf/nail")
        self.assertEqual(values["weight"], {"kind": "error", "text": u"ValueError: br\xf6ken"})
        self.assertEqual(values["size"]["text"], "0")


class Calls(BrowseCase):

    def test_functions_are_told_apart_from_what_is_read(self):
        answer = self.ask("view", entity="/shelf/nail")["entity"]
        self.assertEqual([each["name"] for each in answer["functions"]],
                         ["lookup", "resize", "add", "describe"])
        self.assertEqual([each["name"] for each in answer["attributes"] if each["name"] in
                          ("lookup", "resize", "add", "describe")], [])

    def test_arguments_of_each_sort(self):
        self.assertEqual(self.call("add", "2", " 0x10")["result"]["text"], "18")
        self.assertEqual(self.call("describe", "blue")["result"]["text"], '"a blue item"')
        self.assertEqual(self.call("lookup", "bolt", "0")["result"]["path"], "/shelf/bolt")
        self.assertEqual(self.call("resize", "5")["result"], {"kind": "none", "text": "None"})
        self.assertEqual(self.values("/shelf/nail")["size"]["text"], "5")
        result = self.call("restock", "it's \"M5\"", "3", entity="/store")["result"]
        self.assertEqual(result["text"], 'Acme::StockItem(sku="it\'s \\"M5\\"", count=3)')

    def test_what_a_function_or_its_arguments_raise_is_told(self):
        for arguments in ("1",), ("1", "x"), ("1", ""), ("1", "2 +"), ("1", "nail.size"):
            self.assertIn("error", self.call("add", *arguments))
        self.assertIn("error", self.call("describe", "green"))

    def test_nothing_else_can_be_called(self):
        for name in "size", "nope", "__class__", "addPart", "valueToGnmiString":
            self.assertIn("error", self.call(name))
        self.assertIn("error", self.ask("call", entity="/nope", function="add", arguments=[]))


class AgentThatGoes(BrowseCase):

    def test_it_is_told_and_when_it_is_back_the_page_gets_its_answers(self):
        body = json.dumps({"entity": "/shelf/nail"})
        self.shop.send(signal.SIGTERM)
        self.shop.wait().expect()
        status, _, text = self.request("POST", "/view", body)
        self.assertEqual((status, json.loads(text)), (503, {"error": "acme.shop is not there"}))
        self.serving(self.script)
        self.assertEqual(self.status("POST", "/view", body), 200)

    def test_one_that_does_not_answer_is_not_waited_for_without_end(self):
        program = self.write("kel-eval", "#!/bin/sh\nexec sleep 600\n")
        os.chmod(program, 0o700)
        agent = _KelBrowseServer.Agent(program, "acme.shop", ["acme.shop"])
        with self.assertRaises(_KelBrowseServer.Unanswered) as raised:
            agent.ask("view", "{}", 0.2)
        self.assertEqual(raised.exception.status, 504)


class Command(ProgramCase):

    def test_an_agent_that_is_not_there_is_told_as_kel_eval_tells_it(self):
        self.env["KELC_AGENTS_DIR"] = self.path("none")
        outcome = self.command(BROWSE, "--no-wait", "acme.shop")
        self.assertSays(outcome, 3, "cannot connect to acme.shop")

    def test_a_wrong_command_line_is_status_2(self):
        for args in ((), ("shop",), ("--port", "x", "a.b"), ("--port", "70000", "a.b")):
            self.command(BROWSE, *args).expect(2)

    def test_a_port_that_is_taken_is_told(self):
        self.serving()
        taken = socket.socket()
        taken.bind(("127.0.0.1", 0))
        taken.listen(1)
        port = taken.getsockname()[1]
        self.assertSays(self.command(BROWSE, "--port", str(port), "acme.shop"), 1,
                        "cannot listen on port %d: Address already in use" % port)

    def test_signals_end_it(self):
        self.serving()
        for number in signal.SIGINT, signal.SIGTERM:
            browse = self.program([BROWSE, "acme.shop"])
            wait_until(lambda: browse.out.endswith("\n"), DEADLINE)
            browse.send(number)
            self.assertEqual(browse.wait().expect(0).err, "")

    def test_the_browser_gets_the_address_by_a_file_of_the_user_alone(self):
        self.serving()
        seen = self.path("seen")
        browser = self.write("browser", "#!/bin/sh\nls -l \"${1#file://}\" > %s.new\n"
                             "cat \"${1#file://}\" >> %s.new\nmv %s.new %s\n" % ((seen,) * 4))
        os.chmod(browser, 0o700)
        self.env["BROWSER"] = browser + " %s"
        browse = self.program([BROWSE, "--open", "acme.shop"])
        wait_until(lambda: os.path.exists(seen), DEADLINE)
        text = open(seen).read()
        self.assertIn("0;url=" + browse.out.strip(), text)
        path = re.search(r"\S+open\.html", text).group()
        self.assertEqual(os.stat(os.path.dirname(path)).st_mode & 0o777, 0o700)
        browse.send(signal.SIGINT)
        browse.wait().expect(0)
        self.assertFalse(os.path.exists(path))
