# SPDX-License-Identifier: Apache-2.0
"""A wheel is made without a network, and works in a virtual environment without the tree."""

import importlib.util
import os
import pathlib
import shutil
import subprocess
import sys
import zipfile

import pytest

from support import TREE, missing


def run(*command, timeout=250, **more):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=timeout, **more)
    assert done.returncode == 0, f"{command}\n{done.stdout}\n{done.stderr}"
    return done.stdout


def without_tree(**more):
    kept = {name: value for name, value in os.environ.items() if name not in ("PYTHONPATH", "AAAUTIL_TESTKIT")}
    libraries = os.pathsep.join(sorted({os.path.dirname(path) for path in os.environ["AAA_LIBRARIES"].split(":")}))
    return {**kept, "LD_LIBRARY_PATH": libraries, "PIP_DISABLE_PIP_VERSION_CHECK": "1", "PIP_NO_INDEX": "1", **more}


@pytest.fixture(scope="module")
def wheel(tmp_path_factory):
    for module in ("setuptools", "wheel", "pip", "venv"):
        if importlib.util.find_spec(module) is None:
            missing(f"python3-{module}")
    out = tmp_path_factory.mktemp("wheel")
    before = sorted(path.name for path in (TREE / "bindings/python").iterdir())
    run(sys.executable, "-m", "pip", "wheel", "--no-build-isolation", "--no-deps", "--no-index", "-w", out, TREE / "bindings/python",
        env=without_tree(), cwd=out)
    assert sorted(path.name for path in (TREE / "bindings/python").iterdir()) == before, "the tree was changed"
    [made] = out.iterdir()
    return made


def test_the_wheel_is_for_every_python_3_and_holds_the_package(wheel):
    assert "-cp39-abi3-linux_" in wheel.name
    names = zipfile.ZipFile(wheel).namelist()
    for name in ("__init__.py", "__main__.py", "py.typed", "_enums.py", "_native.abi3.so", "_native.pyi", "_testkit.abi3.so"):
        assert f"aaautil/{name}" in names
    assert "aaautil_pytest.py" in names and not [name for name in names if "libaaa" in name or name.endswith(".pyc")]
    sources = {path.name for path in (TREE / "bindings/python/aaautil").iterdir() if path.is_file()}
    assert {pathlib.PurePath(name).name for name in names if name.startswith("aaautil/")} == sources | {
        "_enums.py", "_native.abi3.so", "_testkit.abi3.so"}


@pytest.fixture
def clean_tree(tmp_path):
    """The files of the tree, without a build directory; removed afterwards, because a build is large."""
    tree = tmp_path / "tree"
    listed = subprocess.run(["git", "-C", TREE, "ls-files", "-z"], capture_output=True, check=False)
    if listed.returncode == 0:
        for name in listed.stdout.decode().split("\0"):
            if name and os.path.lexists(TREE / name):
                (tree / name).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy2(TREE / name, tree / name, follow_symlinks=False)
    else:
        shutil.copytree(TREE, tree, symlinks=True, ignore=shutil.ignore_patterns("build", ".git", ".cache", "__pycache__"))
    yield tree
    shutil.rmtree(tree)


def test_a_tree_without_a_build_makes_the_same_wheel(wheel, clean_tree, tmp_path):
    if shutil.which("ccache") is None:
        pytest.skip("ccache is not installed: without it this compiles for minutes")
    environment = without_tree(CCACHE_BASEDIR=str(clean_tree))
    del environment["AAAUTIL_BUILD_DIR"]
    before = {path.name for path in clean_tree.iterdir()}
    run(sys.executable, "-m", "pip", "wheel", "--no-build-isolation", "--no-deps", "--no-index", "-w", tmp_path / "out",
        clean_tree / "bindings/python", env=environment, cwd=tmp_path, timeout=800)
    assert {path.name for path in clean_tree.iterdir()} - before == {"build"}
    [made] = (tmp_path / "out").iterdir()
    assert made.name == wheel.name and sorted(zipfile.ZipFile(made).namelist()) == sorted(zipfile.ZipFile(wheel).namelist())
    zipfile.ZipFile(made).extractall(tmp_path / "package")
    code = ("import aaautil\n"
            "made = aaautil.AttributeList([('USERNAME', 'alice')])\n"
            "assert aaautil.AttributeList.unpack(made.pack()) == made\n"
            "print(aaautil.__file__)")
    assert str(tmp_path) in run(sys.executable, "-c", code, env={**environment, "PYTHONPATH": str(tmp_path / "package")}, cwd=tmp_path)


def test_the_modules_name_no_directory_of_this_machine(wheel, tmp_path):
    zipfile.ZipFile(wheel).extractall(tmp_path)
    for module in (tmp_path / "aaautil").glob("*.so"):
        assert "RUNPATH" not in run("readelf", "-d", module) and "RPATH" not in run("readelf", "-d", module)
        exported = [line.split()[-1] for line in run("nm", "-D", "--defined-only", module).splitlines()]
        if module.name.startswith("_native"):
            assert exported == ["PyInit__native"], "names of others would disturb them"


def test_it_works_in_a_virtual_environment(wheel, tmp_path):
    # The environment sees the system's cffi; everything else comes from the wheel.
    run(sys.executable, "-m", "venv", "--system-site-packages", "--without-pip", tmp_path / "venv", env=without_tree())
    python = tmp_path / "venv/bin/python"
    run(python, "-m", "pip", "install", "--no-deps", "--no-index", wheel, env=without_tree())
    code = ("import aaautil, importlib.metadata as m\n"
            "assert aaautil.__file__.startswith(%r), aaautil.__file__\n"
            "l = aaautil.AttributeList([('USERNAME', 'alice')])\n"
            "assert aaautil.AttributeList.unpack(l.pack()) == l\n"
            "print(m.version('aaautil'), [e.value for e in m.entry_points(group='pytest11') if e.name == 'aaautil'])" % str(tmp_path))
    version, _, entry = run(python, "-c", code, env=without_tree(), cwd=tmp_path).partition(" ")
    assert version in (TREE / "CMakeLists.txt").read_text() and entry.strip() == "['aaautil_pytest']"
    assert "kind list" in run(python, "-m", "aaautil", "decode", "--hex", "00000038" + "00" * 52, env=without_tree(), cwd=tmp_path)
    (tmp_path / "test_it.py").write_text("def test_it(aaa_testkit):\n    assert aaa_testkit.paths() == []\n")
    done = run(python, "-m", "pytest", "-q", "-p", "no:cacheprovider", "--aaa-testkit", tmp_path / "test_it.py", env=without_tree(),
               cwd=tmp_path)
    assert "1 passed" in done, "the fixtures are found by the wheel's entry point"
