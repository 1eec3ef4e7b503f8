#!/usr/bin/env python3
"""Runs commands in a terminal and draws what it shows.

    tools/draw_terminal.py OUT.svg COLUMNS FOLDER COMMAND...

Each COMMAND is a line for the shell, run in FOLDER. docs/motool.svg is made by

    PATH=$PWD/build/release/bin:$PATH tools/draw_terminal.py docs/motool.svg 116 examples/data \\
        'motool log viewer.log --level info --count 12' 'motool log viewer.log --summary'
"""

import fcntl
import html
import os
import pty
import re
import struct
import subprocess
import sys
import termios
import unicodedata

CELL, ROW, MARGIN = 7.8, 17, 14
COLOURS = {"31": "#ff7b72", "32": "#7ee787", "33": "#e3b341", "90": "#8b949e"}


def run(command, columns, folder):
    """What a terminal of that width is sent."""
    master, slave = pty.openpty()
    fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 50, columns, 0, 0))
    environment = {**os.environ, "LC_ALL": "C.UTF-8", "TZ": "UTC0"}
    process = subprocess.Popen(["sh", "-c", command], stdout=slave, stderr=slave, cwd=folder, env=environment)
    os.close(slave)
    shown = b""
    while True:
        try:
            part = os.read(master, 65536)
        except OSError:  # the terminal goes with its last user
            part = b""
        if not part:
            break
        shown += part
    os.close(master)
    if process.wait() != 0:
        sys.exit(f"{command}: exit status {process.returncode}\n{shown.decode()}")
    return shown.decode().replace("\r\n", "\n").splitlines()


def width(text):
    return sum(2 if unicodedata.east_asian_width(c) in "WF" else 1 for c in text)


def draw_line(line, top):
    """Each run of one style at its own place, so that the columns hold whatever the font is."""
    parts, style, column = [], "", 0
    for piece in re.split(r"(\x1b\[[0-9;]*m)", line):
        code = re.fullmatch(r"\x1b\[([0-9;]*)m", piece)
        if code:
            codes = code[1].split(";")
            style = "".join(f' fill="{COLOURS[c]}"' for c in codes if c in COLOURS)
            style += ' font-weight="bold"' if "1" in codes else ""
            style += ' fill="#ff7b72" text-decoration="underline"' if "41" in codes else ""
            continue
        for word in re.finditer(r"\S+(?: \S+)*", piece):
            left = MARGIN + CELL * (column + width(piece[:word.start()]))
            length = CELL * width(word[0])
            parts.append(f'<text x="{left:.1f}" y="{top}" textLength="{length:.1f}"{style}>{html.escape(word[0])}</text>')
        column += width(piece)
    return parts


def main():
    out, columns, folder, *commands = sys.argv[1:]
    lines = []
    for command in commands:
        lines += ([""] if lines else []) + ["\x1b[32m$\x1b[0m \x1b[1m" + command + "\x1b[0m"]
        lines += run(command, int(columns), folder)
    across = round(2 * MARGIN + CELL * int(columns))
    down = 2 * MARGIN + ROW * len(lines)
    svg = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {across} {down}" width="{across}" height="{down}" '
           'font-family="DejaVu Sans Mono, Menlo, Consolas, monospace" font-size="13" fill="#e6edf3" '
           'xml:space="preserve" lengthAdjust="spacingAndGlyphs">',
           f'<rect width="{across}" height="{down}" rx="8" fill="#0d1117"/>']
    for number, line in enumerate(lines):
        svg += draw_line(line, MARGIN + ROW * number + 13)
    with open(out, "w", encoding="utf-8") as file:
        file.write("\n".join(svg) + "\n</svg>\n")


if __name__ == "__main__":
    main()
