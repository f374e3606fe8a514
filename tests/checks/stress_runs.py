"""Runs of the stress test with the watch over the locks preloaded."""

import os
import re

from frame import ROOT, Build

STRESS = os.path.join(ROOT, "tests", "stress")


class Run(object):
    """One run of stress.py: how it `ended`, and what it says of locks and forks."""

    def __init__(self, arguments, seconds, preset="release"):
        build = Build(preset).ready()
        environment = {"KEL_TRACE": "python/*", "KEL_TRACE_FILE": os.devnull}
        watch = os.path.join(build.folder, "liblock_order.so")
        if preset == "release":
            environment["LD_PRELOAD"] = watch
        path = os.pathsep.join([STRESS, build.environment()["PYTHONPATH"]])
        self.ended = build.run([os.path.join(STRESS, "stress.py")] + map(str, arguments),
                               seconds, PYTHONPATH=path, **environment)
        self.passed = self.ended.status == 0 and not self.ended.late
        waits = self._numbers(r"GIL (\S+) s, activity lock (\S+) s, "
                              r"machine (\S+) s; (\d+) holds")
        self.gil_wait, self.lock_wait, self.machine_wait, self.locks = waits or (0.0,) * 4
        self.python_forks, self.native_forks = self._numbers(
            r"forks: (\d+) of Python, (\d+) of native") or (0, 0)

    def details(self):
        return self.ended.text()

    def _numbers(self, pattern):
        found = re.search(pattern, self.ended.out)
        return found and [float(number) for number in found.groups()]
