"""An agent that has a heater in each of two rooms and writes down what it is told of them.

    kel-agent --group home --name heating agent.py
    kel-eval home.heating 'rooms["kitchen"].isOpen'
"""

import Kel
import home

rooms = Kel.root().mkdir("rooms")
for name in "kitchen", "hall":
    rooms.newEntity("Home::Heater", name)
told = []


def write_down(heater):
    def changed(attr, key):
        told.append("%s: %s is %g" % (heater.name, attr.name, getattr(heater, attr.name)))
    return Kel.react(heater, changed, "wanted", "measured")


watchers = [write_down(heater) for heater in rooms.values()]
