"""The finished files from outside: what they export, what they need, how they are linked."""
import re
import subprocess

import pytest

from products import ROOT

MAX_DLL_BYTES = 1_250_000
SYSTEM_LIBRARIES = {"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6"}


def declared_exports():
    """Name -> bytes of arguments, from the header that hosts use."""
    header = (ROOT / "include" / "emailsending.h").read_text()
    found = re.findall(r"EMAILSENDING_CALL (\w+)\(([^)]*)\);", header)
    return {name: 0 if arguments == "void" else 4 for name, arguments in found}


def tool_output(*command):
    return subprocess.run(list(map(str, command)), check=True, capture_output=True, text=True).stdout


@pytest.fixture(scope="module")
def headers(dll):
    return tool_output("i686-w64-mingw32-objdump", "-p", dll.library)


def test_the_header_declares_24_functions():
    assert len(declared_exports()) == 24


def test_dll_exports_the_decorated_names_and_nothing_else(headers):
    table = headers.split("[Ordinal/Name Pointer] Table")[1].split("\n\n")[0]
    exported = re.findall(r"\[ *\d+\] (\S+)", table)
    assert sorted(exported) == sorted(f"_{name}@{size}" for name, size in declared_exports().items())


def test_every_export_realigns_the_stack(dll, headers):
    base = int(re.search(r"^ImageBase\s+(\w+)", headers, re.M)[1], 16)
    addresses = [base + int(rva, 16) for rva in re.findall(r"\+base\[ *\d+\] (\w+) Export RVA", headers)]
    assert len(addresses) == 24
    for address in addresses:
        code = tool_output("i686-w64-mingw32-objdump", "-d", f"--start-address={address}",
                           f"--stop-address={address + 16}", dll.library)
        assert re.search(r"and +\$0xfffffff0,%esp", code), code


def test_shared_object_exports_the_plain_names_and_nothing_else(so):
    symbols = tool_output("nm", "-D", "--defined-only", so.library)
    assert sorted(line.split()[-1] for line in symbols.splitlines()) == sorted(declared_exports())


def test_shared_object_needs_only_the_system(so):
    needed = re.findall(r"NEEDED +(\S+)", tool_output("objdump", "-p", so.library))
    assert {name for name in needed if not name.startswith("ld-linux")} <= SYSTEM_LIBRARIES


def test_nothing_of_the_shared_object_runs_at_exit(so):
    undefined = tool_output("nm", "-D", "--undefined-only", so.library)
    assert "__cxa_atexit" not in undefined and "__cxa_thread_atexit" not in undefined


def test_dll_imports_only_what_windows_7_has(headers):
    allowed = set()
    for line in (ROOT / "tests" / "data" / "windows7_imports.txt").read_text().splitlines():
        if line and not line.startswith("#"):
            library, *functions = line.split()
            allowed.update((library, function) for function in functions)
    imported = set()
    for block in headers.split("DLL Name: ")[1:]:
        library = block.split()[0].lower()
        functions = re.findall(r"^\t[0-9a-f]+\t +\d+ +(\S+)$", block, re.M)
        assert functions, f"no functions read for {library}"
        imported.update((library, function) for function in functions)
    assert imported - allowed == set()


def test_dll_flags(headers):
    flags = re.search(r"DllCharacteristics.*\n(?:\t+\w+\n)+", headers)[0]
    assert "DYNAMIC_BASE" in flags and "NX_COMPAT" in flags
    characteristics = re.search(r"Characteristics 0x\w+\n(?:\t.*\n)+", headers)[0]
    assert "relocations stripped" not in characteristics
    assert headers.count("HIGHLOW") > 100
    assert re.search(r"^Magic\s+010b", headers, re.M)


def test_dll_is_stripped_and_small(dll):
    assert dll.library.stat().st_size < MAX_DLL_BYTES
    assert "no symbols" in tool_output("i686-w64-mingw32-objdump", "-t", dll.library)


def test_dll_contents(dll):
    content = dll.library.read_bytes()
    assert b"stack smashing detected" in content
    for text in ("OriginalFilename", "emailsending.dll", "FileVersion", "1.0.0"):
        assert text.encode("utf-16-le") in content, text
    assert str(ROOT).encode() not in content
