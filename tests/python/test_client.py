# SPDX-License-Identifier: Apache-2.0
"""The client of the service: against a private aaad, and against a server that the tests play."""

import copy
import os
import pathlib
import pickle
import re
import signal
import socket
import struct
import subprocess
import sys
import threading

import pytest

import aaautil
from aaautil import Attr, Client, Method, Prompt, Set, Status
from aaautil.private import PrivateService, hash_of
from support import SANITIZED, ScriptedServer, missing


@pytest.fixture
def scripted(tmp_path):
    made = []

    def make(answer):
        made.append(ScriptedServer(tmp_path / f"s{len(made)}", answer))
        return made[-1]

    yield make
    for server in made:
        server.close()


def passes(kind, attributes):
    return ScriptedServer.reply([("STATUS", Status.PASS)])


# ---- the service

def test_users_log_in_and_are_refused(aaad):
    with aaad.client() as client:
        client.ping()
        right = client.login("alice", "wonderland", remote_addr="192.0.2.10")
        assert right and right.accepted and right.status is Status.PASS and right.privilege == 15
        assert right.attributes["AUTHEN_METHOD"] is Method.LOCAL
        for user, password in (("alice", "rabbit"), ("mallory", "wonderland"), ("alice", ""), ("alice", None)):
            wrong = client.login(user, password, remote_addr="192.0.2.11")
            assert not wrong and not wrong.accepted and wrong.privilege is None
        assert client.is_up()


def test_commands_are_authorized_and_records_kept(aaad_stopped):
    aaad_stopped.users({"alice": ("wonderland", 15, "show *")})
    aaad_stopped.method_list("authorization/commands/default", [Method.LOCAL])
    aaad_stopped.method_list("authorization/exec/default", [Method.LOCAL])
    aaad_stopped.start()
    with aaad_stopped.client() as client:
        assert client.authorize("alice").status in (Status.PASS, Status.FAIL, Status.ERROR)
        answers = [client.authorize("alice", command).status for command in ("show version", "reload")]
        assert len(answers) == 2
        with pytest.raises(aaautil.AaaError) as failure:
            client.account("alice", "start", 17)
        assert failure.value.code == aaautil.ResultCode.AAA_ERR_ACCT_NOT_DEFINED and failure.value.remedy
        with pytest.raises(ValueError):
            client.account("alice", "begin", 17)


def test_records_need_a_method_list(aaad_stopped):
    aaad_stopped.method_list("authentication/login/default", [Method.LOCAL])  # one that lets no one in is not used
    aaad_stopped.method_list("accounting/exec/branch", [Method.SYSLOG])
    aaad_stopped.start()
    with aaad_stopped.client(method_list="branch") as client:
        for record in ("start", "update", "stop"):
            client.account("alice", record, 17, remote_addr="192.0.2.1")
        client.account("alice", "update", 18, command="show version", remote_addr="192.0.2.1")
    log = pathlib.Path(aaad_stopped.directory, "log").read_text()
    for record, session, command in (("start", 17, ""), ("update", 17, ""), ("stop", 17, ""), ("update", 18, "show version")):
        assert re.search(rf'{record} user=alice .*session={session} service=exec command="{command}"', log), (record, log)
    with aaad_stopped.client() as client:
        for record in ("start", "update", "stop"):
            with pytest.raises(aaautil.AaaError) as failure:
                client.account("alice", record, 17, remote_addr="192.0.2.1")
            assert failure.value.code == aaautil.ResultCode.AAA_ERR_ACCT_NOT_DEFINED


def test_the_command_has_the_same_records_kept(aaad_stopped):
    aaad_stopped.method_list("authentication/login/default", [Method.LOCAL])
    aaad_stopped.method_list("accounting/exec/branch", [Method.SYSLOG])
    aaad_stopped.start()
    for form in ([], ["--session"]):
        for record in ("start", "update", "stop"):
            done = subprocess.run([os.environ["AAACTL_PROGRAM"], "acct", aaad_stopped.socket, record, "alice", "--service", "exec",
                                   "--list", "branch", "--session-id", "17", *form], capture_output=True, text=True)
            assert done.returncode == 0, done.stdout + done.stderr


def test_a_private_service_keeps_to_its_directory(aaad):
    aaad.apply([Set("/cfg/gl/aaa/x", "y"), Set("/cfg/gl/aaa/n", 5)])
    assert aaad.read("/cfg/gl/aaa/x") == "y" and aaad.read("/cfg/gl/aaa/n") == 5 and aaad.read("/cfg/gl/aaa/z") is None
    with aaautil.Database("/cfg/") as database:
        assert "gl/aaa/x" not in database, "this process has another database"
    with pytest.raises(ValueError):
        aaad.apply([Set("/oper/x", 1)])
    with pytest.raises(RuntimeError):
        aaad.apply([aaautil.Delete("/cfg/missing")])
    assert sorted(os.listdir(aaad.directory))
    directory = aaad.directory
    pid = aaad.pid
    assert pid > 0 and aaad.stop() == 0 and aaad.pid is None
    aaad.start()
    aaad.reload()
    aaad.users({"carol": ("new", 2)})
    aaad.reload()
    assert aaad.client().login("carol", "new", remote_addr="192.0.2.1")
    aaad.close()
    assert not os.path.exists(directory)


def test_two_private_services_do_not_meet(aaad):
    with PrivateService() as other:
        other.users({"dora": ("x", 1)})
        other.start()
        assert other.client().login("dora", "x", remote_addr="192.0.2.1")
        assert not aaad.client().login("dora", "x", remote_addr="192.0.2.1")


def test_a_service_that_cannot_start_says_why(aaad_stopped):
    aaad_stopped.settings("nonsense 5")
    with pytest.raises(RuntimeError, match="nonsense"):
        aaad_stopped.start()


def test_hashes_are_those_of_crypt():
    for password in ("", "x", "wonderland", "å" * 40):
        done = subprocess.run(["openssl", "passwd", "-5", "-salt", "rounds=1000$aaautil", "-stdin"], input=password + "\n",
                              capture_output=True, text=True)
        if done.returncode != 0:
            missing("openssl")
        assert hash_of(password) == done.stdout.strip() or password == ""


def test_a_service_that_goes_away_and_comes_back(aaad):
    with aaad.client(timeout=20) as client:
        assert client.login("alice", "wonderland", remote_addr="192.0.2.1")
        aaad.stop()
        assert not client.is_up()
        with pytest.raises(aaautil.NotConnectedError) as failure:
            client.ping()
        assert isinstance(failure.value, ConnectionError) and isinstance(failure.value.errno, int) and aaad.socket in str(failure.value)
        aaad.start()
        assert client.login("alice", "wonderland", remote_addr="192.0.2.1")


# ---- questions

def asks(*answers):
    """A server that asks each question, and accepts afterwards."""
    left = list(answers)
    return lambda kind, attributes: ScriptedServer.reply(left.pop(0) if left else [("STATUS", Status.PASS)])


def test_questions_are_asked_and_their_answers_sent_with_the_state(scripted):
    server = scripted(asks(
        [("STATUS", Status.GETDATA), ("PROMPT", "Code:\x1b[31m"), ("PROMPT_ECHO", 1), ("RADIUS_STATE", b"\x01state\0")],
        [("STATUS", Status.GETPASS), ("REPLYMSG", "New password"), ("RADIUS_STATE", b"second")]))
    prompts = []

    def prompt(question):
        prompts.append(question)
        return ["123456", b"new secret"][len(prompts) - 1]

    with server.client() as client:
        assert client.login("alice", "wonderland", prompt=prompt, tty="vty0", remote_addr="192.0.2.10")
    assert prompts == [Prompt(Status.GETDATA, "Code:?[31m", True), Prompt(Status.GETPASS, "New password", False)]
    first, second, third = [attributes for _, attributes in server.requests]
    assert (first["USERNAME"], first["PASSWORD"], first["TTYNAME"], first["REMOTE_ADDR"]) == ("alice", "wonderland", "vty0", "192.0.2.10")
    assert second["PASSWORD"] == "123456" and third["PASSWORD"] == "new secret"
    # The state goes back byte by byte.
    assert [pair.raw for pair in second if pair.type == Attr.AAA_RADIUS_STATE_ATTR] == [b"\x01state\0"]
    assert [pair.raw for pair in third if pair.type == Attr.AAA_RADIUS_STATE_ATTR] == [b"second"]


def test_a_new_name_needs_a_new_password(scripted):
    server = scripted(asks([("STATUS", Status.GETUSER)]))
    typed = iter(["bob", "looking-glass"])
    with server.client() as client:
        assert client.login("alice", "wonderland", prompt=lambda question: next(typed), remote_addr="192.0.2.1")
    assert (server.requests[1][1]["USERNAME"], server.requests[1][1]["PASSWORD"]) == ("bob", "looking-glass")


def test_a_question_without_an_answer_is_the_answer(scripted):
    question = [("STATUS", Status.GETDATA), ("PROMPT", "Code")]
    server = scripted(asks(*[question] * 50))
    with server.client() as client:
        for prompt in (None, lambda question: None):
            answer = client.login("alice", "x", prompt=prompt, remote_addr="192.0.2.1")
            assert answer.asks and not answer.accepted and not answer
        with pytest.raises(ZeroDivisionError):
            client.login("alice", "x", prompt=lambda question: 1 / 0, remote_addr="192.0.2.1")
        with pytest.raises(aaautil.MalformedError, match="questions"):
            client.login("alice", "x", prompt=lambda question: "again", remote_addr="192.0.2.1")


# ---- hostile and silent servers

def test_malformed_answers_raise_and_the_next_request_has_a_new_connection(scripted):
    good = ScriptedServer.reply([("STATUS", Status.PASS)])
    bad = [b"x", good[:10], good[:24], good[:-4], good[:24] + b"\xff" * 60, struct.pack("=5I", 0, 24, 1, 1, 0) + bytes(4), good[:20],
           ScriptedServer.reply([]), ScriptedServer.reply([("STATUS", 77)]), ScriptedServer.reply([("STATUS", b"x")])]
    for message in bad:
        server = scripted(asks())
        server._answer = lambda kind, attributes, message=message: message
        with server.client(timeout=20) as client:
            with pytest.raises(aaautil.AaaError):
                client.login("alice", "x", remote_addr="192.0.2.1")
            server._answer = passes
            assert client.login("alice", "x", remote_addr="192.0.2.1")


def test_random_answers_never_end_the_interpreter(scripted):
    import random

    source = random.Random(4713)
    good = ScriptedServer.reply([("STATUS", Status.PASS), ("REPLYMSG", "hello")])

    def answer(kind, attributes):
        damaged = bytearray(good)
        for _ in range(source.randrange(1, 6)):
            damaged[source.randrange(len(damaged))] = source.randrange(256)
        return bytes(damaged[:source.randrange(1, len(damaged) + 1)])

    server = scripted(answer)
    answered = 0
    with server.client(timeout=20) as client:
        for _ in range(300):
            try:
                client.login("alice", "x", remote_addr="192.0.2.1")
                answered += 1
            except aaautil.AaaError:
                pass
    assert answered < 300


def test_a_server_without_an_answer_costs_the_timeout_only(scripted):
    server = scripted(lambda kind, attributes: None)
    with server.client(timeout=0.05) as client:
        with pytest.raises(aaautil.ServiceTimeoutError) as failure:
            client.ping()
        assert isinstance(failure.value, TimeoutError)
        server._answer = lambda kind, attributes: struct.pack("=5I", ScriptedServer.MAGIC, 20, 1, 1, 0)
        client.timeout = 20
        client.ping()


def test_a_server_that_closes_an_idle_connection_is_asked_again(scripted):
    server = scripted(passes)
    with server.client(timeout=20) as client:
        assert client.login("alice", "x", remote_addr="192.0.2.1")
        for connection in server._connections:
            connection.shutdown(socket.SHUT_RDWR)
        assert client.login("alice", "x", remote_addr="192.0.2.1")
        # It is closed after the client has looked, and before it sends.
        idle = client._idle
        seen = []
        client._idle = lambda: seen.append(1) or (True if len(seen) == 1 else idle())
        for connection in server._connections:
            connection.shutdown(socket.SHUT_RDWR)
        assert client.login("bob", "x", remote_addr="192.0.2.1")
        assert len(seen) == 2 and [attributes["USERNAME"] for _, attributes in server.requests] == ["alice", "alice", "bob"]


REQUESTS = {"login": lambda client: client.login("alice", "x", remote_addr="192.0.2.1"),
            "authorize": lambda client: client.authorize("alice", "show", remote_addr="192.0.2.1"),
            "start": lambda client: client.account("alice", "start", 1, remote_addr="192.0.2.1"),
            "update": lambda client: client.account("alice", "update", 1, remote_addr="192.0.2.1"),
            "ping": lambda client: client.ping()}


@pytest.mark.parametrize("name", REQUESTS)
def test_a_request_that_the_service_took_is_sent_once(scripted, name):
    server = scripted(passes)
    with server.client(timeout=20) as client:
        assert client.login("alice", "x", remote_addr="192.0.2.1")
        server._answer = lambda kind, attributes: "close"
        with pytest.raises(aaautil.NotConnectedError, match="may have carried out"):
            REQUESTS[name](client)
        assert len(server.requests) == 2
        server._answer = passes
        assert client.login("alice", "x", remote_addr="192.0.2.1")


def test_no_password_is_sent_to_a_server_of_another_user(scripted):
    server = scripted(passes)
    with server.client(servers=(os.geteuid() + 1,)) as client:
        with pytest.raises(PermissionError, match="none of servers"):
            client.login("alice", "wonderland", remote_addr="192.0.2.1")
    assert server.requests == []
    assert server.client(servers=None).login("alice", "x", remote_addr="192.0.2.1")
    assert Client(server.path, servers=("no such user",))._servers == []


@pytest.mark.parametrize("arguments, failure", [
    (("", "x"), ValueError), (("a\0b", "x"), ValueError), (("a" * 254, "x"), ValueError), ((5, "x"), TypeError), (("alice", 5), TypeError),
    (("alice", "x\0y"), ValueError), (("alice", "x" * 16385), ValueError), ((None, "x"), TypeError)])
def test_what_does_not_fit_into_a_request_is_refused_and_not_cut(scripted, arguments, failure):
    server = scripted(passes)
    with server.client() as client:
        with pytest.raises(failure) as refused:
            client.login(*arguments)
        assert "x\0y" not in str(refused.value)
        # The exception of an encoder holds the whole text.
        with pytest.raises(ValueError, match="a password has no bytes in UTF-8: character 4 ") as refused:
            client.login("alice", "rabb\ud800it")
        assert "rabb" not in repr(refused.value) and refused.value.__context__ is None
        for more in ({"tty": "t" * 32}, {"remote_addr": "r" * 256}, {"service": -1}, {"tty": "a\0b"}):
            with pytest.raises(ValueError):
                client.login("alice", "x", **more)
        with pytest.raises(ValueError):
            client.authorize("alice", "c" * 32769)
    assert server.requests == []


def test_the_longest_that_fits_arrives_whole(scripted):
    server = scripted(passes)
    with server.client() as client:
        assert client.login("u" * 253, "p" * 16384, tty="t" * 31, remote_addr="r" * 255)
        assert client.authorize("alice", "c" * 32768, remote_addr="192.0.2.1")
    first, second = [attributes for _, attributes in server.requests]
    assert [len(first[name]) for name in ("USERNAME", "PASSWORD", "TTYNAME", "REMOTE_ADDR")] == [253, 16384, 31, 255]
    assert len(second["CMD"]) == 32768


def test_texts_of_the_server_are_fit_for_a_terminal(scripted):
    server = scripted(lambda kind, attributes: ScriptedServer.reply([("STATUS", Status.FAIL), ("REPLYMSG", "no\x1b]0;x\x07\u202e!\n")]))
    with server.client() as client:
        assert client.login("alice", "x", remote_addr="192.0.2.1").message == "no?]0;x??!\n"


# ---- threads, processes, signals

def test_the_interpreter_runs_while_a_request_waits(scripted):
    """Server and client are threads of one interpreter: if the call kept it, no answer could be made."""
    server = scripted(passes)
    with server.client(timeout=60) as client:
        found = []
        thread = threading.Thread(target=lambda: found.append(client.login("alice", "x", remote_addr="192.0.2.1")))
        thread.start()
        thread.join()
        assert found[0] and client.login("alice", "x", remote_addr="192.0.2.1")


def test_threads_share_a_client(scripted):
    server = scripted(lambda kind, attributes: ScriptedServer.reply([("STATUS", Status.PASS), ("REPLYMSG", attributes["USERNAME"])]))
    wrong = []
    with server.client(timeout=60) as client:
        def work(number):
            for turn in range(25):
                user = f"user{number}-{turn}"
                if client.login(user, "x", remote_addr="192.0.2.1").message != user:
                    wrong.append(user)

        threads = [threading.Thread(target=work, args=(number,)) for number in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    assert wrong == []


def test_a_forked_child_has_a_connection_of_its_own(scripted):
    server = scripted(passes)
    with server.client(timeout=60) as client:
        assert client.login("alice", "x", remote_addr="192.0.2.1")
        assert len(server._connections) == 1
        with client._lock:  # as if another thread had asked at the moment of the fork
            pid = os.fork()
            if pid == 0:
                try:
                    os._exit(0 if client.login("bob", "x", remote_addr="192.0.2.1") else 1)
                finally:
                    os._exit(2)
        assert os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]) == 0
        assert len(server._connections) == 2
        assert client.login("alice", "x", remote_addr="192.0.2.1")
        assert len(server._connections) == 2, "the parent's connection is still there"


def test_ctrl_c_ends_a_wait_and_the_connection(scripted):
    asked = threading.Event()
    server = scripted(lambda kind, attributes: asked.set())

    def interrupt():
        asked.wait()
        os.kill(os.getpid(), signal.SIGINT)

    with server.client(timeout=None) as client:
        thread = threading.Thread(target=interrupt)
        thread.start()
        with pytest.raises(KeyboardInterrupt):
            client.login("alice", "x", remote_addr="192.0.2.1")
        thread.join()
        server._answer = passes
        assert client.login("alice", "x", remote_addr="192.0.2.1")


def full_queue(path):
    """A server that accepts no one, and has as many clients as wait for it."""
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    listener.bind(path)
    listener.listen(0)
    waiting = [listener]
    while True:
        one = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        one.setblocking(False)
        waiting.append(one)
        try:
            one.connect(path)
        except BlockingIOError:
            return waiting


def test_ctrl_c_ends_the_wait_for_a_connection(tmp_path):
    waiting = full_queue(str(tmp_path / "full"))
    client = Client(str(tmp_path / "full"), servers=None, timeout=60)
    seen = []

    def handler(number, frame):
        seen.append(number)
        if len(seen) == 5:
            raise KeyboardInterrupt

    before = signal.signal(signal.SIGALRM, handler)
    try:
        signal.setitimer(signal.ITIMER_REAL, 0.05, 0.05)
        with pytest.raises(KeyboardInterrupt):
            client.login("alice", "x", remote_addr="192.0.2.1")
        signal.setitimer(signal.ITIMER_REAL, 0)
        closing = signal.signal(signal.SIGALRM, lambda number, frame: client.close())
        signal.setitimer(signal.ITIMER_REAL, 0.05)
        with pytest.raises(ValueError, match="the client is closed"):
            client.ping()
        assert closing is handler
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)
    for where in ("main thread", "another thread"):
        with Client(str(tmp_path / "full"), servers=None, timeout=0.3) as other:
            found = []

            def ask():
                try:
                    other.ping()
                except aaautil.ServiceTimeoutError as failure:
                    found.append(failure)

            if where == "main thread":
                ask()
            else:
                thread = threading.Thread(target=ask)
                thread.start()
                thread.join()
            assert len(found) == 1, where
    for one in waiting:
        one.close()


@pytest.mark.parametrize("step", ["abandon", "_end_wait"])
def test_a_second_ctrl_c_while_the_first_is_handled_breaks_nothing(scripted, monkeypatch, step):
    asked, release = threading.Event(), threading.Event()
    threads = []

    def answer(kind, attributes):
        threads.extend(thread for thread in threading.enumerate() if thread.name == "aaautil-client")
        asked.set()
        release.wait()
        return ScriptedServer.reply([("STATUS", Status.PASS)])

    def again(*_):
        raise KeyboardInterrupt("the second")

    def interrupt():
        asked.wait()
        os.kill(os.getpid(), signal.SIGINT)

    server = scripted(answer)
    with server.client(timeout=None) as client:
        threading.Thread(target=interrupt).start()
        with monkeypatch.context() as patched:
            patched.setattr(*((aaautil.client._Exchange, "abandon") if step == "abandon" else (client, "_end_wait")), again)
            with pytest.raises(KeyboardInterrupt, match="the second"):
                client.login("alice", "x", remote_addr="192.0.2.1")
        # The answer comes after all, into memory that is still there, and to no other request.
        server._answer = lambda kind, attributes: ScriptedServer.reply([("STATUS", Status.FAIL)])
        assert client.login("bob", "x", remote_addr="192.0.2.1").status is Status.FAIL
        release.set()
        for thread in threads:
            thread.join()
        assert client.login("bob", "x", remote_addr="192.0.2.1").status is Status.FAIL
    assert len(server.requests) == 3 and threads


def interrupted(server, asked, act):
    """A login that a signal handler interrupts while it waits for the answer."""
    outcome = []

    def handler(number, frame):
        try:
            outcome.append(act(client))
        except Exception as exception:  # pylint: disable=broad-except
            outcome.append(exception)
        server.release.set()

    def send():
        asked.wait()
        os.kill(os.getpid(), signal.SIGUSR1)

    before = signal.signal(signal.SIGUSR1, handler)
    client = server.client(timeout=60)
    thread = threading.Thread(target=send)
    thread.start()
    try:
        outcome.append(client.login("mallory", "x", remote_addr="192.0.2.1").status)
    except Exception as exception:  # pylint: disable=broad-except
        outcome.append(exception)
    thread.join()
    signal.signal(signal.SIGUSR1, before)
    return client, outcome


@pytest.mark.parametrize("act", [lambda client: client.login("alice", "x", remote_addr="192.0.2.1"),
                                 lambda client: client.ping()])
def test_a_signal_handler_gets_no_answer_of_the_request_that_it_interrupts(scripted, act):
    asked, release = threading.Event(), threading.Event()

    def answer(kind, attributes):
        asked.set()
        release.wait()
        return ScriptedServer.reply([("STATUS", Status.FAIL)])

    server = scripted(answer)
    server.release = release
    client, (nested, own) = interrupted(server, asked, act)
    assert isinstance(nested, RuntimeError) and "of its own" in str(nested)
    assert own is Status.FAIL
    assert len(server.requests) == 1
    client.close()


def test_a_signal_handler_may_close_a_client_that_waits(scripted):
    for _ in range(20):
        asked = threading.Event()
        server = scripted(lambda kind, attributes: asked.set())
        server.release = threading.Event()
        client, (closed, own) = interrupted(server, asked, lambda client: client.close())
        assert closed is None
        assert isinstance(own, (ValueError, aaautil.AaaError))
        with pytest.raises(ValueError, match="the client is closed"):
            client.ping()
        client.close()


@pytest.mark.parametrize("take", [copy.copy, copy.deepcopy, pickle.dumps])
def test_what_holds_a_resource_is_not_copied(scripted, take):
    server = scripted(passes)
    with server.client() as client:
        for held in (client, aaautil.NativeList(name="x")):
            with pytest.raises(TypeError, match="cannot be copied"):
                take(held)
        assert client.login("alice", "x", remote_addr="192.0.2.1")


@pytest.mark.skipif(SANITIZED, reason="the sanitizer's own memory is terabytes, and it keeps what is freed")
def test_passwords_are_wiped_from_the_memory_of_the_call(scripted):
    """What the call made is wiped; the caller's own text is the caller's."""
    secret = "x7Q-" + "unlikely-password-of-this-test"
    code = (
        "import sys, os\n"
        "sys.path.insert(0, os.path.join(os.environ['AAA_TREE'], 'tests/python'))\n"
        "from aaautil import Client, Status\n"
        "import ctypes\n"
        f"client = Client({scripted(passes).path!r}, servers=None, timeout=60)\n"
        "password = sys.stdin.buffer.read()\n"
        "assert client.login('alice', password, remote_addr='192.0.2.1')\n"
        "reversed_ = password[::-1]\n"
        "ctypes.memset(id(password) + bytes.__basicsize__ - 1, 0, len(password))\n"
        "found = 0\n"
        "for line in open('/proc/self/maps'):\n"
        "    if ' rw-p ' in line and '[vv' not in line:\n"
        "        start, end = (int(part, 16) for part in line.split()[0].split('-'))\n"
        "        with open('/proc/self/mem', 'rb', 0) as memory:\n"
        "            memory.seek(start)\n"
        "            try:\n"
        "                block = memory.read(end - start)\n"
        "            except OSError:\n"
        "                continue\n"
        "        found += block.count(bytes(reversed(reversed_)))\n"
        "        del block\n"
        "print(found)\n")
    done = subprocess.run([sys.executable, "-c", code], input=secret.encode(), capture_output=True, env=os.environ, timeout=120)
    assert done.returncode == 0, done.stderr
    # At most the one that the search itself makes.
    assert int(done.stdout) <= 1
