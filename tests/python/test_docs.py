# SPDX-License-Identifier: Apache-2.0
"""Every example of docs/python.md runs, with the output that it shows.

Blocks of Python are run in their order, in one process, next to a private service whose socket and
database they find. A comment "# -> text" after a line is what the line prints. Blocks of a shell
that begin with "python3 -m aaautil" are run too.
"""

import io
import os
import re
import subprocess
import sys
import textwrap
from contextlib import redirect_stdout

from support import TREE

TEXT = (TREE / "docs/python.md").read_text()


def blocks(language):
    return re.findall(rf"^```{language}\n(.*?)^```$", TEXT, re.DOTALL | re.MULTILINE)


def test_examples_in_python_print_what_they_say(aaad_stopped, tmp_path, monkeypatch):
    import aaautil

    aaad_stopped.method_list("authentication/login/default", [aaautil.Method.LOCAL])
    aaad_stopped.method_list("authorization/commands/default", [aaautil.Method.NONE])
    aaad_stopped.start()
    monkeypatch.chdir(tmp_path)
    # The examples name the usual socket, and a service that runs as root or aaad.
    made = aaautil.Client.__init__

    def init(self, socket=aaad_stopped.socket, **options):
        made(self, aaad_stopped.socket if socket.startswith("/run/") else socket, **{"servers": (os.geteuid(),), **options})

    monkeypatch.setattr(aaautil.Client, "__init__", init)
    names = {"__name__": "example"}
    found = blocks("python")
    assert len(found) >= 8
    for number, block in enumerate(found, 1):
        if "def test_" in block:
            continue  # by pytest, below
        printed = io.StringIO()
        with redirect_stdout(printed):
            exec(compile(block, f"docs/python.md, block {number}", "exec"), names)
        expected = [line.strip() for line in re.findall(r"# -> (.*)$", block, re.MULTILINE)]
        assert printed.getvalue().splitlines() == expected, f"block {number}:\n{block}"


def test_examples_for_pytest_pass(tmp_path):
    tests = [block for block in blocks("python") if "def test_" in block]
    assert tests
    (tmp_path / "test_example.py").write_text("\n\n".join(tests))
    environment = {name: value for name, value in os.environ.items() if name != "AAAUTIL_TESTKIT"}
    done = subprocess.run([sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", "-p", "aaautil_pytest", "--aaa-testkit",
                           "test_example.py"], cwd=tmp_path, env=environment, capture_output=True, text=True, timeout=120)
    assert done.returncode == 0 and f"{sum(block.count('def test_') for block in tests)} passed" in done.stdout, done.stdout


def test_examples_of_the_command_run(tmp_path):
    commands = [line for block in re.findall(r"(?:^    .*\n)+", TEXT, re.MULTILINE) for line in textwrap.dedent(block).splitlines()
                if line.startswith("python3 -m aaautil")]
    assert len(commands) >= 2
    import aaautil

    (tmp_path / "message.bin").write_bytes(aaautil.AttributeList([("USERNAME", "alice")]).pack())
    for command in commands:
        done = subprocess.run(command.replace("python3", sys.executable, 1), shell=True, cwd=tmp_path, capture_output=True, text=True)
        assert done.returncode == 0 and done.stdout, (command, done.stderr)


def test_every_public_name_is_mentioned():
    import aaautil

    missing = [name for name in aaautil.__all__ if not re.search(rf"\b{name}\b", TEXT)]
    assert missing == []
