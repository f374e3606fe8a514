"""Writes the fenced blocks of a language of a Markdown page to a file: extract_snippet.py PAGE LANGUAGE OUT.

Of C++, a block that is a program is written as it stands; other blocks become the bodies of functions, behind
what they include. Of other languages the first block is written. The file is left alone if nothing changed.
"""

import os
import re
import sys

import pages


def fragments(codes):
    """Source text that compiles if each of the blocks does, one by one."""
    includes = sorted(set(line for code in codes for line in code.splitlines()
                          if line.startswith("#include")))
    bodies = ["void fragment%d() {\n%s}\n" % (number, re.sub(r"(?m)^#include.*\n", "", code))
              for number, code in enumerate(codes)]
    return "%s\n\nnamespace {\n\n%s\n}  // namespace\n\nint main() {\n%s}\n" % (
        "\n".join(includes), "\n".join(bodies),
        "".join("   fragment%d();\n" % number for number in range(len(codes))))


def extracted(text, language):
    codes = [block.code for block in pages.blocks(text)
             if block.language == language and block.kind != pages.EXEMPT]
    if not codes:
        return None
    if language == "cpp" and "int main(" not in codes[0]:
        return fragments(codes)
    return codes[0]


def main(page, language, out):
    with open(page) as source:
        text = extracted(source.read(), language)
    if text is None:
        sys.exit("%s has no block of %s" % (page, language))
    if os.path.exists(out):
        with open(out) as present:
            if present.read() == text:
                return
    with open(out, "w") as target:
        target.write(text)


if __name__ == "__main__":
    main(*sys.argv[1:])
