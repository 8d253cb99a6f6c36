#!/usr/bin/env python3
"""Where the bytes of emailsending.dll lie: the table of docs/performance.md, in KB of 1,000 bytes.

    dll_bytes.py [MAP]      the linker's map, build/win32/emailsending.map unless told
"""
import collections
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
# A section of an object file, its address and size and where it comes from.
PIECE = re.compile(r"^ (\.\w+)\S*\s+0x0*[1-9a-f]\w*\s+0x([0-9a-f]+) (\S.*)$", re.M)
KINDS = {".text": "code", ".rdata": "data", ".data": "data", ".CRT": "data", ".tls": "data",
         ".eh_frame": "unwinding", ".gcc_except_table": "unwinding"}
TABLES = {".edata": "exports", ".idata": "imports", ".rsrc": "resources", ".reloc": "relocations"}
PARENTS = {"base_crypto": "base/crypto", "mail_oauth2": "mail/oauth2", "mail_sasl": "mail/sasl",
           "mail_smtp": "mail/smtp"}


def room_of(origin):
    if room := re.search(r"libtv_(\w+)\.a", origin):
        return PARENTS.get(room[1], room[1].replace("net_", "net/"))
    if "emailsending.dir" in origin:
        return "plugin"
    return "C++ run time" if re.search(r"lib(stdc\+\+|gcc|gcc_eh)\.a", origin) else "C run time"


def count(text):
    """Room -> kind -> bytes; the tables that the linker makes stand under their own names."""
    linked = text[text.index("Linker script and memory map"):]
    linked = re.sub(r"\n {16,}(?=0x\w+ +0x\w+ )", " ", linked)  # a long name has a line for itself
    table = collections.defaultdict(collections.Counter)
    for section, size, origin in PIECE.findall(linked):
        if section in KINDS:
            table[room_of(origin)][KINDS[section]] += int(size, 16)
    for section, size in re.findall(r"^(\.\w+) +0x\w+ +0x(\w+)", linked, re.M):
        if section in TABLES:
            table[TABLES[section]]["data"] += int(size, 16)
    return table


def main():
    path = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "build/win32/emailsending.map"
    table = count(path.read_text(errors="replace"))
    rows = sorted(table.items(), key=lambda row: -row[1].total())
    rows.append(("sum", sum(table.values(), collections.Counter())))
    print("| what | code | data | unwinding | sum |\n|---|---|---|---|---|")
    for name, sizes in rows:
        cells = [sizes[kind] for kind in ("code", "data", "unwinding")] + [sizes.total()]
        print(f"| {name} | {' | '.join(f'{size / 1000:.1f}' if size else '' for size in cells)} |")


if __name__ == "__main__":
    main()
