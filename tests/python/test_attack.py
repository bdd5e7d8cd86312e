# SPDX-License-Identifier: Apache-2.0
"""Wrong types, huge sizes, closed handles, damaged messages: an exception, never the end of the interpreter.

Run under the address sanitizer too, which ends the process at the first access that is wrong.
"""

import array
import gc
import inspect
import mmap
import os
import random
import sys
import weakref

import pytest

import aaautil
from aaautil import Attr, Attribute, AttributeList, Database, NativeList, lib, messages
from support import SANITIZED, TREE, nine_pairs, run_python


class Odd:
    """Answers everything with something that is not expected."""

    def __len__(self):
        return -1

    def __int__(self):
        raise RuntimeError

    def __eq__(self, other):
        return True

    def __hash__(self):
        return 1

    def __bytes__(self):
        return b"x" * 100

    def __iter__(self):
        return iter([self])


class OddBytes(bytes):
    def __len__(self):
        return 1 << 40


class OddInt(int):
    def __index__(self):
        return 1 << 70


class OddText(str):
    def encode(self, *_):
        return b"x\0" * 100


WRONG = [None, True, 0, -1, 1 << 31, 1 << 32, 1 << 64, -(1 << 70), 1.5, float("nan"), "", "\0", "\ud800", "x" * 100000, b"", b"\0",
         b"\xff" * 100, bytearray(5), memoryview(b"abc"), memoryview(array.array("d", [1.0])), array.array("I", [1]), (), [], {}, (1, 2),
         (1, 2, 3, 4, 5), [1], object(), Odd(), OddBytes(b"abc"), OddInt(5), OddText("x"), int, len, lambda *_: None, aaautil.ffi.NULL,
         aaautil.ffi.new("char[4]"), Attr.AAA_USERNAME_ATTR, Attribute(257, 0, 0, "no bytes"), Attribute(2070, 0, 0, b""),
         Attribute(-1, -1, -1, b""), nine_pairs(), nine_pairs().native(), NotImplemented, ...]

FUNCTIONS = {
    "attribute_name": aaautil.attribute_name, "attribute_format": aaautil.attribute_format, "attribute_type": aaautil.attribute_type,
    "is_secret": aaautil.is_secret, "status_name": aaautil.status_name, "service_name": aaautil.service_name,
    "method_name": aaautil.method_name, "advice": aaautil.advice, "code_text": aaautil.code_text, "decode": messages.decode,
    "to_text": messages.to_text, "encode": messages.encode, "unhex": messages.unhex, "unpack": AttributeList.unpack,
    "AttributeList": AttributeList, "NativeList": NativeList, "Attribute.of": Attribute.of, "typed_value": aaautil.typed_value,
    "raw_value": aaautil.raw_value, "Database": Database, "Client": aaautil.Client,
}


def attempt(function, *arguments, **named):
    """Any exception but these is an answer."""
    try:
        function(*arguments, **named)
    except (SystemError, SystemExit):
        raise
    except Exception:
        pass


@pytest.mark.parametrize("name", FUNCTIONS)
def test_a_function_survives_every_wrong_argument(name):
    function = FUNCTIONS[name]
    for one in WRONG:
        attempt(function, one)
        for other in WRONG:
            attempt(function, one, other)
    parameters = [one for one in inspect.signature(function).parameters]
    for parameter in parameters:
        for one in WRONG:
            attempt(function, **{parameter: one})


def methods(cls):
    return [name for name, found in inspect.getmembers(cls, callable)
            if (not name.startswith("_") or name.startswith("__")) and name not in ("__class__", "__init__", "__new__", "__init_subclass__", "__subclasshook__", "__del__", "__getattribute__",
                            "__setattr__", "__delattr__", "__dir__", "__sizeof__", "__class_getitem__", "__getstate__", "__mul__", "__rmul__", "__aenter__", "__aexit__", "__anext__", "login")]


@pytest.mark.parametrize("make", [nine_pairs, lambda: nine_pairs().native(), lambda: nine_pairs()[0], lambda: Database("/cfg/attack/"),
                                  lambda: aaautil.Client("/nonexistent/socket", timeout=0.01)],
                         ids=["AttributeList", "NativeList", "Attribute", "Database", "Client"])
def test_a_method_survives_every_wrong_argument(make):
    cls = type(make())
    for name in methods(cls):
        subject = make()
        for one in WRONG:
            attempt(getattr(subject, name), one)
        for one in WRONG[::3]:
            for other in WRONG[::4]:
                attempt(getattr(subject, name), one, other)
                attempt(getattr(make() if name in ("close", "free", "release") else subject, name), other, one)
        if isinstance(subject, AttributeList):
            attempt(subject.pack)
        if hasattr(subject, "close"):
            attempt(subject.close)


def test_an_object_that_was_never_made_is_harmless():
    for cls in (AttributeList, NativeList, Database, aaautil.Client, aaautil.Watch):
        unmade = cls.__new__(cls)
        for name in methods(cls):
            attempt(getattr(unmade, name))
        del unmade
    gc.collect()


def test_closed_handles_raise():
    database = Database("/cfg/attack/")
    database.close()
    database.close()
    for use in (lambda: database.get("x"), lambda: database.set("x", 1), lambda: database.list(), lambda: database.apply([]),
                lambda: database.delete("x"), lambda: database.watch(), database.__enter__, lambda: "x" in database):
        with pytest.raises(ValueError, match="closed"):
            use()
    client = aaautil.Client("/nonexistent")
    client.close()
    client.close()
    for use in (client.ping, lambda: client.login("alice", "x"), client.__enter__, lambda: client.account("alice", "start", 1)):
        with pytest.raises(ValueError, match="closed"):
            use()


def test_a_handle_of_the_database_that_is_stale_raises():
    database = Database("/cfg/attack/")
    handle = database._handle
    database.close()
    database._handle = handle
    with pytest.raises(aaautil.AaaError):
        database.get("x")
    database._handle = 0


def garbage(count):
    """Random bytes, and well-formed messages with random faults; the same in each run."""
    source = random.Random(4711)
    message = nine_pairs().pack()
    for number in range(count):
        if number % 4 == 0:
            yield source.randbytes(source.randrange(200))
            continue
        damaged = bytearray(message)
        if number % 4 == 1:
            damaged = damaged[:source.randrange(len(damaged))]
            if len(damaged) >= 4:
                damaged[:4] = (len(damaged) & ~3).to_bytes(4, "big")
        for _ in range(source.randrange(1, 4)):
            if damaged:
                place = source.randrange(len(damaged) // 4 + 1) * 4 if number % 2 else source.randrange(len(damaged))
                damaged[place:place + 1] = bytes([source.choice((0, 1, 0x7F, 0x80, 0xFF, source.randrange(256)))])
        yield bytes(damaged)


def test_a_hundred_thousand_damaged_lists_are_read_or_refused():
    read = refused = 0
    for message in garbage(100000):
        try:
            found = AttributeList.unpack(message)
        except aaautil.AaaError:
            refused += 1
            continue
        read += 1
        if read % 50 == 0:
            assert AttributeList.unpack(found.pack()) == found
            [pair.value for pair in found]
            repr(found)
    assert read > 10000 and refused > 10000


def test_damaged_messages_are_shown_or_refused():
    for message in garbage(600):
        if message:
            document = messages.decode(message)
            assert document["length"] <= len(message)
            messages.to_text(message)
            for kind in ("list", "request", "reply", "session"):
                messages.decode(message, kind)


def test_damaged_seeds_of_the_fuzz_targets_are_shown_or_refused():
    """Messages of every kind, by all that takes bytes or text of others."""
    seeds = [path.read_bytes() for path in sorted((TREE / "fuzz/corpus").rglob("*")) if path.is_file() and path.stat().st_size < 3000]
    assert len(seeds) > 100
    source = random.Random(4714)
    shown = set()
    for number in range(600 if SANITIZED else 3000):
        damaged = bytearray(source.choice(seeds))
        for _ in range(source.randrange(4)):
            at = source.randrange(len(damaged) + 1)
            damaged[at:at + source.choice((0, 1, 4))] = source.choice((b"", b"\0", b"\xff\xff\xff\xff", b"\0\0\0\x38", b"\x80\0\0\0", damaged[:at]))
        message = bytes(damaged)
        attempt(AttributeList.unpack, message)
        attempt(messages.unhex, message.decode("latin-1"))
        attempt(messages.encode, message.decode("utf-8", "surrogateescape"))
        if message:
            document = messages.decode(message, source.choice(messages.kinds()) if number % 2 else "auto", show_secrets=True)
            shown.add("fault" in document)
            attempt(messages.encode, document)
            attempt(messages.encode, messages.to_text(message, show_secrets=True))
    assert shown == {True, False}


@pytest.mark.parametrize("end", ["", "del database, watch, client, native", "del native, client, watch, database; import gc; gc.collect()",
                                 "database.close(); database = None", "sys.exit(0)", "os._exit(0)", "sys.modules.clear()"])
def test_the_interpreter_ends_with_everything_open(end):
    """Also with threads that wait in the libraries."""
    run_python(f"""
import os, socket, sys, tempfile, threading
import aaautil
database = aaautil.Database("/cfg/ends/")
watch = database.watch()
waiting = database.watch()
native = aaautil.NativeList(name="x")
directory = tempfile.TemporaryDirectory()
listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
listener.bind(directory.name + "/s")
listener.listen(4)
client = aaautil.Client(directory.name + "/s", servers=None, timeout=None)
asking = aaautil.Client(directory.name + "/s", servers=None, timeout=None)
threads = [threading.Thread(target=call, daemon=True) for call in (lambda: waiting.poll(None), asking.ping)]
for thread in threads:
    thread.start()
accepted = listener.accept()[0]
accepted.recv(100)  # it waits for the answer
while waiting._end_of_wait is None:
    os.sched_yield()
directory.cleanup()
{end}
""")


@pytest.mark.skipif(sys.version_info >= (3, 12), reason="subinterpreters have another interface there")
def test_a_subinterpreter_is_refused_and_the_main_one_goes_on():
    run_python("""
import _xxsubinterpreters as interpreters
code = '''
try:
    import aaautil
except ImportError as failure:
    assert "main interpreter" in str(failure), failure
else:
    raise AssertionError("imported")
'''
for turn in range(2):
    one = interpreters.create()
    interpreters.run_string(one, code)
    interpreters.run_string(one, code)
    interpreters.destroy(one)
    import aaautil
    with aaautil.Database("/cfg/sub/") as database, database.watch() as watch:
        database.set("x", turn)
        assert [change.value for change in watch.poll(None)] == [turn]
""")


def test_damaged_descriptions_are_read_or_refused():
    source = random.Random(4712)
    texts = [messages.to_text(nine_pairs().pack(), show_secrets=True),
             __import__("json").dumps(messages.decode(nine_pairs().pack(), show_secrets=True))]
    for number in range(500):
        text = texts[number % 2]
        at = source.randrange(len(text))
        damaged = text[:at] + source.choice(["", "\0", "\"", "999999999999", "{", "zeros(999999999999)", "-1", "\ud800"]) + \
            text[at + source.randrange(8):]
        attempt(messages.encode, damaged)


def test_sizes_that_cannot_be_are_refused():
    made = AttributeList([("ORDERLIST", b"x")])
    with pytest.raises((aaautil.AaaError, MemoryError)):
        room = mmap.mmap(-1, 1 << 30)  # nothing of it is touched here
        try:
            AttributeList.unpack(memoryview(room)[:1 << 20])  # zeros
        finally:
            room.close()
    large = Attribute(29, 0, 0, bytes(1 << 20))
    for use in (AttributeList([large] * 2048).pack, AttributeList([large] * 2048).native):
        with pytest.raises(aaautil.MalformedError):
            use()
    assert made.pack()


def test_kept_views_and_values_outlive_everything():
    message = bytearray(nine_pairs().pack())
    found = AttributeList.unpack(message)
    kept = [pair.raw for pair in found] + [repr(found)]
    message[:] = b"\xff" * len(message)
    del found
    gc.collect()
    assert kept[2] == b"alice\0"
    native = nine_pairs().native()
    gone = weakref.ref(native)
    copied = native.attributes()
    del native
    gc.collect()
    assert gone() is None and copied == nine_pairs()


def test_a_finaliser_that_decodes_disturbs_no_call():
    message = nine_pairs().pack()
    seen = []

    class Late:
        def __init__(self):
            self.cycle = self

        def __del__(self):
            seen.append(AttributeList.unpack(message) == nine_pairs())

    gc.set_threshold(10)
    try:
        for _ in range(500):
            Late()
            assert AttributeList.unpack(message) == nine_pairs()
    finally:
        gc.set_threshold(700, 10, 10)
    assert len(seen) > 100 and all(seen)


def test_a_signal_handler_that_decodes_disturbs_no_call():
    import signal

    message, other = nine_pairs().pack(), AttributeList([("ORDERLIST", b"z" * 3000)]).pack()
    seen = []
    before = signal.signal(signal.SIGUSR1, lambda *_: seen.append(len(AttributeList.unpack(other)[0].raw)))
    try:
        for _ in range(300):
            os.kill(os.getpid(), signal.SIGUSR1)
            assert AttributeList.unpack(message) == nine_pairs()
    finally:
        signal.signal(signal.SIGUSR1, before)
    assert seen and set(seen) == {3000}


def test_no_pair_of_the_deleted_type_is_ever_given_to_the_library():
    made = nine_pairs()
    made._pairs.append(Attribute(lib.AAA_ATTR_MAX, 0, 0, b""))  # past every check
    for use in (made.pack, made.native):
        with pytest.raises(aaautil.InvalidArgumentError):
            use()


def test_heads_that_contradict_the_values_are_refused():
    made = aaautil.ffi.new("avlist **")
    heads = (257).to_bytes(4, "little") + bytes(8)
    for length, values in ((5, b"1234"), (3, b"1234"), (0xFFFFFFFF, b"")):
        words = heads + length.to_bytes(4, "little")
        assert lib.aaapy_make(b"", words, 1, values, len(values), made) == lib.AAA_ERR_INVALID_ARG
        assert made[0] == aaautil.ffi.NULL
