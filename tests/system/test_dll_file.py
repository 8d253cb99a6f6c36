"""The finished files from outside: what they export, what they need, how they are linked."""
import re
import subprocess

import pytest

from products import EXPORTS, ROOT

MAX_DLL_BYTES = 1_350_000
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
    assert sorted(line.split()[-1] for line in symbols.splitlines()) == sorted(EXPORTS)
    needed = set(re.findall(r"NEEDED +(?!ld-linux)(\S+)", tool_output("objdump", "-p", so.library)))
    assert needed and needed <= SYSTEM_LIBRARIES
    # Nothing runs at exit.
    undefined = tool_output("nm", "-D", "--undefined-only", so.library)
    assert "__cxa_atexit" not in undefined and "__cxa_thread_atexit" not in undefined


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
