# SPDX-License-Identifier: Apache-2.0
"""The package has types, and they are right: mypy finds nothing in it, and finds misuse of it."""

import os
import subprocess
import sys

import pytest

from support import missing

PACKAGE = os.path.join(os.environ["AAAUTIL_BUILD_DIR"], "bindings/python/package")

USE = """\
import asyncio
from typing import List, Optional

from aaautil import Attr, AttributeList, Client, Database, Prompt, Set, Value


def ask(prompt: Prompt) -> Optional[str]:
    return input(prompt.text) if prompt.echo else None


def use() -> List[Value]:
    attributes = AttributeList([("USERNAME", "alice")], name="login")
    tag: int = attributes[0].tag
    part: AttributeList = attributes[0:1]
    value: Value = attributes[Attr.AAA_USERNAME_ATTR]
    message: bytes = part.pack()
    with Client() as client, Database() as database:
        if client.login("alice", "secret", prompt=ask).accepted:
            database.apply([Set("x", 1)])
    return [tag, value, message]


async def watch(database: Database) -> None:
    async with database.watch("gl/aaa/") as changes:
        async for change in changes:
            print(change.operation, change.path, change.value)
"""


@pytest.fixture(scope="session")
def cache(tmp_path_factory):
    """What mypy knows of the standard library after the first run."""
    return tmp_path_factory.mktemp("cache")


def mypy(*arguments, cwd, cache, path=None):
    try:
        import mypy  # noqa: F401
    except ImportError:
        missing("python3-mypy")
    environment = {**os.environ, "MYPYPATH": path or ""}
    environment.pop("PYTHONPATH")
    return subprocess.run([sys.executable, "-m", "mypy", "--strict", "--cache-dir", str(cache), *arguments], cwd=cwd, env=environment,
                          capture_output=True, text=True)


def test_mypy_finds_nothing_in_the_package(tmp_path, cache):
    done = mypy(os.path.join(PACKAGE, "aaautil"), os.path.join(PACKAGE, "aaautil_pytest.py"), cwd=tmp_path, cache=cache)
    assert done.returncode == 0, done.stdout


def test_mypy_finds_nothing_in_a_program_that_uses_it(tmp_path, cache):
    (tmp_path / "use.py").write_text(USE)
    done = mypy("use.py", cwd=tmp_path, cache=cache, path=PACKAGE)
    assert done.returncode == 0, done.stdout


def test_mypy_finds_misuse(tmp_path, cache):
    wrong = ["AttributeList(5)", "AttributeList.unpack('text')", "AttributeList().pack().nonsense", "Client(5)", "Client().login(5)",
             "Database().get(5)", "Database().set('x', 1.5)", "Database().apply([1])"]
    first = len(USE.splitlines()) + 1
    (tmp_path / "use.py").write_text(USE + "".join(f"x{number} = {one}\n" for number, one in enumerate(wrong)))
    done = mypy("use.py", cwd=tmp_path, cache=cache, path=PACKAGE)
    for number, one in enumerate(wrong):
        assert f"use.py:{first + number}: error" in done.stdout, (one, done.stdout)
