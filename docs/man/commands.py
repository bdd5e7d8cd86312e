# SPDX-License-Identifier: Apache-2.0
"""The commands of aaactl in mdoc(7), made from the output of --help."""
import os
import re
import subprocess
import textwrap

import blocks

SECTIONS = ("Positionals:", "Options:", "Subcommands:", "[Option Group")
EVERYWHERE = {"--help", "--help-all", "--version", "--json", "--show-secrets", "--color"}
NOTES = re.compile(r" (REQUIRED)")


class Command:
    """One page of help, taken apart."""

    def __init__(self, program, path):
        # The library must not start its worker, and the help must not depend on the terminal.
        environment = dict(os.environ, NO_DLLMAIN="1", COLUMNS="80", AAA_LOG="none")
        done = subprocess.run([program, *path, "--help"], env=environment, check=True, capture_output=True, text=True)
        self.path = path
        self.about, self.usage, self.footer = "", "", []
        self.rows = {section: [] for section in SECTIONS}
        self.read(done.stdout.rstrip().split("\n"))

    def read(self, lines):
        section = None
        for n, line in enumerate(lines):
            if line.startswith("Usage: "):
                self.usage = re.sub(r" \[OPTIONS\]", "", line.removeprefix("Usage: "))
                self.about = " ".join(lines[:n])
            elif line.startswith(SECTIONS) and not self.footer:
                section = next(word for word in SECTIONS if line.startswith(word))
            elif section and line.startswith("  "):
                self.row(section, line)
            elif not line.strip() and not self.footer:
                section = None
            elif self.usage:
                self.footer = lines[n:]
                return

    def row(self, section, line):
        rows = self.rows[section]
        if line.startswith(" " * 20):
            rows[-1][1] = (rows[-1][1] + " " + line.strip()).strip()
            return
        head, _, text = line.strip().partition("  ")
        rows.append([head, text.strip()])

    def subcommands(self):
        return [head for head, _ in self.rows["Subcommands:"]]

    def options(self):
        rows = self.rows["Options:"] + self.rows["[Option Group"]
        return [row for row in rows if not EVERYWHERE.intersection(re.split(r"[, ]", row[0]))]


def sentence(text):
    """The text with a capital and a full stop; a text that begins with a list of words keeps their case."""
    if text and not re.match(r"\S+,", text):
        text = text[0].upper() + text[1:]
    return text if not text or text.endswith((".", "!", "?")) else text + "."


def is_optional(name, usage):
    """Whether the usage line has the positional in brackets."""
    return f"[{name}" in usage


def described(head, text, usage):
    """A positional or an option: its names and its value."""
    notes = NOTES.findall(head)
    head = NOTES.sub("", head)
    names, _, value = head.partition(" ")
    value = value.removesuffix("...")
    flags = [f"Fl {name[1:]}" for name in names.split(",")] if names.startswith("-") else [f"Ar {names}"]
    argument = f" Ar {value}" if value and names.startswith("-") else ""
    if not names.startswith("-") and is_optional(names, usage):
        flags[0] = "Op " + flags[0]
    out = [".It " + " , ".join(flag + argument for flag in flags).replace("Fl -", "Fl \\-")]
    if text:
        out.append(blocks.prose(sentence(text)))
    out += ["Needed."] if "REQUIRED" in notes and names.startswith("-") else []
    return out


LABEL = re.compile(r"(Examples?|JSON|Kinds|Values|Exit status|Files):(?: +(.*)|$)")


def footer(lines):
    """Notes as paragraphs; examples and indented lines as a display."""
    out, words, shown = [], [], []

    def flush():
        nonlocal words, shown
        out.extend([".Pp", blocks.prose(" ".join(words))] if words else [])
        out.extend(blocks.display(textwrap.dedent("\n".join(shown)).split("\n")) if shown else [])
        words, shown = [], []

    for line in lines:
        label = LABEL.match(line)
        if label and label.group(1).startswith("Example"):
            flush()
            words = [label.group(1) + ":"]
            flush()
            shown = [" " * (len(line) - len(label.group(2))) + label.group(2)] if label.group(2) else []
        elif not line.strip() or label or line.startswith(" ") != bool(shown):
            flush()
        if line.strip() and not (label and label.group(1).startswith("Example")):
            (shown if line.startswith(" ") else words).append(line)
    flush()
    return out


def mdoc(command):
    out = [".Ss " + " ".join(command.path), ".Dl " + blocks.literal(command.usage), ".Pp", blocks.prose(sentence(command.about))]
    rows = command.rows["Positionals:"] + command.options()
    if rows:
        out += [".Bl -tag -width Ds"] + [line for row in rows for line in described(*row, command.usage)] + [".El"]
    return out + footer(command.footer)


def walk(program, path=(), above=()):
    """Every command, a group before its commands. A footer that repeats that of the group above is left out."""
    command = Command(program, list(path))
    below = list(command.footer)
    if below == list(above):
        command.footer = []
    if path:
        yield command
    for name in command.subcommands():
        yield from walk(program, (*path, name), below)


def to_mdoc(program):
    return [".Sh COMMANDS"] + [line for command in walk(program) for line in mdoc(command)]


def synopsis(command):
    """The command with its options and arguments, as a line of the synopsis."""
    out = [".Nm", " ".join(["Cm"] + [blocks.literal(word) for word in command.path])]
    for head, _ in command.options():
        notes = NOTES.findall(head)
        names, _, value = NOTES.sub("", head).partition(" ")
        value = value.removesuffix("...")
        name = max(names.split(","), key=len)
        flag = f"Fl \\{name[1:]}" + (f" Ar {value}" if value else "")
        out.append(flag if "REQUIRED" in notes else "Op " + flag)
    for head, _ in command.rows["Positionals:"]:
        name = head.split(" ")[0]
        argument = f"Ar {name}" + (" ..." if "..." in command.usage.split(name, 1)[-1][:3] else "")
        out.append("Op " + argument if is_optional(name, command.usage) else argument)
    return [out[0]] + ["." + word for word in out[1:]]


def to_synopsis(program):
    return [line for command in walk(program) if not command.rows["Subcommands:"] for line in synopsis(command)]
