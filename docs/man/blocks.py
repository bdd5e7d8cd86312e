# SPDX-License-Identifier: Apache-2.0
"""Turns the comment blocks of the headers into mdoc(7).

The blocks contain paragraphs, "- " and numbered lists, tables with bars, indented
code, @param and @return, and the words "Ownership:" and "Threads:" at the beginning
of a paragraph.
"""
import re

# The beginning of an entry in a list of results: "AAA_OK: created."
CODE = (r"(?:[A-Z][A-Z0-9]+_[A-Z0-9_]+|0x[0-9A-Fa-f]+|-?\d+|(?:[Aa]nother|[Aa]ny other|[Aa]) (?:code|value)"
        r"|[Aa]n errno value|non-zero|null)")
RESULT = re.compile(rf"({CODE}(?:(?:, | or ){CODE})*): (.*)")
BULLET = re.compile(r"(\s*)(?:-|(\d+)\.) +(.*)")
PARAM = re.compile(r"@param(?:\[([a-z,]+)\])?\s+(\S+)\s+(.*)")
WIDEST_COLUMNS = 50  # of a table, without its last
MARKUP = re.compile(r"\*\*(.+?)\*\*|(?<![\w*])\*([A-Za-z](?:[^*]*?[\w.])?)\*(?!\w)|@p (\w+)|`([^`]+)`|\b([A-Za-z_]\w*)(?=\(\))"
                    r"|\b([A-Z][A-Z0-9]*_[A-Z0-9_]*[A-Z0-9])\b")


def literal(text):
    """Escapes text so that roff prints it unchanged, also as an argument of a macro."""
    for char, escape in (("\\", "\\e"), ("-", "\\-"), ("'", "\\(aq"), ("`", "\\(ga"), ("^", "\\(ha"), ("~", "\\(ti"),
                         ('"', "\\(dq")):
        text = text.replace(char, escape)
    return "\\&" + text if text.startswith((".", "\\(aq")) else text


def prose(text):
    """A piece of running text: markup becomes fonts."""
    out, at = "", 0
    for match in MARKUP.finditer(text):
        strong, emphatic, parameter, code, function, constant = match.groups()
        out += plain(text[at:match.start()])
        if strong:
            out += "\\fB" + plain(strong) + "\\fR"
        elif emphatic or parameter:
            out += "\\fI" + literal(emphatic or parameter) + "\\fR"
        elif code or function:
            out += "\\fB" + literal(code or function) + "\\fR"
        else:
            out += literal(constant)
        at = match.end()
    out += plain(text[at:])
    # One sentence to a line, as mdoc(7) wants it.
    lines = re.split(r"(?<=[A-Za-z0-9)\"\]]\.) (?=[A-Z\"(\\])", out)
    return "\n".join("\\&" + line if line.startswith((".", "'")) else line for line in lines)


def plain(text):
    text = text.replace("\\", "\\e")
    text = re.sub(r"(?<!\w)-(?=\d)", "\\-", text)  # a sign, not a hyphen
    return text.replace("^", "\\(ha").replace("~", "\\(ti").replace("`", "\\(ga")


def display(lines):
    """Lines that are shown unchanged."""
    return [".Bd -literal -offset indent"] + [literal(line).replace("\\(dq", '"') for line in lines] + [".Ed"]


def table(lines):
    rows = [[cell.strip() for cell in re.split(r"(?<!\\)\|", line.strip().strip("|"))] for line in lines]
    rows = [row for row in rows if not all(re.fullmatch(r":?-+:?", cell) for cell in row)]
    if not any(rows[0]):
        rows.pop(0)
    elif sum(max(len(row[n]) for row in rows) + 2 for n in range(len(rows[0]) - 1)) > WIDEST_COLUMNS:
        return row_by_row(*rows)
    columns = " ".join(f'"{"x" * (max(len(row[n]) for row in rows) + 1)}"' for n in range(len(rows[0]) - 1))
    out = [f".Bl -column {columns} \"x\" -offset indent".replace("  ", " ")]
    out += [".It " + " Ta ".join(quoted(cell) for cell in row) for row in rows]
    return out + [".El"]


def row_by_row(head, *rows):
    """A table that is too wide for a page, as a list: mdoc(7) wraps only the last column of a table."""
    out = [".Bl -tag -width Ds -compact"]
    for first, *rest in rows:
        named = [f"{name[0].upper()}{name[1:]}: {cell}." for name, cell in zip(head[1:], rest) if cell]
        out += [".It " + quoted(f"{head[0]} {first}"), prose(" ".join(named))]
    return out + [".El"]


def on_one_line(text):
    """Running text as the argument of a macro."""
    return prose(text).replace("\n", " ")


def quoted(cell):
    text = on_one_line(cell).replace('"', "\\(dq")
    return f'"{text}"' if text else '""'


class Body:
    """The lines of one block, converted to mdoc element by element."""

    def __init__(self, lines):
        self.lines = [part for line in lines for part in re.split(r"(?<=\S) (?=@return )", line)]
        self.at = 0
        self.out = []

    def more(self):
        return self.at < len(self.lines)

    def take_while(self, test):
        start = self.at
        while self.more() and test(self.lines[self.at]):
            self.at += 1
        return self.lines[start:self.at]

    def paragraph(self):
        def goes_on(line):
            return line.strip() and not line.startswith(("@", "|")) and not BULLET.match(line)
        first = self.lines[self.at]
        self.at += 1
        words = [first] + self.take_while(goes_on)
        return " ".join(line.strip() for line in words)

    def bullets(self, results=False):
        """A list and its nested lists; that of @return has results, also those told in words."""
        indent, numbered, _ = BULLET.match(self.lines[self.at]).groups()
        depth = len(indent)
        entries = []  # words, and the nested list
        while self.at_bullet() and len(BULLET.match(self.lines[self.at]).group(1)) == depth:
            first = BULLET.match(self.lines[self.at]).group(3)
            self.at += 1
            rest = self.take_while(lambda line: line.strip() and not BULLET.match(line)
                                   and len(line) - len(line.lstrip()) > depth)
            inner = self.at_bullet() and len(self.at_bullet().group(1)) > depth
            entries.append((" ".join([first] + [line.strip() for line in rest]), self.bullets() if inner else []))
            self.take_blank(lambda line: BULLET.match(line) and len(BULLET.match(line).group(1)) == depth)
        if numbered:
            return [".Bl -enum"] + [line for words, inner in entries for line in [".It", prose(words)] + inner] + [".El"]
        return self.entries(entries, results)

    @staticmethod
    def entries(entries, results=False):
        """A list of results with their meanings, or a plain list."""
        out = [".Bl -dash -compact"]
        if any(RESULT.match(words) for words, _ in entries) or (results and all(": " in words for words, _ in entries)):
            out = [".Bl -tag -width Ds -compact"]
        for words, inner in entries:
            result = RESULT.match(words)
            if result:
                out += [".It " + on_one_line(result.group(1)), prose(result.group(2))]
            elif "-tag" in out[0]:
                head, _, rest = words.partition(": ")
                out += [".It " + on_one_line(head.rstrip("."))] + ([prose(rest)] if rest else [])
            else:
                out += [".It", prose(words)]
            out += inner
        return out + [".El"]

    def take_blank(self, before):
        """Skips one blank line if the line that follows it belongs to the same list."""
        if self.at + 1 < len(self.lines) and not self.lines[self.at].strip() and before(self.lines[self.at + 1]):
            self.at += 1

    def params(self):
        out = [".Bl -tag -width Ds -compact"]
        while self.more() and self.lines[self.at].startswith("@param"):
            direction, name, text = PARAM.match(self.lines[self.at]).groups()
            self.at += 1
            rest = self.take_while(lambda line: line.strip() and not line.startswith("@"))
            text = " ".join([text] + [line.strip() for line in rest])
            told = re.match(r"(in/out|in and out|in|out)(?:[:,.] ?|$)", text)
            if told:
                direction, text = told.group(1), text[told.end():]
            direction = {"in,out": "in/out", "in and out": "in/out"}.get(direction, direction)
            shown = f" ({direction})" if direction else ""
            out += [f".It Fa {literal(name)}{shown}"]
            out += [prose(text[0].upper() + text[1:] if text[0].islower() and " " in text else text)] if text else []
        return out + [".El"]

    def returned(self):
        """@return with text, with a list below, or with one result to a line."""
        first = self.lines[self.at].removeprefix("@return").strip()
        self.at += 1
        rest = self.take_while(lambda line: line.strip() and not BULLET.match(line) and not line.startswith("@"))
        entries = []
        for line in [first] + [line.strip() for line in rest]:
            if RESULT.match(line) or not entries:
                entries.append(line)
            else:
                entries[-1] += " " + line
        if RESULT.match(entries[0]):
            entries = [part for entry in entries for part in re.split(rf"; (?=(?:{CODE}): )", entry)]
        out = [".Pp", "Returns"]
        if len(entries) > 1 or RESULT.match(entries[0]):
            out += self.entries([(entry, []) for entry in entries])
        elif entries[0]:
            first = entries[0] if entries[0][1:2].isupper() else entries[0][0].lower() + entries[0][1:]
            out[1] += " " + prose(first) + ("" if entries[0].endswith(".") or self.at_bullet() else ".")
        return out + (self.bullets(results=True) if self.at_bullet() else [])

    def at_bullet(self):
        return BULLET.match(self.lines[self.at]) if self.more() else None

    def element(self):
        line = self.lines[self.at]
        if not line.strip():
            self.at += 1
            return []
        if line.startswith("@param"):
            return [".Pp"] + self.params()
        if line.startswith("@return"):
            return self.returned()
        if line.startswith("|"):
            return [".Pp"] + table(self.take_while(lambda row: row.startswith("|")))
        if BULLET.match(line):
            return [".Pp"] + self.bullets() if "compact" in line else self.bullets()
        if line.startswith("    "):
            code = self.take_while(lambda row: row.startswith("    ") or not row.strip())
            while not code[-1].strip():
                code.pop()
            return display([row[4:] for row in code])
        return [".Pp", prose(self.paragraph())]

    def mdoc(self):
        while self.more():
            self.out += self.element()
        while self.out and self.out[0] == ".Pp":
            self.out.pop(0)
        return self.out


def to_mdoc(lines):
    return Body(lines).mdoc()
