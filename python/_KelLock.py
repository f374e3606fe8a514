"""The activity lock as a context manager."""

import _Kel


class activityLock(object):
    """Holds the activity lock for the length of a with statement, so that no other thread changes
    the runtime there.

    May be nested, and used where the thread has the lock already. Waits without the GIL.
    """

    def __enter__(self):
        self._taken = _Kel.acquireActivityLock()
        return self

    def __exit__(self, *error):
        if self._taken:
            _Kel.releaseActivityLock()
