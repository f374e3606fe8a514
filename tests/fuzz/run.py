"""Runs the fuzzers: run.py --guided FOLDER [--seconds N] [NAME...]; -h tells the rest.

The guided ones run for that long each and go on from what they found before; the one called module
runs to its end. A fault leaves its input in FINDINGS. With --plant, each has a fault of its own.
"""

import argparse
import os
import re
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(ROOT, "tools"))
from progress import Progress  # noqa: E402

FINDINGS = os.path.join(ROOT, "build", "findings")
GUIDED = ("agent_file", "reply", "requests")

# Larger inputs only take longer. The limits are MiB.
OPTIONS = ["-max_len=8192", "-timeout=20", "-rss_limit_mb=2048", "-malloc_limit_mb=64",
           "-print_final_stats=1", "-use_value_profile=1"]


def parse(arguments):
    parser = argparse.ArgumentParser(prog="dev fuzz", description="Runs the fuzzers.")
    parser.add_argument("names", nargs="*", metavar="NAME",
                        help="of module, %s; all if there is none" % ", ".join(GUIDED))
    parser.add_argument("--seconds", type=int, default=60, help="of each guided fuzzer")
    parser.add_argument("--plant", action="store_true", help="faults that must be found")
    parser.add_argument("--guided", required=True, help=argparse.SUPPRESS)
    module = parser.add_argument_group("of module, which runs alone if one of these is given")
    for name, text in (
            ("--rounds", "cases of more than one argument"), ("--seed", "for the choice of cases"),
            ("--one-in", "of all cases only one in so many"), ("--only", "cases with this text")):
        module.add_argument(name, dest=name, metavar=name.strip("-")[0].upper(), help=text)
    options = parser.parse_args(arguments)
    options.module = [
        part for name, value in sorted(vars(options).items()) if name.startswith("--") and value
        for part in (name, value)]
    if not options.names:
        options.names = ("module",) + (GUIDED if not options.module else ())
    wrong = set(options.names) - set(GUIDED) - {"module"}
    if wrong:
        parser.error("there is no fuzzer %s" % ", ".join(sorted(wrong)))
    return options


def runModule(options, progress):
    """Whether there was no fault."""
    command = [sys.executable, os.path.join(HERE, "fuzz_module.py")] + options.module
    process = subprocess.Popen(command + ["--plant"] * options.plant, stdout=subprocess.PIPE)
    lines = process.communicate()[0].splitlines()
    progress.clear()
    for line in lines[:-1]:
        print line
    print "module: %s" % (lines[-1] if lines else "it ended with status %d" % process.returncode)
    return process.returncode == 0


def folder(*parts):
    path = os.path.join(*parts)
    if not os.path.isdir(path):
        os.makedirs(path)
    return path


def runGuided(name, options, progress):
    """Whether there was no fault."""
    program = os.path.join(options.guided, "bin", "fuzz_" + name)
    label = name + "-planted" * options.plant
    prefix = os.path.join(folder(FINDINGS), label + "-")
    found = folder(options.guided, "corpus", label)
    command = [program, found, os.path.join(HERE, "corpus", name), "-artifact_prefix=" + prefix,
               "-max_total_time=%d" % options.seconds] + OPTIONS
    environment = dict(os.environ, **({"KEL_FUZZ_PLANT": "1"} if options.plant else {}))
    with open(prefix + "log", "w+") as log:
        status = subprocess.call(command, stdout=log, stderr=subprocess.STDOUT, env=environment)
        log.seek(0)
        text = log.read()
    progress.clear()
    print "%s: %s" % (name, figures(text) if status == 0 else faultText(text))
    if status != 0:
        print "   %s" % log.name
        for path in re.findall(r"Test unit written to (\S+)", text):
            print "   again: %s%s %s" % ("KEL_FUZZ_PLANT=1 " * options.plant, program, path)
    return status == 0


def figures(text):
    """What the engine says of its run. What it saw of C++ are branches, too."""
    executions = re.search(r"stat::number_of_executed_units: *(\d+)", text).group(1)
    branches, features, inputs = re.findall(r"(?:cov: (\d+) )?ft: (\d+) corp: (\d+)/", text)[-1]
    told = [executions + " executions"] + [branches + " branches"] * bool(branches)
    return ", ".join(told + [features + " features", inputs + " inputs", "no fault"])


def faultText(text):
    reason = re.search(r"^(?:fault: (.*)|(.*(?:ERROR|runtime error): .*))$", text, re.M)
    return "FAULT: %s" % (reason.group(1) or reason.group(2) if reason else "see the log")


def main(arguments):
    options = parse(arguments)
    clean = True
    with Progress("fuzzer", len(options.names)) as progress:
        for name in options.names:
            progress.next(name, options.seconds if name in GUIDED else 0)
            clean &= (runModule(options, progress) if name == "module"
                      else runGuided(name, options, progress))
            sys.stdout.flush()
    return 0 if clean else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
