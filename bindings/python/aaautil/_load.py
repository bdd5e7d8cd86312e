# SPDX-License-Identifier: Apache-2.0
"""Loads the libraries.

The load hook of libaaautil starts a thread, opens the database of the machine and blocks two
signals in the thread that loads it; programs that an interpreter starts would inherit these. A
Python program needs none of it: what it uses of the database it binds itself. So the hook is
switched off while the module is imported.

With AAAUTIL_TESTKIT=1 in the environment the scripted host platform takes the place of the host,
for this process. It has to be loaded before the libraries are.
"""

import operator
import os
import sys
from typing import Any, NoReturn, SupportsIndex, cast

_SWITCH = "NO_DLLMAIN"
# pytest leaves out the frames of modules that have this: it would print their arguments, which may be passwords.
__tracebackhide__ = True


def _refuse_subinterpreters() -> None:
    """The module is there once for the process, with the functions of Python that the database calls: in another interpreter
    than the first a watch would wait for ever."""
    try:
        import ctypes
    except ImportError:
        return  # an interpreter that refuses it refuses the module, too
    python = ctypes.PyDLL(None)
    python.PyInterpreterState_Get.restype = ctypes.c_void_p
    number = python.PyInterpreterState_GetID
    number.argtypes, number.restype = [ctypes.c_void_p], ctypes.c_int64
    if number(python.PyInterpreterState_Get()) != 0:
        raise ImportError("aaautil does not work in a subinterpreter: import it in the main interpreter, "
                          "with mod_wsgi by 'WSGIApplicationGroup %{GLOBAL}'")


def _import() -> Any:
    kept = os.environ.get(_SWITCH)
    flags = sys.getdlopenflags()
    os.environ[_SWITCH] = "1"
    try:
        if os.environ.get("AAAUTIL_TESTKIT") == "1":
            sys.setdlopenflags(os.RTLD_NOW | os.RTLD_GLOBAL)
            from . import _testkit  # noqa: F401

            sys.setdlopenflags(flags)
        from . import _native
    finally:
        sys.setdlopenflags(flags)
        if kept is None:
            del os.environ[_SWITCH]
        else:
            os.environ[_SWITCH] = kept
    return _native


_refuse_subinterpreters()
_native = _import()
ffi: Any = _native.ffi
lib: Any = _native.lib

# The texts of the library's codes, which the hook would have registered.
lib.aaapy_register_codes()


class Handle:
    """What one object holds of the library. A copy would release it a second time."""

    __slots__ = ()

    def __reduce_ex__(self, protocol: Any) -> NoReturn:
        raise TypeError(f"a {type(self).__name__} cannot be copied or pickled: make another one")


def is_whole(value: object) -> bool:
    """Whether a value is taken as a number: an int, an enumerator, or another type that Python takes as an index. A bool is not
    one, because it was meant for something else."""
    return not isinstance(value, bool) and hasattr(type(value), "__index__")


def whole(value: object, what: str, most: int = 0xFFFFFFFF, least: int = 0) -> int:
    """A number within limits, as an int of its own: what derived classes do otherwise has no effect after this."""
    if not is_whole(value):
        raise TypeError(f"{what} is an integer, not {type(value).__name__}")
    number = int.__pos__(operator.index(cast(SupportsIndex, value)))
    if not least <= number <= most:
        raise ValueError(f"{what} is from {least} to {most}")
    return number


def seconds(value: object, what: str) -> float:
    """A time in seconds, which may be endless."""
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        raise TypeError(f"{what} is a number of seconds, or None")
    if value != value:
        raise ValueError(f"{what} is a number of seconds, or None")
    return float(min(value, sys.float_info.max))


def utf8(text: str, what: str) -> bytes:
    """The bytes of a text. The exception of Python holds the whole text, which may be a password."""
    try:
        return str.encode(text, "utf-8", "surrogateescape")
    except UnicodeEncodeError as failure:
        place = failure.start
    raise ValueError(f"{what} has no bytes in UTF-8: character {place} is half of a surrogate pair")


def taken(text: Any) -> bytes:
    """The bytes of a text of the library, which is released; raises when it is a failure."""
    held = ffi.new("aaapy_text_t *", text)
    try:
        if held.bytes == ffi.NULL:
            raise MemoryError
        found = bytes(ffi.buffer(held.bytes, held.length))
        if held.failed:
            raise ValueError(found.decode("utf-8", "replace"))
        return found
    finally:
        lib.aaapy_text_free(held)
