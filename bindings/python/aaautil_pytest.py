# SPDX-License-Identifier: Apache-2.0
"""Fixtures of pytest for programs that use the AAA service.

aaa_testkit   the scripted host platform, reset; needs --aaa-testkit or aaa_testkit = true in the
              configuration, because it takes the place of the host for the whole process
aaad          a private service that runs, with the users alice and bob
aaad_stopped  the same, to be started by the test

Comparisons of attributes, items and changes that fail are explained without their values: pytest would
show passwords and keys.

This file is not part of the package, so that pytest can load it before the package loads the
libraries.
"""

from __future__ import annotations  # pytest before 7 lacks some of the types

import os
import sys
from typing import TYPE_CHECKING, Iterator, List, Optional, Tuple

import pytest

if TYPE_CHECKING:
    from aaautil.private import PrivateService
    from aaautil.testkit import Testkit


def pytest_addoption(parser: pytest.Parser) -> None:
    """Adds the option and the setting."""
    group = parser.getgroup("aaautil")
    group.addoption("--aaa-testkit", action="store_true", default=False,
                    help="put the scripted host platform in the place of this machine, for the fixture aaa_testkit")
    parser.addini("aaa_testkit", "as --aaa-testkit", type="bool", default=False)


@pytest.hookimpl(tryfirst=True)  # type: ignore[misc]
def pytest_load_initial_conftests(early_config: pytest.Config) -> None:
    """Chooses the platform before a conftest.py can import the package."""
    if early_config.known_args_namespace.aaa_testkit or early_config.getini("aaa_testkit"):
        if "aaautil._load" in sys.modules and os.environ.get("AAAUTIL_TESTKIT") != "1":
            raise pytest.UsageError("--aaa-testkit: aaautil was imported before; a plugin that imports it is loaded too early")
        os.environ["AAAUTIL_TESTKIT"] = "1"


def pytest_assertrepr_compare(op: str, left: object, right: object) -> Optional[List[str]]:
    """Explains why records that may hold a secret differ."""
    package = sys.modules.get("aaautil")
    if op != "==" or package is None:
        return None
    records = (package.Answer, package.Attribute, package.Change, package.Expect, package.Item, package.Set)
    if not isinstance(left, records) and not isinstance(right, records):
        return None
    lines = [f"{left!r} == {right!r}"]
    if type(left) is type(right):
        lines += [f"they differ in {field}" for field in _fields(left) if getattr(left, field) != getattr(right, field)]
    return lines


def _fields(record: object) -> Tuple[str, ...]:
    names: Tuple[str, ...] = getattr(record, "_fields", ()) or getattr(record, "__match_args__", ())
    return names


@pytest.fixture
def aaa_testkit(request: pytest.FixtureRequest) -> "Iterator[Testkit]":
    """The scripted host platform. A misuse of the platform fails the test."""
    if os.environ.get("AAAUTIL_TESTKIT") != "1":
        pytest.fail("the fixture aaa_testkit needs the option --aaa-testkit, or aaa_testkit = true in the configuration of pytest")
    from aaautil.testkit import Testkit

    kit = Testkit()
    kit.reset()
    yield kit
    misuse = kit.misuse
    kit.reset()
    assert not misuse, f"the platform was misused: {misuse}"


@pytest.fixture
def aaad_stopped() -> "Iterator[PrivateService]":
    """A private service, to be started by the test."""
    from aaautil.private import PrivateService

    with PrivateService() as service:
        yield service


@pytest.fixture
def aaad(aaad_stopped: "PrivateService") -> "PrivateService":
    """A private service that runs."""
    aaad_stopped.start()
    return aaad_stopped
