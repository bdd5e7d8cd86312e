# SPDX-License-Identifier: Apache-2.0
"""Passwords and keys are not in what other programs print of the package's records: pytest, tracebacks, logs, pickled copies
that are shown. The secrets here are never written as such: pytest prints the lines of a test."""

import copy
import logging
import os
import pickle
import pprint
import reprlib
import subprocess
import sys
import textwrap
import traceback
import unittest

import pytest

import aaautil
from aaautil import (Answer, Attribute, AttributeList, Change, Client, Database, Delete, Expect, Item, ItemType, Prompt, Prune,
                     SecretBytes, Set, Status, messages)

SECRET = "".join(["wonder", "land"])
PLUGIN = {"with the plugin": ["-p", "aaautil_pytest"], "without the plugin": ["-p", "no:aaautil"]}


def pytest_output(tmp_path, text, *options):
    (tmp_path / "test_it.py").write_text(textwrap.dedent(text))
    environment = {name: value for name, value in os.environ.items() if name != "AAAUTIL_TESTKIT"}
    done = subprocess.run([sys.executable, "-m", "pytest", "-p", "no:cacheprovider", *options, str(tmp_path)], cwd=tmp_path,
                          env=environment, capture_output=True, text=True, timeout=120)
    return done.stdout + done.stderr


@pytest.mark.parametrize("plugin", PLUGIN)
@pytest.mark.parametrize("more", [["-vv", "--showlocals"], []], ids=["much", "little"])
def test_pytest_compares_records_without_showing_secrets(tmp_path, plugin, more):
    output = pytest_output(tmp_path, """
        import pytest
        from aaautil import Attribute, AttributeList, Answer, Change, Delete, Expect, Item, Set, SecretBytes, Status, messages
        def pair(text): return Attribute.of("PASSWORD", text)
        def item(text, type=3): return Item(type, text.encode() + b"\\0")
        def attributes(text): return AttributeList([("USERNAME", "alice"), pair(text)])
        def read(text): return AttributeList.unpack(attributes(text).pack())
        RECORDS = {
            "pair": pair, "replaced": lambda text: pair("x")._replace(raw=text.encode()), "list": attributes, "read": read,
            "made": lambda text: Attribute._make((258, 0, 0, text.encode())),
            "slice": lambda text: attributes(text)[1:], "item": item, "odd item": lambda text: item(text, 77),
            "replaced item": lambda text: item("x")._replace(raw=text.encode()), "raw": lambda text: pair(text).raw,
            "set": lambda text: Set("key", text), "set bytes": lambda text: Set("key", text.encode(), 77),
            "set bytearray": lambda text: Set("key", bytearray(text.encode()), 77), "expect": lambda text: Expect("key", text),
            "change": lambda text: Change("set", "key", item(text), 1), "changes": lambda text: [Set("a", 1), Set("key", text)],
            "tuple": lambda text: (Set("key", text), 1), "dict": lambda text: {"key": Set("key", text), "item": item(text)},
            "answer": lambda text: Answer(Status.PASS, "", 1, read(text)), "document": lambda text: messages.decode(read(text).pack()),
            "text": lambda text: messages.to_text(read(text).pack()), "set of sets": lambda text: {Set("key", text), Delete("key")},
        }
        @pytest.mark.parametrize("name", RECORDS)
        def test_it(name):
            one, other = RECORDS[name]("".join(["wonder", "land"])), RECORDS[name]("".join(["rab", "bit"]))
            assert one == other and name not in ("document", "text")
        """, *PLUGIN[plugin], *more)
    assert "22 failed" in output, output
    for part in ("wonderland", "rabbit", "119, 111", "b'w'", "b'r'", "776f6e"):
        assert part not in output, (part, output)


def test_pytest_shows_no_argument_of_the_package_when_a_call_fails(tmp_path):
    """Of the frame that raised, pytest prints the arguments."""
    output = pytest_output(tmp_path, """
        import pytest
        import aaautil
        from aaautil import Attribute, AttributeList, Client, Database, Set, messages
        from aaautil.private import hash_of
        SECRET = "".join(["wonder", "land"])
        CALLS = {
            "login with a long password": lambda: Client("/nonexistent").login("alice", SECRET * 10000),
            "login with a NUL": lambda: Client("/nonexistent").login("alice", SECRET + "\\0"),
            "login with a surrogate": lambda: Client("/nonexistent").login("alice", SECRET + "\\ud800"),
            "login without a service": lambda: Client("/nonexistent").login("alice", SECRET),
            "pair with a NUL": lambda: Attribute.of("PASSWORD", SECRET + "\\0"),
            "pair with a surrogate": lambda: AttributeList([("PASSWORD", SECRET + "\\ud800")]),
            "pair of many": lambda: AttributeList([("PASSWORD", SECRET, 0, 0, 0)]),
            "tag": lambda: AttributeList().add("PASSWORD", SECRET, tag=-1),
            "raw_value": lambda: aaautil.raw_value(2, SECRET),
            "set a NUL": lambda: Database("/cfg/x/").set("key", SECRET + "\\0"),
            "set bytes": lambda: Database("/cfg/x/").set("key", SECRET.encode()),
            "set a tuple": lambda: Database("/cfg/x/").set("key", (SECRET * 10,)),
            "apply": lambda: Database("/cfg/x/").apply([Set("key", SECRET, 1)]),
            "unknown key": lambda: messages.encode({"password": SECRET}),
            "encode a NaN": lambda: messages.encode({"name": SECRET, "pairs": float("nan")}),
            "encode bytes": lambda: messages.encode({"name": SECRET.encode(), "pairs": []}),
            "encode a text": lambda: messages.encode('list\\npair PASSWORD "x" ' + SECRET),
            "decode": lambda: messages.decode(SECRET),
            "unhex": lambda: messages.unhex(SECRET),
            "hash": lambda: hash_of(SECRET + "\\ud800"),
        }
        @pytest.mark.parametrize("name", CALLS)
        def test_it(name):
            CALLS[name]()
        """, "-p", "aaautil_pytest", "--tb=long", "--showlocals", "-vv")
    assert "20 failed" in output, output
    for part in ("wonderland", "b'wonder"):
        assert part not in output, (part, output)


def records():
    """An object of every public type that can hold a secret."""
    pair = Attribute.of("PASSWORD", SECRET)
    plain = SECRET.encode() + b"\0"
    made = AttributeList([("USERNAME", "alice"), pair], name="x")
    item = Item(ItemType.STRING, plain)
    return [pair, pair._replace(tag=1), pair._replace(raw=plain), Attribute._make(pair), pair.raw, made, made[1:], made.copy(), item,
            item._replace(type=77), item._replace(raw=plain), Item._make(item), Set("x", SECRET), Set("x", plain, 77), Expect("x", plain, 77),
            Expect("x", SECRET), Change("set", "x", item, 1), Answer(Status.PASS, "", 1, made), Set("x", bytearray(plain), 5)]


def test_no_way_to_print_a_record_shows_its_secret():
    class Keeper(logging.Handler):
        def __init__(self):
            super().__init__()
            self.lines = []

        def emit(self, record):
            self.lines.append(self.format(record))

    keeper = Keeper()
    logger = logging.getLogger("test_secrets")
    logger.addHandler(keeper)
    logger.propagate = False
    for one in [*records(), AttributeList([("PASSWORD", SECRET)]).native()]:
        logger.error("%s %r %a", one, one, one)
        logger.error("%s", {"a": [one]})
        try:
            raise ValueError(one)
        except ValueError:
            logger.exception("x")
        shown = [*keeper.lines, repr(one), str(one), ascii(one), f"{one}", f"{one!r}", f"{[one]}", "{}".format(one), pprint.pformat(one),
                 pprint.pformat({"x": (one,)}, width=10), reprlib.repr(one), reprlib.repr([one])]
        try:
            unittest.TestCase().assertEqual(one, object())
        except AssertionError as failure:
            shown += ["".join(traceback.format_exception(type(failure), failure, failure.__traceback__))]
        assert not [text for text in shown if "wonder" in text or "119, 111" in text], (type(one), shown)
        keeper.lines.clear()


@pytest.mark.parametrize("again", [copy.copy, copy.deepcopy, *(
    lambda one, protocol=protocol: pickle.loads(pickle.dumps(one, protocol)) for protocol in range(pickle.HIGHEST_PROTOCOL + 1))],
    ids=["copy", "deepcopy", *map(str, range(pickle.HIGHEST_PROTOCOL + 1))])
def test_copies_are_equal_and_show_as_little(again):
    others = [Delete("x"), Prune("x/"), Set("x", 5), Set("x", (1, "a")), Expect("x", None), Prompt(Status.GETPASS, "x", False),
              *aaautil.attributes(), aaautil.advice(aaautil.ResultCode.AAA_ERR_NOMEM), Status.PASS, aaautil.Attr.AAA_USERNAME_ATTR,
              aaautil.Entry("x/", ItemType.DIRECTORY)]
    for one in [*records(), *others]:
        other = again(one)
        assert type(other) is type(one) and other == one and repr(other) == repr(one) and str(other) == str(one)
        for name in ("raw", "value", "item"):
            assert type(getattr(other, name, None)) is type(getattr(one, name, None))


@pytest.mark.parametrize("make", [lambda: Client("/nonexistent"), lambda: Database("/cfg/x/"), lambda: AttributeList().native()])
def test_what_the_library_holds_is_neither_copied_nor_pickled(make):
    for use in (copy.copy, copy.deepcopy, pickle.dumps):
        with pytest.raises(TypeError, match="make another one"):
            use(make())


def test_planned_changes_of_different_kinds_differ():
    kinds = [Delete("x"), Prune("x"), Set("x", None), Expect("x", None), Set("x", 1), Expect("x", 1)]
    assert len(set(kinds)) == len(kinds)
    for one in kinds:
        assert [other for other in kinds if other == one] == [one] and one != ("x",) and one != ("x", 1, None)
        with pytest.raises(AttributeError, match="make another one"):
            one.path = "y"
        with pytest.raises(AttributeError, match="make another one"):
            del one.path
        with pytest.raises(AttributeError):
            one.other = 1
    one = Set(path="x", value=1, type=None)
    assert (one.path, one.value, one.type) == ("x", 1, None) and one == Set("x", 1) and hash(one) == hash(Set("x", 1))
    assert Set.__match_args__ == ("path", "value", "type") and repr(Delete("x")) == "Delete('x')" and repr(Prune("x/")) == "Prune('x/')"
    with pytest.raises(TypeError):
        hash(Set("x", [1]))


@pytest.mark.parametrize("description, named", [
    ({"password": SECRET}, "'password'"), ({"name": "x", "pairs": [], "key": {"a": SECRET}}, "'key'"),
    ({"kind": "list", "parts": [{"part": "list", "pairs": [{"type": 258, "text": SECRET, "secret": SECRET}]}]}, "'secret'"),
    ({"kind": "list", "parts": [{"part": "list", "fields": {"nmae": SECRET}}]}, "nmae"),
    ({"name": "x", "pairs": [{"attribute": "PASSWORD", "text": SECRET, "number": 1}]}, "pairs/0"),
    ({"name": "x", "pairs": [{"attribute": "PASSWORD", "number": SECRET}]}, "pairs/0"),
    ({"name": "x", "pairs": [{"attribute": "PASSWORD", "hex": SECRET}]}, "pairs/0"),
    ({"name": "x", "pairs": SECRET}, "pairs"), ({"name": SECRET.encode(), "pairs": []}, "bytes"), ({("x", SECRET): 1}, "tuple"),
    (f'{{"name": "{SECRET}" "pairs": []}}', "malformed JSON at byte"), (f'list\npair PASSWORD {SECRET}', "line 2"),
    (f'list\npair PASSWORD "x" {SECRET}', "word 4"), ('list\npair PASSWORD hex:01 776f6e646572 6c616e64', "word 4"),
    (f'list\npair PASSWORD "x" tag={SECRET}', "line 2"), (f'list\nname = {SECRET}', "line 2")])
def test_a_refused_description_names_the_place_and_no_value(description, named):
    with pytest.raises((ValueError, TypeError)) as failure:
        messages.encode(description)
    text = "".join(traceback.format_exception(failure.type, failure.value, None))
    assert named in text and "wonder" not in text and "6f6e" not in text, text
    assert failure.value.__cause__ is None and failure.value.__context__ is None


def test_a_secret_is_still_one_after_every_way_to_take_a_part_of_it():
    secret = SecretBytes(SECRET.encode())
    for part in (secret[:], secret[1:], secret[::2], secret[-3:]):
        assert type(part) is SecretBytes and repr(part) == "'********'"


def test_what_is_made_by_hand_of_anything_has_a_text_and_hides_its_secret():
    plain = SECRET.encode()
    for raw in (plain, bytearray(plain), memoryview(plain), SECRET, None, 5, [plain], b"", b"\0", b"x" * 65536):
        for type in (ItemType.STRING, ItemType.U32, ItemType.TUPLE, 77, -1, "x", None):
            assert "wonder" not in repr(Item(type, raw))
        for type in (257, 258, 4711, -1, "x", None):
            repr(Attribute(type, 0, 0, raw))
        assert "wonder" not in repr(Attribute(258, 0, 0, raw))
    for raw in (plain, bytearray(plain), memoryview(plain)):
        assert "wonder" not in repr(tuple(Attribute(258, 0, 0, raw))) + repr(tuple(Item(ItemType.STRING, raw)))
        assert aaautil.typed_value(258, raw) == SECRET
    for wrong in (SECRET, None, [plain]):
        with pytest.raises(TypeError, match="bytes"):
            aaautil.typed_value(258, wrong)


def test_a_single_change_is_not_taken_for_several(database):
    with pytest.raises(TypeError, match="several"):
        database.apply(Set("x", SECRET))
