# SPDX-License-Identifier: Apache-2.0
"""A private AAA service for tests: its own directories, database, users and socket.

Nothing of the machine is read or changed. The fixture ``aaad`` of pytest gives one that runs.
"""

import hashlib
import json
import os
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
from typing import Any, Dict, List, Optional, Sequence, Union

from ._enums import Method
from ._load import Handle, utf8
from .client import Client
from .sysdb import Database, Delete, Expect, Prune, Set, _raw

__all__ = ["PrivateService", "hash_of"]
__tracebackhide__ = True  # see _load

_PATIENCE = 60.0  # seconds that a busy machine may take to start the service
_DIGITS = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
# The bytes of the digest that become four characters each.
_ORDER = ((0, 10, 20), (21, 1, 11), (12, 22, 2), (3, 13, 23), (24, 4, 14), (15, 25, 5), (6, 16, 26), (27, 7, 17), (18, 28, 8),
          (9, 19, 29))
_ALL_CHANGES = Union[Set, Delete, Prune, Expect]


def _repeated(block: bytes, length: int) -> bytes:
    return (block * (length // len(block) + 1))[:length]


def hash_of(password: str, salt: str = "aaautil") -> str:
    """A hash of the form $5$ of crypt(5) with 1000 rounds: quick to check, so for tests only."""
    key, seed, rounds = utf8(password, "a password"), salt.encode(), 1000
    other = hashlib.sha256(key + seed + key).digest()
    first = hashlib.sha256(key + seed + _repeated(other, len(key)))
    bits = len(key)
    while bits:
        first.update(other if bits & 1 else key)
        bits >>= 1
    state = first.digest()
    keys = _repeated(hashlib.sha256(key * len(key)).digest(), len(key))
    seeds = _repeated(hashlib.sha256(seed * (16 + state[0])).digest(), len(seed))
    for turn in range(rounds):
        block = keys if turn & 1 else state
        block += (seeds if turn % 3 else b"") + (keys if turn % 7 else b"") + (state if turn & 1 else keys)
        state = hashlib.sha256(block).digest()
    text = ""
    for high, middle, low in _ORDER:
        number = state[high] << 16 | state[middle] << 8 | state[low]
        text += "".join(_DIGITS[number >> 6 * digit & 63] for digit in range(4))
    number = state[31] << 8 | state[30]
    text += "".join(_DIGITS[number >> 6 * digit & 63] for digit in range(3))
    return f"$5$rounds={rounds}${salt}${text}"


def _program() -> str:
    given = os.environ.get("AAAD_PROGRAM")
    found = given or shutil.which("aaad", path=os.environ.get("PATH", "") + os.pathsep + "/usr/sbin:/sbin")
    if not found:
        raise FileNotFoundError("the service aaad is not installed: install the package aaad, or name the program in AAAD_PROGRAM")
    return found


class PrivateService(Handle):
    """aaad in a directory of its own, with a database of its own.

    There are two users at first: alice, whose password is "wonderland" and whose privilege is 15, and
    bob with "looking-glass" and 1. Without a method list, logins are answered from the users. Change
    what the service is to find with users(), settings(), apply() and method_list(), before start() or
    while it runs.
    """

    def __init__(self, program: Optional[str] = None) -> None:
        self._process: "Optional[subprocess.Popen[bytes]]" = None
        self._program = program or _program()
        # Short, because the path of a socket has at most 107 bytes.
        base = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
        self.directory = tempfile.mkdtemp(prefix="aaad-", dir=base)
        self.socket = self._at("aaad.sock")
        self._states = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._states.bind(self._at("notify"))
        self.settings("")
        self.users({"alice": ("wonderland", 15), "bob": ("looking-glass", 1)})

    def _at(self, name: str) -> str:
        return os.path.join(self.directory, name)

    @property
    def environment(self) -> Dict[str, str]:
        """The environment of the service, and of programs that are to use its database."""
        found = {name: value for name, value in os.environ.items() if name not in ("NO_DLLMAIN", "AAAUTIL_TESTKIT")}
        found.update(AAA_SYSDB_CFG_DIR=self._at("cfg"), AAA_SYSDB_RUN_DIR=self._at("run"), AAA_LOG="stderr",
                     AAA_MASTER_KEYS=self._at("master.keys"), AAA_LINES_CONF=self._at("lines.conf"),
                     AAA_NODE_CONF=self._at("node.conf"), NOTIFY_SOCKET=self._at("notify"))
        package = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
        found["PYTHONPATH"] = os.pathsep.join(part for part in (package, os.environ.get("PYTHONPATH", "")) if part)
        return found

    # -- what the service finds

    def settings(self, text: str) -> None:
        """Lines of aaad.conf(5), besides those that keep the service in its directory."""
        words = {line.split(None, 1)[0] for line in text.splitlines() if line.strip()}
        usual = {"users": self._at("users"), "socket": self.socket, "journal": self._at("accounting"),
                 "metrics-socket": self._at("metrics.sock"), "control-socket": self._at("control.sock"), "log-unknown-names": "yes"}
        lines = [text] + [f"{word} {value}" for word, value in usual.items() if word not in words]
        self._write("aaad.conf", "\n".join(lines) + "\n")

    def users(self, users: Dict[str, Any]) -> None:
        """The local users, in place of the present ones: name to (password, privilege[, patterns of commands])."""
        rows = []
        for name, (password, privilege, *patterns) in users.items():
            rows.append(" : ".join([name, hash_of(password), str(privilege), *([", ".join(patterns)] if patterns else [])]))
        self._write("users", "\n".join(rows) + "\n")

    def _write(self, name: str, text: str) -> None:
        with open(self._at(name + ".new"), "w", encoding="utf-8") as file:
            os.fchmod(file.fileno(), 0o600)
            file.write(text)
        os.rename(self._at(name + ".new"), self._at(name))

    def apply(self, changes: Sequence[_ALL_CHANGES]) -> None:
        """Changes the database of the service; paths are full ones, below /cfg/.

        Another process does it: this one may have the machine's database open, or the test kit's.
        """
        rows = []
        for change in changes:
            if not change.path.startswith("/cfg/"):
                raise ValueError(f"{change.path!r} is not a path below /cfg/")
            row: List[Any] = [type(change).__name__, change.path[len("/cfg/"):]]
            if isinstance(change, (Set, Expect)) and change.value is not None:
                number, raw = _raw(change.value, change.type)
                row += [number, raw.hex()]
            rows.append(row)
        self._child("apply", json.dumps(rows))

    def read(self, path: str) -> Optional[Any]:
        """The value of an item of the service's database by its full path; None when there is none."""
        return json.loads(self._child("read", json.dumps(path)))

    def _child(self, command: str, given: str) -> str:
        done = subprocess.run([sys.executable, "-m", "aaautil.private", command], input=given, env=self.environment, text=True,
                              capture_output=True, timeout=_PATIENCE)
        if done.returncode != 0:
            raise RuntimeError(f"the database of the private service: {done.stderr.strip()}")
        return done.stdout

    def method_list(self, path: str, methods: Sequence[Union[int, str]]) -> None:
        """Stores a method list, such as "authentication/login/default": up to four methods, groups by name.

        A list of accounting has records of starts and stops made, as they come.
        """
        if not 1 <= len(methods) <= 4:
            raise ValueError("a list has one to four methods")
        numbers = [int(Method.SERVER_GROUP) if isinstance(one, str) else int(one) for one in methods]
        names = [one if isinstance(one, str) else "" for one in methods]
        options = [0, 0, 0] if path.startswith("accounting/") else []
        self.apply([Set(f"/cfg/gl/aaa/{path}", tuple(options + numbers + [0] * (4 - len(numbers)) + names + [""] * (4 - len(names))))])

    # -- the service

    def start(self, *arguments: str) -> None:
        """Starts the service, and returns when it is ready."""
        if self._process is not None:
            raise RuntimeError("the private service runs already")
        with open(self._at("log"), "ab") as log:
            self._process = subprocess.Popen([self._program, "--config", self._at("aaad.conf"), "--foreground", *arguments],
                                             env=self.environment, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self._wait_for("READY=1")

    def _wait_for(self, state: str) -> None:
        end = time.monotonic() + _PATIENCE
        waits = select.poll()
        waits.register(self._states, select.POLLIN)
        while time.monotonic() < end:
            if waits.poll(100):
                if state in self._states.recv(4096).decode("utf-8", "replace"):
                    return
            elif self._process is None or self._process.poll() is not None:
                self._process = None
                raise RuntimeError(f"aaad has ended before it said {state}; its log:\n{self.log()}")
        raise TimeoutError(f"aaad did not say {state} within {_PATIENCE:.0f} seconds; its log:\n{self.log()}")

    def reload(self) -> None:
        """Has the service read its files again, and returns when it has."""
        if self._process is None:
            raise RuntimeError("the private service does not run")
        self._process.send_signal(signal.SIGHUP)
        self._wait_for("RELOADING=1")
        self._wait_for("READY=1")

    def stop(self) -> int:
        """Ends the service; its exit status, or minus the signal that ended it."""
        process, self._process = self._process, None
        if process is None:
            return 0
        process.terminate()
        try:
            return process.wait(_PATIENCE)
        except subprocess.TimeoutExpired:
            process.kill()
            return process.wait()

    @property
    def pid(self) -> Optional[int]:
        """The process of the service, while it runs."""
        return None if self._process is None else self._process.pid

    def log(self) -> str:
        """What the service has logged."""
        try:
            with open(self._at("log"), encoding="utf-8", errors="replace") as file:
                return file.read()
        except FileNotFoundError:
            return ""

    def client(self, **options: Any) -> Client:
        """A client of the service; options as for :class:`aaautil.Client`."""
        options.setdefault("servers", (os.geteuid(),))
        return Client(self.socket, **options)

    def close(self) -> None:
        """Ends the service and removes its directory."""
        self.stop()
        self._states.close()
        shutil.rmtree(self.directory, ignore_errors=True)

    def __enter__(self) -> "PrivateService":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


def _main(arguments: List[str]) -> None:
    """Runs in the child that uses the database of the service."""
    given = json.load(sys.stdin)
    with Database("/cfg/") as database:
        if arguments == ["read"]:
            json.dump(database.get(given[len("/cfg/"):]) if given[len("/cfg/"):] in database else None, sys.stdout)
            return
        kinds: Dict[str, Any] = {"Set": Set, "Delete": Delete, "Prune": Prune, "Expect": Expect}
        changes: List[_ALL_CHANGES] = []
        for name, path, *rest in given:
            value = [bytes.fromhex(rest[1]), rest[0]] if rest else [None] if name == "Expect" else []
            changes.append(kinds[name](path, *value))
        database.apply(changes)


if __name__ == "__main__":
    _main(sys.argv[1:])
