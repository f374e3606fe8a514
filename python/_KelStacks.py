"""What the Python threads of this process are doing, as a text for people."""

import os
import sys
import thread
import threading
import traceback

import _Kel


def text():
    """The stack of each thread that Python knows, the main thread's first, and who has the lock."""
    names = dict((each.ident, each.name) for each in threading.enumerate())
    frames = sys._current_frames()
    order = sorted(set(frames).union(names),
                   key=lambda ident: (names.get(ident) != "MainThread", names.get(ident), ident))
    blocks = [_block(ident, names.get(ident), frames.get(ident)) for ident in order]
    return "\n".join(blocks + [_owner()])


def _block(ident, name, frame):
    note = ", which tells this" if ident == thread.get_ident() else ""
    if frame is None:
        return "thread %s runs no Python\n" % name
    head = "thread %s%s (most recent call last):\n" % (name or "of the runtime", note)
    return head + "".join(traceback.format_stack(frame))


def _owner():
    owner = _Kel.activityLockOwner()
    if not owner:
        return "the activity lock is free"
    return "the activity lock is held by thread %d of the system%s" % (
        owner, ", the main thread" if owner == os.getpid() else "")
