# SPDX-License-Identifier: Apache-2.0
"""Attribute lists.

An :class:`AttributeList` holds copies, so it can be kept, shared and changed like any other
Python list: nothing in it refers to memory of the library. The library packs and unpacks it
with its checked functions. A :class:`NativeList` is a list of the library itself, for calls
of :data:`aaautil.lib`.
"""

import ipaddress
import sys
import threading
from functools import partial
from itertools import accumulate
from typing import (Any, Dict, Iterable, Iterator, List, MutableSequence, NamedTuple, Optional, Tuple, Type, TypeVar, Union, cast,
                    overload)

from ._enums import Attr, AuthenOption, Format, MessageType, Method, ResultCode, Service, Status
from ._load import Handle, ffi, is_whole, lib, utf8, whole
from .dictionary import _SECRETS, HIDEABLE, MASK, SecretBytes, attribute_format, attribute_name, is_secret, resolve
from .errors import ListSpentError, check, error

__all__ = ["Attribute", "AttributeList", "BytesLike", "Key", "NativeList", "Value", "raw_value", "typed_value"]
__tracebackhide__ = True  # see _load

BytesLike = Union[bytes, bytearray, memoryview]
# What names an attribute: an enumerator, or its name with or without "AAA_" and "_ATTR".
Key = Union[Attr, str]
# Values as Python shows them.
Value = Union[int, str, bytes, ipaddress.IPv4Address]
Settable = Union[Value, bytearray, memoryview]

_MOST_PAIRS: int = lib.AAA_CHECKED_MAX_PAIRS
_DELETED: int = lib.AAA_ATTR_MAX
_NAME_ROOM = 31
_HEADER = 56
# Of the values of a list: a packed list has a length of 31 bits.
_MOST_BYTES = 0x7FFFFFFF - _HEADER - 20 * _MOST_PAIRS
_HEAD = 16

# Integers whose values have names.
_MEANINGS: Dict[int, Any] = {
    Attr.AAA_STATUS_ATTR: Status, Attr.AAA_TYPE_ATTR: MessageType, Attr.AAA_AUTHEN_METHOD_ATTR: Method,
    Attr.AAA_SERVICE_TYPE_ATTR: Service, Attr.AAA_AUTHEN_OPTION_ATTR: AuthenOption,
}
# Integers of eight bytes, which are stored in the order of the machine.
_LONG = frozenset((int(Attr.AAA_STARTTIME_ATTR), int(Attr.AAA_STOPTIME_ATTR), int(Attr.AAA_TASKMAP_ATTR)))

_T = TypeVar("_T")
_AnyAttribute = TypeVar("_AnyAttribute", bound="Attribute")


def _word(value: object, what: str) -> int:
    return whole(value, what)


def typed_value(type: int, raw: BytesLike) -> Value:
    """A value of an attribute by its format: int (an enumerator where the value has a name),
    IPv4Address, str without its closing NUL, or bytes. Bytes too when they do not have the form."""
    if not isinstance(raw, bytes):
        if not isinstance(raw, (bytearray, memoryview)):
            raise TypeError(f"what is stored is bytes, not {raw.__class__.__name__}")
        raw = bytes(raw)
    form = attribute_format(type)
    if form == Format.STRING:
        text = raw[:-1] if raw.endswith(b"\0") else raw
        return text.decode("utf-8", "surrogateescape")
    if form == Format.INTEGER and len(raw) == (8 if type in _LONG else 4):
        number = int.from_bytes(raw, sys.byteorder)
        meaning = _MEANINGS.get(type)
        if meaning is not None:
            try:
                return cast(int, meaning(number))
            except ValueError:
                pass
        return number
    if form == Format.INTEGER and len(raw) == 4:
        return int.from_bytes(raw, sys.byteorder)
    if form == Format.IPADDR and len(raw) == 4:
        return ipaddress.IPv4Address(int.from_bytes(raw, sys.byteorder))
    return raw


def raw_value(type: int, value: Settable) -> bytes:
    """The bytes of a value as they are stored. Bytes are taken as they are; a str gets a closing NUL."""
    if isinstance(value, bytes):
        return value
    if isinstance(value, (bytearray, memoryview)):
        return bytes(value)
    form = attribute_format(type)
    if form == Format.IPADDR:
        if is_whole(value):
            value = whole(value, _shown(type))
        elif not isinstance(value, (str, ipaddress.IPv4Address)):
            raise TypeError(f"{_shown(type)} is an IPv4 address: give a str, an int or an IPv4Address")
        return int(ipaddress.IPv4Address(value)).to_bytes(4, sys.byteorder)
    if form == Format.INTEGER:
        if not is_whole(value):
            raise TypeError(f"{_shown(type)} is an integer, not {value.__class__.__name__}; bytes are stored as they are")
        length = 8 if type in _LONG else 4
        return whole(value, _shown(type), (1 << 8 * length) - 1).to_bytes(length, sys.byteorder)
    if form == Format.STRING:
        if not isinstance(value, str):
            raise TypeError(f"{_shown(type)} is a text, not {value.__class__.__name__}; bytes are stored as they are")
        encoded = utf8(value, _shown(type))
        if b"\0" in encoded:
            raise ValueError(f"{_shown(type)}: the text has a NUL inside; give bytes if that is meant")
        return encoded + b"\0"
    raise TypeError(f"{_shown(type)} has no text or number form: give bytes")


def _shown(type: int) -> str:
    return attribute_name(type) or f"type {type}"


class _AttributeFields(NamedTuple):
    type: int
    tag: int
    flags: int
    raw: bytes


class Attribute(_AttributeFields):
    """One pair of a list. ``raw`` is the value as it is stored, numbers in the order of the machine; of a password or the
    like it is :class:`aaautil.SecretBytes`."""

    __slots__ = ()

    def __new__(cls, type: int, tag: int, flags: int, raw: bytes) -> "Attribute":
        """A pair of what is given; lists check it when they take it."""
        if raw.__class__ in HIDEABLE and is_whole(type) and type in _SECRETS:
            raw = SecretBytes(raw)
        return super().__new__(cls, type, tag, flags, raw)

    @classmethod
    def _make(cls: "Type[_AnyAttribute]", iterable: Iterable[Any]) -> "_AnyAttribute":  # type: ignore[override]
        return cls(*iterable)  # that of tuples, which _replace() calls, would not mask

    @property
    def name(self) -> Optional[str]:
        """The name in the dictionary; None for a type without one."""
        return attribute_name(self.type)

    @property
    def value(self) -> Value:
        """The value by its format, see :func:`typed_value`."""
        return typed_value(self.type, self.raw)

    @property
    def secret(self) -> bool:
        """Whether the value is a password or the like, which repr() does not show."""
        return is_secret(self.type)

    def __repr__(self) -> str:
        value = repr(MASK) if self.secret and self.raw else repr(self.value if isinstance(self.raw, bytes) else self.raw)
        more = "".join(f", {name}={number:#x}" for name, number in (("tag", self.tag), ("flags", self.flags)) if number)
        return f"Attribute({_shown(self.type)}, {value}{more})"

    @classmethod
    def of(cls, type: Union[Key, int], value: Settable, tag: int = 0, flags: int = 0) -> "Attribute":
        """Makes a pair from a Python value."""
        number = resolve(type)
        if number == _DELETED:
            raise ValueError(f"type {_DELETED} marks deleted pairs and cannot be stored")
        return cls(number, _word(tag, "tag"), _word(flags, "flags"), raw_value(number, value))


_make_attribute: Any = partial(tuple.__new__, Attribute)


# ---- the library's blocks

class _Room:
    """Memory that calls fill. It is used by one call at a time."""

    __slots__ = ("heads", "head_room", "values", "value_room", "view", "name", "size", "message", "message_view", "length")

    def __init__(self, head_room: int = 64, value_room: int = 4096) -> None:
        self.head_room = head_room
        self.value_room = value_room
        self.heads = ffi.new("uint32_t[]", 4 * head_room)
        self.values = ffi.new("char[]", value_room)
        self.view = ffi.buffer(self.values)
        self.name = ffi.new("char[]", _NAME_ROOM)
        self.size = ffi.new("aaapy_size_t *")
        self.message = ffi.new("char[]", value_room)
        self.message_view = ffi.buffer(self.message)
        self.length = ffi.new("uint32_t *")


# Rooms that no call uses. Taking one is one operation of the interpreter, so threads, signal
# handlers and finalisers never get the same one.
_rooms: List[_Room] = []
_ZEROS = bytes(4096)


def _wipe(view: Any, length: int) -> None:
    view[:length] = _ZEROS[:length] if length <= len(_ZEROS) else bytes(length)


def _pairs_in(room: _Room) -> List[Attribute]:
    size = room.size
    words = ffi.unpack(room.heads, 4 * size.pairs)
    used = size.bytes
    raw = room.view[:used]
    _wipe(room.view, used)
    types = words[0::4]
    lengths = words[3::4]
    values = [SecretBytes(raw[end - length:end]) if type in _SECRETS else raw[end - length:end]
              for type, end, length in zip(types, accumulate(lengths), lengths)]
    return list(map(_make_attribute, zip(types, words[1::4], words[2::4], values)))


def _decode(data: bytes) -> Tuple[str, List[Attribute]]:
    try:
        room = _rooms.pop()
    except IndexError:
        room = _Room()
    try:
        size = room.size
        code = lib.aaapy_decode(data, len(data), room.name, room.heads, room.head_room, room.values, room.value_room, size)
        if code == lib.AAA_ERR_BUFFER_TOO_SMALL:
            large = _Room(size.pairs, max(size.bytes, 1))
            _wipe(room.view, room.value_room)
            code = lib.aaapy_decode(data, len(data), large.name, large.heads, large.head_room, large.values, large.value_room,
                                    large.size)
            check(code, "the list cannot be unpacked")
            return _text(large.name), _pairs_in(large)
        if code:
            raise error("the list cannot be unpacked", code)
        return _text(room.name), _pairs_in(room)
    finally:
        _rooms.append(room)


def _text(name: Any) -> str:
    return cast(str, ffi.string(name, _NAME_ROOM).decode("utf-8", "surrogateescape"))


def _blocks(pairs: Iterable[Attribute]) -> Tuple[bytes, int, bytes]:
    words: List[int] = []
    values: List[bytes] = []
    for type, tag, flags, raw in pairs:
        words += (type, tag, flags, len(raw))
        values.append(raw)
    if sum(words[3::4]) > _MOST_BYTES:  # before they are joined
        raise error("the list is too long", lib.AAA_ERR_INVALID_MSG_SIZE)
    heads = ffi.buffer(ffi.new("uint32_t[]", words))[:]
    return heads, len(values), b"".join(values)


def _encode(name: bytes, pairs: List[Attribute]) -> bytes:
    heads, count, values = _blocks(pairs)
    room_needed = _HEADER + count * (_HEAD + 3) + len(values)
    if count > _MOST_PAIRS:
        raise error("the list cannot be packed", lib.AAA_ERR_AVPAIR_PROCESSING)
    try:
        room = _rooms.pop() if room_needed <= 4096 else _Room(1, room_needed)
    except IndexError:
        room = _Room()
    try:
        length = room.length
        length[0] = room.value_room
        code = lib.aaapy_encode(name, heads, count, values, len(values), room.message, length)
        if code:
            _wipe(room.message_view, room.value_room)
            raise error("the list cannot be packed", code)
        used = length[0]
        message = cast(bytes, room.message_view[:used])
        _wipe(room.message_view, used)
        return message
    finally:
        if room.value_room == 4096:
            _rooms.append(room)


# ---- lists

class AttributeList(MutableSequence[Attribute]):
    """A list of pairs, in order, any type any number of times.

    It is a sequence of :class:`Attribute` by position, and a mapping from attributes to the values
    of their first occurrence by :class:`Attr` or name::

        attributes = AttributeList([("USERNAME", "alice"), (Attr.AAA_PRIV_LVL_ATTR, 15)])
        attributes[0].tag
        attributes["username"]
        attributes.get_all("USERNAME")

    An integer is a position; a type that has no name is asked for with get() and get_all().
    """

    __slots__ = ("_pairs", "_name")
    __hash__ = None  # type: ignore[assignment]

    def __init__(self, pairs: Iterable[Union[Attribute, Tuple[Any, ...]]] = (), name: str = "") -> None:
        self._pairs: List[Attribute] = [self._attribute(pair) for pair in pairs]
        self._name = b""
        self.name = name

    @staticmethod
    def _attribute(pair: object) -> Attribute:
        if isinstance(pair, Attribute):
            # It may have been made by hand, from anything.
            if pair.type == _DELETED or not isinstance(pair.raw, bytes):
                return Attribute.of(pair.type, pair.raw, pair.tag, pair.flags)
            words = _word(pair.type, "type"), _word(pair.tag, "tag"), _word(pair.flags, "flags")
            return pair if all(isinstance(word, int) for word in pair[:3]) else Attribute(*words, pair.raw)
        if isinstance(pair, tuple) and 2 <= len(pair) <= 4:
            return Attribute.of(*pair)
        raise TypeError("a pair is an Attribute or a tuple (attribute, value[, tag[, flags]])")

    @classmethod
    def unpack(cls, message: BytesLike) -> "AttributeList":
        """Reads a packed list of unknown origin. Bytes after the list are ignored.

        Raises :class:`aaautil.MalformedError` for a damaged one.
        """
        if type(message) is not bytes:
            if not isinstance(message, (bytes, bytearray, memoryview)):
                raise TypeError(f"a message is bytes, not {type(message).__name__}")
            message = bytes(message)  # a copy, which no other thread changes while the library reads it
        made = cls.__new__(cls)
        name, made._pairs = _decode(message)
        made._name = name.encode("utf-8", "surrogateescape")
        return made

    def pack(self) -> bytes:
        """The list in its wire form, as :meth:`unpack` reads it. The list stays as it is."""
        return _encode(self._name, self._pairs)

    @property
    def name(self) -> str:
        """Name of the list, at most 30 bytes."""
        return self._name.decode("utf-8", "surrogateescape")

    @name.setter
    def name(self, name: str) -> None:
        if not isinstance(name, str):
            raise TypeError(f"the name of a list is a str, not {type(name).__name__}")
        encoded = utf8(name, "the name of a list")
        if len(encoded) >= _NAME_ROOM or b"\0" in encoded:
            raise ValueError(f"the name of a list has at most {_NAME_ROOM - 1} bytes and no NUL")
        self._name = encoded

    # -- sequence

    # An Attr is an int too; the first signature that fits is taken.
    @overload
    def __getitem__(self, key: Key) -> Value: ...  # type: ignore[misc]
    @overload
    def __getitem__(self, key: int) -> Attribute: ...
    @overload
    def __getitem__(self, key: slice) -> "AttributeList": ...

    def __getitem__(self, key: Union[int, slice, Attr, str]) -> Any:
        if isinstance(key, (Attr, str)):
            wanted = resolve(key)
            for pair in self._pairs:
                if pair.type == wanted:
                    return pair.value
            raise KeyError(key)
        if isinstance(key, slice):
            part = type(self)(name=self.name)
            part._pairs = self._pairs[key]
            return part
        return self._pairs[key]

    def __setitem__(self, key: Any, value: Any) -> None:
        """A position takes a pair; an attribute gets one value in place of all that it has."""
        if isinstance(key, (Attr, str)):
            self.replace(key, value)
        elif isinstance(key, slice):
            self._pairs[key] = [self._attribute(pair) for pair in value]
        else:
            self._pairs[key] = self._attribute(value)

    def __delitem__(self, key: Any) -> None:
        if isinstance(key, (Attr, str)):
            if not self.discard(key):
                raise KeyError(key)
        else:
            del self._pairs[key]

    def __len__(self) -> int:
        return len(self._pairs)

    def __iter__(self) -> Iterator[Attribute]:
        return iter(self._pairs)

    def insert(self, index: int, value: Union[Attribute, Tuple[Any, ...]]) -> None:
        """Inserts a pair before a position."""
        self._pairs.insert(index, self._attribute(value))

    def __contains__(self, key: object) -> bool:
        """Whether there is a pair of an attribute, or this pair. A name that no attribute has is a KeyError, so that
        a mistyped name is not taken for an attribute that is absent; a number is a TypeError, as it is a position."""
        if isinstance(key, (Attr, str)):
            wanted = resolve(key)
            return any(pair.type == wanted for pair in self._pairs)
        if hasattr(key, "__index__"):
            raise TypeError("an attribute without a name is not looked up by 'in': use get(number) is not None, or types()")
        return key in self._pairs

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, AttributeList):
            return NotImplemented
        return self._name == other._name and self._pairs == other._pairs

    def __repr__(self) -> str:
        return f"AttributeList({self._pairs!r}, name={self.name!r})"

    def copy(self) -> "AttributeList":
        """A list of its own with the same pairs."""
        return self[:]

    __copy__ = copy

    def __reduce__(self) -> Tuple[Any, ...]:
        return _remake, (type(self), [tuple(pair) for pair in self._pairs], self.name)

    # -- mapping

    def add(self, type: Union[Key, int], value: Settable, tag: int = 0, flags: int = 0) -> None:
        """Appends a pair."""
        self._pairs.append(Attribute.of(type, value, tag, flags))

    @overload
    def get(self, type: Union[Key, int]) -> Optional[Value]: ...
    @overload
    def get(self, type: Union[Key, int], default: _T) -> Union[Value, _T]: ...

    def get(self, type: Union[Key, int], default: Any = None) -> Any:
        """The value of the first pair of a type, or the default."""
        wanted = resolve(type)
        for pair in self._pairs:
            if pair.type == wanted:
                return pair.value
        return default

    def get_all(self, type: Union[Key, int]) -> List[Value]:
        """The values of all pairs of a type, in order."""
        wanted = resolve(type)
        return [pair.value for pair in self._pairs if pair.type == wanted]

    def replace(self, type: Union[Key, int], value: Settable, tag: int = 0, flags: int = 0) -> None:
        """Gives a type one value: in the place of its first pair, or at the end; other pairs of it go."""
        new = Attribute.of(type, value, tag, flags)
        kept: List[Attribute] = []
        done = False
        for pair in self._pairs:
            if pair.type != new.type:
                kept.append(pair)
            elif not done:
                kept.append(new)
                done = True
        if not done:
            kept.append(new)
        self._pairs = kept

    def discard(self, type: Union[Key, int]) -> int:
        """Removes all pairs of a type, and says how many there were."""
        wanted = resolve(type)
        before = len(self._pairs)
        self._pairs = [pair for pair in self._pairs if pair.type != wanted]
        return before - len(self._pairs)

    def types(self) -> List[int]:
        """The types that occur, each once, in the order of their first pairs."""
        return list(dict.fromkeys(pair.type for pair in self._pairs))

    # -- the library

    def native(self) -> "NativeList":
        """A list of the library with the same pairs."""
        heads, count, values = _blocks(self._pairs)
        made = ffi.new("avlist **")
        check(lib.aaapy_make(self._name, heads, count, values, len(values), made), "the list cannot be made")
        return NativeList(made[0])


def _remake(cls: Type[AttributeList], pairs: List[Tuple[int, int, int, bytes]], name: str) -> AttributeList:
    return cls((Attribute(*pair) for pair in pairs), name)


class NativeList(Handle):
    """A list of the library, for calls of :data:`aaautil.lib`.

    ``handle`` is its address. Packing converts a list where it is, and freeing releases it: the
    list is spent then, and every use raises :class:`aaautil.ListSpentError`. A call of
    :data:`aaautil.lib` that frees a list, or keeps it, is followed by :meth:`release`.
    One thread uses a list at a time; the methods of this class wait for each other.
    """

    __slots__ = ("_handle", "_lock", "_spent", "__weakref__")

    def __init__(self, handle: Any = None, name: str = "") -> None:
        self._lock = threading.RLock()
        self._handle: Any = None
        self._spent = ""
        if handle is None:
            made = ffi.new("avlist **")
            check(lib.aaa_avpair_create_list(AttributeList(name=name).name.encode("utf-8", "surrogateescape"), made),
                  "the list cannot be made")
            handle = made[0]
        elif not isinstance(handle, ffi.CData) or ffi.typeof(handle) is not ffi.typeof("avlist *") or handle == ffi.NULL:
            raise TypeError("a handle is an avlist * that is not null")
        self._handle = handle

    @property
    def handle(self) -> Any:
        """The avlist *, as long as the list is not spent."""
        if self._handle is None:
            raise ListSpentError(f"the list was {self._spent or 'freed'}: copy() it before, or make another one")
        return self._handle

    @property
    def spent(self) -> bool:
        """Whether the list can no longer be used."""
        return self._handle is None

    def attributes(self) -> AttributeList:
        """A copy of what the list holds."""
        with self._lock:
            room = _Room()
            code = lib.aaapy_walk(self.handle, room.heads, room.head_room, room.values, room.value_room, room.size)
            if code == lib.AAA_ERR_BUFFER_TOO_SMALL:
                size = room.size
                room = _Room(size.pairs, max(size.bytes, 1))
                code = lib.aaapy_walk(self.handle, room.heads, room.head_room, room.values, room.value_room, room.size)
            check(code, "the list cannot be read")
            copy = AttributeList(name=_text(self.handle.av_name))
            copy._pairs = _pairs_in(room)
            return copy

    def copy(self) -> "NativeList":
        """Another list of the library with the same pairs."""
        return self.attributes().native()

    def pack(self) -> bytes:
        """The list in its wire form. The list is spent afterwards, unless it could not be packed for its size."""
        with self._lock:
            length = ffi.new("uint32_t *")
            code = lib.aaapy_pack(self.handle, ffi.NULL, length)
            if code != lib.AAA_ERR_BUFFER_TOO_SMALL:
                raise error("the list cannot be packed", code or ResultCode.AAA_ERR_INVALID_ARG)
            message = ffi.new("char[]", length[0])
            code = lib.aaapy_pack(self.handle, message, length)
            try:
                check(code, "the list cannot be packed")
                return bytes(ffi.buffer(message, length[0]))
            finally:
                lib.aaapy_wipe(message, len(message))
                self._end("packed")

    def release(self) -> Any:
        """Gives the list away, to a call that frees or keeps it: returns the avlist *, and is spent."""
        with self._lock:
            handle = self.handle
            self._handle, self._spent = None, "given away"
            return handle

    def free(self) -> None:
        """Frees the list; nothing happens when it is spent."""
        with self._lock:
            self._end("freed")

    def _end(self, how: str) -> None:
        handle, self._handle = self._handle, None
        if handle is not None:
            self._spent = how
            lib.aaa_avpair_free_list(handle)

    def __enter__(self) -> "NativeList":
        return self

    def __exit__(self, *_: object) -> None:
        self.free()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None:
            self._end("freed")

    def __repr__(self) -> str:
        return f"<NativeList {'spent: ' + self._spent if self._handle is None else self.attributes()!r}>"
