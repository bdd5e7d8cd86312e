# SPDX-License-Identifier: Apache-2.0
"""The package has types, and they are right: mypy finds nothing in it, and finds misuse of it."""

import importlib.util
import os
import pathlib
import re
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


# Each line is wrong.
WRONG = ["AttributeList(5)", "AttributeList.unpack('text')", "AttributeList().pack().nonsense", "Client(5)", "Client().login(5)",
         "Database().get(5)", "Database().set('x', 1.5)", "Database().apply([1])"]


@pytest.fixture(scope="module")
def found(tmp_path_factory):
    """What mypy finds in the package, in a program that uses it, and in one that misuses it: one run, because it is slow."""
    if importlib.util.find_spec("mypy") is None:
        missing("python3-mypy")
    folder = tmp_path_factory.mktemp("types")
    (folder / "use.py").write_text(USE)
    (folder / "misuse.py").write_text("from aaautil import AttributeList, Client, Database\n" + "".join(
        f"x{number} = {one}\n" for number, one in enumerate(WRONG)))
    environment = {**os.environ, "MYPYPATH": PACKAGE}
    environment.pop("PYTHONPATH")
    done = subprocess.run([sys.executable, "-m", "mypy", "--strict", "--cache-dir", str(folder / "cache"), "-p", "aaautil", "-m",
                           "aaautil_pytest", "-m", "use", "-m", "misuse"], cwd=folder, env=environment, capture_output=True, text=True)
    assert done.returncode == 1, done.stdout + done.stderr
    return done.stdout.splitlines()


def test_mypy_finds_nothing_in_the_package_nor_in_a_program_that_uses_it(found):
    assert [line for line in found if not line.startswith(("misuse.py:", "Found "))] == []
    checked = int(re.search(r"checked (\d+) source files", found[-1]).group(1))
    assert checked == len(list(pathlib.Path(PACKAGE, "aaautil").glob("*.py*"))) + 3, "the package's files, and three more"


def test_mypy_finds_misuse(found):
    for number, one in enumerate(WRONG, 2):
        assert any(line.startswith(f"misuse.py:{number}: error") for line in found), (one, found)
