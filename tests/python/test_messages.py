# SPDX-License-Identifier: Apache-2.0
"""Whole messages, as documents and on the command line: the same as aaactl says."""

import json
import os
import subprocess
import sys

import pytest

import aaautil
from aaautil import AttributeList, lib, messages
from support import TREE, nine_pairs

CORPUS = [path for folder in ("aaactl_encode", "checked_unpack", "avpair_pack") for path in sorted((TREE / "fuzz/corpus" / folder).iterdir())
          if path.stat().st_size]


def aaactl(*arguments, given=b""):
    done = subprocess.run([os.environ["AAACTL_PROGRAM"], *arguments], input=given, capture_output=True, timeout=60)
    return done.returncode, done.stdout, done.stderr


def decode(*arguments, given=b""):
    done = subprocess.run([sys.executable, "-m", "aaautil", "decode", *arguments], input=given, capture_output=True, timeout=60)
    return done.returncode, done.stdout, done.stderr


def request():
    """A request of an authentication in the classic form."""
    return bytes(20) + (3).to_bytes(4, sys.byteorder) + bytes(8) + bytes(4) + bytes(4) + nine_pairs().pack()


SAMPLES = {"list": nine_pairs().pack(), "request": request(), "cut": nine_pairs().pack()[:-5], "trailing": nine_pairs().pack() + b"x",
           "garbage": bytes(range(1, 200)), "one byte": b"\x01"}


@pytest.mark.parametrize("name", SAMPLES)
@pytest.mark.parametrize("secrets", [False, True])
def test_the_document_is_that_of_aaactl(name, secrets):
    flags = ["--show-secrets"] if secrets else []
    status, output, _ = aaactl("--json", *flags, "decode", "--input", "binary", "-", given=SAMPLES[name])
    assert json.loads(output) == messages.decode(SAMPLES[name], show_secrets=secrets)
    again, printed, _ = decode("--json", "--input", "binary", *flags, given=SAMPLES[name])
    assert again == status and json.loads(printed) == json.loads(output)


def test_documents_of_many_messages_are_those_of_aaactl():
    assert len(CORPUS) >= 20
    for path in CORPUS[:: max(1, len(CORPUS) // 20)]:
        status, output, error = aaactl("--json", "decode", "--input", "binary", str(path))
        document = messages.decode(path.read_bytes())
        assert json.loads(output) == document, path
        assert (status == 3) == ("fault" in document), error


def test_every_kind_can_be_named_and_no_other():
    assert "auto" in messages.kinds() and "list" in messages.kinds()
    for kind in messages.kinds():
        assert messages.decode(request(), kind)["length"] > 0
    for wrong in ("", "lists", "list\0"):
        with pytest.raises(ValueError):
            messages.decode(request(), wrong)


def test_what_is_decoded_with_its_secrets_is_encoded_again():
    for message in (nine_pairs().pack(), request()):
        assert messages.encode(messages.decode(message, show_secrets=True)) == message
        assert messages.encode(json.dumps(messages.decode(message, show_secrets=True))) == message
        assert messages.encode(messages.to_text(message, show_secrets=True)) == message


def test_masked_values_are_refused_and_not_quoted():
    with pytest.raises(ValueError) as refused:
        messages.encode(messages.to_text(nine_pairs().pack()))
    assert "masked" in str(refused.value) and "wonderland" not in str(refused.value)
    assert "wonderland" not in json.dumps(messages.decode(request()))


@pytest.mark.parametrize("description", ["", " \n", "nonsense", "{", '{"parts": 1}', '{"pairs": [{"type": "x"}]}', "[" * 1000, "\udcff",
                                         {"a": 1}, {}])
def test_bad_descriptions_are_refused_with_a_reason(description):
    with pytest.raises(ValueError) as refused:
        messages.encode(description)
    assert str(refused.value)


def test_lists_and_messages_agree():
    document = messages.decode(nine_pairs().pack())
    pairs = document["parts"][0]["pairs"]
    assert [(pair["type"], pair["attribute"], pair["tag"]) for pair in pairs] == [(pair.type, pair.name, pair.tag) for pair in nine_pairs()]


def test_hexadecimal_text_of_all_forms_is_read():
    message = nine_pairs().pack()
    dump = "".join(f"{at:08x}  {message[at:at + 16].hex(' ')}\n" for at in range(0, len(message), 16)) + f"{len(message):08x}\n"
    for text in (message.hex(), message.hex(" "), "0x" + message.hex(":"), dump):
        assert messages.unhex(text) == message
    for wrong in ("0", "zz", "00 0", "\ud800"):
        with pytest.raises(ValueError):
            messages.unhex(wrong)


# ---- the command

def test_the_command_reads_files_standard_input_and_digits(tmp_path):
    message = nine_pairs().pack()
    (tmp_path / "binary").write_bytes(message)
    (tmp_path / "hex").write_text(message.hex("\n", 16))
    outputs = {decode(str(tmp_path / "binary"))[1], decode(str(tmp_path / "hex"))[1], decode(given=message)[1],
               decode("--hex", message.hex())[1], decode("-", given=message.hex().encode())[1]}
    assert len(outputs) == 1
    text = outputs.pop().decode()
    assert 'pair AAA_USERNAME_ATTR "alice\\x00"' in text and "wonderland" not in text
    assert b"wonderland" in decode("--show-secrets", given=message)[1]


def test_the_commands_exit_status_is_that_of_aaactl(tmp_path):
    message = nine_pairs().pack()
    for arguments, given, status in [((), message, 0), ((), message[:-1], 3), ((), b"", 3), (("--hex", "0"), b"", 3),
                                     ((str(tmp_path / "missing"),), b"", 4), (("--kind", "nonsense"), message, 2), (("--nonsense",), b"", 2),
                                     (("--hex", "00", str(tmp_path)), b"", 2)]:
        found, output, error = decode(*arguments, given=given)
        assert found == status, (arguments, error)
        assert (found == 0) == (error == b""), error
        assert b"Traceback" not in error
    assert decode(str(tmp_path))[0] not in (0, 1)


def test_the_command_survives_a_reader_that_goes_away():
    big = AttributeList([("ORDERLIST", bytes(60000))] * 20).pack()
    process = subprocess.Popen([sys.executable, "-m", "aaautil", "decode", "--json"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE)
    process.stdout.close()
    process.stdin.write(big)
    process.stdin.close()
    error = process.stderr.read()
    process.stderr.close()
    assert process.wait(60) == 6 and b"Traceback" not in error


@pytest.mark.parametrize("redirection, status", [("0<&-", 3), (">&-", 6), (">/dev/full", 6), ("0<&- 1>&- 2>&-", 3), ("2>&-", 0),
                                                 ("</dev/zero", 3)])
def test_the_command_survives_closed_descriptors_a_full_disk_and_endless_input(tmp_path, redirection, status):
    (tmp_path / "message").write_bytes(nine_pairs().pack())
    given = "" if "<" in redirection else "<message "
    done = subprocess.run(["sh", "-c", f'exec "$0" -m aaautil decode {given}{redirection}', sys.executable], cwd=tmp_path,
                          capture_output=True, timeout=60)
    assert done.returncode == status, done.stderr
    assert b"Traceback" not in done.stderr and b"Exception" not in done.stderr
    assert (done.stderr == b"") == (status == 0 or "2>&-" in redirection)


@pytest.mark.parametrize("arguments, redirection, status", [
    ("decode --hex 00", "2>/dev/full", 3), ("decode --hex 0", "2>/dev/full", 3), ("decode missing", "2>/dev/full", 4),
    ("decode --nonsense", "2>/dev/full", 2), ("decode --nonsense", "2>&-", 2), ("nonsense", "2>/dev/full", 2), ("", "2>&-", 2),
    ("decode missing", "2>&-", 4), ("decode --hex 00", "2>&- >&-", 6), ("decode --hex 00", ">/dev/full 2>/dev/full", 6),
    ("decode --help", ">/dev/full", 6), ("decode --help", ">&-", 6), ("--help", ">/dev/full 2>&-", 6), ("--help", ">&- 2>&-", 6),
    ("decode message", "<&- 2>&-", 0), ("decode message", "<&- >&- 2>&-", 6)])
def test_the_exit_status_is_right_without_a_place_for_messages(tmp_path, arguments, redirection, status):
    (tmp_path / "message").write_bytes(nine_pairs().pack())
    done = subprocess.run(["sh", "-c", f'exec "$0" -m aaautil {arguments} {redirection}', sys.executable], cwd=tmp_path, capture_output=True,
                          timeout=60)
    assert done.returncode == status, done.stderr
    assert b"Traceback" not in done.stderr and b"Exception" not in done.stderr
    assert done.stderr if "2>" not in redirection else not done.stderr


def test_help_names_every_option_and_kind():
    done = subprocess.run([sys.executable, "-m", "aaautil", "decode", "--help"], env={**os.environ, "COLUMNS": "1000"},
                          capture_output=True, text=True)
    status, text = done.returncode, done.stdout
    assert status == 0
    for word in ("--hex", "--kind", "--input", "--json", "--show-secrets", *messages.kinds()):
        assert word in text


def test_a_message_has_a_limit():
    with pytest.raises(ValueError, match="64 MiB"):
        messages.decode(bytes((64 << 20) + 1))
    assert lib.AAA_TRANSPORT_MAX == 65536
    assert isinstance(aaautil.messages.decode(bytes(1 << 20)), dict)
