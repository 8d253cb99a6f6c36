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


def record(preset, folder, session):
    out = folder / f"{preset}.raw"
    out.write_bytes(b"")
    paths = {path for pattern in PROGRAMS for path in (ROOT / "build" / preset / "tests").glob(pattern)
             if path.suffix in ("", ".exe") and path.is_file()}
    for path in sorted(paths):
        # A relative path means the same to Windows programs.
        command = session.command(path) if path.suffix else [path]
        subprocess.run([*command, "--gtest_brief=1", f"--gtest_filter=-{WITHOUT}"], cwd=folder, check=True,
                       env={**session.env, "TV_RECORD": out.name})
    text = out.read_bytes().replace(b"\r\n", b"\n")
    out.unlink()
    for pattern, replacement in MASKS:
        text = pattern.sub(replacement, text)
    records = sorted(set(re.split(rb"^== ", text, flags=re.M)))
    (folder / f"{preset}.txt").write_bytes(b"== ".join(records))
    print(f"{preset}: {len(records)} records")


if __name__ == "__main__":
    target = pathlib.Path(sys.argv[1]).resolve()
    target.mkdir(parents=True, exist_ok=True)
    with wine.WineSession() as wine_session:
        record("native", target, wine_session)
        record("win32", target, wine_session)
