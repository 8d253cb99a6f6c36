"""What goes out: that it can be built against, is whole, tells the truth about itself and can be made again."""
import hashlib
import json
import re
import shutil
import subprocess

import jsonschema
import pytest

import package
from binaries import PeFile, names_checkout
from conftest import PACKAGE, ROOT, output
from products import EXPORTS

PROJECT = """\
cmake_minimum_required(VERSION 3.16)
project(outside C)
find_package(emailsending 1.0 REQUIRED)
add_executable(outside outside.c)
target_link_libraries(outside PRIVATE emailsending::emailsending)
"""
SOURCE = """\
#include <emailsending.h>
#include <stdio.h>
int main(void) {
    Initialise();
    setSmtpHost("127.0.0.1");
    setSmtpPort(1);
    setFromAddress("a@example.com");
    if (!setRecipient("b@example.com") || szBrisko()) return 1;
    return puts(getLastError()) < 0;
}
"""
TOOL_CHAIN = {"x86": "mingw32", "x64": "mingw64"}


@pytest.fixture
def outside(tmp_path):
    """The folder of somebody else's project."""
    (tmp_path / "CMakeLists.txt").write_text(PROJECT)
    (tmp_path / "outside.c").write_text(SOURCE)
    return tmp_path


def find_package(outside, tree, *options):
    output("cmake", "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={tree}", *options, "-S", outside, "-B", outside / "build")
    output("cmake", "--build", outside / "build")
    return outside / "build"


def binaries(tree):
    """Whatever the system could run, by content."""
    return [path for path in sorted(tree.rglob("*"))
            if path.is_file() and not path.is_symlink() and path.read_bytes()[:4] in (b"\x7fELF", b"MZ\x90\0")]


@pytest.mark.parametrize("way", ["find_package", "pkg-config"])
def test_outside_project_on_linux(outside, linux, way):
    if way == "find_package":
        program = find_package(outside, linux) / "outside"
    else:
        words = output("pkg-config", "--cflags", "--libs", "emailsending",
                       env={"PATH": "/usr/bin", "PKG_CONFIG_PATH": linux / "lib/pkgconfig"}).split()
        program = outside / "outside"
        output("gcc", outside / "outside.c", "-o", program, *words)
    assert "Connection rejected" in output(program, env={"LD_LIBRARY_PATH": linux / "lib"})
    assert "libemailsending.so.1" in output("objdump", "-p", program)


@pytest.mark.parametrize("folder", TOOL_CHAIN)
def test_outside_project_for_windows(outside, windows, folder):
    tool_chain = ROOT / "cmake" / f"{TOOL_CHAIN[folder]}.cmake"
    # The tool chain looks for packages below its root alone.
    made = find_package(outside, windows, f"-DCMAKE_TOOLCHAIN_FILE={tool_chain}", f"-DCMAKE_FIND_ROOT_PATH={windows}")
    imports = PeFile((made / "outside.exe").read_bytes()).imports()["emailsending.dll"]
    assert ("_szBrisko@0" if folder == "x86" else "szBrisko") in imports


def test_sums_are_of_every_file(dist):
    output("sha256sum", "--check", "--strict", "SHA256SUMS", cwd=dist)
    listed = {line.split()[1] for line in (dist / "SHA256SUMS").read_text().splitlines()}
    assert listed == {path.name for path in dist.iterdir()} - {"SHA256SUMS"} and len(listed) == 4


def test_bill_of_materials(dist, windows, linux):
    path, = dist.glob("*.cdx.json")
    bill = json.loads(path.read_text())
    schemas = {schema["$id"]: schema for schema in
               (json.loads(file.read_text()) for file in (ROOT / "tests/data/cyclonedx").glob("*.json"))}
    main = schemas["http://cyclonedx.org/schema/bom-1.5.schema.json"]
    jsonschema.Draft7Validator(main, resolver=jsonschema.RefResolver.from_schema(main, store=schemas)).validate(bill)

    listed = {part["name"]: part["hashes"][0]["content"] for part in bill["components"] if part["type"] == "file"}
    delivered = {f"{name}/{file.relative_to(tree)}": hashlib.sha256(file.read_bytes()).hexdigest()
                 for name, tree in (("windows", windows), ("linux", linux))
                 for file in binaries(tree) if file.suffix != ".debug"}
    assert listed == delivered and len(listed) >= 6
    depends = {entry["ref"]: {on.split("/")[0] for on in entry["dependsOn"]} for entry in bill["dependencies"]}
    for file, architecture in (("lib", "amd64"), ("lib32", "i386")):
        loads = [on for entry in bill["dependencies"] for on in entry["dependsOn"]
                 if entry["ref"].startswith(f"linux/{file}/") and on.endswith("/dynamic")]
        assert loads and all(f":{architecture}/" in on for on in loads), loads
    assert {"libstdc++", "libgcc", "winpthreads", "mingw-w64"} <= depends["windows/x86/emailsending.dll"]

    named = " ".join(re.findall(r'"(?:expression|id)": "(.+)"', path.read_text()))
    for tree in (windows, linux):
        texts = {file.stem for file in (tree / "licenses").glob("*.txt")}
        assert set(re.split(r" (?:AND |WITH )?", named)) <= texts
        assert json.loads((tree / "sbom.cdx.json").read_text()) == bill


def test_files_are_stripped_and_name_no_build_folder(windows, linux):
    for path in (*windows.rglob("*"), *linux.rglob("*")):
        assert path.is_dir() or not names_checkout(path.read_bytes()), path
    for path in binaries(linux):
        if path.suffix != ".debug":
            assert ".symtab" not in output("readelf", "-SW", path)
            folder = "debug/lib32" if path.parent.name == "lib32" else "debug"
            symbols = linux / folder / f"{path.name}.debug"
            assert symbols.name.encode() + b"\0" in path.read_bytes()
            assert ".debug_line" in output("readelf", "-SW", symbols)


@pytest.mark.parametrize("folder", TOOL_CHAIN)
def test_crash_address_resolves_to_a_function(windows, folder):
    exports = {*PeFile((windows / folder / "emailsending.dll").read_bytes()).exports().values()}
    lines = (windows / folder / "symbols/emailsending.dll.map").read_text().splitlines()
    assert lines == sorted(lines, key=lambda line: line[:8])
    names = {line[9:].split("@")[0] for line in lines if int(line[:8], 16) in exports}
    assert names == {*EXPORTS} and len(exports) == 24
    assert any("tv::" in line and "(anonymous namespace)" in line for line in lines)


@pytest.fixture
def debian(dist, tmp_path):
    """The unpacked Debian package, in a system whose /lib is a link."""
    deb, = dist.glob("*.deb")
    output("dpkg-deb", "-x", deb, tmp_path)
    (tmp_path / "lib").symlink_to("usr/lib")
    return tmp_path


def test_links_between_pages_lead_to_files(windows, linux, debian):
    seen = set()
    for tree in (windows, linux, linux / "share/doc/emailsending", debian / "usr/share/doc/emailsending"):
        for page in (*tree.glob("*.md"), *tree.glob("docs/*.md"), *tree.glob("samples/*.md")):
            for target in re.findall(r"\]\((?!https?:)([^)#\s]+)", page.read_text()):
                assert (page.parent / target).exists(), (page, target)
                seen.add(target)
    assert {"samples/java", "examples", "docs/errors.md", "../CONTRIBUTING.md", "LICENSE", "copyright"} <= seen


def test_debian_package(dist, linux, debian, outside):
    tmp_path, (deb,) = debian, dist.glob("*.deb")
    for name in ("bin/emailsend", f"lib/libemailsending.so.{package.version()}", "include/emailsending.h"):
        assert (tmp_path / "usr" / name).read_bytes() == (linux / name).read_bytes()
    needs = output("dpkg-deb", "-f", deb, "Depends")
    assert all(f"{name} (>= " in needs for name in ("libc6", "libstdc++6", "libgcc-s1"))
    find_package(outside, debian)
    assert f"-isystem {debian}/usr/include" in (outside / "build/build.ninja").read_text()
    licence = (debian / "usr/share/doc/emailsending/copyright").read_text()
    assert all(f"\nLicense: {name}\n " in licence for name in ("Expat", "PSF-2.0", "GCC-exception-3.1"))
    # The program finds the library where the package puts it.
    said = subprocess.run([tmp_path / "usr/bin/emailsend", "doctor", "--host", "127.0.0.1", "--port", "1"],
                          capture_output=True, text=True).stdout
    assert f"library: {tmp_path}/usr/lib/libemailsending.so.1" in said and "Connection rejected" in said


def test_signed_after_the_hashes_were_taken(windows, tmp_path, monkeypatch):
    key, certificate, signer = tmp_path / "key", tmp_path / "certificate", tmp_path / "sign"
    output("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=nobody", "-days", "2",
           "-addext", "extendedKeyUsage=codeSigning", "-keyout", key, "-out", certificate)
    signer.write_text(f'#!/bin/sh\nosslsigncode sign -certs {certificate} -key {key} -h sha256 -in "$1" -out "$1.new" '
                      '&& mv "$1.new" "$1"\n')
    signer.chmod(0o700)
    tree = shutil.copytree(windows, tmp_path / "tree")
    monkeypatch.setenv("EMAILSENDING_SIGN", str(signer))
    monkeypatch.setattr(package, "DIST", tmp_path)
    files = package.windows_files(tree)
    before = {path: hashlib.sha256(path.read_bytes()).hexdigest() for path in files}
    assert package.sign(tree) == before
    for path in files:
        assert f"{before[path]}  {path.relative_to(tree)}\n" in (tmp_path / "SHA256SUMS.unsigned").read_text()
        verdict = subprocess.run(["osslsigncode", "verify", "-CAfile", certificate, path], capture_output=True, text=True)
        assert "Signature verification: ok" in verdict.stdout, verdict.stdout + verdict.stderr


def test_made_twice_it_is_the_same(dist, tmp_path):
    first = shutil.copytree(dist, tmp_path / "first")
    output(*PACKAGE, "--relink", umask=0o077)
    once, again = ({path.name: package.sha256(path) for path in folder.iterdir()} for folder in (first, dist))
    assert once == again
