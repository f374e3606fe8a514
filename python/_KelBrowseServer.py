"""The web server of kel-browse: on the loopback, for one user's browser, in front of one agent.

Whoever may ask it anything could ask the agent himself: a connection has to be of this user or of
root, as an agent's has, and a request has to bring the secret of this run. Other pages in the
same browser are kept out by the address that a request names, by the page that it comes from and by the
cookie, which browsers give to requests of this page alone.
"""

import Cookie
import hmac
import json
import os
import socket
import subprocess
import threading
import urlparse
from BaseHTTPServer import BaseHTTPRequestHandler, HTTPServer
from SocketServer import ThreadingMixIn

import _KelBrowsePage
from _PyServerPeer import Gone, mayConnect, peerUid

_CONNECTIONS = 64
_QUESTIONS = 8  # that wait for the agent at one time
_BODY_LIMIT = 64 * 1024
_ANSWER_LIMIT = "32M"
_SECONDS = 10.0  # for a request to arrive, and for the agent to show something
_CALL_SECONDS = 60.0  # for the agent to run a function


class Unanswered(Exception):
    """The agent has given no answer; `status` is that of the reply that tells so."""

    def __init__(self, status, text):
        super(Unanswered, self).__init__(text)
        self.status = status


class Agent(object):
    """The agent, reached by kel-eval. `arguments` name it to kel-eval."""

    def __init__(self, program, name, arguments):
        self.name = name
        self._command = [program, "--no-wait", "--limit", _ANSWER_LIMIT] + arguments + ["-"]
        self._free = threading.Semaphore(_QUESTIONS)

    def ask(self, function, text, seconds=_SECONDS):
        """What _KelBrowse.function(text) gives in the agent. Raises Unanswered."""
        with self._free:
            return self._asked("__import__('_KelBrowse').%s(%r)" % (function, text), seconds)

    def _asked(self, expression, seconds):
        child = subprocess.Popen(self._command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE, close_fds=True)
        late = []

        def end():
            late.append(True)
            child.kill()

        timer = threading.Timer(seconds, end)
        timer.start()
        try:
            out, err = child.communicate(expression)
        finally:
            timer.cancel()
        if child.returncode == 0:
            return out[:-1]
        if late:
            raise Unanswered(504, "%s has not answered for %d seconds" % (self.name, seconds))
        if child.returncode == 1:
            raise Unanswered(500, err.strip())
        raise Unanswered(503, "%s is not there" % self.name)


class Server(ThreadingMixIn, HTTPServer):
    """Listens on that port of 127.0.0.1, on any that is free for 0, and serves the agent."""

    daemon_threads = True
    request_queue_size = 64

    def __init__(self, port, agent):
        HTTPServer.__init__(self, ("127.0.0.1", port), _Handler)
        self.agent = agent
        self.secret = os.urandom(24).encode("hex")
        self.cookie = "kel-browse-%d" % self.server_port  # cookies are for all ports of a machine
        self.hosts = ["%s:%d" % (name, self.server_port) for name in ("127.0.0.1", "localhost")]
        self._free = threading.Semaphore(_CONNECTIONS)

    @property
    def url(self):
        return "http://127.0.0.1:%d/?token=%s" % (self.server_port, self.secret)

    def server_bind(self):
        # The base would look up the name of the host.
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.socket.bind(self.server_address)
        self.server_name, self.server_port = self.socket.getsockname()

    def verify_request(self, request, client_address):
        try:
            return mayConnect(peerUid(request))
        except Gone:
            return False

    def process_request(self, request, client_address):
        if self._free.acquire(False):
            ThreadingMixIn.process_request(self, request, client_address)
        else:
            self.shutdown_request(request)

    def process_request_thread(self, request, client_address):
        try:
            ThreadingMixIn.process_request_thread(self, request, client_address)
        finally:
            self._free.release()

    def handle_error(self, request, client_address):
        pass  # a browser has gone in the midst of its request


class _Handler(BaseHTTPRequestHandler):

    timeout = _SECONDS
    server_version = "kel-browse"
    sys_version = ""

    def do_GET(self):
        path, query = self._parts()
        if not self._is_allowed(query):
            return
        if path == "/":
            self._reply_page(_KelBrowsePage.page(self.server.agent.name))
        elif path == "/types":
            self._answer_types()
        else:
            self._refuse(404, "there is no such page")

    def do_POST(self):
        path, query = self._parts()
        if not self._is_allowed(query):
            return
        # A page of somewhere else may send, even if it cannot read the reply.
        if self.headers.getheader("Origin") != "http://" + self.headers.getheader("Host"):
            return self._refuse(403, "the request is not of this page")
        if path not in ("/view", "/call"):
            return self._refuse(404, "there is no such question")
        text = self._body()
        if text is not None:
            self._answer(path[1:], text)

    def log_message(self, *_):
        pass

    def _parts(self):
        parts = urlparse.urlsplit(self.path)
        return parts.path, urlparse.parse_qs(parts.query)

    def _is_allowed(self, query):
        if self.headers.getheader("Host") not in self.server.hosts:
            self._refuse(403, "the request names another host")
            return False
        if not (self._is_secret(query.get("token", [""])[0]) or self._is_secret(self._cookie())):
            self._refuse(403, "open the address that kel-browse has printed")
            return False
        return True

    def _is_secret(self, text):
        return hmac.compare_digest(text, self.server.secret)

    def _cookie(self):
        try:
            cookies = Cookie.SimpleCookie(self.headers.getheader("Cookie", ""))
        except Cookie.CookieError:
            return ""
        return cookies[self.server.cookie].value if self.server.cookie in cookies else ""

    def _body(self):
        """The text of a request, as ASCII; None behind a reply that refuses it."""
        try:
            length = int(self.headers.getheader("Content-Length", ""))
        except ValueError:
            length = -1
        if not 0 <= length <= _BODY_LIMIT:
            self._refuse(413, "the question is too long")
            return None
        try:
            return json.dumps(json.loads(self.rfile.read(length)))
        except ValueError:
            self._refuse(400, "the question is no JSON")
            return None

    def _answer(self, function, text):
        try:
            answer = self.server.agent.ask(
                function, text, _CALL_SECONDS if function == "call" else _SECONDS)
        except Unanswered as failure:
            return self._refuse(failure.status, str(failure))
        self._reply(200, "application/json", answer)

    def _answer_types(self):
        try:
            page = self.server.agent.ask("types", "Types of %s" % self.server.agent.name)
        except Unanswered as failure:
            return self._refuse(failure.status, str(failure))
        self._reply_page(page)

    def _refuse(self, status, text):
        self._reply(status, "application/json", json.dumps(
            {"error": text.decode("utf-8", "replace")}))

    def _reply_page(self, page):
        """A page may do what its own scripts and styles say, and ask this server."""
        nonce = os.urandom(16).encode("hex")
        for element in "script", "style":
            page = page.replace("<%s>" % element, '<%s nonce="%s">' % (element, nonce))
        self._reply(200, "text/html; charset=utf-8", page, [
            ("Set-Cookie", "%s=%s; Path=/; HttpOnly; SameSite=Strict" % (
                self.server.cookie, self.server.secret)),
            ("Content-Security-Policy",
             "default-src 'none'; script-src 'nonce-%s'; style-src 'nonce-%s'; "
             "connect-src 'self'; img-src data:; base-uri 'none'; form-action 'none'; "
             "frame-ancestors 'none'" % (nonce, nonce))])

    def _reply(self, status, kind, text, headers=()):
        self.send_response(status)
        for name, value in [("Content-Type", kind), ("Content-Length", str(len(text))),
                            ("Cache-Control", "no-store"), ("X-Content-Type-Options", "nosniff"),
                            ("Referrer-Policy", "no-referrer")] + list(headers):
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(text)
