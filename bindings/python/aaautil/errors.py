# SPDX-License-Identifier: Apache-2.0
"""Result codes as exceptions.

Every failure of the library, the database or the host is an :class:`AaaError`, which has the
code, its text, the usual cause and a remedy. Where Python has an exception for the same thing,
the class is derived from it too, so that ``except TimeoutError`` works as usual.
"""

import os
from typing import Dict, NamedTuple, Optional, Tuple, Type, Union

from ._enums import ResultCode
from ._load import ffi, lib, whole

__all__ = ["AaaError", "AccessError", "Advice", "ConflictError", "InvalidArgumentError", "ListSpentError", "MalformedError",
           "NotConnectedError", "NotFoundError", "OutOfMemoryError", "ServiceTimeoutError", "advice", "code_text"]
__tracebackhide__ = True  # see _load


class Advice(NamedTuple):
    """What is known about a result code."""

    code: int
    name: str
    by_library: bool
    cause: str
    remedy: str


def _text(pointer: object) -> str:
    return str(ffi.string(pointer).decode("utf-8", "replace"))


def _all_advice() -> Dict[int, Advice]:
    rows: Dict[int, Advice] = {}
    number = 0
    while True:
        row = lib.aaapy_advice_row(number)
        if row == ffi.NULL:
            return rows
        rows.setdefault(row.code, Advice(row.code, _text(row.name), bool(row.by_library), _text(row.cause), _text(row.remedy)))
        number += 1


_ADVICE: Dict[int, Advice] = {}


def advice(code: int) -> Optional[Advice]:
    """What is known about a result code; None for one that is not known."""
    if not _ADVICE:
        _ADVICE.update(_all_advice())
    return _ADVICE.get(code)


def code_text(code: int) -> str:
    """The text of a result code."""
    return _text(lib.cerr_strerror(whole(code, "a result code")))


class AaaError(Exception):
    """A call failed with a result code.

    Attributes: ``code`` (a :class:`ResultCode` when it is known), ``name``, ``text``, ``cause``,
    ``remedy`` (the last three may be empty), ``what`` (what was being done) and ``errno`` (the
    system's error number, 0 when there is none).
    """

    def __init__(self, what: str, code: int, errno: int = 0) -> None:
        super().__init__(what)  # before errno is set, which OSError would take from the arguments
        known = advice(code)
        try:
            self.code: Union[ResultCode, int] = ResultCode(code)
        except ValueError:
            self.code = code
        self.what = what
        self.errno = errno
        # Of Database.apply(): the index of the change that was refused.
        self.failed: Optional[int] = None
        self.name = known.name if known else f"{code:#010x}"
        self.text = code_text(code)
        self.cause = known.cause if known else ""
        self.remedy = known.remedy if known else ""

    def __str__(self) -> str:
        reason = f"{self.text} ({self.name})"
        if self.errno:
            reason = f"{os.strerror(self.errno)} ({self.name})"
        return " ".join(part for part in (f"{self.what}: {reason}.", self.cause, self.remedy) if part)

    def __reduce__(self) -> Tuple[Type["AaaError"], Tuple[str, int, int]]:
        return type(self), (self.what, int(self.code), self.errno)


class InvalidArgumentError(AaaError, ValueError):
    """An argument is not one that the call takes."""


class MalformedError(AaaError, ValueError):
    """A message, a list or a stored value is malformed or too long."""


class NotFoundError(AaaError, LookupError):
    """The item, the attribute or the group does not exist."""


class OutOfMemoryError(AaaError, MemoryError):
    """Memory is exhausted."""


class ServiceTimeoutError(AaaError, TimeoutError):
    """The other side did not answer in time."""


class NotConnectedError(AaaError, ConnectionError):
    """There is no connection, or it could not be made."""


class AccessError(AaaError, PermissionError):
    """This process may not read or write that."""


class ConflictError(AaaError):
    """An item is not as the caller expects it: another process has changed it."""


class ListSpentError(RuntimeError):
    """A native list was packed or freed, and cannot be used any more."""


_CLASSES: Dict[int, Type[AaaError]] = {
    code: exception
    for exception, codes in (
        (InvalidArgumentError, ("AAA_ERR_INVALID_ARG", "AAA_ERR_INVALID_TYPE", "SYSDB_ERR_INVALID_ARG", "SYSDB_ERR_BAD_PATH",
                                "SYSDB_ERR_PATH_TOO_LONG", "SYSDB_ERR_TYPE_MISMATCH", "SYSDB_ERR_BAD_VALUE",
                                "SYSDB_ERR_VALUE_TOO_LARGE")),
        (MalformedError, ("AAA_ERR_INVALID_MSG_SIZE", "AAA_ERR_INVALID_MSG_TYPE", "AAA_ERR_AVPAIR_PROCESSING",
                          "AAA_ERR_UNEXPECTED_REPLY")),
        (NotFoundError, ("AAA_ERR_NOT_FOUND", "AAA_ERR_AVPAIR_NOT_FOUND", "SYSDB_ERR_NOT_FOUND")),
        (OutOfMemoryError, ("AAA_ERR_NOMEM", "SYSDB_ERR_NOMEM")),
        (ServiceTimeoutError, ("AAA_ERR_TIMEOUT",)),
        (NotConnectedError, ("AAA_ERR_NOT_CONNECTED", "AAA_ERR_SERVER_CONNECT_FAILED")),
        (AccessError, ("SYSDB_ERR_ACCESS", "SYSDB_ERR_READ_ONLY")),
        (ConflictError, ("SYSDB_ERR_CONFLICT",)),
    )
    for code in (getattr(lib, name) for name in codes)
}


def error(what: str, code: int, errno: int = 0) -> AaaError:
    """The exception for a code."""
    return _CLASSES.get(code, AaaError)(what, code, errno)


def check(code: int, what: str) -> None:
    """Raises unless the code is success."""
    if code:
        raise error(what, code)
