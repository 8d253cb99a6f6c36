#!/usr/bin/env python3
"""Checks every #include of src/ against the arrows that CMakeLists.txt declares (tv_room ... SEES).

The build's views already refuse a header of a room that may not be seen. This check also refuses
".." and links around the views, headers of the system outside src/platform, and the parts of the
C++ library that the product does without. Prints one line per offence; the exit code counts them.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
CPP_LIBRARY = set("""
algorithm array atomic bit bitset cassert cctype cerrno cfenv cfloat charconv chrono cinttypes climits
cmath compare concepts condition_variable cstdarg cstddef cstdint cstdio cstdlib cstring ctime deque exception
forward_list functional initializer_list iterator limits list map memory mutex new numeric optional queue
ranges ratio set shared_mutex span stack stdexcept string string_view tuple type_traits
unordered_map unordered_set utility variant vector version
""".split())
CPU_HEADERS = {"cpuid.h", "immintrin.h"}  # intrinsics belong to the compiler, not to a system
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)


def read_arrows(cmake_text):
    """Room -> every room it can reach by arrows, itself included."""
    direct = {}
    for words in re.findall(r"^tv_room\(([^)]*)\)", cmake_text, re.M):
        room, _, seen = words.partition(" SEES ")
        direct[room.strip()] = seen.split()
    reach = {}
    for room, seen in direct.items():  # declared bottom up
        reach[room] = {room}.union(*(reach[below] for below in seen))
    return reach


def offences(path, text, room, reach):
    for kind, name in INCLUDE.findall(text):
        if ".." in name.split("/"):
            yield f'"{name}": includes are written from src/, never with ".."'
        elif kind == "<":
            if room == "platform" or name in CPP_LIBRARY or name in CPU_HEADERS:
                continue
            yield f"<{name}>: not a header the product uses outside src/platform"
        else:
            folder = name.rpartition("/")[0]
            if folder.startswith("platform/") and room == "platform":
                continue
            if name == "emailsending.h" and room == "plugin":
                continue
            if folder not in reach[room]:
                yield f'"{name}": {room} may not see {folder or "a file without a room"}'


def check(root):
    reach = read_arrows((root / "CMakeLists.txt").read_text())
    found = []
    for path in sorted((root / "src").rglob("*")):
        if path.suffix not in (".h", ".cpp", ".c", ".inc"):
            continue
        room = path.parent.relative_to(root / "src").as_posix()
        room = "platform" if room.startswith("platform") else room
        where = path.relative_to(root)
        if room not in reach:
            found.append(f"{where}: not in a room of CMakeLists.txt")
            continue
        found += [f"{where}: {text}" for text in offences(path, path.read_text(), room, reach)]
    return found


if __name__ == "__main__":
    result = check(ROOT)
    print("\n".join(result) if result else "includes: every arrow points down")
    sys.exit(min(len(result), 100))
