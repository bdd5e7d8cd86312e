# SPDX-License-Identifier: Apache-2.0
"""The system database: a real one, in a directory of the tests."""

import asyncio
import os
import threading

import pytest

import aaautil
from aaautil import Change, Database, Delete, Entry, Expect, Item, ItemType, Prune, Set
from support import in_child, run_python


def test_values_of_every_type_come_back(database):
    values = {"number": 0xFFFFFFFF, "text": "ålice", "empty": "", "tuple": (1, -2, "name", ""), "list": (3,)}
    for name, value in values.items():
        database.set(name, value)
        assert database.get(name) == value
    database.set("list", [3])
    database.set("bytes", b"\0\x01", type=77)
    assert database.get("bytes") == b"\0\x01" and database.get_item("bytes") == Item(77, b"\0\x01")
    database.set("none", b"", type=78)
    assert database.get("none") == b""
    assert dict((path, item.value) for path, item in database.walk()) == {**values, "bytes": b"\0\x01", "none": b""}


def test_what_does_not_exist_is_not_found(database):
    for use in (lambda: database.get("x"), lambda: database.delete("x"), lambda: database.list("x/")):
        with pytest.raises(aaautil.NotFoundError) as failure:
            use()
        assert isinstance(failure.value, LookupError) and "x" in str(failure.value)
    assert "x" not in database


def test_the_type_can_be_expected(database):
    database.set("number", 1)
    assert database.get("number", ItemType.U32) == 1
    with pytest.raises(aaautil.InvalidArgumentError):
        database.get("number", ItemType.STRING)


@pytest.mark.parametrize("value, type, failure", [
    (True, None, TypeError), (-1, None, ValueError), (1 << 32, None, ValueError), (1.5, None, TypeError), (None, None, TypeError),
    ("a\0b", None, ValueError), (b"x", None, TypeError), (1, ItemType.STRING, TypeError), ((), None, ValueError),
    ((1.5,), None, TypeError), ((1 << 32,), None, ValueError), (("x" * 50,), None, ValueError), ((True,), None, TypeError),
    ((1,) * 256, None, ValueError), (b"abc", ItemType.U32, ValueError), (b"no NUL", ItemType.STRING, ValueError),
    (b"xx", ItemType.TUPLE, ValueError), (b"x" * ((1 << 20) + 1), 99, ValueError), (b"x", -1, ValueError), (b"x", "3", TypeError)])
def test_a_value_that_does_not_fit_is_refused_and_nothing_changes(database, value, type, failure):
    database.set("item", "kept")
    with pytest.raises(failure):
        database.set("item", value, type)
    with pytest.raises(failure):
        database.apply([Set("item", "changed"), Set("item", value, type)])
    assert database.get("item") == "kept"


@pytest.mark.parametrize("path", ["", "/absolute", "a//b", "a\nb", "directory/", "x" * 600, ".." * 300])
def test_a_bad_path_is_refused(database, path):
    with pytest.raises(aaautil.AaaError):
        database.set(path, 1)
    with pytest.raises(ValueError):
        database.set("a\0b", 1)
    with pytest.raises(aaautil.AaaError):
        Database("relative/")


def test_directories_are_listed_in_order(database):
    for path in ("b", "a/x", "0x10", "0x9", "a/y/z"):
        database.set(path, 1)
    database.make_directory("empty/")
    assert database.list() == [Entry("0x9", 1), Entry("0x10", 1), Entry("a/", ItemType.DIRECTORY), Entry("b", 1),
                               Entry("empty/", ItemType.DIRECTORY)]
    assert [entry.name for entry in database.list("a/")] == ["x", "y/"]
    assert [entry.name for entry in database.list("", "0x*")] == ["0x9", "0x10"]
    assert database.list("empty/") == [] and database.list()[-1].is_directory
    assert [path for path, _ in database.walk()] == ["0x9", "0x10", "a/x", "a/y/z", "b"]
    database.delete("a/", tree=True)
    assert "a/x" not in database


def test_changes_are_made_as_one(database):
    database.set("kept", 1)
    database.set("old/x", 1)
    database.set("old/y", 2)
    database.apply([Expect("kept", 1), Expect("missing", None), Set("new", ("a", 1)), Delete("kept"), Prune("old/"), Set("old/y", 2)])
    assert dict((path, item.value) for path, item in database.walk()) == {"new": ("a", 1), "old/y": 2}
    with pytest.raises(aaautil.ConflictError) as failure:
        database.apply([Set("other", 1), Expect("new", "something else")])
    assert failure.value.failed == 1 and "new" in str(failure.value)
    assert "other" not in database
    with pytest.raises(aaautil.NotFoundError) as failure:
        database.apply([Set("other", 1), Delete("missing")])
    assert failure.value.failed == 1 and "other" not in database
    database.apply([])
    database.apply(iter([Set("other", 1)]))
    for wrong in ([1], [("other", 1)], 5, None):
        with pytest.raises(TypeError):
            database.apply(wrong)


def test_a_program_that_only_reads_creates_nothing(tmp_path):
    code = ("import aaautil\ntry:\n    aaautil.Database('/cfg/', existing=True)\nexcept aaautil.NotFoundError:\n    print('none')")
    assert run_python(code, AAA_SYSDB_CFG_DIR=str(tmp_path / "cfg"), AAA_SYSDB_RUN_DIR=str(tmp_path / "run")) == "none\n"
    assert list(tmp_path.iterdir()) == []


def test_a_missing_provider_is_named_with_a_remedy():
    code = "import aaautil\ntry:\n    aaautil.Database()\nexcept aaautil.AaaError as failure:\n    print(failure.name, failure.remedy)"
    assert run_python(code, AAA_SYSDB_PROVIDER="/nonexistent/provider.so").startswith("SYSDB_ERR_LIB_ABSENT ")


def test_threads_share_a_connection(database):
    def work(number):
        for turn in range(20):
            database.set(f"thread{number}", turn)
            assert database.get(f"thread{number}") == turn

    threads = [threading.Thread(target=work, args=(number,)) for number in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert [database.get(f"thread{number}") for number in range(4)] == [19] * 4


def test_a_forked_child_uses_the_connection(database):
    database.set("parent", 1)

    def body():
        database.set("child", database.get("parent") + 1)
        return database.get("child")

    assert in_child(body) == "2"
    assert database.get("child") == 2


# ---- watches

def test_a_watch_reports_changes(database):
    with database.watch() as watch:
        assert watch.poll() == []
        database.set("a", 1)
        database.set("a", 2)
        database.set("d/b", "text")
        database.delete("d/b")
        found = {change.path: change for change in watch.poll(None)}
        assert found["a"].value == 2 and found["a"].operation in ("create", "set")
        assert found["d/b"].operation == "delete" and found["d/b"].value is None
        database.set("a", 3)
        assert [(change.operation, change.path, change.value) for change in watch.poll(None)] == [("set", "a", 3)]
    with pytest.raises(ValueError, match="closed"):
        watch.poll()


def test_a_watch_begins_with_what_there_is(database):
    database.set("a", 1)
    with database.watch("a", initial=True) as watch:
        assert [change.value for change in watch.poll(None)] == [1]
    with database.watch("", initial=True) as watch:
        assert [change.operation for change in watch.poll(None)] == ["reread"]


def test_changes_of_another_process_arrive(database):
    with database.watch("other/") as watch:
        run_python("import aaautil; aaautil.Database('/cfg/test/').set('other/x', 'from another process')")
        assert [(change.path, change.value) for change in watch.poll(None)] == [("other/x", "from another process")]


def test_a_watch_is_an_asynchronous_iterator(database):
    async def main():
        seen = []

        async def reader(watch):
            async for change in watch:
                seen.append((change.path, change.value))
                if change.value == 5:
                    return

        async with database.watch() as watch, database.watch("n") as one:
            task = asyncio.create_task(reader(watch))
            other = asyncio.create_task(reader(one))
            for number in range(6):
                await asyncio.to_thread(database.set, "n", number)
                await asyncio.sleep(0)
            await asyncio.wait_for(asyncio.gather(task, other), 60)
        return seen

    seen = asyncio.run(main())
    assert seen.count(("n", 5)) == 2 and all(path == "n" for path, _ in seen)


def test_closing_a_watch_ends_the_loop_that_waits_for_it(database):
    async def main():
        watch = database.watch()

        async def reader():
            return [change async for change in watch]

        task = asyncio.create_task(reader())
        await asyncio.sleep(0)
        await asyncio.sleep(0)
        second = asyncio.create_task(reader())
        with pytest.raises(RuntimeError, match="another task"):
            await second
        watch.close()
        return await asyncio.wait_for(task, 60)

    assert asyncio.run(main()) == []


def test_closing_a_watch_ends_the_wait_of_another_thread(database):
    for timeout in (None, 3600):
        watch = database.watch()
        found = []
        thread = threading.Thread(target=lambda: found.append(watch.poll(timeout)))
        thread.start()
        while watch._end_of_wait is None:  # until it waits
            os.sched_yield()
        with pytest.raises(RuntimeError, match="another thread waits"):
            watch.poll(None)
        watch.close()
        thread.join()
        assert found == [[]]
        with pytest.raises(ValueError, match="closed"):
            watch.poll()


def test_closing_a_watch_in_another_thread_ends_the_loop_that_waits_for_it(database):
    watch = database.watch()

    async def follow():
        async for change in watch:
            return change
        return "ended"

    def close():
        while watch._waiter is None:
            os.sched_yield()
        watch.close()

    thread = threading.Thread(target=close)
    thread.start()
    assert asyncio.run(follow()) == "ended"
    thread.join()
    before = len(os.listdir("/proc/self/fd"))
    for _ in range(10):
        test = database.watch()
        test.poll(0.001)
        test.close()
    assert len(os.listdir("/proc/self/fd")) == before


def test_repr_shows_no_text_of_an_item(database):
    database.set("server/key", "wonderland")
    item = database.get_item("server/key")
    watch = database.watch()
    database.set("server/key", "looking-glass")
    shown = [repr(one) for one in (item, Set("x", "wonderland"), Set("x", b"wonderland", 77), Expect("x", bytearray(b"wonderland")),
                                   *watch.poll(None), dict(database.walk()), aaautil.Item(77, b"wonderland"),
                                   aaautil.Item(ItemType.TUPLE, b"wonderland"))]
    assert not [one for one in shown if "wonderland" in one or "looking" in one], shown
    assert repr(Set("x", 5)) == "Set('x', 5)" and repr(Expect("x", None)) == "Expect('x', None)"
    assert repr(Set("x", b"k", 77)) == "Set('x', '********', type=77)"
    assert repr(aaautil.Item(ItemType.U32, (7).to_bytes(4, "little"))) == "Item(type=1, value=7)"


def test_the_bytes_of_an_item_are_not_shown_but_its_value_is(database):
    database.set("text", "wonderland")
    database.set("other", b"wonderland", 77)
    database.set("number", 7)
    database.set("tuple", (1, "vty"))
    for path, value in (("text", "wonderland"), ("other", b"wonderland")):
        item = database.get_item(path)
        assert type(item.raw) is aaautil.SecretBytes and "wonder" not in repr(tuple(item))
        assert item.value == value and type(item.value) is type(value) and "wonderland" in repr(item.value)
        database.set(path + "-copy", item.raw, item.type)
        assert database.get_item(path + "-copy") == item
    assert type(database.get_item("number").raw) is bytes and type(database.get_item("tuple").raw) is bytes


def test_a_tuple_has_a_limit_that_is_named(database):
    database.set("t", (1,) * 255)
    assert database.get("t") == (1,) * 255
    for fields, text in (((1,) * 256, "255 fields, not 256"), ((), "255 fields, not 0"), (("n" * 50,), "50 bytes; at most 49")):
        with pytest.raises(ValueError, match=text):
            database.set("t", fields)


def test_a_cancelled_reader_loses_nothing(database):
    async def main():
        async with database.watch() as watch:
            task = asyncio.create_task(watch.__anext__())
            await asyncio.sleep(0)
            task.cancel()
            with pytest.raises(asyncio.CancelledError):
                await task
            database.set("x", 1)
            return await asyncio.wait_for(watch.__anext__(), 60)

    change = asyncio.run(main())
    assert isinstance(change, Change) and change.path == "x"


def test_a_watch_belongs_to_the_process_that_made_it(database):
    with database.watch() as watch:
        def body():
            with pytest.raises(RuntimeError, match="fork"):
                watch.poll()
            with pytest.raises(RuntimeError, match="fork"):
                watch.fileno()
            with database.watch() as own:
                database.set("child", 1)
                assert [change.path for change in own.poll(None)] == ["child"]
            watch.close()
            return "done"

        assert in_child(body) == "done"
        database.set("parent", 1)
        seen = []
        while "parent" not in seen:
            seen += [change.path for change in watch.poll(None)]


def test_a_watch_that_is_dropped_leaves_nothing(database):
    import gc

    before = len(os.listdir("/proc/self/fd"))
    for _ in range(20):
        database.watch()
    gc.collect()
    assert len(os.listdir("/proc/self/fd")) <= before + 3
