# SPDX-License-Identifier: Apache-2.0
"""Attribute lists, messages, the system database and a client of the AAA service.

- :class:`AttributeList`: pairs as a sequence and a mapping, packed and unpacked with checks.
- :mod:`aaautil.messages`: whole messages as documents, and back.
- :class:`Database`: items of the system database, changes as one, watches for asyncio.
- :class:`Client`: logins, authorization and accounting through the service.
- :class:`Attr`, :class:`Status` and others: the enumerations of the headers.
- :class:`AaaError`: result codes as exceptions, with cause and remedy.
- :data:`lib` and :data:`ffi`: every function of the libraries, as C has it.

Importing the package starts no thread and opens no file.
"""

from . import messages
from ._enums import (AcctOption, Attr, AuthenOption, Format, Function, Keyword, MessageType, Method, Request, ResultCode, Service,
                     Status)
from ._load import ffi, lib
from .client import Answer, Client, Prompt
from .dictionary import (DictionaryRow, SecretBytes, attribute_format, attribute_name, attribute_type, attributes, is_secret,
                         method_name, service_name, status_name)
from .errors import (AaaError, AccessError, Advice, ConflictError, InvalidArgumentError, ListSpentError, MalformedError,
                     NotConnectedError, NotFoundError, OutOfMemoryError, ServiceTimeoutError, advice, code_text)
from .lists import Attribute, AttributeList, BytesLike, Key, NativeList, Value, raw_value, typed_value
from .sysdb import Change, Database, Delete, Entry, Expect, Item, ItemType, Prune, Set, Watch

__all__ = [
    "AaaError", "AccessError", "AcctOption", "Advice", "Answer", "Attr", "Attribute", "AttributeList", "AuthenOption",
    "BytesLike", "Change", "Client", "ConflictError", "Database", "Delete", "DictionaryRow", "Entry", "Expect", "Format",
    "Function", "InvalidArgumentError", "Item", "ItemType", "Key", "Keyword", "ListSpentError", "MalformedError", "MessageType",
    "Method", "NativeList", "NotConnectedError", "NotFoundError", "OutOfMemoryError", "Prompt", "Prune", "Request", "ResultCode",
    "SecretBytes", "Service", "ServiceTimeoutError", "Set", "Status", "Value", "Watch", "advice", "attribute_format", "attribute_name",
    "attribute_type", "attributes", "code_text", "ffi", "is_secret", "lib", "messages", "method_name", "raw_value",
    "service_name", "status_name", "typed_value",
]
