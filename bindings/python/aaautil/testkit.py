# SPDX-License-Identifier: Apache-2.0
"""The scripted host platform: tests without the machine's database, log and lines.

It takes the place of the host for a whole process, and has to be loaded before the libraries
are: run the process with AAAUTIL_TESTKIT=1 in its environment, or pytest with --aaa-testkit and
the fixture ``aaa_testkit``. The functions of libc stay those of the machine.
"""

import os
from typing import Any, Callable, Dict, List, Optional, Sequence, Tuple, Union

from ._load import ffi as _native_ffi
from ._load import lib as _native_lib
from ._load import whole
from .lists import BytesLike
from .sysdb import Item, ItemType, ItemValue, _path, _raw

if os.environ.get("AAAUTIL_TESTKIT") != "1":
    raise ImportError("the test kit takes the place of the host only when it is loaded first: run the process with "
                      "AAAUTIL_TESTKIT=1 in its environment, or pytest with --aaa-testkit")

from ._testkit import ffi, lib  # noqa: E402

__all__ = ["Testkit"]
__tracebackhide__ = True  # see _load

FOREVER: int = lib.TESTKIT_FOREVER
_misuse: List[str] = []
_hooks: Dict[str, Tuple[Any, Callable[[], None]]] = {}


@ffi.def_extern()  # type: ignore[misc]
def aaapy_misuse(text: Any, context: Any) -> None:
    """Called on misuse of the platform; it must not call the kit."""
    _misuse.append(ffi.string(text).decode("utf-8", "replace"))


@ffi.def_extern()  # type: ignore[misc]
def aaapy_before(context: Any) -> None:
    """Called before a function that has a hook."""
    ffi.from_handle(context)()


def _text(pointer: Any) -> Optional[str]:
    return None if pointer == ffi.NULL else ffi.string(pointer).decode("utf-8", "replace")


def _code(value: int, what: str) -> int:
    return whole(value, what)


def _full(path: str) -> bytes:
    encoded = _path(path)
    if not encoded.startswith((b"/cfg/", b"/oper/")) or b"//" in encoded:
        raise ValueError(f"{path!r} is not a full path, such as /cfg/gl/aaa/number")
    return encoded


class Testkit:
    """What tests ask and tell the scripted platform. There is one; every object speaks of it."""

    __test__ = False  # pytest takes classes of this name for tests

    def reset(self) -> None:
        """Everything back to the initial state: contents, scripts, records."""
        lib.testkit_on_misuse(lib.aaapy_misuse, ffi.NULL)
        lib.testkit_reset()
        _misuse.clear()
        _hooks.clear()

    @property
    def misuse(self) -> List[str]:
        """What was done with the platform that must not be done, since the reset."""
        return list(_misuse)

    # -- recorded calls

    def count(self, function: str) -> int:
        """How often a function of the platform was called since the reset."""
        return int(lib.testkit_count(self._function(function)))

    def calls(self, function: Optional[str] = None) -> List[str]:
        """The calls of a function, or all, as lines like sysdb_item_get(/cfg/limits/, "sessions", 1, 3, 4, 0)."""
        name = ffi.NULL if function is None else self._function(function)
        found: List[str] = []
        while True:
            line = _text(lib.testkit_call(name, len(found)))
            if line is None:
                return found
            found.append(line)

    def clear_calls(self) -> None:
        """Forgets calls, log lines and traces."""
        lib.testkit_clear_calls()

    def log(self) -> List[str]:
        """The texts of the logged messages."""
        found: List[str] = []
        while True:
            line = _text(lib.testkit_log(len(found)))
            if line is None:
                return found
            found.append(line)

    @staticmethod
    def _function(name: str) -> Any:
        encoded = _path(name, "the name of a function")
        # Only the kit knows its functions: it takes a name that is none of them for misuse.
        before = len(_misuse)
        lib.testkit_on_misuse(lib.aaapy_misuse, ffi.NULL)
        lib.testkit_count(encoded)
        if len(_misuse) > before:
            del _misuse[before:]
            raise ValueError(f"the platform has no function {name!r}")
        return encoded

    # -- scripts

    def answer(self, function: str, code: int, times: int = FOREVER, errno: int = -1) -> None:
        """The next calls of a function do nothing and return a code."""
        lib.testkit_answer(self._function(function), _code(code, "a code"), _code(times, "a number of calls"), errno)

    def fail_call(self, function: str, k: int, code: int, errno: int = -1) -> None:
        """The k-th call of a function from now on, 1 for the next, does nothing and returns a code."""
        if _code(k, "the number of a call") == 0:
            raise ValueError("calls are counted from 1")
        lib.testkit_fail_call(self._function(function), k, _code(code, "a code"), errno)

    def clear_answers(self, function: str) -> None:
        """Back to what the function does by itself."""
        lib.testkit_clear_answers(self._function(function))

    def before(self, function: str, hook: Optional[Callable[[], None]]) -> None:
        """Runs a function before every call of one of the platform's; None ends it."""
        name = self._function(function)
        if hook is None:
            lib.testkit_before(name, ffi.NULL, ffi.NULL)
            _hooks.pop(function, None)
            return
        if not callable(hook):
            raise TypeError("a hook is a function without arguments")
        handle = ffi.new_handle(hook)
        _hooks[function] = (handle, hook)
        lib.testkit_before(name, lib.aaapy_before, handle)

    # -- contents of the database

    def present(self, on: bool) -> None:
        """Whether there is a database; initially there is."""
        lib.testkit_sysdb_present(1 if on else 0)

    def put(self, path: str, value: Union[ItemValue, BytesLike, Sequence[Union[int, str]]], type: Optional[int] = None) -> None:
        """Stores an item by its full path, as another process would."""
        number, raw = _raw(value, type)
        lib.testkit_sysdb_put(_full(path), number, raw, len(raw))

    def make_directory(self, path: str) -> None:
        """Makes a directory that exists while it is empty."""
        lib.testkit_sysdb_make_directory(_full(path))

    def remove(self, path: str) -> None:
        """Removes an item, or a directory that was made and is empty."""
        lib.testkit_sysdb_remove(_full(path))

    def get(self, path: str) -> Optional[ItemValue]:
        """The value of an item; None when there is none."""
        full = _full(path)
        directory, _, name = full.rpartition(b"/")
        handle = _native_ffi.new("sysdb_conn_t *")
        if _native_lib._sysdb_bind(handle, directory + b"/", _native_lib.SYSDB_BIND_PRIVATE):
            return None
        try:
            kind = _native_ffi.new("uint32_t *", ItemType.ANY)
            value = _native_ffi.new("void **")
            length = _native_ffi.new("uint32_t *")
            if _native_lib.sysdb_item_get(handle[0], name, kind, value, length, 0):
                return None
            try:
                return Item(int(kind[0]), bytes(_native_ffi.buffer(value[0], length[0])) if length[0] else b"").value
            finally:
                _native_lib.free(value[0])
        finally:
            _native_lib._sysdb_unbind(handle[0])

    def paths(self) -> List[str]:
        """The paths of all items, in order."""
        found: List[str] = []
        while True:
            path = _text(lib.testkit_sysdb_path(len(found)))
            if path is None:
                return found
            found.append(path)

    def open_connections(self, path: Optional[str] = None) -> int:
        """Connections of the database that are open, all or those bound at a directory."""
        return int(lib.testkit_sysdb_open_connections(ffi.NULL if path is None else _path(path)))
