# SPDX-License-Identifier: Apache-2.0
"""TACACS+ packets (RFC 8907) for tests, independent of the code under test.

Bodies are dictionaries whose keys are the names of the RFC's fields. Texts are bytes.
"""
import hashlib
import struct

AUTHEN, AUTHOR, ACCT = 1, 2, 3
UNENCRYPTED, SINGLE_CONNECT = 1, 4

AUTHEN_STATUS = {"PASS": 1, "FAIL": 2, "GETDATA": 3, "GETUSER": 4, "GETPASS": 5, "RESTART": 6, "ERROR": 7,
                 "FOLLOW": 0x21}
AUTHOR_STATUS = {"PASS_ADD": 1, "PASS_REPL": 2, "FAIL": 0x10, "ERROR": 0x11, "FOLLOW": 0x21}
ACCT_STATUS = {"SUCCESS": 1, "ERROR": 2, "FOLLOW": 0x21}
LOGIN, CHPASS = 1, 2
ASCII, PAP, CHAP = 1, 2, 3
NOECHO = 1
ABORT = 1


def pad(session, secret, version, sequence, length):
    """The bytes that a body is combined with."""
    first = struct.pack(">I", session) + secret + bytes([version, sequence])
    block, out = b"", b""
    while len(out) < length:
        block = hashlib.md5(first + block).digest()
        out += block
    return out[:length]


def obfuscate(body, session, secret, version, sequence):
    """Hides a body, or uncovers one."""
    return bytes(a ^ b for a, b in zip(body, pad(session, secret, version, sequence, len(body))))


def head(version, kind, sequence, flags, session, length):
    return struct.pack(">BBBBII", version, kind, sequence, flags, session, length)


def read_head(data):
    return dict(zip(("version", "type", "seq_no", "flags", "session_id", "length"), struct.unpack(">BBBBII", data)))


def packet(kind, session, sequence, body, secret=None, minor=0, flags=0):
    """A whole packet; without a secret it is one for TLS."""
    version = 0xC0 | minor
    if secret is None:
        flags |= UNENCRYPTED
    else:
        body = obfuscate(body, session, secret, version, sequence)
    return head(version, kind, sequence, flags, session, len(body)) + body


class Malformed(Exception):
    """A body whose lengths do not fit, as with another secret."""


def take(data, lengths):
    """Splits data into fields of the given lengths, which must be all of it."""
    if sum(lengths) != len(data):
        raise Malformed(f"fields of {sum(lengths)} bytes in {len(data)}")
    fields = []
    for length in lengths:
        fields.append(data[:length])
        data = data[length:]
    return fields


def unpack(form, data):
    size = struct.calcsize(form)
    if len(data) < size:
        raise Malformed(f"{len(data)} bytes, at least {size} are needed")
    return struct.unpack(form, data[:size]), data[size:]


# ---- authentication ----------------------------------------------------------------

def authen_start(user=b"", data=b"", action=LOGIN, priv_lvl=0, authen_type=ASCII, authen_service=1, port=b"", rem_addr=b""):
    return bytes([action, priv_lvl, authen_type, authen_service, len(user), len(port), len(rem_addr), len(data)]) \
        + user + port + rem_addr + data


def read_authen_start(body):
    numbers, rest = unpack("8B", body)
    names = ("action", "priv_lvl", "authen_type", "authen_service")
    return dict(zip(names, numbers)) | dict(zip(("user", "port", "rem_addr", "data"), take(rest, numbers[4:])))


def authen_reply(status, server_msg=b"", data=b"", flags=0):
    return struct.pack(">BBHH", status, flags, len(server_msg), len(data)) + server_msg + data


def read_authen_reply(body):
    numbers, rest = unpack(">BBHH", body)
    return {"status": numbers[0], "flags": numbers[1]} | dict(zip(("server_msg", "data"), take(rest, numbers[2:])))


def authen_continue(user_msg=b"", data=b"", flags=0):
    return struct.pack(">HHB", len(user_msg), len(data), flags) + user_msg + data


def read_authen_continue(body):
    numbers, rest = unpack(">HHB", body)
    return {"flags": numbers[2]} | dict(zip(("user_msg", "data"), take(rest, numbers[:2])))


# ---- authorization and accounting --------------------------------------------------

def author_request(user, args, authen_method=6, priv_lvl=0, authen_type=ASCII, authen_service=1, port=b"", rem_addr=b""):
    return bytes([authen_method, priv_lvl, authen_type, authen_service, len(user), len(port), len(rem_addr), len(args)]) \
        + bytes(len(arg) for arg in args) + user + port + rem_addr + b"".join(args)


def read_author_request(body):
    numbers, rest = unpack("8B", body)
    lengths, rest = rest[:numbers[7]], rest[numbers[7]:]
    fields = take(rest, list(numbers[4:7]) + list(lengths))
    names = ("authen_method", "priv_lvl", "authen_type", "authen_service")
    return dict(zip(names, numbers)) | dict(zip(("user", "port", "rem_addr"), fields)) | {"args": fields[3:]}


def author_reply(status, args=(), server_msg=b"", data=b""):
    return struct.pack(">BBHH", status, len(args), len(server_msg), len(data)) \
        + bytes(len(arg) for arg in args) + server_msg + data + b"".join(args)


def read_author_reply(body):
    (status, count, message, data), rest = unpack(">BBHH", body)
    fields = take(rest[count:], [message, data] + list(rest[:count]))
    return {"status": status, "server_msg": fields[0], "data": fields[1], "args": fields[2:]}


def acct_request(flags, *fields, **more):
    return bytes([flags]) + author_request(*fields, **more)


def read_acct_request(body):
    numbers, rest = unpack("B", body)
    return {"flags": numbers[0]} | read_author_request(rest)


def acct_reply(status, server_msg=b"", data=b""):
    return struct.pack(">HHB", len(server_msg), len(data), status) + server_msg + data


def read_acct_reply(body):
    (message, data, status), rest = unpack(">HHB", body)
    return {"status": status} | dict(zip(("server_msg", "data"), take(rest, [message, data])))
