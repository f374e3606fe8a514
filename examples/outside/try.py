"""Uses the class as it is in Python."""

import Kel
import home

heater = home.Heater("bath")
told = []
watcher = Kel.react(heater, lambda attr, key: told.append(attr.name), "wanted")

heater.wanted = 21.5
heater.measured = 20
assert heater.isOpen and heater.warmer(1) == 22.5
try:
    heater.wanted = 50
except IndexError as refusal:
    print refusal
else:
    raise AssertionError("50 degrees were not refused")

Kel.run(untilIdle=True)
assert told == ["wanted", "wanted"], told
print heater.name, "wants", heater.wanted
