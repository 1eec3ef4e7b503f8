#!/usr/bin/env python3
"""Shows a public header to Doxygen as its reader understands it:

- `// ---- Title: text` starts a group of members.
- A comment holds for what it stands above, and for what follows at once without a comment of its own where that is the
  same thing again: an overload, the other comparisons, `end` after `begin`, a setter and its getter, the other end of a
  text.
- What all classes call alike, such as GetLength, means alike and has its words below.
- What a comment indents is a program; a guide's file is the guide.
- QzStyle passes on what QzStyleEx does.
- What is deleted is not to be copied; other copies and moves that are defaulted need no words.

Everything else without a comment stays without, and Doxygen complains.
"""

import pathlib
import re
import sys

GROUP = re.compile(r"^( *)// ---- ?(.*)$")
COMPARISONS = ("operator==", "operator!=", "operator<", "operator>", "operator<=", "operator>=")
FORWARDER = re.compile(r"(?:return StyleEx|NeedStyleEx)\(\)\.(\w+)\(")
CONSTRUCTOR = re.compile(r" *(template <.*> )?(constexpr |explicit )*~?\w+\(")
SPECIAL = re.compile(r"= (delete|default);")


def code_of(line):
    """The line without comments and literals."""
    line = re.sub(r'"(\\.|[^"\\])*"', '""', line)
    line = re.sub(r"'(\\.|[^'\\])'", "''", line)
    return line.split("//")[0].rstrip()


def name_of(declaration):
    """The name of the function that a declaration declares, None where it declares something else."""
    text = re.sub(r"^\s*template <.*?>\s*(?=\w)", "", declaration)
    text = re.sub(r"\bKELD_PRINTF\(.*?\)|\balignas\(\w+\)", "", text)
    found = re.search(r"(operator\s*(?:\(\)|[^\s\w(]+|\w[\w: ]*\*?)|~?\w+)\s*\(", text)
    return found[1].replace(" ", "") if found else None


# What the classes call alike means alike; each says in its own comment what it counts and holds.
WORDS = {
    "GetLength": "How long it is.",
    "GetCount": "How many there are.",
    "GetSize": "How many there are.",
    "IsEmpty": "Whether there is nothing in it.",
    "empty": "Whether there is nothing in it.",
    "Empty": "Leaves nothing in it.",
    "Clear": "Leaves nothing in it.",
    "RemoveAll": "Leaves nothing in it.",
    "Cstr": "The text, ended by a zero; valid until the next change.",
    "IsOpen": "Whether it is open.",
    "begin": "For loops; what it gives is valid until the next change.",
    "end": "For loops: behind the last one.",
    "operator=": "Takes the other's value.",
    "operator==": "Whether both hold the same.",
    "operator+=": "Appends.",
    "operator[]": "The same as GetAt.",
    "operator()": "What the standard's tables ask for.",
    "operator*": "What it points to.",
    "operator->": "What it points to.",
    "operator++": "Goes on to the next one.",
    "using": "What the standard's algorithms ask for.",
}

# Pairs and rows of names that one comment tells of: both ends of a text, both operators of a stream, the axes.
SIDES = re.compile(r"(Left|Right|Upper|Lower|Head|Tail|X|Y|Z)$")


def stem_of(name):
    """The same for names of one thing: GetData, GetChildData, SetDataView are all Data."""
    if name in COMPARISONS:
        return "comparison"
    if name in ("operator<<", "operator>>"):
        return "transfer"
    if name in ("operatornew", "operatordelete"):
        return "memory"
    name = re.sub(r"^(GetIs|Get|SetIs|Set|Is|Insert|Add|trylock|lock)(?=[A-Z])", "", name)
    name = re.sub(r"^end$", "begin", name)
    name = name.replace("Child", "").replace("View", "")
    return SIDES.sub("", name)


def is_same(name, before):
    return name is not None and before is not None and stem_of(name) == stem_of(before)


class Header:
    def __init__(self, name, text):
        self.name = name
        self.lines = text.splitlines()
        self.out = []
        self.scopes = []  # of the open braces: "namespace", "class" or "other"
        self.comment = []  # the `///` block right above
        self.known = None  # the last documented function's name, until a blank line
        self.words = []  # and its comment
        self.group = False

    def with_code(self):
        """Lines that a comment indents are a program's."""
        inside = False
        for line in [*self.out, ""]:
            program = re.match(r" *///     +\S", line) is not None
            if program != inside and (program or not re.match(r" *///$", line)):
                yield "/// @code{.cpp}" if program else "/// @endcode"
                inside = program
            yield line

    def end_group(self):
        if self.group:
            self.out.append("/// @}")
        self.group = False

    def run(self):
        at = 0
        while at < len(self.lines):
            line = self.lines[at]
            bare = line.strip()
            group = GROUP.match(line)
            if group:
                at = self.start_group(at, group)
            elif bare.startswith("///"):
                self.comment.append(line)
                self.out.append(line)
                at += 1
            elif not bare or bare.startswith("//") or bare.startswith("#"):
                at = self.pass_line(at)
            elif re.match(r"(public|protected|private):", bare) or bare.startswith("}"):
                at = self.close(at, bare)
            else:
                at = self.declaration(at)
        return "\n".join(self.with_code())

    def start_group(self, at, group):
        self.end_group()
        title, _, text = group[2].partition(": ")
        title, dot, more = title.partition(". ")
        self.out.append(f"/// @name {title.rstrip('.')}")
        if more or text:
            self.out.append("/// " + (more or text[0].upper() + text[1:]))
        at += 1
        while at < len(self.lines) and re.match(r" *//( |$)", self.lines[at]):
            self.out.append(self.lines[at].replace("//", "///", 1))
            at += 1
        self.out.append("/// @{")
        self.group = True
        self.known = None
        self.comment = []
        return at

    def pass_line(self, at):
        if self.lines[at].startswith("// "):
            return self.pass_remark(at)
        self.out.append(self.lines[at])
        self.known = None
        self.comment = []
        while self.lines[at].endswith("\\"):
            at += 1
            self.out.append(self.lines[at])
        return at + 1

    def pass_remark(self, at):
        """What stands by itself outside of classes tells of all that is in the file."""
        block = []
        while self.lines[at].startswith("//"):
            block.append(self.lines[at])
            at += 1
        isAlone = not self.lines[at]
        if isAlone:
            self.out += [f"/// @file {self.name}", "///"] + [line.replace("//", "///", 1) for line in block] + ["///"]
        else:
            self.out += block
        self.known = None
        self.comment = []
        return at

    def close(self, at, bare):
        self.known = None
        self.comment = []
        self.end_group()
        if bare.startswith("}") and self.scopes:
            self.scopes.pop()
        self.out.append(self.lines[at])
        return at + 1

    def declaration(self, at):
        """From its first line to the end of its body, if it has one; of a scope, the line that opens it."""
        first = at
        depth = round_depth = 0
        text = ""
        while True:
            code = code_of(self.lines[at])
            text += " " + code.strip()
            depth += code.count("{") - code.count("}")
            round_depth += code.count("(") - code.count(")")
            opens = re.match(r" *(inline )?(namespace|class|struct|enum|union)\b[^;()=]*\{$", text.replace("MOTOOLKIT_API ", ""))
            template = re.match(r" *template <[^{]*(class|struct) \w[^;()=]*\{$", text)
            if opens or template or (depth <= 0 and round_depth <= 0 and re.search(r"[;}]\)?;?$", code)):
                break
            at += 1
        lines = self.lines[first:at + 1]
        if (opens or template) and depth > 0:
            self.scopes.append("scope")
            self.out += lines
            self.known = None
            self.comment = []
            return at + 1
        self.write(lines, text)
        return at + 1

    def write(self, lines, text):
        name = name_of(text.split("{")[0].strip()) if "(" in text else None
        special = SPECIAL.search(text)
        trailing = any("///<" in line for line in lines)
        forwarder = FORWARDER.search(text)
        indent = re.match(" *", lines[0])[0]
        if self.comment or trailing:
            self.known = name
            self.words = self.comment or [indent + "/// " + line.split("///<")[1].strip()
                                          for line in lines if "///<" in line]
        elif special and special[1] == "delete":
            self.out.append(indent + "/// Not to be copied.")
        elif re.match(r" *(constexpr )?(\w+)\(\)( = default)?;", text):
            self.out.append(indent + "/// A new one.")
        elif special:
            lines = []
        elif forwarder:
            self.out.append(f"{indent}/// See QzStyleEx::{forwarder[1]}.")
        elif not CONSTRUCTOR.match(text) and is_same(name, self.known):
            self.out += self.words
        elif self.word_for(name, text, lines):
            self.out.append(f"{indent}/// {self.word_for(name, text, lines)}")
        else:
            self.known = None
        self.out += lines
        self.comment = []

    @staticmethod
    def word_for(name, text, lines):
        if re.search(r"using (iterator_category|value_type|difference_type|pointer|reference) =", text):
            return WORDS["using"]
        copied = re.match(r" *(?:explicit )?(\w+)\(const \1& ", text) or re.match(r" *(\w+)\(\1&& ", text)
        return "The same value." if copied else WORDS.get(name)


def main():
    sys.stdout.reconfigure(encoding="utf-8")
    path = pathlib.Path(sys.argv[1])
    text = Header(path.name, path.read_text(encoding="utf-8")).run()
    print(f"/// @file {path.name}")  # macros belong to files
    print(re.sub(r"\bdocs/(\w+)\.md", r"@ref guide_\1", text))


if __name__ == "__main__":
    main()
