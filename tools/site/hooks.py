"""What the site takes from outside of docs/: README as its first page, CHANGELOG and CONTRIBUTING."""

import os
import re

from mkdocs.structure.files import File

OUTSIDE = {"index.md": "README.md", "CHANGELOG.md": "CHANGELOG.md", "CONTRIBUTING.md": "CONTRIBUTING.md"}
_LINK = re.compile(r"\[([^\]]*)\]\(([^)#\s]+)([^)]*)\)")
_NOT_FOR_READERS = re.compile(r"\.(py|txt|json)$")


def on_config(config):
    """A page that nobody has given a place goes to the end of the contents."""
    placed = re.findall(r"'([^']+\.md)'", str(config["nav"]))
    there = [os.path.relpath(os.path.join(folder, name), config["docs_dir"])
             for folder, _, names in os.walk(config["docs_dir"]) for name in names if name.endswith(".md")]
    more = sorted(set(there) - set(placed))
    if more:
        config["nav"].append({"More": more})
    return config


def on_files(files, config):
    for file in list(files):
        if _NOT_FOR_READERS.search(file.src_path):
            files.remove(file)
    for name in OUTSIDE:
        files.append(File(name, config["docs_dir"], config["site_dir"], config["use_directory_urls"]))
    return files


def on_page_read_source(page, config):
    name = OUTSIDE.get(page.file.src_path)
    if name is None:
        return None
    with open(os.path.join(os.path.dirname(config["config_file_path"]), name), encoding="utf-8") as source:
        return _LINK.sub(_link, source.read())


def _link(found):
    """The site's pages stand where the README's docs/ is; a file that is none of them is only named."""
    text, target, rest = found.groups()
    if target.startswith("docs/"):
        return "[%s](%s%s)" % (text, target[len("docs/"):], rest)
    return found.group() if target in OUTSIDE.values() or ":" in target else text
