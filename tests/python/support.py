# SPDX-License-Identifier: Apache-2.0
"""What several tests of the Python package use."""

import os
import pathlib
import socket
import struct
import subprocess
import sys
import threading

import pytest

import aaautil
from aaautil import Attr, AttributeList

TREE = pathlib.Path(os.environ["AAA_TREE"])
SANITIZED = "AAA_SANITIZED" in os.environ


def missing(package):
    """Skips a test that needs a package; where everything is to be installed it fails."""
    if " programs " in f" {os.environ.get('AAA_TESTS_MACHINE_HAS', '')} ":
        pytest.fail(f"{package} is not installed")
    pytest.skip(f"{package} is not installed: scripts/setup test installs it")


def run_python(code, **environment):
    """Runs Python code in a process of its own and returns its output; it has to succeed."""
    done = subprocess.run([sys.executable, "-c", code], env={**os.environ, **environment}, capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, f"exit status {done.returncode}\n{done.stdout}\n{done.stderr}"
    return done.stdout


def in_child(body):
    """Runs a function in a forked child and returns what it returns, as text."""
    reading, writing = os.pipe()
    pid = os.fork()
    if pid == 0:
        status = 1
        try:
            os.close(reading)
            os.write(writing, str(body()).encode())
            status = 0
        except BaseException as failure:  # the child must end here in any case
            os.write(writing, f"{type(failure).__name__}: {failure}".encode())
        finally:
            os._exit(status)
    os.close(writing)
    with os.fdopen(reading, "rb") as pipe:
        text = pipe.read().decode()
    assert os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]) == 0, text
    return text


def nine_pairs():
    """A list as a login has it."""
    return AttributeList([
        (Attr.AAA_TYPE_ATTR, 1), (Attr.AAA_SERVICE_TYPE_ATTR, 1), ("USERNAME", "alice"), ("TTYNAME", "vty0"),
        ("REMOTE_ADDR", "192.0.2.10"), ("IPADDR", "192.0.2.7"), ("PASSWORD", "wonderland"), ("PRIV_LVL", 15),
        ("ORDERLIST", b"\x01\x02\x03\x04\x05")], "Authentication Request")


class ScriptedServer:
    """A server on a socket of its own, which answers each message with what a function returns for it."""

    MAGIC = 0x4D414141

    def __init__(self, path, answer):
        self.path = str(path)
        self.requests = []
        self._answer = answer
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self._listener.bind(self.path)
        self._listener.listen(8)
        self._connections = []
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            self._connections.append(connection)
            threading.Thread(target=self._talk, args=(connection,), daemon=True).start()

    def _talk(self, connection):
        while True:
            try:
                message = connection.recv(65536)
            except OSError:
                return
            if not message:
                return
            # The attribute list of a request with a parameter follows 40 bytes.
            kind = struct.unpack_from("=I", message, 20)[0]
            attributes = AttributeList.unpack(message[40:]) if kind in (3, 5, 7) else None
            self.requests.append((message, attributes))
            reply = self._answer(kind, attributes)
            if reply is None:
                continue
            if reply == "close":
                connection.close()
                return
            try:
                connection.send(reply)
            except OSError:
                return  # the client has given up meanwhile

    @classmethod
    def reply(cls, attributes, result=0):
        """A reply with a list."""
        body = struct.pack("!I", result) + AttributeList(attributes, "reply").pack()
        return struct.pack("=5I", cls.MAGIC, 20 + len(body), 1, os.getpid(), 0) + body

    def client(self, **options):
        return aaautil.Client(self.path, **{"servers": (os.geteuid(),), **options})

    def close(self):
        self._listener.close()
        for connection in self._connections:
            connection.close()
