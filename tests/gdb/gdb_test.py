"""Runs a program in GDB, which loads the printers by itself, and compares what it prints for each variable.

gdb_test.py PROGRAM [GDB ARGUMENT...]: the arguments tell GDB where an installation that is not the system's lies.
"""

import re
import subprocess
import sys

EXPECTED = {
    "text": r'"a \"b\"\n\\" (current)',
    "city": '"北京" (GB2312)',
    "broken": r'"ab\\xb1" (UTF8)',
    "zero": r'"a\0b" (current)',
    "nothing": '"" (current)',
    "extended": '"same" (current)',
    "wide": 'L"ж中"',
    "numbers": "KeldArray of 3 = {1, 4, 9}",
    "names": 'KeldList of 3 = {"aaa" (current), "aa" (current), "a" (current)}',
    "emptyList": "KeldList of 0",
    "byNumber": 'KeldDict of 3 = {[7] = "xxx" (current), [8] = "xx" (current), [9] = "x" (current)}',
    "byName": 'QzHash of 3 = {["k" (current)] = -1, ["kk" (current)] = -2, ["kkk" (current)] = -3}',
    "emptyHash": "QzHash of 0",
    "moment": "2026-11-21 09:34:56 UTC",
    "never": "9223372036854775807 s since 1970-01-01 UTC",
    "empty": 'QzMarkup at its start = {encoding = UTF8, text = ""}',
    "start": 'QzMarkup in /map, before its first element = {encoding = UTF8, text = '
             r'"<map><layer name=\"Rivers\"/><layer name=\"Roads\"><item/></layer></map>"}',
    "markup": 'QzMarkup at /map/layer = {child = "item", encoding = UTF8, text = '
              r'"<map><layer name=\"Lakes\"/><layer name=\"Roads\"><item/></layer></map>"}',
    "malformed": 'QzMarkup at its start = {encoding = UTF8, error = ", End tag does not correspond to b", text = "<a><b></a>"}',
}


def main():
    program, *arguments = sys.argv[1:]
    command = ["gdb", "-q", "-batch", "-nx", "-iex", "set charset UTF-8", *arguments, "-ex", "set debuginfod enabled off",
               "-ex", "break Stop", "-ex", "run", "-ex", "up"]
    for name in EXPECTED:
        command += ["-ex", f"echo @{name}@", "-ex", f"output {name}", "-ex", "echo @end@\\n"]
    done = subprocess.run([*command, program], capture_output=True, text=True, encoding="utf-8", timeout=250, check=False)
    faults = 0
    for name, expected in EXPECTED.items():
        found = re.search(f"@{name}@(.*?)@end@", done.stdout, re.DOTALL)
        printed = found[1] if found else "nothing"
        if printed != expected:
            print(f"{name} is shown as\n    {printed}\ninstead of\n    {expected}")
            faults += 1
    if faults:
        print(f"GDB said\n{done.stdout}{done.stderr}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
