# SPDX-License-Identifier: Apache-2.0
"""python3 -m aaautil decode: shows the contents of a message."""

import argparse
import json
import os
import sys
from typing import IO, List, NoReturn, Optional

from . import messages

# The exit statuses of aaactl.
_USAGE, _BAD_INPUT, _NOT_FOUND, _FAILED = 2, 3, 4, 6


class _Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        self.exit(_USAGE, f"{self.prog}: {message}; see {self.prog} --help\n")

    def _print_message(self, message: str, file: Optional[IO[str]] = None) -> None:
        if file is not None and file is sys.stdout or file is None and message == self.format_help():
            _print(message)
        else:
            _to_stderr(message)


def _parser() -> argparse.ArgumentParser:
    parser = _Parser(prog="python3 -m aaautil", description="Messages of the AAA service.")
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND", parser_class=_Parser)
    decode = commands.add_parser("decode", help="show the contents of a message", description=(
        "Shows the contents of a message, from binary or hexadecimal input. A malformed message is shown as far as it can be read; "
        "the exit status is 3 then. Secrets are masked unless --show-secrets."))
    decode.add_argument("file", nargs="?", default="-", metavar="FILE", help="message, - for standard input (the default)")
    decode.add_argument("--hex", metavar="DIGITS", help="the message as hexadecimal digits")
    decode.add_argument("--kind", default="auto", choices=messages.kinds(), metavar="KIND",
                        help="kind of message: " + ", ".join(messages.kinds()))
    decode.add_argument("--input", default="auto", choices=("auto", "binary", "hex"), help="form of the input")
    decode.add_argument("--json", action="store_true", help="print the document of aaactl --json decode, instead of text")
    decode.add_argument("--show-secrets", action="store_true", help="show passwords and the like")
    return parser


class _OutputLost(Exception):
    """What was to be printed could not be written."""


def _print(text: str) -> None:
    if sys.stdout is None:
        raise _OutputLost("standard output is closed")
    try:
        sys.stdout.buffer.write(text.encode("utf-8", "replace"))
        sys.stdout.flush()
    except OSError as failure:
        # The interpreter would try to write the rest at its end.
        os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
        raise _OutputLost(f"standard output: {failure.strerror}") from None


def _to_stderr(text: str) -> None:
    # Not through sys.stderr: what it cannot write it would try again at the end, and change the exit status.
    if sys.stderr is None:
        return
    try:
        os.write(sys.stderr.fileno(), text.encode("utf-8", "backslashreplace"))
    except (OSError, ValueError):
        pass  # no output is left to report it on


def _complain(text: str) -> None:
    _to_stderr(f"aaautil: {text}\n")


def _input(options: argparse.Namespace) -> bytes:
    if options.hex is not None:
        return messages.unhex(options.hex)
    if options.file == "-":
        if sys.stdin is None:
            raise ValueError("standard input is closed; name a file, or use --hex")
        data = sys.stdin.buffer.read(messages.MOST + 1)
    else:
        with open(options.file, "rb") as file:
            data = file.read(messages.MOST + 1)
    if len(data) > messages.MOST:
        raise ValueError("the input has more than 64 MiB")
    if options.input == "hex" or (options.input == "auto" and messages.looks_like_text(data)):
        return messages.unhex(data.decode("utf-8", "surrogateescape"))
    return data


def _decode(options: argparse.Namespace) -> int:
    if options.hex is not None and options.file != "-":
        _complain("--hex and FILE exclude each other")
        return _USAGE
    data = _input(options)
    document = messages.decode(data, options.kind, options.show_secrets)
    if options.json:
        text = json.dumps(document, ensure_ascii=True, indent=2) + "\n"
    else:
        text = messages.to_text(data, options.kind, options.show_secrets)
    _print(text)
    fault = document.get("fault")
    if fault is None:
        return 0
    _complain(f"malformed {document['kind']} at byte {fault['offset']} of {len(data)}: {fault['message']}")
    return _BAD_INPUT


def main(arguments: Optional[List[str]] = None) -> int:
    """Runs a command and returns its exit status."""
    options = argparse.Namespace(file="-")
    try:
        _parser().parse_args(arguments, options)
        return _decode(options)
    except _OutputLost as failure:
        _complain(str(failure))
        return _FAILED
    except FileNotFoundError as failure:
        _complain(f"{failure.filename}: {failure.strerror}")
        return _NOT_FOUND
    except OSError as failure:
        _complain(f"{failure.filename or options.file}: {failure.strerror}")
        return _BAD_INPUT
    except ValueError as failure:
        _complain(str(failure))
        return _BAD_INPUT


if __name__ == "__main__":
    sys.exit(main())
