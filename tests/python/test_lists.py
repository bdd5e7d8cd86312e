# SPDX-License-Identifier: Apache-2.0
"""Attribute lists: a sequence, a mapping, and their wire form."""

import copy
import ipaddress
import os
import pickle
import pprint
import re
import threading

import pytest

import aaautil
from aaautil import Attr, Attribute, AttributeList, NativeList, SecretBytes, Status, ffi, lib
from support import SANITIZED, TREE, in_child, nine_pairs


def wire_example():
    text = (TREE / "docs/wire-format.md").read_text()
    block = re.search(r"```hex\n(.*?)```", text, re.DOTALL).group(1)
    return bytes.fromhex("".join(re.sub(r";.*", "", line)[4:] for line in block.splitlines()))


def test_the_documented_example_is_read():
    found = AttributeList.unpack(wire_example())
    assert found.name == "login"
    assert [(pair.type, pair.tag, pair.flags, pair.raw) for pair in found] == [
        (3, 0, 0x400, b"\x01\0\0\0"), (257, 0, 0, b"alice\0"), (264, 9, 0, bytes([7, 2, 0, 192])), (19, 0, 0, b"\x12\x34\x56\x78")]
    assert found["IPADDR"] == ipaddress.IPv4Address("192.0.2.7")


def test_every_field_survives_the_wire():
    made = AttributeList(name="x" * 30)
    made.add("USERNAME", "ålice", tag=7, flags=0x400)
    made.add(4711, b"", tag=0xFFFFFFFF, flags=0xFFFFFFFF)
    made.add(Attr.AAA_STARTTIME_ATTR, 1 << 40)
    made.add("USERNAME", b"no NUL")
    made.add("ORDERLIST", bytes(range(256)) * 40)
    again = AttributeList.unpack(made.pack())
    assert again == made and again.name == made.name
    assert again.get_all("username") == ["ålice", "no NUL"]
    assert again["starttime"] == 1 << 40


def test_packing_gives_the_bytes_of_the_library():
    made = nine_pairs()
    native = made.native()
    assert made.pack() == native.pack()
    assert made.pack() == made.pack(), "packing changes nothing"


def test_values_by_format():
    made = AttributeList([("STATUS", Status.FAIL), ("PRIV_LVL", 15), ("IPADDR", "192.0.2.1"), ("PID", b"\x01"), ("USERNAME", "")])
    assert made["STATUS"] is Status.FAIL
    assert made["PRIV_LVL"] == 15
    assert made["IPADDR"] == ipaddress.IPv4Address("192.0.2.1")
    assert made["PID"] == b"\x01"
    assert made["USERNAME"] == "" and made[4].raw == b"\0"
    assert Attribute(Attr.AAA_PRIV_LVL_ATTR, 0, 0, b"\x01").value == b"\x01", "an integer of another length is bytes"
    assert Attribute(Attr.AAA_STATUS_ATTR, 0, 0, b"\xff\0\0\0").value == 255, "a status without a name is a number"
    assert Attribute(Attr.AAA_USERNAME_ATTR, 0, 0, b"\xff\0").value == "\udcff"


@pytest.mark.parametrize("type, value, failure", [
    ("USERNAME", 1, TypeError), ("USERNAME", "a\0b", ValueError), ("PRIV_LVL", "15", TypeError), ("PRIV_LVL", -1, ValueError),
    ("PRIV_LVL", 1 << 32, ValueError), ("PRIV_LVL", True, TypeError), ("IPADDR", "192.0.2.256", ValueError),
    ("IPADDR", 1.5, TypeError), ("PID", "text", TypeError), ("PID", None, TypeError), ("no such", 1, KeyError), (2070, b"", ValueError),
    (-1, b"", ValueError), (1 << 32, b"", ValueError), (1.0, b"", TypeError), (None, b"", TypeError), ("4711", b"", KeyError),
    ("a\0b", b"", KeyError), ("", b"", KeyError), ("STARTTIME", 1 << 64, ValueError)])
def test_a_value_that_does_not_fit_is_refused_and_nothing_changes(type, value, failure):
    made = nine_pairs()
    before = made.copy()
    for change in (made.add, made.replace):
        with pytest.raises(failure):
            change(type, value)
    assert made == before


def test_it_is_a_sequence():
    made = nine_pairs()
    assert len(made) == 9 and made[-1].name == "AAA_ORDERLIST_ATTR" and made[2] in made
    assert [pair.type for pair in made] == [pair.type for pair in reversed(list(reversed(made)))]
    part = made[2:4]
    assert isinstance(part, AttributeList) and part.types() == [257, 20]
    made.insert(0, ("REPLYMSG", "first"))
    assert made[0].value == "first"
    del made[0]
    made[0] = ("REPLYMSG", "in its place")
    assert made[0].value == "in its place" and len(made) == 9
    made[0:2] = []
    made.extend([("USERNAME", "two"), ("USERNAME", "three")])
    assert made.pop().value == "three"
    made += [("USERNAME", "four")]
    assert made.get_all("USERNAME") == ["alice", "two", "four"]
    made.reverse()
    assert made["USERNAME"] == "four"
    made.clear()
    assert len(made) == 0 and AttributeList.unpack(made.pack()) == made
    with pytest.raises(IndexError):
        made[0]


def test_it_is_a_mapping():
    made = AttributeList([("USERNAME", "one"), ("PRIV_LVL", 1), ("USERNAME", "two")])
    assert made[Attr.AAA_USERNAME_ATTR] == made["username"] == made["AAA_USERNAME_ATTR"] == "one"
    assert "USERNAME" in made and Attr.AAA_PASSWORD_ATTR not in made
    assert made.get("PASSWORD") is None and made.get("PASSWORD", "none") == "none"
    made["USERNAME"] = "three"
    assert [pair.value for pair in made] == ["three", 1]
    made["ORDERLIST"] = b"x"
    assert made[-1].value == b"x"
    del made["USERNAME"]
    with pytest.raises(KeyError):
        made["USERNAME"]
    with pytest.raises(KeyError):
        del made["USERNAME"]
    assert made.discard("ORDERLIST") == 1 and made.discard("ORDERLIST") == 0


def test_copies_are_independent_and_pickles_come_back():
    made = nine_pairs()
    for other in (made.copy(), copy.copy(made), copy.deepcopy(made), pickle.loads(pickle.dumps(made))):
        assert other == made
        other.add("ORDERLIST", b"more")
        assert other != made
    assert made != [] and made.__eq__([]) is NotImplemented


def test_secrets_are_not_shown():
    made = AttributeList([("PASSWORD", "wonderland"), ("USERNAME", "alice")])
    for text in (repr(made), str(made), repr(made[0]), repr(made.native())):
        assert "wonderland" not in text and "PASSWORD" in text
    assert made["PASSWORD"] == "wonderland"


def test_the_bytes_of_a_secret_are_bytes_that_are_not_shown():
    plain = b"wonderland\0"
    made = AttributeList([("PASSWORD", "wonderland"), ("USERNAME", "alice")])
    read = AttributeList.unpack(made.pack())
    for pair in (made[0], read[0], made.native().attributes()[0], Attribute(*read[0]), pickle.loads(pickle.dumps(made))[0],
                 Attribute.of("PASSWORD", "wonderland"), Attribute(int(Attr.AAA_PASSWORD_ATTR), 0, 0, plain)):
        secret = pair.raw
        assert type(secret) is SecretBytes and isinstance(secret, bytes)
        for shown in (repr(secret), str(secret), f"{secret}", f"{secret!r}", "%s %r %a" % (secret, secret, secret), repr([secret]),
                      repr(tuple(pair)), repr(secret[:3]), repr(secret[3:4]), ascii(secret), pprint.pformat({"x": secret})):
            assert "********" in shown and "w" not in shown and "n" not in shown, shown
        assert secret == plain and plain == secret and hash(secret) == hash(plain) and {plain: 1}[secret] == 1
        assert secret[0] == ord("w") and secret[:6] == b"wonder" and secret[-1:] == b"\0" and list(secret) == list(plain)
        assert type(bytes(secret)) is bytes and repr(bytes(secret)) == repr(plain) and bytearray(secret) == plain
        assert secret.decode() == "wonderland\0" and secret + b"x" == plain + b"x" and b"".join([secret, secret]) == plain * 2
        assert pair.value == "wonderland" and pickle.loads(pickle.dumps(secret)) == plain and copy.deepcopy(secret) == plain
    assert type(made[1].raw) is bytes and type(read[1].raw) is bytes and repr(SecretBytes()) == "b''"
    assert AttributeList([("PASSWORD", read[0].raw)]) == AttributeList(made[:1]) and read.pack() == made.pack()


@pytest.mark.parametrize("use", [lambda: AttributeList([("PASSWORD", "rabb\ud800it")]), lambda: aaautil.raw_value(258, "rabb\ud800it"),
                                 lambda: aaautil.messages.encode('kind list\npair AAA_PASSWORD_ATTR "rabb\ud800it"\n'),
                                 lambda: aaautil.Database("/cfg/x/").set("password", "rabb\ud800it")])
def test_an_exception_holds_no_text_that_cannot_be_encoded(use):
    with pytest.raises(ValueError) as refused:
        use()
    assert "rabb" not in repr(refused.value) and refused.value.__context__ is None


def test_a_mistyped_name_is_not_taken_for_an_absent_attribute():
    attributes = nine_pairs()
    assert "PASSWORD" in attributes and Attr.AAA_USERNAME_ATTR in attributes and "CMD" not in attributes
    with pytest.raises(KeyError, match="did you mean PASSWORD"):
        "PASSWORT" in attributes  # pylint: disable=pointless-statement
    with pytest.raises(TypeError, match="get"):
        258 in attributes  # pylint: disable=pointless-statement
    assert attributes[0] in attributes and aaautil.Attribute.of("CMD", "show") not in attributes



def test_a_kept_attribute_outlives_its_list():
    message = nine_pairs().pack()
    kept = [pair for pair in AttributeList.unpack(message)]
    names = [pair.raw for pair in nine_pairs().native().attributes()]
    for _ in range(1000):
        AttributeList.unpack(message).clear()
    assert [pair.raw for pair in kept] == names


def test_names_of_lists():
    for name in ("x" * 31, "å" * 16, "a\0b"):
        with pytest.raises(ValueError):
            AttributeList(name=name)
    with pytest.raises(TypeError):
        AttributeList(name=b"bytes")
    assert AttributeList.unpack(AttributeList(name="å" * 15).pack()).name == "å" * 15


def test_a_list_is_as_long_as_a_receiver_accepts():
    most = lib.AAA_CHECKED_MAX_PAIRS
    made = AttributeList([("PRIV_LVL", 1)] * most)
    again = AttributeList.unpack(made.pack())
    assert len(again) == most
    made.add("PRIV_LVL", 1)
    with pytest.raises(aaautil.MalformedError):
        made.pack()
    with pytest.raises(aaautil.MalformedError):
        made.native()


def test_bytes_of_all_kinds_are_read_and_trailing_bytes_ignored():
    message = nine_pairs().pack()
    for form in (message, bytearray(message), memoryview(message), memoryview(message)[0:], message + b"more"):
        assert AttributeList.unpack(form) == nine_pairs()
    spread = memoryview(bytes(byte for one in message for byte in (one, 0)))[::2]
    assert AttributeList.unpack(spread) == nine_pairs(), "a view with gaps"


# ---- native lists

def test_a_packed_native_list_is_spent():
    native = nine_pairs().native()
    copied = native.copy()
    assert not native.spent and native.attributes() == nine_pairs()
    assert AttributeList.unpack(native.pack()) == nine_pairs()
    assert native.spent
    for use in (lambda: native.handle, native.pack, native.attributes, native.copy, native.release):
        with pytest.raises(aaautil.ListSpentError, match="packed"):
            use()
    native.free()
    assert copied.attributes() == nine_pairs()


def test_a_freed_or_released_native_list_is_spent():
    with nine_pairs().native() as native:
        pass
    with pytest.raises(aaautil.ListSpentError, match="freed"):
        native.handle
    other = NativeList(name="given")
    lib.aaa_avpair_free_list(other.release())
    with pytest.raises(aaautil.ListSpentError, match="given away"):
        other.handle


def test_calls_of_the_library_work_on_native_lists():
    with NativeList(name="calls") as native:
        assert lib.aaa_avpair_add(Attr.AAA_USERNAME_ATTR, 0, b"alice\0", 0, 6, native.handle) == 0
        assert lib.aaa_util_avlist_msgtype_add(lib.AAA_MT_ENABLE, native.handle) == 0
        assert native.attributes()["USERNAME"] == "alice" and native.attributes()["TYPE"] is aaautil.MessageType.ENABLE


@pytest.mark.parametrize("handle", [0, 1, "x", b"x", ffi.NULL, ffi.new("int *"), object()])
def test_only_a_list_is_a_handle(handle):
    with pytest.raises(TypeError):
        NativeList(handle)


def test_a_native_list_that_is_damaged_raises():
    native = nine_pairs().native()
    count = native.handle.av_cnt
    native.handle.av_cnt = 0
    for use in (native.attributes, native.pack):
        with pytest.raises(aaautil.MalformedError):
            use()
    native.handle.av_cnt = count
    assert native.attributes() == nine_pairs()


# ---- threads and processes

def test_threads_pack_and_unpack_at_the_same_time():
    wrong = []

    def work(number):
        made = AttributeList([("USERNAME", f"user{number}")] * (number + 1), f"list{number}")
        for _ in range(2000):
            again = AttributeList.unpack(made.pack())
            if again != made:
                wrong.append(again)

    threads = [threading.Thread(target=work, args=(number,)) for number in range(6)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert wrong == []


def test_threads_that_change_one_list_break_nothing():
    shared = AttributeList(name="shared")

    def work():
        for _ in range(500):
            shared.add("ORDERLIST", b"x" * 50)
            shared.pack()
            shared.get_all("ORDERLIST")
            shared.discard("ORDERLIST")

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert AttributeList.unpack(shared.pack()) == shared


def test_a_native_list_waits_for_the_thread_that_uses_it():
    for _ in range(50):
        native = nine_pairs().native()
        packed = []

        def work():
            try:
                packed.append(native.pack())
            except aaautil.ListSpentError:
                pass

        threads = [threading.Thread(target=work) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        assert packed == [nine_pairs().pack()], "one thread packs it, the others find it spent"


def test_a_forked_child_packs_and_unpacks():
    made, native = nine_pairs(), nine_pairs().native()
    assert in_child(lambda: AttributeList.unpack(made.pack()) == made == native.attributes()) == "True"
    assert native.attributes() == made


def test_a_bytearray_that_another_thread_changes_is_harmless():
    message = bytearray(nine_pairs().pack() * 20)
    stop = threading.Event()

    def change():
        while not stop.is_set():
            for place in range(0, 400, 3):
                message[place] ^= 0xFF

    thread = threading.Thread(target=change)
    thread.start()
    try:
        for _ in range(5000):
            try:
                AttributeList.unpack(message)
            except aaautil.AaaError:
                pass
    finally:
        stop.set()
        thread.join()


def test_nothing_is_leaked():
    message, short = nine_pairs().pack(), nine_pairs().pack()[:-4]

    def resident():
        with open("/proc/self/statm") as file:
            return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")

    def work():
        for _ in range(3000):
            AttributeList.unpack(message).pack()
            nine_pairs_native = AttributeList.unpack(message).native()
            nine_pairs_native.pack()
            AttributeList([("ORDERLIST", b"x" * 20000)]).native()
            try:
                AttributeList.unpack(short)
            except aaautil.AaaError:
                pass
            aaautil.messages.decode(message)

    work()
    before = resident()
    work()
    # One of the lists above that stayed would be 60 MB.
    assert resident() - before < 8 << 20 or SANITIZED
