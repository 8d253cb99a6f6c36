#!/usr/bin/env python3
"""What the files that go out hold, in one table: format, size, exports, imports, flags, versions.

    binaries.py [--lists|--json] PATH...    files, folders, .zip, .tar.* and .deb; of each what is a binary

A row for each; --lists has every name behind the numbers.
Of Windows files the imports are held against tests/data/windows7_imports.txt. Exit code 0: all was
read and Windows 7 has what is imported, 1: not so; 2: nothing was found.
"""
import argparse
import io
import json
import pathlib
import re
import struct
import subprocess
import sys
import tarfile
import tempfile
import textwrap
import zipfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
MACHINES = {0x014C: "x86", 0x8664: "x64"}
PE_FLAGS = {0x0020: "HIGHENTROPYVA", 0x0040: "DYNAMICBASE", 0x0100: "NXCOMPAT", 0x0400: "NO_SEH"}
READELF = ["readelf", "-W", "-h", "-l", "-d", "-n", "-S", "--dyn-syms"]
RESOURCE_VERSION = 16
# The files may have been built elsewhere, as those of a release are.
SOMEBODYS_FOLDER = re.compile(rb"(?:/home/|/root/|/tmp/|:\\Users\\)\w")


def windows7():
    """(machine, is it a program) -> the (library, function) pairs that it may import."""
    allowed = {(machine, program): set() for machine in ("x86", "x64") for program in (False, True)}
    rows = (ROOT / "tests/data/windows7_imports.txt").read_text()
    for plus, wide, library, functions in re.findall(r"^(\+?)(64:)?([\w.]+)((?: \S+)+)$", rows, re.M):
        for (machine, program), pairs in allowed.items():
            if program >= bool(plus) and (machine == "x64" or not wide):
                pairs.update((library, function) for function in functions.split())
    return allowed


class Reader:
    """Bytes of a file by their offsets; what lies outside is an error."""

    def __init__(self, data):
        self.data = data

    def get(self, form, at):
        return struct.unpack_from("<" + form, self.data, at)

    def table(self, form, at, count):
        size = struct.calcsize("<" + form)
        return [self.get(form, at + i * size) for i in range(count)]

    def text(self, at):
        return self.data[at:self.data.index(b"\0", at)].decode()


class PeFile(Reader):
    """A DLL or program of Windows."""

    def __init__(self, data):
        super().__init__(data)
        [header] = self.get("I", 0x3C)
        magic, machine, sections, self.time, _, symbols, size, kind = self.get("IHHIIIHH", header)
        if magic != 0x4550:
            raise ValueError("no PE file")
        optional = header + 24
        self.wide = self.get("H", optional)[0] == 0x20B
        self.machine, self.is_dll, self.symbols = MACHINES.get(machine, hex(machine)), bool(kind & 0x2000), symbols
        self.stripped_of_relocations = bool(kind & 1)
        [self.base] = self.get("Q", optional + 24) if self.wide else self.get("I", optional + 28)
        [self.flag_bits] = self.get("H", optional + 70)
        self.directories = self.table("II", optional + (112 if self.wide else 96), 16)
        self.sections = self.table("8sIIII16x", optional + size, sections)

    def at(self, address):
        """Where the bytes of a relative address lie."""
        for _, used, start, kept, offset in self.sections:
            if start <= address < start + max(used, kept):
                return offset + address - start
        raise ValueError(f"no section has {address:#x}")

    def exports(self):
        """Name -> relative address of its code."""
        address, size = self.directories[0]
        if not size:
            return {}
        _, count, functions, names, ordinals = self.get("5I", self.at(address) + 20)
        places = self.table("H", self.at(ordinals), count) if count else []
        return {self.text(self.at(name)): self.get("I", self.at(functions) + 4 * place)[0]
                for (name,), (place,) in zip(self.table("I", self.at(names), count), places)}

    def imports(self):
        """Library -> functions."""
        address, size = self.directories[1]
        found, entry = {}, self.at(address) if size else 0
        while size:
            lookup, _, _, name, slots = self.get("5I", entry)
            if not name:
                break
            library = self.text(self.at(name)).lower()
            found.setdefault(library, []).extend(self._imported(self.at(lookup or slots)))
            entry += 20
        return {library: sorted(functions) for library, functions in sorted(found.items())}

    def _imported(self, at):
        form, width = ("Q", 8) if self.wide else ("I", 4)
        while word := self.get(form, at)[0]:
            by_number = word >> (8 * width - 1)
            yield f"#{word & 0xFFFF}" if by_number else self.text(self.at(word) + 2)
            at += width

    def version(self):
        """The texts of the version resource, and its numbers as "Numbers"."""
        address, size = self.directories[2]
        if not size:
            return {}
        root = self.at(address)
        places = [target for number, target in self._entries(root) if number == RESOURCE_VERSION]
        if not places:
            return {}
        [place] = places
        while place & 0x80000000:  # by name, then by language
            [(_, place)] = self._entries(root + (place & 0x7FFFFFFF))
        [data] = self.get("I", root + place)
        found = {}
        self._version_block(self.at(data), found)
        return found

    def _entries(self, at):
        named, numbered = self.get("HH", at + 12)
        return self.table("II", at + 16, named + numbered)

    def _version_block(self, start, found):
        length, value_length, is_text = self.get("HHH", start)
        end, at = start + length, start + 6
        text = self.data[at:end].decode("utf-16-le", "replace")
        key = text[:text.index("\0")]
        at = start + (6 + 2 * len(key) + 2 + 3 & ~3)
        if key == "VS_VERSION_INFO":
            high, low = self.get("II", at + 8)
            found["Numbers"] = f"{high >> 16}.{high & 0xFFFF}.{low >> 16}.{low & 0xFFFF}"
        elif is_text and value_length:
            found[key] = self.data[at:at + 2 * value_length].decode("utf-16-le").rstrip("\0")
        at += value_length * (2 if is_text else 1)
        while (at := start + (at - start + 3 & ~3)) + 6 <= end and self.get("H", at)[0]:
            self._version_block(at, found)
            at += self.get("H", at)[0]

    def facts(self):
        if any(name.rstrip(b"\0") == b".text" and not offset for name, *_, offset in self.sections):
            return {"format": f"PE32{'+' * self.wide} symbols", "machine": self.machine}
        imports = self.imports()
        allowed = windows7()[self.machine, not self.is_dll]
        return {
            "format": f"PE32{'+' * self.wide} {'DLL' if self.is_dll else 'program'}", "machine": self.machine,
            "exports": sorted(self.exports()), "imports": imports,
            "not in Windows 7": [f"{library}:{function}" for library, functions in imports.items()
                                 for function in functions if (library, function) not in allowed],
            "flags": [name for bit, name in PE_FLAGS.items() if self.flag_bits & bit],
            "base": hex(self.base), "relocatable": not self.stripped_of_relocations and self.directories[5][1] > 0,
            "time stamp": self.time, "symbols": bool(self.symbols), "version": self.version()}


def elf_facts(data):
    """Of a program, library or file of symbols of Linux, as readelf sees it."""
    with tempfile.NamedTemporaryFile() as file:
        file.write(data)
        file.flush()
        said = subprocess.run([*READELF, file.name], check=True, capture_output=True, text=True).stdout

    def all_of(pattern):
        return re.findall(pattern, said, re.M)

    bits, machine = all_of("Class: +(ELF..)")[0], "x64" if "X86-64" in all_of("Machine: +(.*)")[0] else "x86"
    build = "".join(all_of(r"Build ID: (\w+)"))
    if all_of(r" \.text +NOBITS"):
        return {"format": f"{bits} symbols", "machine": machine, "build id": build}
    newest = {}
    for kind, number in all_of(r" UND \S+@([A-Z]+)_([\d.]+)"):
        newest[kind] = max(newest.get(kind, ()), tuple(map(int, number.split("."))))
    bound, relro = bool(all_of(r"\((?:FLAGS|FLAGS_1)\).*NOW")), bool(all_of("^ *GNU_RELRO "))
    symbols = [(name, place) for place, name in all_of(r"(?:GLOBAL|WEAK) +DEFAULT +(\w+) (\S+)")]
    executable, kind = bool(all_of(r"\(FLAGS_1\).* PIE|^ *INTERP ")), all_of("^ *Type: +([A-Z]+)")[0]
    return {
        "format": f"{bits} {'program' if executable else 'library' if kind == 'DYN' else kind}", "machine": machine,
        "soname": "".join(all_of(r"\(SONAME\).*\[(.*)\]")), "needs": all_of(r"\(NEEDED\).*\[(.*)\]"),
        "newest versions needed": {kind: ".".join(map(str, number)) for kind, number in sorted(newest.items())},
        "exports": sorted(name for name, place in symbols if place.isdigit()),
        "relro": "full" if relro and bound else "partial" if relro else "no",
        "nx": all_of(r"^ *GNU_STACK .* (R\S* ?E?) +0x\w+$") == ["RW "], "pie": kind == "DYN",
        "canary": any(name.startswith("__stack_chk_fail") for name, _ in symbols),
        "search path": all_of(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]"),
        "symbols": bool(all_of(r" \.(?:symtab|debug_info) ")), "build id": build}


def members(data):
    """Name, time and content of each part of an ar archive."""
    at = 8
    while at + 60 <= len(data):
        name, time, size = data[at:at + 16].decode().rstrip(), data[at + 16:at + 28], int(data[at + 48:at + 58])
        yield name, int(time.strip() or 0), data[at + 60:at + 60 + size]
        at += 60 + size + size % 2


def archive_facts(data):
    """Of an import library: what hosts may link with."""
    parts = list(members(data))
    [index] = [content for name, _, content in parts if name == "/"][:1]  # the first is the one that all have
    [count] = struct.unpack_from(">I", index)
    names = index[4 + 4 * count:].decode().split("\0")[:count]
    return {"format": "import library", "time stamp": max(time for _, time, _ in parts),
            "offers": sorted({name.removeprefix("__imp_") for name in names if name.startswith("__imp_")})}


def names_checkout(data, root=ROOT):
    """dlltool writes a path with _ for what is no letter. A folder such as /src is sought as the begin
    of a path alone: others have it in theirs."""
    path = str(root).encode()
    if len(root.parts) > 2:
        return path in data or re.sub(rb"\W", b"_", path) in data
    return bool(re.search(rb"(?<![\w.-])" + re.escape(path) + b"/", data))


def facts_of(data):
    """What there is to know of a file; None where it is no binary."""
    if data[:2] == b"MZ":
        found = PeFile(data).facts()
    elif data[:4] == b"\x7fELF":
        found = elf_facts(data)
    elif data[:8] == b"!<arch>\n":
        found = archive_facts(data)
    else:
        return None
    kind, *machine = found.pop("format"), *([found.pop("machine")] if "machine" in found else [])
    return {"format": " ".join([kind, *machine]), "bytes": len(data), **found,
            "build path inside": names_checkout(data) or bool(SOMEBODYS_FOLDER.search(data))}


def files(path):
    """Name and content of every file in a folder or package; of a package in its place, too."""
    if path.is_dir():
        for inner in sorted(p for p in path.rglob("*") if p.is_file() and not p.is_symlink()):
            yield from ((f"{inner}{rest}", data) for rest, data in parts_of(inner))
    else:
        yield from ((f"{path}{rest}", data) for rest, data in parts_of(path))


def parts_of(path):
    data = path.read_bytes()
    if path.suffix == ".deb":
        name = next(name for name, _, _ in members(data) if name.startswith("data.tar"))
        data = next(content for found, _, content in members(data) if found == name)
    if path.suffix == ".zip":
        with zipfile.ZipFile(io.BytesIO(data)) as archive:
            yield from ((f"!{name}", archive.read(name)) for name in sorted(archive.namelist()))
    elif path.suffix == ".deb" or ".tar" in path.suffixes:
        with tarfile.open(fileobj=io.BytesIO(data)) as archive:
            for part in sorted(archive.getmembers(), key=lambda part: part.name):
                if part.isfile():
                    yield f"!{part.name}", archive.extractfile(part).read()
    else:
        yield "", data


def words(value):
    if isinstance(value, bool):
        return "yes" if value else "no"
    if isinstance(value, list):
        return f"{len(value)}: {' '.join(value)}" if value else "none"
    return str(value) or "none"


def flags_of(facts):
    """In a few words what protects a file, and what should not be in it."""
    on = [name for name in ("relro", "nx", "pie", "canary") if facts.get(name) in (True, "full")]
    found = [name for name in ("symbols", "build path inside", "not in Windows 7", "cannot be read") if facts.get(name)]
    return " ".join([*facts.get("flags", on), *(f"{name.upper()}!" for name in found)])


def print_rows(table):
    rows, archive = [("file", "format", "bytes", "exports", "needs", "flags")], ""
    for name, facts in table.items():
        outer, _, inner = name.rpartition("!")
        if outer != archive:
            archive = outer
            rows.append((archive, "", "", "", "", ""))
        needs = facts.get("newest versions needed")
        imports = facts.get("imports", {})
        rows.append((
            inner.partition("/")[2] if outer else name, facts.get("format", ""), f"{facts.get('bytes', 0):,}", len(facts["exports"]) if "exports" in facts else "",
            " ".join(f"{kind}_{newest}" for kind, newest in needs.items() if kind.startswith("GLIBC")) if needs else
            f"{sum(map(len, imports.values()))} of {len(imports)} DLLs" if imports else "", flags_of(facts)))
    widths = [max(len(str(row[column])) for row in rows) for column in range(len(rows[0]))]
    for row in rows:
        print("  ".join(f"{str(cell):{'>' if column in (2, 3) else '<'}{width}}"
                        for column, (cell, width) in enumerate(zip(row, widths))).rstrip())


def print_lists(table):
    for name, facts in table.items():
        print(name)
        for fact, value in facts.items():
            lines = value if isinstance(value, dict) else {"": value}
            for line, (key, inner) in enumerate(lines.items()):
                text = f"{key} {words(inner)}".strip()
                print(textwrap.fill(text, 140, initial_indent=f"  {'' if line else fact:24}",
                                    subsequent_indent=" " * 26, break_on_hyphens=False))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    how = parser.add_mutually_exclusive_group()
    how.add_argument("--json", action="store_true")
    how.add_argument("--lists", action="store_true")
    parser.add_argument("paths", nargs="+", type=pathlib.Path, metavar="PATH")
    options, table, bad = parser.parse_args(), {}, False
    for name, data in (file for path in options.paths for file in files(path)):
        try:
            facts = facts_of(data)
        except (ValueError, LookupError, struct.error, subprocess.CalledProcessError) as error:
            facts = {"cannot be read": str(error)}
        if facts:
            table[name] = facts
            bad |= bool(facts.get("not in Windows 7") or facts.get("cannot be read"))
    if options.json:
        print(json.dumps(table, indent=1))
    elif options.lists:
        print_lists(table)
    else:
        print_rows(table)
    return 1 if bad else 0 if table else 2


if __name__ == "__main__":
    sys.exit(main())
