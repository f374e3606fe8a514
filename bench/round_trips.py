"""Commands to an agent over a unix socket, beside bare ping-pong over the same kind of socket."""

import os
import shutil
import subprocess
import sys
import tempfile

import kel_round_trips

AGENT = """
import sys
import PyServer
with PyServer.PyServer(socketName=sys.argv[1]):
    print "ready"
    sys.stdout.flush()
    sys.stdin.read()
"""
TRIPS = 5000
CLIENTS = (1, 8)


class Agent(object):
    """An agent in a process of its own; as a context it gives the name of its socket."""

    def __enter__(self):
        self.folder = tempfile.mkdtemp()
        name = os.path.join(self.folder, "socket")
        self.process = subprocess.Popen([sys.executable, "-c", AGENT, name],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.process.stdout.readline()
        return name

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.wait()
        shutil.rmtree(self.folder)


def figures(rounds=5):
    """Microseconds of a ping, of an eval, and evals a second by number of clients."""
    pings, evals, rates = [], [], dict((clients, []) for clients in CLIENTS)
    with Agent() as name:
        for _ in range(rounds):
            pings.append(kel_round_trips.pings(TRIPS) / TRIPS * 1e6)
            evals.append(kel_round_trips.evals(name, TRIPS, 1) / TRIPS * 1e6)
            for clients in CLIENTS:
                each = TRIPS // clients
                rates[clients].append(each * clients / kel_round_trips.evals(name, each, clients))
    return {"ping us": min(pings), "eval us": min(evals), "eval to ping": min(evals) / min(pings),
            "evals a second": dict((clients, max(rates[clients])) for clients in CLIENTS)}


def report(found):
    print "round trip over a unix socket: eval %.1f us, bare ping-pong %.1f us, ratio %.2f" % (
        found["eval us"], found["ping us"], found["eval to ping"])
    for clients in CLIENTS:
        print "%d client%s: %.0f commands a second" % (
            clients, "s"[clients == 1:], found["evals a second"][str(clients)])
