"""Runs checks; ./dev check calls it.

Each prints its figure on one line. The long form of each that is named, unless --short is given.
"""

import argparse
import glob
import os
import signal
import sys
import time

import frame
from progress import Progress


def checks():
    """The modules, by the name of the check, sorted."""
    found = {}
    for path in glob.glob(os.path.join(frame.HERE, "check_*.py")):
        module = __import__(os.path.splitext(os.path.basename(path))[0])
        found[module.NAME] = module
    return found


def parse(arguments, found):
    parser = argparse.ArgumentParser(prog="dev check", description=__doc__.splitlines()[2])
    parser.add_argument("names", nargs="*", metavar="NAME", help="checks; --list tells them")
    parser.add_argument("--all", action="store_true", help="each check there is")
    parser.add_argument("--short", action="store_true", help="the short form, as the tests run it")
    parser.add_argument("--planted", action="store_true",
                        help="plants a fault in each, which has to be caught")
    parser.add_argument("--list", action="store_true", help="what there is")
    options = parser.parse_args(arguments)
    unknown = sorted(set(options.names) - set(found))
    if unknown:
        parser.error("there is no check %s; --list tells them" % ", ".join(unknown))
    options.all |= (options.short or options.planted) and not options.names
    if not (options.names or options.all or options.list):
        parser.error("name a check, or --all; --list tells them")
    return options


def tell(found):
    for name in sorted(found):
        check = found[name]
        print "%s: %s" % (name, check.__doc__.splitlines()[0])
        short = "no short form" if is_long_only(check) else "short %d s" % check.SECONDS["short"]
        print "   to pass: %s; %s, long %d s" % (check.PASS, short, check.SECONDS["long"])


def is_long_only(check):
    return getattr(check, "LONG_ONLY", False)


def perform(check, options):
    """Whether it passed; prints its line."""
    form = "short" if options.short else "long"
    started = time.time()
    frame.progress.next(check.NAME, check.SECONDS.get(form, 0))
    try:
        result = (check.planted if options.planted else check.run)(form)
    except frame.NotReady as error:
        result = frame.Result(False, "not run", str(error).splitlines())
    what = "%s%s" % (check.NAME, ", planted" if options.planted else "")
    frame.progress.clear()
    print "%s: %s%s" % (what, "" if result.passed else "FAILED: ", result.figure)
    sys.stderr.write("   %s: %d s\n" % (what, time.time() - started))
    if not result.passed:
        for line in result.details:
            print "   " + line
    sys.stdout.flush()
    return result.passed


def main(arguments):
    found = checks()
    options = parse(arguments, found)
    if options.list:
        tell(found)
        return 0
    chosen = [found[name] for name in options.names or sorted(found)]
    if options.short and options.all:
        chosen = [check for check in chosen if not is_long_only(check)]
    # An end from outside ends what the checks have started, too.
    signal.signal(signal.SIGTERM, lambda number, _: sys.exit(128 + number))
    with Progress("check", len(chosen)) as frame.progress:
        return 0 if all([perform(check, options) for check in chosen]) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
