"""selftest.exe as a user starts it: what its report says, and that it says what is wrong."""
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tests" / "fixtures"), str(ROOT / "tools")]
import binaries  # noqa: E402
from receiver import Receiver  # noqa: E402

PARTS = {"Coding", "DotStuffer", "Exports", "Hosts", "Log", "Loopback", "OwnServer", "Platform", "PublicKey",
         "SecretKey", "Send", "System", "Text"}
COUNT = r"^(\w+): (\d+) passed, (\d+) failed, (\d+) left out"
ROUND_CONSTANT = bytes.fromhex("982f8a42")  # the first of SHA-256, in every form of it


class SelfTest:
    """A folder as the archive has it, and what the program in it reported."""

    def __init__(self, folder, bits):
        self.folder, self.bits = folder, bits
        for name in ("selftest.exe", "emailsending.dll"):
            shutil.copy(ROOT / "build" / f"win{bits}" / name, folder)
        self.library = folder / "emailsending.dll"
        self.code, self.report = None, ""

    def temporary(self):
        prefix = os.environ.get(*(("WINE_PREFIX_DIR", ROOT / "build/wine") if self.bits == 32 else
                                  ("WINE64_PREFIX_DIR", ROOT / "build/wine64")))
        return set(pathlib.Path(prefix).glob("drive_c/users/*/Temp/emailsend-*"))

    def run(self, *args):
        before = self.temporary()
        wide = ["--64"] if self.bits == 64 else []
        command = [ROOT / "cmake" / "wine.sh", *wide, self.folder / "selftest.exe", *args]
        self.code = subprocess.run(list(map(str, command)), stdin=subprocess.DEVNULL, timeout=280,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False).returncode
        assert self.temporary() <= before
        text = (self.folder / "selftest-report.txt").read_bytes().decode()
        assert "\n" not in text.replace("\r\n", "")
        self.report = text.replace("\r\n", "\n")
        return self

    def counts(self):
        """Part -> passed, failed, left out; the sum is taken out and held against them."""
        counts = {part: tuple(map(int, numbers)) for part, *numbers in re.findall(COUNT, self.report, re.M)}
        assert counts.pop("Result") == tuple(map(sum, zip(*counts.values()))), self.report
        return counts


@pytest.fixture(params=[32, 64])
def either(request, tmp_path):
    return SelfTest(tmp_path, request.param)


@pytest.fixture
def narrow(tmp_path):
    return SelfTest(tmp_path, 32)


def test_every_part_passes_and_the_machine_is_described(either):
    counts = either.run().counts()
    assert either.code == 0, either.report
    assert set(counts) == PARTS
    assert all(passed > 0 and failed == 0 for part, (passed, failed, _) in counts.items() if part != "OwnServer")
    assert counts["Send"] == (3, 0, 0) and counts["OwnServer"] == (0, 0, 1)
    assert re.search(rf"^System: Windows \d+\.\d+\.\d+.*; Wine \S+; .*{either.bits}-bit program;", either.report, re.M)
    assert re.search(r"^Processor: \S.*; \d+ threads; sse2", either.report, re.M)
    assert hashlib.sha256(either.library.read_bytes()).hexdigest() in either.report
    assert {path.name for path in either.folder.iterdir()} == {
        "selftest.exe", "emailsending.dll", "selftest-report.txt"}


def test_a_wrong_constant_in_the_library_breaks_tls_and_nothing_else(either):
    whole = either.library.read_bytes()
    assert ROUND_CONSTANT in whole
    either.library.write_bytes(whole.replace(ROUND_CONSTANT, b"\0" + ROUND_CONSTANT[1:]))
    counts = either.run("--part", "Send", "--part", "Hosts").counts()
    assert either.code == 1
    assert counts == {"Send": (1, 2, 0), "Hosts": (0, 1, 0)}
    failed = re.findall(r"^    FAILED (\S+)\n(?:      .*\n)*?.*TolvaneLog", either.report, re.M)
    assert failed[:2] == ["Send.arrivesWhole/tls13", "Send.arrivesWhole/tls12"], either.report


def test_a_crash_ends_one_part_and_is_told(narrow):
    whole = bytearray(narrow.library.read_bytes())
    library = binaries.PeFile(whole)
    for entry in map(library.at, library.exports().values()):
        whole[entry:entry + 2] = b"\x0f\x0b"  # ud2
    narrow.library.write_bytes(whole)
    counts = narrow.run("--part", "Send", "--part", "System").counts()
    assert narrow.code == 1
    assert counts["Send"] == (0, 1, 0) and counts["System"][1] == 0
    assert "FAILED Send.arrivesWhole/plain\n      The process ended with the code 0xC000001D" in narrow.report


def test_a_missing_library_is_told(narrow):
    narrow.library.unlink()
    assert narrow.run("--part", "Send").counts() == {"Send": (0, 3, 0)}
    assert narrow.code == 1
    assert "Library: none beside this program" in narrow.report
    assert narrow.report.count("cannot load the plug-in") == 3


def test_a_message_to_a_server_of_ones_own(narrow):
    words = ("--part", "OwnServer", "--host", "127.0.0.1", "--from", "a@from.test", "--to", "b@to.test", "--port")
    with Receiver() as receiver:
        counts = narrow.run(*words, receiver.port).counts()
        assert (narrow.code, counts) == (0, {"OwnServer": (1, 0, 0)}), narrow.report
        assert [message.parsed()["Subject"] for message in receiver.messages] == ["Self-test"]
        port = receiver.port
    assert narrow.run(*words, port).counts() == {"OwnServer": (0, 1, 0)}
    assert "Connection rejected" in narrow.report


@pytest.mark.parametrize("preset", ["win32", "win64"])
def test_only_what_windows_7_has_is_imported(preset):
    facts = binaries.facts_of((ROOT / "build" / preset / "selftest.exe").read_bytes())
    assert facts["imports"] and facts["not in Windows 7"] == []
