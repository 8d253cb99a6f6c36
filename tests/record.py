#!/usr/bin/env python3
"""Records what the unit tests saw of two builds, native and win32: result, transcript and log of every
dialogue, connect, name lookup and TLS conversation, with times masked. Each text stands there once.

    record.py FOLDER          writes FOLDER/native.txt and FOLDER/win32.txt
    diff -r BEFORE AFTER      what a change of the code changed for a host, a server or a log reader
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "fixtures"))
import wine  # noqa: E402

PROGRAMS = "unit_mail*", "unit_net*"
WITHOUT = "*CutTls*:*OpenSsl*"  # real random numbers
MASKS = ((re.compile(rb"\(?\b\d+ ?ms\b\)?"), b""), (re.compile(rb"(ticket_age_add: )\d+"), rb"\1N"),
         (re.compile(rb"\n *ws2_32_DLL_Version[^\n]*"), b""))  # once a process


def record(preset, programs, folder, env):
    out = folder / f"{preset}.raw"
    out.write_bytes(b"")
    for command in programs:
        # A relative path means the same to Windows programs.
        subprocess.run([*command, "--gtest_brief=1", f"--gtest_filter=-{WITHOUT}"], cwd=folder, check=True,
                       env={**env, "TV_RECORD": out.name})
    text = out.read_bytes().replace(b"\r\n", b"\n")
    out.unlink()
    for pattern, replacement in MASKS:
        text = pattern.sub(replacement, text)
    records = sorted(set(re.split(rb"^== ", text, flags=re.M)))
    (folder / f"{preset}.txt").write_bytes(b"== ".join(records))
    print(f"{preset}: {len(records)} records")


def programs_of(preset):
    return sorted(path for pattern in PROGRAMS for path in (ROOT / "build" / preset / "tests").glob(pattern)
                  if path.is_file() and path.suffix in ("", ".exe"))


def main():
    folder = pathlib.Path(sys.argv[1]).resolve()
    folder.mkdir(parents=True, exist_ok=True)
    with wine.WineSession() as session:
        record("native", [[path] for path in programs_of("native")], folder, session.env)
        record("win32", [session.command(path) for path in programs_of("win32")], folder, session.env)


if __name__ == "__main__":
    main()
