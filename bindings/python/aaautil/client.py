# SPDX-License-Identifier: Apache-2.0
"""A client of the AAA service: logins with their questions, authorization, accounting."""

import os
import pwd
import select
import socket as sockets
import threading
from typing import Any, Callable, Iterable, List, NamedTuple, Optional, Tuple, Union

from ._enums import AcctOption, Attr, AuthenOption, Request, ResultCode, Service, Status
from ._load import Handle, ffi, lib, seconds, utf8, whole
from .errors import AaaError, ServiceTimeoutError, error
from .lists import AttributeList, NativeList

__all__ = ["Answer", "Client", "Prompt", "SOCKET"]
__tracebackhide__ = True  # see _load

# Where the service listens unless it is told otherwise.
SOCKET = "/run/aaa/aaad.sock"
# Without a limit, a server that keeps asking would keep a program for ever.
_MOST_QUESTIONS = 16
_MOST_USER, _MOST_LINE, _MOST_ADDRESS, _MOST_ANSWER, _MOST_COMMAND, _MOST_LIST = 253, 31, 255, 16384, 32768, 251
_ACCEPTED = (Status.PASS, Status.BYPASS, Status.NOT_REQUIRED)
_ASKED = (Status.GETUSER, Status.GETPASS, Status.GETDATA)
_LOOK_FOR_SIGNALS = 0.2  # seconds
_RECORDS = {"start": AcctOption.START, "stop": AcctOption.STOP, "update": AcctOption.UPDATE}

Password = Union[str, bytes]


class Prompt(NamedTuple):
    """A question of the service to the user. ``kind`` is GETUSER, GETPASS or GETDATA; what is typed may be
    shown if ``echo``. The text is fit for a terminal, and may be empty."""

    kind: Status
    text: str
    echo: bool


class Answer(NamedTuple):
    """What the service decided. ``message`` is for the user, and fit for a terminal."""

    status: Status
    message: str
    privilege: Optional[int]
    attributes: AttributeList

    @property
    def accepted(self) -> bool:
        """Whether the user may do that."""
        return self.status in _ACCEPTED

    @property
    def asks(self) -> bool:
        """Whether the service wants to know more: no prompt function was given, or it gave no answer."""
        return self.status in _ASKED

    def __bool__(self) -> bool:
        """True if the user may do that, so that ``if client.login(...):`` is right."""
        return self.accepted


def _visible(value: object) -> str:
    """Text from outside for a terminal: characters that a reader would not see become question marks."""
    if isinstance(value, bytes):
        value = value.decode("utf-8", "replace")
    if not isinstance(value, str):
        return ""
    text = value.split("\0", 1)[0]
    return "".join(one if one in "\n\t" or one.isprintable() else "?" for one in text)


def _text(value: object, what: str, most: int, none: bool = False) -> Any:
    """A text for a record of the library, in memory that it may change."""
    if value is None and none:
        return ffi.NULL
    if not isinstance(value, (str, bytes)):
        raise TypeError(f"{what} is a str, not {type(value).__name__}")
    encoded = utf8(value, what) if isinstance(value, str) else value
    if b"\0" in encoded:
        raise ValueError(f"{what} has a NUL inside")
    if len(encoded) > most:
        raise ValueError(f"{what} has {len(encoded)} bytes; at most {most} fit into a request")
    return ffi.new("char[]", encoded)


def _number(value: object, what: str) -> int:
    return whole(value, what)


class _Credentials:
    """A record of credentials, and the memory that it points to."""

    def __init__(self, user: str, password: Optional[Password], tty: Optional[str], remote_addr: Optional[str]) -> None:
        self.record = ffi.new("aaa_usercred_t *")
        self._user = _text(user, "a user name", _MOST_USER)
        if len(self._user) == 1:
            raise ValueError("the user name is empty")
        self._password = _text(password, "a password", _MOST_ANSWER, none=True)
        self._line = _text(tty or None, "a line", _MOST_LINE, none=True)
        self._address = _text(remote_addr or None, "a remote address", _MOST_ADDRESS, none=True)
        self._state: Optional[NativeList] = None
        self.record.username = self._user
        self.record.password = self._password
        self.record.ttyname = self.record.tty_mnemonic = self._line
        self.record.remote_addr = self._address

    def keep_state(self, answer: Optional[AttributeList]) -> None:
        """The service knows a login of several rounds by what it sent, which goes back to it."""
        pairs = [pair for pair in answer or () if pair.type == Attr.AAA_RADIUS_STATE_ATTR][:1]
        self._state = AttributeList(pairs, "state").native() if pairs else None
        self.record.state_args = self._state.handle if self._state else ffi.NULL

    def forget(self) -> None:
        """Wipes the password, and frees what the library added."""
        if self._password != ffi.NULL:
            lib.aaapy_wipe(self._password, len(self._password))
        if self.record.remote_addr != self._address:
            lib.free(self.record.remote_addr)
            self.record.remote_addr = self._address
        if self._state is not None:
            self.record.state_args = ffi.NULL
            self._state.free()


class _Composition:
    """A composed request: its header, its packed list, and the elements that name them; and the answer to it."""

    def __init__(self) -> None:
        self.header = ffi.new("aaa_req_hdr_t *")
        self.room = lib.AAA_TRANSPORT_MAX - ffi.sizeof("aaa_req_hdr_t")
        self.buffer = ffi.new("char[]", self.room)
        self.iov = ffi.new("iov_t **")
        self.count = ffi.new("uint32_t *")
        self.reply = ffi.new("aaa_transport_msg_t *")

    def forget(self) -> None:
        elements, self.iov[0] = self.iov[0], ffi.NULL
        lib.free(elements)
        lib.aaapy_wipe(self.buffer, self.room)
        lib.aaapy_wipe(self.reply.u.bytes, self.reply.len)


class _Exchange:
    """A request and its answer in a thread of their own. The thread has all that it uses: when the main thread waits no
    more, nothing is released before the thread is done with it."""

    def __init__(self, transport: Any, composed: _Composition, deadline: int) -> None:
        self._transport = transport
        self._composed = composed
        self._deadline = deadline
        self._lock = threading.Lock()
        self._abandoned = False
        self.done = threading.Event()
        self.code = 0

    def run(self) -> None:
        """Asks; what was abandoned meanwhile is released."""
        if not self._abandoned:
            self.code = _asked(self._transport, self._composed, self._deadline)
        with self._lock:
            self.done.set()
            if self._abandoned:
                self._release()

    def abandon(self) -> None:
        """The answer is not wanted: the connection and the request are released now, or when the thread is done."""
        with self._lock:
            if not self._abandoned:
                self._abandoned = True
                if self.done.is_set():
                    self._release()

    def _release(self) -> None:
        transport, self._transport = self._transport, None
        if transport is not None:
            lib.aaa_transport_free(transport)
            self._composed.forget()


def _asked(transport: Any, composed: _Composition, deadline: int) -> int:
    return int(lib.aaa_transport_ask(transport, composed.iov[0], composed.count[0], composed.reply, deadline))


class Client(Handle):
    """A connection to the AAA service of this machine, made when it is needed.

    ``method_list`` is the list that the service is to use, ``timeout`` the seconds for one answer
    (None for no limit). A password is sent only to a service that runs as one of ``servers``, user
    names or numbers; None allows any. Threads that share a client wait for each other. A process
    that was forked has a connection of its own.

    Of the requests, ``tty`` is the line that the user is on, of at most 31 bytes, and ``remote_addr``
    the address that the user comes from. Without them the library takes the terminal on standard
    input, and the address that the host knows of it.
    """

    def __init__(self, socket: str = SOCKET, *, method_list: str = "default", timeout: Optional[float] = 30.0,
                 servers: Optional[Iterable[Union[str, int]]] = ("root", "aaad")) -> None:
        self._transport: Any = None
        self._path = _text(socket, "a path", 4096)
        self._list = _text(method_list, "the name of a method list", _MOST_LIST)
        if timeout is not None and not 0 < seconds(timeout, "the timeout") <= 86400:
            raise ValueError("the timeout is more than 0 and at most 86400 seconds, or None")
        self.socket = socket
        self.timeout = timeout
        self._servers = None if servers is None else self._user_numbers(servers)
        self._lock = threading.RLock()
        self._asking = False  # under the lock
        self._closing = False
        self._connection: Optional[sockets.socket] = None
        self._pid = os.getpid()
        self._closed = False
        self._transport = self._handle()

    @staticmethod
    def _handle() -> Any:
        made = ffi.new("aaa_transport_t **")
        code = lib.aaa_transport_create(made)
        if code:
            raise error("no connection can be made", code)
        return made[0]

    @staticmethod
    def _user_numbers(users: Iterable[Union[str, int]]) -> List[int]:
        if isinstance(users, (str, int)):
            raise TypeError("servers are several users: a tuple or a list")
        numbers = []
        for user in users:
            if isinstance(user, str):
                try:
                    numbers.append(pwd.getpwnam(user).pw_uid)
                except KeyError:
                    continue  # a user who does not exist runs nothing
            else:
                numbers.append(_number(user, "the number of a user"))
        return numbers

    # -- connection

    def _mine(self) -> None:
        """After a fork the parent has the connection, and perhaps held the lock."""
        if self._pid != os.getpid():
            self._lock = threading.RLock()
            self._asking = False
            self._pid = os.getpid()
            if self._transport is not None:
                lib.aaa_transport_close(self._transport)

    def _open(self) -> Any:
        if self._closed or self._closing:
            raise ValueError("the client is closed")
        if self._transport is None:  # a request that was interrupted has the last one
            self._transport = self._handle()
        return self._transport

    def close(self) -> None:
        """Closes the connection, after a request that another thread makes. Nothing happens when it is closed.

        A signal handler that interrupts a request of the same thread ends that request, which raises.
        """
        self._mine()
        with self._lock:
            if self._asking:  # only the request knows when the library uses the transport no more
                self._closing = True
                self._end_wait(self._connection)
                return
            self._closed = True
            transport, self._transport = self._transport, None
            if transport is not None:
                lib.aaa_transport_free(transport)

    @staticmethod
    def _end_wait(connection: Optional[sockets.socket]) -> None:
        try:
            if connection is not None:
                connection.shutdown(sockets.SHUT_RDWR)
        except OSError:
            pass  # the service has closed it

    def __enter__(self) -> "Client":
        self._open()
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __del__(self) -> None:
        transport, self._transport = getattr(self, "_transport", None), None
        if transport is not None:
            lib.aaa_transport_free(transport)

    def _deadline(self) -> int:
        if self.timeout is None:
            return int(lib.AAA_TRANSPORT_NEVER)
        return int(lib.aaa_transport_deadline(max(1, int(self.timeout * 1000))))

    def _failure(self, what: str, code: int) -> AaaError:
        return error(f"{self.socket}: {what}", code, lib.aaa_transport_errno(self._transport))

    def _idle(self) -> bool:
        """Whether there is a connection that the service has not closed. Bytes no one asked for spoil it too."""
        descriptor = lib.aaa_transport_descriptor(self._transport)
        if descriptor < 0:
            return False
        waits = select.poll()
        waits.register(descriptor, select.POLLIN)
        return not waits.poll(0)

    def _connect(self) -> bool:
        """Connects if that is needed; says whether it was."""
        if self._idle():
            return False
        deadline = self._deadline()
        while True:
            code = lib.aaa_transport_connect(self._open(), self._path, lib.AAA_TRANSPORT_ANY_USER, self._next_look(deadline))
            if code != lib.AAA_ERR_TIMEOUT or lib.aaa_transport_deadline(0) >= deadline:
                break
            self._open()  # a signal handler may have closed the client
        if code:
            raise self._failure("cannot connect", code)
        if self._servers is not None:
            peer = ffi.new("aaa_transport_peer_t *")
            code = lib.aaa_transport_peer_of(self._transport, peer)
            if code or peer.uid not in self._servers:
                lib.aaa_transport_close(self._transport)
                raise PermissionError(f"{self.socket}: process {peer.pid}, which listens there, runs as user {peer.uid}, which is "
                                      "none of servers: no password is sent to it")
        return True

    @staticmethod
    def _next_look(deadline: int) -> int:
        """When a call of the main thread returns, so that Python's signal handlers can run."""
        if threading.current_thread() is not threading.main_thread():
            return deadline
        return min(deadline, int(lib.aaa_transport_deadline(int(_LOOK_FOR_SIGNALS * 1000))))

    def _asked(self, composed: _Composition) -> int:
        """Sends a request and waits for the answer. The library does not return when a signal arrives, but Python's
        handlers, such as that of Ctrl-C, run in the main thread; so there the call waits in another one."""
        deadline = self._deadline()
        if threading.current_thread() is not threading.main_thread():
            return _asked(self._transport, composed, deadline)
        # A descriptor of its own: the call may close that of the connection, whose number is another's then.
        connection = sockets.socket(fileno=os.dup(lib.aaa_transport_descriptor(self._transport)))
        transport, self._transport = self._transport, None
        exchange = _Exchange(transport, composed, deadline)
        finished = False
        try:
            self._connection = connection
            threading.Thread(target=exchange.run, name="aaautil-client", daemon=True).start()
            # A signal that arrives just before the wait begins does not end it: so it ends now and then.
            while not exchange.done.wait(_LOOK_FOR_SIGNALS):
                pass
            self._transport = transport
            finished = True
            return exchange.code
        finally:
            # After an interruption, which may be followed by a second one, the thread has everything.
            try:
                self._connection = None
                if not finished:
                    self._transport = None
                    exchange.abandon()
                    self._end_wait(connection)
            finally:
                connection.close()

    def _exchange(self, composed: _Composition, type: int) -> Tuple[int, Optional[AttributeList]]:
        """Sends a request and reads the answer: the code of its header, and its list."""
        reply = composed.reply
        while True:
            fresh = self._connect()
            code = self._asked(composed)
            # The service may close an idle connection at this moment. A request that the connection did not take is sent
            # on another one. One that it took may have been carried out: the record of a session, sent again, would be
            # there twice, and a code for one login would be used up. The library closes the connection after those.
            if code != lib.AAA_ERR_NOT_CONNECTED or fresh or lib.aaa_transport_descriptor(self._transport) < 0:
                break
        if code == lib.AAA_ERR_NOT_CONNECTED and lib.aaa_transport_descriptor(self._transport) < 0:
            raise self._failure("the service closed the connection without an answer, and may have carried out the request", code)
        if code:
            raise self._failure("no answer", code)
        head = ffi.new("aaa_transport_head_t *")
        code = lib.aaa_transport_read_reply(reply, type, head)
        if not code and head.kind != lib.AAA_TRANSPORT_CLASSIC:
            code = lib.AAA_ERR_UNEXPECTED_REPLY
        if code:
            lib.aaa_transport_close(self._transport)
            raise error(f"{self.socket}: the answer is malformed", code)
        if not head.list_at:
            return int(head.result), None
        try:
            return int(head.result), AttributeList.unpack(bytes(ffi.buffer(reply.u.bytes, reply.len)[head.list_at:]))
        except AaaError:
            lib.aaa_transport_close(self._transport)
            raise

    def _ask(self, type: int, compose: Callable[[_Composition], int]) -> Tuple[int, Optional[AttributeList]]:
        self._mine()
        with self._lock:
            self._open()
            if self._asking:
                raise RuntimeError("the client is in use by this thread: a signal handler needs a Client of its own")
            composed = _Composition()
            try:
                self._asking = True
                code = compose(composed)
                if code:
                    raise error("the request cannot be composed", code)
                return self._exchange(composed, type)
            finally:
                if self._transport is not None:  # otherwise a thread has both
                    composed.forget()
                self._asking = False
                if self._closing:
                    transport, self._transport = self._transport, None
                    self._closing = False
                    self._closed = True
                    if transport is not None:
                        lib.aaa_transport_free(transport)

    def _answer(self, code: int, attributes: Optional[AttributeList]) -> Answer:
        if code:
            raise error(f"{self.socket}: the service did not process the request", code)
        attributes = AttributeList() if attributes is None else attributes
        status = attributes.get(Attr.AAA_STATUS_ATTR)
        if not isinstance(status, Status):
            raise error(f"{self.socket}: the answer has no status", ResultCode.AAA_ERR_UNEXPECTED_REPLY)
        level = attributes.get(Attr.AAA_PRIV_LVL_ATTR)
        return Answer(status, _visible(attributes.get(Attr.AAA_REPLYMSG_ATTR)), level if isinstance(level, int) else None, attributes)

    # -- requests

    def login(self, user: str, password: Optional[Password] = None, *,
              prompt: Optional[Callable[[Prompt], Union[str, bytes, None]]] = None, tty: Optional[str] = None,
              remote_addr: Optional[str] = None, service: int = Service.LOGIN) -> Answer:
        """Logs a user in.

        The service may ask for more, such as a code or a new password: ``prompt`` is called with each
        question and returns what the user typed, or None to give up. Without a function the question is
        the answer. An exception of the function ends the login.
        """
        number = _number(service, "a service")
        attributes: Optional[AttributeList] = None
        for _ in range(_MOST_QUESTIONS + 1):
            answer = self._round(user, password, tty, remote_addr, number, attributes)
            if not answer.asks or prompt is None:
                return answer
            attributes = answer.attributes
            question = _visible(attributes.get(Attr.AAA_PROMPT_ATTR)) or answer.message
            echo = answer.status == Status.GETUSER or attributes.get(Attr.AAA_PROMPT_ECHO_ATTR) == 1
            typed = prompt(Prompt(answer.status, question, echo))
            if typed is None:
                return answer
            if answer.status == Status.GETUSER:
                # A new name needs a new password.
                user = typed.decode("utf-8", "surrogateescape") if isinstance(typed, bytes) else typed
                typed = prompt(Prompt(Status.GETPASS, "", False))
                if typed is None:
                    return answer
            password = typed
        raise error(f"{self.socket}: the service has asked {_MOST_QUESTIONS} questions without a decision",
                    ResultCode.AAA_ERR_UNEXPECTED_REPLY)

    def _round(self, user: str, password: Optional[Password], tty: Optional[str], remote_addr: Optional[str], service: int,
               state: Optional[AttributeList]) -> Answer:
        credentials = _Credentials(user, password, tty, remote_addr)
        try:
            credentials.keep_state(state)
            return self._answer(*self._ask(Request.AUTHEN, lambda made: int(lib.aaa_util_msg_authen_compose(
                made.header, AuthenOption.ASCII_LOGIN, service, self._list, 0, credentials.record, ffi.NULL, ffi.NULL, made.iov,
                made.count, made.buffer, made.room, ffi.NULL, 0))))
        finally:
            credentials.forget()

    def authorize(self, user: str, command: Optional[str] = None, *, service: Optional[int] = None, tty: Optional[str] = None,
                  remote_addr: Optional[str] = None) -> Answer:
        """Asks whether a user may run a command, or without one, use a service (a session: Service.EXEC)."""
        if service is None:
            service = Service.EXEC if command is None else Service.CMD
        number = _number(service, "a service")
        credentials = _Credentials(user, None, tty, remote_addr)
        text = _text(command, "a command", _MOST_COMMAND, none=True)
        more = ffi.new("aaa_svc_attrs_t *", {"cmd": text})
        try:
            return self._answer(*self._ask(Request.AUTHOR, lambda made: int(lib.aaa_util_msg_author_compose(
                made.header, AuthenOption.ASCII_LOGIN, number, self._list, 0, credentials.record, more, made.iov, made.count,
                made.buffer, made.room, ffi.NULL, 0))))
        finally:
            credentials.forget()

    def account(self, user: str, record: str, session_id: int, *, command: Optional[str] = None, service: int = Service.EXEC,
                tty: Optional[str] = None, remote_addr: Optional[str] = None) -> None:
        """Has an accounting record kept: "start", "stop" or "update" of a session, all with one number.

        Raises :class:`aaautil.AaaError` when it is not kept.
        """
        if record not in _RECORDS:
            raise ValueError(f"a record is start, stop or update, not {record!r}")
        number = _number(service, "a service")
        session = _number(session_id, "the number of a session")
        credentials = _Credentials(user, None, tty, remote_addr)
        text = _text(command, "a command", _MOST_COMMAND, none=True)
        more = ffi.new("aaa_svc_attrs_t *", {"cmd": text})
        try:
            if record == "update":
                code, _ = self._update(credentials, number, session, text)
            else:
                code, _ = self._ask(Request.ACCT, lambda made: int(lib.aaa_util_msg_acct_compose(
                    made.header, _RECORDS[record], number, self._list, 0, credentials.record, more, session, made.iov, made.count,
                    made.buffer, made.room, ffi.NULL, 0)))
        finally:
            credentials.forget()
        if code:
            raise error(f"{self.socket}: the record is not kept", code)

    def _update(self, credentials: _Credentials, service: int, session: int, text: Any) -> Tuple[int, Optional[AttributeList]]:
        command = None if text == ffi.NULL else text
        block = ffi.new("unsigned char[64]")
        number = ffi.new("uint32_t *", session)
        with NativeList(name="Accounting Update") as attributes:
            code = lib.aaa_util_add_usercred_in_avlist(credentials.record, attributes.handle, service, 0, AcctOption.UPDATE)
            if not code:  # these say which method list keeps it
                code = lib.aaa_util_avpair_add_attr(attributes.handle, Attr.AAA_SERVICE_TYPE_ATTR, ffi.new("uint32_t *", service), 4, 0)
            if not code:
                code = lib.aaa_util_avpair_add_attr(attributes.handle, Attr.AAA_METHODLIST_ATTR, self._list, len(self._list), 0)
            if not code and command is not None:
                code = lib.aaa_util_avlist_cmd_add(command, len(command), attributes.handle)
            if code:
                raise error("the record cannot be composed", code)
            return self._ask(Request.ACCT_UPDATE, lambda made: int(lib.aaa_util_msg_acct_update_compose(
                made.header, number, block, attributes.handle, made.iov, made.count, made.buffer, made.room, 0)))

    def ping(self) -> None:
        """Returns when the service answers; raises an exception when it does not."""
        code, _ = self._ask(Request.PING, lambda made: int(lib.aaa_util_msg_ping_compose(made.header, made.iov, made.count, 0)))
        if code:
            raise error(f"{self.socket}: the service did not process the request", code)

    def is_up(self) -> bool:
        """Whether the service answers."""
        try:
            self.ping()
        except (AaaError, ServiceTimeoutError, OSError):
            return False
        return True
