"""The command kel-schema."""

import argparse
import os
import sys

import Kel
import _KelSchema
import _KelSchemaPage

DESCRIPTION = "Prints what libraries of types declare: their types, attributes and functions."


def options_of(arguments):
    parser = argparse.ArgumentParser(prog="kel-schema", description=DESCRIPTION)
    parser.add_argument("libraries", nargs="*", metavar="LIBRARY",
                        help="a library as Kel.load() names it, or its path")
    form = parser.add_mutually_exclusive_group()
    form.add_argument("--json", action="store_true", help="as JSON")
    form.add_argument("--html", action="store_true", help="as a page of HTML with a search")
    parser.add_argument("-o", "--output", metavar="FILE", help="into a file, not to standard output")
    parser.add_argument("--runtime", action="store_true", help="the runtime's own types too")
    parser.add_argument("--type", metavar="NAME", action="append", default=[],
                        help="just this type; may be given several times")
    options = parser.parse_args(arguments)
    if not options.libraries and not options.runtime:
        parser.error("name a library, or --runtime")
    return options


def types_of(options):
    """The types to describe. Raises OSError for a library, TypeError for a type that is not there."""
    own = Kel.types() if options.runtime else []
    types = sorted(own + _KelSchema.declared_by(options.libraries), key=lambda each: each.fullTypeName)
    wanted = [Kel.Type(name) for name in options.type]
    return [each for each in types if not wanted or each in wanted]


def rendered(options, types):
    if options.json:
        return _KelSchema.as_json(types)
    if options.html:
        names = [os.path.basename(name) for name in options.libraries]
        return _KelSchemaPage.page("Types of %s" % ", ".join(names or ["the runtime"]), types)
    return _KelSchema.text(types)


def main(arguments=None):
    """Runs the command. Gives its exit status: 0, or 1 with a line on standard error."""
    options = options_of(arguments)
    try:
        result = rendered(options, _KelSchema.describe(types_of(options)))
        if options.output:
            with open(options.output, "w") as out:
                out.write(result)
        else:
            sys.stdout.write(result)
            sys.stdout.flush()
    except (EnvironmentError, TypeError) as error:
        sys.stderr.write("kel-schema: %s\n" % error)
        return 1
    return 0
