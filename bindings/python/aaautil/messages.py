# SPDX-License-Identifier: Apache-2.0
"""Whole messages: requests, replies and session packets with their lists.

The documents are those of ``aaactl --json decode``, made by the same code.
"""

import json
from typing import Any, Dict, List, Union

from ._load import ffi, lib, taken, utf8
from .lists import BytesLike

__all__ = ["decode", "encode", "kinds", "looks_like_text", "to_text", "unhex"]
__tracebackhide__ = True  # see _load

# Bytes of the longest message that is shown.
MOST = 64 << 20


def _bytes(data: object) -> bytes:
    if not isinstance(data, (bytes, bytearray, memoryview)):
        raise TypeError(f"a message is bytes, not {type(data).__name__}")
    size = data.nbytes if isinstance(data, memoryview) else len(data)
    if size > MOST:
        raise ValueError("a message has at most 64 MiB")
    if size == 0:
        raise ValueError("there is nothing to decode: the message is empty")
    return bytes(data)


def kinds() -> List[str]:
    """The kinds of messages that decode() can be told."""
    found: List[str] = []
    while True:
        name = lib.aaapy_kind(len(found))
        if name == ffi.NULL:
            return found
        found.append(ffi.string(name).decode())


def _kind(kind: object) -> bytes:
    if not isinstance(kind, str):
        raise TypeError(f"a kind is a str, not {type(kind).__name__}")
    if kind not in kinds():
        raise ValueError(f"no kind of message is called {kind!r}; use one of {', '.join(kinds())}")
    return kind.encode()


def decode(data: BytesLike, kind: str = "auto", show_secrets: bool = False) -> Dict[str, Any]:
    """The contents of a message.

    A malformed message gives what can be read, and the member ``fault``. Secrets are masked unless
    ``show_secrets``. The document is described by decode.schema.json of the package aaa-tools.
    """
    message = _bytes(data)
    text = taken(lib.aaapy_show(message, len(message), _kind(kind), bool(show_secrets), 0))
    document: Dict[str, Any] = json.loads(text)
    return document


def to_text(data: BytesLike, kind: str = "auto", show_secrets: bool = False) -> str:
    """The contents of a message as the text that encode() reads, if nothing is masked."""
    message = _bytes(data)
    return taken(lib.aaapy_show(message, len(message), _kind(kind), bool(show_secrets), 1)).decode("utf-8", "replace")


def _json(document: Dict[str, Any]) -> str:
    """A document as text. The exception of the encoder would hold its frames, and with them the values."""
    try:
        return json.dumps(document)
    except (TypeError, ValueError) as failure:
        wrong, reason = type(failure), str(failure)
    except RecursionError:
        wrong, reason = ValueError, "it has too many levels"
    raise wrong(f"the description is no JSON: {reason}")


def encode(description: Union[str, Dict[str, Any]]) -> bytes:
    """The bytes of a message from what decode() or to_text() gives with its secrets, or the same by hand.

    Lengths, counts and padding follow from the rest. Raises ValueError with the place of what is wrong.
    """
    if isinstance(description, dict):
        description = _json(description)
    if not isinstance(description, str):
        raise TypeError(f"a description is a dict or a str, not {type(description).__name__}")
    text = utf8(description, "a description")
    if not text.strip():
        raise ValueError("there is nothing to encode: the description is empty")
    return taken(lib.aaapy_read(text, len(text)))


def unhex(text: str) -> bytes:
    """Bytes from hexadecimal text: plain digits, or a dump of xxd or hexdump -Cv."""
    if not isinstance(text, str):
        raise TypeError(f"hexadecimal text is a str, not {type(text).__name__}")
    encoded = utf8(text, "hexadecimal text")
    return taken(lib.aaapy_unhex(encoded, len(encoded)))


def looks_like_text(data: bytes) -> bool:
    """Whether bytes are text, such as hexadecimal digits, rather than a message."""
    return bool(lib.aaapy_looks_like_text(data, len(data)))
