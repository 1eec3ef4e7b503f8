#!/usr/bin/env python3
"""Holds the sources to the house's plan (docs/architecture.md): what may include what, who may know the system,
that the process's own state is guarded by GlobalLock alone, and that every public header stands alone. Prints a line per fault; exits with 1 when there is one.

    tools/check_layers.py [--no-compile]
"""

import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent

# From the lowest up: a source includes what stands in its own room or in one named before it.
ORDER = ["platform", "base", "stream", "toolkit",
         "toolkit/text", "toolkit/concurrency", "toolkit/xml", "toolkit/configuration", "toolkit/log",
         "toolkit/style", "toolkit/process"]

# Public headers of the toolkit without a source of their name; all others belong to the room of their source.
HEADER_ROOMS = {
    "motoolkitexport": "toolkit",
    "qzlogmacros": "toolkit/log",
    "qzmarkupranges": "toolkit/xml",
    "qzstyleexport": "toolkit/style",
    "qzhash": "toolkit",
    "qztaskfilter": "toolkit/concurrency",
    "qztaskprocessor": "toolkit/concurrency",
    "qzcolorvalue3d": "toolkit/style",
    "qzstyleexport": "toolkit/style",
    "qzprocessreaderlock": "toolkit/process",
    "qzprocesswriterlock": "toolkit/process",
}

STANDARD = set("""
    algorithm any array atomic bitset cassert cctype cerrno cfenv cfloat charconv chrono cinttypes climits clocale cmath
    codecvt complex condition_variable csetjmp csignal cstdarg cstddef cstdint cstdio cstdlib cstring ctime cuchar
    cwchar cwctype deque exception execution filesystem forward_list fstream functional future initializer_list iomanip
    ios iosfwd iostream istream iterator limits list locale map memory memory_resource mutex new numeric optional
    ostream queue random ratio regex scoped_allocator set shared_mutex sstream stack stdexcept streambuf string
    string_view system_error thread tuple type_traits typeindex typeinfo unordered_map unordered_set utility valarray
    variant vector version
""".split())
# What else a source may include: the converter, and the processor's vectors.
OTHERS = {"src/toolkit/text": {"iconv.h"}, "src/toolkit/xml": {"emmintrin.h", "immintrin.h"}}

SYSTEM_MACRO = re.compile(r"\b(_WIN32|_WIN64|WIN32|__MINGW\w*|_MSC_VER|__CYGWIN__|__linux__|__linux|__unix__|__unix|unix|"
                          r"__APPLE__|__ANDROID__|__FreeBSD__|__GLIBC__|_GNU_SOURCE|_POSIX_\w+|__BIONIC__)\b")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
DIRECTIVE = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif|define|undef)\b")

# A lock that all threads share and no object owns. Whoever is ended by force under one without a shield shuts it for
# the rest of the process, so there is one kind: Platform::GlobalLock. Sources have no indentation in a namespace.
LOCK = (r"\b(std::((recursive_|shared_)?(timed_)?mutex|shared_mutex|once_flag|condition_variable(_any)?|atomic_flag)|"
        r"pthread_(mutex|rwlock|cond|spinlock)_t|sem_t|BinaryLock|RecursiveLock|ReadWriteLock|Condition|Semaphore|"
        r"QzMutex|QzReadWriteLock|QzSemaphore|QzCondition)\b")
SHARED_LOCK = re.compile(r"^(\s*((inline|const|alignas\(\w+\)) )*static )?(?![ /])[^()\"]*" + LOCK + r"[^()\"]*[ &*][\w:]+ *[;={\[(]")


def toolkit_header_room(stem):
    if stem in HEADER_ROOMS:
        return HEADER_ROOMS[stem]
    found = sorted((ROOT / "src/toolkit").rglob(stem + ".cpp"))
    return str(found[0].parent.relative_to(ROOT / "src")) if found else None


def room_of(name):
    """The room of what is included as `name`, or stands under that name in include/ or src/; None: in none."""
    parts = name.split("/")
    if parts[0] in ("platform", "base", "stream"):
        return parts[0]
    if parts[0] != "toolkit":
        return None
    if len(parts) > 2:
        return "/".join(parts[:2])
    if (ROOT / "src" / name).exists():
        return "toolkit"  # what several rooms share
    return toolkit_header_room(pathlib.PurePath(name).stem)


def check_source(path, faults):
    name = str(path.relative_to(ROOT))
    below = name.split("/", 1)[1]
    room = room_of(below)
    if room not in ORDER:
        faults.append(f"{name}: belongs to no room")
        return
    # The systems' own folders are where the system is known.
    knows_system = re.match(r"src/platform/\w+/", name) is not None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        where = f"{name}:{number}"
        lock = SHARED_LOCK.match(line.split("//")[0])
        if lock:
            faults.append(f"{where}: a {lock[4]} for the whole process; only platform/globallock.h is shielded")
        include = INCLUDE.match(line)
        if include is None:
            macro = SYSTEM_MACRO.search(line.split("//")[0]) if DIRECTIVE.match(line) else None
            if macro and not knows_system:
                faults.append(f"{where}: asks for the system ({macro[1]}), which src/platform alone may know")
            continue
        kind, target = include.groups()
        if kind == "<":
            allowed = target in STANDARD or target in OTHERS.get(str(path.parent.relative_to(ROOT)), ())
            if not allowed and not knows_system:
                faults.append(f"{where}: <{target}> is no header of C++17; the system is known in src/platform alone")
            continue
        other = room_of(target)
        if other not in ORDER:
            faults.append(f"{where}: \"{target}\" belongs to no room")
        elif ORDER.index(other) > ORDER.index(room):
            faults.append(f"{where}: {room} may not know {other} (\"{target}\")")
        elif other == "platform" and name.startswith("include/"):
            faults.append(f"{where}: a public header may not show the platform")


def compile_alone(header, stubs):
    name = str(header.relative_to(ROOT / "include"))
    command = [os.environ.get("CXX", "g++"), "-std=c++17", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
               "-x", "c++", "-I", str(ROOT / "include"), "-I", stubs, "-"]
    done = subprocess.run(command, input=f'#include "{name}"\n', capture_output=True, text=True)
    return [] if done.returncode == 0 else [f"include/{name} does not compile alone:\n{done.stderr}"]


def compile_headers(faults):
    with tempfile.TemporaryDirectory() as stubs:
        # What the build generates; here nothing needs to be exported.
        for folder, library in (("base", "MoBase"), ("stream", "MoStream"), ("toolkit", "MoToolkit")):
            stub = pathlib.Path(stubs) / folder / f"{library.lower()}export.h"
            stub.parent.mkdir()
            macro = library.upper()
            stub.write_text(f"#pragma once\n#define {macro}_API\n#define {macro}_NO_EXPORT\n")
        headers = sorted((ROOT / "include").rglob("*.h"))
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            for found in pool.map(lambda header: compile_alone(header, stubs), headers):
                faults += found


def main():
    faults = []
    sources = sorted(p for top in ("include", "src") for p in (ROOT / top).rglob("*") if p.suffix in (".h", ".cpp"))
    for source in sources:
        check_source(source, faults)
    if "--no-compile" not in sys.argv[1:]:
        compile_headers(faults)
    print("\n".join(faults) if faults else f"{len(sources)} sources: every arrow runs downward")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
