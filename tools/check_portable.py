#!/usr/bin/env python3
"""Has clang look at the library, the examples and the tools for Windows, as strictly as it can: what only one compiler
takes shows here. Exits with 1 when there is something.

    tools/check_portable.py BUILD_DIR...    folders that have been configured for Windows

The programs are looked at in the first folder alone: what the size of a pointer changes is in the library.
"""

import concurrent.futures
import json
import os
import pathlib
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def header_folders(compiler):
    """Where a compiler looks for the headers of its system and its C++ library."""
    done = subprocess.run([compiler, "-xc++", "-E", "-v", os.devnull, "-o", os.devnull], capture_output=True, text=True,
                          check=True)
    lines = done.stderr.splitlines()
    listed = lines[lines.index("#include <...> search starts here:") + 1:lines.index("End of search list.")]
    # Those of the compiler itself clang has its own of.
    return [folder.strip() for folder in listed if "/c++" in folder or "/lib/gcc" not in folder]


def commands(build, parts):
    folders = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        path = os.path.relpath(entry["file"], ROOT)
        if path.split("/")[0] not in parts:
            continue
        words = shlex.split(entry["command"])
        at = next(i for i, word in enumerate(words) if word.startswith("-")) - 1  # a launcher may stand in front
        compiler = words[at]
        if compiler not in folders:
            folders[compiler] = header_folders(compiler)
        target = "-".join(pathlib.Path(compiler).name.split("-")[:3])
        kept = [word for word in words[at + 1:words.index("-o")] if word.startswith(("-D", "-I", "-W", "-std="))]
        kept += [word for flag, word in zip(words, words[1:]) if flag == "-isystem" for word in (flag, word)]
        system = ["-nostdinc++"] + [word for folder in folders[compiler] for word in ("-isystem", folder)]
        yield path, target, entry["directory"], ["clang++", f"--target={target}", "-fsyntax-only", "-pedantic-errors",
                                                 "-Werror", *kept, *system, entry["file"]]


def look(command):
    path, target, directory, words = command
    done = subprocess.run(words, cwd=directory, capture_output=True, text=True)
    return "" if done.returncode == 0 else f"{path} for {target}:\n{done.stderr}"


def main():
    unique = {}
    for build in sys.argv[1:]:
        for command in commands(pathlib.Path(build), ("src",) if unique else ("src", "tools", "examples")):
            unique[command[:2]] = command  # a source may be part of several libraries
    if not unique:
        sys.exit(__doc__)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        faults = [found for found in pool.map(look, unique.values()) if found]
    print("\n".join(faults) if faults else f"{len(unique)} sources: clang takes them for Windows")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
