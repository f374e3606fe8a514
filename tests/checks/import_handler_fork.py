"""Handlers that import, another thread that imports, and forks, all at the same time.

   import_handler_fork.py MODE ROUNDS SECONDS

The modules of mode "plain" leave the runtime alone. Those of the other two use it in their bodies;
mode "guarded" forks with the import lock held, as the rule for that case is, mode "unguarded" does
not. A round that takes longer than so many SECONDS ends the process by SIGALRM.
"""

import imp
import os
import shutil
import signal
import sys
import tempfile
import threading
import traceback

import _Kel
import acme

PLAIN = "answer = sum(range(20))\n"
USES_RUNTIME = """
import acme
item = acme.Item("of a body", 1)
for size in range(5):
    item.size = size
answer = item.add(item.size, 1)
"""
manager = _Kel.singleton("Kel::ActivityManager")


def import_anew(name):
    sys.modules.pop(name, None)
    return __import__(name).answer


class Counts(object):
    handled = 0
    imported = 0
    forked = 0


def handler(attr, key):
    import_anew("of_handler")
    Counts.handled += 1


def importing(stop):
    while not stop.is_set():
        import_anew("of_thread")
        Counts.imported += 1


def writing(item, stop):
    number = 0
    while not stop.is_set():
        number += 1
        item.size = number % 1000
        stop.wait(0.0001)


def fork(guarded, seconds):
    """Forks once; the child, where the import lock is free again, imports and uses the runtime."""
    if guarded:
        imp.acquire_lock()
    child = os.fork()
    if child == 0:
        status = 1
        try:
            signal.alarm(seconds)
            import_anew("of_child")
            status = 0 if acme.Item("child", 1).add(2, 3) == 5 else 1
        except:
            traceback.print_exc()
        finally:
            os._exit(status)
    if guarded:
        imp.release_lock()
    _, status = os.waitpid(child, 0)
    if status:
        sys.exit("the status of a child is %d" % status)
    Counts.forked += 1


def work(mode, rounds, seconds):
    stop = threading.Event()
    item = acme.Item("shared", 1)
    watcher = _Kel.newNotifiee(item, _Kel.handle(handler))
    threads = [threading.Thread(target=importing, args=(stop,)),
               threading.Thread(target=writing, args=(item, stop))]
    manager.start()
    for thread in threads:
        thread.daemon = True
        thread.start()
    for _ in xrange(rounds):
        signal.alarm(seconds)
        fork(mode == "guarded", seconds)
    signal.alarm(seconds)
    stop.set()
    for thread in threads:
        thread.join()
    manager.runUntilIdle()  # the last handler imports from the folder that goes now
    manager.stop()
    del watcher


def main(mode, rounds, seconds):
    sys.setcheckinterval(1)
    folder = tempfile.mkdtemp()
    sys.path.insert(0, folder)
    sys.dont_write_bytecode = True
    for name in "of_handler", "of_thread", "of_child":
        with open(os.path.join(folder, name + ".py"), "w") as module:
            module.write(PLAIN if mode == "plain" else USES_RUNTIME)
    try:
        work(mode, int(rounds), int(seconds))
    except:
        traceback.print_exc()
        os._exit(1)
    finally:
        shutil.rmtree(folder)
    print "%d forks, %d imports of a handler, %d of a thread" % (
        Counts.forked, Counts.handled, Counts.imported)


if __name__ == "__main__":
    main(*sys.argv[1:])
