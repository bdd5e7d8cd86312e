# SPDX-License-Identifier: Apache-2.0
"""aaad in a directory of its own, its servers, aaactl and tshark: for the tests here."""

import contextlib
import hashlib
import hmac
import json
import os
import pathlib
import shlex
import shutil
import signal
import socket
import ssl
import struct
import subprocess
import sys
import tempfile
import threading

BUILD = pathlib.Path(os.environ["AAA_BUILD"])
SOURCE = pathlib.Path(os.environ["AAA_SOURCE"])
STATUS_SERVER = 12
PATIENCE = 120  # seconds that a busy machine may take


def check(condition, text):
    if not condition:
        sys.exit("failed: " + text)


def environment(directory):
    libraries = [BUILD / "aaa/lib/util", BUILD / "platform/linux", BUILD / "transport"]
    env = {name: value for name, value in os.environ.items() if not name.startswith("AAA_")}
    env.pop("NO_DLLMAIN", None)
    env.update(
        LD_LIBRARY_PATH=":".join(map(str, libraries)),
        AAA_SYSDB_PROVIDER=os.environ["AAA_SYSDB_PROVIDER"],
        AAA_SYSDB_CFG_DIR=str(directory / "cfg"),
        AAA_SYSDB_RUN_DIR=str(directory / "run"),
        AAA_MASTER_KEYS=str(directory / "master.keys"),
        AAA_LOG="stderr",
        LC_ALL="C.UTF-8",
        TZ="UTC",
    )
    return env


class Tshark:
    """tshark with the dissector that was built, and nothing of this user's configuration."""

    def __init__(self, directory):
        home = directory / "home"
        plugins = home / ".local/lib/wireshark/plugins"
        plugins.mkdir(parents=True, exist_ok=True)
        shutil.copy(BUILD / "dissector/aaa.lua", plugins)
        self.env = dict(os.environ, HOME=str(home), XDG_CONFIG_HOME=str(home / ".config"), LC_ALL="C.UTF-8", TZ="UTC")
        for variable in ("LD_LIBRARY_PATH", "LD_PRELOAD"):
            self.env.pop(variable, None)

    def run(self, *words, **options):
        done = subprocess.run(
            ["tshark", *map(str, words)], env=self.env, capture_output=True, timeout=options.pop("timeout", PATIENCE), stdin=subprocess.DEVNULL, **options
        )
        self.errors = "\n".join(
            line for line in done.stderr.decode(errors="replace").splitlines() if not line.startswith("Running as user")
        )
        if "Lua Error" in done.stdout.decode(errors="replace") or "Lua Error" in self.errors or "lua" in self.errors.lower():
            sys.exit("the dissector has failed: " + self.errors + done.stdout.decode(errors="replace")[:2000])
        return done.stdout.decode(errors="replace")

    def fields(self, file, names, *words):
        """The values of each frame as a list of texts."""
        wanted = [word for name in names for word in ("-e", name)]
        output = self.run("-r", file, *words, "-T", "fields", *wanted)
        return [line.split("\t") for line in output.splitlines()]


class RadiusServer(threading.Thread):
    """Accepts the password "at the server", with a key; refuses others."""

    def __init__(self, key, kind=socket.SOCK_DGRAM):
        super().__init__(daemon=True)
        self.key = key.encode()
        self.socket = socket.socket(socket.AF_INET, kind)
        self.socket.bind(("127.0.0.1", 0))
        if kind == socket.SOCK_STREAM:
            self.socket.listen()
        self.port = self.socket.getsockname()[1]
        self.start()

    def password(self, authenticator, value):
        plain, last = b"", authenticator
        for at in range(0, len(value), 16):
            pad = hashlib.md5(self.key + last).digest()
            plain += bytes(a ^ b for a, b in zip(value[at : at + 16], pad))
            last = value[at : at + 16]
        return plain.rstrip(b"\0")

    def answer(self, packet):
        attributes, at = {}, 20
        while at < len(packet):
            attributes[packet[at]] = packet[at + 2 : at + packet[at + 1]]
            at += packet[at + 1]
        good = 2 in attributes and self.password(packet[4:20], attributes[2]) == b"at the server"
        code = 5 if packet[0] == 4 else 2 if good or packet[0] == STATUS_SERVER else 3
        name = attributes.get(1, b"alice")
        text = b"" if code != 3 or name == b"alice" else b"no user " + name.upper()  # servers repeat it in their way
        reply = bytes([18, 2 + len(text)]) + text if text else b""
        head = struct.pack("!BBH", code, packet[1], 20 + 18 + len(reply))
        zero = bytes([80, 18]) + bytes(16)
        signature = hmac.new(self.key, head + packet[4:20] + zero + reply, "md5").digest()
        body = bytes([80, 18]) + signature + reply
        authenticator = hashlib.md5(head + packet[4:20] + body + self.key).digest()
        return head + authenticator + body

    def run(self):
        while True:
            packet, peer = self.socket.recvfrom(4096)
            self.socket.sendto(self.answer(packet), peer)


class RadsecServer(RadiusServer):
    """The same over TLS of one version; the key is that of RFC 6614."""

    def __init__(self, machine, version):
        self.certificate, key = certificate(machine, "radius.test")
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.minimum_version = self.context.maximum_version = version
        self.context.load_cert_chain(self.certificate, key)
        super().__init__("radsec", socket.SOCK_STREAM)

    def run(self):
        while True:
            plain, _ = self.socket.accept()
            # A client that goes away in the middle is the test's to notice.
            with contextlib.suppress(OSError), self.context.wrap_socket(plain, server_side=True) as client:
                data = b""
                while more := client.recv(4096):
                    data += more
                    while len(data) >= 4 and len(data) >= (length := struct.unpack_from("!H", data, 2)[0]):
                        client.sendall(self.answer(data[:length]))
                        data = data[length:]


def certificate(machine, name):
    """The files of a certificate that is its own authority, and of its key."""
    files = machine.dir / "server.pem", machine.dir / "server.key"
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", f"/CN={name}", "-addext", f"subjectAltName=DNS:{name}",
         "-keyout", files[1], "-out", files[0], "-days", "2"],
        check=True, capture_output=True,
    )  # fmt: skip
    return files


class Machine:
    def __init__(self, users=("alice:wonderland:15", "bob:looking-glass:1"), settings=""):
        self.dir = pathlib.Path(tempfile.mkdtemp(prefix="aaa-dissector-"))
        self.env = environment(self.dir)
        self.aaad = None
        self.processes = []
        self.socket = self.dir / "aaad.sock"
        self.control = self.dir / "control.sock"
        self.tshark = Tshark(self.dir)
        for name in ("cfg", "run"):
            (self.dir / name).mkdir()
        lines = []
        for user in users:
            name, password, level = user.split(":")
            hashed = subprocess.run(["openssl", "passwd", "-5", "-salt", "dissector", password], capture_output=True, text=True, check=True)
            lines.append(f"{name}:{hashed.stdout.strip()}:{level}\n")
        (self.dir / "users").write_text("".join(lines))
        (self.dir / "users").chmod(0o600)
        (self.dir / "aaad.conf").write_text(
            f"users {self.dir}/users\nsocket {self.socket}\ncontrol-socket {self.control}\njournal {self.dir}/accounting\n"
            f"metrics-socket {self.dir}/metrics.sock\n{settings}"
        )

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in self.processes:
            if process.poll() is None:
                process.kill()
            process.wait()
        if self.aaad is not None and self.aaad.poll() is None:
            self.aaad.send_signal(signal.SIGCONT)
            self.aaad.kill()
        if self.aaad is not None:
            self.aaad.wait()
        if "AAA_KEEP" not in os.environ:
            shutil.rmtree(self.dir, ignore_errors=True)

    def aaactl(self, *words, status=0, **options):
        done = subprocess.run(
            [BUILD / "tools/aaactl/aaactl", *map(str, words)], env=self.env, capture_output=True, timeout=PATIENCE, **options
        )
        if status is not None:
            check(done.returncode == status, f"aaactl {' '.join(map(str, words))}: {done.returncode}, {done.stderr.decode()}")
        return done

    def start(self, wrapper=(), words=()):
        self.log = open(self.dir / "aaad.log", "wb")
        read, write = os.pipe()
        self.aaad = subprocess.Popen(
            [*wrapper, BUILD / "service/aaad", "--foreground", "--config", self.dir / "aaad.conf", *words], env=self.env, stderr=write, stdout=write, stdin=subprocess.DEVNULL
        )
        os.close(write)
        ready = threading.Event()

        def copy():
            with open(read, "rb") as lines:
                for line in lines:
                    self.log.write(line)
                    self.log.flush()
                    if b"READY" in line:
                        ready.set()
            ready.set()

        threading.Thread(target=copy, daemon=True).start()
        check(ready.wait(PATIENCE) and self.aaad.poll() is None, "aaad does not start: " + self.log_text())

    def log_text(self):
        return (self.dir / "aaad.log").read_text(errors="replace")

    def login(self, user, password, status=0, *words):
        return self.aaactl("login", self.socket, user, *words, status=status, input=password.encode() + b"\n")

    def master_key(self):
        if not (self.dir / "master.keys").exists():
            self.aaactl("key", "new-master")

    def radius_group(self, server, key):
        self.master_key()
        entry = f"127.0.0.1,{server.port},{server.port + 1}"
        self.aaactl("sg", "add", "radius", "corp", entry)
        self.aaactl("sg", "key", "radius", "corp", input=key.encode() + b"\n")

    def radsec_group(self, server):
        self.aaactl("sg", "add", "radius", "corp", f"127.0.0.1,{server.port},{server.port + 1}")
        self.use_tls("radius/corp", "radius.test", server.certificate)

    def use_tls(self, group, name, authority):
        for setting, value in {"transport": "tls", "server-name": name, "ca-file": str(authority)}.items():
            self.aaactl("sysdb", "set", f"/cfg/gl/aaa/group-server/{group}/settings/{setting}", "--type", "string", value)

    def capture(self, *words, **options):
        """A capture that has begun: its first bytes are in the file, or it has failed."""
        process = subprocess.Popen(
            [BUILD / "tools/aaactl/aaactl", "capture", *map(str, words), "--socket", str(self.control)],
            env=self.env, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, **options,
        )
        self.processes.append(process)
        return process

    def end(self, process, how=signal.SIGINT):
        process.send_signal(how)
        _, error = process.communicate(timeout=PATIENCE)
        return error.decode()


def use_keys(machine, keys):
    """The words of tshark for a file of keys; makes the profile as the comment of the file says."""
    lines = [line[1:].strip() for line in keys.read_text().splitlines() if line.startswith("#   ")]
    check(len(lines) == 2 and lines[1].startswith("tshark "), f"the file does not say how it is used: {lines}")
    subprocess.run(["sh", "-c", lines[0]], env=machine.tshark.env, cwd=machine.dir, check=True, timeout=PATIENCE)
    words = shlex.split(lines[1])[1:]
    at = words.index("CAPTURE")
    return words[: at - 1] + words[at + 1 :]


def wait_for_line(process):
    """The first line that a capture says when it has begun."""
    return process.stderr.readline().decode()


def frames(tshark, file):
    return int(tshark.run("-r", file, "-T", "fields", "-e", "frame.number").count("\n"))


def load(text):
    return json.loads(text)


class TacacsServer:
    """tests/tacacs/server.py, with alice's password "at the server"."""

    def __init__(self, machine, tls=False, old_tls=False):
        listener = {}
        if tls:
            authority, key = certificate(machine, "tacacs.test")
            listener = {"certificate": str(authority), "key": str(key), "old_tls": old_tls}
        users = {"alice": {"password": "at the server", "commands": [["permit", "show .*"]], "arguments": ["priv-lvl=15"]}}
        settings = machine.dir / "tacacs.json"
        settings.write_text(json.dumps({"secret": "tac-secret", "ports": {}, "listeners": {"main": listener}, "users": users}))
        self.process = subprocess.Popen(
            [sys.executable, SOURCE / "tests/tacacs/server.py", settings], stdin=subprocess.PIPE, stdout=subprocess.PIPE
        )
        machine.processes.append(self.process)
        self.port = json.loads(self.process.stdout.readline())["main"]
        entry = f"127.0.0.1,{self.port}"
        machine.master_key()
        machine.aaactl("sg", "add", "tacacs", "boxes", entry)
        if tls:
            machine.use_tls("tacacs/boxes", "tacacs.test", authority)
        else:
            machine.aaactl("sg", "key", "tacacs", "boxes", input=b"tac-secret\n")
