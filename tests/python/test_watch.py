# SPDX-License-Identifier: Apache-2.0
"""Watches of the system database that are closed, dropped or left alone by the loop that waited for them."""

import asyncio
import gc
import os
import threading

import pytest

from support import run_python


def held():
    """Descriptors and threads of this process."""
    gc.collect()
    return len(os.listdir("/proc/self/fd")), len(os.listdir("/proc/self/task"))


def waiting_task(loop, watch):
    """A task that waits for the watch, in a loop that has stopped."""
    task = loop.create_task(watch.__anext__())
    task._log_destroy_pending = False
    while watch._waiter is None:
        loop.call_soon(loop.stop)
        loop.run_forever()
    return task


def closed(database):
    database.watch().close()


def closed_after_changes(database):
    with database.watch(initial=True) as watch:
        database.set("x", 1)
        watch.poll(None)
        database.set("x", 2)


def dropped(database):
    database.watch()


def refused(database):
    with pytest.raises(ValueError):
        database.watch("a//b")


def waited_for_in_a_loop(database):
    async def main():
        async with database.watch() as watch:
            task = asyncio.create_task(watch.__anext__())
            while watch._waiter is None:
                await asyncio.sleep(0)
            watch.close()
            with pytest.raises(StopAsyncIteration):
                await task

    asyncio.run(main())


def closed_by_another_thread(database):
    watch = database.watch()

    def close():
        while watch._waiter is None:
            os.sched_yield()
        watch.close()

    async def main():
        return [change async for change in watch]

    thread = threading.Thread(target=close)
    thread.start()
    assert asyncio.run(main()) == []
    thread.join()


def closed_while_its_loop_is_stopped(database):
    loop, watch = asyncio.new_event_loop(), database.watch()
    task = waiting_task(loop, watch)
    watch.close()
    loop.close()
    del task


def closed_while_its_loop_is_stopped_which_goes_on(database):
    loop, watch = asyncio.new_event_loop(), database.watch()
    task = waiting_task(loop, watch)
    watch.close()
    with pytest.raises((StopAsyncIteration, RuntimeError)):  # a task has the second
        loop.run_until_complete(task)
    loop.close()


def closed_after_its_loop(database):
    loop, watch = asyncio.new_event_loop(), database.watch()
    task = waiting_task(loop, watch)
    loop.close()
    watch.close()
    del task


def dropped_after_its_loop(database):
    loop, watch = asyncio.new_event_loop(), database.watch()
    waiting_task(loop, watch)
    loop.close()


def closed_when_its_loop_ends(database):
    """The loop has been told that the watch was closed, and is closed before it could listen."""
    watch = database.watch()

    async def main():
        task = asyncio.create_task(watch.__anext__())
        task._log_destroy_pending = False
        while watch._waiter is None:
            await asyncio.sleep(0)
        thread = threading.Thread(target=watch.close)
        thread.start()
        thread.join()
        asyncio.get_running_loop().stop()  # in this turn

    loop = asyncio.new_event_loop()
    loop.create_task(main())
    loop.run_forever()
    loop.close()


@pytest.mark.parametrize("use", [
    closed, closed_after_changes, dropped, refused, waited_for_in_a_loop, closed_by_another_thread, closed_while_its_loop_is_stopped,
    closed_while_its_loop_is_stopped_which_goes_on, closed_after_its_loop, dropped_after_its_loop, closed_when_its_loop_ends],
    ids=lambda use: use.__name__)
def test_a_watch_leaves_nothing(database, use):
    use(database)
    before = held()
    for _ in range(30):
        use(database)
    assert held() == before


def test_a_watch_whose_loop_was_closed_serves_another_one(database):
    loop, watch = asyncio.new_event_loop(), database.watch()
    task = waiting_task(loop, watch)
    loop.close()  # the task still waits, and will wait for ever

    async def follow(value):
        waiting = asyncio.create_task(watch.__anext__())
        for _ in range(3):
            await asyncio.sleep(0)
        database.set("x", value)
        change = await waiting
        return change.path, change.value

    for value in (6, 7):
        assert asyncio.run(follow(value)) == ("x", value)
    database.set("x", 8)
    assert [change.value for change in watch.poll(None)] == [8]
    del task
    gc.collect()
    database.set("x", 9)
    assert [change.value for change in watch.poll(None)] == [9]
    watch.close()


def test_closing_watches_of_a_closed_loop_in_a_thread_disturbs_no_other_watch(database):
    loop = asyncio.new_event_loop()
    watches = [database.watch() for _ in range(3)]
    tasks = [waiting_task(loop, watch) for watch in watches]
    loop.close()
    raised = []

    def close():
        try:
            for watch in watches:
                watch.close()
        except BaseException as failure:
            raised.append(failure)

    async def main():
        async with database.watch() as other:
            task = asyncio.create_task(other.__anext__())
            while other._waiter is None:
                await asyncio.sleep(0)
            thread = threading.Thread(target=close)
            thread.start()
            thread.join()
            database.set("x", 1)
            return (await task).path

    assert asyncio.run(main()) == "x" and raised == []
    del tasks


def test_a_waiter_in_a_forked_child_says_so_each_time(database):
    from support import in_child

    watch = database.watch()

    def body():
        async def main():
            for _ in range(2):
                with pytest.raises(RuntimeError, match="fork"):
                    await watch.__anext__()

        asyncio.run(main())
        return "done"

    assert in_child(body) == "done"
    watch.close()


@pytest.mark.parametrize("timeout, failure", [
    ("1", TypeError), (True, TypeError), (b"", TypeError), (1j, TypeError), (float("nan"), ValueError)])
def test_a_timeout_is_a_number_of_seconds(database, timeout, failure):
    with database.watch() as watch:
        with pytest.raises(failure, match="seconds"):
            watch.poll(timeout)
        database.set("x", 1)
        for number, endless in enumerate((1e300, 1 << 80, float("inf"))):
            database.set("x", 2 + number)
            assert watch.poll(endless)
        for none in (0, -1, float("-inf")):
            assert watch.poll(none) == []


def test_nothing_is_reported_by_the_development_mode():
    code = """
import asyncio, gc, os, sys, tempfile, threading
import aaautil

async def main(watch):
    task = asyncio.create_task(watch.__anext__())
    await asyncio.sleep(0)
    task.cancel()
    try:
        await task
    except asyncio.CancelledError:
        pass
    database.set("x", 1)
    assert (await watch.__anext__()).path == "x"

unraisable = []
sys.unraisablehook = unraisable.append
with aaautil.Database("/cfg/dev/") as database:
    with database.watch() as watch:
        asyncio.run(main(watch), debug=True)
    loop, watch = asyncio.new_event_loop(), database.watch()
    loop.set_debug(True)
    task = loop.create_task(watch.__anext__())
    task._log_destroy_pending = False
    loop.call_later(0, loop.stop)
    loop.run_forever()
    loop.close()
    del task
    gc.collect()
    watch.close()
    del watch
    gc.collect()
    aaautil.AttributeList([("PASSWORD", "x")]).native().pack()
    aaautil.messages.decode(aaautil.AttributeList([("PASSWORD", "x")]).pack())
assert unraisable == [], unraisable
"""
    run_python("import sys\nassert sys.flags.dev_mode\n" + code, PYTHONDEVMODE="1", PYTHONWARNINGS="error", PYTHONASYNCIODEBUG="1")
