"""A tour of runtime objects in Python: `./dev demo` runs it, and it is meant to be read along.

The classes live in C++ (Item.h, Store.h); Schema.cpp says once what each of them has. That is all
that Python needs to know of them.
"""

from __future__ import print_function

import os
import shutil
import signal
import subprocess
import tempfile
import threading
import time

# Ctrl-C interrupts Python, even if the shell that started us has turned it off. This comes first
# because _Kel puts itself before the handler that it finds.
signal.signal(signal.SIGINT, signal.default_int_handler)

import _Kel
import acme


def headline(text):
    print("\n" + text + "\n" + "-" * len(text))


def refused(function, *args):
    """Shows the error that a call ends in."""
    try:
        function(*args)
    except Exception as error:
        print("refused: %s: %s" % (type(error).__name__, error))
    else:
        raise AssertionError("%s was not refused" % function)


headline("Objects")

# A class is made when it is first asked for: by its name in a schema module, or from its type.
Dir = _Kel.pyType(_Kel.typeNode("Kel::Dir"))

# To call a class makes a runtime object. The arguments are checked and converted one by one.
shop = Dir("shop")
bolt = acme.Item("bolt", 7)
print("a directory:", repr(shop))
print("an item:", repr(bolt), "with id", bolt.id)
refused(acme.Item, "bolt", "seven")

# A directory makes named objects of its own. It acts as a mapping from the names to them.
washer = shop.newEntity("Acme::Item", "washer")
print("in the directory:", list(shop), "as", washer.fullName)


headline("Attributes")

# Scalars and texts are plain Python values. Each read asks the object, each write changes it.
bolt.weight = 0.25
bolt.note = "zinc coated"
print("weight and note:", bolt.weight, repr(bolt.note))

# An enum is the name of its constant.
bolt.color = "blue"
print("color:", bolt.color, "of", acme.Color.attributes)

# A Size is a value with one attribute that says all: it reads and writes as that attribute does.
# The value object itself is there for those who ask.
bolt.size = 12
print("size:", bolt.size, "or", repr(bolt.getRawAttribute("size")))

# Other values are objects of their own. What is read is a const copy; a new one can be changed and
# written.
point = acme.Point()
point.x, point.y = 3, 4
bolt.position = point
print("position:", bolt.position, "with x", bolt.position.x)
refused(setattr, bolt.position, "x", 5)

# A pointer leads to an object, or to None.
nut = acme.Item("nut", 8)
print("parent:", nut.parent)
nut.parent = bolt
print("parent:", repr(nut.parent), "of color", nut.parent.color)

# A static attribute belongs to the class.
print("unit of all sizes:", acme.Item.unit)


headline("Refusals")

# Nothing is written unless it fits, and the error tells what was wanted.
refused(setattr, bolt, "color", "green")
refused(setattr, bolt, "size", -1)
refused(setattr, bolt, "parent", acme.Size(1))
refused(setattr, bolt, "id", 9)
refused(setattr, _Kel.constPtr(bolt), "size", 1)
print("still:", bolt.color, bolt.size, bolt.parent, bolt.id)


headline("Values and functions")

# A value can do in Python what its C++ class can. What comes out is read like an attribute.
big, small = acme.Size(40), acme.Size(2)
print("sum, quotient, order:", big + small, big / small, small < big)
refused(lambda: big / acme.Size(0))
refused(lambda: point * point)

# Functions of an object take what its attributes take, by position.
bolt.resize(13)
print("after resize:", bolt.size, "and a sum:", bolt.add(20, 22))
print("of the class:", acme.Item.describe("red"))


headline("Collections")

# Keyed collections act as mappings, ordered ones take and give as their kind says.
store = acme.Store("store")
store.price["bolt"] = 3
store.price["nut"] = 1
print("prices:", dict(store.price), "and that of a bolt:", store.price["bolt"])
refused(lambda: store.price["screw"])

# Some make their members themselves.
stock = store.newItem("bolt", 100)
stock.count -= 1
print("in stock:", store.item["bolt"].count, "of", store.item.keys())


# A queue gives what came first, a set tells what is in it.
for name in "ann", "bob":
    store.order.enq(name)
print("served:", store.order.deq(), "and next:", store.order.front())
store.tag.add("open on sundays")
print("open on sundays:", "open on sundays" in store.tag)


headline("Names in a tree")

# The root directory is there in every process. A shelf is a directory of its own kind: it acts as a
# dictionary of the entities that stand on it.
root = _Kel.singleton("Kel::Dir")
shelf = root.mkdir("demo").newEntity("Acme::Shelf", "shelf")
shelf.capacity = 2
for name in "saw", "file":
    shelf.newEntity("Acme::Item", name)
print("on", shelf.fullName + ":", shelf.keys(), "room for", shelf.capacity)
shelf["saw"].color = "blue"
print("the saw is", shelf["saw"].color)
del shelf["file"]
print("left:", shelf.keys())

# A future names what may come later. Once it is there, the same Python object is the entity.
drill = _Kel.entityFuture("/demo/shelf/drill", None)
print("before:", repr(drill))
refused(drill.convertToEntity)
shelf.newEntity("Acme::Item", "drill")
drill.convertToEntity()
print("after:", repr(drill), "of color", drill.color)


class Favorite(object):
    """An object of ours that stands for a runtime object wherever one is wanted."""

    def __kel_object__(self):
        return shelf["saw"]


drill.parent = Favorite()
print("parent by proxy:", repr(drill.parent))
root["demo"].clear()


headline("What there is to know")

# Types, classes and attributes describe themselves; help(acme.Item) shows it all at once.
print(repr(acme.Item), "is", acme.Item.__doc__)
for name in acme.Item.attributes:
    print("   ", acme.Item.__dict__[name].__doc__ if name in acme.Item.__dict__ else name)
for prop in "readable", "writable", "isImmutable", "doesNotify":
    print("id is %s: %s" % (prop, bolt.attrProperty("id", prop)))

# The schema itself, as the runtime has it.
item_type = _Kel.typeNode("Acme::Item")
print(item_type, "of base", item_type.baseType, "made of", item_type.constructorArgNameQ)
print(item_type.attr("size"), "of type", item_type.attr("size").memberType)


headline("Reactions")

# The activity loop calls Python functions when objects change and when it is time. Here it runs on
# a thread of its own; this thread goes on meanwhile.
manager = _Kel.singleton("Kel::ActivityManager")
manager.start()
restocked = threading.Event()


def on_price(attr, key):
    """Is told which attribute changed and, for a collection like this one, at which key."""
    print("told of", attr.name, "of", key + ":", store.price[key])
    if store.price[key] < 3:
        # Cheap things sell fast. A handler may use every object and change it.
        print("restocked:", store.restock(key, 50).count)
        restocked.set()


# The handle owns the function, the notifiee owns the handle, and we have to hold the notifiee: when
# it goes, nobody is told any more. This one asks for prices alone.
watcher = _Kel.newNotifiee(store, _Kel.handle(on_price))
watcher.filtered = True
watcher.filterAttr["price"] = True

store.price["nut"] = 5
store.tag.add("sale")  # a change as well, which the filter keeps away
store.price["bolt"] = 2
restocked.wait(10)

# A timer is a notifiee of the clock. It fires once, at the time that it wants.
clock = _Kel.singleton("Kel::Clock")
ClockNotifiee = _Kel.pyType(_Kel.typeNode("Kel::PyClockNotifiee"))
rung = threading.Event()


def on_closing_time():
    print("closing time")
    rung.set()


bell = ClockNotifiee(clock, _Kel.handle(on_closing_time))
bell.timeMinProxy = clock.now + 0.01
rung.wait(10)

# Ctrl-C asks the loop to end once nothing is left to tell, and interrupts this thread as ever.
store.price["nut"] = 1
try:
    os.kill(os.getpid(), signal.SIGINT)  # what a terminal does when you press Ctrl-C
    while True:
        time.sleep(0.01)
except KeyboardInterrupt:
    while manager.isRunning:
        time.sleep(0.001)
    print("interrupted, and the loop has ended in order")


headline("Agents")

# An agent is a process with objects like these that lives long and can be questioned from outside.
# This one runs the script agent.py beside us: a store and a handler that writes down what it costs
# to buy there. It is announced in a folder, which for a moment is one of our own.
here = os.path.dirname(os.path.abspath(__file__))
os.environ["PATH"] = os.pathsep.join(
    [os.path.join(os.path.dirname(os.path.abspath(_Kel.__file__)), os.pardir, "bin"),
     os.environ.get("PATH", os.defpath)])
os.environ["KELC_AGENTS_DIR"] = tempfile.mkdtemp()
agent = subprocess.Popen(
    ["kel-agent", "--group", "acme", "--name", "shop",
     os.path.join(here, "agent.py")], stdout=subprocess.PIPE)
try:
    print("it says:", agent.stdout.readline().strip())

    def ask(*words):
        """What kel-eval prints; a program in C++ asks in the same way through Kel::PyClient."""
        return subprocess.check_output(["kel-eval", "acme.shop"] + list(words)).strip()

    print("a bolt costs", ask("store.price['bolt']"), "there, a nut", ask("store.price.get('nut')"))
    # A change from outside is a change like any other: the agent's own handler sees it.
    ask("-x", "store.price['nut'] = 2")
    while ask("len(changes)") == "0":
        time.sleep(0.01)
    print("its handler saw:", ask("changes[-1]"))
finally:
    agent.terminate()  # SIGTERM asks it to end in order
print("it ended with status", agent.wait())
shutil.rmtree(os.environ["KELC_AGENTS_DIR"])
