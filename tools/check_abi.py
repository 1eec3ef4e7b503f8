#!/usr/bin/env python3
"""Compares what the libraries of a build export with the lists in tests/abi, one per library.

    tools/check_abi.py LIBRARY_DIR             tells what is new and what is lost; exits with 1 when there is any
    tools/check_abi.py LIBRARY_DIR --update    writes the lists

A lost name breaks programs that were linked before; a new one stays for as long as the library keeps its number. The
lists hold functions and data, and the tables and type descriptions of classes. They leave out inline functions and
instances of templates (weak functions, types W and u of nm): who uses one has a copy of its own, and which of them a
library happens to hold differs between compilers. For the same reason weak descriptions of std's classes are left out.
So are the members of classes that the headers only name (QzLogFile::State): no program can call them.
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LISTS = ROOT / "tests/abi"
LIBRARIES = ("MoBase", "MoStream", "MoToolkit")
OURS = ("KELD::", "Qzc::")
DESCRIPTIONS = ("vtable for ", "typeinfo for ", "typeinfo name for ", "guard variable for ")
SCOPES = re.compile(r"(?:KELD|Qzc)::((?:\w+::)*)")
DEFINITION = re.compile(r"^ *(?:class|struct|union|enum|namespace) (?:\w+_API )?([\w:]+)[^;(){\n]*\{", re.MULTILINE)


def defined_scopes():
    """The classes that the public headers define."""
    text = "\n".join(header.read_text() for header in (ROOT / "include").rglob("*.h"))
    return {part for name in DEFINITION.findall(text) for part in name.split("::")}


def exported(library, scopes):
    """The names that a library exports, and those of them that no export macro can have marked."""
    output = subprocess.run(["nm", "--dynamic", "--defined-only", "--demangle", library], capture_output=True, text=True,
                            check=True).stdout
    names = set()
    strangers = set()
    for line in output.splitlines():
        kind, name = line.split(maxsplit=2)[1:]
        bare = name
        for description in DESCRIPTIONS:
            bare = bare.removeprefix(description)
        if kind in "Wu" or (kind == "V" and not bare.startswith(OURS)):
            continue
        found = SCOPES.match(bare)
        if found and not set(found[1].split("::")) <= scopes:
            continue
        (names if bare.startswith(OURS) else strangers).add(name)
    return names, strangers


def main():
    arguments = [argument for argument in sys.argv[1:] if argument != "--update"]
    if len(arguments) != 1:
        sys.exit(__doc__)
    faults = []
    scopes = defined_scopes() | {""}
    for library in LIBRARIES:
        names, strangers = exported(pathlib.Path(arguments[0]) / f"lib{library}.so", scopes)
        faults += [f"{library} exports {name}, which is none of its own" for name in sorted(strangers)]
        kept_file = LISTS / f"{library}.txt"
        if "--update" in sys.argv:
            kept_file.write_text("".join(f"{name}\n" for name in sorted(names)))
        kept = set(kept_file.read_text().splitlines()) if kept_file.exists() else set()
        faults += [f"{library} has lost {name}" for name in sorted(kept - names)]
        faults += [f"{library} has {name}, which is new" for name in sorted(names - kept)]
    if faults:
        print("\n".join(faults))
        print("If this is meant: tools/check_abi.py LIBRARY_DIR --update, and the version (CONTRIBUTING.md) for what is lost")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
