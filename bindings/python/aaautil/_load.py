# SPDX-License-Identifier: Apache-2.0
"""Loads the libraries.

The load hook of libaaautil starts a thread, opens the database of the machine and blocks two
signals in the thread that loads it; programs that an interpreter starts would inherit these. A
Python program needs none of it: what it uses of the database it binds itself. So the hook is
switched off while the module is imported.

With AAAUTIL_TESTKIT=1 in the environment the scripted host platform takes the place of the host,
for this process. It has to be loaded before the libraries are.
"""

import os
import sys
from typing import Any, NoReturn

_SWITCH = "NO_DLLMAIN"


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
