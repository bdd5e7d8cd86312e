#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A TACACS+ server for tests, over TCP and TLS 1.3. It also misbehaves when a user's entry says so.

    server.py FILE

    {"secret": "...",
     "ports": {LISTENER: 49},
     "listeners": {NAME: {"single_connection": true, "bad_secret": "answer" or "close",
                          "certificate": file, "key": file, "authority": file of the clients' certificates}},
     "users": {NAME: {"password": "...", "enable": "...", "token": "...", "message": "...", "status": "ERROR",
                      "commands": [["permit", regular expression], ...], "arguments": ["priv-lvl=15"],
                      "change": "reason" (asked for first) or "unasked" (for no new password),
                      "author": "PASS_REPL", "acct": "ERROR", "misbehave": MODE}}}

A listener with a certificate speaks TLS. The first line of the output has the ports, as JSON. Then there is
a line for each event: "open 1", "close 1", "authen 1 alice start ascii", "author 1 alice show version" and
so on, with the number of the connection. Input lines are commands: "release" answers what is held, "drop"
closes all connections, "report" prints "reported", "configure FILE" starts again with another file and prints
the ports, and "quit" or the end of the input ends the server.

MODE is one of: silent (no answer), held (the answer waits for "release"), bytewise (one byte at a time),
close (no answer, the connection is closed), close-in-middle, close-once (close the first time only), garbage,
wrong-sequence, wrong-session, wrong-type, wrong-version, wrong-secret, unencrypted, oversize, trailing.
"""
import asyncio
import hmac
import hashlib
import json
import os
import re
import ssl
import sys

import protocol as p

NAMES = {p.AUTHEN: "authen", p.AUTHOR: "author", p.ACCT: "acct"}
RECORDS = {2: "start", 4: "stop", 8: "watchdog", 0xA: "watchdog-update"}


def text(value):
    return value.decode(errors="backslashreplace")


def say(*words):
    print(*words, flush=True)


class Session:
    """One session of a connection: requests come through a queue, so a dialogue is straight code."""

    def __init__(self, connection, head):
        self.connection, self.kind, self.id = connection, head["type"], head["session_id"]
        self.minor, self.sequence = head["version"] & 15, 0
        self.requests, self.user = asyncio.Queue(), b""

    @property
    def entry(self):
        return self.connection.server.users.get(text(self.user), {})

    def say(self, *words):
        say(NAMES[self.kind], self.connection.number, text(self.user) or "-", *words)

    async def run(self):
        try:
            body = await self.requests.get()
            await {p.AUTHEN: self.authenticate, p.AUTHOR: self.authorize, p.ACCT: self.account}[self.kind](body)
        except ConnectionError:
            return
        except p.Malformed as error:
            say("malformed", self.connection.number, error)
            if self.connection.settings.get("bad_secret") == "close":
                return self.connection.close()
            answer = {p.AUTHEN: p.authen_reply(7, b"cannot be read"), p.AUTHOR: p.author_reply(0x11, (), b"cannot be read"),
                      p.ACCT: p.acct_reply(2, b"cannot be read")}[self.kind]
            try:
                await self.connection.send(self, answer)
            except ConnectionError:
                return
        self.connection.ended(self)

    # ---- authentication ------------------------------------------------------------

    async def ask(self, status, prompt, hidden=False):
        """Asks the user for something, and returns it; None when the user has left."""
        await self.connection.send(self, p.authen_reply(p.AUTHEN_STATUS[status], prompt, flags=p.NOECHO if hidden else 0))
        answer = p.read_authen_continue(await self.requests.get())
        if answer["flags"] & p.ABORT:
            self.say("abort", text(answer["data"]))
            return None
        self.say("continue")
        return answer["user_msg"]

    async def finish(self, passes):
        status = self.entry.get("status", "PASS" if passes else "FAIL")
        await self.connection.send(self, p.authen_reply(p.AUTHEN_STATUS[status], self.entry.get("message", "").encode()))

    def password_is(self, given, name="password"):
        wanted = self.entry.get(name)
        return wanted is not None and hmac.compare_digest(wanted.encode(), given)

    async def authenticate(self, body):
        start = p.read_authen_start(body)
        self.user = start["user"]
        kind = {p.ASCII: "ascii", p.PAP: "pap", p.CHAP: "chap"}.get(start["authen_type"], "other")
        self.say("chpass" if start["action"] == p.CHPASS else "enable" if start["authen_service"] == 2 else "start", kind)
        if kind == "pap" and self.minor == 1:
            return await self.finish(self.password_is(start["data"]))
        if kind == "chap" and self.minor == 1:
            data, password = start["data"], self.entry.get("password", "").encode()
            right = hashlib.md5(data[:1] + password + data[1:-16]).digest()
            return await self.finish(hmac.compare_digest(right, data[-16:]))
        if kind != "ascii" or self.minor != 0:
            return await self.connection.send(self, p.authen_reply(7, b"unknown type"))
        return await self.dialogue(start)

    async def dialogue(self, start):
        if not self.user:
            user = await self.ask("GETUSER", b"Username: ")
            if user is None:
                return
            self.user = user
        secret = "enable" if start["authen_service"] == 2 else "password"
        changes = start["action"] == p.CHPASS
        if changes and self.entry.get("change") == "reason" and await self.ask("GETDATA", b"Reason: ") is None:
            return
        # RFC 8907, 5.4.2.6: GETDATA for the old password, GETPASS for the new one.
        given = await (self.ask("GETDATA", b"Old password: ", hidden=True) if changes
                       else self.ask("GETPASS", b"Password: ", hidden=True))
        if given is None:
            return
        passes = self.password_is(given, secret)
        if passes and changes and self.entry.get("change") != "unasked":
            new = await self.ask("GETPASS", b"New password: ", hidden=True)
            again = None if new is None else await self.ask("GETPASS", b"Again: ", hidden=True)
            if again is None:
                return
            passes = new == again and new != b""
            if passes:
                self.entry["password"] = text(new)
        if passes and "token" in self.entry:
            for _ in range(self.entry.get("rounds", 1)):
                given = await self.ask("GETDATA", b"Token: ")
                if given is None:
                    return
            passes = self.password_is(given, "token")
        await self.finish(passes)

    # ---- authorization and accounting ----------------------------------------------

    async def authorize(self, body):
        request = p.read_author_request(body)
        self.user = request["user"]
        values = [arg.partition(b"=") for arg in request["args"]]
        command = b" ".join(value for name, _, value in values if name in (b"cmd", b"cmd-arg") and value != b"<cr>")
        self.say(text(command))
        permitted = self.entry and not self.entry.get("commands")
        for verdict, expression in self.entry.get("commands", []):
            if re.fullmatch(expression.encode(), command):
                permitted = verdict == "permit"
                break
        status = self.entry.get("author", "PASS_ADD" if permitted else "FAIL")
        arguments = [argument.encode() for argument in self.entry.get("arguments", [])]
        await self.connection.send(self, p.author_reply(p.AUTHOR_STATUS[status], arguments,
                                                        self.entry.get("message", "").encode()))

    async def account(self, body):
        request = p.read_acct_request(body)
        self.user = request["user"]
        self.say(RECORDS.get(request["flags"], "unknown"), *(text(arg) for arg in request["args"]))
        status = self.entry.get("acct", "SUCCESS" if request["flags"] in RECORDS else "ERROR")
        await self.connection.send(self, p.acct_reply(p.ACCT_STATUS[status], self.entry.get("message", "").encode()))


class Connection:
    def __init__(self, server, settings, number, reader, writer):
        self.server, self.settings, self.number = server, settings, number
        self.reader, self.writer = reader, writer
        self.secret = None if settings.get("certificate") else server.secret
        self.sessions, self.tasks = {}, set()
        self.shared = None  # unknown before the first packet
        self.answered = False

    async def run(self):
        say("open", self.number)
        try:
            while True:
                head = p.read_head(await self.reader.readexactly(12))
                if head["version"] >> 4 != 0xC or head["type"] not in NAMES or head["length"] > 65535:
                    say("refused", self.number, "head")
                    break
                self.take(head, await self.reader.readexactly(head["length"]))
        except (asyncio.IncompleteReadError, ConnectionError, ssl.SSLError):
            pass
        for task in self.tasks:
            task.cancel()
        say("close", self.number)
        self.close()

    def take(self, head, body):
        if bool(head["flags"] & p.UNENCRYPTED) != (self.secret is None):
            say("refused", self.number, "flag")
            return self.close()
        if self.secret is not None:
            body = p.obfuscate(body, head["session_id"], self.secret, head["version"], head["seq_no"])
        session = self.sessions.get(head["session_id"])
        if session is None:
            if self.shared is False or (self.shared and not self.answered):
                say("violation", self.number, "second session")
                return self.close()
            if self.shared is None:
                self.shared = bool(head["flags"] & p.SINGLE_CONNECT) and self.settings.get("single_connection", True)
            session = self.sessions[head["session_id"]] = Session(self, head)
            task = asyncio.create_task(session.run())
            self.tasks.add(task)
            task.add_done_callback(self.tasks.discard)
        if head["seq_no"] != session.sequence + 1:
            say("violation", self.number, "sequence")
            return self.close()
        session.sequence = head["seq_no"]
        session.requests.put_nowait(body)

    def ended(self, session):
        self.sessions.pop(session.id, None)
        if not self.shared:
            self.close()

    def close(self):
        self.writer.close()

    def abort(self):
        self.writer.transport.abort()

    async def send(self, session, body):
        mode = session.entry.get("misbehave")
        if mode == "close-once":
            mode = "close" if not session.entry.get("closed") else None
            session.entry["closed"] = True
        if mode == "held":
            say("held", self.number, text(session.user))
            await self.server.released.wait()
        if mode == "silent":
            await asyncio.get_running_loop().create_future()  # until the connection ends
        flags = 0 if self.answered or not self.shared else p.SINGLE_CONNECT
        self.answered = True
        session.sequence += 1
        data = self.falsified(mode, session, body, flags)
        if mode in ("close", "close-in-middle"):
            self.writer.write(b"" if mode == "close" else data[:len(data) // 2])
            return self.close()
        if mode == "bytewise":
            for byte in data:
                self.writer.write(bytes([byte]))
                await self.writer.drain()
                await asyncio.sleep(0)
        else:
            self.writer.write(data)
        await self.writer.drain()

    def falsified(self, mode, session, body, flags):
        """The packet with the answer, right or wrong."""
        kind, ident, sequence, secret, minor = session.kind, session.id, session.sequence, self.secret, session.minor
        if mode == "garbage":
            return b"HTTP/1.1 400 Bad Request\r\n\r\n"
        if mode == "oversize":
            return p.head(0xC0 | minor, kind, sequence, flags, ident, 1 << 16)
        if mode == "wrong-sequence":
            sequence += 2
        elif mode == "wrong-session":
            ident ^= 1
        elif mode == "wrong-type":
            kind = kind % 3 + 1
        elif mode == "wrong-version":
            minor ^= 1
        elif mode == "wrong-secret":
            secret = b"another " + (secret or b"")
        elif mode == "unencrypted":
            secret = None if secret else b"x"
        elif mode == "trailing":
            body += b"x"
        return p.packet(kind, ident, sequence, body, secret, minor, flags)


class Server:
    def __init__(self):
        self.ended = asyncio.Event()
        self.tasks, self.open = set(), []
        self.input = b""

    def configure(self, path):
        with open(path) as file:
            settings = json.load(file)
        self.secret = settings["secret"].encode()
        self.users = settings["users"]
        self.listeners = settings["listeners"]
        self.ports = settings.get("ports", {})
        self.released = asyncio.Event()
        self.connections = set()
        self.count = 0

    async def run(self, path):
        self.configure(path)
        await self.listen()
        asyncio.get_running_loop().add_reader(0, self.commands)
        await self.ended.wait()
        os._exit(0)  # whatever is still under way is of no interest

    async def start_again(self, path):
        for listener in self.open:
            listener.close()
        self.open.clear()
        for connection in list(self.connections):
            connection.abort()
        while self.tasks:  # their last lines come before the ports
            await asyncio.wait(self.tasks)
        self.configure(path)
        await self.listen()

    async def listen(self):
        ports = {}
        for name, settings in self.listeners.items():
            context = None
            if settings.get("certificate"):
                context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
                context.minimum_version = ssl.TLSVersion.TLSv1_3
                if settings.get("old_tls"):
                    context.minimum_version = context.maximum_version = ssl.TLSVersion.TLSv1_2
                context.load_cert_chain(settings["certificate"], settings["key"])
                if settings.get("authority"):
                    context.verify_mode = ssl.CERT_REQUIRED
                    context.load_verify_locations(settings["authority"])
            listener = await asyncio.start_server(lambda reader, writer, settings=settings: self.accept(settings, reader, writer),
                                                  "127.0.0.1", self.ports.get(name, 0), ssl=context)
            self.open.append(listener)
            ports[name] = listener.sockets[0].getsockname()[1]
        say(json.dumps(ports))

    async def accept(self, settings, reader, writer):
        self.count += 1
        connection = Connection(self, settings, self.count, reader, writer)
        self.connections.add(connection)
        self.tasks.add(asyncio.current_task())
        await connection.run()
        self.tasks.discard(asyncio.current_task())
        self.connections.discard(connection)

    def commands(self):
        """Called when the standard input has something to read."""
        data = os.read(0, 4096)
        if not data:
            return self.ended.set()
        self.input += data
        while b"\n" in self.input:
            line, _, self.input = self.input.partition(b"\n")
            self.command(text(line))

    def command(self, line):
        if line == "release":
            self.released.set()
        elif line == "drop":
            for connection in list(self.connections):
                connection.abort()
        elif line == "report":
            say("reported")
        elif line.startswith("configure "):
            self.starting = asyncio.create_task(self.start_again(line.partition(" ")[2]))
        elif line == "quit":
            self.ended.set()
        else:
            print(f"server.py: '{line}' is not a command; use release, drop, report, configure or quit", file=sys.stderr)


def main():
    if len(sys.argv) != 2 or sys.argv[1] in ("-h", "--help"):
        sys.exit(__doc__)
    asyncio.run(Server().run(sys.argv[1]))


if __name__ == "__main__":
    main()
