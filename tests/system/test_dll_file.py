"""The finished files from outside: what they export, what they need, how they are linked."""
import json
import re
import subprocess
import sys

import pytest

from products import EXPORTS, ROOT

sys.path.insert(0, str(ROOT / "tools"))
import dll_bytes  # noqa: E402

MAX_DLL_BYTES = 1_300_000
VERSION = "EMAILSENDING_1.0"
# The versions of the systems that have to do: of 64 bits Debian 10, Red Hat 8, Ubuntu 18.10; of 32
# bits, whose times go beyond 2038, Debian 12.
OLDEST = {"so": {"GLIBC": (2, 28), "GLIBCXX": (3, 4, 22), "CXXABI": (1, 3, 11), "GCC": (3, 4)},
          "native32": {"GLIBC": (2, 34), "GLIBCXX": (3, 4, 22), "CXXABI": (1, 3, 11), "GCC": (7, 0, 0)}}
HARDENED = {"relro": "full", "canary": "yes", "nx": "yes", "pie": "dso", "rpath": "no", "runpath": "no"}
SYSTEM_LIBRARIES = {"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6"}


def tool_output(*command):
    return subprocess.run(list(map(str, command)), check=True, capture_output=True, text=True).stdout


@pytest.fixture(scope="module")
def headers(dll):
    return tool_output("i686-w64-mingw32-objdump", "-p", dll.library)


def test_dll_exports_the_decorated_names_alone_and_each_realigns_the_stack(dll, headers):
    table = headers.split("[Ordinal/Name Pointer] Table")[1].split("\n\n")[0]
    assert sorted(re.findall(r"\[ *\d+\] (\S+)", table)) == sorted(
        f"_{name}@{4 if takes else 0}" for name, (_, takes) in EXPORTS.items())
    base = int(re.search(r"^ImageBase\s+(\w+)", headers, re.M)[1], 16)
    addresses = [base + int(rva, 16) for rva in re.findall(r"\+base\[ *\d+\] (\w+) Export RVA", headers)]
    assert len(addresses) == len(EXPORTS) == 24
    for address in addresses:
        code = tool_output("i686-w64-mingw32-objdump", "-d", f"--start-address={address}",
                           f"--stop-address={address + 16}", dll.library)
        assert re.search(r"and +\$0xfffffff0,%esp", code), code


def test_shared_object(so):
    symbols = tool_output("nm", "-D", "--defined-only", so.library)
    assert sorted(line.split()[-1] for line in symbols.splitlines()) == sorted(
        [VERSION, *(f"{name}@@{VERSION}" for name in EXPORTS)])
    headers = tool_output("objdump", "-p", so.library)
    assert re.search(r"SONAME +libemailsending\.so\.1\n", headers)
    needed = set(re.findall(r"NEEDED +(?!ld-linux)(\S+)", headers))
    assert needed and needed <= SYSTEM_LIBRARIES
    # Nothing runs at exit.
    undefined = tool_output("nm", "-D", "--undefined-only", so.library)
    assert "__cxa_atexit" not in undefined and "__cxa_thread_atexit" not in undefined


@pytest.mark.parametrize("build", OLDEST)
def test_shared_object_runs_on_older_systems_and_is_hardened(build, request):
    library, newest = request.getfixturevalue(build).library, {}
    references = tool_output("objdump", "-p", library).split("Version References:")[1]
    for kind, number in re.findall(r" ([A-Z]+)_([\d.]+)$", references, re.M):
        newest[kind] = max(newest.get(kind, ()), tuple(map(int, number.split("."))))
    assert newest.keys() == OLDEST[build].keys()
    assert {kind: number for kind, number in newest.items() if number > OLDEST[build][kind]} == {}
    [found] = json.loads(tool_output("checksec", "--output=json", f"--file={library}")).values()
    assert {word: found[word] for word in HARDENED} == HARDENED


@pytest.mark.parametrize("file", ["library", "program"])
def test_only_what_windows_7_has_is_imported(dll, file):
    rows = [line.split() for line in (ROOT / "tests/data/windows7_imports.txt").read_text().splitlines()]
    allowed = {(library.lstrip("+") if file == "program" else library, function)
               for library, *functions in rows for function in functions}
    imported = set()
    for block in tool_output("i686-w64-mingw32-objdump", "-p", getattr(dll, file)).split("DLL Name: ")[1:]:
        library = block.split()[0].lower()
        functions = re.findall(r"^\t[0-9a-f]+\t +\d+ +(\S+)$", block, re.M)
        assert functions, f"no functions read for {library}"
        imported.update((library, function) for function in functions)
    assert imported - allowed == set()


def test_dll_is_relocatable_stripped_and_small(dll, headers):
    flags = re.search(r"DllCharacteristics.*\n(?:\t+\w+\n)+", headers)[0]
    assert "DYNAMIC_BASE" in flags and "NX_COMPAT" in flags
    assert "relocations stripped" not in re.search(r"Characteristics 0x\w+\n(?:\t.*\n)+", headers)[0]
    assert headers.count("HIGHLOW") > 100
    assert re.search(r"^Magic\s+010b", headers, re.M)
    assert "no symbols" in tool_output("i686-w64-mingw32-objdump", "-t", dll.library)
    content = dll.library.read_bytes()
    assert len(content) < MAX_DLL_BYTES and str(ROOT).encode() not in content
    assert b"stack smashing detected" in content
    # Words of the C library's printf and of the standard library's old strings: 110 KB that stay out.
    assert b"(null)" not in content and b"random_device" not in content
    for text in ("OriginalFilename", "emailsending.dll", "FileVersion", "1.0.0"):
        assert text.encode("utf-16-le") in content, text


def test_the_table_of_the_bytes_adds_up(dll):
    table = dll_bytes.count(dll.library.with_suffix(".map").read_text())
    assert {"mime", "net/tls", "mail/smtp", "base/crypto", "plugin", "C++ run time", "relocations"} <= table.keys()
    # But for headers, and what fills sections up.
    missing = dll.library.stat().st_size - sum(sizes.total() for sizes in table.values())
    assert 0 < missing < 8192
