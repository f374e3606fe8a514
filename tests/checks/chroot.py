"""A bare Debian, of the release that this machine has, in a folder below build/chroot.

It is unpacked of one that debootstrap makes the first time. What runs in it has its own processes
and mounts, which end with it.
"""

import os
import shutil
import subprocess

import frame

PLACE = os.path.join(frame.ROOT, "build", "chroot")
BASE = os.path.join(PLACE, "base.tar")

# What ./dev knows of the machine; the arguments are words of it.
SETUP = 'set -e; root=$1; shift; source "$root/tools/setup.sh"; "$@"'

ISOLATED = ["unshare", "--mount", "--pid", "--fork", "--kill-child"]

ENTER = """set -e
mount -t proc proc "$1/proc"
mount --rbind /dev "$1/dev"
exec chroot "$1" bash -c "$2"
"""


def whyNot():
    """What keeps this machine from having one; empty if nothing does."""
    if os.geteuid() != 0:
        return "a chroot takes root"
    if not os.path.exists("/usr/bin/apt-get"):
        return "a chroot is made of Debian's packages, by Debian's tools"
    if subprocess.call(ISOLATED + ["true"], stderr=open(os.devnull, "w")):
        return "this machine allows no mounts"
    return ""


def setup(*words):
    """What a function of tools/setup.sh prints."""
    ended = frame.run_process(["bash", "-c", SETUP, "bash", frame.ROOT] + list(words), 900,
                              dict(os.environ))
    if ended.status != 0:
        raise frame.NotReady("%s failed:\n%s" % (words[0], "\n".join(ended.text())))
    return ended.out.strip()


def _command(*command):
    ended = frame.run_process(list(command), 1800, dict(os.environ))
    if ended.status != 0:
        raise frame.NotReady("%s failed:\n%s" % (command[0], "\n".join(ended.text())))


def _codename():
    with open("/etc/os-release") as release:
        for line in release:
            name, _, value = line.strip().partition("=")
            if name == "VERSION_CODENAME":
                return value.strip('"')
    raise frame.NotReady("this Debian has no name")


def _aptOptions():
    """How apt reaches its archives here: proxies, and what it is lenient about."""
    text = subprocess.check_output(["apt-config", "dump"])
    return "".join(line + "\n" for line in text.splitlines()
                   if line.startswith(("Acquire::http", "Acquire::https", "Acquire::Check")))


def _makeBase():
    folder = os.path.join(PLACE, "base")
    setup("need_packages", "debootstrap")
    mirror = setup("debian_mirror")
    shutil.rmtree(folder, True)
    _command("debootstrap", "--variant=minbase", _codename(), folder, mirror)
    with open(os.path.join(folder, "etc/apt/apt.conf.d/99host"), "w") as options:
        options.write(_aptOptions())
    _command("tar", "-C", folder, "-cf", BASE + ".new", ".")
    os.rename(BASE + ".new", BASE)
    shutil.rmtree(folder)


class Chroot(object):
    """Removed at the end of a `with`."""

    def __init__(self, name):
        self.folder = os.path.join(PLACE, name)

    def __enter__(self):
        self._remove()
        os.makedirs(self.folder)
        if not os.path.exists(BASE):
            _makeBase()
        _command("tar", "-C", self.folder, "-xpf", BASE)
        if os.path.exists("/etc/resolv.conf"):
            shutil.copy("/etc/resolv.conf", self.path("etc/resolv.conf"))
        return self

    def __exit__(self, *error):
        self._remove()

    def _remove(self):
        _command("rm", "-rf", "--one-file-system", self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def run(self, script, seconds):
        """Runs bash; gives how it Ended."""
        environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root",
                       "LC_ALL": "C.UTF-8", "TERM": "dumb", "DEBIAN_FRONTEND": "noninteractive"}
        for name in "http_proxy", "https_proxy", "no_proxy":
            if name in os.environ:
                environment[name] = os.environ[name]
        return frame.run_process(ISOLATED + ["sh", "-c", ENTER, "sh", self.folder, script],
                                 seconds, environment)
