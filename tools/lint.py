#!/usr/bin/env python3
"""clang-tidy over src/: every source that a native build compiles, and the headers they include.

    lint.py [--changed]

--changed takes the files that differ from the last tag, or from the twentieth commit before this one
where there is no tag; a header is seen through one source that includes it. A source that passed is
known by its preprocessed text (build/native/lint) and is not read again until that changes.

Exit code 0: nothing found, 1: something was, 77: no history to compare with.
"""
import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "native"
TIDY = ["clang-tidy-14", "-p", str(BUILD), "--quiet", "--extra-arg=-Wno-unknown-warning-option"]
COMMITS = 20


def git(*words):
    return subprocess.run(["git", *words], cwd=ROOT, capture_output=True, text=True, check=True).stdout.split()


def before():
    """The commit to compare with. A tagged commit is compared with the tag before it."""
    try:
        return git("describe", "--tags", "--abbrev=0", "HEAD^")[0]
    except subprocess.CalledProcessError:
        return git("rev-list", "--first-parent", f"--max-count={COMMITS + 1}", "HEAD")[-1]


def changed_files():
    """Files of src/, named from there, that are not as they were; uncommitted ones included."""
    names = (git("diff", "--name-only", "--diff-filter=d", before(), "--", "src") +
             git("ls-files", "--others", "--exclude-standard", "src"))
    return {name.removeprefix("src/") for name in names}


def with_readers(chosen, headers, sources):
    """chosen and, for each header that none of it includes, a source that does: best its namesake."""
    chosen = set(chosen)
    texts = {path.relative_to(ROOT / "src").as_posix(): path.read_text()
             for path in sorted((ROOT / "src").rglob("*")) if path.suffix in (".h", ".cpp")}
    for header in sorted(headers):
        seen, level, found = set(), [header], []
        while level and not found:
            seen.update(level)
            include = re.compile("|".join(f'^#include "{re.escape(name)}"' for name in level), re.M)
            level = [name for name, text in texts.items() if name not in seen and include.search(text)]
            found = [name for name in level if name in sources]
        found.sort(key=lambda name: (name not in chosen, name[:-4] != header[:-2]))
        chosen.update(found[:1])
    return chosen


def fingerprint(command):
    """What decides the verdict on a source; None if it does not even pass the preprocessor."""
    words = shlex.split(command["command"])
    words = ["clang++-14", "-Wno-unknown-warning-option", "-E", "-C", *words[1:words.index("-o")], command["file"]]
    text = subprocess.run(words, cwd=command["directory"], capture_output=True)
    rules = (ROOT / ".clang-tidy").read_bytes() + command["command"].encode()
    return None if text.returncode else hashlib.sha256(rules + text.stdout).hexdigest()


def passes(command):
    known = BUILD / "lint" / (fingerprint(command) or "none")
    if known.exists():
        return True
    # Counts of the warnings in headers of the system, which are not shown, go to standard error.
    result = subprocess.run([*TIDY, command["file"]], capture_output=True, text=True)
    if result.returncode == 0 and known.name != "none":
        known.touch()
    else:
        print(result.stdout or result.stderr, end="", flush=True)
    return result.returncode == 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--changed", action="store_true", help="only what differs from the last tag")
    only_changed = parser.parse_args().changed
    subprocess.run(["cmake", "--preset", "native"], cwd=ROOT, stdout=subprocess.DEVNULL, check=True)
    (BUILD / "lint").mkdir(exist_ok=True)
    commands = {}
    for command in json.loads((BUILD / "compile_commands.json").read_text()):
        path = pathlib.Path(command["file"])
        if path.is_relative_to(ROOT / "src"):
            commands[path.relative_to(ROOT / "src").as_posix()] = command
    chosen = set(commands)
    if only_changed:
        try:
            changed = changed_files()
        except (OSError, subprocess.CalledProcessError):
            print("lint: no git history to tell what has changed")
            return 77
        headers = {name for name in changed if name.endswith(".h") and "/win32/" not in name}
        chosen = with_readers(changed & set(commands), headers, commands)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        failed = list(pool.map(passes, [commands[name] for name in sorted(chosen)])).count(False)
    print(f"lint: {len(chosen)} sources, {failed} with findings")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
