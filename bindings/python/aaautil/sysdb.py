# SPDX-License-Identifier: Apache-2.0
"""The system database: items, directories, several changes as one, and watches.

A :class:`Database` is a connection that is bound at a directory; paths are relative to it. Any
thread may use it. After a fork the child may use it too, but a :class:`Watch` remains with the
process that made it.
"""

import asyncio
import os
import select
import sys
import threading
import time
import weakref
from collections import deque
from typing import (Any, Deque, Iterable, Iterator, List, NamedTuple, NoReturn, Optional, Sequence, Tuple, Type, TypeVar, Union,
                    cast)

from ._load import Handle, ffi, is_whole, lib, seconds, utf8, whole
from .dictionary import HIDEABLE, MASK, SecretBytes
from .errors import AaaError, check, error
from .lists import BytesLike

__all__ = ["Change", "Database", "Delete", "Entry", "Expect", "Item", "ItemType", "Prune", "Set", "Watch"]
__tracebackhide__ = True  # see _load

TupleValue = Tuple[Union[int, str], ...]
ItemValue = Union[int, str, TupleValue, bytes]


class ItemType:
    """Types of items. Any other number is stored and compared unchanged."""

    ANY: int = lib.SYSDB_TYPE_ANY
    U32: int = lib.SYSDB_TYPE_U32
    STRING: int = lib.SYSDB_TYPE_STRING
    TUPLE: int = lib.SYSDB_TYPE_TUPLE
    DIRECTORY: int = lib.SYSDB_TYPE_DIRECTORY


def _path(path: object, what: str = "a path") -> bytes:
    if not isinstance(path, str):
        raise TypeError(f"{what} is a str, not {type(path).__name__}")
    encoded = utf8(path, what)
    if b"\0" in encoded:
        raise ValueError(f"{what} has a NUL inside")
    return encoded


def _shown(text: bytes) -> str:
    return text.decode("utf-8", "surrogateescape")


def _type(type: object) -> int:
    return whole(type, "the type of an item, such as ItemType.STRING,")


# For one call of the system; the wait goes on after it.
_MOST_SECONDS = 86400.0


# ---- values

# Of a call with a variable number of arguments.
_MOST_FIELDS = 255


def _pack_tuple(fields: Sequence[object]) -> bytes:
    if not 0 < len(fields) <= _MOST_FIELDS:
        raise ValueError(f"a tuple has 1 to {_MOST_FIELDS} fields, not {len(fields)}")
    form, arguments = "", []
    for field in fields:
        if is_whole(field):
            number = whole(field, "an integer of a tuple", least=-(1 << 31))
            form += "%d"
            arguments.append(ffi.cast("int", number if number < 1 << 31 else number - (1 << 32)))
        elif not isinstance(field, str):
            raise TypeError(f"the fields of a tuple are int and str, not {type(field).__name__}")
        else:
            form += "%s"
            name = _path(field, "a name of a tuple")
            if len(name) >= lib.SYSDB_NAME_SIZE:
                raise ValueError(f"a name of a tuple has {len(name)} bytes; at most {lib.SYSDB_NAME_SIZE - 1} are possible")
            arguments.append(ffi.new("char[]", name))
    made = ffi.new("void **")
    length = ffi.new("uint32_t *")
    check(lib.sysdb_tuple_pack(made, length, form.encode(), *arguments), "the tuple cannot be made")
    try:
        return bytes(ffi.buffer(made[0], length[0]))
    finally:
        lib.free(made[0])


def _unpack_tuple(raw: bytes) -> TupleValue:
    check(lib.sysdb_tuple_check(raw, len(raw)), "the tuple cannot be read")
    text = lib.sysdb_tuple_format(raw, len(raw))
    if text == ffi.NULL:
        raise MemoryError
    try:
        form = ffi.string(text)
    finally:
        lib.free(text)
    kinds = [chr(kind) for kind in form[1::2]]
    outputs = [ffi.new("int32_t *") if kind == "d" else ffi.new("char[]", lib.SYSDB_NAME_SIZE) for kind in kinds]
    if lib.tuple_unpack_mask(raw, form, *outputs) != 0:
        raise error("the tuple cannot be read", lib.SYSDB_ERR_BAD_VALUE)
    return tuple(int(output[0]) if kind == "d" else _shown(ffi.string(output, lib.SYSDB_NAME_SIZE))
                 for kind, output in zip(kinds, outputs))


def _raw(value: object, type: Optional[int]) -> Tuple[int, bytes]:
    """Type and bytes of a value."""
    if isinstance(value, (bytes, bytearray, memoryview)):
        if type is None:
            raise TypeError("bytes need the type of the item, such as type=ItemType.TUPLE")
        return _type(type), bytes(value)
    if isinstance(value, bool):
        raise TypeError("an item cannot hold a bool; store 0 or 1")
    if is_whole(value):
        found, raw = ItemType.U32, whole(value, "a number of the database").to_bytes(4, sys.byteorder)
    elif isinstance(value, str):
        found, raw = ItemType.STRING, _path(value, "a text") + b"\0"
    elif isinstance(value, (tuple, list)):
        found, raw = ItemType.TUPLE, _pack_tuple(value)
    else:
        raise TypeError(f"a value is int, str, tuple or bytes, not {value.__class__.__name__}")
    if type is not None and _type(type) != found:
        raise TypeError(f"a value of {value.__class__.__name__} is of type {found}, not {type}")
    return found, raw


def _masked(value: object) -> str:
    """A value for repr(). The path, which may be relative, does not tell whether a text is a key or a password: no text is
    shown, and no bytes."""
    return repr(MASK) if isinstance(value, (str, bytes, bytearray, memoryview)) else repr(value)


class _ItemFields(NamedTuple):
    type: int
    raw: bytes


_AnyItem = TypeVar("_AnyItem", bound="Item")


class Item(_ItemFields):
    """An item as it is stored. repr() shows numbers and tuples; texts may be secret, so ``raw`` is
    :class:`aaautil.SecretBytes` for all but numbers and tuples."""

    __slots__ = ()

    def __new__(cls, type: int, raw: bytes) -> "Item":
        """An item of what is given."""
        if raw.__class__ in HIDEABLE and type not in (ItemType.U32, ItemType.TUPLE):
            raw = SecretBytes(raw)
        return super().__new__(cls, type, raw)

    @classmethod
    def _make(cls: "Type[_AnyItem]", iterable: Iterable[Any]) -> "_AnyItem":  # type: ignore[override]
        return cls(*iterable)  # that of tuples, which _replace() calls, would not mask

    def __repr__(self) -> str:
        try:
            return f"Item(type={self.type!r}, value={_masked(self.value)})"
        except (AaaError, TypeError, AttributeError):  # the bytes are damaged, or it was made by hand of something else
            return f"Item(type={self.type!r}, raw={MASK!r})"

    @property
    def value(self) -> ItemValue:
        """int, str or tuple by the type; bytes for another type."""
        if self.type == ItemType.U32 and len(self.raw) == 4:
            return int.from_bytes(self.raw, sys.byteorder)
        if self.type == ItemType.STRING and self.raw.endswith(b"\0"):
            return _shown(self.raw[:-1])
        if self.type == ItemType.TUPLE:
            return _unpack_tuple(self.raw)
        return bytes(self.raw)


class Entry(NamedTuple):
    """An entry of a directory; the name of a directory ends in "/"."""

    name: str
    type: int

    @property
    def is_directory(self) -> bool:
        """Whether it is a directory."""
        return self.type == ItemType.DIRECTORY


# ---- changes

class _Planned:
    """A change that apply() is to make. It is no tuple, nor of another kind that programs for tests compare field by
    field: they would print the value. Nothing of it is changed after it was made."""

    __slots__ = ("path",)
    path: str

    def __init__(self, path: str) -> None:
        object.__setattr__(self, "path", path)

    def _fields_of_it(self) -> Tuple[Any, ...]:
        return (self.path,)

    def __eq__(self, other: object) -> bool:
        if type(other) is not type(self):
            return NotImplemented
        return self._fields_of_it() == cast(_Planned, other)._fields_of_it()

    def __hash__(self) -> int:
        return hash((type(self).__name__, self._fields_of_it()))

    def __setattr__(self, name: str, value: object) -> NoReturn:
        raise AttributeError(f"a {type(self).__name__} is not changed: make another one")

    def __delattr__(self, name: str) -> NoReturn:
        raise AttributeError(f"a {type(self).__name__} is not changed: make another one")

    def __reduce__(self) -> Tuple[Any, ...]:
        return type(self), self._fields_of_it()

    def __repr__(self) -> str:
        return f"{type(self).__name__}({self.path!r})"


class _PlannedValue(_Planned):
    __slots__ = ("value", "type")
    value: Any
    type: Optional[int]

    def _fields_of_it(self) -> Tuple[Any, ...]:
        return self.path, self.value, self.type

    def __repr__(self) -> str:
        more = "" if self.type is None else f", type={self.type!r}"
        return f"{self.__class__.__name__}({self.path!r}, {_masked(self.value)}{more})"


class Set(_PlannedValue):
    """Creates or replaces an item. repr() shows numbers and tuples; texts may be secret."""

    __slots__ = ()
    __match_args__ = ("path", "value", "type")

    def __init__(self, path: str, value: "Union[ItemValue, BytesLike, List[Union[int, str]]]",
                 type: Optional[int] = None) -> None:
        super().__init__(path)
        object.__setattr__(self, "value", value)
        object.__setattr__(self, "type", type)


class Delete(_Planned):
    """Deletes an item, which must be there."""

    __slots__ = ()
    __match_args__ = ("path",)


class Prune(_Planned):
    """Deletes all below a directory that no other change of the call sets or expects."""

    __slots__ = ()
    __match_args__ = ("path",)


class Expect(_PlannedValue):
    """Changes nothing; the item must have the value, or be absent for None."""

    __slots__ = ()
    __match_args__ = ("path", "value", "type")

    def __init__(self, path: str, value: "Union[ItemValue, BytesLike, List[Union[int, str]], None]",
                 type: Optional[int] = None) -> None:
        super().__init__(path)
        object.__setattr__(self, "value", value)
        object.__setattr__(self, "type", type)


class Change(NamedTuple):
    """What a watch saw. ``operation`` is "set", "create", "delete", or "reread": more has changed than the
    database remembers, and everything below ``path`` is to be read again."""

    operation: str
    path: str
    item: Optional[Item]
    revision: int

    @property
    def value(self) -> Optional[ItemValue]:
        """The value; None for what was deleted."""
        return None if self.item is None else self.item.value


def _change(record: Any, change: Union[Set, Delete, Prune, Expect], keep: List[Any]) -> None:
    type, raw = ItemType.ANY, b""
    if isinstance(change, Set):
        record.operation = lib.SYSDB_CHANGE_SET
        type, raw = _raw(change.value, change.type)
    elif isinstance(change, Delete):
        record.operation = lib.SYSDB_CHANGE_DELETE
    elif isinstance(change, Prune):
        record.operation = lib.SYSDB_CHANGE_PRUNE
    elif isinstance(change, Expect):
        record.operation = lib.SYSDB_CHANGE_EXPECT
        if change.value is not None:
            type, raw = _raw(change.value, change.type)
    else:
        raise TypeError(f"a change is Set, Delete, Prune or Expect, not {change.__class__.__name__}")
    path = ffi.new("char[]", _path(change.path))
    value = ffi.new("char[]", raw)
    keep += (path, value)
    record.path, record.value, record.length, record.datatype = path, value, len(raw), type


class Database(Handle):
    """A connection to the system database, bound at a directory.

    ``path`` is absolute and ends in "/". With ``existing`` nothing is created where there is no
    database: for programs that only read. Close it, or use it in a ``with`` statement.
    """

    def __init__(self, path: str = "/cfg/", existing: bool = False) -> None:
        self._handle = 0
        self._bound = _path(path)
        if not isinstance(existing, bool):
            raise TypeError("existing is True or False")
        handle = ffi.new("sysdb_conn_t *")
        flags = lib.SYSDB_BIND_PRIVATE | (lib.SYSDB_BIND_EXISTING if existing else 0)
        check(lib._sysdb_bind(handle, self._bound, flags), f"{path}: the database cannot be opened")
        self._handle = int(handle[0])

    @property
    def path(self) -> str:
        """The directory that the connection is bound at."""
        return _shown(self._bound)

    def _open(self) -> int:
        if not self._handle:
            raise ValueError("the connection to the database is closed")
        return self._handle

    def close(self) -> None:
        """Closes the connection; nothing happens when it is closed."""
        handle, self._handle = self._handle, 0
        if handle:
            lib._sysdb_unbind(handle)

    def __enter__(self) -> "Database":
        self._open()
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", 0):
            self.close()

    def __repr__(self) -> str:
        return f"<Database {self.path}{'' if self._handle else ', closed'}>"

    # -- items

    def get_item(self, path: str, type: int = ItemType.ANY) -> Item:
        """Reads an item, which must be of the type if one is given."""
        found = ffi.new("uint32_t *", _type(type))
        value = ffi.new("void **")
        length = ffi.new("uint32_t *")
        check(lib.sysdb_item_get(self._open(), _path(path), found, value, length, 0), f"{path}: the item cannot be read")
        try:
            return Item(int(found[0]), bytes(ffi.buffer(value[0], length[0])) if length[0] else b"")
        finally:
            if value[0] != ffi.NULL:
                lib.aaapy_wipe(value[0], length[0])  # it may be a key
                lib.free(value[0])

    def get(self, path: str, type: int = ItemType.ANY) -> ItemValue:
        """The value of an item: int, str or tuple by its type, bytes for another type.

        Raises :class:`aaautil.NotFoundError`.
        """
        return self.get_item(path, type).value

    def __contains__(self, path: str) -> bool:
        try:
            self.get_item(path)
        except AaaError as failure:
            if failure.code == lib.SYSDB_ERR_NOT_FOUND:
                return False
            raise
        return True

    def set(self, path: str, value: Union[ItemValue, BytesLike, Sequence[Union[int, str]]], type: Optional[int] = None) -> None:
        """Creates or replaces an item. It is on the disk when the call returns. Bytes need a type."""
        number, raw = _raw(value, type)
        check(lib.sysdb_item_set(self._open(), _path(path), number, raw, len(raw), 0), f"{path}: the item cannot be stored")

    def make_directory(self, path: str) -> None:
        """Makes a directory that exists while it is empty; the path ends in "/"."""
        check(lib.sysdb_item_set(self._open(), _path(path), ItemType.DIRECTORY, ffi.NULL, 0, 0),
              f"{path}: the directory cannot be made")

    def delete(self, path: str, tree: bool = False) -> None:
        """Deletes an item, or with ``tree`` a directory with everything below."""
        check(lib.sysdb_item_delete(self._open(), _path(path), lib.SYSDB_DELETE_TREE if tree else 0),
              f"{path}: it cannot be deleted")

    def list(self, path: str = "", pattern: str = "") -> "List[Entry]":
        """The entries directly below a directory, in the database's order; all, or those that match a
        pattern with "*" and "?"."""
        found = ffi.new("sysdb_list_t *")
        check(lib.sysdb_list(self._open(), _path(path), _path(pattern, "a pattern"), ffi.NULL, found, 0),
              f"{path or self.path}: the directory cannot be listed")
        try:
            entries: "List[Entry]" = []
            name = ffi.new("char **")
            type = ffi.new("uint32_t *")
            while True:
                code = lib.sysdb_list_next(found[0], name, type, 0)
                if code == lib.SYSDB_ERR_END_OF_LIST:
                    return entries
                check(code, f"{path}: the directory cannot be listed")
                entries.append(Entry(_shown(ffi.string(name[0])), int(type[0])))
        finally:
            lib.sysdb_list_free(found[0])

    def walk(self, path: str = "") -> Iterator[Tuple[str, Item]]:
        """All items below a directory with their paths. What is deleted meanwhile is left out."""
        for entry in self.list(path):
            below = path + entry.name
            try:
                if entry.is_directory:
                    yield from self.walk(below)
                else:
                    yield below, self.get_item(below)
            except AaaError as failure:
                if failure.code != lib.SYSDB_ERR_NOT_FOUND:
                    raise

    def apply(self, changes: "Sequence[Union[Set, Delete, Prune, Expect]]") -> None:
        """Makes changes in their order, as one: all of them or none, also when the machine fails.

        On failure the exception has the index of the change that was refused as ``failed``, or None.
        """
        if isinstance(changes, _Planned):
            raise TypeError(f"changes are several: a list or a tuple, not a {changes.__class__.__name__}")
        given = [*changes]
        records = ffi.new("sysdb_change_t[]", len(given))
        keep: "List[Any]" = []
        for record, change in zip(records, given):
            _change(record, change, keep)
        failed = ffi.new("uint32_t *", len(given))
        code = lib.sysdb_apply(self._open(), records if given else ffi.NULL, len(given), failed)
        if code:
            index = int(failed[0])
            which = f"change {index} ({given[index].path})" if index < len(given) else "the changes"
            refused = error(f"{which} cannot be made, and none is", code)
            refused.failed = index if index < len(given) else None
            raise refused

    def watch(self, path: str = "", initial: bool = False) -> "Watch":
        """Watches an item, or all below a directory, whose path ends in "/" or is "".

        With ``initial`` the first change tells what there is now: the value of an item, or for a directory
        "reread", after which walk() reads all that later changes do not tell.
        """
        bound = self.path
        self._open()
        return Watch(bound, path, initial)


class _Held:
    """A connection until it is released: by whom it was given to, or where that one is dropped, such as by a loop that ends
    without having called it."""

    __slots__ = ("_handle",)

    def __init__(self, handle: int) -> None:
        self._handle = handle

    def release(self) -> None:
        handle, self._handle = self._handle, 0
        if handle:
            # The child's copy of a watch: unbinding it leaves the parent's alone.
            lib._sysdb_unbind(handle)

    __del__ = release


class Watch(Handle):
    """Changes of the database, as they happen.

    With asyncio::

        async with database.watch("gl/aaa/") as changes:
            async for change in changes:
                print(change.operation, change.path, change.value)

    Without: ``poll()`` waits for changes and returns them; ``fileno()`` is readable when there may
    be some. A watch belongs to the process that made it, and one task waits for it at a time.
    """

    def __init__(self, bound: str, path: str, initial: bool) -> None:
        self._handle = 0
        self._changes: Deque[Change] = deque()
        self._waiter: "Optional[asyncio.Future[None]]" = None
        # Closed by close(), which wakes a poll() of another thread.
        self._end_of_wait: Optional[int] = None
        self._waking = threading.Lock()
        self._pid = os.getpid()
        handle = ffi.new("sysdb_conn_t *")
        check(lib._sysdb_bind(handle, _path(bound), lib.SYSDB_BIND_PRIVATE), f"{bound}: the database cannot be opened")
        self._handle = int(handle[0])
        self._path = path
        self._self = ffi.new_handle(weakref.ref(self))
        watched = ffi.new("uint64_t *")
        mode = lib.SYSDB_NOTIFY_CHANGES | (lib.SYSDB_NOTIFY_INITIAL if initial else 0)
        descriptor = ffi.new("int32_t *")
        try:
            check(lib._sysdb_register_notification(
                self._handle, _path(path), lib.SYSDB_EVENT_SET | lib.SYSDB_EVENT_DELETE, mode,
                ffi.cast("aaa_notify_cb_t", lib.aaapy_changed), self._self, 0, ffi.NULL, 0, watched), f"{path}: cannot be watched")
            check(lib.sysdb_conn_to_coid(self._handle, descriptor), f"{path}: cannot be watched")
        except BaseException:
            self.close()
            raise
        self._descriptor = int(descriptor[0])

    def _open(self) -> int:
        if not self._handle:
            raise ValueError("the watch is closed")
        if self._pid != os.getpid():
            raise RuntimeError("a watch remains with the process that made it: make another one after a fork")
        return self._handle

    def fileno(self) -> int:
        """A descriptor that is readable when there may be changes. Do not read or close it."""
        self._open()
        return self._descriptor

    def _dispatch(self) -> None:
        code = lib.sysdb_dispatch(self._open())
        if code and self._handle:  # another thread may have closed it meanwhile
            raise error("the changes cannot be read", code)

    def poll(self, timeout: Optional[float] = 0.0) -> List[Change]:
        """Changes since the last call; waits for the first as many seconds, or without a limit for None.

        close() in another thread ends the wait: the result is what has been found until then.
        """
        limit = None if timeout is None else seconds(timeout, "the timeout")
        if not self._changes:
            self._dispatch()
        if not self._changes and (limit is None or limit > 0):
            self._wait(None if limit is None else time.monotonic() + limit)
        found = list(self._changes)
        self._changes.clear()
        return found

    def _wait(self, deadline: Optional[float]) -> None:
        end, other_end = os.pipe()
        try:
            with self._waking:
                if self._end_of_wait is not None:
                    raise RuntimeError("another thread waits for this watch: make one for each thread")
                self._end_of_wait = other_end
            waits = select.poll()
            waits.register(end, select.POLLIN)
            waits.register(self.fileno(), select.POLLIN)
            while not self._changes and self._handle:
                left = None if deadline is None else deadline - time.monotonic()
                if left is not None and left <= 0:
                    break
                waits.poll(None if left is None else min(left, _MOST_SECONDS) * 1000)
                if self._handle:
                    self._dispatch()
        finally:
            os.close(end)
            with self._waking:
                if self._end_of_wait == other_end:
                    self._end_of_wait = None
                    os.close(other_end)

    def close(self) -> None:
        """Ends the watch, and a loop or a thread that waits for it; nothing happens when it is closed."""
        handle, self._handle = self._handle, 0
        waiter, self._waiter = self._waiter, None
        with self._waking:
            end, self._end_of_wait = self._end_of_wait, None
            if end is not None:
                os.close(end)
        held = _Held(handle)
        if waiter is not None and self._pid == os.getpid():
            loop = waiter.get_loop()
            try:
                if loop.is_running() and loop is not _running_loop():
                    # The descriptor is closed when the loop has let go of it, and not before.
                    loop.call_soon_threadsafe(self._end, held, waiter)
                    return
            except RuntimeError:
                pass  # it was closed at this moment
        self._end(held, waiter)

    def _end(self, held: _Held, waiter: "Optional[asyncio.Future[None]]") -> None:
        try:
            if waiter is not None and _let_go(waiter, self._descriptor):
                _wake(waiter)
        finally:
            held.release()

    def __enter__(self) -> "Watch":
        self._open()
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    async def __aenter__(self) -> "Watch":
        self._open()
        return self

    async def __aexit__(self, *_: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", 0):
            self.close()

    def __aiter__(self) -> "Watch":
        return self

    async def __anext__(self) -> Change:
        if not self._changes and self._handle:
            self._dispatch()
        while not self._changes:
            if not self._handle:
                raise StopAsyncIteration
            await self._readable()
            if self._handle:
                self._dispatch()
        return self._changes.popleft()

    async def _readable(self) -> None:
        if self._waiter is not None and not self._waiter.get_loop().is_closed():
            raise RuntimeError("another task waits for this watch: make one for each task")
        loop = asyncio.get_running_loop()
        waiter = self._waiter = loop.create_future()
        try:
            if not self._handle:
                return  # another thread closed it before it could see the waiter
            self._open()
            loop.add_reader(self._descriptor, _wake, waiter)
            await waiter
        finally:
            if self._waiter is waiter:
                self._waiter = None
                _let_go(waiter, self._descriptor)


def _let_go(waiter: "asyncio.Future[None]", descriptor: int) -> bool:
    """Has the waiter's loop wait for the descriptor no more; whether the loop is still open. A task may be dropped after its
    loop was closed, which has let go of every descriptor then."""
    loop = waiter.get_loop()
    try:
        if not loop.is_closed():
            loop.remove_reader(descriptor)
            return True
    except RuntimeError:
        pass  # it was closed at this moment
    return False


def _running_loop() -> Optional[asyncio.AbstractEventLoop]:
    try:
        return asyncio.get_running_loop()
    except RuntimeError:
        return None


def _wake(waiter: "asyncio.Future[None]") -> None:
    if not waiter.done():
        try:
            waiter.set_result(None)
        except RuntimeError:
            pass  # the loop was closed at this moment: no one waits there


_OPERATIONS = {lib.SYSDB_EVENT_SET: "set", lib.SYSDB_EVENT_CREATE: "create", lib.SYSDB_EVENT_DELETE: "delete"}


@ffi.def_extern(error=0)  # type: ignore[misc]
def aaapy_changed(pointer: Any, callback_arg: Any, user_ctx: Any) -> int:
    """Called by the database inside sysdb_dispatch(), with a change that is valid during the call."""
    watch: Optional[Watch] = ffi.from_handle(callback_arg)()
    if watch is None:
        return 0
    told = ffi.cast("sysdb_notification_t *", pointer)
    path = _shown(ffi.string(told.path))
    operation, item = _OPERATIONS.get(told.operation, "set"), None
    if operation != "delete" and path == watch._path and (not path or path.endswith("/")):
        # The directory's own path: the single changes are not told.
        operation = "reread"
    elif operation != "delete":
        item = Item(int(told.datatype), bytes(ffi.buffer(told.value, told.length)) if told.length else b"")
    watch._changes.append(Change(operation, path, item, int(told.revision)))
    return 0
