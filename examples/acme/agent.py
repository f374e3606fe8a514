"""A script that kel-agent runs, as the demo does: a store whose prices are changed from outside.

    kel-agent --group acme --name shop examples/acme/agent.py
    kel-eval acme.shop 'store.price["bolt"]'
"""

from __future__ import print_function

import sys

import _Kel
import acme

store = acme.Store("store")
store.price["bolt"] = 5
changes = []


def on_price(attr, key):
    changes.append("%s of %s is %d now" % (attr.name, key, store.price[key]))


watcher = _Kel.newNotifiee(store, _Kel.handle(on_price))
print("open for business")
sys.stdout.flush()
