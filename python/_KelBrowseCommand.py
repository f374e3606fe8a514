"""The command kel-browse."""

import argparse
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import webbrowser
from xml.sax.saxutils import quoteattr

import _KelBrowseServer

DESCRIPTION = ("Serves a page, on this machine and for this user alone, that shows the objects of a "
               "running agent as they change.")
_USAGE = 2


def options_of(arguments):
    parser = argparse.ArgumentParser(prog="kel-browse", description=DESCRIPTION)
    parser.add_argument("agent", metavar="GROUP.NAME", help="the agent, as kel-eval names it")
    parser.add_argument("--subsystem", metavar="ID",
                        help="tells apart agents of one name; by default $SUBSYSTEMID")
    parser.add_argument("--no-wait", action="store_true",
                        help="give up at once if the agent is not there, not after half a minute")
    parser.add_argument("--port", type=int, default=0, metavar="N",
                        help="the port of 127.0.0.1; by default any that is free")
    parser.add_argument("--open", action="store_true", help="open the page in a browser")
    options = parser.parse_args(arguments)
    if not 0 <= options.port <= 65535:
        parser.error("%d is no port" % options.port)
    if options.agent.startswith("-") or "." not in options.agent:
        parser.error("\"%s\" names no agent; that would be GROUP.NAME" % options.agent)
    return options


def target_of(options):
    """What names the agent to kel-eval."""
    subsystem = [] if options.subsystem is None else ["--subsystem", options.subsystem]
    return subsystem + [options.agent]


class Opening(object):
    """Opens a browser with an address that no command line of a process shows to others."""

    def __init__(self):
        self._folder = None

    def open(self, url):
        self._folder = tempfile.mkdtemp(prefix="kel-browse-")
        path = os.path.join(self._folder, "open.html")
        with open(path, "w") as page:
            page.write('<!DOCTYPE html><meta http-equiv="refresh" content=%s>\n' % quoteattr(
                "0;url=" + url))
        webbrowser.open("file://" + path)

    def close(self):
        if self._folder:
            shutil.rmtree(self._folder, True)


def serve(server, opens):
    opening = Opening()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    try:
        print server.url
        sys.stdout.flush()
        if opens:
            opening.open(server.url)
        server.serve_forever()
    except KeyboardInterrupt:
        pass
    finally:
        opening.close()


def main(program, arguments=None):
    """Runs the command; `program` is the path of kel-eval. Gives its exit status."""
    options = options_of(arguments)
    target = target_of(options)
    once = ["--no-wait"] if options.no_wait else []
    status = subprocess.call([program] + once + target + ["None"], stdout=open(os.devnull, "w"))
    if status:
        return status  # kel-eval has told why
    try:
        server = _KelBrowseServer.Server(
            options.port, _KelBrowseServer.Agent(program, options.agent, target))
    except socket.error as error:
        sys.stderr.write("kel-browse: cannot listen on port %d: %s\n" % (
            options.port, error.strerror))
        return 1
    serve(server, options.open)
    return 0
