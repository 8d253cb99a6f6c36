#!/usr/bin/env python3
"""Checks every #include of src/ for what the build's views cannot refuse: ".." around them, headers of
the system outside src/platform, and parts of the C++ library that the product does without. Prints one
line per offence; the exit code counts them."""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
WITHOUT = set("""
any barrier clocale codecvt coroutine csetjmp csignal cwchar filesystem format fstream future iomanip ios
iosfwd iostream istream latch locale memory_resource ostream random regex semaphore sstream stop_token
streambuf strstream syncstream system_error thread typeindex typeinfo valarray
""".split())
CPU_HEADERS = {"cpuid.h", "immintrin.h"}  # intrinsics belong to the compiler, not to a system
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)


def check(root):
    for path in sorted((root / "src").rglob("*.*")):
        place = path.relative_to(root / "src")
        text = path.read_text() if path.suffix in (".h", ".cpp", ".c", ".inc") else ""
        for kind, name in INCLUDE.findall(text):
            system = re.search("[./]", name) and name not in CPU_HEADERS
            if ".." in name.split("/"):
                yield f'{place}: "{name}": includes are written from src/, never with ".."'
            elif kind == "<" and place.parts[0] != "platform" and (system or name in WITHOUT):
                yield f"{place}: <{name}>: not a header the product uses outside src/platform"


if __name__ == "__main__":
    result = list(check(ROOT))
    print("\n".join(result) if result else "includes: nothing goes around the views")
    sys.exit(min(len(result), 100))
