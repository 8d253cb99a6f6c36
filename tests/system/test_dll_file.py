"""The finished files from outside: what they export, what they need, how they are linked."""
import json
import re
import subprocess
import sys
import tarfile
import zipfile

import pytest

from products import EXPORTS, ROOT

sys.path.insert(0, str(ROOT / "tools"))
import binaries  # noqa: E402
import dll_bytes  # noqa: E402

MAX_DLL_BYTES = 1_320_000
VERSION = "EMAILSENDING_1.0"
# The versions of the systems that have to do: Debian 10, Red Hat 8, Ubuntu 18.10.
OLDEST = {"GLIBC": (2, 28), "GLIBCXX": (3, 4, 22), "CXXABI": (1, 3, 11), "GCC": (7, 0, 0)}
HARDENED = {"relro": "full", "canary": "yes", "nx": "yes", "pie": "dso", "rpath": "no", "runpath": "no"}
OBJDUMP = {"dll": "i686-w64-mingw32-objdump", "dll64": "x86_64-w64-mingw32-objdump"}
FLAGS = {"dll": ["DYNAMICBASE", "NXCOMPAT", "NO_SEH"], "dll64": ["HIGHENTROPYVA", "DYNAMICBASE", "NXCOMPAT"]}
in_windows = pytest.mark.parametrize("product", OBJDUMP, indirect=True)
of_both = pytest.mark.parametrize("file", ["library", "program"])
SYSTEM_LIBRARIES = {"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6"}


def tool_output(*command):
    return subprocess.run(list(map(str, command)), check=True, capture_output=True, text=True).stdout


def code(product, file, *options):
    return tool_output(OBJDUMP[product.name], "-d", *options, file)


@in_windows
def test_dll_exports_the_right_names_alone(product):
    assert binaries.PeFile(product.library.read_bytes()).exports().keys() == {
        f"_{name}@{4 if takes else 0}" if product.name == "dll" else name for name, (_, takes) in EXPORTS.items()}


def test_each_export_of_the_32_bit_dll_realigns_the_stack(dll):
    file = binaries.PeFile(dll.library.read_bytes())
    addresses = [file.base + address for address in file.exports().values()]
    assert len(addresses) == len(EXPORTS) == 24
    for address in addresses:
        begin = code(dll, dll.library, f"--start-address={address}", f"--stop-address={address + 16}")
        assert re.search(r"and +\$0xfffffff0,%esp", begin), begin


@of_both
def test_windows_takes_no_address_in_a_file_for_a_handler_and_none_is_one(dll, file):
    """A handler is put in place by a write to fs:0, as the host does it that has one."""
    def uses(path):
        return set(re.findall(r"\t((?:mov|push|pop|xchg)\w* .*%fs:.*)", code(dll, path)))

    assert any("%fs:0x0" in use for use in uses(dll.driver))
    assert {" ".join(use.split()) for use in uses(getattr(dll, file))} <= {"mov %fs:0x18,%eax"}  # the thread's block


def test_no_vector_in_64_bits_is_to_lie_at_a_multiple_of_32(dll64):
    """The stack does not."""
    moves = re.findall(r"\t(vmov\w+) +.*%[yz]mm", code(dll64, dll64.library))
    assert "vmovdqu" in moves and not {move for move in moves if re.match("vmov(aps|apd|dqa)", move)}


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


@pytest.mark.parametrize("build", ["so", "native32"])
def test_shared_object_runs_on_older_systems_and_is_hardened(build, request):
    library, newest = request.getfixturevalue(build).library, {}
    references = tool_output("objdump", "-p", library).split("Version References:")[1]
    for kind, number in re.findall(r" ([A-Z]+)_([\d.]+)$", references, re.M):
        newest[kind] = max(newest.get(kind, ()), tuple(map(int, number.split("."))))
    assert newest.keys() == OLDEST.keys()
    assert {kind: number for kind, number in newest.items() if number > OLDEST[kind]} == {}
    [found] = json.loads(tool_output("checksec", "--output=json", f"--file={library}")).values()
    assert {word: found[word] for word in HARDENED} == HARDENED


@in_windows
@of_both
def test_only_what_windows_7_has_is_imported(product, file):
    path = getattr(product, file)
    facts = binaries.facts_of(path.read_bytes())
    for block in tool_output(OBJDUMP[product.name], "-p", path).split("DLL Name: ")[1:]:
        functions = re.findall(r"^\t[0-9a-f]+\t +\d+ +(\S+)$", block, re.M)
        assert sorted(functions) == facts["imports"].pop(block.split()[0].lower()) != []
    assert (facts["imports"], facts["not in Windows 7"]) == ({}, [])


@in_windows
@of_both
def test_what_a_windows_file_says_of_itself(product, file):
    path = getattr(product, file)
    content = path.read_bytes()
    facts = binaries.facts_of(content)
    assert facts["relocatable"] and int(facts["base"], 16) >> 32 >= (product.name == "dll64")
    assert [facts[name] for name in ("flags", "time stamp", "symbols", "build path inside")] == [
        FLAGS[product.name], 0, False, False]
    assert b"stack smashing detected" in content
    version = facts["version"]
    assert [version[name] for name in ("Numbers", "FileVersion", "OriginalFilename")] == ["1.0.0.0", "1.0.0", path.name]
    assert version["LegalCopyright"].endswith(version["CompanyName"]) and version["FileDescription"]


@in_windows
def test_dll_is_small(product):
    content = product.library.read_bytes()
    assert len(content) < MAX_DLL_BYTES
    # Words of the C library's printf and of the standard library's old strings: 110 KB that stay out.
    assert b"(null)" not in content and b"random_device" not in content


def test_the_table_of_the_bytes_adds_up(dll):
    table = dll_bytes.count(dll.library.with_suffix(".map").read_text())
    assert {"mime", "net/tls", "mail/smtp", "base/crypto", "plugin", "C++ run time", "relocations"} <= table.keys()
    # But for headers, and what fills sections up.
    missing = dll.library.stat().st_size - sum(sizes.total() for sizes in table.values())
    assert 0 < missing < 8192


@pytest.mark.parametrize("name", ["library", "program", "driver"])
def test_linux_files_are_seen_as_others_see_them(so, name):
    path = getattr(so, name)
    facts = binaries.facts_of(path.read_bytes())
    [others] = json.loads(tool_output("checksec", "--output=json", f"--file={path}")).values()
    assert [facts["relro"], *({True: "yes", False: "no"}[facts[fact]] for fact in ("canary", "nx", "symbols"))] == [
        others[word] for word in ("relro", "canary", "nx", "symbols")]
    assert facts["pie"] == (others["pie"] in ("yes", "dso")) and bool(facts["search path"]) == (others["rpath"] != "no")


def test_table_of_what_goes_out(dll, so, tmp_path, monkeypatch, capsys):
    def table():
        monkeypatch.setattr(sys, "argv", ["binaries.py", "--json", str(tmp_path)])
        return binaries.main(), json.loads(capsys.readouterr().out)

    (tmp_path / "README").write_text("no binary")
    assert table() == (2, {})
    with zipfile.ZipFile(tmp_path / "one.zip", "w") as archive:
        archive.write(dll.library, "x86/emailsending.dll")
    with tarfile.open(tmp_path / "two.tar.gz", "w:gz") as archive:
        archive.add(so.program, "bin/emailsend")
    for product in (dll, so):  # what a file of symbols keeps of the sections is their names
        tool_output(OBJDUMP.get(product.name, "objdump").replace("dump", "copy"), "--only-keep-debug", product.driver,
                    tmp_path / f"{product.name}.debug")
    code, found = table()
    assert [found.pop(f"{tmp_path}/{name}.debug")["format"] for name in ("dll", "so")] == [
        "PE32 symbols x86", "ELF64 symbols x64"]
    assert (code, [name.removeprefix(str(tmp_path)) for name in found]) == (0, [
        "/one.zip!x86/emailsending.dll", "/two.tar.gz!bin/emailsend"])
    newer = dll.library.read_bytes().replace(b"GetTickCount64", b"GetTickCount65")
    (tmp_path / "newer.dll").write_bytes(newer)
    (tmp_path / "short.dll").write_bytes(newer[:5000])
    code, found = table()
    assert code == 1 and found[f"{tmp_path}/newer.dll"]["not in Windows 7"] == ["kernel32.dll:GetTickCount65"]
    assert "cannot be read" in found[f"{tmp_path}/short.dll"]
    binaries.print_rows(found)
    newest, short = (line for line in capsys.readouterr().out.splitlines() if ".dll" in line and tmp_path.name in line)
    assert "  24  " in newest and newest.endswith("NO_SEH NOT IN WINDOWS 7!") and short.endswith("CANNOT BE READ!")
