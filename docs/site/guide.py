#!/usr/bin/env python3
"""Makes a page of the reference out of a guide: Doxygen runs it over each Markdown file and reads what it prints.

Guides are written to be read as they stand, too. Their links lead to each other's files and headings, to headers and
to sources; here they become references, headings get the labels that these name, links out of the site go, and the
names of classes become links.
"""

import pathlib
import re
import sys

HEADING = re.compile(r"^(#+) (.+)$")
LINK = re.compile(r"(?<!!)\[([^\]]+)\]\(([^)\s]+)\)")


CODE = re.compile(r"(?<!\[)`((?:Qz|Keld)\w+)((?:::\w+)?)`(?!\])")
CLASS = re.compile(r"^(?:class|struct) (?:\w+_API )?(\w+)(?: : [^;]+)? \{", re.MULTILINE)


def classes(include):
    """The public classes, each with its namespace."""
    found = {}
    for header in include.rglob("*.h"):
        text = header.read_text(encoding="utf-8")
        space = "KELD" if "namespace KELD {" in text else "Qzc"
        found.update((name, f"{space}::{name}") for name in CLASS.findall(text))
    return found


def code(names, match):
    """A class, or a member of one, as a link to it."""
    if match[1] not in names:
        return match[0]
    return f"[{match[1]}{match[2]}](@ref {names[match[1]]}{match[2]})"


def page(stem):
    return f"guide_{stem}"


def slug(title):
    """A heading's name in a link."""
    kept = re.sub(r"[^\w\- ]", "", title.lower())
    return re.sub(r"[\s]", "-", kept.strip())


def label(stem, name):
    return f"{page(stem)}_" + re.sub(r"\W", "_", name)


def reference(stem, text, target):
    if "://" in target:
        return f"[{text}]({target})"
    path, _, name = target.partition("#")
    file = pathlib.PurePosixPath(path)
    if path and file.suffix == ".h":
        return f"[{text}](@ref {file.name})"
    if path.startswith("../examples/") and file.suffix == ".cpp":
        return f"[{text}]({path[len('../examples/'):].replace('/', '_2').replace('.', '_8')}-example.html)"
    if path and file.suffix != ".md":
        return text  # a source, a folder: no part of the site
    if file.name in ("README.md", "CONTRIBUTING.md"):
        return text
    other = file.stem if path else stem
    return f"[{text}](@ref {label(other, name) if name else page(other)})"


def main():
    path = pathlib.Path(sys.argv[1])
    names = classes(pathlib.Path(__file__).resolve().parents[2] / "include")
    fenced = False
    first = True
    for line in path.read_text(encoding="utf-8").splitlines():
        if line.startswith("```"):
            fenced = not fenced
        heading = None if fenced or line.startswith("    ") else HEADING.match(line)
        if heading:
            name = page(path.stem) if first else label(path.stem, slug(heading[2]))
            line = f"{line} {{#{name}}}"
            first = False
        elif not fenced and not line.startswith("    "):
            line = LINK.sub(lambda link: reference(path.stem, link[1], link[2]), line)
            line = CODE.sub(lambda match: code(names, match), line)
        print(line)


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="utf-8")
    main()
