# SPDX-License-Identifier: Apache-2.0
"""Reads a C header of this tree: its comment blocks and the declarations that follow them.

The reader knows the layout of these headers, not C: a block opens with /** and
directly precedes the declaration that it describes; a declaration of an exported
name begins in the first column, with AAA_API, AAA_API_EXT or PLATFORM_API in the
headers of shared libraries.
"""
import re
from dataclasses import dataclass, field

EXPORT = re.compile(r"(?:AAA_API\w*|PLATFORM_API)\s+(.*)")
# Headers of static libraries have no such marks.
UNMARKED = re.compile(r"((?!typedef|struct|enum|static|union)[\w\s*]+\b\w+\(.*\);)")


@dataclass
class Item:
    """One thing of a header: a heading, loose text, or a declaration with its block."""
    kind: str                    # group, text, function, data, code
    text: str                    # heading, text, or the unchanged declaration
    doc: list = field(default_factory=list)  # lines of the block, without the stars
    name: str = ""               # of a function or object


@dataclass
class Header:
    path: str
    brief: str = ""
    contract: list = field(default_factory=list)  # lines of the file's own block
    items: list = field(default_factory=list)

    def exported(self):
        return [item for item in self.items if item.kind in ("function", "data")]


def block_lines(raw):
    """The lines of a comment without its delimiters and stars."""
    body = re.sub(r"^/\*\*?(?![*/])", "", raw.strip())
    body = re.sub(r"\s*\*/$", "", body)
    lines = [re.sub(r"^\s*\* ?", "", line).rstrip() if n else line.strip()
             for n, line in enumerate(body.split("\n"))]
    while lines and not lines[0]:
        lines.pop(0)
    while lines and not lines[-1]:
        lines.pop()
    return lines


def without_comments(text):
    return re.sub(r"/\*.*?\*/", "", text, flags=re.S)


class Reader:
    def __init__(self, path, text):
        self.lines = text.split("\n")
        self.at = 0
        self.header = Header(path)
        self.unmarked = not re.search(r"_API\w* ", text)

    def take_comment(self):
        start = self.at
        while "*/" not in self.lines[self.at]:
            self.at += 1
        self.at += 1
        return "\n".join(self.lines[start:self.at])

    def take_declaration(self):
        """Lines up to the semicolon that closes the declaration, braces balanced."""
        start = self.at
        while True:
            self.at += 1
            code = without_comments("\n".join(self.lines[start:self.at]))
            if code.count("{") == code.count("}") and code.rstrip().endswith(";"):
                return "\n".join(self.lines[start:self.at])

    def take_defines(self):
        start = self.at
        while self.lines[self.at].startswith("#define"):
            while self.lines[self.at].endswith("\\"):
                self.at += 1
            self.at += 1
        return "\n".join(self.lines[start:self.at])

    def comment(self, raw):
        """Stores a comment; returns its lines if it is the block of the next declaration."""
        heading = re.match(r"/\* ---- (.*?) -* ?\*/$", raw)
        lines = block_lines(raw)
        if heading:
            self.header.items.append(Item("group", re.sub(r" -+$", "", heading.group(1))))
        elif not raw.startswith("/**"):
            if self.at < len(self.lines) and self.lines[self.at].startswith("#define"):
                return lines
            self.header.items.append(Item("text", "", lines))
        elif lines and lines[0] == "@file":
            lines = lines[1:]
            if lines[0].startswith("@brief"):
                self.header.brief = lines[0].removeprefix("@brief").strip().rstrip(".")
                lines = lines[1:]
            self.header.contract = lines
        elif lines and lines[0].startswith("@name"):
            self.header.items.append(Item("group", lines[0].removeprefix("@name").strip()))
            self.header.items.append(Item("text", "", [line for line in lines[1:] if line != "@{"]))
        elif lines != ["@}"]:
            return lines
        return None

    def declaration(self, doc):
        text = self.take_declaration()
        if text.startswith("static_assert"):
            return
        exported = EXPORT.match(text.replace("\n", " "))
        if self.unmarked and not exported:
            exported = UNMARKED.match(text.replace("\n", " "))
        if not exported:
            self.header.items.append(Item("code", text, doc))
            return
        plain = re.sub(r"\s+", " ", without_comments(exported.group(1))).strip().rstrip(";")
        name = re.search(r"(\w+)\s*(?:\(|\[|$)", plain)
        kind = "data" if plain.startswith("extern") else "function"
        self.header.items.append(Item(kind, plain, doc, name.group(1)))

    def read(self):
        doc = []
        guard = False
        while self.at < len(self.lines):
            line = self.lines[self.at]
            if line.startswith(("#ifdef __cplusplus", "#if !defined(__cplusplus)")):
                while not self.lines[self.at].startswith("#endif"):
                    self.at += 1
                self.at += 1
            elif line.startswith("/*"):
                raw = self.take_comment()
                if "SPDX-License" not in raw:
                    doc = self.comment(raw) or []
            elif line.startswith("#define") and guard:
                self.header.items.append(Item("code", self.take_defines(), doc))
                doc = []
            elif not line.strip() or line.startswith("#"):
                guard = guard or line.startswith("#define")
                self.at += 1
                doc = [] if not line.strip() else doc
            else:
                self.declaration(doc)
                doc = []
        return self.header


def read(path, root):
    return Reader(path, (root / path).read_text()).read()


def parameters(plain):
    """The parameters of a prototype, split at the commas outside parentheses."""
    inside = plain[plain.index("(") + 1:plain.rindex(")")]
    parts, depth, current = [], 0, ""
    for char in inside:
        depth += (char == "(") - (char == ")")
        if char == "," and depth == 0:
            parts.append(current.strip())
            current = ""
        else:
            current += char
    return parts + [current.strip()]


def argument_name(part):
    if part in ("void", "..."):
        return part
    callback = re.search(r"\(\*(\w+)\)", part)
    return callback.group(1) if callback else re.search(r"(\w+)(?:\[\w*\])?$", part).group(1)


def result_type(plain):
    head = plain[:plain.index("(")]
    return re.sub(r"\w+$", "", head).strip()
