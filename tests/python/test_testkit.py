# SPDX-License-Identifier: Apache-2.0
"""The scripted host platform under Python, and the fixtures of pytest."""

import os
import subprocess
import sys
import textwrap

import pytest

import aaautil
from aaautil import Database, ResultCode
from support import run_python


def test_nothing_of_the_machine_is_read_or_changed(aaa_testkit):
    with Database("/cfg/limits/") as database:
        database.set("sessions", 2)
        assert database.get("sessions") == 2
    assert aaa_testkit.paths() == ["/cfg/limits/sessions"] and aaa_testkit.get("/cfg/limits/sessions") == 2
    assert not os.path.exists(os.path.join(os.environ["AAA_SYSDB_CFG_DIR"], "cfg.mdb"))


def test_each_test_begins_with_nothing(aaa_testkit):
    assert aaa_testkit.paths() == [] and aaa_testkit.calls() == [] and aaa_testkit.open_connections() == 0


def test_calls_are_recorded(aaa_testkit):
    with Database("/cfg/limits/") as database:
        database.set("sessions", 2)
    assert aaa_testkit.count("sysdb_item_set") == 1
    assert aaa_testkit.calls("sysdb_item_set")[0].startswith('sysdb_item_set(/cfg/limits/, "sessions", 1, ')
    aaa_testkit.clear_calls()
    assert aaa_testkit.calls() == []


def test_failures_are_played(aaa_testkit):
    with Database("/cfg/limits/") as database:
        aaa_testkit.fail_call("sysdb_item_set", 2, ResultCode.SYSDB_ERR_FULL)
        database.set("a", 1)
        with pytest.raises(aaautil.AaaError) as failure:
            database.set("b", 2)
        assert failure.value.code is ResultCode.SYSDB_ERR_FULL
        database.set("b", 2)
        aaa_testkit.answer("sysdb_item_get", ResultCode.SYSDB_ERR_CORRUPT, times=1)
        with pytest.raises(aaautil.AaaError):
            database.get("a")
        assert database.get("a") == 1
        aaa_testkit.answer("sysdb_item_get", ResultCode.SYSDB_ERR_CORRUPT)
        aaa_testkit.clear_answers("sysdb_item_get")
        assert database.get("a") == 1
    aaa_testkit.present(False)
    with pytest.raises(aaautil.AaaError):
        Database("/cfg/")


def test_another_process_changes_the_database(aaa_testkit):
    aaa_testkit.put("/cfg/limits/name", "text")
    aaa_testkit.put("/cfg/limits/list", (1, "name"))
    aaa_testkit.make_directory("/cfg/limits/empty/")
    with Database("/cfg/limits/") as database, database.watch() as watch:
        assert database.get("name") == "text" and database.get("list") == (1, "name")
        aaa_testkit.put("/cfg/limits/name", "changed")
        assert [(change.path, change.value) for change in watch.poll(None)] == [("name", "changed")]
        aaa_testkit.before("sysdb_item_get", lambda: aaa_testkit.put("/cfg/limits/name", "at the last moment"))
        assert database.get("name") == "at the last moment"
        aaa_testkit.before("sysdb_item_get", None)
        aaa_testkit.remove("/cfg/limits/name")
        assert "name" not in database


def test_the_library_uses_the_kit_too(aaa_testkit):
    aaa_testkit.put("/oper/aaa/gl/group-server/0x3e8", "corp")
    aaautil.method_name(1000)
    assert any("group-server" in call for call in aaa_testkit.calls()), aaa_testkit.calls()


@pytest.mark.parametrize("use", [
    lambda kit: kit.count("no_such_function"), lambda kit: kit.answer("sysdb item", 1), lambda kit: kit.put("relative", 1),
    lambda kit: kit.put("/cfg//x", 1), lambda kit: kit.fail_call("sysdb_item_get", 0, 1), lambda kit: kit.before("sysdb_item_get", 5),
    lambda kit: kit.put("/cfg/x", 1.5), lambda kit: kit.answer("sysdb_item_get", -1), lambda kit: kit.count("a\0b")])
def test_misuse_of_the_kit_is_refused(aaa_testkit, use):
    with pytest.raises((ValueError, TypeError)):
        use(aaa_testkit)


@pytest.mark.parametrize("name", ["sysdb_item_gett", "aaa_avpair_add", "AAA_OK", "free", "", "testkit_count", "sysdb_item_get "])
def test_a_function_that_the_platform_lacks_is_refused_before_and_after_a_reset(aaa_testkit, name):
    uses = (lambda kit: kit.count(name), lambda kit: kit.calls(name), lambda kit: kit.answer(name, 1), lambda kit: kit.fail_call(name, 1, 1),
            lambda kit: kit.clear_answers(name), lambda kit: kit.before(name, lambda: None), lambda kit: kit.before(name, None))
    for use in uses:
        with pytest.raises(ValueError, match="no function"):
            use(aaa_testkit)
    assert aaa_testkit.misuse == [] and aaa_testkit.calls() == []
    run_python(f"from aaautil.testkit import Testkit\ntry:\n    Testkit().count({name!r})\nexcept ValueError:\n    pass\n"
               "else:\n    raise SystemExit('accepted')\n", AAAUTIL_TESTKIT="1")


def run_pytest(tmp_path, text, *options, **environment):
    (tmp_path / "test_it.py").write_text(textwrap.dedent(text))
    clean = {name: value for name, value in os.environ.items() if name != "AAAUTIL_TESTKIT"}
    return subprocess.run([sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", "-p", "aaautil_pytest", *options, str(tmp_path)],
                          cwd=tmp_path, env={**clean, **environment}, capture_output=True, text=True, timeout=120)


def test_without_the_option_the_fixture_says_what_to_do(tmp_path):
    done = run_pytest(tmp_path, "def test_it(aaa_testkit): pass")
    assert done.returncode == 1 and "--aaa-testkit" in done.stdout
    (tmp_path / "pytest.ini").write_text("[pytest]\naaa_testkit = true\n")
    done = run_pytest(tmp_path, "def test_it(aaa_testkit): assert aaa_testkit.paths() == []")
    assert done.returncode == 0, done.stdout


def test_misuse_of_the_platform_fails_the_test(tmp_path):
    done = run_pytest(tmp_path, """
        from aaautil import lib
        def test_it(aaa_testkit):
            lib._sysdb_unbind(4711)
        """, "--aaa-testkit")
    assert done.returncode == 1 and "misused" in done.stdout, done.stdout


def test_a_failed_comparison_shows_no_secret(tmp_path):
    done = run_pytest(tmp_path, """
        import pytest
        from aaautil import Attribute, AttributeList, Answer, Change, Expect, Item, Set, Status
        def pair(text): return Attribute.of("PASSWORD", text)
        def item(text): return Item(3, text.encode() + b"\\0")
        @pytest.mark.parametrize("make", [
            pair, item, lambda text: [pair(text)], lambda text: AttributeList([pair(text)]), lambda text: Set("key", text),
            lambda text: Expect("key", text), lambda text: Change("set", "key", item(text), 1), lambda text: {"key": item(text)},
            lambda text: Answer(Status.PASS, "", 1, AttributeList([pair(text)]))])
        def test_it(make):
            one, other = make("".join(["wonder", "land"])), make("".join(["rab", "bit"]))
            assert one == other
        """, "-vv", "--showlocals")
    assert "9 failed" in done.stdout and "they differ in raw" in done.stdout, done.stdout
    for part in ("wonderland", "rabbit", "119, 111", "b'w'", "b'r'"):
        assert part not in done.stdout, (part, done.stdout)


def test_without_the_plugin_a_failed_comparison_shows_no_bytes_of_a_secret(tmp_path):
    (tmp_path / "test_it.py").write_text(textwrap.dedent("""
        import pytest
        from aaautil import Attribute, AttributeList, Answer, Change, Item, Status
        def pair(text): return Attribute.of("PASSWORD", text)
        def item(text): return Item(3, text.encode() + b"\\0")
        def read(text): return AttributeList.unpack(AttributeList([pair(text)]).pack())
        @pytest.mark.parametrize("make", [
            pair, item, lambda text: pair(text).raw, lambda text: [pair(text)], read, lambda text: read(text)[0],
            lambda text: Attribute(*pair(text)), lambda text: Change("set", "key", item(text), 1), lambda text: {"key": item(text)},
            lambda text: Answer(Status.PASS, "", 1, read(text)), lambda text: (Change("set", "key", item(text), 1), "x")])
        def test_it(make):
            one, other = make("".join(["wonder", "land"])), make("".join(["rab", "bit"]))
            assert one == other
        """))
    environment = {name: value for name, value in os.environ.items() if name != "AAAUTIL_TESTKIT"}
    done = subprocess.run([sys.executable, "-m", "pytest", "-vv", "--showlocals", "-p", "no:cacheprovider", "-p", "no:aaautil",
                           str(tmp_path)], cwd=tmp_path, env=environment, capture_output=True, text=True)
    assert "11 failed" in done.stdout, done.stdout + done.stderr
    for part in ("wonderland", "rabbit", "119, 111", "b'w'", "b'r'", "they differ in"):
        assert part not in done.stdout, (part, done.stdout)


def test_a_package_that_was_imported_before_is_an_error(tmp_path):
    done = run_pytest(tmp_path, "def test_it(): pass", "--aaa-testkit", "-p", "aaautil.lists")
    assert done.returncode == 4 and "imported before" in done.stderr, done.stderr + done.stdout


def test_a_private_service_runs_next_to_the_kit(aaa_testkit, aaad):
    aaad.method_list("authentication/login/default", [aaautil.Method.LOCAL])
    assert aaad.client().login("alice", "wonderland", remote_addr="192.0.2.1")
    assert aaa_testkit.paths() == []
