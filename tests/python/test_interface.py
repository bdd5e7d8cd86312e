# SPDX-License-Identifier: Apache-2.0
"""The whole interface of the libraries is there, and importing the package changes nothing."""

import os
import re
import subprocess

import aaautil
from aaautil import ffi, lib
from support import TREE, run_python


def exports(library):
    text = subprocess.run(["nm", "-D", "--defined-only", "--with-symbol-versions", library], capture_output=True, text=True,
                          check=True).stdout
    # Version nodes are absolute symbols.
    return {line.split()[2].split("@")[0] for line in text.splitlines() if len(line.split()) == 3 and line.split()[1] != "A"}


def test_every_export_of_the_library_and_of_the_client_is_there():
    own, client, _ = os.environ["AAA_LIBRARIES"].split(":")
    names = exports(own) | exports(client)
    assert len(names) > 200
    missing = sorted(name for name in names if not hasattr(lib, name))
    assert missing == [], "not in the module: is a header missing in bindings/python/generate?"


def test_every_function_that_the_headers_of_the_host_declare_is_there():
    declared = set()
    for path in (TREE / "platform/include/platform").glob("*.h"):
        if path.name != "sysdb_provider.h":
            declared |= set(re.findall(r"^PLATFORM_API\s[^;(]*?(\w+)\(", path.read_text(), flags=re.MULTILINE))
    assert len(declared) > 60
    assert sorted(name for name in declared if not hasattr(lib, name)) == []


def test_records_have_the_layout_of_the_headers():
    sizes = re.findall(r"static_assert\(sizeof\((\w+)\) == (\d+)", "".join(path.read_text() for path in (TREE / "aaa").glob("*.h")))
    assert len(sizes) > 20
    for name, size in sizes:
        assert ffi.sizeof(name) == int(size), name


def test_attributes_are_those_of_the_table():
    rows = re.findall(r"^AAA_ATTRIBUTE\((\d+), (\w+), (\w+)\)", (TREE / "aaa/dictionary.def").read_text(), flags=re.MULTILINE)
    assert {name: int(number) for number, _, name in rows} == {one.name: int(one) for name, one in aaautil.Attr.__members__.items()}
    assert [(row.type, row.name, int(row.format)) for row in aaautil.attributes()] == [
        (int(number), name, getattr(lib, form)) for number, form, name in rows]


def test_enumerations_have_the_values_of_the_headers():
    assert aaautil.Status.PASS == lib.AAA_STAT_PASS == 1
    assert aaautil.Service.LOGIN == lib.AAA_SVC_LOGIN
    assert aaautil.Method.SERVER_GROUP == lib.AAA_METHOD_SERVER_GROUP
    assert aaautil.AcctOption.START == lib.AAA_ACCT_START_OPT
    for name, code in aaautil.ResultCode.__members__.items():
        if hasattr(lib, name):
            assert getattr(lib, name) == code, name


def test_every_result_code_has_a_name_an_advice_and_a_text():
    codes = re.findall(r"^AAA_RESULT_CODE\(\d+, (\w+), \"(.*)\"\)", (TREE / "aaa/result_codes.def").read_text(), flags=re.MULTILINE)
    assert len(codes) > 40
    for name, text in codes:
        code = aaautil.ResultCode[name]
        known = aaautil.advice(code)
        assert known.name == name and known.cause and known.remedy
        assert aaautil.code_text(code) == text


def test_an_exception_tells_code_cause_and_remedy_and_can_be_pickled():
    import pickle

    try:
        aaautil.AttributeList.unpack(b"short")
    except aaautil.AaaError as failure:
        found = failure
    assert isinstance(found, aaautil.MalformedError) and isinstance(found, ValueError)
    assert found.code is aaautil.ResultCode.AAA_ERR_INVALID_MSG_SIZE
    for part in (found.what, found.text, found.name, found.cause, found.remedy):
        assert part and part in str(found)
    again = pickle.loads(pickle.dumps(found))
    assert type(again) is type(found) and str(again) == str(found)


def test_a_code_that_no_one_knows_is_an_exception_too():
    from aaautil.errors import error

    found = error("something", 0x12345678)
    assert found.code == 0x12345678 and found.name == "0x12345678" and found.cause == "" and "something" in str(found)


def test_importing_starts_no_thread_opens_no_file_and_blocks_no_signal():
    before = "import os, signal, sys\nbefore = sorted(os.listdir('/proc/self/fd')), signal.pthread_sigmask(0, []), dict(os.environ)\n"
    after = ("import aaautil\nassert before == (sorted(os.listdir('/proc/self/fd')), signal.pthread_sigmask(0, []), dict(os.environ))\n"
             "assert len(os.listdir('/proc/self/task')) == 1\nprint('done')")
    assert run_python(before + after) == "done\n"
    assert run_python(before + after, NO_DLLMAIN="kept") == "done\n"


def test_importing_makes_no_database(tmp_path):
    run_python("import aaautil; aaautil.method_name(1); aaautil.AttributeList([('USERNAME', 'x')]).pack()",
               AAA_SYSDB_CFG_DIR=str(tmp_path / "cfg"), AAA_SYSDB_RUN_DIR=str(tmp_path / "run"))
    assert list(tmp_path.iterdir()) == []


def test_importing_works_with_standard_descriptors_closed():
    subprocess.run(["sh", "-c", 'exec "$0" -c "import aaautil; aaautil.AttributeList().pack()" 0<&- 1>&- 2>&-',
                    __import__("sys").executable], check=True, timeout=60)


def test_names_of_numbers():
    assert aaautil.status_name(1) == "PASS"
    assert aaautil.service_name(aaautil.Service.LOGIN)
    assert aaautil.method_name(aaautil.Method.LOCAL)
    assert aaautil.attribute_type("username") == aaautil.attribute_type("AAA_USERNAME_ATTR") == aaautil.Attr.AAA_USERNAME_ATTR


def test_a_mistyped_name_is_answered_with_a_similar_one():
    for name, answer in (("usrname", "did you mean USERNAME"), ("qqqqqqqq", "aaautil.Attr"), ("x" * 100000, "aaautil.Attr"),
                         ("usr\0name", "aaautil.Attr")):
        try:
            aaautil.attribute_type(name)
        except KeyError as failure:
            assert answer in str(failure)
        else:
            raise AssertionError(name)


def test_everything_that_is_named_as_public_exists_and_is_described():
    for name in aaautil.__all__:
        found = getattr(aaautil, name)
        assert name in ("ffi", "lib", "BytesLike", "Key", "Value") or found.__doc__, name
