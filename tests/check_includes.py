#!/usr/bin/env python3
"""Checks every #include of src/ for what the build's views cannot refuse: ".." and links around them,
headers of the system outside src/platform, parts of the C++ library that the product does without, and
files in no room. Prints one line per offence; the exit code counts them.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
WITHOUT = set("""
any codecvt coroutine filesystem format fstream future iomanip ios iosfwd iostream istream locale ostream
random regex semaphore sstream stop_token streambuf strstream syncstream thread typeindex typeinfo valarray
""".split())
CPU_HEADERS = {"cpuid.h", "immintrin.h"}  # intrinsics belong to the compiler, not to a system
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)


def offences(text, room):
    if not room:
        yield "not in a room of CMakeLists.txt"
    for kind, name in INCLUDE.findall(text):
        if ".." in name.split("/"):
            yield f'"{name}": includes are written from src/, never with ".."'
        elif kind == "<" and room != "platform" and (
                name in WITHOUT or (re.search("[./]", name) and name not in CPU_HEADERS)):
            yield f"<{name}>: not a header the product uses outside src/platform"


def check(root):
    rooms = set(re.findall(r"^tv_room\(([\w/]+)", (root / "CMakeLists.txt").read_text(), re.M))
    for path in sorted((root / "src").rglob("*.*")):
        room = re.sub("^platform/.*", "platform", path.parent.relative_to(root / "src").as_posix())
        if path.suffix in (".h", ".cpp", ".c", ".inc"):
            for text in offences(path.read_text(), room if room in rooms else None):
                yield f"{path.relative_to(root)}: {text}"


if __name__ == "__main__":
    result = list(check(ROOT))
    print("\n".join(result) if result else "includes: nothing goes around the views")
    sys.exit(min(len(result), 100))
