# SPDX-License-Identifier: Apache-2.0
"""The attribute dictionary, and texts for numbers."""

from typing import Any, Dict, FrozenSet, List, NamedTuple, Optional, Union

from ._enums import Attr, Format
from ._load import ffi, is_whole, lib, taken, whole

__all__ = ["DictionaryRow", "SecretBytes", "attribute_format", "attribute_name", "attribute_type", "attributes", "is_secret", "method_name",
           "service_name", "status_name"]
__tracebackhide__ = True  # see _load

# Shown in place of a secret.
MASK = "********"


class SecretBytes(bytes):
    """Bytes that repr() and str() do not show: programs for tests and for errors print what they compare or hold.

    All else is as of bytes: they are equal to others with the same bytes, have their hash, and are accepted in their
    place. A part of them is secret too. ``bytes(value)`` are the same bytes as others are.
    """

    __slots__ = ()

    def __repr__(self) -> str:
        return repr(MASK) if self else "b''"

    __str__ = __repr__

    def __getitem__(self, key: Any) -> Any:
        found = super().__getitem__(key)
        return SecretBytes(found) if isinstance(found, bytes) else found


# What a secret may be given as; it is copied.
HIDEABLE = (bytes, bytearray, memoryview)


class DictionaryRow(NamedTuple):
    """One attribute of the dictionary."""

    type: int
    name: str
    format: Format
    secret: bool


def _rows() -> Dict[int, DictionaryRow]:
    table = lib.aaa_table
    return {row.type: DictionaryRow(row.type, ffi.string(row.name).decode(), Format(row.format), row.type in _SECRETS)
            for row in (table[number] for number in range(lib.AAA_TABLE_ROWS)) if row.name != ffi.NULL}


def _secret_types() -> FrozenSet[int]:
    found: List[int] = []
    while True:
        type = lib.aaapy_secret(len(found))
        if type == 0:
            return frozenset(found)
        found.append(type)


_SECRETS = _secret_types()
_ROWS = _rows()
_TYPES: Dict[str, int] = {}


def attributes() -> List[DictionaryRow]:
    """All attributes, by their numbers."""
    return list(_ROWS.values())


def attribute_name(type: int) -> Optional[str]:
    """The name of an attribute type; None for one that has none."""
    row = _ROWS.get(type)
    return row.name if row else None


def attribute_format(type: int) -> Format:
    """The format of an attribute's values; that of a type without an attribute is binary."""
    row = _ROWS.get(type)
    return row.format if row else Format.BINARY


def is_secret(type: int) -> bool:
    """Whether the values of an attribute are passwords, keys or the like."""
    return type in _SECRETS


def attribute_type(name: Union[str, int]) -> int:
    """The type of an attribute by its name, in any case, with or without "AAA_" and "_ATTR".

    Raises KeyError for a name that is not in the dictionary.
    """
    return resolve(name)


def _meant(name: bytes) -> str:
    """A name that is similar, for a message. A long one is none that was mistyped."""
    meant = taken(lib.aaapy_meant_attribute(name)) if len(name) <= 100 and b"\0" not in name else b""
    return meant.decode("utf-8", "replace") or "; aaautil.Attr has all names"


def resolve(key: Union[str, int]) -> int:
    """The type that a key names."""
    if isinstance(key, str):
        type = _TYPES.get(key)
        if type is None:
            found = ffi.new("uint32_t *")
            encoded = key.encode("utf-8", "surrogateescape")
            if b"\0" in encoded or not lib.aaapy_attribute_type(encoded, found) or not key[:1].isalpha():
                raise KeyError(f"no attribute is called {key!r}{_meant(encoded)}")
            type = int(found[0])
            if len(_TYPES) < 4096:
                _TYPES[key] = type
        return type
    if isinstance(key, Attr):
        return int(key)
    if not is_whole(key):
        raise TypeError(f"an attribute is an Attr, a name or a number, not {key.__class__.__name__}")
    return whole(key, "the number of an attribute")


def _named(pointer: object) -> str:
    return "" if pointer == ffi.NULL else str(ffi.string(pointer).decode("utf-8", "replace"))


def _number(value: object) -> int:
    return whole(value, "the number", 0x7FFFFFFF)


def status_name(status: int) -> str:
    """What a status is called in texts for users."""
    return _named(lib.aaa_print_status(_number(status)))


def service_name(service: int) -> str:
    """What a service is called in texts for users."""
    return _named(lib.aaa_print_service(_number(service)))


def method_name(method: int) -> str:
    """What a method is called; the name of a server group, 1000 to 4999, is read from the database."""
    name = lib.aaa_print_method(_number(method))
    try:
        return _named(name)
    finally:
        lib.free(name)
