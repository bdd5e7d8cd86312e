# SPDX-License-Identifier: Apache-2.0
"""A database of its own for each run of tests. The libraries read these variables when the first connection is made."""

import os
import shutil
import tempfile

import pytest

_directory = tempfile.mkdtemp(prefix="aaa-python-", dir="/dev/shm" if os.access("/dev/shm", os.W_OK) else None)
os.environ["AAA_SYSDB_CFG_DIR"] = os.path.join(_directory, "cfg")
os.environ["AAA_SYSDB_RUN_DIR"] = os.path.join(_directory, "run")


def pytest_unconfigure(config):
    shutil.rmtree(_directory, ignore_errors=True)


@pytest.fixture
def database():
    """A connection at a directory that is empty before and after the test."""
    import aaautil

    with aaautil.Database("/cfg/test/") as opened:
        yield opened
        opened.apply([aaautil.Prune("")])
